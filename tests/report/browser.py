"""A headless Chromium to look at pages with: real input, what the console said, pictures."""

import base64
import json
import os
import shutil
import subprocess
import tempfile


class Browser:
    """Speaks the DevTools protocol over a pipe: no port, no package but Chromium's own."""

    def __init__(self, program):
        to_browser, self._out = os.pipe()
        self._in, from_browser = os.pipe()
        self._profile = tempfile.mkdtemp(prefix="report-browser-")
        # The protocol's pipes are descriptors 3 and 4.
        arguments = [program, "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--no-first-run", f"--user-data-dir={self._profile}", "--remote-debugging-pipe", "about:blank"]
        shell = ["/bin/sh", "-c", f'exec "$@" 3<&{to_browser} 4>&{from_browser}', "sh"]
        self._process = subprocess.Popen(shell + arguments, pass_fds=(to_browser, from_browser),
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self._rest = b""
        self._number = 0
        self._session = None
        self._events = []
        self.complaints = []  # of the console, and what no script caught
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self._session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(f"{domain}.enable")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.terminate()
        self._process.wait()
        os.close(self._in)
        os.close(self._out)
        shutil.rmtree(self._profile, ignore_errors=True)

    def _message(self):
        while b"\0" not in self._rest:
            piece = os.read(self._in, 1 << 20)
            if not piece:
                raise RuntimeError("the browser ended")
            self._rest += piece
        text, self._rest = self._rest.split(b"\0", 1)
        message = json.loads(text)
        if "method" in message:
            self._note(message["method"], message["params"])
        return message

    def _note(self, method, params):
        self._events.append(method)
        if method == "Runtime.exceptionThrown":
            details = params["exceptionDetails"]
            self.complaints.append(details.get("exception", {}).get("description", details["text"]))
        elif method == "Runtime.consoleAPICalled" and params["type"] in ("error", "warning", "assert"):
            self.complaints.append(" ".join(str(arg.get("value", arg)) for arg in params["args"]))
        elif method == "Log.entryAdded" and params["entry"]["level"] in ("error", "warning"):
            self.complaints.append(params["entry"]["text"])
        elif method == "Network.requestWillBeSent":
            url = params["request"]["url"]
            if not url.startswith(("file:", "data:", "blob:", "about:")):
                self.complaints.append(f"asks the network for {url}")

    def call(self, method, **params):
        self._number += 1
        message = {"id": self._number, "method": method, "params": params}
        if self._session:
            message["sessionId"] = self._session
        os.write(self._out, json.dumps(message).encode() + b"\0")
        while True:
            answer = self._message()
            if answer.get("id") == self._number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']['message']}")
                return answer["result"]

    def open(self, file, width=1280, height=900, dark=False):
        """Shows the file and waits until it was drawn."""
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        scheme = {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}
        self.call("Emulation.setEmulatedMedia", features=[scheme])
        self._events.clear()
        self.call("Page.navigate", url="file://" + os.path.abspath(file))
        while "Page.loadEventFired" not in self._events:
            self._message()
        self.drawn()

    def drawn(self):
        self.evaluate("new Promise(done => requestAnimationFrame(() => requestAnimationFrame(() => done())))")

    def evaluate(self, script):
        answer = self.call("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in answer:
            raise RuntimeError(answer["exceptionDetails"]["exception"].get("description", "threw"))
        return answer["result"].get("value")

    def mouse(self, kind, x, y, button="left", **more):
        pressed = 1 if kind != "mouseMoved" or button == "left" else 0
        self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, button=button, buttons=pressed, clickCount=1, **more)

    def hover(self, x, y):
        self.mouse("mouseMoved", x, y, button="none")

    def drag(self, x, y, to_x, to_y):
        self.hover(x, y)
        self.mouse("mousePressed", x, y)
        for step in range(1, 5):
            self.mouse("mouseMoved", x + (to_x - x) * step / 4, y + (to_y - y) * step / 4)
        self.mouse("mouseReleased", to_x, to_y)
        self.drawn()

    def click(self, x, y):
        self.drag(x, y, x, y)

    def picture(self, file, whole=True):
        data = self.call("Page.captureScreenshot", format="png", captureBeyondViewport=whole)["data"]
        with open(file, "wb") as out:
            out.write(base64.b64decode(data))

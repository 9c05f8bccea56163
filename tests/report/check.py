#!/usr/bin/env python3
"""Reports in a browser: what a reader sees and does, with real input. Usage: check.py OISCTL [FOLDER for pictures]"""

import json
import pathlib
import shutil
import subprocess
import sys
import tempfile

from browser import Browser

HOSTILE = "</script><script>window.hit = 1</script><!--<script>"

failures = []


def expect(what, seen, wanted=True):
    print(f"{'ok    ' if seen == wanted else 'FAILED'}  {what}")
    if seen != wanted:
        print(f"        seen {seen!r}, expected {wanted!r}")
        failures.append(what)


def place_of(browser, command):
    """Where the first tick of a command is on the screen."""
    return browser.evaluate(f"""(() => {{
        lanes.canvas.scrollIntoView();
        const box = lanes.canvas.getBoundingClientRect();
        const tick = ticks.lane.findIndex(lane => data.lanes[lane].name === '{command}');
        return [box.left + xOf(ticks.time_us[tick]), box.top + (ticks.lane[tick] + 0.7) * laneHeight()];
    }})()""")


def box_of(browser, selector):
    return browser.evaluate(f"""(() => {{
        const found = document.querySelector(`{selector}`);
        found.scrollIntoView({{block: "center"}});
        const box = found.getBoundingClientRect();
        return [box.left, box.top, box.width, box.height];
    }})()""")


def opens(browser, page, what, **how):
    browser.complaints.clear()
    browser.open(page, **how)
    expect(f"{what} opens without a complaint", browser.complaints, [])


def check_payload(browser):
    browser.click(*place_of(browser, "SET_MODE"))
    text = browser.evaluate("document.getElementById('detail').innerText")
    expect("a click shows what a command carried", "02 00 00 00" in text and "SET_MODE" in text)
    browser.evaluate("[...document.querySelectorAll('#detail button')].at(-1).click()")
    text = browser.evaluate("document.getElementById('detail').innerText")
    expect("and leads to the call that it belongs to", "SetMode(2" in text)


def check_zoom(browser, rows):
    drawn = browser.evaluate("Math.max(...linesInView([rows.columns.gyro_y], []).map(line => line[1]))")
    expect("the largest value is drawn when rows share pixels", drawn, float(max(int(row[3]) for row in rows)))
    left, top, width, height = box_of(browser, "#plots .plot:nth-child(3) canvas")
    middle = left + width * 0.6
    browser.drag(middle, top + height / 2, middle + 20, top + height / 2)
    browser.drag(left + 300, top + height / 2, left + 340, top + height / 2)
    lines = browser.evaluate("linesInView([rows.columns.hall_x], []).length")
    count = browser.evaluate("document.getElementById('range').textContent")
    expect("dragging over a chart zooms all of them to single rows", 3 <= lines < 30 and "share a pixel" not in count)
    left, top, width, height = box_of(browser, "#plots .plot:nth-child(3) .chart")
    browser.hover(left + width * 0.6, top + height / 2)
    readings = browser.evaluate("[...document.querySelectorAll('#plots .key')].map(key => key.textContent)")
    time = browser.evaluate(f"timeAt({left + width * 0.6} - document.getElementById('plots').getBoundingClientRect().left)")
    row = min(rows, key=lambda row: abs(float(row[1]) - time))  # simulated: trace and controller have one clock
    target, hall = float(row[16]) + float(row[18]), float(row[20])
    expect("hovering tells the row that stands there in the file", " ".join(readings[:5]),
           f"x {row[2]} y {row[3]} z {row[4]} target {target:.4f} hall {hall:.4f}")
    left, top, _, _ = box_of(browser, "#lanes canvas")
    for kind in ("mousePressed", "mouseReleased"):
        browser.mouse(kind, left + 500, top + 10)
    browser.call("Input.dispatchMouseEvent", type="mousePressed", x=left + 500, y=top + 10, button="left", clickCount=2)
    browser.call("Input.dispatchMouseEvent", type="mouseReleased", x=left + 500, y=top + 10, button="left", clickCount=2)
    browser.drawn()
    expect("a double click shows the whole", browser.evaluate("view.from === whole.from && view.to === whole.to"))


def write_inputs(oisctl, folder):
    def run(*arguments):
        subprocess.run([oisctl, *arguments], cwd=folder, check=True, stdout=subprocess.DEVNULL)

    run("record", "--seconds", "20", "--trace=run.jsonl")
    lines = (folder / "run.jsonl").read_text().split("\n")
    head = json.loads(lines[0])
    head["module"] = HOSTILE
    (folder / "hostile.jsonl").write_text("\n".join([json.dumps(head)] + lines[1:400]))
    recording = str(next(folder.glob("*_status.txt")))
    run("report", "run.jsonl", recording, "-o", "whole.html")
    run("report", "hostile.jsonl", "-o", "trace.html")
    subprocess.run([oisctl, "report", "run.jsonl", recording, "-o", "bare.html", "--charts", "nowhere"], cwd=folder,
                   check=True, capture_output=True)
    return [line.split("  ") for line in pathlib.Path(recording).read_text().split("\n")[1:-1]]


def check(oisctl, folder, pictures):
    rows = write_inputs(oisctl, folder)
    with Browser("chromium") as browser:
        opens(browser, folder / "whole.html", "trace and recording", height=1400)
        expect("the charts are there", browser.evaluate("document.querySelectorAll('.chart canvas').length >= 6"))
        check_payload(browser)
        check_zoom(browser, rows)
        opens(browser, folder / "trace.html", "the trace alone")
        expect("a name is text whatever it holds", browser.evaluate(
            f"window.hit === undefined && document.body.textContent.includes({json.dumps(HOSTILE)})"))
        expect("and the page says that there is no recording", browser.evaluate("!!document.querySelector('.notice')"))
        opens(browser, folder / "bare.html", "without the chart library it")
        expect("says what is missing", "libjs-dygraphs" in browser.evaluate("document.body.innerText"))
        for width in (1280, 420):
            for dark in (False, True):
                opens(browser, folder / "whole.html", f"{width} wide, {'dark' if dark else 'light'}", width=width, dark=dark)
                expect("fits", browser.evaluate("document.documentElement.scrollWidth <= innerWidth"))
                if pictures:
                    browser.picture(f"{pictures}/report-{width}-{'dark' if dark else 'light'}.png")


def main():
    if len(sys.argv) < 2 or not pathlib.Path(sys.argv[1]).is_file():
        sys.exit("usage: check.py OISCTL [FOLDER for pictures]")
    if not shutil.which("chromium"):
        sys.exit("check.py: no chromium here; 'bash tools/setup.sh browser' installs it")
    with tempfile.TemporaryDirectory() as folder:
        check(str(pathlib.Path(sys.argv[1]).resolve()), pathlib.Path(folder), sys.argv[2] if len(sys.argv) > 2 else None)
    sys.exit(1 if failures else 0)


main()

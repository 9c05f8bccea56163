#!/usr/bin/env python3
"""Judges the driver's tests by planting faults, one at a time, in copies of the driver's sources.

Each fault is compiled into driver_tests, which must then fail. A fault that it does not notice is a survivor: something
the driver does and no driver test looks at. The tests of phone and tool are not asked, by design.
"""
import argparse, difflib, fnmatch, glob, hashlib, json, os, queue, random, re, shutil, signal, subprocess
import sys, threading, time
from collections import Counter
from pathlib import Path

from mutant_sites import find_sites, vocabulary_of

REPO = Path(__file__).resolve().parent.parent
DRIVER = "aaa/peripheraldriver/ois/"
WORK = REPO / "build/mutants"
PROGRAM = "driver_tests"
BUILD_SECONDS = 1200
# A faulty program shall fill neither disk nor memory: no core files, files up to 256 MiB, 8 GiB of addresses.
LIMITED = 'ulimit -c 0; ulimit -f 524288; ulimit -v 8388608; exec "$@"'
TEST_FOLDERS = ("tests/", "phone/")  # a result holds for these contents
CAUGHT, SURVIVED, TIMED_OUT, NO_COMPILE, SAME = "caught", "survived", "timed out", "does not compile", "same code"


def die(message):
    print(f"mutants: {message}", file=sys.stderr)
    sys.exit(2)


def digest(*parts):
    sha = hashlib.sha256()
    for part in parts:
        sha.update(part if isinstance(part, bytes) else part.encode())
        sha.update(b"\0")
    return sha.hexdigest()[:16]


class Sources:
    """The tree as it stands: tracked files and new ones that git does not ignore."""

    def __init__(self):
        listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=REPO,
                                check=True, capture_output=True).stdout.decode().split("\0")
        self.files = {name: (REPO / name).read_bytes() for name in sorted(set(listed)) if (REPO / name).is_file()}
        self.driver = {name[len(DRIVER):]: data.decode() for name, data in self.files.items()
                       if name.startswith(DRIVER) and name.endswith((".cpp", ".h"))}

    def sites(self):
        """All sites, those in headers last, since more has to be compiled for them."""
        vocabulary = vocabulary_of(self.driver.values())
        return [site for name in sorted(self.driver, key=lambda name: (name.endswith(".h"), name))
                for site in find_sites(name, self.driver[name], vocabulary)]

    def tests_digest(self):
        return digest(*(part for name, data in self.files.items() if name.startswith(TEST_FOLDERS)
                        for part in (name, data)))

    def lay(self, folder):
        """Makes a folder the same tree; what is the same already keeps its time stamp."""
        for old in (path for path in folder.rglob("*") if path.is_file()):
            if str(old.relative_to(folder)) not in self.files:
                old.unlink()
        for name, data in self.files.items():
            path = folder / name
            if not path.is_file() or path.read_bytes() != data:
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_bytes(data)
                shutil.copymode(REPO / name, path)


class Worker:
    """A folder with a copy of the tree, its build, and room for what the tests write."""

    def __init__(self, number, sources, test_filter):
        self.folder = WORK / str(number)
        self.tree, self.build, self.temp = (self.folder / part for part in ("tree", "build", "temp"))
        self.log = self.folder / "log"
        self.sources, self.filter = sources, test_filter
        self.jobs = 1
        self.process, self.stopped = None, False
        self.limit, self.original, self.passed = 600, None, None

    def run(self, command, seconds):
        """Exit status; None after the time limit. The output is in the log."""
        environment = os.environ | {"TMPDIR": str(self.temp), "CCACHE_DIR": str(WORK / "ccache"),
                                    "CCACHE_BASEDIR": str(self.folder), "CCACHE_NOHASHDIR": "1",
                                    "CCACHE_MAXSIZE": "2G"}
        with open(self.log, "wb") as log:
            self.process = subprocess.Popen(command, cwd=self.folder, env=environment, stdin=subprocess.DEVNULL,
                                            stdout=log, stderr=log, start_new_session=True)
            if self.stopped:
                self.kill()
            try:
                return self.process.wait(seconds)
            except subprocess.TimeoutExpired:
                self.kill()
                return None

    def kill(self):
        """Ends the command that runs, and what it started."""
        if self.process is not None and self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()

    def stop(self):
        self.stopped = True
        self.kill()

    def compile(self):
        return self.run(["ninja", "-C", str(self.build), "-j", str(self.jobs), PROGRAM], BUILD_SECONDS) == 0

    def linked(self):
        """A digest of all libraries and of the program: the same one means the same code."""
        paths = sorted(glob.glob(f"{self.build}/**/*.a", recursive=True)) + [str(self.program())]
        return digest(*(Path(path).read_bytes() for path in paths))

    def program(self):
        return next(path for path in self.build.rglob(PROGRAM) if path.is_file())

    def test(self):
        """Runs the tests: what came of it, and the first failure."""
        shutil.rmtree(self.temp, ignore_errors=True)
        self.temp.mkdir()
        status = self.run(["sh", "-c", LIMITED, "sh", str(self.program()), "--gtest_brief=1", "--gtest_fail_fast",
                           f"--gtest_filter={self.filter}"], self.limit)
        output = self.log.read_text(errors="replace")
        passed = re.findall(r"^\[  PASSED  \] (\d+) test", output, re.M)
        if status is None:
            return TIMED_OUT, ""
        if status == 0 and passed and (self.passed is None or passed[-1] == self.passed):
            self.passed = passed[-1]
            return SURVIVED, ""
        failed = re.search(r"^\[  FAILED  \] ([\w./]+)", output, re.M)
        by = failed[1] if failed else f"signal {-status}" if status < 0 else f"exit status {status}"
        return CAUGHT, by

    def prepare(self):
        """Builds the tree as it is and makes sure that its tests pass."""
        if self.stopped:
            return
        self.tree.mkdir(parents=True, exist_ok=True)
        self.temp.mkdir(exist_ok=True)
        self.sources.lay(self.tree)
        # Without warnings, which would stop a fault that leaves a variable unused. Some optimisation, for quick
        # tests, and so that a fault that changes nothing is often seen to be one. The cases are not listed after
        # linking, since the program may crash.
        options = ["-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O1 -w",
                   "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"]
        if shutil.which("ccache"):
            options.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        linker = next((name for name, command in (("mold", "mold"), ("lld", "ld.lld")) if shutil.which(command)), None)
        if linker:
            options += [f"-DCMAKE_{kind}_LINKER_FLAGS=-fuse-ld={linker}" for kind in ("EXE", "SHARED")]
        configure = ["cmake", "-S", str(self.tree), "-B", str(self.build), "-G", "Ninja", *options]
        ready = self.run(configure, BUILD_SECONDS) == 0 and self.compile()
        if self.stopped:
            return
        if not ready:
            raise RuntimeError(f"the driver's tests cannot be built as they are; see {self.log}")
        start = time.monotonic()
        outcome, by = self.test()
        if outcome != SURVIVED and not self.stopped:
            raise RuntimeError(f"the driver's tests do not pass as they are ({by or outcome}); see {self.log}")
        # Wide, because the machine may be busy: only a hang shall count.
        self.limit = 20 + 20 * (time.monotonic() - start)
        self.original = self.linked()

    def judge(self, site, keep=False):
        """What becomes of one fault: (outcome, what noticed it)."""
        path = self.tree / DRIVER / site.file
        text = self.sources.driver[site.file]
        path.write_text(site.apply(text))
        try:
            if not self.compile():
                return NO_COMPILE, ""
            if self.linked() == self.original:
                return SAME, ""
            return self.test()
        finally:
            if not keep:
                path.write_text(text)


class Results:
    """What was found out, one JSON line per fault. The file is named by the tests that it holds for."""

    def __init__(self, sources, test_filter):
        self.sources = sources
        self.path = WORK / f"results-{digest(sources.tests_digest(), test_filter)}.jsonl"
        self.known = {}

    def key(self, site):
        return digest(self.sources.driver[site.file], site.id, site.new)

    def load(self):
        if self.path.exists():
            for line in self.path.read_text().splitlines():
                if line.endswith("}"):
                    entry = json.loads(line)
                    self.known[entry["key"]] = entry

    def add(self, site, outcome, by):
        entry = {"key": self.key(site), "site": site.id, "fault": site.fault, "outcome": outcome, "by": by}
        self.known[entry["key"]] = entry
        with open(self.path, "a") as file:
            file.write(json.dumps(entry) + "\n")

    def of(self, site):
        return self.known.get(self.key(site))


def run_all(sites, sources, results, arguments):
    """Judges the sites; True unless interrupted."""
    if not sites:
        return True
    count = min(arguments.jobs, len(sites))
    workers = [Worker(number, sources, arguments.filter) for number in range(count)]
    todo, done = queue.Queue(), queue.Queue()
    for site in sites:
        todo.put(site)

    # The first copy is built with all processors; the others then find most of their objects in ccache.
    first_is_built = threading.Event()
    workers[0].jobs = arguments.jobs

    def work(worker):
        try:
            if worker is not workers[0]:
                first_is_built.wait()
            worker.prepare()
            worker.jobs = max(1, arguments.jobs // count)
            first_is_built.set()
            while not worker.stopped:
                site = todo.get_nowait()
                start = time.monotonic()
                outcome, by = worker.judge(site, arguments.keep)
                if not worker.stopped:
                    done.put((site, outcome, by, time.monotonic() - start))
        except queue.Empty:
            pass
        except Exception as error:
            done.put((None, error, "", 0))
        first_is_built.set()
        done.put((None, None, "", 0))

    threads = [threading.Thread(target=work, args=(worker,)) for worker in workers]
    finished, running, error = 0, count, None
    print(f"Building {count} cop{'y' if count == 1 else 'ies'} in {WORK} ...", file=sys.stderr)
    for thread in threads:
        thread.start()
    try:
        while running:
            site, outcome, by, seconds = done.get()
            if site is not None:
                finished += 1
                results.add(site, outcome, by)
                print(f"[{finished}/{len(sites)}] {outcome:16} {seconds:5.1f} s  {site.id}  {by}", flush=True)
            elif outcome is None:
                running -= 1
            else:
                raise outcome
        return True
    except KeyboardInterrupt:
        print("\nInterrupted; --resume goes on from here.", file=sys.stderr)
        return False
    except (RuntimeError, OSError) as problem:
        error = problem
    finally:
        for worker in workers:
            worker.stop()
        for thread in threads:
            thread.join()
        if error:
            die(error)


def report(sites, sources, results, aim):
    """Prints the survivors and the sums; the exit status."""
    judged = [(site, results.of(site)) for site in sites if results.of(site)]
    for site, entry in judged:
        if entry["outcome"] == SURVIVED:
            before, after = site.lines(sources.driver[site.file])
            print(f"\nsurvivor {site.id}: {site.fault}\n  - {before}\n  + {after}")
    kinds = Counter(site.kind for site, entry in judged if entry["outcome"] == SURVIVED)
    if kinds:
        print("\nsurvivors by kind: " + ", ".join(f"{kind} {count}" for kind, count in kinds.most_common()))
    counts = Counter(entry["outcome"] for _, entry in judged)
    caught = counts[CAUGHT] + counts[TIMED_OUT]
    compiled = caught + counts[SURVIVED]
    percent = 100 * caught / compiled if compiled else 100
    print(f"\n{len(judged)} of {len(sites)} faults: {counts[CAUGHT]} caught, {counts[TIMED_OUT]} timed out, "
          f"{counts[SURVIVED]} survived; {counts[NO_COMPILE]} do not compile, {counts[SAME]} give the same code")
    print(f"{percent:.1f}% of those that change the program were caught (aim {aim:g}%); results in {results.path}")
    return 0 if percent >= aim else 1


def diff(site, sources):
    text = sources.driver[site.file]
    return "\n".join(difflib.unified_diff(text.splitlines(), site.apply(text).splitlines(), site.file, site.id,
                                          lineterm="", n=1)) + "\n"


def choose(sites, arguments):
    """The sites that the command line asks for."""
    if arguments.site:
        sites = [site for site in sites if site.id == arguments.site]
        return sites or die(f"no site '{arguments.site}'; ./mutants --list FILE shows those of a file")
    if arguments.files:
        patterns = [name.removeprefix(DRIVER) for name in arguments.files]
        for pattern in patterns:
            if not any(fnmatch.fnmatch(site.file, pattern) for site in sites):
                die(f"'{pattern}' has no site; files are named from {DRIVER} on, e.g. control/parameters.cpp")
        sites = [site for site in sites if any(fnmatch.fnmatch(site.file, pattern) for pattern in patterns)]
    if arguments.draw:
        seed = arguments.seed if arguments.seed is not None else random.randrange(10**6)
        print(f"drawn with --seed {seed} from {len(sites)} sites", flush=True)
        # By a hash of each, so that a seed keeps most of its faults when the driver changes.
        drawn = set(sorted((site.id for site in sites), key=lambda name: digest(str(seed), name))[:arguments.draw])
        sites = [site for site in sites if site.id in drawn]
    return sites


def parse(arguments):
    parser = argparse.ArgumentParser(
        prog="mutants", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter,
        epilog="examples:\n"
               "  ./mutants control/parameters.cpp         every fault of one file\n"
               "  ./mutants --draw 60 --seed 1             60 faults drawn from the whole driver, always the same\n"
               "  ./mutants --all --resume                 all of them; goes on where the last run stopped\n"
               "  ./mutants --list --diff 'korva/*'        show faults, run nothing\n"
               "  ./mutants --site ID --keep               one again, its tree kept\n\n"
               "A hang or a crash counts as caught. Faults that do not compile, and those for which the compiler\n"
               "makes the very same code, are not counted. Exit status: 0 when the aim is met, 1 when not, 2 after wrong\n"
               "usage, 130 when interrupted.")
    parser.add_argument("files", nargs="*", metavar="FILE", help=f"file or glob below {DRIVER}")
    parser.add_argument("--draw", type=int, metavar="N", help="judge N faults drawn at random")
    parser.add_argument("--seed", type=int, help="of the draw; chosen and printed when not given")
    parser.add_argument("--all", action="store_true", help="judge every fault of the driver")
    parser.add_argument("--site", metavar="ID", help="judge one fault: FILE:LINE:COLUMN:KIND, as lists show it")
    parser.add_argument("--keep", action="store_true", help="with --site: leave the faulty tree for a look at it")
    parser.add_argument("--list", action="store_true", help="show the faults, judge none")
    parser.add_argument("--diff", action="store_true", help="with --list: as diffs")
    parser.add_argument("--resume", action="store_true", help="take over results of earlier runs that still hold")
    parser.add_argument("--aim", type=float, default=95, metavar="PERCENT", help="to be caught (default 95)")
    parser.add_argument("--filter", default="*", help="run these test cases only, as --gtest_filter takes them")
    parser.add_argument("-j", "--jobs", type=int, default=len(os.sched_getaffinity(0)), metavar="N",
                        help="copies to work in at the same time (default: processors)")
    parsed = parser.parse_args(arguments)
    if not (parsed.files or parsed.draw or parsed.all or parsed.site or parsed.list):
        parser.error("say what to judge: FILE, --draw N, --all or --site ID")
    if parsed.jobs < 1 or (parsed.draw is not None and parsed.draw < 1):
        parser.error("-j and --draw take a count of 1 or more")
    if parsed.keep and not parsed.site:
        parser.error("--keep goes with --site")
    return parsed


def main():
    arguments = parse(sys.argv[1:])
    sources = Sources()
    sites = choose(sources.sites(), arguments)
    if arguments.list:
        for site in sites:
            print(diff(site, sources) if arguments.diff else f"{site.id}  {site.fault}")
        return 0
    if arguments.site:
        print(diff(sites[0], sources), flush=True)
    WORK.mkdir(parents=True, exist_ok=True)
    results = Results(sources, arguments.filter)
    if arguments.resume:
        results.load()
    complete = run_all([site for site in sites if not results.of(site)], sources, results, arguments)
    status = report(sites, sources, results, arguments.aim)
    if arguments.keep:
        print(f"the faulty tree is {WORK / '0/tree'}")
    return status if complete else 130


if __name__ == "__main__":
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    for number in (signal.SIGINT, signal.SIGTERM):  # also where a shell has put this into the background
        signal.signal(number, signal.default_int_handler)
    sys.exit(main())

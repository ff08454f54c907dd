"""Sets this machine up, builds and runs the tests: scripts/test."""

import os
import random
import sys
import threading
import time
from collections.abc import Sequence
from contextlib import nullcontext
from pathlib import Path

from veyra_lab.checkout import BUILD, CHECKOUT
from veyra_lab.terminal.parser import Parser
from veyra_lab.terminal.set_up import SetUpError, call_setup
from veyra_lab.windows.machine import Machine, MachineError

from .builds import BUILDS, LAB, RELEASE, Build, TestProgram, programs_of
from .interruption import status_of
from .jobs import Job, JobScreen
from .results import closing_line

_SYSTEM_TESTS = CHECKOUT / "tests" / "system"
# What the system tests run: the product, what the laboratory puts under it, what it is measured against, and what the
# tests of the service's start and end need.
_SYSTEM_TARGETS = ("VeyraCameraDfuService", "lab_rig", "VeyraCameraToastCntl", "VeyraMinimalService",
                   "VeyraActivatingService", "toast_controller", "VeyraCameraDfuCheck", "stubborn_service",
                   "service_holder", "service_end", "window_reader", "crash_recorder", "service_messages",
                   "set_start_type")
# The tests that boot the guest, what it runs, and what serves cameras to it.
_GUEST_TESTS = frozenset({"test_capture_real_bus.py", "test_foreign_hosts.py", "test_guest.py", "test_usb_bus.py",
                          "test_usbip.py", "test_windows_disk.py"})
# The tests with what only the long run needs else: a display, a signature, a debugger.
_LONG_RUN_TESTS = frozenset({"test_release.py", "test_symbolize.py", "test_toast_scenarios.py", "test_toast_window.py"})
_GUEST_TARGETS = ("lab_guest", "lab_usbip", "lab_usbredir")
_MACHINES = 2
_QUICK_FAULTS_SECONDS, _FAULTS_SECONDS = 60, 600

_DESCRIPTION = """\
Without a NAME: everything that must pass, from the packages to the last line, which counts the test cases of all
builds. With one or more: builds and runs just that, in the release build or in the one that --preset names."""

_CLOSING = """\
A NAME is a folder of tests/ (dfu, rig, lab/rig), a test program (fdu_service), or, in the release build, a file of
tests/system/ (road, scenarios).

Examples:
  scripts/test                               all that must pass every day
  scripts/test dfu                           the tests of src/dfu/, in seconds
  scripts/test road                          whole updates through the laboratory
  scripts/test --preset windows-checked dfu  the same tests with the library's and the compiler's checks
  scripts/test --preset host-sanitize        one build and all its tests

The builds, what each finds that no other does:
"""


def _closing() -> str:
    lines = [f"  {build.preset:16} {'every day' if build is RELEASE else '--all    '}  {build.finds}" for build in BUILDS]
    return _CLOSING + "\n".join(lines)


class Run:
    """One run of builds and tests."""

    def __init__(self, screen: JobScreen, slow: bool) -> None:
        self._screen = screen
        self._slow = slow
        self._expected: list[Path] = []
        self._failed = False
        self._lock = threading.Lock()

    def configure(self, build: Build) -> bool:
        """Makes its folder, with which its test programs are known."""
        command = ["bash", "scripts/setup", "configure", build.preset]
        return self._do(f"configure {build.preset}", command, build.folder.with_suffix(".configure.log"))

    def build(self, build: Build, targets: Sequence[str] = ()) -> bool:
        """Builds the targets, or everything."""
        return self._do(f"build {build.preset}", ["bash", "scripts/setup", "build", build.preset, *targets],
                        build.folder / "build.log")

    def test(self, build: Build, programs: Sequence[TestProgram]) -> None:
        """Runs test programs of a build."""
        results = build.folder / "test-results"
        results.mkdir(exist_ok=True)
        files = [results / f"{program.name}.xml" for program in programs]
        for file in files:
            file.unlink(missing_ok=True)
        self._expect(files)
        with Machine(build.folder / "wine") if build.is_windows else nullcontext() as machine:
            environment = machine.environment if machine else dict(os.environ)
            names = "|".join(program.name for program in programs)
            ctest = ["ctest", "--tests-regex", f"^({names})$", "-j2", "--output-on-failure", "--no-tests=error"]
            held = self._do(f"test {build.preset}", ctest, results / "ctest.log", build.folder, environment)
            if held and self._slow and build is RELEASE:
                # Once more, with Wine's own checks of the heap. The results take the place of the first, which held.
                self._do(f"test {build.preset} with Wine's heap checks", ctest, results / "ctest-heap.log",
                         build.folder, environment | {"WINEDEBUG": "warn+heap"})

    def system_tests(self, choice: Sequence[str]) -> None:
        """Runs the system tests that pytest's arguments choose, on machines of their own."""
        results = RELEASE.folder / "test-results" / "system.xml"
        results.parent.mkdir(exist_ok=True)
        results.unlink(missing_ok=True)
        self._expect([results])
        pytest = ["/usr/bin/python3", "-m", "pytest", "-v", "-n", str(_MACHINES), f"--junitxml={results}", *choice]
        self._do("system tests", pytest, results.with_suffix(".log"), _SYSTEM_TESTS)

    def fuzz(self) -> None:
        """The short run of the fuzz targets."""
        self._do("fuzz", ["bash", "scripts/fuzz", "0"], BUILD / "fuzz.log")

    def faults(self, *, quick: bool) -> None:
        """The campaign of faults: all of it, or what is for every day. Its program is built before, so that its limit is
        one of the trials alone."""
        (sanitize,) = (build for build in BUILDS if build.preset == "host-sanitize")
        if self.build(sanitize, ["campaign"]):
            limit = ["--quick", "--limit", str(_QUICK_FAULTS_SECONDS)] if quick else ["--limit", str(_FAULTS_SECONDS)]
            self._do("faults", ["bash", "scripts/faults", *limit], BUILD / "faults.log")

    def close(self) -> int:
        """The closing line; the exit status."""
        line, success = closing_line(self._expected, not self._failed)
        print(line)
        return 0 if success else 1

    def _expect(self, files: Sequence[Path]) -> None:
        with self._lock:
            self._expected += files

    def _do(self, name: str, command: Sequence[str], log: Path, folder: Path = CHECKOUT,
            environment: dict[str, str] | None = None) -> bool:
        held = self._screen.run(Job(name, command, log, environment or dict(os.environ), folder))
        with self._lock:
            self._failed |= not held
        return held


def _whole(run: Run, *, slow: bool) -> None:
    """Everything. The system tests wait most of the time: the other builds and their tests go on beside them."""
    if not _build(run, RELEASE, _SYSTEM_TARGETS, slow=slow):
        return
    if slow and not run.build(LAB, _GUEST_TARGETS):
        return
    system = threading.Thread(target=run.system_tests, args=([] if slow else ["-m", "not slow"],))
    system.start()
    for build in BUILDS if slow else [RELEASE]:
        if build is RELEASE or _build(run, build):
            run.test(build, [program for program in programs_of(build) if slow or not program.slow])
    run.faults(quick=not slow)
    if slow:
        run.fuzz()
    system.join()


def _build(run: Run, build: Build, targets: Sequence[str] = (), *, slow: bool = True) -> bool:
    """Of a build for Windows nothing but the targets and the test programs that will run is built."""
    if not build.is_windows:
        return run.build(build)
    if not run.configure(build):
        return False
    programs = [program.name for program in programs_of(build) if slow or not program.slow]
    return run.build(build, [*targets, *build.besides, *programs])


class UnknownNameError(Exception):
    """No test has the name."""


def choose(
    build: Build, programs: Sequence[TestProgram], names: Sequence[str]
) -> tuple[Sequence[TestProgram], Sequence[str]]:
    """What the names mean: test programs, all without a name, and files of the release build's system tests."""
    paths = _SYSTEM_TESTS.glob("test_*.py") if build is RELEASE else ()
    modules = {path.stem.removeprefix("test_"): path.name for path in paths}
    for name in names:
        if name not in modules and not any(program.answers_to(name) for program in programs):
            known = ", ".join(sorted({program.folder or program.name for program in programs} | modules.keys()))
            raise UnknownNameError(f"no test of {build.preset} is called {name}; it knows {known}")
    chosen = [program for program in programs if not names or any(map(program.answers_to, names))]
    return chosen, [modules[name] for name in names if name in modules]


def _chosen(run: Run, build: Build, names: Sequence[str]) -> None:
    """Just what the names say, or all test programs of the build."""
    call_setup("configure", build.preset)
    programs, system = choose(build, programs_of(build), names)
    targets = [*(program.name for program in programs), *(_SYSTEM_TARGETS if system else ())]
    if not _GUEST_TESTS.isdisjoint(system):
        call_setup("packages", "usb")
        if not run.build(LAB, _GUEST_TARGETS):
            return
    if not _LONG_RUN_TESTS.isdisjoint(system):
        call_setup("packages", "all")
    if run.build(build, targets) if names else _build(run, build):
        if programs:
            run.test(build, programs)
        if system:
            run.system_tests(system)


def main() -> int:
    parser = Parser(prog="scripts/test", description=_DESCRIPTION, epilog=_closing())
    parser.add_argument("name", nargs="*", metavar="NAME", help="build and run just this")
    parser.add_argument("--all", action="store_true", help="every build and every test")
    parser.add_argument("--preset", choices=[build.preset for build in BUILDS], help="the tests of one build")
    parser.add_argument(
        "--gtest_shuffle",
        action="store_true",
        help="all cases in a random order, whose seed is printed and can be given in GTEST_RANDOM_SEED",
    )
    options = parser.parse_args()
    if options.all and (options.name or options.preset):
        parser.error("--all is everything: no NAME or --preset beside it")
    if options.gtest_shuffle:
        seed = os.environ.setdefault("GTEST_RANDOM_SEED", str(random.randrange(1, 99_999)))
        os.environ["GTEST_SHUFFLE"] = "1"
        print(f"test cases in random order, GTEST_RANDOM_SEED={seed}")
    began = time.monotonic()
    try:
        call_setup("packages", "all" if options.all else "test")
        with JobScreen() as screen:
            run = Run(screen, slow=options.all)
            if options.name or options.preset:
                preset = options.preset or RELEASE.preset
                build = next(build for build in BUILDS if build.preset == preset)
                _chosen(run, build, options.name)
            else:
                _whole(run, slow=options.all)
    except UnknownNameError as error:
        parser.error(str(error))
    except (SetUpError, MachineError) as error:
        print(f"scripts/test: {error}", file=sys.stderr)
        return 1
    print(f"took {time.monotonic() - began:.0f} s")
    return run.close()


if __name__ == "__main__":
    sys.exit(status_of(main, "scripts/test"))

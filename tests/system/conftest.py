"""How pytest runs the system tests: each of its workers on a Windows machine of its own, which stays booted.

As the other test programs do, they run in a random order when GTEST_SHUFFLE is set, from GTEST_RANDOM_SEED. What must
not run side by side has a mark xdist_group of one name; so have the tests of a module that use the fixture `shared`."""

import faulthandler
import os
import random
import signal
import subprocess
import sys
from collections.abc import Callable, Generator, Iterator
from typing import Any

import pytest
import support

_LONGEST_TEST = 1500
_STDERR = pytest.StashKey[int]()
_SHUFFLED = os.environ.get("GTEST_SHUFFLE", "0") != "0"

# As scripts/run-python does, for who calls pytest by hand.
sys.dont_write_bytecode = False
os.environ.pop("PYTHONDONTWRITEBYTECODE", None)
sys.pycache_prefix = os.environ["PYTHONPYCACHEPREFIX"] = str(support.CHECKOUT / "build" / "python")


def pytest_configure(config: pytest.Config) -> None:
    # pytest catches what a test writes; what is told about one that hangs is to be seen.
    config.stash[_STDERR] = os.dup(sys.stderr.fileno())
    if _is_worker(config):
        _keep_to_one_processor(config)
        return
    # A shell starts what runs in the background deaf to Ctrl+C; the programs that tests interrupt would inherit that.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    if _SHUFFLED:
        # The workers that are started later find the same one.
        os.environ.setdefault("GTEST_RANDOM_SEED", str(random.randrange(1, 100_000)))


def _keep_to_one_processor(config: pytest.Config) -> None:
    """Each machine on a processor of its own, every day: a third of the work is to wake another one, since a program under
    Wine and Wine's server take turns. The long run is not kept from it: what shows only when two of a machine's programs
    run at the same moment can show there."""
    if config.option.markexpr == "not slow":
        processors = sorted(os.sched_getaffinity(0))
        number = int(config.workerinput["workerid"].removeprefix("gw"))  # type: ignore[attr-defined]
        os.sched_setaffinity(0, {processors[number % len(processors)]})


def _is_worker(config: pytest.Config) -> bool:
    """Whether this is one of several processes. Its tests may run in any of its threads, so it cannot have signals."""
    return hasattr(config, "workerinput")


def pytest_report_header() -> str | None:
    return f"random order, GTEST_RANDOM_SEED={os.environ['GTEST_RANDOM_SEED']}" if _SHUFFLED else None


@pytest.fixture(scope="module")
def shared(request: pytest.FixtureRequest) -> Iterator[support.Shared[Any]]:
    """What the tests of a module share in the machine; the module's SHARED makes it."""
    the_shared: support.Shared[Any] = support.Shared(request.module.SHARED)
    yield the_shared
    the_shared.leave()


@pytest.fixture
def run(capsys: pytest.CaptureFixture[str], monkeypatch: pytest.MonkeyPatch) -> support.Run:
    """Runs a program of the laboratory here; its exit status and what it says on both streams."""

    def run_here(main: Callable[[], int], *arguments: str) -> tuple[int, str, str]:
        monkeypatch.setattr(sys, "argv", ["program", *arguments])
        try:
            status = main()
        except SystemExit as ended:
            assert isinstance(ended.code, int)
            status = ended.code
        said = capsys.readouterr()
        return status, said.out, said.err

    return run_here


@pytest.fixture
def display(monkeypatch: pytest.MonkeyPatch) -> Iterator[None]:
    """A display of its own that nobody sees, named by DISPLAY as long as it is there."""
    read, write = os.pipe()
    server = subprocess.Popen(
        ["Xvfb", "-displayfd", str(write), "-screen", "0", "1400x900x24", "-nolisten", "tcp"],
        pass_fds=(write,),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
    )
    os.close(write)
    try:
        with open(read, encoding="ascii") as number:
            monkeypatch.setenv("DISPLAY", f":{number.readline().strip()}")
        yield
    finally:
        server.terminate()
        server.wait(timeout=20)


def pytest_itemcollected(item: pytest.Item) -> None:
    if isinstance(item, pytest.Function) and "shared" in item.fixturenames:
        item.add_marker(pytest.mark.xdist_group(item.module.__name__))


@pytest.hookimpl(trylast=True)
def pytest_collection_modifyitems(items: list[pytest.Item]) -> None:
    """Tests of one group stay together. What takes longest begins first: the large groups, the slow tests."""
    groups: dict[str, list[pytest.Item]] = {}
    for item in items:
        mark = item.get_closest_marker("xdist_group")
        groups.setdefault(mark.args[0] if mark else item.nodeid, []).append(item)
    pieces = list(groups.values())
    if _SHUFFLED:
        order = random.Random(os.environ["GTEST_RANDOM_SEED"])
        order.shuffle(pieces)
        for piece in pieces:
            order.shuffle(piece)
    pieces.sort(key=lambda piece: (-len(piece), piece[0].get_closest_marker("slow") is None))
    items[:] = [item for piece in pieces for item in piece]


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport() -> Generator[None, Any, None]:
    """What failed in a shared machine is told with what was heard of it last."""
    outcome = yield
    report = outcome.get_result()
    if report.failed and (heard := support.last_events()):
        report.sections.append(("the last events", heard))


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_protocol(item: pytest.Item) -> Iterator[None]:
    """No test hangs the whole run: its process ends, and xdist goes on with another. A machine that a failed test may
    have left astray is not used again."""
    failed = item.session.testsfailed
    faulthandler.dump_traceback_later(_LONGEST_TEST, exit=True, file=item.config.stash[_STDERR])
    yield
    faulthandler.cancel_dump_traceback_later()
    if item.session.testsfailed > failed:
        support.discard_the_machine()


def pytest_unconfigure(config: pytest.Config) -> None:
    """Nothing is left running, also after an interruption, or by a worker that ended in the middle."""
    support.discard_the_machine()
    if config.getoption("numprocesses", 0) and not _is_worker(config):
        support.end_machines_of_workers()

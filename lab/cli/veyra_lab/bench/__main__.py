"""The measurements: python3 -m veyra_lab.bench, started by scripts/bench."""

import argparse
import json
import os
import sys
import time
from collections.abc import Callable, Iterator, Sequence
from contextlib import ExitStack
from dataclasses import asdict
from pathlib import Path

from ..checkout import BUILD
from ..guest.image import PRESET as GUEST_PRESET
from ..guest.image import TARGET as HELPER
from ..guest.served_cameras import TARGET as SERVER
from ..terminal.parser import Parser, give_up, writable
from ..terminal.screen import Screen
from ..terminal.set_up import SetUpError, call_setup
from ..windows.machine import Machine, MachineError
from ..windows.programs import PRESET, SERVICE, TARGETS
from ..windows.sole_use import sole_use
from .portable import engine, executable, watcher
from .portable.programs import PortablePrograms
from .service import burst, download, memory, reaction, rest, start, transfers
from .service.contenders import Contenders
from .service.other_host import OtherHost, other_host
from .table import Failure, Row, show

_WINDOWS = BUILD / PRESET
_HOST = BUILD / "host-bench" / "host"
_MACHINE = BUILD / "wine-bench"
_WINDOWS_TARGETS = (*TARGETS, "VeyraMinimalService", "VeyraActivatingService")
# What needs another host on a USB bus.
_ON_LINUX = ("transfers", "download")
# What runs on Linux, by the measurement that needs it.
_HOST_TARGETS = {
    "engine": ("benchmarks", "counted_work"),
    "watcher": ("benchmarks", "counted_work"),
}

_DESCRIPTION = """\
Measures the product beside references, in one run, and shows one table: what, ours, the reference, their ratio, the
bar, and whether it holds. docs/performance.md explains the lines."""
_CLOSING = """\
Exit status: 0 when every bar holds or the note under the table says why it cannot, 1 when one does not or something
could not be measured, 2 when the command line is wrong, 130 when interrupted."""


class Bench:
    """The measurements, by their names, in the order of the table."""

    def __init__(self, stack: ExitStack) -> None:
        self._stack = stack
        self._contenders: Contenders | None = None
        self._why_not = ""
        self._other_host: OtherHost | None = None
        self._programs = PortablePrograms(_HOST / "bench")

    def measurements(self) -> dict[str, tuple[int, Callable[[], Iterator[Row]]]]:
        """The number of each one's line, and what measures it."""
        return {
            "transfers": (transfers.LINE, lambda: transfers.measure(self._in_windows(), self._on_linux())),
            "engine": (engine.LINE, lambda: engine.measure(self._programs)),
            "memory": (memory.LINE, lambda: memory.measure(self._in_windows())),
            "reaction": (reaction.LINE, lambda: reaction.measure(self._in_windows())),
            "start": (start.LINE, lambda: start.measure(self._in_windows())),
            "rest": (rest.LINE, lambda: rest.measure(self._in_windows())),
            "watcher": (watcher.LINE, lambda: watcher.measure(self._programs)),
            "burst": (burst.LINE, lambda: burst.measure(self._in_windows())),
            "size": (executable.LINE, lambda: executable.measure(_WINDOWS / f"{SERVICE}.exe")),
            "download": (download.LINE, lambda: download.measure(self._in_windows(), self._on_linux())),
        }

    def end_services(self) -> None:
        """What a measurement that broke off has left running would be in the way of the next one."""
        if self._contenders is not None:
            self._contenders.end_all()

    def _in_windows(self) -> Contenders:
        """The services, in a machine that is booted when the first measurement needs it."""
        if self._why_not:
            raise MachineError(self._why_not)
        if self._contenders is None:
            try:
                self._stack.enter_context(sole_use(_MACHINE))
                machine = self._stack.enter_context(Machine(_MACHINE))
                self._contenders = self._stack.enter_context(Contenders(machine, _WINDOWS))
            except Exception as error:
                self._why_not = str(error)
                raise
        return self._contenders

    def _on_linux(self) -> OtherHost:
        """The other host, in a guest that is booted when the first measurement needs it."""
        if self._other_host is None:
            self._other_host = self._stack.enter_context(other_host(BUILD / "guest", self._in_windows().peer))
        return self._other_host


NAMES = tuple(Bench(ExitStack()).measurements())


def main() -> int:
    """The exit status."""
    options = _parse()
    began = time.monotonic()
    try:
        names = options.names or NAMES
        _prepare(names)
        rows, failures = _measure(names)
    except (KeyboardInterrupt, SetUpError, MachineError, OSError) as error:
        return give_up("scripts/bench", error)
    screen = Screen()
    show(rows, screen)
    for failure in failures:
        screen.line(f"not measured: {failure.what}: {failure.why}")
    missed = sum(row.is_missed for row in rows)
    seconds = time.monotonic() - began
    excused = sum(row.excused for row in rows)
    held = sum(row.holds is True for row in rows)
    bars = f"bars that hold: {held}, that cannot here: {excused}, that are missed: {missed}"
    screen.line(f"{bars}; {seconds:.0f} s in all")
    if options.json is not None:
        _write(options.json, rows, failures, seconds)
    return 1 if missed or failures else 0


def _parse() -> argparse.Namespace:
    parser = Parser(prog="scripts/bench", description=_DESCRIPTION, epilog=_CLOSING)
    parser.add_argument(
        "names",
        nargs="*",
        type=_measurement,
        metavar="NAME",
        help=f"what to measure (default: all): {', '.join(NAMES)}",
    )
    parser.add_argument("--json", type=writable, metavar="FILE", help="write the table as JSON, too")
    return parser.parse_args()


def _measurement(name: str) -> str:
    if name not in NAMES:
        raise argparse.ArgumentTypeError(f"'{name}' is not one of {', '.join(NAMES)}")
    return name


def _prepare(names: Sequence[str]) -> None:
    call_setup("packages", "bench")
    call_setup("build", PRESET, *_WINDOWS_TARGETS)
    if any(name in _ON_LINUX for name in names):
        call_setup("packages", "usb")
        call_setup("build", GUEST_PRESET, HELPER, SERVER)
    targets = {target for name in names for target in _HOST_TARGETS.get(name, ())}
    if targets:
        call_setup("build", "host-bench", *sorted(targets))


def _measure(names: Sequence[str]) -> tuple[list[Row], list[Failure]]:
    """Every measurement that is asked for; one that cannot be made, for whatever reason, keeps none of the others from
    being made or shown."""
    # One processor for the service, the machine and this program: how long a woken process takes to come up on another
    # one would be measured otherwise.
    os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})
    rows: list[Row] = []
    failures: list[Failure] = []
    try:
        with ExitStack() as stack:
            bench = Bench(stack)
            measurements = bench.measurements()
            for name in sorted(set(names), key=NAMES.index):
                line, measure = measurements[name]
                print(f"measuring {name}", flush=True)
                try:
                    rows += measure()
                except Exception as error:
                    failures.append(Failure(line, name, _words(error)))
                    bench.end_services()
    except Exception as error:
        failures.append(Failure(0, "cleaning up", _words(error)))
    return rows, failures


def _words(error: Exception) -> str:
    return f"{type(error).__name__}: {error}"


def _write(path: Path, rows: Sequence[Row], failures: Sequence[Failure], seconds: float) -> None:
    whole = {
        "rows": [row.as_json() for row in rows],
        "failures": [asdict(failure) for failure in failures],
        "seconds": round(seconds, 1),
    }
    path.write_text(json.dumps(whole, indent=2, ensure_ascii=False) + "\n", encoding="utf-8")


if __name__ == "__main__":
    sys.exit(main())

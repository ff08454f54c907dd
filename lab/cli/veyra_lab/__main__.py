"""The demo: python3 -m veyra_lab, started by scripts/demo."""

import fcntl
import signal
import subprocess
import sys
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import replace
from pathlib import Path
from typing import NoReturn

from .expectations import Verdict, judge
from .image import read_image, sha256
from .laboratory import Laboratory
from .machine import Machine, MachineError
from .options import Options, parse
from .peer import PeerError
from .record import Record
from .scenario import PROBE_SIZE, Foreseen, Scenario, transfer_time
from .screen import Screen
from .set_up import SetUpError, call_setup
from .stage import Programs

_CHECKOUT = Path(__file__).resolve().parents[3]
_BUILD = _CHECKOUT / "build"
_PRESET = "windows-release"
_TARGETS = ("VeyraCameraDfuService", "lab_rig", "VeyraCameraToastCntl")
_INTERRUPTED = 130


class DemoError(Exception):
    """The demo cannot be carried out."""


def main() -> int:
    """The exit status: 0 when everything held, 1 when not, 2 for a wrong command line."""
    options = parse(sys.argv[1:])
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, _interrupt)
    screen = Screen()
    try:
        with _only_one():
            _prepare(screen)
            return _show(options, screen)
    except KeyboardInterrupt:
        screen.plain("interrupted")
        return _INTERRUPTED
    except (DemoError, SetUpError, MachineError, PeerError, OSError, subprocess.SubprocessError) as error:
        print(f"scripts/demo: {error}", file=sys.stderr)
        return 1


def _interrupt(number: int, _frame: object) -> NoReturn:
    raise KeyboardInterrupt(signal.Signals(number).name)


@contextmanager
def _only_one() -> Iterator[None]:
    """Two demos of one checkout would share one machine."""
    _BUILD.mkdir(exist_ok=True)
    with (_BUILD / "demo.lock").open("w") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise DemoError("a demo is running in this checkout already") from None
        yield


def _prepare(screen: Screen) -> None:
    screen.step("Looking for the packages that the build needs")
    call_setup("packages")
    screen.step("Building the service and the laboratory")
    call_setup("build", _PRESET, *_TARGETS)


def _show(options: Options, screen: Screen) -> int:
    scenario = _scenario(options)
    machine = Machine(_BUILD / "wine")
    screen.step("Starting Windows" if machine.is_made else "Making a Windows machine (once)")
    with machine:
        laboratory = Laboratory(machine, Programs.of(_BUILD / _PRESET), _CHECKOUT / "trace")
        record = laboratory.run(scenario, screen, options.transcript)
    verdicts = [*judge(record), *_outcome(record)]
    failed = [verdict for verdict in verdicts if not verdict.held]
    screen.step(f"{len(verdicts) - len(failed)} of {len(verdicts)} expectations held")
    for verdict in failed:
        screen.plain(f"failed: {verdict.name}: {verdict.complaint}")
    _close(record, screen)
    return 1 if failed else 0


def _scenario(options: Options) -> Scenario:
    image = read_image(options.image)
    scenario = Scenario(
        image=image,
        camera_version=options.camera_version,
        transfer_size=options.transfer_size,
        accept=options.accept,
    )
    if options.ask is not None:
        scenario = replace(scenario, ask=options.ask)
    return replace(scenario, transfer_us=transfer_time(scenario.blocks))


def _outcome(record: Record) -> list[Verdict]:
    """A demo in which the user accepts is there to show an update: without one it fails, for a good reason too."""
    scenario = record.scenario
    if record.broken_off or scenario.foreseen in (Foreseen.UPDATED, Foreseen.DECLINED):
        return []
    if scenario.foreseen is Foreseen.PROBE_REFUSED:
        why = (
            f"the camera takes {scenario.transfer_size} bytes in one transfer, but before the first block the service "
            f"reads a status of {PROBE_SIZE} bytes in one transfer; that was refused, and no block was sent"
        )
    elif scenario.accept:
        why = f"nobody was asked: {scenario.why_not_asked}"
    else:
        return []
    return [Verdict("the camera is updated", why)]


def _close(record: Record, screen: Screen) -> None:
    if record.before is None or record.after is None:
        return
    screen.plain(f"camera firmware: {record.before.version} -> {record.after.version}")
    screen.plain(f"image sha256: {sha256(record.scenario.image)}")
    screen.plain(f"flash sha256: {sha256(record.flash)}")
    screen.plain(f"control transfers: {len(record.transfers())}")


if __name__ == "__main__":
    sys.exit(main())

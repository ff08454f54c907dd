"""scripts/lab capture: a transcript as a USB capture, and a USB capture as a camera."""

import argparse
import os
import sys
import tempfile
from collections.abc import Mapping
from contextlib import suppress
from pathlib import Path
from typing import Any

from ..faults.program import built, replay
from ..report.transcript import Event
from ..runner.command import up_to_date_programs
from ..runner.runner import ScenarioRunner
from ..runner.scenario_id import check_name
from ..scenarios.errors import ScenarioError
from ..scenarios.files import read_named
from ..scenarios.schema import SCENARIOS
from ..terminal.parser import add_places, give_up, writable
from ..terminal.screen import Screen
from ..terminal.set_up import SetUpError
from ..windows.machine import Machine, MachineError
from ..windows.sole_use import sole_use
from ..wire.events import PeerError
from .camera import write_camera
from .errors import CaptureError
from .input import camera_of
from .output import capture_of, read_events, scenario_events, trial_events
from .reading import read_capture

_WRONG = 2

_DESCRIPTION = """\
Writes what crossed the USB bus in DFU mode to FILE.pcapng, for Wireshark and its kin: from a transcript, from a scenario
that is played now, or from a trial of scripts/faults. With --camera the other way round: from somebody's capture of a
download it makes a scenario whose camera answers as the captured one did, with the image that was downloaded beside it."""

_CLOSING = """\
Examples:
  scripts/lab capture update.pcapng --transcript update.jsonl
  scripts/lab capture lost.pcapng --scenario lost-answer/timeout-last-block
  scripts/lab capture trial.pcapng kv400.2500x1.1gs3-time-after
  scripts/lab capture theirs.pcapng --camera build/theirs.json && scripts/lab run build/theirs.json

Wireshark decodes the requests by name once it is told that the device speaks DFU:
  tshark -r update.pcapng -d usb.product==0x2f1a7e01,usbdfu

Exit status: 0 when the file is written; 1 when the scenario that was played did not hold; 2 when the command line or a
file is wrong: then nothing is written."""


def register(subparsers: Any) -> None:
    """Adds the command "capture" to the laboratory's command line."""
    parser = subparsers.add_parser(
        "capture",
        help="write a USB capture of a run, or read one as a camera",
        description=_DESCRIPTION,
        epilog=_CLOSING,
    )
    parser.add_argument("capture", type=Path, metavar="FILE.pcapng", help="the capture: written, or read with --camera")
    parser.add_argument("id", nargs="?", metavar="ID", help="a trial of scripts/faults, which is played on Linux")
    parser.add_argument("--transcript", type=Path, metavar="FILE", help="what a --transcript has kept")
    parser.add_argument(
        "--scenario", metavar="NAME",
        help="a scenario: of the transcript, or, without one, played on the service that ships",
    )
    parser.add_argument(
        "--camera", type=Path, metavar="FILE.json", help="read the capture, and write the scenario with its camera here"
    )
    parser.add_argument(
        "--device", metavar="BUS.ADDRESS", help="with --camera: which device; the one that took most when left out"
    )
    add_places(parser)
    parser.set_defaults(run=_run, programs=None)


def _run(options: argparse.Namespace) -> int:
    try:
        _check(options)
        return _read_camera(options) if options.camera else _write_capture(options)
    except (CaptureError, ScenarioError, ValueError, OSError) as error:
        return give_up("scripts/lab", error, _WRONG)
    except (SetUpError, MachineError, PeerError) as error:
        return give_up("scripts/lab", error)


def _check(options: argparse.Namespace) -> None:
    sources = [options.id, options.camera, options.transcript or options.scenario]
    if sum(bool(each) for each in sources) != 1:
        raise CaptureError("say one of these: an ID, --transcript, --scenario, or --camera (--help tells more)")
    if options.device and not options.camera:
        raise CaptureError("--device goes with --camera")
    if options.camera and options.camera.suffix != ".json":
        raise CaptureError(f"{options.camera}: the scenario's name ends with .json")
    if options.camera:
        check_name(options.camera.stem)
    if options.camera and "$" in options.capture.name:
        raise CaptureError(f"{options.capture}: a $ in a scenario's words is a parameter; give the capture another name")
    target = options.camera or options.capture
    with suppress(FileNotFoundError):
        if any(given and target.samefile(given) for given in (options.transcript, options.camera and options.capture)):
            raise CaptureError(f"{target} would be overwritten while it is read; name another file")
    try:
        writable(str(target))
    except argparse.ArgumentTypeError as error:
        raise CaptureError(str(error)) from None


def _write_capture(options: argparse.Namespace) -> int:
    status, before = 0, []
    if options.id:
        events = trial_events(replay(built(), options.id).transcript, options.id)
    elif options.transcript:
        events = read_events(options.transcript)
        if options.scenario:
            before = [event for event in events if event["event"] in ("hello", "bus")]
            events = scenario_events(events, options.scenario)
    else:
        status, events = _play(options)
    _write_whole({options.capture: capture_of(events, before)})
    return status


def _play(options: argparse.Namespace) -> tuple[int, list[Event]]:
    """Plays a scenario on the service that ships."""
    variants = read_named(SCENARIOS, [options.scenario])
    if len(variants) != 1:
        names = ", ".join(variant.name for variant in variants[:3])
        raise CaptureError(f"{options.scenario} is several scenarios: {names} and others; name one")
    with sole_use(options.machine), tempfile.TemporaryDirectory() as folder:
        programs = up_to_date_programs(options)
        transcript = Path(folder) / "transcript.jsonl"
        with Machine(options.machine) as machine, ScenarioRunner(machine, programs, transcript) as runner:
            outcome = runner.run(variants[0])
        events = read_events(transcript)
    screen = Screen(sys.stderr)
    for complaint in outcome.complaints:
        screen.line(f"wrong: {complaint}")
    return (0 if outcome.held else 1), events


def _read_camera(options: argparse.Namespace) -> int:
    try:
        found = camera_of(read_capture(options.capture), options.device)
    except CaptureError as error:
        raise CaptureError(f"{options.capture}: {error}") from error
    files = write_camera(found, options.capture.name, options.camera)
    if any(path.exists() and path.samefile(options.capture) for path in files):
        raise CaptureError(f"{options.capture} would be overwritten by the image; name another scenario")
    for path, content in files.items():
        if path != options.camera and path.exists() and path.read_bytes() != content:
            raise CaptureError(f"{path}: it is there with another content, and would be overwritten; name another scenario")
    _write_whole(files)
    screen = Screen()
    for line in found.words:
        screen.line(line)
    return 0


def _write_whole(files: Mapping[Path, bytes]) -> None:
    """All of them, in place of what was there; none when one cannot be written."""
    beside = {path: path.with_name(f".{path.name}.{os.getpid()}") for path in files}
    try:
        for path, content in files.items():
            beside[path].write_bytes(content)
        for path in files:
            beside[path].replace(path)
    except BaseException:
        for each in beside.values():
            each.unlink(missing_ok=True)
        raise

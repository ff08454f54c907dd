"""scripts/lab replay: one trial of the campaign, on Linux or on the executable that ships."""

import argparse
import sys
from pathlib import Path
from typing import Any

from ..runner.command import up_to_date_programs
from ..scenarios.errors import ScenarioError
from ..terminal.parser import add_places, add_transcript, give_up
from ..terminal.screen import Screen
from ..terminal.set_up import SetUpError
from ..windows.machine import Machine, MachineError
from ..windows.sole_use import sole_use
from ..wire.events import PeerError
from .program import built, replay
from .shipped import ShippedTrials

_WRONG = 2

_CLOSING = """\
On Linux the transcript is written, and the last line judges it. On Windows the trial is a scenario, written to
build/faults/replayed: the same faults in the same updates, and what the camera has to hold behind each; what crosses the bus
in DFU mode has to be what crosses it on Linux.

Exit status: 0 when everything held, 1 when something did not, 2 when the command line is wrong."""


def register(subparsers: Any) -> None:
    """Adds the command "replay" to the laboratory's command line."""
    parser = subparsers.add_parser(
        "replay",
        help="play a trial of scripts/faults again, by its id",
        description="Plays one trial of scripts/faults again, by the id that it was told with.",
        epilog=_CLOSING,
    )
    parser.add_argument("id", metavar="ID", help="as kv400.2500x1.1gs3-time-after")
    parser.add_argument(
        "--on", choices=("linux", "windows"), default="windows", help="windows, when left out: the executable that ships"
    )
    add_transcript(parser)
    add_places(parser)
    parser.set_defaults(run=_run, programs=None)


def _run(options: argparse.Namespace) -> int:
    try:
        program = built()
        return _on_linux(program, options.id) if options.on == "linux" else _on_windows(program, options)
    except ValueError as error:
        return give_up("scripts/lab", error, _WRONG)
    except (ScenarioError, SetUpError, MachineError, PeerError, OSError) as error:
        return give_up("scripts/lab", error)


def _on_linux(program: Path, trial: str) -> int:
    played = replay(program, trial)
    sys.stdout.write(played.transcript)
    sys.stderr.write(played.said)
    return 1 if played.status else 0


def _on_windows(program: Path, options: argparse.Namespace) -> int:
    replay(program, options.id)  # an id that is none is refused now rather than when the machine is up
    with sole_use(options.machine):
        programs = up_to_date_programs(options)
        with (
            Machine(options.machine) as machine,
            ShippedTrials(program, machine, programs, options.transcript) as trials,
        ):
            end = trials.run(options.id)
    screen = Screen()
    for complaint in end.complaints:
        screen.line(f"wrong: {complaint}")
    word = "FAILED" if end.complaints else "held"
    screen.line(f"{word}: {end.requests} requests in DFU mode, in {end.seconds:.1f} s, as {end.scenario}")
    return 1 if end.complaints else 0

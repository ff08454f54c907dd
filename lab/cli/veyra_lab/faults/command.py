"""scripts/lab replay: one trial of the campaign, on Linux or on the executable that ships."""

import argparse
import sys
from collections.abc import Sequence
from typing import Any

from ..checkout import BUILD
from ..runner.command import up_to_date_programs
from ..runner.runner import ScenarioRunner
from ..scenarios.errors import ScenarioError
from ..scenarios.files import read_scenario
from ..terminal.parser import add_places, add_transcript, give_up
from ..terminal.screen import Screen
from ..terminal.set_up import SetUpError
from ..windows.machine import Machine, MachineError
from ..windows.sole_use import sole_use
from ..wire.events import RIG, PeerError
from .program import Replay, built, lines_of, replay
from .scenario import write_scenario
from .story import ToldUpdate, bus_lines, read_story
from .trial_id import read_id

_WRONG = 2
_FOLDER = BUILD / "faults" / "replayed"
# After DETACH it is back in DFU mode, where the service meets it anew, for as long as anybody looks.
_RESTLESS = "stays-in-dfu-mode"

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
        trial = read_id(options.id)
        played = replay(built(), options.id)
        if options.on == "linux":
            sys.stdout.write(played.transcript)
            sys.stderr.write(played.said)
            return 1 if played.status else 0
        if trial.kind == _RESTLESS:
            raise ValueError("this camera restarts for ever: its trials can be played on Linux only")
    except ValueError as error:
        return give_up("scripts/lab", error, _WRONG)
    except (SetUpError, OSError) as error:
        return give_up("scripts/lab", error)
    return _run_on_windows(options, played)


def _run_on_windows(options: argparse.Namespace, played: Replay) -> int:
    told = read_story(lines_of(played.transcript))
    path = write_scenario(read_id(options.id), told, played.why, _FOLDER)
    screen = Screen()
    screen.step(f"{options.id} as {path}")
    try:
        (variant,) = read_scenario(path)
        with sole_use(options.machine):
            programs = up_to_date_programs(options)
            with Machine(options.machine) as machine, ScenarioRunner(machine, programs, options.transcript) as runner:
                outcome = runner.run(variant)
                seen = [event for event in runner.events() if event["source"] == RIG]
    except (ScenarioError, SetUpError, MachineError, PeerError, OSError) as error:
        return give_up("scripts/lab", error)
    complaints = [*outcome.complaints, *_differences(told, bus_lines(seen))]
    for complaint in complaints:
        screen.line(f"wrong: {complaint}")
    requests = sum(len(update.bus) for update in told)
    screen.line(f"{'FAILED' if complaints else 'held'}: {requests} requests in DFU mode, in {outcome.seconds:.1f} s")
    return 1 if complaints else 0


def _differences(told: Sequence[ToldUpdate], seen: Sequence[str]) -> list[str]:
    expected = [line for update in told for line in update.bus]
    for number, (here, there) in enumerate(zip(expected, seen), 1):
        if here != there:
            return [f"request {number} in DFU mode: on Linux {here}, here {there}"]
    if len(expected) != len(seen):
        return [f"{len(expected)} requests in DFU mode on Linux, {len(seen)} here"]
    return []

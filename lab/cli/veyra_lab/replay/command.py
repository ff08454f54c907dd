"""scripts/lab replay: whatever failed again, by the id that it was told with."""

import argparse
import sys
from collections.abc import Callable
from pathlib import Path
from typing import Any

from ..faults.program import built as built_campaign
from ..faults.program import replay as replay_trial
from ..faults.shipped import why_left_out
from ..faults.trial_id import read_id as read_trial_id
from ..fuzz import target_run
from ..fuzz.input_id import PREFIX as FUZZ
from ..fuzz.input_id import FuzzInput
from ..fuzz.input_id import read_id as read_fuzz_id
from ..guest.errors import GuestError
from ..runner.command import up_to_date_programs
from ..runner.scenario_id import PREFIX as SCENARIO
from ..scenarios.errors import ScenarioError
from ..soak.plan import PREFIX as SOAK
from ..soak.plan import read_id as read_round_id
from ..terminal.parser import add_places, add_transcript, give_up
from ..terminal.screen import Screen
from ..terminal.set_up import SetUpError
from ..traits.trial_id import PREFIX as TRAITS
from ..traits.trial_id import find as find_kind
from ..windows.machine import Machine, MachineError
from ..windows.sole_use import sole_use
from ..wire.events import PeerError
from .on_windows import Opening, of_kind, of_round, of_trial, scenario_opening
from .play import Play, play_again

_WRONG = 2
_PLAIN_SHARE = 10  # lines of progress

_CLOSING = """\
An id is one of these, and says everything that the run depends on:
  kv400.2500x1.1gs3-time-after         a trial of scripts/faults
  scenario.two-cameras.usb.0a1b2c3d4e  a scenario, its bus when it is not the laboratory's own, and a digest of its file
  traits.17.0a1b2c3d4e                 a row of scripts/lab traits
  soak.42.17                           a round of scripts/soak: seed and number; soak.42.17.real-time, soak.42.17.year
  fuzz.device_path.AAEC                an input of a target of scripts/fuzz

An input is played on Linux, everything else on the executable that ships; with --on linux a trial is played on Linux,
too. On that executable a trial is a scenario, written to build/faults/replayed: the same faults in the same updates, and
what the camera has to hold behind each; what crosses the bus in DFU mode has to be what crosses it on Linux. Where a
scenario's file says something else than it said when the id was told, nothing is played.

Exit status: 0 when everything held and went the same way each time; 1 when not, 2 when the command line is wrong or the id
is none that can be played."""


def register(subparsers: Any) -> None:
    """Adds the command "replay" to the laboratory's command line."""
    parser = subparsers.add_parser(
        "replay",
        help="play whatever failed again, by its id",
        description="Plays again what scripts/faults, scripts/lab run, scripts/lab traits, scripts/soak or scripts/fuzz has"
        " played, by the id that it was told with.",
        epilog=_CLOSING,
    )
    parser.add_argument("id", metavar="ID", help="as kv400.2500x1.1gs3-time-after")
    parser.add_argument("--on", choices=("linux", "windows"), help="where a trial of scripts/faults is played (windows)")
    parser.add_argument(
        "--times", type=_times, default=0, metavar="N", help="so often again, each the same byte for byte but for its times"
    )
    parser.add_argument("--file", type=Path, metavar="FILE", help="where a scenario is that is not one of the laboratory's")
    add_transcript(parser)
    add_places(parser)
    parser.set_defaults(run=_run, programs=None, usual_machine=parser.get_default("machine"))


def _times(text: str) -> int:
    if not text.isdigit() or len(text) > 6:
        raise argparse.ArgumentTypeError(f"'{text}' is not a whole number from 0 on")
    return int(text)


def _run(options: argparse.Namespace) -> int:
    try:
        return _player_of(options)()
    except (ValueError, ScenarioError) as error:
        return give_up("scripts/lab", error, _WRONG)
    except (SetUpError, MachineError, GuestError, PeerError, OSError) as error:
        return give_up("scripts/lab", error)


def _player_of(options: argparse.Namespace) -> Callable[[], int]:
    """What plays the id. ValueError when it is none, before anything is started."""
    id_ = options.id
    kind = id_.partition(".")[0]
    is_trial = kind not in (SCENARIO, SOAK, TRAITS, FUZZ)
    if options.file is not None and kind != SCENARIO:
        raise ValueError(f"'{id_}' is no scenario's: --file goes with one")
    if options.on == "linux" and not is_trial and kind != FUZZ:
        raise ValueError(f"'{id_}' is played on the executable that ships, and not on Linux")
    if kind == FUZZ or options.on == "linux":
        _refuse_what_is_for_windows(options)
    if kind == FUZZ:
        if options.on == "windows":
            raise ValueError(f"'{id_}' is an input of a program for Linux, and cannot be played on Windows")
        fuzz_input = read_fuzz_id(id_)
        return lambda: _input_on_linux(options, fuzz_input)
    if kind == SCENARIO:
        opening = scenario_opening(id_, options.file)
        return lambda: _on_windows(options, lambda: opening)
    if kind == SOAK:
        round_id = read_round_id(id_)
        return lambda: _on_windows(options, lambda: of_round(round_id))
    if kind == TRAITS:
        known = find_kind(id_)
        return lambda: _on_windows(options, lambda: of_kind(known, id_))
    read_trial_id(id_)
    if options.on == "linux":
        return lambda: _trial_on_linux(id_, options.times)
    if why := why_left_out(id_):
        raise ValueError(f"'{id_}' can be played on Linux only: {why}")
    return lambda: _on_windows(options, lambda: of_trial(id_))


def _refuse_what_is_for_windows(options: argparse.Namespace) -> None:
    """ValueError for options that a play on Linux would not look at."""
    if options.transcript is not None:
        raise ValueError("--transcript is of the executable that ships; on Linux the transcript goes to standard output")
    if (options.programs, options.machine) != (None, options.usual_machine):
        raise ValueError("--programs and --machine are for the executable that ships, and not for Linux")


def _trial_on_linux(trial: str, times: int) -> int:
    played = replay_trial(built_campaign(), trial, times)
    sys.stdout.write(played.transcript)
    sys.stderr.write(played.said)
    return 1 if played.status else 0


def _input_on_linux(options: argparse.Namespace, given: FuzzInput) -> int:
    def once() -> Play:
        run = target_run.play(given)
        return Play([run.why] if run.why else [], run.transcript, f"{len(given.content)} bytes for {given.target}")

    end = play_again(options.id, once, options.times, lambda number: None)
    sys.stdout.write("".join(f"{line}\n" for line in end.transcript))
    return _judge(end, options)


def _on_windows(options: argparse.Namespace, opening_of: Callable[[], Opening]) -> int:
    opening = opening_of()
    with sole_use(options.machine):
        programs = up_to_date_programs(options)
        with Machine(options.machine) as machine, opening(machine, programs, options.transcript) as play:
            end = play_again(options.id, play, options.times, lambda number: _tell(number, options.times))
    return _judge(end, options)


def _tell(number: int, times: int) -> None:
    if number * _PLAIN_SHARE // times > (number - 1) * _PLAIN_SHARE // times:
        print(f"[{100 * number // times:3}%] {number} of {times} times the same", flush=True)


def _judge(end: Play, options: argparse.Namespace) -> int:
    screen = Screen()
    for complaint in end.complaints:
        screen.line(f"wrong: {complaint}")
    again = f"failed the same way {end.times_more} times more" if end.complaints else f"{end.times_more} times more the same"
    times = f", and {again}" if end.times_more else ""
    screen.line(f"{'FAILED' if end.complaints else 'held'}: {options.id}: {end.said}{times}")
    return 1 if end.complaints else 0

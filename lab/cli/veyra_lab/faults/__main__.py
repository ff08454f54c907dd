"""Every fault, every pair of faults: python3 -m veyra_lab.faults, started by scripts/faults."""

import argparse
import os
import random
import resource
import sys
import time
from collections import Counter
from collections.abc import Sequence
from pathlib import Path

from rich.console import Console
from rich.progress import BarColumn, MofNCompleteColumn, Progress, TaskProgressColumn, TextColumn, TimeElapsedColumn

from ..checkout import BUILD
from ..runner.command import up_to_date_programs
from ..scenarios.errors import ScenarioError
from ..terminal.parser import Parser, add_places, give_up
from ..terminal.set_up import SetUpError
from ..windows.machine import Machine, MachineError
from ..windows.sole_use import sole_use
from ..wire.events import PeerError
from .program import (
    Campaign, Failure, Line, ProgramError, built, copy_of, fields_of, lines_of, replay, trial_ids,
)  # fmt: skip
from .scenario import write_scenario
from .shipped import ShippedTrials, why_left_out
from .shrink import shrink
from .story import read_story
from .table import Table
from .trial_id import read_id

_DESCRIPTION = """\
Runs the portable part of the service, on Linux, under sanitizers and in virtual time, against every camera of the
laboratory with every fault that can strike an update of it, and with pairs of faults: in the same update, and in the one
behind it. A good update of the same camera follows each, and one of another camera. All that the service asks, when, and
what it makes of the answers is judged, and so is what the camera's flash holds in the end. Without an option: all pairs of
the KV400, and every tenth of each other camera's."""
_CLOSING = """\
Examples:
  scripts/faults                                        some minutes
  scripts/faults --quick                                every single fault, and 5,000 pairs of the KV400
  scripts/faults --replay kv400.2500x1.1gs3-time-after  one trial, by the id that a run has told
  scripts/faults --wine --quick                         some trials on the executable that ships

A failure is told by the trial's id, made as small as it goes, and written as a scenario to build/faults. Exit status: 0
when everything held, 1 when something did not, 2 when the command line is wrong."""

_QUICK_PAIRS = 5000
_QUICK_SHIPPED, _QUICK_SHIPPED_PAIRS, _SHIPPED_PAIRS = "40", 20, 200
_SHARES = 2
_PLAIN_SHARE = 10  # lines of progress where there is no terminal
_MOST_TOLD = 20
_MOST_SHRUNK = 3
_FOLDER = BUILD / "faults"


def main() -> int:
    """The exit status."""
    options = _parse()
    try:
        with copy_of(built()) as program:
            if options.replay is not None:
                return _replay(program, options.replay, options.times)
            if options.wine:
                return _run_shipped(program, options)
            return run(program, quick=options.quick, seed=options.seed, limit=options.limit)
    except BrokenPipeError:
        # Nobody reads any more, as behind `| head`. Python would complain once more at its end.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 0
    except (KeyboardInterrupt, SetUpError, MachineError, PeerError, ProgramError, ScenarioError, OSError) as error:
        return give_up("scripts/faults", error)


def _number(text: str) -> int:
    if not text.isdigit() or len(text) > 9:
        raise argparse.ArgumentTypeError(f"'{text}' is not a whole number from 0 on, of at most 9 digits")
    return int(text)


def _parse() -> argparse.Namespace:
    parser = Parser(prog="scripts/faults", description=_DESCRIPTION, epilog=_CLOSING)
    parser.add_argument("--quick", action="store_true", help="every single fault, and 5,000 pairs of the KV400")
    parser.add_argument(
        "--wine",
        action="store_true",
        help=f"under Wine, on the executable that ships: every single fault, which takes an hour, and {_SHIPPED_PAIRS}"
        f" pairs; with --quick {_QUICK_SHIPPED} and {_QUICK_SHIPPED_PAIRS}",
    )
    parser.add_argument("--seed", type=_number, metavar="N", help="choose the pairs that a run with this seed chose")
    parser.add_argument(
        "--limit", type=_number, metavar="SECONDS", help="not held, too, when its two shares take more processor time, on average"
    )
    parser.add_argument("--replay", metavar="ID", help="play one trial, and write its transcript")
    parser.add_argument(
        "--times", type=_number, default=0, metavar="N", help="with --replay: so often again, each the same byte for byte"
    )
    add_places(parser)
    parser.set_defaults(programs=None)
    options = parser.parse_args()
    if options.replay is not None:
        if options.quick or options.wine or (options.seed, options.limit) != (None, None):
            parser.error("--replay plays one trial: no --quick, --seed, --limit or --wine beside it")
        try:
            read_id(options.replay)
        except ValueError as error:
            parser.error(str(error))
    elif options.limit is not None and options.wine:
        parser.error("--limit is for the campaign on Linux")
    elif options.times:
        parser.error("--times goes with --replay")
    if not options.wine and (options.programs, options.machine) != (None, parser.get_default("machine")):
        parser.error("--programs and --machine go with --wine")
    return options


def _replay(program: Path, trial: str, times: int) -> int:
    try:
        played = replay(program, trial, times)
    except ValueError as error:
        return give_up("scripts/faults", error, 2)
    sys.stdout.write(played.transcript)
    sys.stderr.write(played.said)
    return 1 if played.status else 0


def run(program: Path, *, quick: bool, seed: int | None = None, limit: int | None = None) -> int:
    """The campaign, with all that it tells; the exit status. `limit` is in seconds of the shares' mean processor time,
    which does not depend on what else the machine does."""
    seed = random.SystemRandom().randrange(1 << 30) if seed is None else seed
    again = f"scripts/faults {'--quick ' if quick else ''}--seed {seed}"
    print(f"seed {seed} ({again} chooses the same)", flush=True)
    table = Table()
    began, spent = time.monotonic(), _spent()
    failures = _watch(Campaign(program, seed, str(_QUICK_PAIRS) if quick else "all", _SHARES), table)
    took, share = time.monotonic() - began, (_spent() - spent) / _SHARES
    for line in table.lines():
        print(line)
    print(f"{table.tried} trials, {table.pairs} of them pairs, in {took:.0f} s; {len(failures)} failed")
    _tell(program, failures)
    is_late = limit is not None and share > limit
    if is_late:
        print(f"failed: a share took {share:.1f} s of processor time on average, and may take {limit}")
    return 1 if failures or is_late or not table.tried else 0


def _spent() -> float:
    """Seconds of processor time of the processes that have ended."""
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def _run_shipped(program: Path, options: argparse.Namespace) -> int:
    seed = random.SystemRandom().randrange(1 << 30) if options.seed is None else options.seed
    singles, pairs = (_QUICK_SHIPPED, _QUICK_SHIPPED_PAIRS) if options.quick else ("all", _SHIPPED_PAIRS)
    print(f"seed {seed}", flush=True)
    chosen = trial_ids(program, seed, singles, pairs)
    trials = [trial for trial in chosen if not why_left_out(trial)]
    failed = 0
    began = time.monotonic()
    with sole_use(options.machine):
        programs = up_to_date_programs(options)
        with Machine(options.machine) as machine, ShippedTrials(program, machine, programs) as shipped:
            for number, trial in enumerate(trials, 1):
                complaints = _complaints(shipped, trial)
                failed += bool(complaints)
                for complaint in complaints:
                    print(f"failed: {trial}: {complaint}", flush=True)
                if number % max(1, len(trials) // _PLAIN_SHARE) == 0:
                    print(f"[{100 * number // len(trials):3}%] {number} of {len(trials)} trials", flush=True)
    for why, count in Counter(filter(None, map(why_left_out, chosen))).items():
        print(f"left out: {count} trials, because {why}")
    print(f"{len(trials)} trials on the executable that ships, in {time.monotonic() - began:.0f} s; {failed} failed")
    return 1 if failed or not trials else 0


def _complaints(shipped: ShippedTrials, trial: str) -> Sequence[str]:
    """What does not hold of one trial. One that cannot be played is a failure as well, and those behind it go on."""
    try:
        return shipped.run(trial).complaints
    except (ValueError, ScenarioError) as error:
        return [str(error)]


def _watch(campaign: Campaign, table: Table) -> list[Failure]:
    console = Console(soft_wrap=True, highlight=False)
    columns = (TextColumn("trials"), BarColumn(), TaskProgressColumn(), MofNCompleteColumn(), TimeElapsedColumn())
    with Progress(*columns, console=console, disable=not console.is_terminal) as progress:
        task = progress.add_task("", total=0)
        total = done = tenth = 0

        def listen(line: Line) -> None:
            nonlocal total, done, tenth
            total += line.get("total", 0)
            done += line.get("done", 0)
            progress.update(task, total=total, completed=done)
            if not console.is_terminal and total and done * _PLAIN_SHARE // total > tenth:
                tenth = done * _PLAIN_SHARE // total
                print(f"[{100 * done // total:3}%] {done} of {total} trials", flush=True)
            table.add(line)

        return campaign.run(listen)


def _tell(program: Path, failures: list[Failure]) -> None:
    for failure in failures[:_MOST_TOLD]:
        print(f"failed: {failure.trial}: {failure.why}")
    if len(failures) > _MOST_TOLD:
        print(f"and {len(failures) - _MOST_TOLD} more")
    by_reason = {failure.why: failure for failure in reversed(failures)}
    for failure in list(by_reason.values())[:_MOST_SHRUNK]:
        try:
            smallest, why = shrink(program, failure.trial)
            if not why:
                print(f"cannot be made smaller: {failure.trial}: it holds when it is played alone")
                continue
            told = read_story(lines_of(replay(program, smallest).transcript))
            fields = fields_of(program, smallest)
        except ValueError as error:
            print(f"cannot be made smaller: {failure.trial}: {error}")
            continue
        if why != failure.why:
            print(f"fails otherwise alone: {failure.trial}: {why}")
        print(f"smallest: {smallest}: {why}")
        print(f"  scripts/faults --replay {smallest}")
        try:
            print(f"  scenario: {write_scenario(read_id(smallest), fields, told, why, _FOLDER)}")
        except ScenarioError as error:
            print(f"  no scenario: {error}")
    if len(by_reason) > _MOST_SHRUNK:
        print(f"not made smaller: those that failed for {len(by_reason) - _MOST_SHRUNK} further reasons")


if __name__ == "__main__":
    sys.exit(main())

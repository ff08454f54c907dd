"""The long run: python3 -m veyra_lab.soak, started by scripts/soak."""

import argparse
import random
import sys
import time
from collections.abc import Iterable, Sequence

from ..judgement.growth import KEPT_BY_A_CHECK, too_much
from ..scenarios.errors import ScenarioError
from ..terminal.parser import Parser, add_places, add_transcript, give_up
from ..terminal.screen import Screen
from ..terminal.table import Table
from ..windows.machine import Machine, MachineError
from ..windows.programs import built
from ..windows.service_under_test import STOP_LIMIT_SECONDS, Resources
from ..windows.sole_use import sole_use
from ..wire.events import PeerError
from .plan import RoundId, is_seed
from .replaying import made_small, soaking
from .soak import Soak, Tally
from .year import ARRIVALS, MOST_ARRIVALS, Year

_DESCRIPTION = f"""\
Plugs, updates and unplugs virtual cameras in a loop, with random faults, against one process of the service. Tells
what came of it, and what the process held at the beginning and at the end.

With --year a year passes instead, in minutes: {ARRIVALS:,} cameras come, at any time of it, and between them the
service rests, every second of which it really sleeps, by the laboratory's clock. What its process holds is told month
by month."""
_CLOSING = """\
Exit status: 0 when the service lived and broke no contract of Windows, every camera that was left whole ended with the
right flash, and the process grew by nothing but what the uninstall monitor keeps open; 1 when not, 2 when the command
line is wrong.
The service's waits are skipped unless --real-time is given.

Each round has an id, soak.SEED.ROUND or soak.SEED.ROUND.year, by which scripts/lab replay plays it alone. Rounds that
fail are told by it, and some of them made as small as they go and written as scenarios to build/faults. What is wrong
with no single round, as growth and a slow stop, is told without one: --rounds plays all that were played again, or fewer of
them, in one process of the service."""

_WARM_UP = 20
_MOST_TOLD = 20
# What the process may hold more at the end than after the warm-up, beyond what the monitor keeps.
_SPARE = Resources(handles=16, threads=4, private_kib=4096)


def main() -> int:
    """The exit status."""
    options = _parse()
    seed = random.SystemRandom().randrange(1 << 32) if options.seed is None else options.seed
    first = RoundId(seed, 1, options.real_time, options.year)
    print(f"seed {seed} (scripts/soak {_what(options)} --seed {seed} begins the same), first round {first}", flush=True)
    try:
        with sole_use(options.machine), Machine(options.machine) as machine:
            return _soak(machine, options, seed)
    except (KeyboardInterrupt, ScenarioError, MachineError, PeerError, OSError) as error:
        return give_up("scripts/soak", error)


def _what(options: argparse.Namespace) -> str:
    """The options that say how long to go on."""
    if options.year:
        return f"--year --cameras {options.cameras or ARRIVALS}"
    return f"{options.minutes:g}" if options.rounds is None else f"--rounds {options.rounds}"


def _minutes(text: str) -> float:
    try:
        minutes = float(text)
    except ValueError:
        minutes = 0
    if not 0 < minutes <= 24 * 60:
        raise argparse.ArgumentTypeError(f"'{text}' is not a number of minutes, at most a day")
    return minutes


def _seed(text: str) -> int:
    if not is_seed(text):
        raise argparse.ArgumentTypeError(f"'{text}' is not a whole number from 0 on, of at most 18 digits")
    return int(text)


def _number_of_rounds(text: str) -> int:
    if not text.isdigit() or len(text) > 9 or not int(text):
        raise argparse.ArgumentTypeError(f"'{text}' is not a number of rounds, of at most 9 digits")
    return int(text)


def _cameras(text: str) -> int:
    if not text.isdigit() or not 0 < int(text) <= MOST_ARRIVALS:
        raise argparse.ArgumentTypeError(f"'{text}' is not a number of cameras, at most {MOST_ARRIVALS}")
    return int(text)


def _parse() -> argparse.Namespace:
    parser = Parser(prog="scripts/soak", description=_DESCRIPTION, epilog=_CLOSING)
    parser.add_argument(
        "minutes", nargs="?", type=_minutes, metavar="MINUTES", help="how long to go on, at most a day; not with --year"
    )
    parser.add_argument("--rounds", type=_number_of_rounds, metavar="N", help="so many rounds instead, however long it takes")
    parser.add_argument("--year", action="store_true", help="a year of virtual time instead")
    how_many = f"with --year: how many come ({ARRIVALS}; at most {MOST_ARRIVALS})"
    parser.add_argument("--cameras", type=_cameras, metavar="N", help=how_many)
    parser.add_argument("--seed", type=_seed, metavar="N", help="repeat the choices of a run that told this seed")
    add_transcript(parser)
    parser.add_argument(
        "--real-time", action="store_true", help="let the service's waits take their time; not with --year"
    )
    add_places(parser)
    options = parser.parse_args()
    given = [options.minutes is not None, options.rounds is not None, options.year].count(True)
    if given != 1:
        parser.error("one of MINUTES, --rounds and --year" if given else "for how many MINUTES, --rounds, or --year?")
    if options.year and options.real_time:
        parser.error("a year in real time takes a year")
    if options.cameras is not None and not options.year:
        parser.error("--cameras goes with --year")
    return options


def _soak(machine: Machine, options: argparse.Namespace, seed: int) -> int:
    programs = built(options.programs)
    kind = {"is_real_time": options.real_time, "is_of_a_year": options.year}
    with soaking(machine, programs, seed, options.transcript, **kind) as soak:
        if options.year:
            status = run_year(Year(soak, seed, options.cameras or ARRIVALS), machine)
        else:
            status = run(soak, machine, seconds=60 * (options.minutes or 0), rounds=options.rounds)
    if soak.tally.wrong:
        for line in made_small(machine, programs, soak.tally.wrong):
            print(line, flush=True)
    return status


def run(soak: Soak, machine: Machine, *, seconds: float = 0, rounds: int | None = None) -> int:
    """Rounds for so long, or so many of them, and what came of them on the screen; the exit status."""
    service = soak.service
    before = after = None
    others: list[str] = []
    began = time.monotonic()
    try:
        for _ in range(_WARM_UP if rounds is None else min(rounds, _WARM_UP)):
            soak.round()
        soak.tally = Tally(wrong=soak.tally.wrong)
        before = service.resources()
        began = time.monotonic()
        while time.monotonic() - began < seconds if rounds is None else soak.last.number < rounds:
            soak.round()
        after = service.resources_once(lambda now: not any(_growth(before, now, soak.tally)))
        others += _stop(soak)
    except PeerError as error:
        others += _told_once(error, soak)
    took = time.monotonic() - began
    others += [f"a process crashed: {note}" for note in machine.crashes()]
    _report(soak.tally, before, after, took)
    again = f"--rounds {soak.last.number}{' --real-time' if soak.last.is_real_time else ''}"
    return _verdict(soak, again, [*others, *_growth(before, after, soak.tally)])


def run_year(year: Year, machine: Machine) -> int:
    """The year, and what came of it on the screen; the exit status."""
    screen = Screen()
    soak = year.soak
    others: list[str] = []
    began = time.monotonic()
    try:
        year.go(screen)
        others += _stop(soak)
    except PeerError as error:
        others += _told_once(error, soak)
    took = time.monotonic() - began
    others += [f"a process crashed: {note}" for note in machine.crashes()]
    screen.line(f"a year in {took / 60:.1f} minutes; {soak.tally.updated} cameras updated")
    screen.table(_rounds(soak.tally))
    year.report(screen)
    return _verdict(soak, f"--year --cameras {year.arrivals}", [*others, *year.complaints()])


def _stop(soak: Soak) -> Sequence[str]:
    stopped_in = soak.service.stop()
    return [f"stopping took {stopped_in:.1f} s"] if stopped_in > STOP_LIMIT_SECONDS else []


def _told_once(error: PeerError, soak: Soak) -> Sequence[str]:
    """That of a round is among what is wrong with it."""
    told = [said for each in soak.tally.wrong for said in each.complaints]
    return [] if any(str(error) in said for said in told) else [str(error)]


def _verdict(soak: Soak, again: str, others: Sequence[str]) -> int:
    # The breaches first: only so many complaints are told.
    rounds = [f"{each.id}: {each.fault}: {said}" for each in soak.tally.wrong for said in each.complaints]
    wrong = [*soak.peer.breaches(), *rounds, *others]
    all_of_them = f"scripts/soak {again} --seed {soak.last.seed}"
    print(f"rounds {soak.first} to {soak.last} (scripts/lab replay plays one of them, {all_of_them} all)")
    for complaint in wrong[:_MOST_TOLD]:
        print(f"wrong: {complaint}")
    print("nothing wrong" if not wrong else f"{len(wrong)} things wrong", flush=True)
    return 1 if wrong else 0


def _growth(before: Resources | None, after: Resources | None, tally: Tally) -> Iterable[str]:
    return () if before is None or after is None else too_much(before, after, tally.removals, _SPARE)


def _rounds(tally: Tally) -> Table:
    return Table([(fault, str(count)) for fault, count in sorted(tally.rounds.items())], right=frozenset({1}))


def _report(tally: Tally, before: Resources | None, after: Resources | None, took: float) -> None:
    screen = Screen()
    rounds = sum(tally.rounds.values())
    screen.line(f"{rounds} updates and faulted updates in {took / 60:.1f} minutes, {rounds / took * 60:.0f} a minute;")
    screen.line(f"{tally.updated} cameras updated after {_WARM_UP} rounds of warming up")
    screen.table(_rounds(tally))
    if before is None or after is None:
        return
    keeps = f"the uninstall monitor keeps {KEPT_BY_A_CHECK * tally.removals} of them open"
    rows = [
        ("handles", str(before.handles), str(after.handles), keeps),
        ("threads", str(before.threads), str(after.threads), ""),
        ("private KiB", str(before.private_kib), str(after.private_kib), ""),
    ]
    screen.table(Table(rows, head=("", "start", "end", ""), right=frozenset({1, 2})))


if __name__ == "__main__":
    sys.exit(main())

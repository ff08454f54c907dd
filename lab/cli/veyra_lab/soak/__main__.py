"""The long run: python3 -m veyra_lab.soak, started by scripts/soak."""

import argparse
import random
import sys
import time
from collections.abc import Iterator

from ..judgement.growth import KEPT_BY_A_CHECK
from ..terminal.parser import Parser, add_places, add_transcript, give_up
from ..terminal.screen import Screen
from ..terminal.table import Table
from ..windows.installation import EXECUTABLE, Installation
from ..windows.machine import Machine, MachineError
from ..windows.programs import built
from ..windows.service_under_test import STOP_LIMIT_SECONDS, Resources, ServiceUnderTest
from ..windows.sole_use import sole_use
from ..wire.events import PeerError
from ..wire.peer import Peer
from .soak import Soak, Tally

_DESCRIPTION = """\
Plugs, updates and unplugs virtual cameras in a loop, with random faults, against one process of the service. Tells
what came of it, and what the process held at the beginning and at the end."""
_CLOSING = """\
Exit status: 0 when the service lived and broke no contract of Windows, every camera that was left whole ended with the
right flash, and the process grew by nothing but what the uninstall monitor keeps open; 1 when not, 2 when the command
line is wrong.
The service's waits are skipped unless --real-time is given."""

_WARM_UP = 20
# What the process may hold more at the end than after the warm-up, beyond what the monitor keeps.
_SPARE_HANDLES = 16
_SPARE_THREADS = 4
_SPARE_KIB = 4096


def main() -> int:
    """The exit status."""
    options = _parse()
    seed = random.SystemRandom().randrange(1 << 32) if options.seed is None else options.seed
    print(f"seed {seed} (scripts/soak {options.minutes:g} --seed {seed} begins the same)", flush=True)
    try:
        with sole_use(options.machine), Machine(options.machine) as machine:
            return _soak(machine, options, seed)
    except (KeyboardInterrupt, MachineError, PeerError, OSError) as error:
        return give_up("scripts/soak", error)


def _minutes(text: str) -> float:
    try:
        minutes = float(text)
    except ValueError:
        minutes = 0
    if not 0 < minutes <= 24 * 60:
        raise argparse.ArgumentTypeError(f"'{text}' is not a number of minutes, at most a day")
    return minutes


def _seed(text: str) -> int:
    if not text.isdigit():
        raise argparse.ArgumentTypeError(f"'{text}' is not a whole number from 0 on")
    return int(text)


def _parse() -> argparse.Namespace:
    parser = Parser(prog="scripts/soak", description=_DESCRIPTION, epilog=_CLOSING)
    parser.add_argument("minutes", type=_minutes, metavar="MINUTES", help="how long to go on, at most a day")
    parser.add_argument("--seed", type=_seed, metavar="N", help="repeat the choices of a run that told this seed")
    add_transcript(parser)
    parser.add_argument("--real-time", action="store_true", help="let the service's waits take their time")
    add_places(parser)
    return parser.parse_args()


def _soak(machine: Machine, options: argparse.Namespace, seed: int) -> int:
    rig_stage = {"skip_waits": not options.real_time, "cameras": [{}]}
    with Peer(rig_stage, lambda event: None, lambda event: None, options.transcript) as peer:
        installation = Installation(machine, built(options.programs))
        service = ServiceUnderTest(machine, peer)
        machine.forget_crashes()
        try:
            installation.make(peer.port)
            machine.demand(EXECUTABLE, "-install")
            service.start()
            return run(Soak(peer, service, installation, seed), service, machine, options.minutes * 60)
        finally:
            service.end()
            installation.remove(peer)


def run(soak: Soak, service: ServiceUnderTest, machine: Machine, seconds: float) -> int:
    """Rounds for so long, and what came of them on the screen; the exit status."""
    for _ in range(_WARM_UP):
        soak.round()
    soak.tally = Tally(wrong=soak.tally.wrong)
    before = service.resources()
    began = time.monotonic()
    try:
        while time.monotonic() - began < seconds:
            soak.round()
    except PeerError as error:
        soak.tally.wrong.append(str(error) if service.is_alive() else f"the service died: {error}")
    took = time.monotonic() - began
    after = None
    if service.is_alive():
        after = service.resources_once(lambda now: not any(_growth(before, now, soak.tally)))
    soak.tally.wrong += [f"a process crashed: {note}" for note in machine.crashes()]
    if after is not None:
        stopped_in = service.stop()
        soak.tally.wrong += [f"stopping took {stopped_in:.1f} s"] if stopped_in > STOP_LIMIT_SECONDS else []
    # The breaches first: only so many complaints are told.
    wrong = [*soak.peer.breaches(), *soak.tally.wrong, *_growth(before, after, soak.tally)]
    _report(soak.tally, before, after, took)
    for complaint in wrong[:20]:
        print(f"wrong: {complaint}")
    print("nothing wrong" if not wrong else f"{len(wrong)} things wrong")
    return 1 if wrong else 0


def _growth(before: Resources, after: Resources | None, tally: Tally) -> Iterator[str]:
    if after is None:
        return
    kept = KEPT_BY_A_CHECK * tally.removals
    for name, grown, spare in (
        ("handles", after.handles - before.handles - kept, _SPARE_HANDLES),
        ("threads", after.threads - before.threads, _SPARE_THREADS),
        ("private KiB", after.private_kib - before.private_kib, _SPARE_KIB),
    ):
        if grown > spare:
            yield f"the process has {grown} {name} more than it should, and {spare} may be spare"


def _report(tally: Tally, before: Resources, after: Resources | None, took: float) -> None:
    screen = Screen()
    rounds = sum(tally.rounds.values())
    screen.line(f"{rounds} updates and faulted updates in {took / 60:.1f} minutes, {rounds / took * 60:.0f} a minute;")
    screen.line(f"{tally.updated} cameras updated after {_WARM_UP} rounds of warming up")
    screen.table(Table([(fault, str(count)) for fault, count in sorted(tally.rounds.items())], right=frozenset({1})))
    if after is None:
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

"""The long run: python3 -m veyra_lab.soak, started by scripts/soak. Random faults against one service process."""

import argparse
import random
import sys
import tempfile
import time
from collections import Counter
from collections.abc import Iterator
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from .command_line import Parser
from .image import with_version
from .machine import Machine, MachineError, windows_path
from .peer import RIG, TOAST, Peer, PeerError
from .proving_ground import add_places, built, sole_use
from .scenario import Scenario
from .scenario_checks import KEPT_BY_A_CHECK, old_flash, removals
from .service_under_test import Resources, ServiceUnderTest
from .stage import EXECUTABLE, Stage

_DESCRIPTION = """\
Plugs, updates and unplugs virtual cameras in a loop, with random faults, against one process of the service. Tells
what came of it, and what the process held at the beginning and at the end."""
_CLOSING = """\
Exit status: 0 when the service lived, every camera that was left whole ended with the right flash, and the process
grew by nothing but what the uninstall monitor keeps open; 1 when not, 2 when the command line is wrong.
The service's waits are skipped unless --real-time is given."""

_INTERRUPTED = 130
_CAMERAS = 3
_OLD_VERSION = "5.10.2.0"
_SMALLEST, _LARGEST = 5_000, 20_000
_WARM_UP = 20
_ACCEPT, _DECLINE = 1, 0
_STAYING, _VISITING = 0.5, 0.25  # how often a camera stays for a while, and another one comes by
# What the process may hold more at the end than after the warm-up, beyond what the monitor keeps.
_SPARE_HANDLES = 16
_SPARE_THREADS = 4
_SPARE_KIB = 4096

# A fault, and how much of an update it leaves: none of them keeps the next camera from being updated.
_FAULTS: dict[str, dict[str, Any] | None] = {
    "no fault": None,
    "unplugged at the first request": {"where": "GETSTATE", "what": "unplug"},
    "unplugged during a block": {"where": "DNLOAD", "what": "unplug", "skip": 3},
    "unplugged after a block": {"where": "GETSTATUS", "what": "unplug", "skip": 3},
    "unplugged while descriptors are read": {"where": "GET-DESCRIPTOR", "what": "unplug", "skip": 1},
    "descriptor refused": {"where": "GET-DESCRIPTOR", "what": "stall", "skip": 2},
    "block refused": {"where": "DNLOAD", "what": "stall", "skip": 2},
    "block unanswered": {"where": "DNLOAD", "what": "timeout", "skip": 4},
    "probe refused": {"where": "UPLOAD", "what": "stall"},
    "wrong state after DETACH": {"where": "GETSTATE", "what": "state", "skip": 1, "value": 5},
    "error status after a block": {"where": "GETSTATUS", "what": "status", "skip": 2, "value": 3},
    "status fails now and then": {"where": "GETSTATUS", "what": "stall", "skip": 1, "count": 3, "sets_error": False},
    "version unknown": {"where": "COMMAND-READ", "what": "echo", "count": 0, "value": 7},
    "switch refused": {"where": "COMMAND-WRITE", "what": "stall", "skip": 4, "count": 0},
    "prompt server fails": None,
    "user declines": None,
    "unplugged while the user is asked": None,
}
_HARMLESS = ("no fault", "status fails now and then", "prompt server fails")
_UNASKED = ("version unknown",)


@dataclass
class Tally:
    """What a soak has seen."""

    rounds: Counter[str] = field(default_factory=Counter)
    updated: int = 0
    wrong: list[str] = field(default_factory=list)
    removals: int = 0


class Soak:
    """One service process and the cameras that come and go."""

    def __init__(self, machine: Machine, peer: Peer, service: ServiceUnderTest, stage: Stage, seed: int) -> None:
        self._peer = peer
        self._machine = machine
        self._service = service
        self._stage = stage
        self._random = random.Random(seed)
        self.tally = Tally()

    def round(self) -> None:
        """One camera from its arrival to its removal, with a fault or none."""
        fault = self._random.choice([*_FAULTS, *["no fault"] * 4])
        image = with_version(
            self._random.randbytes(self._random.randint(_SMALLEST, _LARGEST)),
            f"{self._random.randint(6, 255)}.{self._random.randint(0, 255)}.0.1",
        )
        self._stage.put_image(image)
        cameras = [self._camera(None) for _ in range(_CAMERAS)]
        chosen = self._random.randrange(_CAMERAS)
        cameras[chosen] = self._camera(_FAULTS[fault])
        since = self._peer.mark()
        self._peer.command(RIG, "restage", stage={"skip_waits": True, "cameras": cameras})
        self._peer.command(TOAST, "behave")
        try:
            self._go(fault, chosen)
            self._judge(fault, chosen, cameras[chosen], image)
        finally:
            events = self._peer.events_since(since)
            self.tally.removals += removals(events)
            self.tally.rounds[fault] += 1
        bad = [event for event in events if event["event"] == "handled" and event["result"] != 0]
        if bad:
            self.tally.wrong.append(f"{fault}: a control was not handled with 0: {bad[0]}")

    def _camera(self, fault: dict[str, Any] | None) -> dict[str, Any]:
        return {
            "version": _OLD_VERSION,
            "transfer_size": self._random.choice((128, 512, 1024, 4096)) if fault is None else 512,
            "block_ms": self._random.choice((0, 0, 0, 350)),
            "manifest_ms": self._random.choice((0, 300, 900)),
            "detach_ms": 1,
            "enumerate_ms": 5,
            "reset_ms": 5,
            "two_banks": True,
            "faults": [] if fault is None else [fault],
        }

    def _go(self, fault: str, camera: int) -> None:
        if fault == "prompt server fails":
            for method in ("ShowUpdatePrompt", "NotifyProgress", "NotifyComplete"):
                self._peer.command(TOAST, "fail", method=method, hresult=-2147467259)
        self._peer.command(RIG, "plug", camera=camera)
        self._service.settle()
        if fault == "unplugged while the user is asked":
            self._peer.command(RIG, "unplug", camera=camera)
            self._service.settle()
        if fault not in _UNASKED:
            self._peer.command(TOAST, "respond", code=_DECLINE if fault == "user declines" else _ACCEPT)
            self._service.settle()

    def _judge(self, fault: str, number: int, camera: dict[str, Any], image: bytes) -> None:
        state = self._peer.command(RIG, "state", camera=number)
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "flash.bin"
            self._peer.command(RIG, "save-flash", camera=number, path=windows_path(path))
            flash = path.read_bytes()
        wanted = image if fault in _HARMLESS else old_flash(camera)
        self.tally.updated += flash == image
        if flash != wanted:
            self.tally.wrong.append(f"{fault}: the flash is {'not ' if fault in _HARMLESS else ''}the image")
        elif fault in _HARMLESS and state["mode"] != "running":
            self.tally.wrong.append(f"{fault}: the camera is {state['mode']} after its update")
        # A camera that is stuck in DFU mode is tried again whenever a USB device arrives.
        stays = state["mode"] == "running" and self._random.random() < _STAYING
        if state["on_its_way"] and not stays:
            self._peer.command(RIG, "unplug", camera=number)
        if self._random.random() < _VISITING:
            self._visit(self._random.choice([each for each in range(_CAMERAS) if each != number]))
        if stays:
            self._peer.command(RIG, "unplug", camera=number)
        self._service.settle()

    def _visit(self, camera: int) -> None:
        """A camera that comes and goes, and whose question nobody answers."""
        self._peer.command(RIG, "plug", camera=camera)
        self._service.settle()
        self._peer.command(RIG, "unplug", camera=camera)


def main() -> int:
    """The exit status."""
    options = _parse()
    seed = random.SystemRandom().randrange(1 << 32) if options.seed is None else options.seed
    print(f"seed {seed} (scripts/soak {options.minutes:g} --seed {seed} begins the same)", flush=True)
    try:
        with sole_use(options.machine), Machine(options.machine) as machine:
            return _soak(machine, options, seed)
    except KeyboardInterrupt:
        print("scripts/soak: interrupted", file=sys.stderr)
        return _INTERRUPTED
    except (MachineError, PeerError, OSError) as error:
        print(f"scripts/soak: {error}", file=sys.stderr)
        return 1


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
    parser.add_argument("--transcript", type=Path, metavar="FILE", help="keep a record of every crossing")
    parser.add_argument("--real-time", action="store_true", help="let the service's waits take their time")
    add_places(parser)
    return parser.parse_args()


def _soak(machine: Machine, options: argparse.Namespace, seed: int) -> int:
    rig_stage = {"skip_waits": not options.real_time, "cameras": [{}]}
    with Peer(rig_stage, lambda event: None, lambda event: None, options.transcript) as peer:
        stage = Stage(machine, built(options.programs), Scenario())
        service = ServiceUnderTest(machine, peer)
        machine.forget_crashes()
        try:
            stage.set(peer.port)
            machine.demand(EXECUTABLE, "-install")
            service.start()
            return _run(Soak(machine, peer, service, stage, seed), service, machine, options.minutes * 60)
        finally:
            service.end()
            stage.clear(peer)


def _run(soak: Soak, service: ServiceUnderTest, machine: Machine, seconds: float) -> int:
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
        soak.tally.wrong += [f"stopping took {stopped_in:.1f} s"] if stopped_in > 2 else []
    wrong = [*soak.tally.wrong, *_growth(before, after, soak.tally)]
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
    rounds = sum(tally.rounds.values())
    print(f"{rounds} updates and faulted updates in {took / 60:.1f} minutes, {rounds / took * 60:.0f} a minute;")
    print(f"{tally.updated} cameras updated after {_WARM_UP} rounds of warming up")
    width = max(map(len, tally.rounds), default=0)
    for fault, count in sorted(tally.rounds.items()):
        print(f"  {fault:{width}}  {count}")
    if after is None:
        return
    kept = KEPT_BY_A_CHECK * tally.removals
    print(f"  {'':{width}}  {'start':>8}  {'end':>8}")
    keeps = f"the uninstall monitor keeps {kept} of them open"
    print(f"  {'handles':{width}}  {before.handles:8}  {after.handles:8}  {keeps}")
    print(f"  {'threads':{width}}  {before.threads:8}  {after.threads:8}")
    print(f"  {'private KiB':{width}}  {before.private_kib:8}  {after.private_kib:8}")


if __name__ == "__main__":
    sys.exit(main())

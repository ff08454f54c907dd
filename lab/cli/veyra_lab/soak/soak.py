"""Random faults against one service process."""

import random
from collections import Counter
from dataclasses import dataclass, field
from typing import Any

from ..judgement.flash import old_flash
from ..judgement.growth import removals
from ..windows.camera import read_flash
from ..windows.image import with_version
from ..windows.installation import Installation
from ..windows.service_under_test import ServiceUnderTest
from ..wire.events import RIG, TOAST
from ..wire.peer import Peer

_CAMERAS = 3
_OLD_VERSION = "5.10.2.0"
_SMALLEST, _LARGEST = 5_000, 20_000
_ACCEPT, _DECLINE = 1, 0
_STAYING, _VISITING = 0.5, 0.25  # how often a camera stays for a while, and another one comes by

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

    def __init__(self, peer: Peer, service: ServiceUnderTest, installation: Installation, seed: int) -> None:
        self.peer = peer
        self._service = service
        self._installation = installation
        self._random = random.Random(seed)
        self.tally = Tally()

    def round(self) -> None:
        """One camera from its arrival to its removal, with a fault or none."""
        fault = self._random.choice([*_FAULTS, *["no fault"] * 4])
        image = with_version(
            self._random.randbytes(self._random.randint(_SMALLEST, _LARGEST)),
            f"{self._random.randint(6, 255)}.{self._random.randint(0, 255)}.0.1",
        )
        self._installation.put_image(image)
        cameras = [self._camera(None) for _ in range(_CAMERAS)]
        chosen = self._random.randrange(_CAMERAS)
        cameras[chosen] = self._camera(_FAULTS[fault])
        since = self.peer.mark()
        self.peer.command(RIG, "restage", stage={"cameras": cameras})
        self.peer.command(TOAST, "behave")
        try:
            self._go(fault, chosen)
            self._judge(fault, chosen, cameras[chosen], image)
        finally:
            events = self.peer.events_since(since)
            self.tally.removals += removals(events)
            self.tally.rounds[fault] += 1
        bad = [event for event in events if event["event"] == "handled" and event["result"] != 0]
        if bad:
            self.tally.wrong.append(f"{fault}: a control was not handled with 0: {bad[0]}")

    def _camera(self, fault: dict[str, Any] | None) -> dict[str, Any]:
        return {
            "version": _OLD_VERSION,
            "personality": self._random.choice(("kv400", "busy-first")),
            "transfer_size": self._random.choice((128, 512, 1024, 4096)) if fault is None else 512,
            "block_ms": self._random.choice((0, 0, 0, 350)),
            "manifest_ms": self._random.choice((0, 300, 900)),
            "detach_ms": 1,
            "enumerate_ms": 5,
            # Longer than the service lets pass between two looks: it sees that the camera waits for its reset.
            "reset_ms": 1000,
            "two_banks": True,
            "faults": [] if fault is None else [fault],
        }

    def _go(self, fault: str, camera: int) -> None:
        if fault == "prompt server fails":
            for method in ("ShowUpdatePrompt", "NotifyProgress", "NotifyComplete"):
                self.peer.command(TOAST, "fail", method=method, hresult=-2147467259)
        self.peer.command(RIG, "plug", camera=camera)
        self._service.settle()
        if fault == "unplugged while the user is asked":
            self.peer.command(RIG, "unplug", camera=camera)
            self._service.settle()
        if fault not in _UNASKED:
            self.peer.command(TOAST, "respond", code=_DECLINE if fault == "user declines" else _ACCEPT)
            self._service.settle()

    def _judge(self, fault: str, number: int, camera: dict[str, Any], image: bytes) -> None:
        state = self.peer.command(RIG, "state", camera=number)
        flash = read_flash(self.peer, number)
        wanted = image if fault in _HARMLESS else old_flash(camera)
        self.tally.updated += flash == image
        if flash != wanted:
            self.tally.wrong.append(f"{fault}: the flash is {'not ' if fault in _HARMLESS else ''}the image")
        elif fault in _HARMLESS and state["mode"] != "running":
            self.tally.wrong.append(f"{fault}: the camera is {state['mode']} after its update")
        # A camera that is stuck in DFU mode is tried again whenever a USB device arrives.
        stays = state["mode"] == "running" and self._random.random() < _STAYING
        if state["on_its_way"] and not stays:
            self.peer.command(RIG, "unplug", camera=number)
        if self._random.random() < _VISITING:
            self._visit(self._random.choice([each for each in range(_CAMERAS) if each != number]))
        if stays:
            self.peer.command(RIG, "unplug", camera=number)
        self._service.settle()

    def _visit(self, camera: int) -> None:
        """A camera that comes and goes, and whose question nobody answers."""
        self.peer.command(RIG, "plug", camera=camera)
        self._service.settle()
        self.peer.command(RIG, "unplug", camera=camera)

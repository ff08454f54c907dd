"""The product's service and those that it is measured against, side by side in one machine."""

import shutil
import sys
from contextlib import ExitStack
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType
from typing import Any

from ...windows.installation import APP_DEFAULTS_KEY, EXECUTABLE, FOLDER, Installation, remove_service
from ...windows.machine import Machine, registry_string
from ...windows.programs import SERVICE, built
from ...windows.service_under_test import ServiceUnderTest
from ...wire.events import RIG, TOAST, Event
from ...wire.peer import Peer

PRODUCT = SERVICE
MINIMAL = "VeyraMinimalService"
_ACTIVATING = "VeyraActivatingService"
_REFERENCES = (MINIMAL, _ACTIVATING)


@dataclass(frozen=True)
class Camera:
    """The one camera on the bus, driven from outside."""

    peer: Peer

    def put(self, **fields: Any) -> None:
        """Another camera takes its place, unplugged. It is always ready: it writes and manifests at once."""
        camera = {"manifests_at_once": True, "detach_ms": 1, "enumerate_ms": 5, "reset_ms": 5, **fields}
        self.peer.command(RIG, "restage", stage={"cameras": [camera]})

    def plug(self) -> None:
        """It comes to the bus."""
        self.peer.command(RIG, "plug", camera=0)

    def unplug(self) -> None:
        """It leaves."""
        self.peer.command(RIG, "unplug", camera=0)

    def accept(self) -> None:
        """The user agrees to the update."""
        self.peer.command(TOAST, "respond", code=1)

    def state(self) -> Event:
        """Where it is, and how many control transfers reached it."""
        return self.peer.command(RIG, "state", camera=0)


class Contenders:
    """Use it as a context: on entry the services are installed, none runs; on exit everything is taken away.

    Each is under a rig of its own, so what the rig itself costs is in every figure, and cancels out. `product` is the
    executable that ships, `minimal` the least that a service can be, `activating` that with COM set up and the toast
    controller activated."""

    def __init__(self, machine: Machine, programs: Path) -> None:
        self.machine = machine
        self._programs = programs
        self.peer = Peer({"cameras": [{}]}, lambda event: None, lambda event: None)
        self.installation = Installation(machine, built(programs))
        self.camera = Camera(self.peer)
        self.product = ServiceUnderTest(machine, self.peer)
        self.minimal = ServiceUnderTest(machine, self.peer, MINIMAL)
        self.activating = ServiceUnderTest(machine, self.peer, _ACTIVATING)

    def __enter__(self) -> "Contenders":
        self.peer.__enter__()
        try:
            self.installation.make(self.peer.port)
            self.machine.demand(EXECUTABLE, "-install")
            for name in _REFERENCES:
                self._install(name)
        except BaseException:
            self.__exit__(*sys.exc_info())
            raise
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        with ExitStack() as steps:
            steps.callback(self.peer.__exit__, kind, error, trace)
            steps.callback(self.installation.remove, self.peer)
            steps.callback(self.machine.change_registry, {}, removed=[_defaults_key(name) for name in _REFERENCES])
            for name in _REFERENCES:
                steps.callback(remove_service, self.machine, name)
            self.end_all()

    def end_all(self) -> None:
        """Leaves none of them running, whatever has happened, and the toast controller where it belongs."""
        for service in (self.product, self.minimal, self.activating):
            service.end()
        self.installation.put_toast_server(True)

    def start(self, service: ServiceUnderTest, *, skip_waits: bool) -> None:
        """Starts one of them, with its waits skipped for as long as it runs, or not."""
        self.peer.set_stage({"skip_waits": skip_waits, "cameras": [{}]})
        service.start()

    def _install(self, name: str) -> None:
        path = rf"{FOLDER}\{name}.exe"
        shutil.copyfile(self._programs / "lab" / "minimal" / f"{name}.exe", self.machine.file(path))
        self.machine.change_registry({rf"{_defaults_key(name)}\DllOverrides": {"winusb": registry_string("native")}})
        self.machine.demand("sc", "create", name, "binPath=", path)


def _defaults_key(name: str) -> str:
    return rf"{APP_DEFAULTS_KEY}\{name}.exe"

"""Virtual cameras on the guest's USB bus, served by a process of their own."""

import tempfile
from collections.abc import Sequence
from contextlib import ExitStack
from pathlib import Path
from types import TracebackType

from ..wire.events import USBREDIR, Event
from ..wire.peer import Peer
from .camera_server import PROGRAMS, CameraServer
from .machine import GuestMachine

# The server, as a build's target.
TARGET = f"lab_{USBREDIR}"


class ServedCameras(CameraServer):
    """Cameras of a stage, one to a port of the guest's bus in their order; all begin unplugged. Use it as a context: on
    exit the ports are free again and the server has ended. What crosses the bus is told as events of the source
    "usbredir". GuestError when the server or QEMU does not do its part; PeerError as Peer.command."""

    def __init__(
        self, guest: GuestMachine, peer: Peer, cameras: Sequence[Event], programs: Path = PROGRAMS
    ) -> None:
        self._guest = guest
        self._folder = tempfile.TemporaryDirectory(prefix="veyra-cameras-")
        self._sockets = [Path(self._folder.name) / f"{number}.socket" for number in range(len(cameras))]
        self._parts = ExitStack()
        super().__init__(USBREDIR, peer, cameras, [f"unix:{path}" for path in self._sockets], programs)

    def __enter__(self) -> "ServedCameras":
        with ExitStack() as parts:
            parts.enter_context(self._folder)
            super().__enter__()
            parts.push(super().__exit__)
            for number, path in enumerate(self._sockets):
                name = f"camera-{number}"
                self._guest.bus.plug_redirected(name, path, port=number + 1)
                parts.callback(self._guest.bus.unplug, name)
            self._parts = parts.pop_all()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self._parts.__exit__(kind, error, trace)

"""A machine while it runs: what happens to its cameras is shown, and what a person types is done."""

from collections.abc import Sequence
from pathlib import Path

from ..guest.camera_server import CameraServer
from ..guest.errors import GuestError
from ..guest.qemu import Qemu
from ..terminal.screen import Screen
from ..wire.events import USBREDIR, PeerError
from ..wire.peer import Peer
from .typed import Typed

HELP = (
    "plug [N], unplug [N]  the camera comes to the bus, or is pulled",
    "state [N]             where it is, as its own side of the bus knows it",
    "save FILE [N]         writes its whole flash",
    "quit                  pulls the machine's plug; once Windows is shut down, all this ends by itself",
)
_ROUND_SECONDS = 0.2


class _Mistake(Exception):
    """What was typed makes no sense."""


class Session:
    """What a person has of a machine that runs, until it ends."""

    def __init__(self, screen: Screen, peer: Peer, cameras: CameraServer, count: int, typed: Typed) -> None:
        self._screen = screen
        self._peer = peer
        self._cameras = cameras
        self._count = count
        self._typed = typed
        self._is_over = False

    def run(self, qemu: Qemu) -> None:
        """Until the machine is switched off, or somebody has typed "quit". GuestError when it, or the cameras' server,
        ends in another way."""
        while qemu.status is None and not self._is_over:
            for line in self._typed.lines(_ROUND_SECONDS):
                self._obey(line)
            self._peer.catch_up()
            if not self._peer.is_connected_as(USBREDIR):
                raise GuestError("the cameras' server is gone")
        if qemu.status:
            qemu.check()

    def _obey(self, line: str) -> None:
        """What is refused is told, and the machine goes on."""
        try:
            match line.split():
                case []:
                    pass
                case ["quit"]:
                    self._is_over = True
                case ["plug", *which]:
                    self._cameras.plug(self._camera(which))
                case ["unplug", *which]:
                    self._cameras.unplug(self._camera(which))
                case ["state", *which]:
                    self._tell_state(self._camera(which))
                case ["save", file, *which]:
                    self._cameras.save_flash(self._camera(which), Path(file))
                    self._screen.note(f"{file} has the flash")
                case _:
                    for text in HELP:
                        self._screen.note(text)
        except (_Mistake, PeerError) as error:
            self._screen.note(str(error))

    def _camera(self, words: Sequence[str]) -> int:
        match words:
            case []:
                return 0
            case [word] if word.isdecimal() and int(word) < self._count:
                return int(word)
        raise _Mistake(f"there is no camera {' '.join(words)}: they count from 0 to {self._count - 1}")

    def _tell_state(self, camera: int) -> None:
        state = self._cameras.state(camera)
        said = f"camera {camera}: {state['mode']}, firmware {state['version']}, {state['flash_bytes']} bytes of flash"
        if state["mode"] == "dfu":
            said += f", state {state['dfu_state']}, status {state['dfu_status']}, {state['transfers']} transfers"
        self._screen.note(said)

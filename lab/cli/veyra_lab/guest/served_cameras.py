"""Virtual cameras on the guest's USB bus, served by a process of their own."""

import shutil
import subprocess
import tempfile
import time
from collections.abc import Sequence
from pathlib import Path
from types import TracebackType

from ..checkout import BUILD
from ..wire.events import USBREDIR, Event
from ..wire.peer import Peer
from .errors import GuestError
from .image import PRESET
from .machine import GuestMachine

TARGET = "lab_usbredir"
SERVER = BUILD / PRESET / TARGET
_STARTING_PATIENCE = 20.0
_ENDING_PATIENCE = 10.0
_PAUSE = 0.01


class ServedCameras:
    """Cameras of a stage, one to a port of the guest's bus in their order; all begin unplugged. Use it as a context: on
    exit the ports are free again and the server has ended. What crosses the bus is told as events of the source
    "usbredir". GuestError when the server or QEMU does not do its part; PeerError as Peer.command."""

    def __init__(self, guest: GuestMachine, peer: Peer, cameras: Sequence[Event], server: Path = SERVER) -> None:
        self._guest = guest
        self._peer = peer
        self._cameras = cameras
        self._server = server
        self._folder = Path()
        self._process: subprocess.Popen[bytes] | None = None
        self._plugged: list[str] = []

    def __enter__(self) -> "ServedCameras":
        if not self._server.is_file():
            raise GuestError(f"{self._server} is missing: scripts/setup build {PRESET} {TARGET} builds it")
        self._folder = Path(tempfile.mkdtemp(prefix="veyra-cameras-"))
        try:
            self._start()
            for number, place in enumerate(self._places()):
                name = f"camera-{number}"
                self._guest.bus.plug_redirected(name, place, port=number + 1)
                self._plugged.append(name)
        except BaseException:
            self._end()
            raise
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        try:
            for name in self._plugged:
                self._guest.bus.unplug(name)
            self._peer.dismiss(USBREDIR, _ENDING_PATIENCE)
        finally:
            said = self._end()
        if said and error is None:
            raise GuestError(f"{TARGET} did not end well: {said}")

    def plug(self, camera: int) -> None:
        """Puts a camera on the bus."""
        self._peer.command(USBREDIR, "plug", camera=camera)

    def unplug(self, camera: int) -> None:
        """Pulls it."""
        self._peer.command(USBREDIR, "unplug", camera=camera)

    def state(self, camera: int) -> Event:
        """What it is, as its own side of the bus tells it."""
        return self._peer.command(USBREDIR, "state", camera=camera)

    def flash(self, camera: int) -> bytes:
        """The whole flash of a camera."""
        path = self._folder / "flash.bin"
        self._peer.command(USBREDIR, "save-flash", camera=camera, path=str(path))
        return path.read_bytes()

    def _places(self) -> Sequence[Path]:
        return [self._folder / f"{number}.socket" for number in range(len(self._cameras))]

    def _start(self) -> None:
        self._peer.set_server_stage(USBREDIR, self._cameras)
        since = self._peer.mark()
        words = [str(self._server), "--wire", f"tcp:127.0.0.1:{self._peer.port}"]
        for place in self._places():
            words += ["--listen", f"unix:{place}"]
        with (self._folder / "said").open("wb") as said:
            self._process = subprocess.Popen(
                words, stdin=subprocess.DEVNULL, stdout=said, stderr=said, start_new_session=True,
            )
        self._peer.follow(
            lambda event: event["event"] == "hello" and event["source"] == USBREDIR,
            f"the hello of {TARGET}", since=since, quiet=_STARTING_PATIENCE,
        )
        deadline = time.monotonic() + _STARTING_PATIENCE
        while not all(place.exists() for place in self._places()):
            if self._process.poll() is not None or time.monotonic() > deadline:
                raise GuestError(f"{TARGET} did not start: {self._end()}")
            time.sleep(_PAUSE)

    def _end(self) -> str:
        """Leaves no process and no file behind; what the server has said when it did not end well by itself."""
        process, self._process = self._process, None
        said = ""
        if process is not None:
            try:
                status = process.wait(_ENDING_PATIENCE)
            except subprocess.TimeoutExpired:
                process.kill()
                status = process.wait()
            if status != 0:
                said = (self._folder / "said").read_text(encoding="utf-8", errors="replace") or f"it ended with {status}"
        shutil.rmtree(self._folder, ignore_errors=True)
        return said.strip()

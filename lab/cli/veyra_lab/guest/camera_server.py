"""A server of virtual cameras, as a process that is told what to do over the wire."""

import subprocess
import tempfile
import time
from collections.abc import Sequence
from pathlib import Path
from types import TracebackType
from typing import IO

from ..checkout import BUILD
from ..wire.events import Event, PeerError
from ..wire.peer import Peer
from .errors import GuestError
from .image import PRESET

PROGRAMS = BUILD / PRESET
_STARTING_PATIENCE = 20.0
_ENDING_PATIENCE = 10.0
_PAUSE = 0.01


class CameraServer:
    """The server of one protocol, "usbredir" or "usbip", with the cameras of a stage, at least one; all begin
    unplugged. Use it as a context: from its entry on it listens at the places, on exit its process has ended. What
    crosses the cameras' bus is told as events of the source that is called as the protocol. GuestError when it does not
    start, as with cameras that cannot be, or does not end well; PeerError as Peer.command."""

    def __init__(
        self, protocol: str, peer: Peer, cameras: Sequence[Event], places: Sequence[str], programs: Path = PROGRAMS
    ) -> None:
        self._protocol = protocol
        self._peer = peer
        self._cameras = cameras
        self._places = places
        self._program = programs / f"lab_{protocol}"
        self._process: subprocess.Popen[bytes] | None = None
        self._said: IO[bytes] = tempfile.TemporaryFile()

    def __enter__(self) -> "CameraServer":
        if not self._program.is_file():
            name = self._program.name
            raise GuestError(f"{self._program} is missing: scripts/setup build {PRESET} {name} builds it")
        try:
            self._start()
        except BaseException:
            self._end(0)
            self._said.close()
            raise
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self._peer.dismiss(self._protocol, _ENDING_PATIENCE)
        with self._said:
            said = self._end(_ENDING_PATIENCE)
        if said and error is None:
            raise GuestError(f"{self._program.name} did not end well: {said}")

    def plug(self, camera: int) -> None:
        """Puts a camera on the bus."""
        self._peer.command(self._protocol, "plug", camera=camera)

    def unplug(self, camera: int) -> None:
        """Pulls it."""
        self._peer.command(self._protocol, "unplug", camera=camera)

    def state(self, camera: int) -> Event:
        """What it is, as its own side of the bus tells it."""
        return self._peer.command(self._protocol, "state", camera=camera)

    def save_flash(self, camera: int, path: Path) -> None:
        """Writes the whole flash of a camera to a file."""
        self._peer.command(self._protocol, "save-flash", camera=camera, path=str(path.absolute()))

    def flash(self, camera: int) -> bytes:
        """The whole flash of a camera."""
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "flash.bin"
            self.save_flash(camera, path)
            return path.read_bytes()

    def _start(self) -> None:
        self._peer.set_server_stage(self._protocol, self._cameras)
        since = self._peer.mark()
        words = [str(self._program), "--wire", f"tcp:127.0.0.1:{self._peer.port}"]
        for place in self._places:
            words += ["--listen", place]
        self._process = subprocess.Popen(
            words, stdin=subprocess.DEVNULL, stdout=self._said, stderr=self._said, start_new_session=True,
        )
        deadline = time.monotonic() + _STARTING_PATIENCE
        while not self._has_said_hello(since):
            if self._process.poll() is not None or time.monotonic() > deadline:
                raise GuestError(f"{self._program.name} did not start: {self._end(0)}")
            time.sleep(_PAUSE)
        try:
            # It answers once it listens.
            self._peer.command(self._protocol, "state", camera=0, quiet=_STARTING_PATIENCE)
        except PeerError as error:
            raise GuestError(f"{self._program.name} did not start: {self._end(_ENDING_PATIENCE) or error}") from error

    def _has_said_hello(self, since: int) -> bool:
        return any(
            event["event"] == "hello" and event["source"] == self._protocol for event in self._peer.events_since(since)
        )

    def _end(self, patience: float) -> str:
        """Ends the process, which has `patience` seconds to do so by itself; what it said when it did not end well."""
        process, self._process = self._process, None
        if process is None:
            return ""
        try:
            status = process.wait(patience)
        except subprocess.TimeoutExpired:
            process.kill()
            status = process.wait()
        if status == 0:
            return ""
        self._said.seek(0)
        return self._said.read().decode("utf-8", "replace").strip() or f"it ended with {status}"

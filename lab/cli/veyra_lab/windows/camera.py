"""What only a file can carry from a virtual camera to the laboratory."""

import tempfile
from pathlib import Path

from ..wire.events import RIG
from ..wire.peer import Peer
from .machine import windows_path


def read_flash(peer: Peer, camera: int) -> bytes:
    """The whole flash of a camera."""
    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder) / "flash.bin"
        peer.command(RIG, "save-flash", camera=camera, path=windows_path(path))
        return path.read_bytes()

"""A virtual camera as the machine sees it, and what only a file can carry from it to the laboratory."""

import tempfile
from pathlib import Path
from typing import Any

from ..wire.events import RIG
from ..wire.peer import Peer
from .machine import windows_path


def questions_of(camera: dict[str, Any]) -> int:
    """How often the user is asked when a camera of this stage is plugged in: at each arrival at which it is found."""
    return 1 if camera.get("listed_as") == "capture" else 2


def read_flash(peer: Peer, camera: int) -> bytes:
    """The whole flash of a camera."""
    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder) / "flash.bin"
        peer.command(RIG, "save-flash", camera=camera, path=windows_path(path))
        return path.read_bytes()

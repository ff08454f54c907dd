"""What a run was made with, for its record: when, on what, which service, which image."""

import hashlib
import platform
import shutil
import struct
import subprocess
from datetime import datetime
from functools import cache
from pathlib import Path
from typing import Any

from .image import SMALLEST_IMAGE, version_of

# The signature of the fixed part of a program's version resource, behind it the numbers of the file's version.
_FIXED_VERSION = b"\xbd\x04\xef\xfe"


def of_run(service: Path) -> dict[str, Any]:
    """Date, machine and service, as the event "run" has them."""
    return {
        "date": datetime.now().astimezone().isoformat(timespec="seconds"),
        "machine": f"{_wine()} on {_system()}, {platform.machine()}",
        "service": of_program(service),
    }


def of_program(path: Path) -> dict[str, Any]:
    """A program's name, version, size and digest. OSError when it cannot be read."""
    content = path.read_bytes()
    return {"name": path.name, "version": _file_version(content), **_of_bytes(content)}


def of_image(content: bytes | None, name: str = "") -> dict[str, Any]:
    """An image's name, version, size and digest; no content: there is none in the machine."""
    if content is None:
        return {"name": name, "missing": True}
    version = version_of(content) if len(content) >= SMALLEST_IMAGE else ""
    return {"name": name, "version": version, **_of_bytes(content)}


def _of_bytes(content: bytes) -> dict[str, Any]:
    return {"size": len(content), "sha256": hashlib.sha256(content).hexdigest()}


def _file_version(content: bytes) -> str:
    place = content.find(_FIXED_VERSION)
    if place < 0 or len(content) < place + 16:
        return ""
    high, low = struct.unpack_from("<II", content, place + 8)
    return f"{high >> 16}.{high & 0xFFFF}.{low >> 16}.{low & 0xFFFF}"


def _system() -> str:
    try:
        return platform.freedesktop_os_release().get("PRETTY_NAME", platform.system())
    except OSError:
        return platform.system()


@cache
def _wine() -> str:
    """The name and version that Wine gives itself."""
    program = shutil.which("wine64") or shutil.which("wine") or "/usr/lib/wine/wine64"
    try:
        told = subprocess.run([program, "--version"], capture_output=True, text=True, timeout=20, check=False).stdout
    except (OSError, subprocess.SubprocessError):
        told = ""
    return told.strip() or "Wine"

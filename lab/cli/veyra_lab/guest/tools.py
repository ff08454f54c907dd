"""The host's programs that the guest is made and run with."""

import shutil
import subprocess
from collections.abc import Sequence
from pathlib import Path

from .errors import GuestError

# The package of each program, where it is not called like the program.
_PACKAGES = {
    "ip": "iproute2",
    "lsusb": "usbutils",
    "qemu-img": "qemu-utils",
    "qemu-system-x86_64": "qemu-system-x86",
    "setpriv": "util-linux",
}
_LIMIT = 300


def tool(name: str) -> str:
    """The path of a program. GuestError when its package is missing."""
    # The system's own folders are not on everybody's PATH.
    found = shutil.which(name) or shutil.which(name, path="/usr/sbin:/sbin")
    if not found:
        raise GuestError(f"a package is missing: {_PACKAGES.get(name, name)} (scripts/setup packages usb)")
    return found


def call(command: Sequence[str | Path], folder: Path | None = None, given: bytes = b"") -> bytes:
    """Runs a program that has to succeed, with `given` on its standard input, and returns what it wrote. GuestError
    when it did not."""
    words = [tool(str(command[0])), *map(str, command[1:])]
    try:
        done = subprocess.run(words, input=given, capture_output=True, timeout=_LIMIT, check=False, cwd=folder)
    except subprocess.TimeoutExpired:
        raise GuestError(f"{command[0]} did not end within {_LIMIT} s") from None
    if done.returncode != 0:
        said = done.stderr.decode("utf-8", "replace").strip()
        raise GuestError(f"{command[0]} failed with {done.returncode}: {said}")
    return done.stdout

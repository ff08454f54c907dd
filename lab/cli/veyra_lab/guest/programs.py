"""Programs of the host that are taken into the guest, with the libraries that they need."""

import os
import re
import subprocess
from collections.abc import Iterable
from pathlib import Path

from .errors import GuestError
from .tools import tool

# What is there for whoever looks at the bus by hand, or drives a device as any Linux machine does.
PROGRAMS = ("dfu-util", "lsusb")
# "libusb-1.0.so.0 => /lib/…/libusb-1.0.so.0 (0x…)", "/lib64/ld-linux-x86-64.so.2 (0x…)", "libx.so => not found"
_LIBRARY = re.compile(r"^\s*(?:\S+ => )?(/\S+) \(0x", re.MULTILINE)
_MISSING = re.compile(r"^\s*(\S+) => not found", re.MULTILINE)


def files_of(programs: Iterable[str]) -> dict[str, Path]:
    """Where each file of the programs goes in the guest, and where it is here. GuestError when one is missing."""
    files = {}
    for name in programs:
        program = Path(tool(name))
        for path in (program, *_libraries(program)):
            files[str(path)] = path
    return files


def _libraries(program: Path) -> list[Path]:
    environment = {name: value for name, value in os.environ.items() if not name.startswith("LD_")} | {"LC_ALL": "C"}
    listed = subprocess.run(
        ["ldd", str(program)], capture_output=True, text=True, check=False, env=environment, timeout=60
    ).stdout
    if missing := _MISSING.findall(listed):
        raise GuestError(f"{program} has no library {missing[0]}")
    return [Path(path) for path in _LIBRARY.findall(listed)]

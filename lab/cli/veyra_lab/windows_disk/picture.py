"""Where the machine's picture is seen."""

import os
from collections.abc import Sequence
from dataclasses import dataclass

from ..guest.qemu import PROGRAM
from ..guest.tools import call

_WINDOWS = ("gtk", "sdl")
_FIRST_PORT = 5900


@dataclass(frozen=True)
class Picture:
    """The words of QEMU's command line, and one line for the person."""

    words: Sequence[str]
    told: str


def picture(vnc: int | None) -> Picture:
    """VNC's display of this number, on this computer alone; without one a window, where there is a display to show it
    on and QEMU can draw it; or none at all."""
    if vnc is not None:
        place = f"127.0.0.1:{_FIRST_PORT + vnc}"
        return Picture(("-vnc", f"127.0.0.1:{vnc}"), f"its picture: a VNC viewer sees it at {place}")
    if not (os.environ.get("DISPLAY") or os.environ.get("WAYLAND_DISPLAY")):
        return Picture(("-display", "none"), "nobody sees its picture: there is no display here; --vnc :1 shows it")
    drawn = call([PROGRAM, "-display", "help"]).decode().split()
    for name in _WINDOWS:
        if name in drawn:
            return Picture(("-display", name), "its picture: the window that opens")
    return Picture(
        ("-display", "none"),
        "nobody sees its picture: a window takes the package qemu-system-gui; --vnc :1 shows it without one",
    )

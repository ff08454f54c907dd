"""How a person is asked: at the terminal, or by the toast controller that ships, in its window."""

import os
import re
import socket
import sys
from collections.abc import Callable

# Asks a person: the camera's version and the image's, as the service named them; True for yes.
Ask = Callable[[str, str], bool]

_YES = ("y", "yes")
_NO = ("n", "no")


class AnswerError(Exception):
    """Nobody can be asked in this way here. The text says what to do."""


def terminal() -> Ask:
    """Asks at the terminal that the program was started from. An AnswerError when there is none."""
    if not sys.stdin.isatty():
        raise AnswerError(
            "--answer ask needs a terminal to ask at, and standard input is none: use --answer accept or decline"
        )
    return _ask_at_terminal


def check_display() -> None:
    """An AnswerError when there is no display that a window could be shown on."""
    display = os.environ.get("DISPLAY")
    if not display:
        raise AnswerError(
            "--answer window needs a display, and DISPLAY is not set: set it, or use --answer ask"
        )
    try:
        _reach(display)
    except OSError as error:
        raise AnswerError(f"--answer window cannot open a window on DISPLAY={display}: {error}") from None


def _reach(display: str) -> None:
    """Connects to a display, as every program does that shows a window there, and leaves. An OSError when nobody answers."""
    named = re.fullmatch(r"(.*):([0-9]+)(\.[0-9]+)?", display)
    if named is None:
        raise OSError("it names no display")
    host, number = named[1], int(named[2])
    if host in ("", "unix"):
        with socket.socket(socket.AF_UNIX) as channel:
            channel.connect(f"/tmp/.X11-unix/X{number}")
    else:
        socket.create_connection((host, 6000 + number), timeout=5).close()


def _ask_at_terminal(camera_version: str, image_version: str) -> bool:
    """End of file means no: nobody is there who could agree. An interruption ends the whole demo, as everywhere."""
    screen = sys.stdout if sys.stdout.isatty() else sys.stderr
    question = f"    The camera has firmware {camera_version}, the image is {image_version}. Update? [y/n] "
    while True:
        screen.write(question)
        screen.flush()
        line = sys.stdin.readline()
        if not line:
            screen.write("\n")
            return False
        said = line.strip().lower()
        if said in _YES or said in _NO:
            return said in _YES
        screen.write("    Please answer y or n.\n")

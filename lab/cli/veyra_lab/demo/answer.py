"""A person's answer to the service's question, at the terminal or in a window."""

import os
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path

# Asks a person: the camera's version and the image's, as the service named them; True for yes.
Ask = Callable[[str, str], bool]

_WINDOW = Path(__file__).with_name("question_window.py")
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


def window() -> Ask:
    """Asks in a window. An AnswerError when there is no display, or nothing that can draw on it."""
    if not os.environ.get("DISPLAY"):
        raise AnswerError(
            "--answer window needs a display, and DISPLAY is not set: set it, or use --answer ask"
        )
    tried = subprocess.run(
        [sys.executable, str(_WINDOW), "--check"],
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        check=False,
    )
    if tried.returncode != 0:
        raise AnswerError(f"--answer window cannot open a window: {' '.join(tried.stderr.split())}")
    return _ask_in_window


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


def _ask_in_window(camera_version: str, image_version: str) -> bool:
    """A window that is closed, or killed, means no."""
    shown = subprocess.Popen(
        [sys.executable, str(_WINDOW), camera_version, image_version],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        text=True,
    )
    try:
        said, _ = shown.communicate()
    except BaseException:
        shown.kill()
        shown.wait()
        raise
    return said.strip() == "update"

"""The toast controller's window, as a person sees and uses it."""

import os
import subprocess
import threading
import time
from collections.abc import Callable
from dataclasses import dataclass, field
from pathlib import Path

from support import BUILD, CHECKOUT
from veyra_lab.windows.machine import Machine, windows_path

PATIENCE = 60
QUESTION = "Update the firmware of a camera?"
DOWNLOAD = "A camera is getting its firmware"
ALL_TAKEN = "The camera has taken the whole firmware"

_READER = BUILD / "tests" / "system" / "window_reader.exe"
_TITLE = "Camera firmware"


@dataclass
class Window:
    """What the window shows."""

    place: tuple[int, int, int, int] = (0, 0, 0, 0)
    texts: list[str] = field(default_factory=list)
    percent: int | None = None
    # The middle of each button, by its words.
    buttons: dict[str, tuple[int, int]] = field(default_factory=dict)


class Display:
    """The display that DISPLAY names, and the window on it."""

    def __init__(self, machine: Machine) -> None:
        self._machine = machine
        # Set when there is nothing any more that a window could be waited for.
        self.is_over = threading.Event()

    def window(self) -> Window | None:
        """The window, if one is there."""
        told = subprocess.run(
            [str(CHECKOUT / "scripts" / "wine"), windows_path(_READER), _TITLE],
            env={**self._machine.environment, "DISPLAY": os.environ["DISPLAY"]},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            timeout=PATIENCE,
            check=False,
        )
        if told.returncode != 0:
            return None
        window = Window()
        for line in told.stdout.decode("utf-8").replace("\r\n", "\n").splitlines():
            what, _, rest = line.partition(" ")
            if what == "window":
                left, top, right, bottom = map(int, rest.split())
                window.place = (left, top, right, bottom)
            elif what == "text":
                window.texts.append(rest)
            elif what == "percent":
                window.percent = int(rest)
            elif what == "button":
                x, y, *words = rest.split(maxsplit=2)
                window.buttons[" ".join(words).replace("&", "")] = (int(x), int(y))
        return window

    def wait_for(self, wanted: Callable[[Window], bool], what: str) -> Window:
        """Looks until the window shows that."""
        deadline = time.monotonic() + PATIENCE
        seen = None
        while time.monotonic() < deadline and not self.is_over.is_set():
            seen = self.window()
            if seen is not None and wanted(seen):
                return seen
            time.sleep(0.2)
        raise AssertionError(f"{what} was not shown, but {seen}")

    def wait_for_text(self, text: str, button: str) -> Window:
        """Looks until one of the window's texts begins so, and that button is there."""
        return self.wait_for(
            lambda window: button in window.buttons and any(each.startswith(text) for each in window.texts), text
        )

    def click(self, window: Window, button: str) -> None:
        """Moves the mouse to a button and presses its own."""
        x, y = window.buttons[button]
        subprocess.run(["xdotool", "mousemove", str(x), str(y), "sleep", "0.2", "click", "1"], check=True, timeout=PATIENCE)

    def picture(self, path: Path) -> None:
        """Photographs the window. What has just changed is drawn, and takes its place, a moment later."""
        time.sleep(0.5)
        window = self.window()
        assert window is not None
        left, top, right, bottom = window.place
        crop = f"{right - left}x{bottom - top}+{left}+{top}"
        command = ["import", "-window", "root", "-crop", crop, "+repage", "-strip", "-colors", "64", f"png8:{path}"]
        subprocess.run(command, check=True, timeout=PATIENCE)

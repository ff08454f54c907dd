"""What a person sees: steps, notes below them, and the progress of the download."""

import os
import shutil
import sys
import time
from typing import TextIO


class Screen:
    """Writes to a terminal or a pipe. On a terminal the progress is a bar that stays on its line; in a pipe it is a
    plain line now and then."""

    _PLAIN_SHARE = 10
    _REDRAW_SECONDS = 0.05

    def __init__(self, stream: TextIO | None = None) -> None:
        self._stream = sys.stdout if stream is None else stream
        self._terminal = self._stream.isatty()
        self._bar_on_line = False
        self._last_drawn = 0.0
        self._last_tenth = 0

    def step(self, text: str) -> None:
        """One thing that the laboratory does."""
        self._line(f"==> {text}")

    def note(self, text: str) -> None:
        """One thing that was seen to happen."""
        self._line(f"    {text}")

    def plain(self, text: str) -> None:
        """A line without any mark: the closing lines."""
        self._line(text)

    def progress(self, done: int, total: int) -> None:
        """How many of all blocks are in the camera. To be called with rising numbers; equal to total ends it."""
        if self._terminal:
            self._draw_bar(done, total)
        else:
            self._say_tenths(done, total)

    def _line(self, text: str) -> None:
        if self._bar_on_line:
            self._write("\n")
            self._bar_on_line = False
        self._write(text + "\n")

    def _write(self, text: str) -> None:
        try:
            self._stream.write(text)
            self._stream.flush()
        except BrokenPipeError:
            # Nobody reads any more, as behind `| head`. The run goes on to its cleaning up, in silence.
            os.dup2(os.open(os.devnull, os.O_WRONLY), self._stream.fileno())

    def _draw_bar(self, done: int, total: int) -> None:
        now = time.monotonic()
        if done < total and now - self._last_drawn < self._REDRAW_SECONDS:
            return
        self._last_drawn = now
        label = f" {100 * done // total:3d} %  block {done:>{len(str(total))}} of {total}"
        width = max(10, min(50, shutil.get_terminal_size().columns - len(label) - 8))
        filled = width * done // total
        self._write(f"\r    [{'#' * filled}{'.' * (width - filled)}]{label}")
        self._bar_on_line = True

    def _say_tenths(self, done: int, total: int) -> None:
        tenth = self._PLAIN_SHARE * done // total
        if done == 1:
            self._last_tenth = 0
        if tenth > self._last_tenth:
            self._last_tenth = tenth
            self.note(f"{100 * done // total} %: block {done} of {total}")

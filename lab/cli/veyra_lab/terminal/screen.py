"""What a person sees: lines, tables, and the progress of a download."""

import os
import sys
import time
from typing import TextIO

from rich.console import Console, RenderableType
from rich.progress import BarColumn, Progress, TextColumn
from rich.text import Text

from .table import Table


class _Console(Console):
    """Plain lines in a pipe, whatever the environment says."""

    def __init__(self, stream: TextIO) -> None:
        super().__init__(file=stream, force_terminal=stream.isatty(), markup=False, emoji=False, highlight=False)

    def on_broken_pipe(self) -> None:
        """Nobody reads any more, as behind `| head`. The run goes on to its cleaning up, in silence."""
        os.dup2(os.open(os.devnull, os.O_WRONLY), self.file.fileno())


class Screen:
    """Writes to a terminal or a pipe. On a terminal the progress is a bar that stays on its line, and what matters has
    a colour unless NO_COLOR is set; in a pipe the progress is a plain line now and then."""

    _PLAIN_SHARE = 10
    _REDRAW_SECONDS = 0.05

    def __init__(self, stream: TextIO | None = None) -> None:
        self._console = _Console(sys.stdout if stream is None else stream)
        self._bar: Progress | None = None
        self._last_drawn = 0.0
        self._last_tenth = 0

    def step(self, text: str) -> None:
        """One thing that the laboratory does."""
        self.line("==> ", text, style="bold")

    def note(self, text: str) -> None:
        """One thing that was seen to happen."""
        self.line("    ", text)

    def line(self, *parts: str | tuple[str, str], style: str = "") -> None:
        """A line without any mark, never wrapped."""
        self._end_bar()
        self._print(Text.assemble(*parts, style=style))

    def table(self, table: Table) -> None:
        """Fitted to the window of a terminal; in a pipe each row is a line."""
        if self._console.is_terminal:
            self._print(table)
        else:
            for line in table.lines():
                self.line(line)

    def progress(self, done: int, total: int) -> None:
        """How many of all blocks are in the camera. To be called with rising numbers; equal to total ends it."""
        if self._console.is_terminal:
            self._draw_bar(done, total)
        else:
            self._say_tenths(done, total)

    def _print(self, thing: RenderableType) -> None:
        try:
            self._console.print(thing, soft_wrap=isinstance(thing, Text))
            self._console.file.flush()
        except BrokenPipeError:
            self._console.on_broken_pipe()

    def _draw_bar(self, done: int, total: int) -> None:
        now = time.monotonic()
        if self._bar is None:
            columns = (
                TextColumn("   "),
                BarColumn(max(10, min(50, self._console.width - 35)), complete_style="cyan", finished_style="green"),
                TextColumn("{task.percentage:3.0f} %  block {task.completed} of {task.total}"),
            )
            self._bar = Progress(*columns, console=self._console, auto_refresh=False)
            self._bar.add_task("", total=total)
            self._bar.start()
        elif done < total and now - self._last_drawn < self._REDRAW_SECONDS:
            return
        self._last_drawn = now
        self._bar.update(self._bar.task_ids[0], completed=done, refresh=True)
        if done == total:
            self._end_bar()

    def _end_bar(self) -> None:
        if self._bar is not None:
            self._bar.stop()
            self._bar = None

    def _say_tenths(self, done: int, total: int) -> None:
        tenth = self._PLAIN_SHARE * done // total
        if done == 1:
            self._last_tenth = 0
        if tenth > self._last_tenth:
            self._last_tenth = tenth
            self.note(f"{100 * done // total} %: block {done} of {total}")

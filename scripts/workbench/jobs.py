"""Commands that take a while: their output goes to a file, their progress to the screen."""

import re
import subprocess
import threading
import time
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from pathlib import Path

from rich.console import Console
from rich.progress import BarColumn, Progress, TaskID, TaskProgressColumn, TextColumn, TimeElapsedColumn

# How far it is: "[3/280]" of ninja, " 3/17 Test" of ctest, "[ 12%]" of pytest.
_OF_TOTAL = re.compile(r"^\[(\d+)/(\d+)\]|^ *(\d+)/(\d+) Test ")
_PERCENT = re.compile(r"\[ *(\d+)%\]")

# A job that is interrupted has been told so by the terminal and has machines to shut down.
_ENDING_PATIENCE = 20


@dataclass(frozen=True)
class Job:
    """A command with a name for the person who waits, and the file that keeps what it prints."""

    name: str
    command: Sequence[str]
    log: Path
    environment: Mapping[str, str]
    folder: Path


class JobScreen:
    """Runs jobs, also several at a time from several threads. On a terminal each has a bar; in a pipe a line when it
    begins and one when it ends. What a job that failed has printed is shown whole."""

    def __init__(self) -> None:
        self._console = Console(soft_wrap=True, highlight=False)
        self._progress = Progress(
            TextColumn("==> {task.description}"),
            BarColumn(),
            TaskProgressColumn(),
            TimeElapsedColumn(),
            console=self._console,
            disable=not self._console.is_terminal,
        )
        self._lock = threading.Lock()

    def __enter__(self) -> "JobScreen":
        self._progress.start()
        return self

    def __exit__(self, *unused: object) -> None:
        self._progress.stop()

    def run(self, job: Job) -> bool:
        """Whether the command ended well."""
        began = time.monotonic()
        if not self._console.is_terminal:
            self._say(f"==> {job.name}")
        task = self._progress.add_task(job.name, total=None)
        job.log.parent.mkdir(parents=True, exist_ok=True)
        with job.log.open("w", encoding="utf-8", buffering=1) as log:
            process = subprocess.Popen(
                job.command,
                cwd=job.folder,
                env=job.environment,
                stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT,
                encoding="utf-8",
                errors="replace",
            )
            try:
                for line in process.stdout or ():
                    log.write(line)
                    self._show(task, line)
                status = process.wait()
            except BaseException:
                _end(process)
                raise
        seconds = time.monotonic() - began
        self._progress.update(task, total=1, completed=1)
        outcome = "done" if status == 0 else f"FAILED with {status}"
        self._say(f"    {job.name}: {outcome} after {seconds:.0f} s")
        if status != 0:
            self._say(job.log.read_text(encoding="utf-8"))
        return status == 0

    def _say(self, text: str) -> None:
        with self._lock:
            self._console.print(text, markup=False)

    def _show(self, task: TaskID, line: str) -> None:
        if found := _OF_TOTAL.match(line):
            done, total = (int(number) for number in found.groups() if number is not None)
            self._progress.update(task, completed=done, total=total)
        elif found := _PERCENT.search(line):
            self._progress.update(task, completed=int(found[1]), total=100)


def _end(process: subprocess.Popen[str]) -> None:
    try:
        process.wait(_ENDING_PATIENCE)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()

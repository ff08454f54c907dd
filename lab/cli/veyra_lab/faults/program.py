"""The campaign's program, host/campaign: started, listened to, and ended with this one."""

import json
import os
import re
import shutil
import subprocess
import tempfile
import threading
from collections.abc import Callable, Iterator, Sequence
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from ..checkout import BUILD, CHECKOUT
from ..terminal.set_up import call_setup

Line = dict[str, Any]
PRESET = "host-sanitize"
_NAME = "campaign"
# The numbers and addresses of a process, which are others each time.
_OF_THIS_PROCESS = re.compile(r"==[0-9]+== *| on (unknown )?address .*| ?0x[0-9a-f]+")
# The first function of this checkout in the stack that a sanitizer tells; above it are its own and the library's.
_PLACE = re.compile(rf"^ *#[0-9]+ 0x[0-9a-f]+ in .*?{re.escape(str(CHECKOUT))}/(\S+)$", re.MULTILINE)
_OPTIONS = {"ASAN_OPTIONS": "detect_leaks=1", "UBSAN_OPTIONS": "print_stacktrace=1"}


class ProgramError(Exception):
    """The campaign's program did not do what it was asked to."""


@dataclass(frozen=True)
class Failure:
    """A trial of which something did not hold."""

    trial: str
    why: str


def built() -> Path:
    """The program, built when it is not up to date."""
    call_setup("packages", "test", aside=True)
    call_setup("build", PRESET, _NAME, aside=True)
    return BUILD / PRESET / _NAME


@contextmanager
def copy_of(program: Path) -> Iterator[Path]:
    """A copy that is there as long as the context: a long run goes on with what it began with, whatever is built meanwhile."""
    with tempfile.TemporaryDirectory(dir=program.parent) as folder:
        yield Path(shutil.copy2(program, folder))


def lines_of(text: str) -> Iterator[Line]:
    """What the program said, as far as it is lines of its own."""
    for line in text.splitlines():
        if line.startswith("{") and line.endswith("}"):
            yield json.loads(line)


def trial_ids(program: Path, seed: int, singles: str, pairs: int) -> list[str]:
    """The ids of so many trials with one fault, "all" of them or a number, and with two, chosen by the seed. ProgramError
    when the program dies of it."""
    command = [str(program), "ids", str(seed), singles, str(pairs)]
    done = subprocess.run(
        command, capture_output=True, encoding="utf-8", errors="replace", check=False, env=os.environ | _OPTIONS
    )
    if done.returncode:
        raise ProgramError(f"the campaign's program told no ids: {why_ended(done.stderr, done.returncode)}")
    return [line["id"] for line in lines_of(done.stdout)]


def fields_of(program: Path, trial: str) -> Line:
    """The trial in the words of scenarios: "cameras", and "updates" with the "faults" and the "image" of each, in
    hexadecimal digits. ValueError for an id that the program does not know."""
    done = subprocess.run(
        [str(program), "fields", trial], capture_output=True, encoding="utf-8", errors="replace", check=False,
        env=os.environ | _OPTIONS,
    )  # fmt: skip
    for line in lines_of(done.stdout):
        return line
    raise ValueError(f"'{trial}' is not the id of a trial")


@dataclass(frozen=True)
class Replay:
    """What one trial did."""

    status: int
    transcript: str
    said: str

    @property
    def why(self) -> str:
        """What did not hold; empty when everything did."""
        lines = list(lines_of(self.transcript))
        judged = str(lines[-1]["why"]) if lines and lines[-1].get("event") == "judgement" else ""
        return judged or (why_ended(self.said, self.status) if self.status else "")


def replay(program: Path, trial: str, times: int = 0) -> Replay:
    """Plays one trial. ValueError for an id that the program does not know."""
    done = subprocess.run(
        [str(program), "replay", trial, str(times)], capture_output=True, encoding="utf-8", errors="replace",
        check=False, env=os.environ | _OPTIONS,
    )  # fmt: skip
    if done.returncode == 2:
        raise ValueError(f"'{trial}' is not the id of a trial")
    return Replay(done.returncode, done.stdout, done.stderr)


class Campaign:
    """A run of the whole program in shares that go on side by side."""

    def __init__(self, program: Path, seed: int, pairs: str, shares: int) -> None:
        self._command = [str(program), "run"]
        self._rest = [str(shares), str(seed), pairs]
        self._shares = shares
        self._lock = threading.Lock()
        self._processes: list[subprocess.Popen[str]] = []

    def run(self, listen: Callable[[Line], None]) -> list[Failure]:
        """Hands every line of the program on, one at a time; why a share has ended early is among the failures."""
        with ThreadPoolExecutor(self._shares) as pool:
            try:
                futures = [pool.submit(self._run_share, share, listen) for share in range(self._shares)]
                return [failure for future in futures for failure in future.result()]
            except BaseException:
                with self._lock:
                    for process in self._processes:
                        process.kill()
                raise

    def _run_share(self, share: int, listen: Callable[[Line], None]) -> list[Failure]:
        failures: list[Failure] = []
        process = subprocess.Popen(
            [*self._command, str(share), *self._rest], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            encoding="utf-8", errors="replace", env=os.environ | _OPTIONS,
        )  # fmt: skip
        with self._lock:
            self._processes.append(process)
        errors: list[str] = []
        reader = threading.Thread(target=lambda: errors.extend(process.stderr or ()))
        reader.start()
        died = ""
        ended = False
        for text in process.stdout or ():
            for line in lines_of(text):
                if "failure" in line:
                    failures.append(Failure(line["failure"], line["why"]))
                died = line.get("died", died)
                ended |= "end" in line
                with self._lock:
                    listen(line)
        status = process.wait()
        reader.join()
        if not ended:
            failures.append(Failure(died or f"share {share}", why_ended("".join(errors), status)))
        elif status != (1 if failures else 0):
            # Of what is told behind the last trial, as a leak is, no trial is the cause alone.
            failures.append(Failure(f"share {share}, at its end", why_ended("".join(errors), status)))
        return failures


def why_ended(said: str, status: int) -> str:
    """In words, of a program that has ended with this status and has said this on its standard error."""
    return last_words(said) if said.strip() else f"the program ended with {status}"


def last_words(said: str) -> str:
    """The line in which a sanitizer says what it has found, and where that was: the same for the same find alone."""
    lines: Sequence[str] = said.splitlines()
    if not lines:
        return "it died without a word"
    told = [line for line in lines if "ERROR:" in line or "runtime error:" in line or "terminate" in line]
    line = (told or lines)[0]
    words = _OF_THIS_PROCESS.sub("", " ".join(line.replace(f"{CHECKOUT}/", "").split()))
    place = _PLACE.search(said, said.index(line)) if "ERROR:" in line else None
    return f"{words} in {place[1]}" if place else words

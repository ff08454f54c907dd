"""A fuzz target run on one input."""

import os
import re
import subprocess
import sys
import tempfile
from collections.abc import Iterator
from dataclasses import dataclass
from functools import cache
from pathlib import Path

from ..checkout import BUILD, CHECKOUT
from ..faults.program import lines_of, why_ended
from ..terminal.set_up import call_setup
from .input_id import TRANSCRIPTS, FuzzInput

PRESET = "host-fuzz"
_SCRIPT = CHECKOUT / "host" / "fuzz" / "transcripts.py"
# Times, numbers of this process and where its memory lies, which are others each time.
_OF_THIS_PROCESS = re.compile(r"==[0-9]+==|0x[0-9a-f]+| in [0-9]+ ms|Seed: [0-9]+|\bT[0-9]+\b|pid=[0-9]+")
# A trial's id is not what does not hold of it.
_BROKEN = re.compile(r"broken promise: (?:scripts/faults --replay \S+: )?(.*)")
_OPTIONS = {"ASAN_OPTIONS": "handle_abort=1", "UBSAN_OPTIONS": "print_stacktrace=1"}
# Behind it stands what lies in memory around the place.
_DUMP = "Shadow bytes around"


@dataclass(frozen=True)
class TargetRun:
    """What the target did with an input."""

    # Lines of its own: what was asked and answered, where the target tells it.
    told: list[dict[str, object]]
    # All that it said, without what is another each time.
    transcript: list[str]
    # What did not hold; empty when everything did.
    why: str


def play(given: FuzzInput) -> TargetRun:
    """Runs the target on it, built when it is not up to date. SetUpError when that fails."""
    _bring_up_to_date(given.target)
    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder) / "inputs" / "input"
        path.parent.mkdir()
        path.write_bytes(given.content)
        done = subprocess.run(
            _command(given.target, path), cwd=folder, stdin=subprocess.DEVNULL, capture_output=True, encoding="utf-8",
            errors="replace", check=False, env=os.environ | _OPTIONS,
        )  # fmt: skip
        said = done.stderr.replace(folder, "FOLDER")
    return TargetRun(list(lines_of(done.stdout)), list(_lasting(done.stdout + said)), _why(done.returncode, said))


def executable(target: str) -> Path:
    """Where the build leaves a target."""
    return BUILD / PRESET / "host" / "fuzz" / target


@cache
def _bring_up_to_date(target: str) -> None:
    call_setup("packages", "test", aside=True)
    if target != TRANSCRIPTS:
        call_setup("build", PRESET, target, aside=True)


def _command(target: str, path: Path) -> list[str]:
    if target == TRANSCRIPTS:
        return [sys.executable, str(_SCRIPT), "--runs", "1", str(path.parent)]
    return [str(executable(target)), "--tell", "-timeout=20", "-artifact_prefix=./", str(path)]


def _why(status: int, said: str) -> str:
    if not status:
        return ""
    broken = _BROKEN.search(said)
    return broken[1].partition("; written to")[0] if broken else why_ended(said, status)


def _lasting(said: str) -> Iterator[str]:
    for line in said.partition(_DUMP)[0].splitlines():
        if not line.startswith(("INFO:", "artifact_prefix")):
            yield _OF_THIS_PROCESS.sub("", line)

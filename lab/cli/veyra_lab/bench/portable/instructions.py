"""Counts the instructions of a program's measured part with valgrind's callgrind."""

import re
import subprocess
import tempfile
from pathlib import Path

_SECONDS = 1200


class CountError(Exception):
    """The program did not run under callgrind, or nothing was counted; the text says why."""


def instructions(program: Path, *arguments: str) -> int:
    """How many instructions the program executes between its CALLGRIND_TOGGLE_COLLECT pairs. The same program
    with the same arguments takes the same number, whatever the machine's load. Raises CountError."""
    with tempfile.TemporaryDirectory() as folder:
        profile = Path(folder) / "callgrind.out"
        command = ["valgrind", "--tool=callgrind", "--collect-atstart=no", f"--callgrind-out-file={profile}"]
        try:
            subprocess.run(
                [*command, str(program), *arguments], capture_output=True, text=True, timeout=_SECONDS, check=True
            )
            text = profile.read_text(encoding="utf-8")
        except subprocess.CalledProcessError as error:
            raise CountError(f"{program.name} under callgrind ended with {error.returncode}: {error.stderr}") from error
        except subprocess.TimeoutExpired as error:
            raise CountError(f"{program.name} under callgrind took more than {_SECONDS} s") from error
        except OSError as error:
            raise CountError(f"callgrind does not run or left no profile: {error}") from error
    totals = re.search(r"^totals: (\d+)$", text, re.MULTILINE)
    if totals is None or int(totals[1]) == 0:
        raise CountError(f"{program.name} under callgrind collected no instructions")
    return int(totals[1])

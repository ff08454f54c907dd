"""Line and branch coverage of src/ and toast/ from the cross-built tests: scripts/coverage."""

import json
import os
import subprocess
import sys
from collections import defaultdict
from collections.abc import Iterator
from pathlib import Path

from veyra_lab.checkout import CHECKOUT
from veyra_lab.terminal.parser import Parser
from veyra_lab.terminal.set_up import SetUpError, call_setup
from veyra_lab.windows.machine import Machine, MachineError

from .builds import Build, TestProgram, programs_of
from .interruption import status_of

_COVERAGE = Build("windows-coverage", "which lines and branches of the product run")
_FOLDER = _COVERAGE.folder
_HOUSES = ("src", "toast")
_WINE = str(CHECKOUT / "scripts" / "wine")
_GCOV = "x86_64-w64-mingw32-gcov-posix"

_DESCRIPTION = """\
Builds the preset windows-coverage, runs its tests under Wine, and reads what gcov counted: prints line and branch
coverage of src/ and toast/, and names each line that never ran. Branches that exist only because a call may throw are left out."""


def test_programs() -> list[TestProgram]:
    """The test programs of the folders of src/, and of toast/."""
    folders = {path.name for path in (CHECKOUT / "src").iterdir()} | {"toast"}
    return [program for program in programs_of(_COVERAGE) if program.folder in folders]


def run_tests() -> None:
    """Builds the instrumented test programs and runs every one, from counts of zero."""
    call_setup("packages", "test")
    call_setup("configure", _COVERAGE.preset)
    programs = test_programs()
    call_setup("build", _COVERAGE.preset, *(program.name for program in programs))
    for counts in _FOLDER.rglob("*.gcda"):
        counts.unlink()
    with Machine(_FOLDER / "wine") as machine:
        for program in programs:
            print(f"running {program.name}", flush=True)
            path = _FOLDER / "tests" / program.folder / f"{program.name}.exe"
            subprocess.run([_WINE, path, "--gtest_brief=1"], env=machine.environment, cwd=_FOLDER, check=True,
                           stdin=subprocess.DEVNULL)


def gcov_files() -> Iterator[dict]:
    """What gcov says of each source file in each object's counts."""
    for notes in sorted(notes for house in _HOUSES for notes in (_FOLDER / house).rglob("*.gcno")):
        result = subprocess.run([_GCOV, "--json-format", "--stdout", "--branch-probabilities", notes], cwd=_FOLDER,
                                check=True, capture_output=True, text=True)
        for line in result.stdout.splitlines():
            yield from json.loads(line)["files"]


def main() -> int:
    parser = Parser(prog="scripts/coverage", description=_DESCRIPTION)
    parser.add_argument("--no-run", action="store_true", help="read the counts of the last run again")
    try:
        if not parser.parse_args().no_run:
            run_tests()
    except (SetUpError, MachineError, subprocess.CalledProcessError) as error:
        print(f"scripts/coverage: {error}", file=sys.stderr)
        return 1

    # A line of a header is in several objects: it is covered when it ran in any, and so is a branch.
    lines: dict[str, dict[int, int]] = defaultdict(lambda: defaultdict(int))
    branches: dict[str, dict[tuple[int, int], int]] = defaultdict(lambda: defaultdict(int))
    for file in gcov_files():
        path = Path(os.path.normpath(_FOLDER / file["file"]))
        if not any(path.is_relative_to(CHECKOUT / house) for house in _HOUSES):
            continue
        name = str(path.relative_to(CHECKOUT))
        for line in file["lines"]:
            lines[name][line["line_number"]] += line["count"]
            for index, branch in enumerate(b for b in line["branches"] if not b["throw"]):
                branches[name][line["line_number"], index] += branch["count"]
    if not lines:
        print("scripts/coverage: no counts were found; run scripts/coverage without --no-run", file=sys.stderr)
        return 1

    def share(counts: dict[str, dict]) -> str:
        every = [count for of_file in counts.values() for count in of_file.values()]
        covered = sum(count > 0 for count in every)
        return f"{100 * covered / max(len(every), 1):.1f} % ({covered} of {len(every)})"

    for name in sorted(lines):
        bare = [str(number) for number, count in sorted(lines[name].items()) if count == 0]
        half = sorted({number for (number, _), count in branches[name].items() if count == 0 and lines[name][number]})
        if bare:
            print(f"{name}: lines that never ran: {', '.join(bare)}")
        if half:
            print(f"{name}: branches not taken in lines {', '.join(map(str, half))}")
    print(f"line coverage of src/ and toast/: {share(lines)}")
    print(f"branch coverage of src/ and toast/: {share(branches)}")
    return 0


if __name__ == "__main__":
    sys.exit(status_of(main, "scripts/coverage"))

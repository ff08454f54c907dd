"""Formatting and clang-tidy of what has changed: scripts/check."""

import shutil
import subprocess
import sys
from collections.abc import Iterable, Sequence
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from veyra_lab.checkout import BUILD, CHECKOUT
from veyra_lab.terminal.parser import Parser
from veyra_lab.terminal.set_up import SetUpError, call_setup

from .interruption import status_of

_PRESET = "windows-release"
_AT_A_TIME = 2
# The houses that clang-tidy looks at, and from where their files include each other.
_HOUSES = {"src": "src", "toast": "."}
_COMPILER = "x86_64-w64-mingw32-g++-posix"

_DESCRIPTION = """\
Checks the C++ files that have changed since the last commit, new ones too: all of them by clang-format, those of src/
and toast/ also by clang-tidy, a header with a source that includes it. With FILE, those; with --all, every file that git knows.
Prints only what it finds.

It needs Debian's packages clang-format and clang-tidy."""


def _changed() -> list[Path]:
    """What differs from the last commit, and what git does not know yet."""
    return _git("diff", "--name-only", "--diff-filter=d", "HEAD") + _git("ls-files", "--others", "--exclude-standard")


def _git(*arguments: str) -> list[Path]:
    said = subprocess.run(["git", *arguments], cwd=CHECKOUT, capture_output=True, text=True, check=True).stdout
    return [Path(line) for line in said.splitlines()]


def source_for(file: Path) -> Path | None:
    """The source with which clang-tidy looks at a file of src/ or toast/: itself, or for a header its own, or the first one
    that includes it, maybe by another header."""
    house = file.parts[0]
    if house not in _HOUSES:
        return None
    source = file.with_suffix(".cpp")
    if (CHECKOUT / source).exists():
        return source
    line = f'#include "{file.relative_to(_HOUSES[house]).as_posix()}"'
    others = (path for path in sorted((CHECKOUT / house).rglob("*.[ch]*")) if line in path.read_text(encoding="utf-8"))
    return next(filter(None, (source_for(path.relative_to(CHECKOUT)) for path in others)), None)


def _cross_compiler_flags() -> Sequence[str]:
    """What makes clang read the files as the cross compiler does; the rest stands in compile_commands.json."""
    version = subprocess.run([_COMPILER, "-dumpversion"], capture_output=True, text=True, check=True).stdout.strip()
    library = f"/usr/lib/gcc/x86_64-w64-mingw32/{version}/include/c++"
    flags = ["--target=x86_64-w64-windows-gnu", "-nostdinc++"]
    for folder in (library, f"{library}/x86_64-w64-mingw32", f"{library}/backward", "/usr/share/mingw-w64/include"):
        flags += ["-isystem", folder]
    return [f"--extra-arg={flag}" for flag in [*flags, "-Wno-unknown-warning-option", "-Wno-unused-command-line-argument"]]


def _run(command: Sequence[str]) -> str:
    """What it says, when it finds something."""
    done = subprocess.run(command, cwd=CHECKOUT, capture_output=True, text=True, check=False)
    return "" if done.returncode == 0 else done.stdout + done.stderr


def _findings(files: Sequence[Path]) -> Iterable[str]:
    tidied = sorted(filter(None, set(map(source_for, files))))
    commands = [["clang-format", "--dry-run", "-Werror", str(file)] for file in files]
    if tidied:
        call_setup("configure", _PRESET)
        flags = _cross_compiler_flags()
        commands += [["clang-tidy", "--quiet", "-p", str(BUILD / _PRESET), *flags, str(file)] for file in tidied]
    with ThreadPoolExecutor(_AT_A_TIME) as pool:
        yield from filter(None, pool.map(_run, commands))


def main() -> int:
    parser = Parser(prog="scripts/check", description=_DESCRIPTION)
    parser.add_argument("file", nargs="*", type=Path, metavar="FILE")
    parser.add_argument("--all", action="store_true", help="every file that git knows")
    options = parser.parse_args()
    if options.all and options.file:
        parser.error("--all is every file: no FILE beside it")
    for file in options.file:
        if not file.resolve().is_relative_to(CHECKOUT):
            parser.error(f"{file} is not in this checkout")
    files = [file.resolve().relative_to(CHECKOUT) for file in options.file]
    try:
        files = files or (_git("ls-files") if options.all else _changed())
    except (OSError, subprocess.CalledProcessError):
        parser.error("git does not tell which files there are: name them")
    missing = [name for name in ("clang-format", "clang-tidy") if not shutil.which(name)]
    if missing:
        print(f"scripts/check: {' and '.join(missing)} missing: apt-get install {' '.join(missing)}", file=sys.stderr)
        return 1
    found = False
    try:
        for finding in _findings([file for file in files if file.suffix in (".cpp", ".h")]):
            print(finding.rstrip())
            found = True
    except SetUpError as error:
        print(f"scripts/check: {error}", file=sys.stderr)
        return 1
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(status_of(main, "scripts/check"))

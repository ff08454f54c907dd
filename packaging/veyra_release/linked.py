"""What of others is in a program: the linker's map tells the files that it took, and Debian's records whose they are."""

import os
import re
import subprocess
from collections.abc import Iterable, Iterator, Mapping, Sequence
from dataclasses import dataclass
from pathlib import Path

from .errors import PackageError

_MEMORY_MAP = "Linker script and memory map"
# " .text$name  0xaddress  0xsize  /path/lib.a(member.o)"; a long name has a line of its own before the numbers.
_SECTION = re.compile(r"^ (\.\S+)?\s+0x([0-9a-f]+)\s+0x([0-9a-f]+) (/\S.*?)(?:\(([^()]*)\))?$")
_NAME = re.compile(r"^ (\.\S+)$")
_DOCUMENTS = Path("/usr/share/doc")


@dataclass(frozen=True, order=True)
class Package:
    """One of Debian's packages, as it is installed."""

    name: str
    version: str
    architecture: str
    source: str
    source_version: str

    @property
    def copyright_text(self) -> str:
        """Who holds the rights and what is allowed, as the package tells it."""
        try:
            return (_DOCUMENTS / self.name / "copyright").read_text(encoding="utf-8")
        except OSError as error:
            raise PackageError(f"the package {self.name} does not tell its copyright: {error.strerror}") from None


def linked_files(map_text: str) -> dict[str, set[str]]:
    """The files from outside the build folder that gave a program at least one byte, by their paths, and of each the
    members that did (an object file has none). What the linker threw away again does not count, nor what is only for
    debuggers."""
    head, mark, sections = map_text.partition(_MEMORY_MAP)
    if not mark:
        raise PackageError("the linker's map has no memory map")
    files: dict[str, set[str]] = {}
    name = ""
    for line in sections.splitlines():
        if alone := _NAME.match(line):
            name = alone.group(1)
            continue
        if found := _SECTION.match(line):
            section, _, size, path, member = found.groups()
            if int(size, 16) and not (section or name).startswith((".debug", ".comment", ".stab")):
                files.setdefault(path, set()).update({member} if member else ())
        name = ""
    return files


def packages_of(paths: Iterable[str]) -> dict[Package, list[str]]:
    """The packages that the files are of, each with its files."""
    resolved = {str(Path(path).resolve()): path for path in paths}
    owners: dict[str, list[str]] = {}
    for name, path in _owners(sorted(resolved)):
        owners.setdefault(name, []).append(path)
    return dict(sorted((_package(name), sorted(owned)) for name, owned in owners.items()))


# By the name of each program, the packages that something of is linked into it: each library with those of its members.
Linked = Mapping[str, Mapping[Package, Mapping[str, Sequence[str]]]]


def of_programs(programs: Iterable[Path]) -> Linked:
    """What is linked into the programs, by the maps that lie beside them."""
    found: dict[str, dict[Package, dict[str, Sequence[str]]]] = {}
    for program in programs:
        path = program.with_name(f"{program.name}.map")
        try:
            taken = linked_files(path.read_text(encoding="utf-8", errors="replace"))
        except OSError as error:
            raise PackageError(f"{path} cannot be read: {error.strerror}") from None
        members = {str(Path(file).resolve()): names for file, names in taken.items()}
        found[program.name] = {
            package: {Path(file).name: sorted(members[file]) for file in files}
            for package, files in packages_of(taken).items()
        }
    return found


def _owners(paths: list[str]) -> Iterator[tuple[str, str]]:
    answer = subprocess.run(
        ["dpkg-query", "--search", *paths],
        capture_output=True, text=True, check=False, env={**os.environ, "LC_ALL": "C"},
    )  # fmt: skip
    if answer.returncode != 0:
        raise PackageError(f"no package knows a file that is linked: {' '.join(answer.stderr.split())}")
    for line in answer.stdout.splitlines():
        names, _, path = line.partition(": ")
        yield names.partition(",")[0].partition(":")[0], path


def _package(name: str) -> Package:
    fields = "${Package}\t${Version}\t${Architecture}\t${source:Package}\t${source:Version}\n"
    answer = subprocess.run(
        ["dpkg-query", "--show", f"--showformat={fields}", name], capture_output=True, text=True, check=False
    )
    if answer.returncode != 0:
        raise PackageError(f"dpkg-query does not know {name}")
    return Package(*answer.stdout.splitlines()[0].split("\t"))

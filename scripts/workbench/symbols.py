"""The symbols of a release: from an offset in a program to function and line."""

import lzma
import posixpath
import re
import shutil
import struct
import subprocess
import tempfile
import zipfile
import zlib
from collections.abc import Iterable, Sequence
from contextlib import ExitStack
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType

from veyra_lab.terminal.set_up import SetUpError

_ADDR2LINE = "x86_64-w64-mingw32-addr2line"
# What addr2line says behind a line for which the compiler has made several pieces.
_DISCRIMINATOR = re.compile(r" \(discriminator \d+\)$")
_FIXED_VERSION = b"\xbd\x04\xef\xfe\x00\x00\x01\x00"


class SymbolError(Exception):
    """There are no symbols, they cannot be read, or they are not those of the program."""


@dataclass(frozen=True)
class Place:
    """A place in the sources. One of several that were made one by the compiler has the others behind it."""

    function: str
    file: str
    line: int

    def __str__(self) -> str:
        return f"{self.function}  {self.file}:{self.line}" if self.file else self.function


class Symbols:
    """The programs of one release with their symbols, from a build folder or from the ZIP of a release. Use it as a
    context. SymbolError when there are none."""

    def __init__(self, source: Path) -> None:
        self._source = source
        self._parts = ExitStack()
        self._folder = source

    def __enter__(self) -> "Symbols":
        with ExitStack() as parts:
            if self._is_file():
                self._folder = Path(parts.enter_context(tempfile.TemporaryDirectory()))
                self._unpack()
            if not self.programs():
                reason = "it is neither a build folder nor the ZIP of a release's symbols"
                raise SymbolError(f"{self._source} has no symbols: {reason}")
            self._parts = parts.pop_all()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self._parts.close()

    @property
    def folder(self) -> Path:
        """Where the programs lie."""
        return self._folder

    def programs(self) -> list[str]:
        """The names of the programs that have symbols."""
        return sorted(path.name.removesuffix(".debug") for path in self._folder.glob("*.exe.debug"))

    def program(self, name: str) -> str | None:
        """The program of a name, whose case and ending do not matter, with or without a folder; None when
        it is none of these."""
        wanted = re.split(r"[\\/]", name)[-1].lower().removesuffix(".exe")
        return next((program for program in self.programs() if program.lower() == f"{wanted}.exe"), None)

    def version(self, program: str) -> str | None:
        """The version that a program bears, as four numbers; None when the program itself is not there."""
        path = self._folder / program
        content = path.read_bytes() if path.is_file() else b""
        found = content.find(_FIXED_VERSION)
        if found < 0:
            return None
        try:
            numbers = struct.unpack_from("<HHHH", content, found + len(_FIXED_VERSION))
        except struct.error:
            raise SymbolError(f"{program} is cut off within its version") from None
        return ".".join(str(numbers[index]) for index in (1, 0, 3, 2))

    def places(self, program: str, offsets: Sequence[int]) -> list[list[Place]]:
        """For each offset from the program's start the place, innermost first: a function that the compiler has put
        into another is followed by that one. An offset that no function has gives one place without a file. SetUpError when
        the tool that finds them is missing."""
        if not offsets:
            return []
        debug = self._folder / f"{program}.debug"
        base = image_base(debug)
        words = [f"{base + offset:#x}" for offset in offsets]
        if not shutil.which(_ADDR2LINE):
            raise SetUpError(f"{_ADDR2LINE} is missing: apt-get install binutils-mingw-w64-x86-64")
        answer = subprocess.run(
            [_ADDR2LINE, "--exe", debug, "--addresses", "--functions", "--inlines", "--demangle", *words],
            capture_output=True, text=True, check=False,
        )  # fmt: skip
        if answer.returncode != 0:
            raise SymbolError(f"{_ADDR2LINE} ended with {answer.returncode}: {' '.join(answer.stderr.split())}")
        return list(_read(answer.stdout.splitlines()))

    def _is_file(self) -> bool:
        try:
            return self._source.is_file()
        except OSError as error:
            raise SymbolError(f"{self._source} cannot be read: {error.strerror}") from None

    def _unpack(self) -> None:
        try:
            with zipfile.ZipFile(self._source) as archive:
                for entry in archive.infolist():
                    name = Path(entry.filename).name
                    if name.endswith((".exe", ".exe.debug")):
                        (self._folder / name).write_bytes(archive.read(entry))
        except zipfile.BadZipFile:
            raise SymbolError(f"{self._source} is no ZIP and no folder") from None
        # An entry that is encrypted, or packed in another way, is a RuntimeError.
        except (OSError, EOFError, ValueError, RuntimeError, struct.error, zlib.error, lzma.LZMAError) as error:
            raise SymbolError(f"{self._source} cannot be unpacked: {error}") from None


def image_base(program: Path) -> int:
    """The address that a 64-bit program asks for. SymbolError when the file is none."""
    try:
        with program.open("rb") as file:
            content = file.read(1024)
        (header,) = struct.unpack_from("<I", content, 0x3C)
        (base,) = struct.unpack_from("<Q", content, header + 24 + 24)
    except (OSError, struct.error) as error:
        raise SymbolError(f"{program.name} is no program: {error}") from None
    return base


def _read(lines: Sequence[str]) -> Iterable[list[Place]]:
    """Each address is a line of its own, followed by pairs of lines: function, and file with line."""
    places: list[Place] = []
    rest = iter(lines)
    began = False
    for line in rest:
        if re.fullmatch(r"0x[0-9a-f]+", line):
            if began:
                yield places
            began, places = True, []
            continue
        file, _, number = _DISCRIMINATOR.sub("", next(rest)).rpartition(":")
        known = file not in ("", "??") and number.isdecimal()
        name = "?" if line == "??" else line
        places.append(Place(name, _plain(file), int(number)) if known else Place(name, "", 0))
    if began:
        yield places


def _plain(file: str) -> str:
    """A file as the checkout names it. The compiler is told the checkout's folder as "." and the build's as "build", and what
    it was told from there is put behind the latter."""
    plain = posixpath.normpath(file.removeprefix("build/") if file.startswith(("build/./", "build/../")) else file)
    while plain.startswith("../"):
        plain = plain.removeprefix("../")
    return plain

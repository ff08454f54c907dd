"""Tells function and line of a crash: scripts/symbolize."""

import errno
import re
import sys
from pathlib import Path

from veyra_lab.checkout import BUILD
from veyra_lab.terminal.parser import Parser, give_up
from veyra_lab.terminal.set_up import SetUpError, call_setup

from .crashes import DUMP_MAGIC, Crash, DumpError, Frame, of_dump, of_text
from .interruption import status_of
from .symbols import SymbolError, Symbols

_DESCRIPTION = """\
Tells where in the sources a program crashed. WHAT is

  a file with the text or the XML of event 1000 (source Application Error) of Windows' Application log, in any language;
  a dump (.dmp), which Debian's lldb reads: with every thread's way to where it was;
  a program and an offset: VeyraCameraDfuService.exe+0x1a2b;
  or "-": one of the texts, from standard input.

The symbols have to be those of the very build that crashed: keep each release's ZIP of symbols.

exit codes: 0 told; 1 no place is of these programs, or a tool is missing; 2 wrong usage, WHAT tells of no crash, or the
symbols cannot be read or are of another version"""

_PROGRAM = "scripts/symbolize"
_MEANINGS = {
    0xC0000005: "access violation",
    0xC0000094: "integer division by zero",
    0xC00000FD: "stack overflow",
    0xC000001D: "illegal instruction",
    0xC0000409: "the program ended itself",
    0x40000015: "the program ended itself",
    0x20474343: "a C++ exception that nobody caught",
    0x80000003: "breakpoint",
}


def _title(crash: Crash) -> str:
    first = crash.frames[0] if crash.frames else Frame("?", 0)
    words = [*([crash.thread] if crash.thread else []), f"{first.module}+{first.offset:#x}"]
    if crash.code is not None:
        meaning = _MEANINGS.get(crash.code)
        words.append(f"exception {crash.code:#010x}" + (f", {meaning}" if meaning else ""))
    return "  ".join(words)


def told(crash: Crash, symbols: Symbols) -> tuple[list[str], bool]:
    """The lines about a crash, and whether a place of a known program is among them. SymbolError when the symbols are
    of another version."""
    lines = [_title(crash)]
    found = False
    for number, frame in enumerate(crash.frames):
        program = symbols.program(frame.module)
        if program is None:
            lines.append(f"  {number:2}  {frame.module}+{frame.offset:#x}")
            continue
        has = symbols.version(program)
        if crash.version and has and crash.version != has:
            raise SymbolError(f"the crash is of {program} {crash.version}, the symbols are of {has}")
        # What stands at a return address may be the next line, or the next function.
        (places,) = symbols.places(program, [frame.offset - 1 if frame.returns else frame.offset])
        for depth, place in enumerate(places):
            inlined = ", inlined into" if depth + 1 < len(places) else ""
            lines.append(f"  {number if depth == 0 else '':>2}  {place}{inlined}")
            found |= place.line > 0
    return lines, found


def _is_file(what: str) -> bool:
    try:
        return Path(what).is_file()
    except OSError as error:
        if error.errno != errno.ENAMETOOLONG:
            raise
        return False


def _text(content: bytes) -> str:
    # Windows' own tools write UTF-16.
    encoding = "utf-16" if content[:2] in (b"\xff\xfe", b"\xfe\xff") else "utf-8-sig"
    return content.decode(encoding, "replace")


def _crashes(what: str, symbols: Symbols) -> list[Crash]:
    if what == "-":
        return of_text(_text(sys.stdin.buffer.read()))
    if not _is_file(what):
        return of_text(what)
    path = Path(what)
    content = path.read_bytes()
    if content.startswith(DUMP_MAGIC):
        call_setup("packages", "symbolize", aside=True)
        return of_dump(path.resolve(), symbols.folder)
    return of_text(_text(content))


def main() -> int:
    parser = Parser(prog=_PROGRAM, description=_DESCRIPTION)
    parser.add_argument("what", metavar="WHAT")
    parser.add_argument(
        "--symbols", type=Path, metavar="ZIP", default=BUILD / "windows-release",
        help="a release's ZIP of symbols, or a build folder (default: build/windows-release)",
    )
    options = parser.parse_args()
    try:
        if options.what != "-" and not _is_file(options.what) and not re.search(r"\+0x[0-9a-fA-F]", options.what):
            parser.error(f"{options.what} is neither a file nor a program with an offset")
        with Symbols(options.symbols) as symbols:
            crashes = _crashes(options.what, symbols)
            if not crashes:
                raise SymbolError(f"{options.what} tells of no crash")
            everything = [told(crash, symbols) for crash in crashes]
            print("\n\n".join("\n".join(lines) for lines, _ in everything))
            if not any(found for _, found in everything):
                return give_up(_PROGRAM, LookupError(f"no place of {', '.join(symbols.programs())} is among them"))
    except SetUpError as error:
        return give_up(_PROGRAM, error)
    except (SymbolError, DumpError, OSError) as error:
        return give_up(_PROGRAM, error, 2)
    return 0


if __name__ == "__main__":
    sys.exit(status_of(main, _PROGRAM))

"""What Windows tells of a crash: an event's text, a program's name with an offset, or a dump."""

import re
import shutil
import subprocess
from collections.abc import Sequence
from dataclasses import dataclass, field
from pathlib import Path

from veyra_lab.terminal.set_up import SetUpError

DUMP_MAGIC = b"MDMP"

# "Faulting module name: x.exe, version: 1.0.0.0, time stamp: 0x...", in whatever language, with its own colons and commas.
# The order of the event's lines is the same in all of them: the module is the second line that names a program with a
# version.
_NAMED = re.compile(
    r"([^\s:：,，、]+\.(?:exe|dll))\s*[,，、][^:：,，、]*[:：]\s*(\d+(?:\.\d+){3})\s*[,，、]", re.IGNORECASE
)
_CODE = re.compile(r"[:：]\s*0x([0-9a-f]{8})\s*$", re.IGNORECASE)
_OFFSET = re.compile(r"[:：]\s*0x([0-9a-f]{16})\s*$", re.IGNORECASE)
# The event as XML: its data without names, or with them in newer versions of Windows.
_XML_EVENT = re.compile(r"<EventData>(.*?)</EventData>", re.DOTALL)
_XML_DATA = re.compile(r"<Data(?:\s+Name=['\"]\w+['\"])?>([^<]*)</Data>")
_XML_FIELDS = 7
_PAIR = re.compile(r"([\w.\-]+?(?:\.exe|\.dll)?)\+0x([0-9a-f]+)", re.IGNORECASE)


@dataclass(frozen=True)
class Frame:
    """An address in a program, by its offset. A return address lies behind the call."""

    module: str
    offset: int
    returns: bool = False


@dataclass(frozen=True)
class Crash:
    """One end of a program: where it happened, and the way there, if that is known."""

    frames: Sequence[Frame]
    code: int | None = None
    version: str | None = None
    thread: str = ""


@dataclass
class _Event:
    """An event's lines, as far as they were read."""

    versions: dict[str, str] = field(default_factory=dict)
    names: list[str] = field(default_factory=list)
    code: int | None = None


class DumpError(Exception):
    """The dump cannot be read."""


def of_text(text: str) -> list[Crash]:
    """The crashes of which a text tells: events 1000, as words or XML, and names with offsets."""
    return _of_words(text) or _of_xml(text) or _of_pairs(text)


def _of_words(text: str) -> list[Crash]:
    crashes = []
    event = _Event()
    for line in text.replace("\r", "").split("\n"):
        if named := _NAMED.search(line):
            if len(event.names) > 1:
                event = _Event()
            event.names.append(named.group(1))
            event.versions[named.group(1)] = named.group(2)
        elif len(event.names) == 2 and (code := _CODE.search(line)):
            event.code = int(code.group(1), 16)
        elif len(event.names) == 2 and (offset := _OFFSET.search(line)):
            module = event.names[1]
            crashes.append(Crash([Frame(module, int(offset.group(1), 16))], event.code, event.versions[module]))
            event = _Event()
    return crashes


def _of_xml(text: str) -> list[Crash]:
    """In this order: application, version, time, module, version, time, code, offset."""
    crashes = []
    for data in _XML_EVENT.findall(text):
        fields = _XML_DATA.findall(data)
        if len(fields) > _XML_FIELDS and all(re.fullmatch(r"(0x)?[0-9a-fA-F]+", number) for number in fields[6:8]):
            code, offset = (int(number, 16) for number in fields[6:8])
            crashes.append(Crash([Frame(fields[3], offset)], code, fields[4]))
    return crashes


def _of_pairs(text: str) -> list[Crash]:
    """Lines of a stack, outermost last, are one crash."""
    pairs = enumerate(_PAIR.findall(text))
    frames = [Frame(name, int(offset, 16), returns=number > 0) for number, (name, offset) in pairs]
    return [Crash(frames)] if frames else []


# A dump. lldb finds the modules, the threads and each thread's way; the programs beside the symbols tell it how to unwind.

_MODULE = re.compile(r"^\[\s*\d+\]\s+(?:[0-9A-F-]+\s+)?0x([0-9a-f]+)\s+(.*?)\s*$", re.IGNORECASE)
_THREAD = re.compile(r"^(thread \d+ 0x[0-9a-f]+)(.*)$")
_FRAME = re.compile(r"^frame 0x([0-9a-f]+)$")
_EXCEPTION = re.compile(r"Exception 0x([0-9a-f]+)")


def of_dump(path: Path, programs: Path) -> list[Crash]:
    """The threads of a dump, the one that crashed first. `programs` is where the programs lie. DumpError when lldb
    does not take it, SetUpError when there is none."""
    said = _lldb(path, programs)
    modules = [(int(base, 16), re.split(r"[\\/]", name)[-1]) for base, name in _lines(_MODULE, said)]
    if not modules:
        raise DumpError(f"lldb finds no modules in {path.name}")
    crashes: list[Crash] = []
    frames: list[Frame] = []
    for line in said:
        if thread := _THREAD.match(line):
            code = _EXCEPTION.search(line)
            frames = []
            crashes.append(Crash(frames, int(code.group(1), 16) if code else None, None, thread.group(1)))
        elif crashes and (found := _FRAME.match(line)):
            frames.append(_frame(int(found.group(1), 16), modules, returns=bool(frames)))
    return sorted(crashes, key=lambda crash: crash.code is None)


def _frame(address: int, modules: Sequence[tuple[int, str]], *, returns: bool) -> Frame:
    base, name = max((each for each in modules if each[0] <= address), default=(0, "?"))
    return Frame(name, address - base, returns)


def _lines(pattern: re.Pattern[str], lines: Sequence[str]) -> list[tuple[str, ...]]:
    return [found.groups() for line in lines if (found := pattern.match(line))]


def _lldb(path: Path, programs: Path) -> list[str]:
    if not shutil.which("lldb"):
        raise SetUpError("lldb is missing: apt-get install lldb")
    commands = [
        f'settings set target.exec-search-paths "{programs}"',
        r'settings set frame-format "frame ${frame.pc}\n"',
        r'settings set thread-format "thread ${thread.index} ${thread.id%tid}{ ${thread.stop-reason}}\n"',
        r'settings set thread-stop-format "thread ${thread.index} ${thread.id%tid}{ ${thread.stop-reason}}\n"',
        f'target create --core "{path}"',
        "image list --header --fullpath",
        "thread backtrace all",
    ]
    words = [word for command in commands for word in ("--one-line", command)]
    answer = subprocess.run(
        ["lldb", "--no-lldbinit", "--batch", *words], capture_output=True, text=True, errors="replace",
        stdin=subprocess.DEVNULL, check=False,
    )  # fmt: skip
    return [line.strip(" *") for line in answer.stdout.splitlines()]

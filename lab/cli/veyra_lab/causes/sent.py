"""What a user has sent: a trace's text, exported event logs, a bundle; files, a folder of them, or a cabinet."""

import json
import re
import shutil
import subprocess
import tempfile
from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from .event_log import CONTROLLER, Record, read_records
from .texts import SentText, read_text
from .trace_text import Message, TraceReader

_MOST_FILES = 100
_MOST_CABINET_BYTES = 256 << 20
_LISTED = re.compile(r"^\s*(\d+) \|", re.MULTILINE)
_CABINET = b"MSCF"
_UNPACKING_SECONDS = 120


class SentError(Exception):
    """Nothing that could be judged was sent. The text says so in one line."""


@dataclass
class Sent:
    """All of it together. `status` is the companion's, as a dictionary, or empty."""

    messages: list[Message] = field(default_factory=list)
    records: list[Record] = field(default_factory=list)
    status: dict[str, Any] = field(default_factory=dict)
    # Names of the files by what was found in them; and what somebody should know of the reading.
    traces: list[str] = field(default_factory=list)
    logs: list[str] = field(default_factory=list)
    notes: list[str] = field(default_factory=list)

    @property
    def has_controller(self) -> bool:
        """Whether the toast controller has left any record."""
        return any(record.source == CONTROLLER for record in self.records)

    @property
    def has_record(self) -> bool:
        """Whether there is a log that would have the toast controller's record: another maker's leaves none."""
        controller = self.status.get("toast_controller")
        is_ours = not isinstance(controller, dict) or controller.get("ours") is not False
        return self.has_controller or bool(self.logs) and is_ours


def read_sent(paths: Sequence[Path]) -> Sent:
    """Everything that the paths hold. SentError when that is nothing, OSError when one cannot be read."""
    sent = Sent()
    reader = TraceReader()
    for path in paths:
        with _files(path) as files:
            for file in files:
                _take(sent, reader, file)
    if not (sent.messages or sent.records or sent.status or sent.traces or sent.logs):
        names = ", ".join(str(path) for path in paths)
        raise SentError(f"{names}: there is no trace text, no event log and no status in it")
    return sent


@contextmanager
def _files(path: Path) -> Iterator[list[Path]]:
    """The files of a folder, of a cabinet, or the file itself, in the order of their names."""
    if path.is_dir():
        yield sorted(each for each in path.iterdir() if each.is_file() and not each.is_symlink())[:_MOST_FILES]
    elif _begins_with(path, _CABINET):
        with tempfile.TemporaryDirectory() as folder:
            _unpack(path, Path(folder))
            yield sorted(each for each in Path(folder).iterdir() if each.is_file())[:_MOST_FILES]
    else:
        yield [path]


def _begins_with(path: Path, sign: bytes) -> bool:
    with path.open("rb") as file:
        return file.read(len(sign)) == sign


def _unpack(path: Path, folder: Path) -> None:
    """By Debian's cabextract, which keeps to the folder."""
    program = shutil.which("cabextract")
    if program is None:
        missing = "Debian's package cabextract is missing: install it, or unpack it by hand"
        raise SentError(f"{path} is a cabinet, and {missing}")
    limited = ["prlimit", f"--fsize={_MOST_CABINET_BYTES}", program]
    cabinet = ["--", str(path.resolve())]
    try:
        listed = subprocess.run([*limited, "-l", *cabinet], capture_output=True, timeout=_UNPACKING_SECONDS, check=False)
        sizes = [int(size) for size in _LISTED.findall(listed.stdout.decode("utf-8", "replace"))]
        if len(sizes) > _MOST_FILES or sum(sizes) > _MOST_CABINET_BYTES:
            most = f"{_MOST_FILES} files and {_MOST_CABINET_BYTES >> 20} MiB"
            raise SentError(f"{path}: the cabinet holds more than {most}, which no bundle does")
        command = [*limited, "-q", "-d", str(folder), *cabinet]
        subprocess.run(command, capture_output=True, timeout=_UNPACKING_SECONDS, check=False)
    except subprocess.TimeoutExpired:
        raise SentError(f"{path}: the cabinet could not be unpacked in {_UNPACKING_SECONDS} s") from None
    if not any(folder.iterdir()):
        raise SentError(f"{path}: the cabinet is empty or damaged")


def _take(sent: Sent, reader: TraceReader, path: Path) -> None:
    text = read_text(path)
    if not text.text.strip():
        return
    if text.cut:
        sent.notes.append(f"{text.name} is too large: its end was left out")
    if text.text.lstrip().startswith("{"):
        _take_status(sent, text)
        return
    records = read_records(text)
    if records:
        sent.logs.append(text.name)
        sent.records += records
        return
    trace = reader.read(text.lines())
    if trace.unformatted:
        wordless = f"{trace.unformatted} messages have no words"
        sent.notes.append(f"{text.name}: {wordless}; give tracefmt the files trace\\*.tmf")
    if trace.cut:
        sent.notes.append(f"{text.name} has too many messages: its end was left out")
    if trace.messages:
        sent.traces.append(text.name)
        sent.messages += trace.messages
    elif "<Events" in text.text[:200]:
        sent.logs.append(text.name)


def _take_status(sent: Sent, text: SentText) -> None:
    try:
        status = json.loads(text.text)
    except (ValueError, RecursionError):
        sent.notes.append(f"{text.name} is a broken JSON file")
        return
    if isinstance(status, dict) and isinstance(status.get("findings"), list):
        sent.status = status

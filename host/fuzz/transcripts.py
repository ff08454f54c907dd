#!/usr/bin/env python3
"""Fuzzes the laboratory's reader of what the rig and the toast controller report.

The inputs of the corpus folders, then changes of them made at random, go through a connection into the
reader. What must hold: every line becomes an event, or the reader refuses it with a PeerError; the
transcript, read back, is the record. Never another exception, never a hang. An input that breaks this is
written to PREFIX plus a name, and the exit status is 1. Inputs that reach new lines of the reader are kept
for the run and changed further.
"""

import argparse
import hashlib
import json
import random
import socket
import sys
import tempfile
import threading
import time
from collections.abc import Iterator
from pathlib import Path
from types import FrameType
from typing import Any

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "lab" / "cli"))

from veyra_lab.wire import connection, peer, trace_formats  # noqa: E402
from veyra_lab.wire.events import Event, PeerError  # noqa: E402
from veyra_lab.wire.peer import Peer  # noqa: E402

QUIET_SECONDS = 10
LONGEST = 20_000
READERS = {connection.__file__, peer.__file__, trace_formats.__file__}
VALUES: list[Any] = [
    *(None, True, 0, -1, 23, 1 << 70, 1.5, float("nan")),
    *([], {}, [[]], ["zz"], ["00" * 9], {"event": "hello"}),
    *("", "event", "\ud800", "\0", "rig", "toast", "hello", "trace", "done", "stage"),
    "{FBFBAA6B-FCBC-3745-AC1C-E104C7B6CDA1}",
]


class Find(Exception):
    """A broken promise."""


class Coverage:
    """The lines of the readers that have run, in whatever thread."""

    def __init__(self) -> None:
        self.lines: set[tuple[str, int]] = set()

    def trace(self, frame: FrameType, _event: str, _argument: Any) -> Any:
        if frame.f_code.co_filename not in READERS:
            return None
        self.lines.add((frame.f_code.co_filename, frame.f_lineno))
        return self.trace


class Mutator:
    """Changes inputs at random, by bytes, by lines and by what the lines say."""

    def __init__(self, seed: int) -> None:
        self._random = random.Random(seed)

    def change(self, content: bytes) -> bytes:
        for _ in range(self._random.randint(1, 4)):
            content = self._random.choice((self._bytes, self._lines, self._value, self._value))(content)
        return content[:LONGEST]

    def pieces(self, content: bytes) -> Iterator[bytes]:
        """The content as a connection may deliver it."""
        while content:
            size = self._random.choice((1, 7, 100, len(content)))
            yield content[:size]
            content = content[size:]

    def choose(self, inputs: list[bytes]) -> bytes:
        return self._random.choice(inputs)

    def _bytes(self, content: bytes) -> bytes:
        place = self._random.randint(0, len(content))
        end = place + self._random.choice((0, 1, 1, 2, 50))
        inserted = self._random.choice((b"", b"\n", b'"', b"\xff", b"[" * 200, b"9" * 50))
        return content[:place] + inserted + content[end:]

    def _lines(self, content: bytes) -> bytes:
        lines = content.splitlines(keepends=True) or [b"\n"]
        chosen = self._random.randrange(len(lines))
        where = self._random.randrange(len(lines) + 1)
        lines.insert(where, lines[chosen] if self._random.random() < 0.5 else lines.pop(chosen))
        return b"".join(lines)

    def _value(self, content: bytes) -> bytes:
        lines = content.split(b"\n")
        chosen = self._random.randrange(len(lines))
        try:
            event = json.loads(lines[chosen])
        except (ValueError, RecursionError):
            return content
        if not isinstance(event, dict):
            return content
        key = self._random.choice([*event, "event", "source", "t"])
        if self._random.random() < 0.2:
            event.pop(key, None)
        else:
            event[key] = self._random.choice(VALUES)
        lines[chosen] = json.dumps(event).encode()
        return b"\n".join(lines)


class Reader:
    """The laboratory's end of the wire, once for each input."""

    def __init__(self, folder: Path) -> None:
        self._transcript = folder / "transcript.jsonl"
        self._formats = trace_formats.TraceFormats(ROOT / "trace")
        self._failures: list[str] = []
        threading.excepthook = lambda raised: self._failures.append(repr(raised.exc_value))

    def read(self, pieces: Iterator[bytes], lines: int) -> None:
        """Raises a Find."""
        self._failures.clear()
        with Peer({}, self._formats.add_words, lambda event: None, self._transcript) as peer:
            try:
                self._deliver(peer.port, pieces)
                refusal = self._await_end(peer)
            finally:
                if self._failures:
                    raise Find(f"the reader died of {self._failures[0]}")
            events = peer.events()
        if not refusal and len(events) != lines + 1:
            raise Find(f"{lines} lines became {len(events) - 1} events, and nothing was refused")
        self._check_transcript(events)

    def _deliver(self, port: int, pieces: Iterator[bytes]) -> None:
        with socket.create_connection(("127.0.0.1", port), timeout=QUIET_SECONDS) as channel:
            try:
                for piece in pieces:
                    channel.sendall(piece)
                channel.shutdown(socket.SHUT_WR)
                while channel.recv(1 << 16):
                    pass
            except OSError as error:
                if not self._failures:
                    raise Find(f"the reader does not read: {error}") from error

    def _await_end(self, peer: Peer) -> str:
        """The refusal, or nothing when every line was taken."""
        deadline = time.monotonic() + QUIET_SECONDS
        while not self._failures and time.monotonic() < deadline:
            if any(_is_end(event) for event in peer.events()):
                break
            time.sleep(0.001)
        if self._failures:
            return ""
        try:
            peer.follow(_is_end, "the end", since=0, quiet=1)
        except PeerError as refusal:
            return str(refusal) or "refused"
        return ""

    def _check_transcript(self, events: list[Event]) -> None:
        try:
            text = self._transcript.read_text(encoding="utf-8")
            written = [json.loads(line) for line in text.split("\n") if line]
        except (ValueError, RecursionError) as error:
            raise Find(f"the transcript cannot be read back: {error}") from error
        if json.dumps(written) != json.dumps(events):
            raise Find("the transcript is not the record")


def _is_end(event: Event) -> bool:
    return (event["source"], event["event"]) == ("lab", "gone")


def attempt(reader: Reader, mutator: Mutator, content: bytes) -> None:
    """Raises a Find for one input."""
    try:
        reader.read(mutator.pieces(content), content.count(b"\n"))
    except Find:
        raise
    except Exception as error:
        raise Find(f"{type(error).__name__}: {error}") from error


def fuzz(options: argparse.Namespace, folder: Path) -> tuple[int, int, tuple[bytes, Find] | None]:
    """The number of executions, the lines of the reader that ran, and the find, if there is one."""
    inputs = [path.read_bytes() for corpus in options.corpus for path in sorted(corpus.iterdir())]
    mutator, coverage, executions = Mutator(options.seed), Coverage(), 0
    threading.settrace(coverage.trace)
    reader = Reader(folder)
    end = time.monotonic() + options.seconds
    waiting = list(inputs)
    while waiting or (executions < options.runs if options.runs else time.monotonic() < end):
        content = waiting.pop(0) if waiting else mutator.change(mutator.choose(inputs))
        before = len(coverage.lines)
        executions += 1
        try:
            attempt(reader, mutator, content)
        except Find as find:
            return executions, len(coverage.lines), (content, find)
        if len(coverage.lines) > before and content not in inputs:
            inputs.append(content)
    return executions, len(coverage.lines), None


def main() -> int:
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--seconds", type=int, default=0)
    parser.add_argument("--runs", type=int, default=0)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--finds", default="./", metavar="PREFIX")
    parser.add_argument("corpus", type=Path, nargs="+")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        executions, lines, found = fuzz(options, Path(folder))
    print(f"#{executions} DONE cov: {lines}")
    print(f"stat::number_of_executed_units: {executions}")
    if found is None:
        return 0
    content, find = found
    path = Path(f"{options.finds}crash-{hashlib.sha1(content).hexdigest()}")
    path.write_bytes(content)
    print(f"broken promise: {find}; written to {path}", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())

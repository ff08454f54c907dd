"""scripts/lab report."""

import argparse
import json
import sys
from pathlib import Path
from typing import Any

from rich.console import Console
from rich.progress import BarColumn, Progress, TaskProgressColumn, TextColumn

from ..terminal.parser import give_up, writable
from .page import page
from .summary import Summary, summarize
from .transcript import Transcript, TranscriptError, read_transcript

_DESCRIPTION = """\
Makes a picture of an update from a transcript: one HTML page that shows who did what and when, how the download went
on, and, when it stopped, where and why. The page needs no network and no other file."""

_CLOSING = """\
Examples:
  scripts/demo --transcript update.jsonl
  scripts/lab report update.jsonl -o update.html
  scripts/lab report update.jsonl --json

Exit status: 0 when the page is written, whatever came of the update; 1 when the file is no transcript; 2 when the
command line is wrong, or a file cannot be read or written."""

_LARGE = 4 << 20


def register(subparsers: Any) -> None:
    """Adds the subcommand."""
    parser = subparsers.add_parser(
        "report",
        help="make a picture of an update from its transcript",
        description=_DESCRIPTION,
        epilog=_CLOSING,
    )
    parser.add_argument(
        "transcript", type=Path, metavar="TRANSCRIPT", help="what scripts/demo --transcript has kept"
    )
    parser.add_argument("-o", "--output", type=writable, metavar="FILE.html", help="where the page goes")
    parser.add_argument("--json", action="store_true", help="print outcome and totals as one JSON object")
    parser.set_defaults(run=run, refuse=parser.error)


def run(arguments: argparse.Namespace) -> int:
    """The exit status."""
    if arguments.output is None and not arguments.json:
        arguments.refuse("say where the page goes: -o FILE.html (or --json for the numbers alone)")
    if _is_same_file(arguments.output, arguments.transcript):
        arguments.refuse(f"{arguments.output} is the transcript itself; name another file with -o")
    try:
        transcript = _read(arguments.transcript)
    except TranscriptError as error:
        return give_up("scripts/lab report", error)
    except OSError as error:
        arguments.refuse(f"{arguments.transcript} cannot be read: {error.strerror}")
    summary = summarize(transcript)
    if arguments.output is not None:
        try:
            _write(transcript, summary, arguments)
        except OSError as error:
            arguments.refuse(f"{arguments.output} cannot be written: {error.strerror}")
    _say(summary, arguments)
    return 0


def _is_same_file(one: Path | None, other: Path) -> bool:
    return one is not None and one.exists() and other.exists() and one.samefile(other)


def _write(transcript: Transcript, summary: Summary, arguments: argparse.Namespace) -> None:
    content = page(transcript, summary, arguments.transcript.name)
    arguments.output.write_bytes(content.encode("utf-8", "replace"))


def _say(summary: Summary, arguments: argparse.Namespace) -> None:
    if arguments.json:
        print(json.dumps(summary.as_json(), indent=2))
    elif sys.stdout.isatty():
        print(summary.sentence)
        print(f"written: {arguments.output}")


def _read(path: Path) -> Transcript:
    """With a bar on the terminal while a large file is read; nothing in a pipe or for a small one."""
    console = Console(stderr=True)
    if not console.is_terminal or path.stat().st_size < _LARGE:
        return read_transcript(path)
    with Progress(TextColumn("reading"), BarColumn(), TaskProgressColumn(), console=console, transient=True) as bar:
        task = bar.add_task("")
        return read_transcript(path, lambda done, total: bar.update(task, completed=done, total=total))

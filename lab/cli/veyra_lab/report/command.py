"""scripts/lab report."""

import argparse
import json
import sys
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any

from rich.console import Console
from rich.progress import BarColumn, Progress, TaskProgressColumn, TextColumn

from ..causes.answer import answer
from ..causes.sent import SentError, read_sent
from ..terminal.parser import give_up, writable
from ..terminal.screen import Screen
from .page import cause_page, page
from .summary import Summary, summarize
from .transcript import HOW_TO_MAKE_ONE, Transcript, TranscriptError, is_transcript, read_transcript

_DESCRIPTION = """\
Makes a picture of an update from a transcript: one HTML page that shows who did what and when, how the download went
on, and, when it stopped, where and why. The page needs no network and no other file.

Of what a user sends it says the cause instead: the trace as tracefmt prints it, exported event logs (XML, text or CSV),
the bundle that VeyraCameraDfuCheck collects, or a folder of such files; several may be named. The answer is a row of
docs/operations.md, what to do now, and what cannot be told apart from it."""

_CLOSING = """\
Examples:
  scripts/demo --transcript update.jsonl
  scripts/lab report update.jsonl -o update.html
  scripts/lab report update.jsonl --json
  scripts/lab report veyra.txt application.xml
  scripts/lab report bundle.cab -o cause.html

Exit status: 0 when the page is written or the cause is told, whatever that is; 1 when a transcript is broken; 2 when
the command line is wrong, a file cannot be read or written, or nothing that could be judged is in it."""

_LARGE = 4 << 20


def register(subparsers: Any) -> None:
    """Adds the subcommand."""
    parser = subparsers.add_parser(
        "report",
        help="make a picture of an update from its transcript, or tell the cause from what a user has sent",
        description=_DESCRIPTION,
        epilog=_CLOSING,
    )
    parser.add_argument(
        "files",
        type=Path,
        nargs="+",
        metavar="FILE",
        help="what scripts/demo --transcript has kept, or what a user has sent",
    )
    parser.add_argument("-o", "--output", type=writable, metavar="FILE.html", help="where the page goes")
    parser.add_argument("--json", action="store_true", help="print outcome and totals as one JSON object")
    parser.set_defaults(run=run, refuse=parser.error)


def run(arguments: argparse.Namespace) -> int:
    """The exit status."""
    files: list[Path] = arguments.files
    for file in files:
        if _is_same_file(arguments.output, file):
            arguments.refuse(f"{arguments.output} is what the page is made from; name another file with -o")
    try:
        if len(files) == 1 and is_transcript(files[0]):
            return _picture(arguments, files[0])
        return _cause(arguments, files)
    except TranscriptError as error:
        return give_up("scripts/lab report", error)
    except SentError as error:
        return give_up("scripts/lab report", SentError(f"{error}, and it is no transcript; {HOW_TO_MAKE_ONE}"), 2)
    except BrokenPipeError:
        raise
    except OSError as error:
        arguments.refuse(f"{error.filename or files[0]} cannot be read: {error.strerror}")
    return 2


def _picture(arguments: argparse.Namespace, file: Path) -> int:
    if arguments.output is None and not arguments.json:
        arguments.refuse("say where the page goes: -o FILE.html (or --json for the numbers alone)")
    transcript = _read(file)
    summary = summarize(transcript)
    _write(arguments, lambda: page(transcript, summary, file.name))
    _say(summary, arguments)
    return 0


def _cause(arguments: argparse.Namespace, files: Sequence[Path]) -> int:
    sent = read_sent(files)
    told = answer(sent)
    _write(arguments, lambda: cause_page(told, sent, ", ".join(file.name for file in files)))
    if arguments.json:
        print(json.dumps(told.as_json(), indent=2))
    else:
        screen = Screen()
        for line in told.lines():
            screen.line(line)
    return 0


def _is_same_file(one: Path | None, other: Path) -> bool:
    return one is not None and one.exists() and other.exists() and one.samefile(other)


def _write(arguments: argparse.Namespace, content: Callable[[], str]) -> None:
    if arguments.output is not None:
        whole = content().encode("utf-8", "replace")
        try:
            arguments.output.write_bytes(whole)
        except OSError as error:
            arguments.refuse(f"{arguments.output} cannot be written: {error.strerror}")


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

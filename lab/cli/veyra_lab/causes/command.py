"""scripts/lab causes: how often scripts/lab report tells the cause from trace and event log alone."""

import argparse
import json
from collections.abc import Iterator
from pathlib import Path
from typing import Any

from ..scenarios.files import read_folder
from ..scenarios.schema import SCENARIOS
from ..terminal.parser import give_up
from ..terminal.screen import Screen
from .measure import Event, Measured, Table, measured

_DESCRIPTION = """\
Measures the answers of scripts/lab report on what a user could send of each fault scenario: trace and event log, made
of the transcripts of scripts/lab run. Writes the tables of docs/causes.md. A scenario that stands in several
transcripts counts once."""
_CLOSING = """\
Example:
  scripts/lab run --all --keep-going --fresh --transcript all.jsonl
  scripts/lab causes all.jsonl

Exit status: 0 when at least 95 % are right, 1 when fewer are, 2 when a transcript holds no scenario or cannot be
read."""
_ENOUGH = 0.95


class NothingMeasured(Exception):
    """No transcript holds a scenario that is asked for."""


def register(subparsers: Any) -> None:
    """Adds the command "causes" to the laboratory's command line."""
    parser = subparsers.add_parser(
        "causes", help="measure how often the cause is told", description=_DESCRIPTION, epilog=_CLOSING
    )
    parser.add_argument("transcripts", type=Path, nargs="+", metavar="TRANSCRIPT", help="of scripts/lab run --fresh")
    parser.add_argument(
        "--part",
        choices=("all", "open", "held-back"),
        default="all",
        help="the files of lab/scenarios/held-back.txt alone, or all but these (default: %(default)s)",
    )
    parser.set_defaults(run=_run)


def _run(options: argparse.Namespace) -> int:
    held_back = set((SCENARIOS / "held-back.txt").read_text(encoding="utf-8").split())
    wanted = {
        variant.name: variant.rows
        for variant in read_folder(SCENARIOS)
        if options.part == "all" or (variant.name.partition("/")[0] in held_back) == (options.part == "held-back")
    }
    results: dict[str, Measured] = {}
    try:
        for path in options.transcripts:
            for result in measured(_events(path), wanted):
                results[result.name] = result
    except (OSError, ValueError, LookupError) as error:
        return give_up("scripts/lab causes", error, 2)
    if not results:
        why = NothingMeasured("no scenario is in it; scripts/lab run --transcript makes one")
        return give_up("scripts/lab causes", why, 2)
    screen = Screen()
    for line in Table([results[name] for name in wanted if name in results]).lines():
        screen.line(line)
    right = sum(result.is_right for result in results.values())
    return 0 if right >= _ENOUGH * len(results) else 1


def _events(path: Path) -> Iterator[Event]:
    """The events of a transcript, but for a last line that is half-written."""
    with path.open(encoding="utf-8") as file:
        for line in file:
            if line.endswith("\n"):
                event = json.loads(line)
                if not isinstance(event, dict) or not isinstance(event.get("event"), str):
                    raise ValueError(f"{path} is no transcript")
                yield event

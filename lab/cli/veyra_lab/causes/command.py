"""scripts/lab causes: how often scripts/lab report tells the cause from trace and event log alone."""

import argparse
import json
import time
from collections.abc import Callable, Iterator, Sequence
from contextlib import ExitStack
from pathlib import Path
from typing import Any

from ..scenarios.files import read_folder
from ..scenarios.schema import SCENARIOS
from ..terminal.parser import add_places, give_up
from ..terminal.screen import Screen
from ..windows.machine import Machine, MachineError
from ..windows.programs import COMPANION, PRESET, Programs
from ..windows.sole_use import sole_use
from ..wire.events import PeerError
from .bundles import collector
from .measure import Event, Measured, Table, measured

_DESCRIPTION = """\
Measures the answers of scripts/lab report on what a user could send of each fault scenario: trace and event log, made
of the transcripts of scripts/lab run. Writes the tables of docs/causes.md. A scenario that stands in several
transcripts counts once.

With --bundles the companion collects a bundle of each, in a Windows machine of the laboratory's: the rig tells it again
what the service traced, and the answer to the bundle has to be the same."""
_CLOSING = """\
Example:
  scripts/lab run --all --keep-going --fresh --transcript all.jsonl
  scripts/lab causes all.jsonl
  scripts/lab causes all.jsonl --bundles bundles

Exit status: 0 when at least 95 % are right and each bundle tells the same, 1 when not, 2 when a transcript holds no
scenario or cannot be read."""
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
    parser.add_argument(
        "--bundles", type=Path, metavar="FOLDER", help="have a bundle of each collected, and keep them there"
    )
    add_places(parser)
    parser.set_defaults(run=_run)


def _run(options: argparse.Namespace) -> int:
    held_back = set((SCENARIOS / "held-back.txt").read_text(encoding="utf-8").split())
    wanted = {
        variant.name: variant.rows
        for variant in read_folder(SCENARIOS)
        if options.part == "all" or (variant.name.partition("/")[0] in held_back) == (options.part == "held-back")
    }
    results: dict[str, Measured] = {}
    began = time.monotonic()
    try:
        with ExitStack() as stack:
            collect = _collecting(options, stack) if options.bundles else None
            for path in options.transcripts:
                results |= {result.name: result for result in _measured(path, wanted, collect)}
    except (OSError, ValueError, MachineError, PeerError) as error:
        return give_up("scripts/lab causes", error, 1 if isinstance(error, MachineError | PeerError) else 2)
    if not results:
        why = NothingMeasured("no scenario is in it; scripts/lab run --transcript makes one")
        return give_up("scripts/lab causes", why, 2)
    screen = Screen()
    table = Table([results[name] for name in wanted if name in results])
    for line in [*table.lines(), *(["", *table.lines_of_bundles(time.monotonic() - began)] if options.bundles else [])]:
        screen.line(line)
    right = sum(result.is_right for result in results.values())
    same = not options.bundles or all(result.is_told_by_its_bundle for result in results.values())
    return 0 if right >= _ENOUGH * len(results) and same else 1


def _measured(
    path: Path, wanted: dict[str, tuple[str, ...]], collect: Callable[[str, Sequence[Event]], Path] | None
) -> Iterator[Measured]:
    """The scenarios of a transcript; ValueError names one that cannot be read."""
    try:
        yield from measured(_events(path), wanted, collect)
    except (ValueError, LookupError, RecursionError) as error:
        raise ValueError(f"{path} cannot be read: {error}") from None


def _collecting(options: argparse.Namespace, stack: ExitStack) -> Callable[[str, Sequence[Event]], Path]:
    """What has a bundle collected, in a machine that is booted until the stack is closed."""
    programs = Programs.of(options.programs)
    for path in (programs.service, programs.rig, programs.toast_server, programs.companion):
        if not path.is_file():
            raise MachineError(f"{path} is missing: scripts/setup build {PRESET} {COMPANION} builds it")
    folder: Path = options.bundles
    folder.mkdir(parents=True, exist_ok=True)
    stack.enter_context(sole_use(options.machine))
    companion = stack.enter_context(collector(stack.enter_context(Machine(options.machine)), programs))

    def collect(name: str, events: Sequence[Event]) -> Path:
        cabinet = folder / f"{name.replace('/', '.')}.cab"
        companion.collect(events, cabinet)
        return cabinet

    return collect


def _events(path: Path) -> Iterator[Event]:
    """The events of a transcript, but for a last line that is half-written."""
    with path.open("rb") as file:
        for line in file:
            if line.endswith(b"\n"):
                yield _event(line)


def _event(line: bytes) -> Event:
    try:
        event = json.loads(line)
    except (ValueError, RecursionError):
        event = None
    if not isinstance(event, dict) or not isinstance(event.get("event"), str):
        raise ValueError("it is no transcript")
    return event

"""scripts/lab list: the scenarios by what a user meets in them."""

import argparse
import json
from collections.abc import Sequence
from typing import Any

from ..buses.choice import add_bus
from ..buses.usb import UsbBus
from ..causes.rows import rows
from ..scenarios.files import read_readable
from ..scenarios.schema import SCENARIOS
from ..scenarios.variant import Variant
from ..terminal.parser import give_up
from ..terminal.screen import Screen
from ..terminal.table import Table

_WRONG = 2
_DESCRIPTION = """\
Lists the scenarios, each in one line: its name, and what happens in it; with --bus usb those that a real bus can have,
without it why the others cannot. They are grouped by the row of docs/operations.md that they are. On a terminal a line
is cut."""
_CLOSING = """\
Examples:
  scripts/lab list unplug               those that have the word in name, description or rows
  scripts/lab list --row end-failed --quick
  scripts/lab list --json               one JSON object a line

Exit status: 0; 2 when a scenario file is wrong (the others are listed), nothing was found, or the command line is
wrong."""


def register(subparsers: Any) -> None:
    """Adds the command "list" to the laboratory's command line."""
    parser = subparsers.add_parser(
        "list", help="list the scenarios", description=_DESCRIPTION, epilog=_CLOSING
    )
    parser.add_argument("words", nargs="*", metavar="WORD", help="only those that have all of these words")
    parser.add_argument("--row", metavar="ROW", help="only those that are this row of docs/operations.md")
    parser.add_argument("--quick", action="store_true", help="only those that are not slow")
    parser.add_argument("--json", action="store_true", help="write one JSON object a line")
    add_bus(parser)
    parser.set_defaults(run=_list, refuse=parser.error)


def can_have(bus: str, variant: Variant) -> bool:
    """Whether the bus of this name can have the scenario."""
    return bus != UsbBus.name or not variant.not_on_usb


def _list(options: argparse.Namespace) -> int:
    if options.row is not None and options.row not in rows():
        options.refuse(f"argument --row: '{options.row}' is no row of docs/operations.md")
    variants, errors = read_readable(SCENARIOS)
    chosen = [variant for variant in variants if _is_meant(variant, options)]
    if options.json:
        for variant in chosen:
            print(json.dumps(_as_json(variant)))
    else:
        _show(chosen)
    for error in errors:
        give_up("scripts/lab", error)
    if not chosen and not errors:
        return give_up("scripts/lab", LookupError("no scenario is meant by that; scripts/lab list shows all"), _WRONG)
    return _WRONG if errors else 0


def _is_meant(variant: Variant, options: argparse.Namespace) -> bool:
    said = " ".join((variant.name, variant.description, *variant.rows)).lower()
    return (
        can_have(options.bus, variant)
        and not (options.quick and variant.slow)
        and (options.row is None or options.row in variant.rows)
        and all(word.lower() in said for word in options.words)
    )


def _as_json(variant: Variant) -> dict[str, Any]:
    return {
        "name": variant.name,
        "description": variant.description,
        "rows": variant.rows,
        "slow": variant.slow,
        "not_on_usb": variant.not_on_usb or None,
    }


def _show(chosen: Sequence[Variant]) -> None:
    """By row, in the order of the document; a scenario of several rows stands with the first."""
    screen = Screen()
    groups: dict[str, list[Variant]] = {}
    for variant in chosen:
        groups.setdefault(variant.rows[0] if variant.rows else "", []).append(variant)
    for row in [*rows(), ""]:
        if row in groups:
            cause = f": {rows()[row].cause}" if row else "no row"
            screen.step(f"{row}{cause} ({len(groups[row])})")
            screen.table(Table([(variant.name, _words_about(variant)) for variant in groups[row]]))


def _words_about(variant: Variant) -> str:
    slow = "(slow) " if variant.slow else ""
    # In front, where no terminal cuts it off.
    why_not = f"(not on usb: {variant.not_on_usb}) " if variant.not_on_usb else ""
    return slow + why_not + variant.description

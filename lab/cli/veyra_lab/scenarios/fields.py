"""Checks of what a person has written in a scenario file. Each names the field and what is allowed there."""

import re
from collections.abc import Callable, Mapping
from typing import Any, NoReturn

from .errors import ScenarioError

# Takes the place of a value in the file and the value.
Checker = Callable[[str, Any], None]


def refuse(place: str, value: Any, allowed: str) -> NoReturn:
    """Ends the reading."""
    shown = str(value) if not isinstance(value, str) else f'"{value}"'
    raise ScenarioError(f"{place}: {shown[:60]} is not {allowed}")


def truth(place: str, value: Any) -> None:
    """true or false."""
    if not isinstance(value, bool):
        refuse(place, value, "true or false")


def text(place: str, value: Any) -> None:
    """Any text that says something."""
    if not isinstance(value, str) or not value.strip():
        refuse(place, value, "a text")


def integer(low: int, high: int) -> Checker:
    """A whole number of a range."""

    def check(place: str, value: Any) -> None:
        if isinstance(value, bool) or not isinstance(value, int) or not low <= value <= high:
            refuse(place, value, f"a number from {low} to {high}")

    return check


def one_of(*choices: str) -> Checker:
    """One of a few words."""

    def check(place: str, value: Any) -> None:
        if value not in choices:
            refuse(place, value, f"one of: {', '.join(choices)}")

    return check


def matching(pattern: str, allowed: str) -> Checker:
    """A text of a form that `allowed` describes."""
    form = re.compile(pattern)

    def check(place: str, value: Any) -> None:
        if not isinstance(value, str) or not form.fullmatch(value):
            refuse(place, value, allowed)

    return check


def nothing_or(check_something: Checker) -> Checker:
    """null, or what the other checker takes."""

    def check(place: str, value: Any) -> None:
        if value is not None:
            check_something(place, value)

    return check


def list_of(check_item: Checker) -> Checker:
    """A list, each item checked by itself."""

    def check(place: str, value: Any) -> None:
        if not isinstance(value, list):
            refuse(place, value, "a list")
        for position, item in enumerate(value):
            check_item(f"{place}[{position}]", item)

    return check


def record_of(known: Mapping[str, Checker], needed: frozenset[str] = frozenset()) -> Checker:
    """An object whose fields are all known, and the needed ones there."""

    def check(place: str, value: Any) -> None:
        if not isinstance(value, dict):
            refuse(place, value, "an object")
        for name, content in value.items():
            if name not in known:
                raise ScenarioError(f'{place}: there is no field "{name}"; known are: {", ".join(known)}')
            known[name](f"{place}.{name}", content)
        for name in sorted(needed - value.keys()):
            raise ScenarioError(f'{place}: the field "{name}" is missing')

    return check


def either(*checkers: Checker, allowed: str) -> Checker:
    """What one of the checkers takes. An object is judged by the last checker, whose complaint names the field."""

    def check(place: str, value: Any) -> None:
        if isinstance(value, dict):
            checkers[-1](place, value)
            return
        for checker in checkers:
            try:
                checker(place, value)
                return
            except ScenarioError:
                continue
        refuse(place, value, allowed)

    return check

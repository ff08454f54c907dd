"""Expectations in words, for the record of a run."""

import json
from collections.abc import Callable
from typing import Any

_RESULTS = {
    "updated": "camera {camera} is updated, and its flash is the image byte for byte",
    "failed": "the download to camera {camera} is begun, and ends without an update",
    "not opened": "camera {camera} in DFU mode is not opened, and nothing is sent to it",
    "asked": "the user is asked, and nothing else happens to camera {camera}",
    "not asked": "nobody is asked, and nothing happens to camera {camera}",
}
_FLASH = {
    "image": "its flash is the image",
    "old": "its flash is as it was",
    "partial": "its flash holds the image's beginning",
    "other": "its flash holds neither",
}
_FIRMWARE = {
    "none": "after a power failure it would have no firmware",
    "old": "after a power failure it would run its old firmware",
    "image": "after a power failure it would run the image",
    "wrong": "after a power failure it would run something wrong",
}
_MODES = {"absent": "is not on the bus", "running": "runs its firmware", "dfu": "is in DFU mode"}
_LONGEST = 300


def words_of(field: str, expectation: dict[str, Any]) -> str:
    """What a field of an expectation wants."""
    wanted = expectation[field]
    if field == "result":
        return _RESULTS[wanted].format(camera=expectation.get("camera", 0))
    said = _TELLERS[field](wanted) if field in _TELLERS else f"{field}: {_plain(wanted)}"
    return said if len(said) <= _LONGEST else f"{said[:_LONGEST]}…"


def _plain(value: Any) -> str:
    if isinstance(value, list):
        return ", ".join(_plain(each) for each in value) or "none"
    if isinstance(value, dict):
        return ", ".join(f"{name} {_plain(each)}" for name, each in value.items())
    return value if isinstance(value, str) else json.dumps(value)


def _count(what: str) -> Callable[[Any], str]:
    def said(wanted: Any) -> str:
        return f"{what}: {wanted[0]} to {wanted[1]}" if isinstance(wanted, list) else f"{what}: {wanted}"

    return said


def _cameras(wanted: list[dict[str, Any] | None]) -> str:
    return "; ".join(_camera(number, fields) for number, fields in enumerate(wanted) if fields is not None)


def _camera(number: int, fields: dict[str, Any]) -> str:
    known = {"mode": _MODES, "flash": _FLASH, "firmware": _FIRMWARE}

    def said(name: str, value: Any) -> str:
        if isinstance(value, list):
            return " or ".join(said(name, each) for each in value)
        return known[name][value] if name in known else f"{name.replace('dfu', 'DFU').replace('_', ' ')} {value}"

    return f"camera {number}: {', '.join(said(name, value) for name, value in fields.items())}"


_TELLERS: dict[str, Callable[[Any], str]] = {
    "cameras": _cameras,
    "transfers": lambda wanted: "there are no transfers" if wanted == "none" else f"the transfers are {wanted.strip()}",
    "errors": lambda wanted: f"the transfers that fail end with {_plain(wanted)}",
    "questions": lambda wanted: "nobody is asked again" if not wanted else f"the questions are {_questions(wanted)}",
    "progress": lambda wanted: f"the user is told {_plain(wanted)}" if wanted else "the user is told no progress",
    "completions": _count("ends of a download that the user is told"),
    "commands": _count("commands into DFU mode"),
    "controls": _count("controls that the service has handled"),
    "late controls": _count("controls that took more than 30 s"),
    "service": lambda wanted: f"the service is {wanted}",
    "monitored service": lambda wanted: f"the service that the uninstall monitor knows is {wanted}",
    "growth": lambda wanted: f"the process holds no more than {_plain(wanted)} more than before",
}


def _questions(wanted: list[list[str]]) -> str:
    return "; ".join(" → ".join(texts) for texts in wanted)

"""Sequences of control transfers in a short notation: "GETSTATE DETACH GETSTATE UPLOAD (DNLOAD GETSTATUS+)x5 EMPTY".

A word is a request of the USB DFU 1.1 standard; EMPTY is the DNLOAD without data that ends a download. Behind a word
may stand /3 for the block number and ! for a transfer that failed (without it, one that succeeded; ? instead of !
leaves it open), then how often it comes: + once or more, * any number of times, x5 five times. Parentheses group.
"""

import re
from collections.abc import Iterable

from ..wire.events import Event

_REQUESTS = ("DETACH", "DNLOAD", "UPLOAD", "GETSTATUS", "CLRSTATUS", "GETSTATE", "ABORT")
_EMPTY = "EMPTY"
_WORD_PATTERN = rf"(?P<name>{'|'.join((*_REQUESTS, _EMPTY))})(?:/(?P<block>\d+))?(?P<end>[!?])?"
_ITEM = re.compile(rf"\s*(?:(?P<open>\()|(?:(?P<close>\))|{_WORD_PATTERN})(?P<times>\+|\*|x\d+)?(?=[\s()]|$))")
_SHOWN = 24


def compile_pattern(text: str) -> re.Pattern[str]:
    """The pattern of a whole sequence. ValueError, with a text that says where, for what is none."""
    parts = []
    depth = 0
    position = 0
    while text[position:].strip():
        match = _ITEM.match(text, position)
        if match is None:
            raise ValueError(f"cannot read '{text[position:].strip()}'")
        depth += bool(match["open"]) - bool(match["close"])
        if depth < 0:
            raise ValueError("a parenthesis is closed that was not opened")
        parts.append(_piece(match))
        position = match.end()
    if depth:
        raise ValueError("a parenthesis is not closed")
    return re.compile("".join(parts))


def spell(transfers: Iterable[Event]) -> str:
    """Transfers as the notation's words, each with its block number and a blank behind it."""
    return "".join(f"{_word(transfer)} " for transfer in transfers)


def shortened(words: str) -> str:
    """Words for a complaint: when there are many, the first and the last of them."""
    some = words.split()
    if len(some) <= _SHOWN:
        return " ".join(some) or "nothing"
    half = _SHOWN // 2
    return f"{' '.join(some[:half])} ...({len(some) - _SHOWN} more)... {' '.join(some[-half:])}"


def request_of(transfer: Event) -> str:
    """The name of a transfer's request; EMPTY for the DNLOAD without data."""
    setup = bytes.fromhex(transfer["setup"])
    if setup[1] >= len(_REQUESTS):
        return f"REQUEST-{setup[1]}"
    name = _REQUESTS[setup[1]]
    return _EMPTY if name == "DNLOAD" and setup[6:8] == b"\0\0" else name


def _piece(match: re.Match[str]) -> str:
    times = match["times"] or ""
    if times.startswith("x"):
        times = f"{{{times[1:]}}}"
    if match["open"]:
        return "(?:"
    if match["close"]:
        return f"){times}"
    block = f"/{match['block']}" if match["block"] else r"(?:/\d+)?"
    end = {"!": "!", "?": "!?"}.get(match["end"] or "", "")
    return f"(?:{match['name']}{block}{end} ){times}"


def _word(transfer: Event) -> str:
    name = request_of(transfer)
    setup = bytes.fromhex(transfer["setup"])
    block = f"/{int.from_bytes(setup[2:4], 'little')}" if name in ("DNLOAD", _EMPTY) else ""
    return f"{name}{block}{'' if transfer['ok'] else '!'}"

"""The boot loaders that are tried: those with a name, and combinations of traits in which every two values meet."""

from dataclasses import dataclass
from typing import Any

from ..scenarios.schema import SCHEMA
from .pairs import cover

_TIMES = {"block_ms": 300, "manifest_ms": 300, "timeout_ms": 5000}


@dataclass(frozen=True)
class Kind:
    """A boot loader in words, and its camera as the stage has it."""

    words: str
    camera: dict[str, Any]


@dataclass(frozen=True)
class _Value:
    """One value of a trait; in words only where it is not the KV400's own."""

    words: str
    traits: dict[str, Any]
    # No device that has it gets a block that it takes.
    is_the_end: bool = False
    manifests_at_once: bool = False


def _own(**traits: Any) -> _Value:
    return _Value("", traits)


def _other(words: str, **traits: Any) -> _Value:
    return _Value(words, traits)


def _end(words: str, **traits: Any) -> _Value:
    return _Value(words, traits, is_the_end=True)


def _switch(words: str, trait: str) -> tuple[_Value, ...]:
    return _own(**{trait: False}), _other(words, **{trait: True})


# Two traits that say nothing without the other are one here.
CHOICES: tuple[tuple[_Value, ...], ...] = (
    (
        _own(detach="accepted"),
        _end("restarts at DETACH", detach="restarts"),
        _end("restarts in DFU mode at DETACH", detach="restarts in dfu mode"),
        _end("refuses DETACH", detach="stalls"),
    ),
    (
        _own(upload="status block"),
        _end("uploads its flash", upload="flash"),
        _end("uploads its flash and drops blocks", upload="flash", drops_blocks_in_upload=True),
        _end("refuses UPLOAD", upload="stalls"),
    ),
    (
        _own(answers_while_writing=True),
        _other("writes at once", writes_at_once=True),
        _other("deaf while it writes", deaf_while_writing=True),
        _other("refuses while it writes", answers_while_writing=False),
    ),
    (
        _own(manifestation="resets itself"),
        _other("waits for a reset", manifestation="waits for reset"),
        _other("manifestation tolerant", manifestation="tolerant"),
    ),
    (
        _own(set_interface="ignored"),
        _other("forgets at SET_INTERFACE", set_interface="resets state"),
        _end("refuses SET_INTERFACE", set_interface="stalls"),
    ),
    (_own(), _Value("manifests at once", {}, manifests_at_once=True)),
    (
        _own(answers_while_manifesting=True),
        _other("refuses while it manifests", answers_while_manifesting=False),
    ),
    _switch("busy first", "busy_first"),
    _switch("stalls in place", "stalls_in_place"),
    _switch("hides its status", "hides_status"),
    _switch("hides its write time", "hides_write_time"),
    _switch("takes an empty image", "takes_empty_image"),
    _switch("addressed flash", "addresses_blocks"),
    (_own(hid_in_front=False), _end("HID in front", hid_in_front=True)),
)


def kinds() -> list[Kind]:
    """The named ones; combinations in which every two values meet; and since what ends an update early hides all that
    would come later, combinations in which every two of the others meet. The first is the KV400's own."""
    names = SCHEMA["definitions"]["camera"]["else"]["properties"]["personality"]["else"]["enum"]
    all_kinds = [Kind(name, {"personality": name, **_TIMES}) for name in names]
    later = tuple(tuple(value for value in values if not value.is_the_end) for values in CHOICES)
    for choices in (CHOICES, later):
        for row in cover([len(values) for values in choices]):
            combined = _combined([values[number] for values, number in zip(choices, row)])
            if combined.words and combined not in all_kinds:
                all_kinds.append(combined)
    return all_kinds


def _combined(values: list[_Value]) -> Kind:
    traits: dict[str, Any] = {}
    for value in values:
        traits.update(value.traits)
    at_once = any(value.manifests_at_once for value in values)
    words = ", ".join(value.words for value in values if value.words)
    return Kind(words, {**_TIMES, "manifests_at_once": at_once, "traits": traits})

"""Boot loaders of other kinds: the combinations that are tried, what is read from an attempt, and the document's table
beside a run."""

import re
from itertools import combinations
from typing import Any

import pytest
from support import BUILD, CHECKOUT, slow, the_machine
from veyra_lab.runner.installed_service import installed
from veyra_lab.scenarios.schema import SCHEMA
from veyra_lab.traits.attempt import Attempt, read_attempt
from veyra_lab.traits.command import HEAD, rows
from veyra_lab.traits.kinds import CHOICES, kinds
from veyra_lab.traits.pairs import cover
from veyra_lab.windows.programs import Programs
from veyra_lab.wire.events import Event

_TRAITS = SCHEMA["definitions"]["camera"]["else"]["properties"]["traits"]["else"]["properties"]


# Here power stays on; the campaign of faults has cameras of these.
_SHOWN_BY_A_POWER_FAILURE = {"boot_check", "puts_back"}
_OF_THE_TRAITS = tuple(map(len, CHOICES))


@pytest.mark.parametrize("sizes", [(2, 2), (1, 1, 1), (4, 3, 2, 2, 2), (3, 3, 3, 3), (2,) * 20, _OF_THE_TRAITS])
def test_any_two_values_stand_together_in_a_row(sizes: tuple[int, ...]) -> None:
    covering = cover(sizes)
    for one, other in combinations(range(len(sizes)), 2):
        together = {(row[one], row[other]) for row in covering}
        assert together == {(first, second) for first in range(sizes[one]) for second in range(sizes[other])}


def test_the_rows_are_few_and_always_the_same() -> None:
    rows_of_the_traits = cover(_OF_THE_TRAITS)
    assert rows_of_the_traits == cover(_OF_THE_TRAITS)
    assert 16 <= len(rows_of_the_traits) <= 24  # two choices have four values each
    assert len(set(rows_of_the_traits)) == len(rows_of_the_traits)


def test_every_value_of_every_trait_is_tried() -> None:
    tried: dict[str, set[Any]] = {}
    for values in CHOICES:
        for value in values:
            for trait, state in value.traits.items():
                tried.setdefault(trait, set()).add(state)
    assert set(tried) == set(_TRAITS) - _SHOWN_BY_A_POWER_FAILURE
    for trait in tried:
        if "enum" in _TRAITS[trait]:
            assert tried[trait] == set(_TRAITS[trait]["enum"])
        else:
            assert True in tried[trait]


def test_the_schema_knows_every_name() -> None:
    source = (CHECKOUT / "lab" / "camera" / "DfuTraits.h").read_text(encoding="utf-8")
    camera = SCHEMA["definitions"]["camera"]["else"]["properties"]
    assert camera["personality"]["else"]["enum"] == re.findall(r'\{"([a-z0-9-]+)", Personality::', source)


def test_each_kind_has_words_of_its_own() -> None:
    words = [kind.words for kind in kinds()]
    assert len(set(words)) == len(words)
    assert words[:2] == ["kv400", "strict"]


def _transfer(request: int, *, value: int = 0, length: int = 6, error: int = 0, data: str = "", ms: int = 0) -> Event:
    setup = bytes([0xA1, request]) + value.to_bytes(2, "little") + bytes(2) + length.to_bytes(2, "little")
    late = {"ms": ms} if ms else {}
    return _rig("transfer", setup=setup.hex(" "), ok=error == 0, error=error, data=data, **late)


def _rig(event: str, **fields: Any) -> Event:
    return {"source": "rig", "event": event, **fields}


def _attempt(*events: Event) -> Attempt:
    before, after = [_rig("wait", ms=100), _rig("usb-open", ok=True)], [_rig("usb-close", ok=True)]
    return read_attempt([*before, *events, *after, _rig("wait", ms=100)])


_BLOCK = _transfer(1, length=1024)
_EMPTY = _transfer(1, value=1, length=0)
_LOADED = _transfer(3, data="000000000500")
_DONE = _transfer(3, data="000000000800")


def test_an_attempt_ends_well_when_the_device_waits_for_its_reset() -> None:
    done = _attempt(_BLOCK, _LOADED, _EMPTY, _rig("wait", ms=200), _DONE, _transfer(3, error=433))
    assert done == Attempt("0x00000000", "GETSTATUS in manifestation", 5, 0.2)


@pytest.mark.parametrize(
    ("events", "result", "ended"),
    [
        ([_transfer(0, error=31)], "0x8007001F", "DETACH"),
        ([_transfer(5), _transfer(5, error=433)], "0x800701B1", "GETSTATE"),
        ([_BLOCK, _transfer(3, data="00000000090000")], "0x80004005", "GETSTATUS after a block"),
        ([_BLOCK, _transfer(3, error=31)], "0x80004005", "GETSTATUS after a block"),
        ([_BLOCK, _LOADED, _EMPTY, _transfer(3, error=433)], "0x80004005", "GETSTATUS in manifestation"),
        ([_BLOCK, _DONE], "0x80004005", "GETSTATUS after a block"),
    ],
    ids=lambda value: value if isinstance(value, str) else "",
)
def test_an_attempt_fails_with_its_last_request(events: list[Event], result: str, ended: str) -> None:
    attempt = _attempt(*events)
    assert (attempt.result, attempt.ended, attempt.transfers) == (result, ended, len(events))


def test_answers_that_come_late_take_their_time() -> None:
    assert _attempt(_BLOCK, _transfer(3, data="000000000500", ms=300), _rig("wait", ms=200)).seconds == 0.5


def test_a_device_that_refuses_its_setting_is_not_opened() -> None:
    refused = _attempt(_rig("alternate-setting", ok=False))
    assert refused == Attempt("not opened", "SET_INTERFACE", 0, 0.0)


@slow
def test_the_document_tells_what_becomes_of_each_kind() -> None:
    """One process of the service tries them all, and updates a faultless camera after each."""
    document = (CHECKOUT / "docs" / "laboratory.md").read_text(encoding="utf-8").splitlines()
    begin = document.index(HEAD) + 2
    told = document[begin : document.index("", begin)]
    with installed(the_machine(), Programs.of(BUILD)) as service:
        assert list(rows(service)) == told

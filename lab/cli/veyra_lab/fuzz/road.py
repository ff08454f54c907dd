"""An input of the target "conversation" as a trial of the campaign: the same answers, given by a camera on the road of the
service."""

from collections.abc import Iterator, Sequence
from dataclasses import replace
from itertools import groupby
from pathlib import Path
from typing import Any

from ..faults.program import replay
from ..faults.shrink import shrink
from ..faults.trial_id import FaultPart, TrialId

_KIND = "kv400"
_BLOCK = 1024
_SMALLEST, _MOST_BLOCKS = 402, 5
# What such a camera is asked behind a block: once while it is written, and once when it is.
_LOOKS = 2
_PLACES = {0: "de", 1: "dn", 2: "up", 3: "gs", 5: "ge"}
_GETSTATUS = 3
# In the fuzzer's words, and in those of an id; an answer that comes late is nothing that a camera is told to do.
_HOWS = {"fails": "stall", "short": "short", "status": "code", "state": "state"}
_VALUED = ("short", "code", "state")
_FOR_EVER = "0"


def find_trial(program: Path, told: Sequence[dict[str, Any]]) -> tuple[str, str]:
    """The id of the smallest trial found that fails, of those that the answers suggest, and what does not hold of it: the
    campaign's judges have other words than the target, so it may be another thing. Both empty when none fails: what the
    target has found is then no road of the service."""
    for trial in trials_of(told):
        if replay(program, str(trial)).why:
            return shrink(program, str(trial))
    return "", ""


def trials_of(told: Sequence[dict[str, Any]]) -> Iterator[TrialId]:
    """A faultless one first, since what is wrong may be wrong always; all answers, each alone, and each at another place."""
    settings = next((line for line in told if "transfer_size" in line), None)
    if settings is None or not settings["connected"] or not settings["transfer_size"]:
        return
    blocks = min(-(-int(settings["image"]) // int(settings["transfer_size"])), _MOST_BLOCKS)
    plain = TrialId(_KIND, max(_SMALLEST, blocks * _BLOCK - _BLOCK // 2), 1)
    yield plain
    faults = list(_faults(told))
    if len(faults) > 1:
        yield plain.with_faults(faults)
    for fault in faults:
        yield plain.with_faults([fault])
    for fault in faults:
        yield from (plain.with_faults([replace(fault, skip=skip)]) for skip in range(fault.skip))


def _faults(told: Sequence[dict[str, Any]]) -> Iterator[FaultPart]:
    answers = [line for line in told if line.get("how") in _HOWS]
    for (request, block, _), alike in groupby(answers, key=lambda line: (line["request"], line["block"], line["how"])):
        group = list(alike)
        what = _HOWS[group[0]["how"]]
        if request == _GETSTATUS and what == "stall":
            what = "keep"
        value = str(group[0]["value"]) if what in _VALUED else ""
        part = FaultPart(1, _PLACES[request], _skip(group[0]), what, value)
        yield part
        # Again and again is one thing that goes wrong.
        if request == _GETSTATUS and len(group) > 1:
            yield replace(part, count=str(len(group)))
            yield replace(part, count=_FOR_EVER)
            yield replace(part, what="keep", value="", count=_FOR_EVER)


def _skip(line: dict[str, Any]) -> int:
    """How many of its kind come before it."""
    if line["request"] == 1:
        return int(line["block"])
    if line["request"] == _GETSTATUS:
        return int(line["block"]) * _LOOKS + int(line["look"])
    return int(line["states"]) if line["request"] == 5 else 0

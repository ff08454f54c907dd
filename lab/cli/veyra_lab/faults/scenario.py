"""A trial as a scenario for the executable that ships."""

import json
import re
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any

from ..scenarios.schema import check_filled
from .story import ToldUpdate
from .trial_id import FaultPart, TrialId

_PLACES = {
    "de": "DETACH", "dn": "DNLOAD", "up": "UPLOAD", "gs": "GETSTATUS", "cl": "CLRSTATUS", "ge": "GETSTATE", "ab": "ABORT",
    "cw": "COMMAND-WRITE", "cr": "COMMAND-READ", "gd": "GET-DESCRIPTOR", "si": "SET-INTERFACE", "fe": "FLASH-ERASE",
    "fw": "FLASH-WRITE",
}  # fmt: skip
_WHATS = {
    "stall": "stall", "keep": "stall", "time": "timeout", "pull": "unplug", "code": "status", "state": "state",
    "poll": "poll", "short": "short", "echo": "echo",
}  # fmt: skip
_MOMENTS = {"mid": "middle", "after": "after"}
# The cameras of the campaign that are no personality.
_KINDS: dict[str, dict[str, Any]] = {
    "two-banks": {"two_banks": True},
    "wide-pages": {"page_size": 4096},
    "overwrites": {"traits": {"puts_back": False}},
    "first-page": {"traits": {"boot_check": "first page"}},
    "first-page-of-two-banks": {"two_banks": True, "traits": {"boot_check": "first page"}},
}
# The service asks a camera for its version once in the campaign, and here at both of its arrivals, of each of the two
# sources as which it is listed.
_VERSION_READS = 4


def write_scenario(trial: TrialId, updates: Sequence[ToldUpdate], why: str, folder: Path) -> Path:
    """The scenario's file, named for what went wrong, or for the camera when nothing did. `updates` are those that the
    trial was told to have."""
    content = {
        "$schema": "../../lab/scenarios/scenario.schema.json",
        "description": f"The trial {trial} of scripts/faults{': ' if why else ''}{why}.",
        "not on usb": "the cameras' faults are changed while they are in use",
        "stage": {"cameras": [_camera(trial), _camera(TrialId("kv400", 0, 0))], "image": _image(trial, 1)},
        "steps": [step for update in updates for step in _steps(trial, update)],
    }
    check_filled({key: value for key, value in content.items() if key != "$schema"})
    folder.mkdir(parents=True, exist_ok=True)
    path = folder / f"{_name(trial, why)}.json"
    path.write_text(json.dumps(content, indent=2) + "\n", encoding="utf-8")
    return path


def _name(trial: TrialId, why: str) -> str:
    words = re.sub("[^a-z0-9]+", "-", (why.partition(": ")[2] or why).lower())
    return f"{trial.kind}-{words}"[:80].strip("-")


def _camera(trial: TrialId) -> dict[str, Any]:
    kind = _KINDS.get(trial.kind, {"personality": trial.kind})
    return {**kind, "block_ms": 150, "manifest_ms": 300}


def _image(trial: TrialId, update: int) -> dict[str, Any]:
    return {"size": trial.image_size, "version": f"5.10.{2 + update}.0", "seed": update}


def _fault(fault: FaultPart) -> dict[str, Any]:
    is_switch = fault.place in ("cw", "cr") and fault.skip > 0
    fields: dict[str, Any] = {
        "where": _PLACES[fault.place],
        "what": _WHATS[fault.what],
        "skip": fault.skip - 1 + _VERSION_READS if is_switch else fault.skip,
    }
    if fault.value or fault.taken:
        fields["value"] = int(fault.value or fault.taken)
    if fault.what == "keep":
        fields["sets_error"] = False
    if fault.moment:
        fields["moment"] = _MOMENTS[fault.moment]
    if fault.count:
        fields["count"] = int(fault.count)
    return fields


def _steps(trial: TrialId, update: ToldUpdate) -> Iterator[Any]:
    faults = [_fault(fault) for fault in trial.faults if update.camera == 0 and fault.update == update.number]
    yield {"image": _image(trial, update.number)}
    yield {"faults": {"camera": update.camera, "list": faults}}
    yield {"plug": update.camera}
    if update.is_accepted:
        yield {"wait for": "question"}
        yield "settle"
        yield {"answer": 1}
    yield "settle"
    if update.firmware:
        now = {"firmware": update.firmware}
        yield {"expect": {"cameras": [now] if update.camera == 0 else [None, now]}}
    yield {"take away": update.camera}

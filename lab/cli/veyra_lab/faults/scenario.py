"""A trial as a scenario for the executable that ships."""

import hashlib
import re
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import Any

from ..scenarios.errors import ScenarioError
from ..scenarios.written import write_scenario_file
from .expected import expectation, has_to_be_updated, mended
from .program import Line
from .story import ToldUpdate
from .trial_id import TrialId

# The service asks a camera for its version once in the campaign, and here at both of its arrivals, of each of the two
# sources as which it is listed.
FURTHER_READINGS = 3
NO_SUCH_BEGINNING = "no scenario lets a camera come back with its power kept, or an earlier error stand"
_LONGEST_NAME = 120
# Camera and number of the update that the stage is set for.
_FIRST = (0, 1)


def write_scenario(trial: TrialId, fields: Line, updates: Sequence[ToldUpdate], why: str, folder: Path) -> Path:
    """The scenario's file, named for the trial, and for what went wrong in it. `fields` and `updates` are those that the
    campaign's program tells of it. ScenarioError for a trial that no scenario can say."""
    if trial.circumstances:
        raise ScenarioError(NO_SUCH_BEGINNING)
    first = _faults(fields, updates[0]) if updates else []
    content = {
        "description": f"The trial {trial} of scripts/faults{': ' if why else ''}{why}.",
        "not on usb": "the cameras' faults are changed while they are in use",
        "stage": {
            "cameras": [{**fields["cameras"][0], "faults": first}, *fields["cameras"][1:]],
            "image": _image(fields, 1),
        },
        "steps": [step for update in updates for step in _steps(fields, update)],
    }
    return write_scenario_file(content, _name(trial, why), folder)


def _name(trial: TrialId, why: str) -> str:
    """No two trials have the same."""
    words = re.sub("[^a-z0-9]+", "-", (why.partition(": ")[2] or why).lower()).strip("-")[:_LONGEST_NAME]
    whole = str(trial)
    if len(whole) > _LONGEST_NAME:
        whole = f"{trial.kind}.{hashlib.sha256(whole.encode()).hexdigest()[:32]}"
    return f"{words}.{whole}" if words else whole


def _image(fields: Line, update: int) -> dict[str, Any]:
    content = fields["updates"][update - 1]["image"]
    return {"size": len(content) // 2, "bytes": content}


def _faults(fields: Line, update: ToldUpdate) -> list[dict[str, Any]]:
    if update.camera:
        return []
    faults = [_fault(fault, update) for fault in fields["updates"][update.number - 1]["faults"]]
    return [fault for fault in faults if fault]


def _fault(fault: dict[str, Any], update: ToldUpdate) -> dict[str, Any]:
    """At the place at which it struck; empty when that is one to which the service does not come here."""
    event = {"COMMAND-WRITE": "firmware-command", "COMMAND-READ": "firmware-reply"}.get(fault["where"])
    if event is None:
        return fault
    # Behind the attempts of the first reading, of which only the last succeeds, come the others.
    attempts = sum(line.startswith(event) for line in update.reading)
    if fault["skip"] < attempts:
        return fault
    return {**fault, "skip": fault["skip"] + FURTHER_READINGS} if update.is_accepted else {}


def _steps(fields: Line, update: ToldUpdate) -> Iterator[Any]:
    faults = _faults(fields, update)
    camera = fields["cameras"][update.camera]
    is_broken = update.next is not None
    if (update.camera, update.number) != _FIRST:  # for which the stage is set
        yield {"image": _image(fields, update.number)}
        yield {"faults": {"camera": update.camera, "list": faults}}
    # Where a broken rule kept the camera from being asked for, it has to be.
    if update.is_accepted or (is_broken and has_to_be_updated(update, camera, bool(faults))):
        yield {"accept": update.camera}
    else:
        yield from ({"plug": update.camera}, "settle")
    if is_broken:
        yield {"expect": mended(update, camera, bool(faults))}
    elif update.how:
        size = _image(fields, update.number)["size"]
        yield {"expect": expectation(update, camera, size, faults)}
    yield {"take away": update.camera}

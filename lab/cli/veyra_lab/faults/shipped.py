"""Trials of the campaign on the executable that ships, as scenarios under Wine."""

import re
from collections.abc import Iterable, Iterator, Sequence
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType

from ..checkout import BUILD
from ..runner.runner import ScenarioRunner
from ..scenarios.files import read_scenario
from ..windows.machine import Machine
from ..windows.programs import Programs
from ..wire.events import RIG, Event
from .program import fields_of, lines_of, replay
from .scenario import FURTHER_READINGS, NO_SUCH_BEGINNING, write_scenario
from .story import ToldUpdate, bus_lines, command_lines, read_story
from .trial_id import read_id

FOLDER = BUILD / "faults" / "replayed"
_RESTLESS = "stays-in-dfu-mode"
# A word of an id that says how an update begins.
_CIRCUMSTANCE = re.compile(r"\.[0-9]+[a-z](?=\.|$)")
# The opcode of the firmware command that reads the version.
READ_INFORMATION = 0x10


def why_left_out(trial: str) -> str:
    """Why a trial can be played on Linux only; empty when it can be played here."""
    if trial.startswith(f"{_RESTLESS}."):
        return f"{_RESTLESS} is back in DFU mode after DETACH, where the service meets it anew, for as long as anybody looks"
    return NO_SUCH_BEGINNING if _CIRCUMSTANCE.search(trial) else ""


@dataclass(frozen=True)
class ShippedEnd:
    """What became of a trial there."""

    complaints: Sequence[str]
    requests: int
    seconds: float
    scenario: Path
    # What service, toast controller and laboratory did.
    events: Sequence[Event]


class ShippedTrials:
    """One process of the service carries them all, unless one fails. Use it as a context, in a machine that is booted.
    MachineError, PeerError and ScenarioError come out of it."""

    def __init__(self, program: Path, machine: Machine, programs: Programs, transcript: Path | None = None) -> None:
        self._program = program
        self._runner = ScenarioRunner(machine, programs, transcript)

    def __enter__(self) -> "ShippedTrials":
        self._runner.__enter__()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self._runner.__exit__(kind, error, trace)

    def run(self, trial: str) -> ShippedEnd:
        """Plays a trial on Linux, and then there. ValueError for one that cannot be played there."""
        if why := why_left_out(trial):
            raise ValueError(f"{trial} can be played on Linux only: {why}")
        played = replay(self._program, trial)
        told = read_story(lines_of(played.transcript))
        path = write_scenario(read_id(trial), fields_of(self._program, trial), told, played.why, FOLDER)
        (variant,) = read_scenario(path)
        outcome = self._runner.run(variant)
        seen = _by_update(outcome.events)
        complaints = [*outcome.complaints, *_differences(told, seen)]
        return ShippedEnd(complaints, sum(len(bus_lines(events)) for events in seen), outcome.seconds, path, outcome.events)


def _by_update(events: Iterable[Event]) -> list[list[Event]]:
    """What the rig told, from each command that plugs a camera in to the next."""
    updates: list[list[Event]] = []
    for event in events:
        if event["event"] == "command" and event["command"] == "plug":
            updates.append([])
        elif event["source"] == RIG and updates:
            updates[-1].append(event)
    return updates


def _differences(told: Sequence[ToldUpdate], seen: Sequence[Sequence[Event]]) -> Iterator[str]:
    """The first difference of each update."""
    if len(told) != len(seen):
        yield f"{len(told)} updates on Linux, {len(seen)} here"
    for number, (update, events) in enumerate(zip(told, seen), 1):
        yield from _difference(f"update {number}: request", "in DFU mode: ", update.bus, bus_lines(events))
        commands = command_lines(events)
        expected = _expected_commands(update)
        yield from _difference(f"update {number}: command", "", expected, commands[: len(expected)])
        # Whatever comes behind is the version, which the service reads of every running camera that arrives; not every
        # such camera answers.
        others = [line for line in commands[len(expected) :] if _asks_for_more_than_the_version(line)]
        yield from _difference(f"update {number}: further command", "", [], others)


def _asks_for_more_than_the_version(line: str) -> bool:
    return line.startswith("firmware-command ") and f"opcode={READ_INFORMATION} " not in line


def _difference(what: str, place: str, here: Sequence[str], there: Sequence[str]) -> Iterator[str]:
    for number, (one, other) in enumerate(zip(here, there), 1):
        if one != other:
            yield f"{what} {number} {place}on Linux {one}, here {other}"
            return
    if len(here) != len(there):
        longer = (here if len(here) > len(there) else there)[min(len(here), len(there))]
        yield f"{what}s {place}{len(here)} on Linux, {len(there)} here; the first that is not on both sides: {longer}"


def _expected_commands(update: ToldUpdate) -> Sequence[str]:
    """A version that was read is read again, at once: of the camera's other source, and at its other arrival."""
    switch = update.commands[len(update.reading) :]
    return [*update.reading, *(list(update.reading[-2:]) * FURTHER_READINGS if switch else ()), *switch]

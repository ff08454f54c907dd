"""Trials of the campaign on the executable that ships, as scenarios under Wine."""

from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType

from ..checkout import BUILD
from ..runner.runner import ScenarioRunner
from ..scenarios.files import read_scenario
from ..windows.machine import Machine
from ..windows.programs import Programs
from ..wire.events import RIG
from .program import lines_of, replay
from .scenario import write_scenario
from .story import ToldUpdate, bus_lines, read_story
from .trial_id import read_id

FOLDER = BUILD / "faults" / "replayed"
# After DETACH it is back in DFU mode, where the service meets it anew, for as long as anybody looks.
RESTLESS = "stays-in-dfu-mode"


@dataclass(frozen=True)
class ShippedEnd:
    """What became of a trial there."""

    complaints: Sequence[str]
    requests: int
    seconds: float
    scenario: Path


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
        if read_id(trial).kind == RESTLESS:
            raise ValueError(f"{trial}: this camera restarts for ever, so its trials can be played on Linux only")
        played = replay(self._program, trial)
        told = read_story(lines_of(played.transcript))
        path = write_scenario(read_id(trial), told, played.why, FOLDER)
        (variant,) = read_scenario(path)
        mark = len(self._runner.events())
        outcome = self._runner.run(variant)
        seen = bus_lines(event for event in self._runner.events()[mark:] if event["source"] == RIG)
        complaints = [*outcome.complaints, *_differences(told, seen)]
        return ShippedEnd(complaints, len(seen), outcome.seconds, path)


def _differences(told: Sequence[ToldUpdate], seen: Sequence[str]) -> list[str]:
    expected = [line for update in told for line in update.bus]
    for number, (here, there) in enumerate(zip(expected, seen), 1):
        if here != there:
            return [f"request {number} in DFU mode: on Linux {here}, here {there}"]
    if len(expected) != len(seen):
        return [f"{len(expected)} requests in DFU mode on Linux, {len(seen)} here"]
    return []

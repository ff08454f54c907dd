"""What is told of an input that breaks a target's promises: its id, the smallest that does the same, and the scenario."""

from collections.abc import Iterator
from pathlib import Path

from ..faults.program import built, fields_of, lines_of, replay
from ..faults.scenario import write_scenario
from ..faults.shrink import shrink
from ..faults.story import read_story
from ..faults.trial_id import read_id
from ..runner.scenario_id import WRITTEN, id_of_file
from ..scenarios.errors import ScenarioError
from .input_id import FuzzInput
from .road import find_trial
from .smaller import make_smaller
from .target_run import play

_CONVERSATION, _TRIAL = "conversation", "trial"


def tell_find(given: FuzzInput) -> Iterator[str]:
    """A line each."""
    run = play(given.keep())
    yield f"  find: {given}"
    yield f"    again: scripts/lab replay {given}"
    if not run.why:
        yield "    it holds when it is played alone"
        return
    yield f"    {run.why}"
    trials = [str(line["trial"]) for line in run.told if "trial" in line]
    if given.target == _TRIAL and trials:
        yield f"    as a trial: {trials[0]}"
        smallest_trial, why = shrink(built(), trials[0])
        if why:
            yield from _tell_trial(smallest_trial, why, run.why)
            return
        yield "    it holds as a trial"
    smallest, why = make_smaller(given)
    yield f"    smallest: {smallest.keep()} ({len(smallest.content)} bytes): {why}"
    if given.target == _CONVERSATION:
        trial, why = find_trial(built(), play(smallest).told)
        if trial:
            yield from _tell_trial(trial, why, run.why)
            return
        yield "    no scenario: no camera on the service's road answers so, or the engine's callers keep it from mattering"
    elif given.target == _TRIAL:
        yield "    no scenario: alone the trial goes right"
    else:
        yield f"    no scenario: the input goes to one reader alone ({given.target}), and is no road of the service"


def _tell_trial(trial: str, why: str, of_the_input: str) -> Iterator[str]:
    yield f"    smallest trial: {trial}: {len(read_id(trial).faults)} faults: {why}"
    if why not in of_the_input:
        yield "      other words than the input's: look whether it is the same thing"
    yield f"    again: scripts/lab replay {trial} --on linux"
    try:
        told = read_story(lines_of(replay(built(), trial).transcript))
        path: Path = write_scenario(read_id(trial), fields_of(built(), trial), told, why, WRITTEN)
    except (ValueError, ScenarioError) as error:
        yield f"    no scenario: {error}"
        return
    yield f"    scenario: {path} ({id_of_file(path)})"

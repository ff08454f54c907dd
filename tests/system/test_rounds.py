"""Rounds of scripts/soak and rows of scripts/lab traits: what is known of one that fails, how it is played alone, and how it
becomes a scenario. Stand-ins play; nothing is started."""

import json
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any
from unittest.mock import MagicMock, Mock

import pytest
from veyra_lab.replay.on_windows import of_kind, of_round
from veyra_lab.runner.runner import Outcome
from veyra_lab.runner.scenario_id import id_of_file
from veyra_lab.scenarios.files import read_scenario
from veyra_lab.scenarios.schema import SCENARIOS
from veyra_lab.scenarios.variant import Variant
from veyra_lab.soak.plan import RoundId, plan_of
from veyra_lab.soak.replaying import made_small
from veyra_lab.soak.soak import Soak, Wrong
from veyra_lab.traits.kinds import kinds
from veyra_lab.traits.trials import TrialError, Trials
from veyra_lab.wire.events import Event, PeerError

_STEP: Event = {"event": "step", "source": "lab", "text": "steps[0]: accept"}
_FLASH = "flash of camera 0: expected the image, seen 512 bytes of which the first 40 are the image's"


def round_with(fault: str, is_real_time: bool = False) -> RoundId:
    """The first round of a seed with this fault."""
    rounds = (RoundId(3, number, is_real_time) for number in range(1, 999))
    return next(each for each in rounds if plan_of(each).fault == fault)


class StandInRun:
    """The steps of a round, of which the service dies."""

    def __init__(self, _variant: Variant, _installed: object, _complaints: list[str]) -> None:
        pass

    def carry_out(self) -> None:
        """The first one."""
        raise PeerError("the rig went away over state")

    def events(self) -> list[Event]:
        """As far as it came."""
        return [_STEP]


def test_what_a_round_did_is_known_though_the_service_died_of_it(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr("veyra_lab.soak.soak.ScenarioRun", StandInRun)
    installed = Mock()
    installed.peer.breaches.return_value = []
    installed.peer.events_since.return_value = []
    installed.service.is_alive.return_value = False
    soak = Soak(installed, 42)
    soak.events = [{"event": "step", "source": "lab", "text": "of the round before"}]
    with pytest.raises(PeerError):
        soak.round()
    assert soak.events == [_STEP]
    (wrong,) = soak.tally.wrong
    assert wrong.complaints == ("the service died: the rig went away over state",)


def test_what_a_row_of_traits_did_is_known_though_it_failed(monkeypatch: pytest.MonkeyPatch) -> None:
    def fail(*_: object) -> None:
        raise TrialError("it did not come to DFU mode")

    monkeypatch.setattr(Trials, "_accept", fail)
    service = Mock()
    service.peer.events_since.return_value = [_STEP]
    opened = MagicMock()
    opened.return_value.__enter__.return_value = service
    monkeypatch.setattr("veyra_lab.replay.on_windows.installed", opened)
    with of_kind(kinds()[0], "traits.1.0123456789")(Mock(), Mock(), None) as play:
        end = play()
    assert end.complaints == ["traits.1.0123456789: it did not come to DFU mode"]
    assert end.transcript == ['lab: {"event": "step", "source": "lab", "text": "steps[0]: accept"}']


class StandInRunner:
    """Plays scenarios as told; one process carries them until one fails."""

    def __init__(self, complaints: Callable[[Variant], Sequence[str]]) -> None:
        self._complaints = complaints
        self.settling_limit = 0.0
        self.played: list[tuple[str, str, float]] = []

    def __call__(self, *_: object, **__: object) -> "StandInRunner":
        return self

    def __enter__(self) -> "StandInRunner":
        return self

    def __exit__(self, *_: object) -> None:
        pass

    def run(self, variant: Variant, id_: str = "") -> Outcome:
        """As the runner does."""
        self.played.append((variant.name, id_, self.settling_limit))
        return Outcome(variant.name, id_, list(self._complaints(variant)), events=[_STEP])


@pytest.mark.parametrize(("is_real_time", "limit"), [(False, 10), (True, 120)])
def test_a_round_that_ends_the_service_can_be_played_again(
    is_real_time: bool, limit: float, monkeypatch: pytest.MonkeyPatch
) -> None:
    runner = StandInRunner(lambda variant: ["steps[0]: the rig went away over state"])
    monkeypatch.setattr("veyra_lab.replay.on_windows.ScenarioRunner", runner)
    some = round_with("no fault", is_real_time)
    with of_round(some)(Mock(), Mock(), None) as play:
        ends = [play(), play()]
    assert [end.complaints for end in ends] == [["steps[0]: the rig went away over state"]] * 2
    assert [len(end.transcript) for end in ends] == [1, 1]
    assert runner.played == [(str(some), str(some), limit)] * 2
    assert ends[0].said.startswith("no fault, in ")


def made(
    wrong: Sequence[Wrong], complaints: Callable[[Variant], Sequence[str]], folder: Path, monkeypatch: pytest.MonkeyPatch
) -> tuple[list[str], StandInRunner]:
    """What is told of rounds that failed, and who played them alone."""
    runner = StandInRunner(complaints)
    monkeypatch.setattr("veyra_lab.soak.replaying.ScenarioRunner", runner)
    monkeypatch.setattr("veyra_lab.soak.replaying.WRITTEN", folder)
    return list(made_small(Mock(), Mock(), wrong)), runner


def keeps_its_old_flash(variant: Variant) -> Sequence[str]:
    """As if no image came whole to the first camera, where one has to come."""
    expected: list[Any] = [step["expect"] for step in variant.steps if "expect" in step]
    return [f"steps[1]: {_FLASH}"] if "'flash': 'image'" in str(expected) else []


def test_a_round_that_failed_becomes_a_scenario_that_fails_so(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    some = round_with("no fault")
    wrong = Wrong(some, "no fault", (f"steps[0]: {_FLASH}",))
    lines, runner = made([wrong], keeps_its_old_flash, tmp_path, monkeypatch)
    (path,) = tmp_path.iterdir()
    assert lines == [f"smallest: {id_of_file(path)}", f"  scenario: {path}"]
    schema = json.loads(path.read_text(encoding="utf-8"))["$schema"]
    assert (tmp_path / schema).resolve() == SCENARIOS / "scenario.schema.json"
    (variant,) = read_scenario(path)
    assert [next(iter(step)) for step in variant.steps] == ["accept", "expect"]
    assert keeps_its_old_flash(variant) == [f"steps[1]: {_FLASH}"]
    assert {limit for _, _, limit in runner.played} == {10.0}


def test_a_round_that_fails_otherwise_alone_is_told_so(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    some = round_with("no fault", is_real_time=True)
    wrong = Wrong(some, "no fault", ("the service died: the rig went away over state",))
    lines, runner = made([wrong], keeps_its_old_flash, tmp_path, monkeypatch)
    assert lines[0] == f"fails otherwise alone: {some}: flash: expected the image"
    assert lines[1].startswith("smallest: scenario.soak-no-fault-flash-expected-the-image-")
    assert {limit for _, _, limit in runner.played} == {120.0}


def test_the_death_of_the_service_has_the_same_words_alone(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    wrong = Wrong(round_with("no fault"), "no fault", ("the service died: the rig went away over state",))
    lines, _ = made([wrong], lambda variant: ["steps[4]: the rig went away over state"], tmp_path, monkeypatch)
    assert [line.partition(":")[0] for line in lines] == ["smallest", "  scenario"]


def always(complaints: Sequence[str]) -> Callable[[Variant], Sequence[str]]:
    """Whatever is played, these do not hold."""
    return lambda variant: complaints


def test_no_two_failures_have_the_same_file(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    some = round_with("unplugged while the user is asked")
    for words in ("the first", "the second"):
        complaints = [f"{'a complaint that goes on and on, ' * 5}{words}"]
        made([Wrong(some, "it", tuple(complaints))], always(complaints), tmp_path, monkeypatch)
    assert len(list(tmp_path.iterdir())) == 2


def test_a_round_that_holds_alone_is_told_so(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    some = round_with("no fault")
    lines, _ = made([Wrong(some, "no fault", ("late",))], lambda variant: [], tmp_path, monkeypatch)
    assert lines == [f"cannot be made smaller: {some} holds when it is played alone, in a new process of the service"]
    assert list(tmp_path.iterdir()) == []

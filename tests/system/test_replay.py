"""scripts/lab replay, on the executable that ships and on Linux: the same transcript each time. The thousand is
`scripts/lab replay ID --times 1000`; here it is a few times of each kind of id."""

from collections.abc import Sequence

import pytest
from support import BUILD, CHECKOUT, run_script, slow, the_machine
from veyra_lab.again.transcript import comparable
from veyra_lab.fuzz.input_id import FuzzInput
from veyra_lab.replay.on_windows import Opening, of_kind, of_round, of_trial, scenario_opening
from veyra_lab.replay.play import Play, play_again
from veyra_lab.runner.scenario_id import id_of
from veyra_lab.scenarios.files import read_named
from veyra_lab.scenarios.schema import SCENARIOS
from veyra_lab.soak.plan import RoundId, plan_of
from veyra_lab.soak.replaying import soaking
from veyra_lab.traits.kinds import kinds
from veyra_lab.traits.trial_id import id_of as id_of_kind
from veyra_lab.windows.programs import Programs

_TIMES = 5


def scenario(name: str) -> Opening:
    """What plays a scenario, by its id."""
    (variant,) = read_named(SCENARIOS, [name])
    return scenario_opening(str(id_of(variant, "virtual")))


def first_round(fault: str) -> RoundId:
    """The first round of a seed with this fault."""
    rounds = (RoundId(42, number) for number in range(1, 999))
    return next(each for each in rounds if plan_of(each).fault == fault)


def play(opening: Opening, times: int) -> Play:
    """So many times, in the machine."""
    with opening(the_machine(), Programs.of(BUILD), None) as once:
        return play_again("a test", once, times - 1, lambda number: None)


@pytest.mark.parametrize(
    "name",
    ["declined-and-then-accepted", "unplug-in-dfu-mode/middle-block", "one-update-in-full", "status-fails-now-and-then/stall"],
)
def test_a_scenario_goes_the_same_way_each_time(name: str) -> None:
    end = play(scenario(name), _TIMES)
    assert end.complaints == []
    assert len(end.transcript) > 100


def test_of_what_goes_on_at_once_the_end_is_compared_alone() -> None:
    end = play(scenario("two-cameras"), 2)
    assert (end.complaints, end.transcript) == ([], [])
    assert "; its transcript has no fixed order: two commands plug two cameras in" in end.said


@pytest.mark.parametrize("fault", ["no fault", "unplugged after a block", "switch refused", "toast controller fails"])
def test_a_round_of_the_soak_goes_the_same_way_each_time(fault: str) -> None:
    end = play(of_round(first_round(fault)), _TIMES)
    assert end.complaints == []
    assert end.said.startswith(f"{fault}, in ")


def test_a_round_goes_the_same_way_alone_and_behind_others() -> None:
    alone, behind = [], []
    with soaking(the_machine(), Programs.of(BUILD), 42) as soak:
        soak.play(RoundId(42, 5))
        alone = comparable(soak.events)
    with soaking(the_machine(), Programs.of(BUILD), 42) as soak:
        for _ in range(5):
            soak.round()
        behind = comparable(soak.events)
    assert alone == behind
    assert soak.tally.wrong == []


@pytest.mark.parametrize("number", [1, 3])
def test_a_row_of_traits_goes_the_same_way_each_time(number: int) -> None:
    kind = kinds()[number - 1]
    assert play(of_kind(kind, id_of_kind(number, kind)), _TIMES).complaints == []


def test_a_trial_goes_the_same_way_each_time() -> None:
    end = play(of_trial("kv400.2500x1.1gs3-time-after"), _TIMES)
    assert end.complaints == []
    assert end.said.startswith("43 requests in DFU mode, ")


def replay(*arguments: str) -> tuple[int, Sequence[str], str]:
    """As a person does it: status, lines, errors."""
    done = run_script(str(CHECKOUT / "scripts" / "lab"), "replay", *arguments, timeout=1200)
    return done.returncode, done.stdout.splitlines(), done.stderr


@slow
@pytest.mark.parametrize(
    "name", ["conversation/whole_update", "conversation/status_transfers_that_fail", "device_path/two_tails"]
)
def test_an_input_of_a_fuzz_target_goes_the_same_way_each_time(name: str) -> None:
    content = (CHECKOUT / "host" / "fuzz" / "corpus" / name).read_bytes()
    given = FuzzInput(name.partition("/")[0], content).keep()
    status, lines, errors = replay(str(given), "--times", "20")
    assert status == 0, errors
    assert lines[-1].endswith(f"{len(content)} bytes for {given.target}, and 20 times more the same")


@slow
def test_a_trial_is_played_on_linux() -> None:
    status, lines, errors = replay("kv400.402x1.1dn0-pull", "--on", "linux", "--times", "1000")
    assert status == 0, errors
    assert lines[-1] == '{"event":"judgement","held":true,"why":""}'

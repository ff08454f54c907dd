"""scripts/soak --year: how the year goes by, what of the service's process may grow, and a whole one on the
executable that ships."""

import io
from collections.abc import Callable
from pathlib import Path
from unittest.mock import Mock

import pytest
from support import BUILD, Run, check_refusal, run_script, slow
from veyra_lab.soak import __main__ as soak
from veyra_lab.soak.plan import RoundId, is_seed, plan_of, read_id
from veyra_lab.soak.soak import Tally
from veyra_lab.soak.year import Year
from veyra_lab.terminal.screen import Screen
from veyra_lab.windows.service_under_test import Resources
from veyra_lab.wire.events import Event

_HOUR = 60 * 60
_SECONDS = 365 * 24 * _HOUR
_WARM_UP = 200


class StandIn:
    """A service that is told to hold anything, and cameras that only come and go, each with an hour of rest."""

    def __init__(self, cameras: int, held: Callable[[int], Resources], sleeps: int = 1) -> None:
        self.rests: list[int] = []
        self.rounds = 0
        self._sleeps = sleeps
        self._held = held
        service = Mock()
        service.resources.side_effect = lambda: held(self.rounds)
        service.resources_once.side_effect = self._once
        peer = Mock()
        peer.command.side_effect = self._rest
        self._soak = Mock(tally=Tally(), round=self._round, service=service, peer=peer)
        self.year = Year(self._soak, 7, cameras)

    def go(self) -> list[str]:
        """What is wrong behind the year."""
        self.year.go(Screen(io.StringIO()))
        return list(self.year.complaints())

    def _once(self, fit: Callable[[Resources], bool]) -> Resources:
        """What is held at the last of a hundred looks, when no one before fits."""
        looks = (self._held(self.rounds) for _ in range(100))
        return next((held for held in looks if fit(held)), self._held(self.rounds))

    def _rest(self, _source: str, command: str, *, quiet: float, ms: int) -> Event:
        assert (command, quiet > 0) == ("rest", True)
        self.rests.append(ms)
        return {"sleeps": self._sleeps * ms // 1000}

    def _round(self) -> None:
        self.rounds += 1
        self._soak.tally.removals += 2
        rest = {"event": "rest", "ms": _HOUR * 1000, "sleeps": self._sleeps * _HOUR}
        self._soak.events = [{"event": "step"}, rest]


def test_a_year_is_rest_to_the_millisecond_and_every_camera_comes() -> None:
    stand_in = StandIn(100, lambda n: Resources(100 + 8 * n, 12, 40_000))
    assert stand_in.go() == []
    assert sum(stand_in.rests) + 100 * _HOUR * 1000 == _SECONDS * 1000
    assert stand_in.rounds == _WARM_UP + 100
    whens = [look.when for look in stand_in.year.looks]
    assert whens[:2] == ["start", "warmed up"] and whens[-1] == "end"
    assert 10 <= len(whens) <= 15


def test_the_same_seed_gives_the_same_year() -> None:
    first, second = (StandIn(50, lambda n: Resources(100 + 8 * n, 12, 40_000)) for _ in range(2))
    assert first.go() == second.go()
    assert first.rests == second.rests


@pytest.mark.parametrize(
    ("held", "complaint"),
    [
        (lambda n: Resources(100 + 8 * n + n // 100, 12, 40_000), "10 handles more than it should"),
        (lambda n: Resources(100 + 9 * n, 12, 40_000), "1000 handles more than it should"),
        (lambda n: Resources(100 + 8 * n, 12 + n // 500, 40_000 + 3072 * (n // 500)), "2 threads more than it should"),
        (lambda n: Resources(100 + 8 * n, 12, 40_000 + n), "1000 private KiB more than it should"),
        (lambda n: Resources(100 + 8 * n, 12 - n // 900, 40_000 + n - 3072 * (n // 900)), "1000 private KiB more"),
    ],
    ids=["a handle at every hundredth camera", "a handle at each", "threads", "memory", "memory, and a thread goes"],
)
def test_tells_what_grows(held: Callable[[int], Resources], complaint: str) -> None:
    (said,) = StandIn(1000, held).go()
    assert complaint in said


def test_what_has_grown_in_the_warming_up_is_no_growth() -> None:
    def held(cameras: int) -> Resources:
        warm = cameras >= _WARM_UP
        return Resources(8 * cameras + (400 if warm else 100), 20 if warm else 9, 50_000 if warm else 30_000)

    assert StandIn(100, held).go() == []


def test_threads_that_leave_at_the_end_of_the_warming_up_are_waited_for() -> None:
    """A leaving thread is still counted when its stacks are gone: less memory would then be taken for what is held."""
    looks = iter([14, 14, 12, 13, *[12] * 200])

    def held(cameras: int) -> Resources:
        threads = next(looks) if cameras == _WARM_UP else 12
        return Resources(100 + 8 * cameras, threads, 43_176)

    stand_in = StandIn(100, held)
    assert stand_in.go() == []
    assert stand_in.year.looks[1].held.threads == 12


def test_tells_that_the_service_has_not_slept() -> None:
    (said,) = StandIn(10, lambda n: Resources(100 + 8 * n, 12, 40_000), sleeps=0).go()
    assert said == f"the service slept 0 times, and rested for {_SECONDS + _WARM_UP * _HOUR} seconds"


@pytest.mark.parametrize(
    ("arguments", "because"),
    [
        ((), "for how many MINUTES"),
        (("5", "--year"), "one of MINUTES, --rounds and --year"),
        (("5", "--rounds", "5"), "one of MINUTES, --rounds and --year"),
        (("--rounds", "5", "--year"), "one of MINUTES, --rounds and --year"),
        (("--rounds", "0"), "'0' is not a number of rounds"),
        (("--rounds", "1" * 10), "is not a number of rounds, of at most 9 digits"),
        (("--year", "--real-time"), "a year in real time takes a year"),
        (("5", "--cameras", "3"), "--cameras goes with --year"),
        (("--year", "--cameras", "0"), "'0' is not a number of cameras"),
        (("--year", "--cameras", "4001"), "'4001' is not a number of cameras"),
        (("--year", "--seed", "x"), "'x' is not a whole number"),
        (("5", "--seed", "1" * 19), "is not a whole number from 0 on, of at most 18 digits"),
    ],
)
def test_refuses_what_makes_no_sense(run: Run, arguments: tuple[str, ...], because: str) -> None:
    check_refusal(run(soak.main, *arguments), because)


def test_ids_say_every_seed_that_can_be_chosen() -> None:
    assert is_seed("9" * 18)
    assert read_id(f"soak.{'9' * 18}.1").seed == 10**18 - 1
    assert not is_seed("9" * 19)
    assert not is_seed("\u0663")


def test_a_round_of_a_year_follows_from_its_id() -> None:
    plans = [plan_of(RoundId(3, number, is_of_a_year=True)) for number in range(1, 301)]
    assert str(plans[16].id) == "soak.3.17.year"
    assert read_id("soak.3.17.year") == plans[16].id
    assert plans == [plan_of(plan.id) for plan in plans]
    assert 40 <= sum(plan.rest_asked > 0 for plan in plans) <= 80
    assert 40 <= sum(plan.rest_there > 0 for plan in plans) <= 80
    current = [plan for plan in plans if plan.fault == "up to date"]
    assert 15 <= len(current) <= 45
    for plan in current:
        assert plan.image["version"] == plan.cameras[plan.chosen]["version"]
        assert not any("accept" in step or "answer" in step for step in plan.content()["steps"])
    for plan in plans:
        rests = [step["rest"] for step in plan.content()["steps"] if "rest" in step]
        assert rests == [ms for ms in (plan.rest_asked, plan.rest_there) if ms]


@slow
def test_a_year_with_a_thousand_cameras_takes_ten_minutes_at_most(tmp_path: Path) -> None:
    places = ("--programs", str(BUILD), "--machine", str(tmp_path / "wine"))
    done = run_script("soak", "--year", "--seed", "1", *places, timeout=600)
    assert (done.returncode, done.stderr) == (0, ""), done.stdout
    assert done.stdout.endswith("nothing wrong\n")

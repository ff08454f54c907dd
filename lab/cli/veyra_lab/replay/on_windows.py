"""What can be played on the executable that ships, in a machine that is booted."""

from collections.abc import Callable, Iterator
from contextlib import AbstractContextManager, contextmanager
from pathlib import Path

from ..again.transcript import comparable
from ..buses.virtual import VirtualBus
from ..faults.program import built as built_campaign
from ..faults.program import replay as replay_on_linux
from ..faults.shipped import ShippedTrials
from ..runner.installed_service import installed
from ..runner.runner import ScenarioRunner
from ..runner.scenario_id import find, find_in, read_id
from ..scenarios.variant import Variant
from ..soak.plan import RoundId, plan_of
from ..soak.soak import settling_limit
from ..traits.kinds import Kind
from ..traits.trials import TrialError, Trials
from ..windows.machine import Machine
from ..windows.programs import Programs
from .play import Play

Player = Callable[[], Play]
# Opens what plays an id, in the machine and with the programs; the last is where the transcript goes.
Opening = Callable[[Machine, Programs, Path | None], AbstractContextManager[Player]]


def of_scenario(variant: Variant, bus: str = VirtualBus.name) -> Opening:
    """A scenario; one process of the service carries all plays that it can. Of one that sets two things going at once only
    the end is compared."""

    @contextmanager
    def opening(machine: Machine, programs: Programs, transcript: Path | None) -> Iterator[Player]:
        with ScenarioRunner(machine, programs, transcript, bus=bus) as runner:

            def play() -> Play:
                outcome = runner.run(variant)
                said = f"{outcome.name}, in {outcome.seconds:.1f} s"
                if variant.at_once:
                    return Play(outcome.complaints, [], f"{said}; its transcript has no fixed order: {variant.at_once}")
                return Play(outcome.complaints, comparable(outcome.events), said)

            yield play

    return opening


def of_round(id_: RoundId) -> Opening:
    """A round of scripts/soak, alone: also one that ends the service can be played again."""
    plan = plan_of(id_)

    @contextmanager
    def opening(machine: Machine, programs: Programs, transcript: Path | None) -> Iterator[Player]:
        with ScenarioRunner(machine, programs, transcript) as runner:
            runner.settling_limit = settling_limit(id_.is_real_time)

            def play() -> Play:
                outcome = runner.run(plan.variant(), str(id_))
                return Play(outcome.complaints, comparable(outcome.events), f"{plan.fault}, in {outcome.seconds:.1f} s")

            yield play

    return opening


def of_kind(kind: Kind, id_: str) -> Opening:
    """A kind of boot loader, and the faultless camera behind it."""

    @contextmanager
    def opening(machine: Machine, programs: Programs, transcript: Path | None) -> Iterator[Player]:
        with installed(machine, programs, transcript) as service:
            trials = Trials(service)

            def play() -> Play:
                try:
                    attempt, flash = trials.run(kind, id_)
                except TrialError as error:
                    return Play([str(error)], comparable(trials.events), kind.words)
                return Play([], comparable(trials.events), f"{attempt.result} at {attempt.ended}, flash: {flash}")

            yield play

    return opening


def of_trial(trial: str) -> Opening:
    """A trial of the campaign, which has to go there as it goes on Linux. ValueError for one that cannot be played."""
    program = built_campaign()
    on_linux = replay_on_linux(program, trial)
    # Of one that holds it is that not all of its faults struck.
    unmet = on_linux.said.strip() if on_linux.status == 0 else ""

    @contextmanager
    def opening(machine: Machine, programs: Programs, transcript: Path | None) -> Iterator[Player]:
        with ShippedTrials(program, machine, programs, transcript) as trials:

            def play() -> Play:
                end = trials.run(trial)
                said = f"{end.requests} requests in DFU mode, in {end.seconds:.1f} s, as {end.scenario}"
                said += f"; {unmet}" if unmet else ""
                return Play(end.complaints, comparable(end.events), said)

            yield play

    return opening


def scenario_opening(id_: str, file: Path | None = None) -> Opening:
    """Of a scenario's id, in this file or else in those that the laboratory has. ValueError or ScenarioError when it cannot
    be played."""
    wanted = read_id(id_)
    return of_scenario(find_in(wanted, file) if file else find(wanted), wanted.bus)

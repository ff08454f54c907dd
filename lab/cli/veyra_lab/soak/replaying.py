"""A soak in a machine that is booted, and what failed in it made small."""

from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from pathlib import Path

from ..runner.installed_service import installed
from ..runner.runner import ScenarioRunner
from ..runner.scenario_id import WRITTEN, id_of_file
from ..scenarios.variant import Variant
from ..windows.machine import Machine
from ..windows.programs import Programs
from .smaller import make_smaller, same_words
from .soak import Soak, Wrong, settling_limit

_MOST_MADE_SMALL = 3


@contextmanager
def soaking(
    machine: Machine, programs: Programs, seed: int, transcript: Path | None = None, *,
    is_real_time: bool = False, is_of_a_year: bool = False,
) -> Iterator[Soak]:  # fmt: skip
    """One process of the service, started, and the rounds of that seed; afterwards everything is taken away again."""
    with installed(machine, programs, transcript) as service:
        service.peer.set_stage({"skip_waits": not is_real_time, "cameras": [{}]})
        service.service.start()
        yield Soak(service, seed, is_real_time=is_real_time, is_of_a_year=is_of_a_year)


def made_small(machine: Machine, programs: Programs, wrong: Sequence[Wrong]) -> Iterator[str]:
    """The rounds that failed, a few of them and each with words of its own, played as scenarios and made as small as they
    go; what came of it, a line each. One that fails otherwise alone is told so, and made small as it fails then."""
    by_reason = {(each.fault, same_words(list(each.complaints))): each for each in reversed(wrong)}
    with ScenarioRunner(machine, programs) as runner:

        def play(variant: Variant) -> list[str]:
            return runner.run(variant).complaints

        for each in list(by_reason.values())[:_MOST_MADE_SMALL]:
            runner.settling_limit = settling_limit(each.id.is_real_time)
            path, why = make_smaller(each.id, play, WRITTEN)
            if path is None:
                yield f"cannot be made smaller: {each.id} holds when it is played alone, in a new process of the service"
                continue
            if why != same_words(list(each.complaints)):
                yield f"fails otherwise alone: {each.id}: {why}"
            yield f"smallest: {id_of_file(path)}"
            yield f"  scenario: {path}"

"""Round after round against one service process."""

from collections import Counter
from dataclasses import dataclass, field

from ..judgement.always import judge_always
from ..judgement.growth import removals
from ..runner.installed_service import InstalledService
from ..runner.run import ScenarioRun
from ..scenarios.variant import Variant
from ..wire.events import RIG, TOAST, Event, PeerError
from .plan import HARMLESS, RoundId, plan_of

_SETTLING_LIMIT, _SETTLING_LIMIT_IN_REAL_TIME = 10.0, 120.0


def settling_limit(is_real_time: bool) -> float:
    """For so many seconds a step's end is waited for, when the service does not come to rest."""
    return _SETTLING_LIMIT_IN_REAL_TIME if is_real_time else _SETTLING_LIMIT


@dataclass(frozen=True)
class Wrong:
    """A round of which something did not hold."""

    id: RoundId
    fault: str
    complaints: tuple[str, ...]


@dataclass
class Tally:
    """What a soak has seen."""

    rounds: Counter[str] = field(default_factory=Counter)
    updated: int = 0
    wrong: list[Wrong] = field(default_factory=list)
    removals: int = 0


class Soak:
    """One service process, which runs, and the cameras that come and go."""

    def __init__(
        self, installed: InstalledService, seed: int, *, is_real_time: bool = False, is_of_a_year: bool = False
    ) -> None:
        self.peer = installed.peer
        self.service = installed.service
        self.tally = Tally()
        # What service, toast controller and laboratory did in the last round, as far as it came.
        self.events: list[Event] = []
        self._installed = installed
        self._seed = seed
        self._is_real_time = is_real_time
        self._is_of_a_year = is_of_a_year
        self._number = 0
        installed.settling_limit = settling_limit(is_real_time)

    @property
    def first(self) -> RoundId:
        """The first round's name."""
        return self._id(1)

    @property
    def last(self) -> RoundId:
        """That of the last one so far."""
        return self._id(self._number)

    def _id(self, number: int) -> RoundId:
        return RoundId(self._seed, number, self._is_real_time, self._is_of_a_year)

    def round(self) -> None:
        """The next one. PeerError when nothing can come behind it, and its complaint is in the tally then."""
        self._number += 1
        self.play(self.last)

    def play(self, id_: RoundId) -> None:
        """One camera from its arrival to its removal, with a fault or none."""
        plan = plan_of(id_)
        self.events = []
        self.peer.record("scenario", name=f"round {id_.number}", description=plan.fault, id=str(id_))
        since = self.peer.mark()
        complaints: list[str] = []
        try:
            self._go(plan.variant(), complaints)
        except PeerError as error:
            complaints.append(str(error) if self.service.is_alive() else f"the service died: {error}")
            raise
        finally:
            complaints += self.peer.breaches()
            self.peer.record("judgement", held=not complaints, complaints=complaints, id=str(id_))
            self.tally.removals += removals(self.peer.events_since(since))
            self.tally.rounds[plan.fault] += 1
            if complaints:
                self.tally.wrong.append(Wrong(id_, plan.fault, tuple(complaints)))
            else:
                self.tally.updated += plan.fault in HARMLESS

    def _go(self, variant: Variant, complaints: list[str]) -> None:
        self._installed.put_image(variant.stage.image)
        self.peer.command(RIG, "restage", stage={"cameras": list(variant.stage.cameras)})
        self.peer.command(TOAST, "behave")
        run = ScenarioRun(variant, self._installed, complaints)
        try:
            run.carry_out()
        finally:
            self.events = run.events()
        complaints += judge_always(self.events)

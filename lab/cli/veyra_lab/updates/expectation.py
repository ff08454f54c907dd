"""What an expectation is: a check of what an update left behind, with a name of its own."""

from collections.abc import Callable
from dataclasses import dataclass

from .plan import Foreseen
from .record import Record

Check = Callable[[Record], str]

# The outcomes in which the user is asked, in which he agrees, and in which nothing is done to the camera.
ASKED = (Foreseen.UPDATED, Foreseen.DECLINED, Foreseen.PROBE_REFUSED, Foreseen.BROKEN_OFF)
ACCEPTED = (Foreseen.UPDATED, Foreseen.PROBE_REFUSED, Foreseen.BROKEN_OFF)
LEFT_ALONE = (Foreseen.DECLINED, Foreseen.NOT_ASKED)


@dataclass(frozen=True)
class Expectation:
    """A check that says in words what is wrong; no words mean that it holds. It concerns only some outcomes."""

    name: str
    check: Check
    concerns: frozenset[Foreseen]


@dataclass(frozen=True)
class Verdict:
    """An expectation that was looked at."""

    name: str
    complaint: str

    @property
    def held(self) -> bool:
        return not self.complaint


class Expectations(list[Expectation]):
    """The expectations of one kind, in their order."""

    def expect(self, name: str, *concerns: Foreseen) -> Callable[[Check], Check]:
        """Makes a function an expectation, about every outcome unless some are named."""

        def add(check: Check) -> Check:
            self.append(Expectation(name, check, frozenset(concerns or Foreseen)))
            return check

        return add


def differ(what: str, wanted: object, seen: object) -> str:
    """A complaint unless both are the same."""
    return "" if wanted == seen else f"{what}: {wanted} was expected, {seen} was seen"

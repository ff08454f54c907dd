"""What stands at the top of the page: the colour, the sign, and the sentences that somebody reads who reads no more."""

from collections.abc import Sequence
from dataclasses import dataclass, field

from .outcome import Verdict
from .summary import Summary
from .verdicts import Judged

_SIGNS = {
    Verdict.UPDATED: ("good", "✓", "Updated"),
    Verdict.STOPPED: ("bad", "✕", "Failed"),
    Verdict.DECLINED: ("calm", "–", "Declined"),
    Verdict.NOT_ASKED: ("calm", "–", "Nothing to do"),
    Verdict.UNFINISHED: ("odd", "?", "Unfinished"),
    Verdict.UNCONFIRMED: ("odd", "!", "Updated, but not confirmed"),
}
_MOST_COMPLAINTS = 5


@dataclass(frozen=True)
class Top:
    """The kind is the colour's name. `complaints`: what did not hold, the first few."""

    kind: str
    sign: str
    word: str
    about: str
    headline: str
    reason: str
    complaints: list[str] = field(default_factory=list)


def top(summary: Summary) -> Top:
    """What was expected decides, where the transcript tells it: what held is never red, what failed never green."""
    kind, sign, word = _SIGNS[summary.verdict]
    headline, _, reason = summary.sentence.partition(": ")
    if summary.held is None:
        return Top(kind, sign, word, "", headline, reason)
    names = [each for each in summary.judged if each.name]
    about = f"scenario {names[0].name}" if len(names) == 1 else f"{len(names):,} scenarios" if names else ""
    if not summary.held:
        return Top("bad", "✕", "Failed: not everything held", about, headline, reason, _complaints(summary.judged))
    if kind == "good":
        return Top(kind, sign, word, about, headline, reason)
    if names:
        return Top("good", "✓", "Held: what happened was expected", about, headline, reason)
    return Top("calm", "–", word, about, headline, reason)


def _complaints(judged: Sequence[Judged]) -> list[str]:
    several = len(judged) > 1
    said = [
        f"{each.name}: {complaint}" if several else complaint
        for each in judged
        for complaint in [*each.unsaid, *(told for bad in each.expectations for told in bad.complaints)]
    ]
    return said[:_MOST_COMPLAINTS]

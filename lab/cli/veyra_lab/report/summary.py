"""What came of an update, in one sentence and in numbers."""

from dataclasses import dataclass
from typing import Any

from .download import Download
from .facts import Facts
from .outcome import Failure, Verdict, outcome
from .particulars import Particulars, particulars
from .problems import Problem, problems
from .transcript import Transcript
from .verdicts import Judged, judged_at, verdicts


@dataclass(frozen=True)
class Summary:
    """Times in seconds. A number that the transcript does not tell is None."""

    verdict: Verdict
    sentence: str
    failure: Failure | None
    problems: list[Problem]
    downloads: list[Download]
    # Every failure, of which `failure` is the first; the row of docs/operations.md that the whole is.
    failures: list[Failure]
    row: str
    judged: list[Judged]
    particulars: Particulars
    version_before: str
    version_after: str
    update_seconds: float | None
    record_seconds: float
    events: int
    cut_short: bool

    @property
    def held(self) -> bool | None:
        """Whether everything held that was expected; None when nothing was judged, or not all."""
        told = [each.held for each in self.judged]
        return None if not told else False if False in told else None if None in told else True

    @property
    def opens_at(self) -> Failure | None:
        """The failure that a reader looks for: the first that nobody expected, or else the first."""
        unexpected = [failure for failure in self.failures if not self.held_at(failure.t)]
        return next(iter([*unexpected, *self.failures]), None)

    def held_at(self, t: float) -> bool | None:
        """Whether what a time belongs to held; None where nothing was judged."""
        judged = judged_at(self.judged, t)
        return judged.held if judged else None

    def again_at(self, t: float) -> str:
        """The id by which scripts/lab replay plays what a time belongs to; empty when it has none."""
        judged = judged_at(self.judged, t)
        return judged.id if judged else ""

    @property
    def again(self) -> str:
        """The id of what did not hold, the first, or else of that in which something failed; empty when it has none."""
        broken = next((each.id for each in self.judged if each.held is False), "")
        return broken or (self.again_at(self.failure.t) if self.failure else "")

    @property
    def transfers(self) -> int:
        return sum(len(download.transfers) for download in self.downloads)

    @property
    def bytes_sent(self) -> int:
        return sum(download.bytes_sent for download in self.downloads)

    @property
    def blocks_confirmed(self) -> int:
        return sum(download.confirmed for download in self.downloads)

    @property
    def waits(self) -> int:
        return sum(download.waits for download in self.downloads)

    @property
    def wait_seconds(self) -> float:
        return sum(download.wait_seconds for download in self.downloads)

    @property
    def download_seconds(self) -> float:
        return sum(download.last - download.began for download in self.downloads)

    def as_json(self) -> dict[str, Any]:
        """The form for scripts."""
        failure = self.failure
        return {
            "outcome": self.verdict.value,
            "sentence": self.sentence,
            "row": self.row or None,
            "held": self.held,
            "failure": None
            if failure is None
            else {
                "t": round(failure.t, 6),
                "why": failure.why,
                "block": failure.block,
                "blocks": failure.blocks,
                "code": failure.code.number if failure.code else None,
                "name": failure.code.name or None if failure.code else None,
                "meaning": failure.code.meaning or None if failure.code else None,
            },
            "problems": [{"t": round(problem.t, 6), "text": problem.text} for problem in self.problems],
            "version_before": self.version_before or None,
            "version_after": self.version_after or None,
            "seconds": {
                "update": None if self.update_seconds is None else round(self.update_seconds, 3),
                "download": round(self.download_seconds, 3),
                "waiting": round(self.wait_seconds, 3),
                "record": round(self.record_seconds, 3),
            },
            "downloads": len(self.downloads),
            "transfers": self.transfers,
            "bytes": self.bytes_sent,
            "blocks": self.blocks_confirmed,
            "waits": self.waits,
            "events": self.events,
            "again": self.again or None,
            "cut_short": self.cut_short,
        }


def summarize(transcript: Transcript) -> Summary:
    """The whole of it."""
    events = transcript.events
    facts = Facts(events)
    found = outcome(facts)
    judged = verdicts(events)
    return Summary(
        verdict=found.verdict,
        sentence=found.sentence,
        failure=found.failure,
        problems=problems(events),
        downloads=facts.downloads,
        failures=list(found.failures),
        row=found.row,
        judged=judged,
        particulars=particulars(events),
        version_before=facts.version_before,
        version_after=facts.version_after,
        update_seconds=facts.update_seconds(),
        record_seconds=events[-1]["t"] - events[0]["t"],
        events=len(events),
        cut_short=transcript.cut_short,
    )

"""The demo's last sentence: what came of it, and where to read more."""

from collections.abc import Sequence
from pathlib import Path

from ..report.summary import Summary, Verdict
from ..updates import expectation
from ..updates.record import Record
from ..windows.image import sha256


def last_sentence(
    record: Record, verdicts: Sequence[expectation.Verdict], summary: Summary, page: Path | None
) -> str:
    """One sentence without a line break. When something failed, the reason stands first in it."""
    failed = [verdict for verdict in verdicts if not verdict.held]
    more = f"page at {page}" if page else "--report FILE makes a page of it"
    if failed:
        count = f"{len(failed)} of {len(verdicts)} expectations failed"
        return f"{_reason(summary, failed)}; {count}; {more}."
    return f"{_good(record, summary)}; {more}."


def _good(record: Record, summary: Summary) -> str:
    before = record.before.version if record.before else "?"
    after = record.after.version if record.after else "?"
    is_image = sha256(record.flash) == sha256(record.plan.image)
    if summary.verdict is Verdict.UPDATED and is_image:
        seconds = f" in {summary.update_seconds:.1f} s" if summary.update_seconds is not None else ""
        return f"Updated from {before} to {after}{seconds}, and the flash is identical to the image, byte for byte"
    return summary.sentence.rstrip(".")


def _reason(summary: Summary, failed: Sequence[expectation.Verdict]) -> str:
    if summary.verdict in (Verdict.STOPPED, Verdict.UNCONFIRMED, Verdict.NOT_ASKED):
        return summary.sentence.rstrip(".")
    return f"{failed[0].name}: {failed[0].complaint}".rstrip(".")

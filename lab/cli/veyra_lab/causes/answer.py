"""The answer to whoever has sent something: the cause, what to do now, and what cannot be told apart from it."""

from dataclasses import dataclass
from typing import Any

from .findings import Finding, findings
from .period import of_the_trace
from .rows import Row, rows
from .sent import Sent
from .story import tell

# What the companion found, and the row that it is, if any; a name that ends with a hyphen stands for all that begin so.
_STATUS_ROWS = {
    "service-not-installed": "service-gone",
    "service-deleted": "service-gone",
    "service-disabled": "not-running",
    "service-not-running": "not-running",
    "update-mode-": "mode",
    "media-foundation": "no-media",
    "camera-not-opened": "no-media",
    "camera-version-unknown": "version-unknown",
    "image-": "no-image",
    "image-unknown": "",
    "toast-controller-missing": "controller-missing",
    "toast-controller-not-running": "controller-gone",
    "toast-controller-unseen": "nobody-there",
    "toast-controller-": "controller-not-started",
    "dfu-device-not-opened": "driver-wrong",
}
# Its notes that are no trouble by themselves, and explain one.
_STATUS_NOTES = {
    "camera-without-unit": "no-media",
    "toast-controller-waits": "nobody-there",
}
_MOST_TOLD = 30
# More arrivals than a week has. Whoever complains complains about the last ones.
_MOST_ITEMS = 5000


@dataclass(frozen=True)
class Answer:
    """`causes`: what went wrong, what the companion found before what the story tells, each in its own order; when empty,
    `fine` says whether something went well. `complaint`: the last of the story, which is what somebody complains about;
    without one the first that the companion found. `others`: what was seen besides. `faults`: what the companion found and
    is no row, in its own words."""

    causes: list[Finding]
    complaint: Finding | None
    fine: list[Finding]
    others: list[Finding]
    notes: list[str]
    faults: list[str]

    @property
    def rows(self) -> list[str]:
        """The names of all rows that the causes may be; those of what went well when there is no cause."""
        told = self.causes or self.fine[-1:]
        return list(dict.fromkeys(name for finding in told for name in finding.rows))

    @property
    def sentence(self) -> str:
        """The complaint in one sentence."""
        if self.complaint:
            more = len(self.complaint.rows) - 1
            others = f"; or {'one other cause' if more == 1 else f'{more} other causes'}, the same to see" if more else ""
            cause = rows()[self.complaint.rows[0]].cause
            return f"{_capital(self.complaint.seen.rstrip('.'))}: {cause}{others}."
        if self.faults:
            return _capital(self.faults[0])
        if self.fine:
            return f"Nothing is wrong, as far as this tells: {self.fine[-1].seen}."
        return "Nothing is told by this: it shows no camera and no trouble."

    def as_json(self) -> dict[str, Any]:
        """The form for scripts."""
        return {
            "sentence": self.sentence,
            "rows": self.rows,
            "causes": [_as_json(each) for each in self.causes],
            "fine": [_as_json(each) for each in self.fine],
            "others": [_as_json(each) for each in self.others],
            "faults": self.faults,
            "notes": self.notes,
        }

    def lines(self) -> list[str]:
        """The form for a person."""
        said = [self.sentence]
        for finding in self.causes[-_MOST_TOLD:]:
            said += ["", *_told(finding)]
        if not self.causes and self.fine:
            said += ["", *_told(self.fine[-1])]
        said += [f"the companion found: {fault}" for fault in self.faults]
        for finding in self.others[:_MOST_TOLD]:
            said.append(f"seen besides: {finding.seen} (row {finding.rows[0]})")
        return said + [f"note: {note}" for note in self.notes]


def answer(sent: Sent) -> Answer:
    """What was sent, understood."""
    records = of_the_trace(sent.messages, sent.records)
    items = tell(sent.messages, records)
    notes = list(sent.notes)
    if len(items) > _MOST_ITEMS:
        notes.append(f"of {len(items):,} arrivals, starts and stops the last {_MOST_ITEMS:,} are judged")
        items = items[-_MOST_ITEMS:]
    found = findings(items, records, sent.has_record)
    told = [each for each in found if not each.note and not each.is_fine]
    causes = [*_of_status(sent, told), *told]
    if sent.traces and not sent.has_record:
        notes.append("there is no event log: the toast controller's record tells how far a download came")
    if not sent.traces and not sent.messages:
        notes.append("there is no trace: it tells most")
    return Answer(
        causes=causes,
        complaint=(told[-1:] or causes[:1] or [None])[0],
        fine=[each for each in found if each.is_fine],
        others=[*(each for each in found if each.note and not each.is_fine), *_notes_of_status(sent)],
        notes=notes,
        faults=[_words(each) for each in _found(sent, "fault") if not row_of(str(each.get("id", "")))],
    )


def _of_status(sent: Sent, causes: list[Finding]) -> list[Finding]:
    """The companion's findings that the story has not told."""
    told = {name for cause in causes for name in cause.rows}
    found: list[Finding] = []
    for each in _found(sent, "fault"):
        row = row_of(str(each.get("id", "")))
        if row and row not in told:
            told.add(row)
            found.append(Finding((row,), _line(each.get("text", each.get("id")))))
    return found


def _notes_of_status(sent: Sent) -> list[Finding]:
    notes = [(_STATUS_NOTES.get(str(each.get("id", ""))), each) for each in _found(sent, "note")]
    return [Finding((row,), _line(each.get("text", each.get("id"))), note=True) for row, each in notes if row]


def _found(sent: Sent, severity: str) -> list[dict[str, Any]]:
    found = [each for each in sent.status.get("findings", [])[:100] if isinstance(each, dict)]
    return [each for each in found if each.get("severity") == severity]


def _words(fault: dict[str, Any]) -> str:
    return " ".join(filter(None, (_line(fault.get("text", fault.get("id"))), _line(fault.get("advice") or ""))))


def _line(text: Any) -> str:
    return " ".join(str(text)[:300].split())


def row_of(name: str) -> str:
    """The row that a fault of the companion is, by its id; empty when it is none."""
    fitting = [each for each in _STATUS_ROWS if name == each or each.endswith("-") and name.startswith(each)]
    return _STATUS_ROWS[max(fitting, key=len)] if fitting else ""


def _told(finding: Finding) -> list[str]:
    first, *others = [rows()[name] for name in finding.rows]
    time = f", {finding.time}" if finding.time else ""
    said = [
        f"{first.name}: {first.cause}",
        f"  seen: {finding.seen}{time}",
        f"  what to do now: {_remedy(first)}",
    ]
    if others:
        said.append("  what cannot be told apart from it:")
        said += [f"    {row.name}: {row.cause}; {_remedy(row)}" for row in others]
    return said


def _remedy(row: Row) -> str:
    return row.remedy or "nothing"


def _as_json(finding: Finding) -> dict[str, Any]:
    return {
        "rows": list(finding.rows),
        "seen": finding.seen,
        "time": finding.time or None,
        "what_to_do": _remedy(rows()[finding.rows[0]]),
    }


def _capital(words: str) -> str:
    return words[:1].upper() + words[1:]

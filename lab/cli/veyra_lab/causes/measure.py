"""How often the answer holds the rows that the scenarios expect, from trace and event log alone, and from bundles."""

import tempfile
from collections import Counter
from collections.abc import Callable, Iterable, Iterator, Sequence
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any

from .alike import reason
from .answer import Answer, answer
from .findings import Finding
from .sent import SentError, read_sent
from .stand_in import event_log_records, event_log_xml, trace_text

Event = dict[str, Any]

# The message with which the update service begins, the first of a process but for its traced functions.
_START = ("{FBFBAA6B-FCBC-3745-AC1C-E104C7B6CDA1}", 10)


@dataclass(frozen=True)
class Measured:
    """One scenario: what it expects, what the answer was, and the field's data without its times, for a comparison.
    `bundle`: what the answer was from the companion's bundle of the same, if one was made."""

    name: str
    expected: tuple[str, ...]
    answer: Answer | None
    data: str
    bundle: "Measured | None" = None

    @property
    def missed(self) -> list[str]:
        """Expected rows that no finding has."""
        held = {name for finding in self._all() for name in finding.rows}
        return [name for name in self.expected if name not in held]

    @property
    def wrong(self) -> list[Finding]:
        """Causes that hold none of the expected rows."""
        causes = self.answer.causes if self.answer else []
        return [finding for finding in causes if not set(finding.rows) & set(self.expected)]

    @property
    def is_right(self) -> bool:
        """Whether all that was expected is held, by sets that have a reason, and nothing else is told for a cause."""
        sets = map(self.set_of, self.expected)
        return not self.missed and not self.wrong and all(len(rows) == 1 or reason(rows) for rows in sets)

    @property
    def is_told_by_its_bundle(self) -> bool:
        """Whether the bundle holds the same messages and records, and the answer has the same rows."""
        return self.bundle is not None and (self.bundle.data, self.bundle.told) == (self.data, self.told)

    @property
    def told(self) -> list[tuple[str, ...]]:
        """The sets of rows that its findings are, each once: how often one is found in a moment depends on the times."""
        return list(dict.fromkeys(finding.rows for finding in self._all()))

    def set_of(self, row: str) -> tuple[str, ...]:
        """The smallest set that holds an expected row."""
        sets = [finding.rows for finding in self._all() if row in finding.rows]
        return min(sets, key=len, default=())

    def _all(self) -> list[Finding]:
        return [*self.answer.causes, *self.answer.fine, *self.answer.others] if self.answer else []


def measured(
    events: Iterable[Event],
    expected: dict[str, tuple[str, ...]],
    collect: Callable[[str, Sequence[Event]], Path] | None = None,
) -> Iterator[Measured]:
    """Each scenario of a transcript whose expected rows are named. `collect` makes a bundle of its name and its events,
    which is measured as well."""
    for name, whole in _scenarios(events):
        if name in expected:
            part = _own(whole)
            result = _measure(name, part, expected[name])
            if collect is not None:
                result = replace(result, bundle=_answer_to(name, collect(name, part), expected[name]))
            yield result


def _scenarios(events: Iterable[Event]) -> Iterator[tuple[str, list[Event]]]:
    name, part = "", list[Event]()
    for event in events:
        if event["event"] == "scenario":
            if name:
                yield name, part
            name, part = str(event["name"]), []
        elif event["event"] == "judgement" and name:
            yield name, part
            name, part = "", []
        else:
            part.append(event)
    if name:
        yield name, part


def _own(events: Sequence[Event]) -> Sequence[Event]:
    """Without what the service's process of the scenario before still told while this one's was being started."""
    first = next((place for place, event in enumerate(events) if _is_start(event)), 0)
    pid = events[first].get("pid") if events else None
    return [event for place, event in enumerate(events) if place >= first or event.get("pid", pid) == pid]


def _is_start(event: Event) -> bool:
    return event["event"] == "trace" and (event["group"], event["number"]) == _START


def _measure(name: str, events: Sequence[Event], expected: tuple[str, ...]) -> Measured:
    records = event_log_records(events)
    with tempfile.TemporaryDirectory() as folder:
        (Path(folder) / "trace.txt").write_text(trace_text(events), encoding="utf-16")
        (Path(folder) / "events.xml").write_text(event_log_xml(records), encoding="utf-8")
        return _answer_to(name, Path(folder), expected)


def _answer_to(name: str, path: Path, expected: tuple[str, ...]) -> Measured:
    """What was sent is a folder or a cabinet."""
    try:
        sent = read_sent([path])
    except SentError:
        return Measured(name, expected, None, "")
    words = [f"{message.name} {message.arguments}" for message in sent.messages]
    words += [f"{record.source} {record.number} {record.texts}" for record in sent.records]
    return Measured(name, expected, answer(sent), "\n".join(words))


class Table:
    """What was measured, for docs/causes.md."""

    def __init__(self, results: Sequence[Measured]) -> None:
        self._results = results
        self._equal: dict[str, list[frozenset[str]]] = {}
        for result in results:
            self._equal.setdefault(result.data, []).append(frozenset(result.expected))

    def lines(self) -> list[str]:
        """Markdown: how many were right, and each set of more than one row."""
        right = sum(result.is_right for result in self._results)
        share = 100 * right / max(1, len(self._results))
        said = [f"{right} of {len(self._results)} scenarios right: {share:.1f} %.", ""]
        said += ["| rows in the set that holds the expected row | expected rows |", "|---|---|"]
        sizes = Counter(len(result.set_of(row)) for result in self._results for row in result.expected)
        said += [f"| {size or 'none does'} | {count} |" for size, count in sorted(sizes.items())]
        said += ["", "| set | expected rows in it | rows that scenarios with equal data have | because |", "|---|---|---|---|"]
        for rows, expected in sorted(self._sets().items()):
            shown = _names(sorted(self._shown(rows)))
            said.append(f"| {_names(rows)} | {_counts(expected)} | {shown} | {reason(rows) or '–'} |")
        wrong = [result for result in self._results if not result.is_right]
        if wrong:
            said += ["", "| not right | expected | told |", "|---|---|---|"]
        for result in wrong:
            said.append(f"| {result.name} | {_names(result.expected)} | {_names(_rows(result))} |")
        return said

    def lines_of_bundles(self, seconds: float) -> list[str]:
        """In words: how many bundles told the same, and which did not."""
        made = [result for result in self._results if result.bundle is not None]
        same = sum(result.is_told_by_its_bundle for result in made)
        right = sum(result.bundle.is_right for result in made if result.bundle)
        said = [f"{len(made)} bundles: {same} tell what trace and event log told, {right} are right; {seconds:.0f} s."]
        for result in made:
            if not result.is_told_by_its_bundle:
                told = f"its bundle tells {_names(_rows(result.bundle))}"
                said.append(f"{result.name}: {told}, trace and event log {_names(_rows(result))}")
        return said

    def _sets(self) -> dict[tuple[str, ...], Counter[str]]:
        """Each set of more than one row, with the expected rows that it held."""
        found: dict[tuple[str, ...], Counter[str]] = {}
        for result in self._results:
            for row in result.expected:
                rows = result.set_of(row)
                if len(rows) > 1:
                    found.setdefault(rows, Counter())[row] += 1
        return found

    def _shown(self, rows: tuple[str, ...]) -> set[str]:
        """Rows of the set that a scenario expects whose data are equal but for times to those of another scenario, which
        expects others of the set. One that expects two rows shows nothing by itself."""
        shown: set[str] = set()
        for expected in self._equal.values():
            of_the_set = {each & set(rows) for each in expected} - {frozenset()}
            if len(of_the_set) > 1:
                shown |= set().union(*of_the_set)
        return shown


def _rows(result: Measured | None) -> list[str]:
    return result.answer.rows if result and result.answer else []


def _names(rows: Iterable[str]) -> str:
    return ", ".join(f"`{row}`" for row in rows) or "–"


def _counts(counts: Counter[str]) -> str:
    return ", ".join(f"`{row}` {count}" for row, count in counts.most_common())

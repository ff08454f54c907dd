"""Event log records as wevtutil and Event Viewer export them: XML, text or CSV, in English or German words."""

import csv
import re
from collections.abc import Iterator
from dataclasses import dataclass
from xml.etree import ElementTree

from .texts import SentText

SERVICE = "VeyraCameraDfuService"
CONTROLLER = "VeyraCameraToastCntl"
MOST_RECORDS = 100_000
_LONGEST_RECORD = 64 << 10
_EVENT, _EVENT_END = re.compile(r"<Event[\s>]"), "</Event>"
_TEXT_HEAD = re.compile(r"^Event\[\d+\]:?", re.MULTILINE)
_FIELDS = {
    "source": ("Source", "Quelle", "Provider Name", "Provider"),
    "date": ("Date", "Datum", "Date and Time", "Datum und Uhrzeit"),
    "id": ("Event ID", "Ereignis-ID"),
}
_DESCRIPTION = re.compile(r"^[ \t]*(?:Description|Beschreibung):(.*)", re.MULTILINE | re.DOTALL)
# Where no message file is registered, what belongs into the words stands behind this.
_INCLUDED = re.compile(r"(?:included with the event|im Ereignis enthalten):(.*)", re.DOTALL)
_VERSION = re.compile(r"\b\d{1,3}(?:\.\d{1,3}){3}\b")
_NUMBER = re.compile(r"(?<![\w.])\d{1,10}(?![\w])")
_ASKED = (1, 2, 3)


@dataclass(frozen=True)
class Record:
    """One record: source, number, what it says (the inserts of a message, or what stands for them), and its time as it
    stands there."""

    source: str
    number: int
    texts: tuple[str, ...] = ()
    time: str = ""


def read_records(sent: SentText) -> list[Record]:
    """The records of an export, oldest first; none of a text that is no export."""
    head = sent.text[:65_536]
    if "<Event" in head and "http://schemas.microsoft.com/win/2004/08/events" in head:
        return _from_xml(sent.text)
    if _TEXT_HEAD.search(head):
        return _oldest_first(_from_text(sent.text))
    return _oldest_first(_from_csv(sent))


def _from_xml(text: str) -> list[Record]:
    """Each event is read for itself: an export has no root, and one that is cut off or broken loses its last event
    alone. A file may hold several logs, one behind the other."""
    logs: dict[str, list[tuple[int, Record]]] = {}
    count = 0
    for content in _elements(text):
        # Nothing of Windows' declares entities.
        if len(content) > _LONGEST_RECORD or "<!" in content.replace("<![CDATA[", ""):
            continue
        try:
            event = ElementTree.fromstring(content)
            record = _record(event)
        except (ElementTree.ParseError, ValueError):
            continue
        if record is not None:
            logs.setdefault(_text(event, "Channel"), []).append((_place(event), record))
            count += 1
        if count == MOST_RECORDS:
            break
    return [record for log in logs.values() for record in _log_in_order(log)]


def _log_in_order(log: list[tuple[int, Record]]) -> list[Record]:
    """By the log's own count. Where somebody has left it out, by the times."""
    if all(place for place, _ in log):
        log = sorted(log, key=lambda each: each[0])
        return [record for _, record in log]
    return _oldest_first([record for _, record in log])


def _elements(text: str) -> Iterator[str]:
    """Each event from its beginning to the next end."""
    position = 0
    while (begin := _EVENT.search(text, position)) is not None:
        end = text.find(_EVENT_END, begin.end())
        if end < 0:
            return
        position = end + len(_EVENT_END)
        # Of one that was cut off in the middle, the next one's beginning is inside.
        yield text[max(begin.start(), text.rfind("<Event ", begin.start(), end)) : position]


def _first(event: ElementTree.Element, name: str) -> ElementTree.Element | None:
    return next((each for each in event.iter() if each.tag.rpartition("}")[2] == name), None)


def _text(event: ElementTree.Element, name: str) -> str:
    element = _first(event, name)
    return (element.text or "").strip() if element is not None else ""


def _place(event: ElementTree.Element) -> int:
    """Where it stands in its log, from 1; 0 when it does not say so."""
    count = _text(event, "EventRecordID")
    return int(count) if count.isascii() and count.isdecimal() and len(count) < 20 else 0


def _record(event: ElementTree.Element) -> Record | None:
    provider, number, created = _first(event, "Provider"), _text(event, "EventID"), _first(event, "TimeCreated")
    if provider is None or not number.isdecimal():
        return None
    name = provider.get("Name") or provider.get("EventSourceName") or ""
    data = [(each.text or "").strip() for each in event.iter() if each.tag.rpartition("}")[2] == "Data"]
    time = created.get("SystemTime", "") if created is not None else ""
    return Record(name, int(number) & 0xFFFF, tuple(data[:16]), time)


def _from_text(text: str) -> list[Record]:
    heads = [*_TEXT_HEAD.finditer(text)][:MOST_RECORDS]
    ends = [*(head.start() for head in heads[1:]), len(text)]
    return [
        record
        for head, end in zip(heads, ends)
        if (record := _spelled_out(text[head.end() : min(end, head.end() + _LONGEST_RECORD)])) is not None
    ]


def _spelled_out(block: str) -> Record | None:
    values: dict[str, str] = {}
    for line in block.splitlines():
        name, colon, value = line.partition(":")
        for field, names in _FIELDS.items():
            if colon and name.strip() in names:
                values.setdefault(field, value.strip())
    number = re.match(r"\d{1,5}", values.get("id", ""))
    if number is None or not values.get("source"):
        return None
    said = _DESCRIPTION.search(block)
    return _worded(values["source"], int(number[0]), said[1] if said else "", values.get("date", ""))


def _from_csv(sent: SentText) -> list[Record]:
    """Event Viewer's: a head, and the description in a column that the head does not name."""
    found: list[Record] = []
    columns: dict[str, int] = {}
    try:
        for cells in csv.reader(sent.lines(), delimiter=_delimiter(sent.text)):
            if not columns:
                columns = _columns([cell.strip() for cell in cells])
                if not columns:
                    return []
            elif len(cells) > max(columns.values()) and cells[columns["id"]].strip().isdecimal():
                number = int(cells[columns["id"]].strip()[:5])
                date = cells[columns["date"]] if "date" in columns else ""
                found.append(_worded(cells[columns["source"]].strip(), number, cells[-1], date))
            if len(found) == MOST_RECORDS:
                break
    except csv.Error:
        pass
    return found


def _delimiter(text: str) -> str:
    head = text.partition("\n")[0]
    return max(",;\t", key=head.count)


def _columns(head: list[str]) -> dict[str, int]:
    """Where the fields are; none when this is no such table."""
    found = {field: head.index(name) for field, names in _FIELDS.items() for name in names if name in head}
    return found if "source" in found and "id" in found else {}


def _worded(source: str, number: int, description: str, time: str) -> Record:
    """From words: the texts of all languages have the same inserts in the same order."""
    if included := _INCLUDED.search(description):
        description = included[1]
    if source == CONTROLLER:
        pattern = _VERSION if number in _ASKED else _NUMBER
        return Record(source, number, tuple(pattern.findall(description)[:4]), time)
    return Record(source, number, (" ".join(description.split())[:1000],), time)


def _oldest_first(records: list[Record]) -> list[Record]:
    return records if _is_rising(records) else records[::-1]


def _is_rising(records: list[Record]) -> bool:
    """Whether the oldest stands first: Event Viewer exports the newest first. Texts of one form sort as their times
    do, but those with the month in front."""
    times = [_sortable(record.time) for record in records if record.time]
    falls = sum(one > other for one, other in zip(times, times[1:]))
    return falls <= len(times) // 2 if len(times) > 2 else not falls


def _sortable(time: str) -> str:
    """A date with the year in front. A time of day with AM or PM becomes one of 24 hours."""
    match = re.match(r"(\d{1,2})([/.])(\d{1,2})[/.](\d{4})\D+(\d{1,2})(\D\d{2}(?:\D\d{2})?)\s*([AaPp])?", time)
    if match is None:
        return time
    day, month = (match[1], match[3]) if match[2] == "." else (match[3], match[1])
    hour = int(match[5]) % 12 + 12 * (match[7] in ("P", "p")) if match[7] else int(match[5])
    return f"{match[4]}-{int(month):02}-{int(day):02} {hour:02}{match[6]}"

"""The trace and the toast controller's record as one story: what happened, in which order, without a clock. The
clocks of the two need not agree, and what follows from what puts them together."""

from collections.abc import Sequence
from dataclasses import dataclass, field

from .event_log import CONTROLLER, Record
from .trace_text import Message

# The record's numbers.
_ASKED, _REPLACED, _LAPSED, _YES, _NO = 1, 2, 3, 4, 5
_STARTED, _UNANNOUNCED = 10, 11
_ALL_TAKEN, _LAST_MAY_BE_MISSING, _STOPPED, _UNKNOWN_END, _NEVER_BEGAN, _NOTHING_STARTED, _CLIENT_GONE = range(20, 27)
_ENDS = (_ALL_TAKEN, _LAST_MAY_BE_MISSING, _STOPPED, _UNKNOWN_END, _CLIENT_GONE)


@dataclass
class Start:
    """The service's start, or what is left of it in the trace."""

    listens: bool = False
    problems: list[str] = field(default_factory=list)


@dataclass
class Stop:
    """The service is asked to stop."""


@dataclass
class UsbArrival:
    """A USB device arrived: "silent" (the service did nothing), "none" (no camera in DFU mode), "not opened", "no
    endpoint" or "download"."""

    outcome: str = "silent"
    download: "Download | None" = None
    time: str = ""


@dataclass
class Download:
    """A download as the record tells it; `end` is 0 where it tells none."""

    announced: int | None = None
    started: bool = False
    end: int = 0
    taken: int = 0


@dataclass
class CameraArrival:
    """A camera interface arrived: "silent", "unknown" (its version), "no image", "equal" or "different" versions."""

    outcome: str = "silent"
    versions: tuple[str, str] = ("", "")
    question: "Question | None" = None
    time: str = ""


@dataclass
class Question:
    """A question that the record has: its answer (None, True, False), and what became of it without one."""

    answer: bool | None = None
    replaced: bool = False
    lapsed: bool = False


@dataclass
class Answer:
    """An answer to no open question."""

    accepted: bool


Item = Start | Stop | UsbArrival | CameraArrival | Answer


def tell(messages: Sequence[Message], records: Sequence[Record]) -> list[Item]:
    """The story of a trace and of a record, which may be empty."""
    return _Telling([record for record in records if record.source == CONTROLLER]).tell(messages)


class _Telling:
    def __init__(self, records: list[Record]) -> None:
        self._records = records
        self._next = 0
        self._items: list[Item] = []
        self._camera_version = ""
        self._question: Question | None = None

    def tell(self, messages: Sequence[Message]) -> list[Item]:
        if not messages:
            self._tell_of_record()
        for message in messages:
            self._take(message)
        self._take_answers()
        return self._items

    def _tell_of_record(self) -> None:
        """Without a trace: questions and downloads."""
        while (record := self._peek()) is not None:
            position = self._next
            if record.number == _ASKED:
                self._next += 1
                self._question = Question()
                versions = (record.texts[0], record.texts[1]) if len(record.texts) > 1 else ("", "")
                self._items.append(CameraArrival("different", versions, self._question, record.time))
            elif record.number in (_STARTED, _UNANNOUNCED, _NEVER_BEGAN):
                self._items.append(UsbArrival("download", self._download(), record.time))
            else:
                self._take_answers()
            self._next = max(self._next, position + 1)

    def _last(self, kind: type[Item]) -> Item | None:
        return self._items[-1] if self._items and isinstance(self._items[-1], kind) else None

    def _take(self, message: Message) -> None:
        name, arguments = message.name, message.arguments
        if name in ("base 13", "base 12", "update 24", "update 10"):
            self._take_answers()
        if name == "base 13":
            self._items.append(UsbArrival(time=message.time))
        elif name == "base 12":
            self._items.append(CameraArrival(time=message.time))
        elif name == "update 24":
            self._items.append(Stop())
        elif name == "update 10":
            self._items.append(Start())
        elif name in ("update 11", "update 12", "sink 11", "launch 10", "base 10", "base 11"):
            self._start().problems.append(name)
        elif name == "sink 10":
            self._start().listens = True
        elif name in ("update 18", "update 19", "update 20", "update 21"):
            self._take_usb(name)
        elif name in ("update 22", "update 23", "update 25", "update 26", "update 27"):
            self._take_camera(name, arguments)

    def _start(self) -> Start:
        start = self._last(Start)
        if not isinstance(start, Start):
            start = Start()
            self._items.append(start)
        return start

    def _take_usb(self, name: str) -> None:
        arrival = self._last(UsbArrival)
        if not isinstance(arrival, UsbArrival):
            # The trace begins behind its arrival.
            arrival = UsbArrival()
            self._items.append(arrival)
        if name == "update 19":
            arrival.outcome = "download"
            arrival.download = self._download()
        else:
            arrival.outcome = {"update 18": "none", "update 20": "not opened", "update 21": "no endpoint"}[name]
            arrival.download = None

    def _take_camera(self, name: str, arguments: tuple[str, ...]) -> None:
        arrival = self._last(CameraArrival)
        if not isinstance(arrival, CameraArrival):
            arrival = CameraArrival()
            self._items.append(arrival)
        if name == "update 22":
            arrival.outcome = "unknown"
        elif name == "update 23":
            self._camera_version = arguments[0]
        elif name == "update 27":
            arrival.versions = (self._camera_version, arguments[0])
            arrival.outcome = "equal" if arrival.versions[0] == arguments[0] else "different"
            if arrival.outcome == "different":
                arrival.question = self._asked(arrival.versions)
        else:
            arrival.outcome = "no image"

    # The record, as far as it belongs to what the trace has told.

    def _peek(self) -> Record | None:
        return self._records[self._next] if self._next < len(self._records) else None

    def _asked(self, versions: tuple[str, str]) -> Question | None:
        """The question that this arrival leads to. Those that the trace does not know are passed over."""
        for position in range(self._next, len(self._records)):
            record = self._records[position]
            if record.number == _ASKED and (not record.texts or record.texts[:2] == versions):
                if any(each.number in (_STARTED, _ASKED) for each in self._records[self._next : position]):
                    # What lies between belongs to other arrivals.
                    return None
                replaced = any(each.number == _REPLACED for each in self._records[self._next : position])
                if self._question and replaced:
                    self._question.replaced = True
                self._next = position + 1
                self._question = Question()
                return self._question
        return None

    def _take_answers(self) -> None:
        """Answers, and what ends a question without one."""
        while (record := self._peek()) is not None and record.number in (_YES, _NO, _LAPSED, _NOTHING_STARTED):
            self._next += 1
            if record.number in (_YES, _NO):
                if self._question is not None and self._question.answer is None:
                    self._question.answer = record.number == _YES
                else:
                    self._items.append(Answer(record.number == _YES))
            elif record.number == _LAPSED and self._question is not None:
                self._question.lapsed = True

    def _download(self) -> Download:
        self._take_answers()
        download = Download()
        record = self._peek()
        if record is not None and record.number == _NEVER_BEGAN:
            self._next += 1
            download.end = _NEVER_BEGAN
        elif record is not None and record.number in (_STARTED, _UNANNOUNCED):
            self._next += 1
            download.started = True
            download.announced = _number(record, 0) if record.number == _STARTED else None
            end = self._peek()
            if end is not None and end.number in _ENDS:
                self._next += 1
                download.end = end.number
                download.taken = _number(end, 0) or 0
        return download


def _number(record: Record, place: int) -> int | None:
    text = record.texts[place] if place < len(record.texts) else ""
    return int(text) if text.isascii() and text.isdecimal() and len(text) < 12 else None

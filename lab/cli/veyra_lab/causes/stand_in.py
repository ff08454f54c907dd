"""What a user could send of a run that the laboratory has recorded: the trace's text, and the event logs. Under Wine
tracing and event log are stubs, so the rig's record stands in for them, and the toast controller's conversation is
told as it would tell it (toast/conversation, toast/record)."""

from collections.abc import Iterable, Sequence
from dataclasses import dataclass, field
from datetime import datetime, timedelta
from typing import Any
from xml.sax.saxutils import escape, quoteattr

from .event_log import CONTROLLER, SERVICE

Event = dict[str, Any]

_NAMES = {
    "{D3A7CCDD-8055-340B-3A0C-14F1E4FB3339}": "DFUServiceBase",
    "{FBFBAA6B-FCBC-3745-AC1C-E104C7B6CDA1}": "FDUService",
    "{86E9D1B4-5F2A-4C37-B81E-20A7934DF65C}": "CSink",
    "{1FC2A5F0-3B7D-4E0C-9A54-6D0B8EC14793}": "ToastControllerLaunch",
    "{5B0FDCD3-A0E5-3094-0EFF-D5D1628796F4}": "TraceScope",
}
_CONTROL_MANAGER = "Service Control Manager"
_BEGAN = datetime(2026, 11, 23, 9, 0, 0)
_LAST_NUMBER = 0xFFFF
# Informational and Warning, as an event's number has them.
_WARNINGS = (11, 22, 23, 24, 25, 26)


@dataclass(frozen=True)
class Logged:
    """One record of an event log."""

    t: float
    channel: str
    source: str
    number: int
    texts: tuple[str, ...]


@dataclass
class _Conversation:
    """What the toast controller writes into its log, call by call."""

    logged: list[Logged] = field(default_factory=list)
    question: tuple[str, ...] | None = None
    is_waiting: bool = False
    is_downloading: bool = False
    announced: int | None = None
    taken: int = 0

    def take(self, event: Event) -> None:
        """Any event of a transcript."""
        kind = event["event"]
        if kind == "prompt-call":
            self._call(event["t"], str(event.get("method")), [str(each) for each in event.get("texts", [])])
        elif kind == "answer":
            self.question = None
            self.is_waiting = event.get("code") == 1
            self._log(event["t"], 4 if event.get("code") == 1 else 5)
        elif kind == "gone" and event.get("of") == "rig":
            self._service_gone(event["t"])
        elif kind == "gone" and event.get("of") == "toast":
            self.question, self.is_downloading, self.is_waiting = None, False, False

    def _call(self, t: float, method: str, texts: list[str]) -> None:
        if method == "ShowUpdatePrompt":
            if self.question is not None:
                self._log(t, 2, *self.question)
            self.question = tuple(texts[:2])
            self._log(t, 1, *self.question)
        elif method == "NotifyComplete":
            if self.is_downloading:
                self._end(t)
            else:
                self.is_waiting = False
                self._log(t, 24, "0", "-")
        elif method == "NotifyProgress" and texts and texts[0].startswith("start:"):
            if self.is_downloading:
                self._end(t)
            self._begin(t, int(texts[0].removeprefix("start:")))
        elif method == "NotifyProgress" and texts and texts[0].isdecimal():
            self._progress(t, int(texts[0]))

    def _begin(self, t: float, announced: int | None) -> None:
        self.is_downloading, self.is_waiting, self.announced, self.taken = True, False, announced, 0
        self._log(t, 11) if announced is None else self._log(t, 10, str(announced))

    def _progress(self, t: float, number: int) -> None:
        if not self.is_downloading:
            self._begin(t, None)
        starts_again = self.taken & _LAST_NUMBER == _LAST_NUMBER and number == 0
        reached = self.taken + 1 if starts_again else (self.taken & ~_LAST_NUMBER) + number
        most = (1 << 32) - 1 if self.announced is None else self.announced + 1
        if number <= _LAST_NUMBER and self.taken < reached <= most:
            self.taken = reached

    def _end(self, t: float) -> None:
        self.is_downloading = False
        if self.announced is None:
            number = 23
        elif self.taken > self.announced:
            number = 20
        else:
            number = 21 if self.taken == self.announced and self.taken > 0 else 22
        self._log(t, number, str(self.taken), "-" if self.announced is None else str(self.announced))

    def _service_gone(self, t: float) -> None:
        if self.question is not None:
            self._log(t, 3, *self.question)
            self.question = None
        if self.is_downloading:
            self.is_downloading = False
            self._log(t, 26, str(self.taken), "-" if self.announced is None else str(self.announced))
        elif self.is_waiting:
            self.is_waiting = False
            self._log(t, 26, "0", "-")

    def _log(self, t: float, number: int, *texts: str) -> None:
        self.logged.append(Logged(t, "Application", CONTROLLER, number, texts))


def trace_text(events: Iterable[Event]) -> str:
    """As tracefmt prints it with the project's trace-format files."""
    lines = []
    for event in events:
        if event["event"] == "trace" and event.get("text") is not None:
            time = _BEGAN + timedelta(seconds=event["t"])
            head = f"[0]{event.get('pid', 0):04X}.0C84::{time:%m/%d/%Y-%H:%M:%S}.{time.microsecond // 1000:03}"
            lines.append(f"{head} [{_NAMES.get(event['group'], event['group'])}]{event['text']}\n")
    return "".join(lines)


def event_log_records(events: Iterable[Event]) -> list[Logged]:
    """Of service, toast controller and service control manager, in their order."""
    conversation = _Conversation()
    others: list[Logged] = []
    for event in events:
        conversation.take(event)
        if event["event"] == "event-log":
            texts = tuple(str(each) for each in event.get("strings", []))
            others.append(Logged(event["t"], "Application", SERVICE, int(event.get("id", 0)), texts))
        elif event["event"] == "late-control":
            others.append(Logged(event["t"], "System", _CONTROL_MANAGER, 7011, ("30000", SERVICE)))
    return sorted([*conversation.logged, *others], key=lambda logged: logged.t)


def event_log_xml(records: Sequence[Logged]) -> str:
    """As Event Viewer exports them."""
    events = [f"{event_xml(record, number)}\n" for number, record in enumerate(records, 1)]
    return "<?xml version='1.0' encoding='utf-8'?>\n<Events>\n" + "".join(events) + "</Events>\n"


def event_xml(record: Logged, number: int, began: datetime = _BEGAN) -> str:
    """One record as Windows renders it. `number`: its log's own count."""
    time = began + timedelta(seconds=record.t)
    data = "".join(f"<Data>{escape(text)}</Data>" for text in record.texts)
    level = 3 if record.number in _WARNINGS else 4
    return (
        "<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System>"
        f"<Provider Name={quoteattr(record.source)}/><EventID Qualifiers='16384'>{record.number}</EventID>"
        f"<Level>{level}</Level><TimeCreated SystemTime='{time.isoformat(timespec='milliseconds')}Z'/>"
        f"<EventRecordID>{number}</EventRecordID><Channel>{record.channel}</Channel><Computer>PC</Computer></System>"
        f"<EventData>{data}</EventData></Event>"
    )

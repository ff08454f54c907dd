"""What the picture draws: for each lane its spans and marks over time, thinned out where there are too many."""

from collections.abc import Sequence
from dataclasses import dataclass, field

from .codes import CONTROLS, DEVICE_EVENTS, SERVICE_STATES, named
from .laboratory import is_step, step_numbers
from .summary import Summary
from .telling import Lane, Telling
from .transcript import Event, Transcript, number, numbers, text, texts
from .transfer import Role, Transfer, describe
from .words import class_name, is_block_progress, tell

# What one lane draws at most. A page with more grows heavy, and no screen has that many columns.
MOST_MARKS = 2400
BINS = 480
MOST_SINGLED_OUT = 120
_MOST_LEVELS = 8
_DEVICE_EVENT = 11
_ARRIVAL = 0x8000
_REMOVAL = 0x8004

LANES: dict[Lane, tuple[str, str]] = {
    Lane.LABORATORY: ("Steps", "what was done to the machine, one step after the other"),
    Lane.CONTROL_MANAGER: (
        "Service control manager",
        "Windows' part that starts and stops services and tells them of devices",
    ),
    Lane.SERVICE: ("Service", "the program that keeps the camera's firmware up to date"),
    Lane.USER: ("User", "what the person at the computer is shown, and answers"),
    Lane.CAMERA: ("Camera", "what the camera is doing"),
    Lane.BUS: ("Bus", "every request on the USB cable between service and camera"),
}


@dataclass(frozen=True)
class Span:
    """Something that lasts. Times are the transcript's."""

    begin: float
    end: float
    label: str
    tip: str
    kind: str
    number: str = ""
    # Spans of one lane that may overlap lie on levels of their own, 0 on top.
    level: int = 0


@dataclass(frozen=True)
class Mark:
    """Something that happens at one time, or many such things in a short time: then `weight` says how full the place
    is, from 0 to 1, and `end` when the last one happened."""

    at: float
    tip: str
    kind: str
    end: float | None = None
    weight: float = 1.0


@dataclass
class Row:
    """One lane of the picture."""

    lane: Lane
    spans: list[Span] = field(default_factory=list)
    marks: list[Mark] = field(default_factory=list)
    # How many marks there were before they were thinned out; 0 when all are drawn.
    thinned_from: int = 0

    @property
    def levels(self) -> int:
        """On how many levels its spans lie."""
        return 1 + max((span.level for span in self.spans), default=0)


def rows(transcript: Transcript, summary: Summary) -> list[Row]:
    """The lanes from top to bottom."""
    drawing = _Drawing(transcript, summary)
    drawn = drawing.rows()
    for row in drawn:
        _thin(row)
    return drawn


class _Drawing:
    def __init__(self, transcript: Transcript, summary: Summary) -> None:
        self._events = transcript.events
        self._downloads = summary.downloads
        self._held_at = summary.held_at
        self._end: float = self._events[-1]["t"]
        self._rows = {lane: Row(lane) for lane in LANES}

    def rows(self) -> list[Row]:
        self._steps()
        self._states()
        self._work()
        self._question()
        self._cameras()
        self._transfers()
        for event in self._events:
            if (
                event["event"] not in ("transfer", "camera")
                and not is_step(event)
                and not is_block_progress(event)
            ):
                self._mark(event, tell(event))
        for row in self._rows.values():
            row.marks.sort(key=lambda mark: mark.at)
        return list(self._rows.values())

    def _failed(self, t: float) -> str:
        """How a failure is drawn: one that was expected is none."""
        return "g" if self._held_at(t) else "f"

    def _of(self, kind: str) -> list[Event]:
        return [event for event in self._events if event["event"] == kind]

    def _span(
        self,
        lane: Lane,
        begin: float,
        end: float,
        label: str,
        kind: str,
        tip: str = "",
        count: str = "",
        level: int = 0,
    ) -> None:
        if kind == "good" and self._held_at(begin) is False:
            kind = "plain"
        words = f"{begin:.3f} s to {end:.3f} s ({end - begin:.3f} s)\n{tip or label}"
        self._rows[lane].spans.append(Span(begin, end, label, words, kind, count, level))

    def _mark(self, event: Event, telling: Telling) -> None:
        kind = self._failed(event["t"]) if telling.bad else "m" if telling.matters else "d"
        if telling.lane is Lane.BUS and not telling.bad:
            kind = "c"
        if telling.lane is Lane.LABORATORY and not telling.bad:
            return
        self._rows[telling.lane].marks.append(Mark(event["t"], f"{event['t']:.3f} s\n{telling.words}", kind))

    def _steps(self) -> None:
        steps = [event for event in self._events if is_step(event)]
        ends = [event["t"] for event in steps[1:]] + [self._end]
        for event, end, count in zip(steps, ends, step_numbers(steps)):
            self._span(Lane.LABORATORY, event["t"], end, tell(event).words, "step", count=count)

    def _states(self) -> None:
        reports: dict[int | None, list[tuple[float, int]]] = {}
        for event in self._of("service-status"):
            words = numbers(event, "words")
            if len(words) > 1:
                reports.setdefault(number(event, "pid"), []).append((event["t"], words[1]))
        gone = {number(event, "pid"): event["t"] for event in self._of("gone")}
        for pid, states in reports.items():
            ends = [t for t, _ in states[1:]] + [gone.get(pid, self._end)]
            for (begin, state), end in zip(states, ends):
                name = named(SERVICE_STATES, state)
                kind = {4: "good", 1: "off"}.get(state, "between")
                self._span(
                    Lane.CONTROL_MANAGER,
                    begin,
                    max(begin, end),
                    name,
                    kind,
                    f"the service is in state: {name}",
                )

    def _work(self) -> None:
        """When the service is busy with what it was told: from a control to its end."""
        begun: dict[int | None, Event] = {}
        for event in self._events:
            pid = number(event, "pid")
            if event["event"] == "control":
                begun[pid] = event
            elif event["event"] == "handled" and pid in begun:
                control = begun.pop(pid)
                took = (number(event, "ms") or 0) / 1000
                begin = min(control["t"], max(self._events[0]["t"], event["t"] - took))
                label = _concern(control)
                self._span(Lane.SERVICE, begin, event["t"], label, "busy", f"busy: {tell(control).words}")

    def _question(self) -> None:
        questions: list[Event] = []
        for event in self._events:
            is_question = event.get("method") == "ShowUpdatePrompt"
            # A question gives way to the next one.
            if questions and (is_question or event["event"] == "answer"):
                self._asked(questions.pop(), event["t"])
            questions += [event] if is_question else []
        if questions:
            self._asked(questions.pop(), self._end)
        for download in self._downloads:
            self._span(Lane.USER, download.began, download.last, "sees the progress", "told")

    def _asked(self, question: Event, end: float) -> None:
        versions = " → ".join(texts(question, "texts")) or "update?"
        self._span(Lane.USER, question["t"], end, f"{versions}?", "asked", tell(question).words)

    def _cameras(self) -> None:
        ends: dict[int | None, Event] = {}
        for event in self._of("camera"):
            which = number(event, "camera")
            if which in ends:
                self._camera_state(ends[which], event["t"])
            ends[which] = event
        for event in ends.values():
            self._camera_state(event, self._end)

    def _camera_state(self, event: Event, end: float) -> None:
        change = text(event, "change")
        label, kind = {
            "plugged": (f"runs {text(event, 'version')}", "good"),
            "running": (f"runs {text(event, 'version')}", "good"),
            "left": ("restarts", "between"),
            "dfu": ("DFU mode", "dfu"),
            "unplugged": ("unplugged", "off"),
        }.get(change, (change, "between"))
        level = min(max(0, number(event, "camera") or 0), _MOST_LEVELS - 1)
        self._span(Lane.CAMERA, event["t"], end, label, kind, tell(event).words, level=level)

    def _transfers(self) -> None:
        bus = self._rows[Lane.BUS]
        for download in self._downloads:
            tip = f"a download: {len(download.transfers):,} transfers, {download.bytes_sent:,} bytes"
            self._span(Lane.BUS, download.began, download.last, "", "session", tip)
            failed = self._failed(download.began)
            bus.marks += [_transfer_mark(transfer, failed) for transfer in download.transfers]


def _concern(control: Event) -> str:
    """What a control is about, as short as a lane needs it."""
    if number(control, "control") != _DEVICE_EVENT:
        return named(CONTROLS, number(control, "control"))
    kind = number(control, "type")
    verb = {_ARRIVAL: "arrives", _REMOVAL: "leaves"}.get(kind or 0, named(DEVICE_EVENTS, kind))
    return f"{class_name(control)} {verb}"


def _transfer_mark(transfer: Transfer, failed: str) -> Mark:
    kind = failed if transfer.role is Role.FAILED else _kind(transfer)
    return Mark(transfer.t, f"{transfer.t:.3f} s\n{describe(transfer)}", kind)


def _kind(transfer: Transfer) -> str:
    if transfer.role is Role.WAIT:
        return "w"
    if not transfer.ok:
        return "e"
    return "o" if transfer.request in ("DNLOAD", "DETACH") else "i"


# Thinning out.


def _thin(row: Row) -> None:
    if len(row.marks) <= MOST_MARKS:
        return
    row.thinned_from = len(row.marks)
    singled_out = [mark for mark in row.marks if mark.kind in ("f", "g", "e")]
    if len(singled_out) > MOST_SINGLED_OUT:
        half = MOST_SINGLED_OUT // 2
        singled_out = singled_out[:half] + singled_out[-half:]
    row.marks = _binned(row.marks) + singled_out


def _binned(marks: Sequence[Mark]) -> list[Mark]:
    """Bars of equal width over the time that the marks cover; each tells how many it stands for."""
    begin, end = marks[0].at, marks[-1].at
    width = (end - begin) / BINS or 1.0
    groups: dict[int, list[Mark]] = {}
    for mark in marks:
        groups.setdefault(min(BINS - 1, int((mark.at - begin) / width)), []).append(mark)
    fullest = max(len(group) for group in groups.values())
    return [
        Mark(
            at=begin + index * width,
            end=begin + (index + 1) * width,
            tip=_group_tip(group),
            kind="b",
            weight=len(group) / fullest,
        )
        for index, group in sorted(groups.items())
    ]


def _group_tip(group: Sequence[Mark]) -> str:
    first, last = group[0].tip.split("\n", 1)[1], group[-1].tip.split("\n", 1)[1]
    waits = sum(mark.kind == "w" for mark in group)
    asked = f", {waits:,} of them because the camera was not ready" if waits else ""
    return f"{group[0].at:.3f} s to {group[-1].at:.3f} s\n{len(group):,} requests{asked}\nfirst: {first}\nlast: {last}"

"""What a story means, in rows of docs/operations.md: for each trouble the set of those that it may be. A set has more
than one row only where what a user can send is the same for all of them."""

from collections.abc import Iterator, Sequence
from dataclasses import dataclass

from .downloads import download_rows
from .event_log import SERVICE, Record
from .story import Answer, CameraArrival, Item, Question, Start, Stop, UsbArrival

FINE = "up-to-date"
_TOO_LATE = 7011
_PROBLEMS = {
    "launch 10": "controller-missing",
    "update 11": "controller-setup",
    "update 12": "controller-setup",
    "sink 11": "cannot-listen",
    "base 10": "start-failed",
    "base 11": "start-failed",
}
_WITHOUT_START = ("controller-missing", "controller-setup", "controller-not-started", "controller-gone")


@dataclass(frozen=True)
class Finding:
    """The rows that something may be, the likeliest first, what was seen, and when. A `note` is seen besides: it is
    normal, or follows from another finding."""

    rows: tuple[str, ...]
    seen: str
    time: str = ""
    note: bool = False

    @property
    def is_fine(self) -> bool:
        """Whether it may be that nothing is wrong."""
        return FINE in self.rows or self.rows == ("same-version",)


def findings(items: Sequence[Item], records: Sequence[Record], has_record: bool) -> list[Finding]:
    """All of them, in the order of the story. `has_record`: there is a log that would have the toast controller's
    record."""
    found = [*_Walk(items, has_record).go(), *_of_the_system_log(records)]
    return list(dict.fromkeys(found))


def _of_the_system_log(records: Sequence[Record]) -> Iterator[Finding]:
    for record in records:
        if record.number == _TOO_LATE and any(SERVICE in text for text in record.texts):
            yield Finding(("late-control",), "the System log has event 7011 of the service", record.time, note=True)


class _Walk:
    """Goes through a story from item to item."""

    def __init__(self, items: Sequence[Item], has_record: bool) -> None:
        self._items = items
        self._has_record = has_record

    def go(self) -> Iterator[Finding]:
        if self._items and not any(isinstance(item, UsbArrival | CameraArrival) for item in self._items):
            yield Finding(("before-service",), "the trace has no arrival of any device")
        for place, item in enumerate(self._items):
            if isinstance(item, Start):
                yield from self._of_start(place, item)
            elif isinstance(item, CameraArrival):
                yield from self._of_camera(place, item)
            elif isinstance(item, Answer):
                yield from self._of_stray_answer(item)
            elif isinstance(item, UsbArrival):
                yield from self._of_usb(place, item)

    # The start.

    def _of_start(self, place: int, start: Start) -> Iterator[Finding]:
        for problem in start.problems:
            yield Finding((_PROBLEMS[problem],), "the trace says so at the service's start")
        if self._does_not_listen(place, start) and not start.problems:
            yield Finding(("controller-not-started",), "at the start the trace has no line “The service listens …”")

    def _does_not_listen(self, place: int, start: Start) -> bool:
        # Of a start at the trace's end nothing is known yet.
        return not start.listens and any(isinstance(each, UsbArrival | CameraArrival) for each in self._items[place:])

    # Camera arrivals.

    def _of_camera(self, place: int, arrival: CameraArrival) -> Iterator[Finding]:
        if arrival.outcome == "silent":
            yield self._silent(place, arrival)
        elif arrival.outcome == "unknown":
            yield Finding(("version-unknown",), "a camera did not tell its firmware's version", arrival.time)
        elif arrival.outcome == "no image":
            yield Finding(("no-image",), "the firmware image could not be opened, or is too short", arrival.time)
        elif arrival.outcome == "equal":
            if not self._comes_of_a_download(place):
                seen = f"camera and image both have {arrival.versions[0]}"
                yield Finding(("same-version",), seen, arrival.time, note=True)
        elif arrival.question is None:
            if self._has_record:
                yield self._nobody_asked(place, arrival)
        else:
            yield from self._of_question(place, arrival)

    def _silent(self, place: int, arrival: CameraArrival) -> Finding:
        usb = [each for each in self._items[:place] if isinstance(each, UsbArrival)]
        usb = usb[-1:] or [each for each in self._items if isinstance(each, UsbArrival)][:1]
        seen = "no line follows “A camera interface arrived”"
        if not usb:
            return Finding(("no-media", "mode"), seen, arrival.time)
        plug = [*self._plug_before(place), *self._until_usb(self._items[place + 1 :])]
        told = [each for each in plug if isinstance(each, CameraArrival) and each.outcome in ("equal", "different")]
        if told:
            seen += ", and one does at its other arrival"
            is_open = any(each.question is not None and each.question.answer is None for each in told)
            if is_open and not self._begins_a_download(self._items[place + 1 :]):
                return Finding(("no-media", "unanswered"), f"{seen}, whose question has no answer", arrival.time)
            return Finding((FINE,), seen, arrival.time)
        return Finding(("mode",) if usb[0].outcome == "silent" else ("no-media",), seen, arrival.time)

    def _nobody_asked(self, place: int, arrival: CameraArrival) -> Finding:
        camera, image = arrival.versions
        seen = f"the camera has {camera}, the image {image}, and there is no record of a question"
        starts = [each for each in self._items[:place] if isinstance(each, Start)]
        if not starts:
            return Finding(_WITHOUT_START, seen, arrival.time)
        start = starts[-1]
        problems = tuple(dict.fromkeys(_PROBLEMS[problem] for problem in start.problems))
        if problems:
            return Finding(problems, seen, arrival.time)
        return Finding(("controller-gone",) if start.listens else ("controller-not-started",), seen, arrival.time)

    def _comes_of_a_download(self, place: int) -> bool:
        """Whether a download stands before this arrival, which has told of it."""
        return any(isinstance(each, UsbArrival) and each.outcome == "download" for each in self._items[:place])

    def _of_question(self, place: int, arrival: CameraArrival) -> Iterator[Finding]:
        question = arrival.question
        assert question is not None
        rest = self._items[place + 1 :]
        same_plug = self._until_usb(rest)
        if any(isinstance(each, CameraArrival) and each.outcome == "different" and each.question for each in same_plug):
            seen = "the camera was asked about at both of its arrivals"
            yield Finding(("two-prompts",), seen, arrival.time, note=True)
            if question.answer is None:
                return
        if question.answer is False:
            yield Finding(("declined",), "the record has an answer that is no acceptance", arrival.time)
        elif question.answer is None:
            yield from self._unanswered(place, arrival, same_plug)
        else:
            yield from self._of_yes(place, arrival)

    def _unanswered(self, place: int, arrival: CameraArrival, same_plug: Sequence[Item]) -> Iterator[Finding]:
        others = [*self._plug_before(place), *same_plug]
        if any(isinstance(each, CameraArrival) and each.outcome in ("silent", "unknown") for each in others):
            # The camera that went meanwhile is told there.
            return
        question = arrival.question
        assert question is not None
        rest = self._items[place + 1 :]
        seen = "the question has no answer in the record"
        following = next((each for each in rest if not isinstance(each, CameraArrival)), None)
        if self._begins_a_download(rest):
            yield Finding((FINE, "controller-gone"), "a download follows a question without an answer", arrival.time)
        elif isinstance(following, Stop):
            yield self._unanswered_until_the_end(arrival, question)
        elif any(
            isinstance(each, CameraArrival) and each.outcome == "different" and not each.question for each in rest
        ):
            seen += ", and the next camera is not asked about"
            yield Finding(("controller-gone", "unanswered"), seen, arrival.time)
        else:
            yield Finding(("unanswered",), seen, arrival.time)

    @staticmethod
    def _unanswered_until_the_end(arrival: CameraArrival, question: Question) -> Finding:
        """Of a question after which the service was stopped."""
        seen = "the question has no answer in the record, and the service was stopped"
        if question.replaced:
            return Finding(("unanswered",), f"{seen}: another question took its place", arrival.time)
        if question.lapsed:
            return Finding(("unanswered", "controller-hangs"), seen, arrival.time)
        seen += ", of which the toast controller has no record"
        return Finding(("controller-gone",), seen, arrival.time)

    def _begins_a_download(self, rest: Sequence[Item]) -> bool:
        first = next((each for each in rest if isinstance(each, UsbArrival)), None)
        return first is not None and first.download is not None and first.download.end == 0

    def _of_yes(self, place: int, arrival: CameraArrival) -> Iterator[Finding]:
        rest = self._items[place + 1 :]
        if any(isinstance(each, Answer) and each.accepted for each in self._until_usb(rest)):
            yield Finding(("not-switched", FINE), "the user accepted twice", arrival.time)
            return
        first = next((at for at, each in enumerate(rest) if isinstance(each, UsbArrival)), None)
        if first is None:
            yield Finding(("not-switched",), "after the acceptance no device arrived", arrival.time)
            return
        usb = rest[first]
        assert isinstance(usb, UsbArrival)
        if usb.outcome == "silent":
            yield Finding(("mode",), "after the acceptance no line follows “A USB device interface arrived”", usb.time)
        elif usb.outcome == "none":
            comes_back = any(isinstance(each, CameraArrival) for each in self._until_usb(rest[first + 1 :]))
            row = "not-switched" if comes_back else "other-identifiers"
            yield Finding((row,), "after the acceptance no camera in DFU mode came", usb.time)

    def _of_stray_answer(self, answer: Answer) -> Iterator[Finding]:
        if not answer.accepted:
            yield Finding(("declined",), "the record has an answer that is no acceptance")

    # USB arrivals.

    def _of_usb(self, place: int, usb: UsbArrival) -> Iterator[Finding]:
        if usb.outcome in ("not opened", "no endpoint"):
            yield from self._of_unopened(place, usb)
        elif usb.download is not None:
            unasked = not self._was_accepted(place)
            yield from download_rows_as_findings(self._items, place, usb, unasked)

    def _of_unopened(self, place: int, usb: UsbArrival) -> Iterator[Finding]:
        tries = self._tries(place)
        if tries[0] is not usb:
            return
        seen = "the camera in DFU mode could not be opened"
        outcomes = [each.outcome for each in tries]
        if "no endpoint" in outcomes:
            yield Finding(("driver-wrong",), "the camera in DFU mode has no control endpoint", usb.time)
        elif "download" in outcomes:
            yield Finding(("driver-late",), f"{seen}, and then it was", usb.time)
        elif len(tries) > 1:
            yield Finding(("driver-wrong",), f"{seen}, {len(tries)} times", usb.time)
        elif self._is_only_left_over(place):
            yield Finding((FINE,), f"{seen} after its download: a late notice of its removal", usb.time)
        else:
            yield Finding(("driver-late", "driver-wrong"), f"{seen}, once", usb.time)

    def _tries(self, place: int) -> list[UsbArrival]:
        """The arrivals around this one at which a camera in DFU mode was seen, without any other item between."""
        first = place
        while first > 0 and self._is_try(first - 1):
            first -= 1
        last = place
        while last + 1 < len(self._items) and self._is_try(last + 1):
            last += 1
        tries = [each for each in self._items[first : last + 1] if isinstance(each, UsbArrival)]
        # What was downloaded before is another camera's, or another stay.
        while tries and tries[0].outcome == "download":
            tries.pop(0)
        return tries

    def _is_try(self, place: int) -> bool:
        item = self._items[place]
        return isinstance(item, UsbArrival) and item.outcome in ("not opened", "no endpoint", "download")

    def _is_only_left_over(self, place: int) -> bool:
        before = self._items[place - 1] if place else None
        after = self._items[place + 1] if place + 1 < len(self._items) else None
        return isinstance(before, UsbArrival) and before.outcome == "download" and isinstance(after, CameraArrival)

    def _was_accepted(self, place: int) -> bool:
        """Whether an acceptance stands between this arrival and the download before it."""
        for item in reversed(self._items[:place]):
            if isinstance(item, UsbArrival) and item.outcome == "download":
                return False
            if isinstance(item, Answer) and item.accepted:
                return True
            if isinstance(item, CameraArrival) and item.question is not None and item.question.answer is not False:
                return True
            if isinstance(item, CameraArrival) and item.outcome == "different" and not self._has_record:
                return True
        return False

    def _plug_before(self, place: int) -> list[Item]:
        """The items of the same plug before this one."""
        first = place
        while first > 0 and not isinstance(self._items[first - 1], UsbArrival):
            first -= 1
        return list(self._items[first:place])

    @staticmethod
    def _until_usb(rest: Sequence[Item]) -> list[Item]:
        end = next((at for at, each in enumerate(rest) if isinstance(each, UsbArrival)), len(rest))
        return list(rest[:end])


def download_rows_as_findings(items: Sequence[Item], place: int, usb: UsbArrival, unasked: bool) -> Iterator[Finding]:
    """What a download was, and that nobody was asked about it."""
    judged = download_rows(items, place, unasked)
    yield Finding(judged.rows, judged.seen, usb.time)
    if unasked:
        yield Finding(("unasked",), "a download began that no question stands before", usb.time, note=True)

"""The part of an event log that belongs to a trace: logs go back for months, and a trace begins when somebody starts it. Both
have times of their own, one perhaps in the time zone of the machine, so they are laid over each other first."""

import re
from collections import Counter
from collections.abc import Sequence
from datetime import datetime, timedelta

from .event_log import CONTROLLER, Record
from .trace_text import Message

# What the service traces just before the toast controller writes its record of it.
_ANCHORS = {"update 27": (1,), "update 19": (10, 24)}
_MOST_ANCHORS = 300
_ZONE_STEP = 900
_MOST_STEPS = 14 * 4
_LATE_SECONDS = 5
_EARLY = timedelta(seconds=2)
_FORMS = ("%m/%d/%Y-%H:%M:%S.%f", "%Y-%m-%dT%H:%M:%S.%f", "%Y-%m-%dT%H:%M:%S", "%m/%d/%Y %I:%M:%S %p",
          "%m/%d/%Y %H:%M:%S", "%d.%m.%Y %H:%M:%S")  # fmt: skip


def of_the_trace(messages: Sequence[Message], records: Sequence[Record]) -> list[Record]:
    """The records since the trace began. All of them when there is no trace, or times cannot be read; none of the toast
    controller's when none fits to what was traced, though the times can be read."""
    begun = next((time for message in messages if (time := _time(message.time)) is not None), None)
    times = [_time(record.time) for record in records]
    if begun is None or None in times:
        return list(records)
    steps = _steps(messages, records)
    if steps is None:
        return [record for record in records if record.source != CONTROLLER]
    since = begun - timedelta(seconds=steps * _ZONE_STEP) - _EARLY
    return [record for record, time in zip(records, times) if time is not None and time >= since]


def _steps(messages: Sequence[Message], records: Sequence[Record]) -> int | None:
    """By how many quarters of an hour the trace's clock is ahead of the log's; None when nothing fits."""
    votes: Counter[int] = Counter()
    for name, numbers in _ANCHORS.items():
        traced = [time for each in messages if each.name == name and (time := _time(each.time)) is not None]
        written = [
            time
            for each in records
            if each.source == CONTROLLER and each.number in numbers and (time := _time(each.time)) is not None
        ]
        for trace in traced[-_MOST_ANCHORS:]:
            for record in written[-_MOST_ANCHORS:]:
                ahead = (trace - record).total_seconds()
                steps = round(ahead / _ZONE_STEP)
                if abs(steps) <= _MOST_STEPS and -_LATE_SECONDS <= ahead - steps * _ZONE_STEP <= 1:
                    votes[steps] += 1
    return min(votes, key=lambda steps: (-votes[steps], abs(steps)), default=None)


def _time(text: str) -> datetime | None:
    """A time as trace and exports have it; more digits of a second than six, and a zone's letter, are left out."""
    plain = re.sub(r"(\.\d{6})\d+", r"\1", text.strip()).removesuffix("Z")
    for form in _FORMS:
        try:
            return datetime.strptime(plain, form)
        except ValueError:
            continue
    return None

"""What an expectation of a scenario means: each field looked up in what happened since the expectation before it."""

from collections.abc import Callable, Iterator, Sequence
from itertools import groupby
from typing import Any

from ..scenarios.transfer_pattern import request_of
from ..wire.events import RIG
from .flash import check_firmware, check_flash
from .observed import Observed, differ
from .results import RESULTS, check_transfers


def judge(expectation: dict[str, Any], observed: Observed) -> Iterator[str]:
    """What does not hold, in words."""
    for _, complaints in judge_each(expectation, observed):
        yield from complaints


def judge_each(expectation: dict[str, Any], observed: Observed) -> Iterator[tuple[str, list[str]]]:
    """Each field of the expectation that is looked up in what happened, and what does not hold of it."""
    if "result" in expectation:
        yield "result", list(RESULTS[expectation["result"]](observed, expectation))
    for field, wanted in expectation.items():
        if field in CHECKS:
            yield field, list(CHECKS[field](observed, wanted))


def _in(wanted: Any, seen: int) -> bool:
    return wanted[0] <= seen <= wanted[1] if isinstance(wanted, list) else wanted == seen


def _check_requests(observed: Observed, wanted: dict[str, Any]) -> Iterator[str]:
    names = [request_of(event) for event in observed.transfers]
    for name, count in wanted.items():
        if not _in(count, names.count(name)):
            yield f"requests {name}: expected {count}, seen {names.count(name)}"


def _without_words(wanted: Sequence[str], seen: Sequence[str]) -> list[str]:
    """The messages seen, cut to their numbers where the wanted ones tell only these."""
    numbers = {trace for trace in wanted if ":" not in trace}
    return [trace if (number := trace.partition(":")[0]) not in numbers else number for trace in seen]


def _check_traces(observed: Observed, wanted: list[str]) -> Iterator[str]:
    yield from differ("trace messages", wanted, _without_words(wanted, observed.traces))


def _check_traces_with(observed: Observed, wanted: list[str]) -> Iterator[str]:
    seen = _without_words(wanted, observed.traces)
    for trace in wanted:
        if trace not in seen:
            yield f"trace messages: expected {trace} among {seen}"


def _check_traces_without(observed: Observed, unwanted: list[str]) -> Iterator[str]:
    yield from differ(
        "unwanted trace messages", [], [t for t in _without_words(unwanted, observed.traces) if t in unwanted]
    )


def _check_count(what: str, count: Callable[[Observed], int]) -> Callable[[Observed, Any], Iterator[str]]:
    def check(observed: Observed, wanted: Any) -> Iterator[str]:
        seen = count(observed)
        if not _in(wanted, seen):
            yield f"{what}: expected {wanted}, seen {seen}"

    return check


def _check_list(what: str, items: Callable[[Observed], list[Any]]) -> Callable[[Observed, Any], Iterator[str]]:
    def check(observed: Observed, wanted: Any) -> Iterator[str]:
        yield from differ(what, wanted, items(observed))

    return check


def _check_cameras(observed: Observed, wanted: list[dict[str, Any] | None]) -> Iterator[str]:
    for number, fields in enumerate(wanted):
        if fields is None:
            continue
        now = observed.look(number)
        for name, value in fields.items():
            if name == "flash":
                yield from check_flash(observed, number, value, now)
            elif name == "firmware":
                yield from check_firmware(observed, number, value, now)
            else:
                yield from differ(f"{name} of camera {number}", value, getattr(now, name))


def _check_service(name: str) -> Callable[[Observed, str], Iterator[str]]:
    def check(observed: Observed, wanted: str) -> Iterator[str]:
        yield from differ(f"state of the service {name}", wanted, observed.service_state(name, wanted))

    return check


CHECKS: dict[str, Callable[[Observed, Any], Iterator[str]]] = {
    "questions": _check_list("questions", lambda observed: [e["texts"] for e in observed.calls("ShowUpdatePrompt")]),
    "progress": _check_list("progress", lambda observed: observed.progress),
    "completions": _check_count("ends of a download", lambda observed: len(observed.calls("NotifyComplete"))),
    "commands": _check_count("commands into DFU mode", lambda observed: observed.commands),
    "transfers": check_transfers,
    "errors": _check_list(
        "errors of transfers", lambda observed: [code for code, _ in groupby(e["error"] for e in observed.failed)]
    ),
    "requests": _check_requests,
    "traces": _check_traces,
    "traces with": _check_traces_with,
    "traces without": _check_traces_without,
    "event log": _check_list("event log", lambda observed: [e["strings"][1] for e in observed.of(RIG, "event-log")]),
    "debug texts": _check_count("debug texts", lambda observed: len(observed.of(RIG, "debug-string"))),
    "controls": _check_count("controls handled", lambda observed: len(observed.of(RIG, "handled"))),
    "late controls": _check_count("late controls", lambda observed: len(observed.of(RIG, "late-control"))),
    "refused controls": _check_list(
        "refused controls",
        lambda observed: [each for e in observed.of(RIG, "late-control") for each in e["refused"]],
    ),
    "commands run": _check_list(
        "commands run", lambda observed: sorted(e["command"] for e in observed.of(RIG, "command-run"))
    ),
    "cameras": _check_cameras,
    "service": _check_service("VeyraCameraDfuService"),
    "monitored service": _check_service("VeyraCameraDFU"),
}

"""What the service says of an update in its trace."""

from collections.abc import Iterator

from ..windows.installation import SERVICE_CONTROLLED
from ..wire.trace_formats import SERVICE_BASE_TRACES, UPDATE_SERVICE_TRACES
from .expectation import ACCEPTED, Expectations, differ
from .plan import UNKNOWN_VERSION, Foreseen, UpdatePlan
from .record import Record

EXPECTATIONS = Expectations()


@EXPECTATIONS.expect(
    "the trace tells the road", Foreseen.UPDATED, Foreseen.DECLINED, Foreseen.NOT_ASKED, Foreseen.PROBE_REFUSED
)
def _trace_order(record: Record) -> str:
    letters = {SERVICE_BASE_TRACES: "base", UPDATE_SERVICE_TRACES: "update"}
    seen = [
        f"{letters[event['group']]} {event['number']}"
        for event in record.of_service("trace")
        if event["group"] in letters
    ]
    return differ("messages", list(_messages(record)), seen)


@EXPECTATIONS.expect("every trace message has its words")
def _trace_texts(record: Record) -> str:
    return differ("without", [], [event for event in record.of_service("trace") if event["text"] is None])


def _messages(record: Record) -> Iterator[str]:
    plan = record.plan
    yield "update 10"
    yield from _messages_of_plugging(plan, plan.camera_version)
    if plan.foreseen in ACCEPTED:
        yield from ("base 13", "update 19")
    if plan.foreseen is Foreseen.UPDATED:
        yield from _messages_of_plugging(plan, plan.image_version)
    yield "update 24"


def _messages_of_plugging(plan: UpdatePlan, version: str) -> Iterator[str]:
    if plan.update_mode != SERVICE_CONTROLLED:
        yield from ("base 13", "base 12", "base 12")
        return
    looked = ("update 22",) if version == UNKNOWN_VERSION else ("update 23", "update 27")
    yield from ("base 13", "update 18")
    # The video camera's arrival comes second.
    for found in (True, plan.questions == 2):
        yield "base 12"
        yield from looked if found else ()

"""Judges what an update left behind."""

from . import service_expectations, trace_expectations, transfer_expectations, update_expectations
from .expectation import Verdict
from .record import Record

_EXPECTATIONS = (
    *service_expectations.EXPECTATIONS,
    *update_expectations.EXPECTATIONS,
    *transfer_expectations.EXPECTATIONS,
    *trace_expectations.EXPECTATIONS,
)


def judge(record: Record) -> list[Verdict]:
    """Every expectation that concerns this update. After a road that broke off there is only that to say."""
    if record.broken_off:
        return [Verdict("the road is gone to its end", "; ".join([record.broken_off, *record.breaches]))]
    verdicts = [
        Verdict(expectation.name, expectation.check(record))
        for expectation in _EXPECTATIONS
        if record.plan.foreseen in expectation.concerns
    ]
    if record.bus_complaints is not None:
        name = "Linux has nothing to say against the camera, and both ends of the bus tell the same transfers"
        verdicts.append(Verdict(name, "; ".join(record.bus_complaints)))
    return verdicts

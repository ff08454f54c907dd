"""Line 5: from the request to start to the report that the service runs."""

import statistics
from collections.abc import Iterator, Sequence

from ...windows.service_under_test import ServiceUnderTest
from ...wire.events import TOAST
from ..table import Row, ratio_at_most
from .contenders import Contenders

LINE = 5
_ROUNDS = 15
_BAR = 1.25


def measure(contenders: Contenders) -> Iterator[Row]:
    """With the toast controller there, and without it."""
    product, minimal, activating = _medians((contenders.product, contenders.minimal, contenders.activating))
    yield ratio_at_most(
        LINE,
        "start, toast controller present",
        product,
        activating,
        _BAR,
        "ms",
        against="minimal service with COM activation",
        note=f"The minimal service without the activation: {minimal:.0f} ms.",
    )
    contenders.peer.dismiss(TOAST, seconds=10)
    contenders.installation.put_toast_server(False)
    try:
        product, minimal = _medians((contenders.product, contenders.minimal))
    finally:
        contenders.installation.put_toast_server(True)
    yield ratio_at_most(LINE, "start, toast controller absent", product, minimal, _BAR, "ms", against="minimal service")


def _medians(services: Sequence[ServiceUnderTest]) -> list[float]:
    """Milliseconds of each service's start, in rounds in which each starts once. The first round warms up: it is what
    activates the toast controller's process."""
    starts = [[_start_ms(service) for service in services] for _ in range(_ROUNDS + 1)]
    return [statistics.median(of_one) for of_one in zip(*starts[1:])]


def _start_ms(service: ServiceUnderTest) -> float:
    seconds = service.start()
    service.stop()
    return seconds * 1000

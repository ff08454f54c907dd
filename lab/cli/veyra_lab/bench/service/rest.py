"""Line 6: what the service costs while nothing happens."""

import time
from collections.abc import Iterator

from ...wire.events import RIG
from ..table import Row, above_at_most
from .contenders import MINIMAL, PRODUCT, Contenders
from .process_view import look

LINE = 6
_SECONDS = 60
_CALM_SECONDS = 3
_CROWD = 10
_BAR_KIB = 2048
# One a second, and the one at the end of the minute.
_MEANT_WAKE_UPS = _SECONDS + 1
_AGAINST = "minimal service"


def measure(contenders: Contenders) -> Iterator[Row]:
    """Both services at rest side by side, looked at from outside."""
    contenders.start(contenders.product, skip_waits=False)
    contenders.start(contenders.minimal, skip_waits=False)
    time.sleep(_CALM_SECONDS)
    (ours,) = contenders.machine.processes(f"{PRODUCT}.exe")
    (theirs,) = contenders.machine.processes(f"{MINIMAL}.exe")
    before = look(ours), look(theirs)
    time.sleep(_SECONDS)
    product, minimal = look(ours), look(theirs)
    # The rig that came last answers.
    handles_of_minimal = contenders.minimal.resources().handles
    contenders.peer.command(RIG, "idle-threads", count=_CROWD)
    time.sleep(_CALM_SECONDS)
    crowded = look(theirs)
    stack, stacks_kib = (crowded.private_kib_by_size - minimal.private_kib_by_size).most_common(1)[0]
    stack_kib = stacks_kib / _CROWD
    contenders.minimal.stop()
    handles_of_product = contenders.product.resources().handles
    contenders.product.stop()

    yield Row(
        LINE,
        f"processor time in {_SECONDS} s at rest",
        product.processor_ms_since(before[0]),
        minimal.processor_ms_since(before[1]),
        "ms",
        _AGAINST,
    )
    yield above_at_most(
        LINE,
        f"wake-ups in {_SECONDS} s at rest",
        product.wake_ups_since(before[0]),
        minimal.wake_ups_since(before[1]),
        _MEANT_WAKE_UPS,
        "",
        against=_AGAINST,
        note="One a second is deliberate.",
    )
    yield Row(LINE, "threads", len(product.threads), len(minimal.threads), "", _AGAINST)
    yield Row(LINE, "handles", handles_of_product, handles_of_minimal, "", _AGAINST)
    without_stacks = above_at_most(
        LINE,
        "private memory written, but for the threads' stacks",
        product.private_kib - product.mappings_by_size[stack] * stack_kib,
        minimal.private_kib - minimal.mappings_by_size[stack] * stack_kib,
        _BAR_KIB,
        "KiB",
        against=_AGAINST,
    )
    yield above_at_most(
        LINE,
        "private memory written",
        product.private_kib,
        minimal.private_kib,
        _BAR_KIB,
        "KiB",
        against=_AGAINST,
        note=f"This Windows writes {stack_kib:,.0f} KiB for the stacks of a thread that only waits, and keeps the"
        f" stacks of one that has ended: {product.mappings_by_size[stack]} here and"
        f" {minimal.mappings_by_size[stack]} in the minimal service. The threads are those of the work item and of"
        " COM.",
        excused=without_stacks.holds is True,
    )
    yield without_stacks

"""What a download looks like on the bus, in the requests of the USB DFU 1.1 standard."""

from collections.abc import Iterator

from ..wire.events import BLOCK_NUMBERS, Event
from .expectation import Expectations, differ
from .plan import PROBE_SIZE, Foreseen
from .record import Record

EXPECTATIONS = Expectations()


@EXPECTATIONS.expect("the transfers come in the order of the download", Foreseen.UPDATED, Foreseen.PROBE_REFUSED)
def _transfer_order(record: Record) -> str:
    wanted = list(_setups(record))
    seen = [_setup_bytes(event) for event in record.transfers()]
    for position, (one, other) in enumerate(zip(wanted, seen)):
        if one != other:
            return f"transfer {position}: {one.hex(' ')} was expected, {other.hex(' ')} was seen"
    return differ("number of transfers", len(wanted), len(seen))


@EXPECTATIONS.expect("every transfer succeeds", Foreseen.UPDATED, Foreseen.PROBE_REFUSED)
def _transfers_succeed(record: Record) -> str:
    # The device resets over the last GETSTATUS, so that one may fail.
    needed = record.transfers()[:-1] if record.plan.foreseen is Foreseen.UPDATED else record.transfers()
    return differ("failed transfers", [], [event for event in needed if not event["ok"]])


@EXPECTATIONS.expect("the number of transfers is that of the blocks", Foreseen.UPDATED)
def _transfer_count(record: Record) -> str:
    wanted = 2 * record.plan.blocks + 7 + _extra_polls(record)
    return differ("transfers", wanted, len(record.transfers()))


def _setup(request_type: int, request: int, value: int, length: int) -> bytes:
    interface = 0
    return bytes([request_type, request]) + b"".join(
        number.to_bytes(2, "little") for number in (value, interface, length)
    )


def _setup_bytes(transfer: Event) -> bytes:
    return bytes.fromhex(transfer["setup"])


_GETSTATE = _setup(0xA1, 5, 0, 1)
_DETACH = _setup(0x21, 0, 1000, 0)
_PROBE = _setup(0xA1, 2, 0, PROBE_SIZE)
_GETSTATUS = _setup(0xA1, 3, 0, 6)


def _download(block: int, length: int) -> bytes:
    return _setup(0x21, 1, block % BLOCK_NUMBERS, length)


def _extra_polls(record: Record) -> int:
    """GETSTATUS requests beyond the two that a camera needs which finishes at once."""
    polls = 0
    for transfer in reversed(record.transfers()):
        if _setup_bytes(transfer) != _GETSTATUS:
            break
        polls += 1
    return max(0, polls - 2)


def _setups(record: Record) -> Iterator[bytes]:
    yield from (_GETSTATE, _DETACH, _GETSTATE)
    if record.plan.foreseen is Foreseen.PROBE_REFUSED:
        return
    yield _PROBE
    remaining = len(record.plan.image)
    for block in range(record.plan.blocks):
        length = min(remaining, record.plan.transfer_size)
        remaining -= length
        yield _download(block, length)
        yield _GETSTATUS
    yield _download(record.plan.blocks, 0)
    yield from [_GETSTATUS] * (2 + _extra_polls(record))

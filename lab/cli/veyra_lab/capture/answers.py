"""What a device told about itself, request by request."""

from collections.abc import Mapping, Sequence

from .transfer import End, Request, Transfer

_STATES_AT: Mapping[int, int] = {Request.GETSTATUS: 4, Request.GETSTATE: 0}


def is_request(transfer: Transfer, request: Request) -> bool:
    """Whether it is this request of the USB DFU 1.1 standard."""
    return transfer.is_dfu and transfer.request == request


def is_block(transfer: Transfer) -> bool:
    """Whether it is a DNLOAD with data."""
    return is_request(transfer, Request.DNLOAD) and transfer.length > 0


def is_closing(transfer: Transfer) -> bool:
    """Whether it is the DNLOAD without data that ends a download."""
    return is_request(transfer, Request.DNLOAD) and transfer.length == 0


def state_in(transfer: Transfer, data: bytes | None = None) -> int | None:
    """bState, if the answer has one: the captured one or another."""
    content = transfer.data if data is None else data
    place = _STATES_AT.get(transfer.request) if transfer.is_dfu else None
    if place is None or (data is None and transfer.end is not End.OK) or len(content) <= place:
        return None
    return content[place]


def status_in(transfer: Transfer) -> int | None:
    """bStatus, if there is one."""
    return transfer.data[0] if state_in(transfer) is not None and is_request(transfer, Request.GETSTATUS) else None


def poll_in(data: bytes) -> int:
    """bwPollTimeout of a whole answer to GETSTATUS."""
    return int.from_bytes(data[1:4], "little")


def state_behind(requests: Sequence[Transfer], place: int) -> int | None:
    """The next state that is told behind a request, unless a host has done something about it before."""
    for transfer in requests[place + 1 : place + 9]:
        state = state_in(transfer)
        if state is not None:
            return state
        if not transfer.is_dfu or transfer.request not in (Request.GETSTATUS, Request.GETSTATE):
            return None
    return None


def ms(microseconds: int) -> int:
    """Milliseconds, to the nearest."""
    return (microseconds + 500) // 1000

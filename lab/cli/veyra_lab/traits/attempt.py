"""What became of one update, read from what the service was seen to do."""

from collections.abc import Sequence
from dataclasses import dataclass

from ..scenarios.transfer_pattern import request_of
from ..wire.events import RIG, Event

_IDLE_AFTER_MANIFESTATION = "08"  # bState of dfuMANIFEST-WAIT-RESET, for which the service waits
_E_FAIL = 0x80004005


@dataclass(frozen=True)
class Attempt:
    """One update from the opening of the device to its closing."""

    # The engine's result as the requests tell it.
    result: str
    # The last request.
    ended: str
    transfers: int
    # Of the laboratory's clock: waits of the service, and answers that came late or never.
    seconds: float


def read_attempt(events: Sequence[Event]) -> Attempt:
    """The attempt that these events tell of; there is one."""
    rig = [event for event in events if event["source"] == RIG]
    transfers = [event for event in rig if event["event"] == "transfer"]
    if not transfers:
        return Attempt("not opened", "SET_INTERFACE" if _refused_setting(rig) else "open", 0, 0.0)
    opened = next(number for number, event in enumerate(rig) if event["event"] == "usb-open" and event["ok"])
    closed = next(number for number, event in enumerate(rig) if event["event"] == "usb-close" and number > opened)
    waited = sum(event.get("ms", 0) for event in rig[opened:closed] if event["event"] in ("wait", "transfer"))
    return Attempt(_result(transfers), _ended(transfers), len(transfers), waited / 1000)


def _refused_setting(rig: Sequence[Event]) -> bool:
    return any(event["event"] == "alternate-setting" and not event["ok"] for event in rig)


def _result(transfers: Sequence[Event]) -> str:
    last = transfers[-1]
    if not last["ok"] and request_of(last) not in ("GETSTATUS", "EMPTY"):
        return f"0x{0x80070000 | last['error']:08X}"
    is_done = _is_manifesting(transfers) and any(
        request_of(event) == "GETSTATUS" and event["ok"] and event["data"][8:10] == _IDLE_AFTER_MANIFESTATION
        for event in transfers
    )
    return f"0x{0 if is_done else _E_FAIL:08X}"


def _ended(transfers: Sequence[Event]) -> str:
    name = request_of(transfers[-1])
    if name != "GETSTATUS":
        return name
    return "GETSTATUS in manifestation" if _is_manifesting(transfers) else "GETSTATUS after a block"


def _is_manifesting(transfers: Sequence[Event]) -> bool:
    return any(request_of(event) == "EMPTY" for event in transfers)

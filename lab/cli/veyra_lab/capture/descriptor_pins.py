"""Faults of descriptor reads: those of the host's driver, once the device is configured."""

from typing import Any

from .answers import is_request
from .stays import Stay
from .transfer import CONFIGURATION, DEVICE, GET_DESCRIPTOR, SET_CONFIGURATION, STANDARD_TO_HOST, End, Request, Transfer

_WHATS = {End.STALL: "stall", End.TIMEOUT: "timeout", End.GONE: "unplug", End.BROKEN: "timeout"}


def pin_descriptors(stay: Stay) -> list[dict[str, Any]]:
    """What became of each read that did not bring the whole."""
    faults: list[dict[str, Any]] = []
    wholes = {DEVICE: len(stay.device_descriptor), CONFIGURATION: len(stay.configuration)}
    is_configured = False
    skipped = 0
    for each in stay.transfers:
        if is_request(each, Request.DNLOAD):
            break
        is_configured |= each.setup[:2] == bytes([0, SET_CONFIGURATION])
        if not is_configured or not _is_read(each):
            continue
        expected = min(each.asked, wholes[each.value >> 8])
        if each.end in _WHATS:
            faults.append({"where": "GET-DESCRIPTOR", "what": _WHATS[each.end], "skip": skipped})
        elif each.end is End.OK and each.length < expected:
            faults.append({"where": "GET-DESCRIPTOR", "what": "short", "value": each.length, "skip": skipped})
        skipped += 1
    return faults


def _is_read(each: Transfer) -> bool:
    is_descriptor = each.setup[0] == STANDARD_TO_HOST and each.request == GET_DESCRIPTOR
    return is_descriptor and each.value in (DEVICE << 8, CONFIGURATION << 8)

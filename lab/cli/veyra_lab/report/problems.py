"""What went wrong beside the transfers, which belong to their downloads."""

from dataclasses import dataclass

from .codes import hresult, win32_as_hresult
from .transcript import Event, number, text, texts

_FAILED_CALLS = {
    "usb-open": "the device in DFU mode could not be opened",
    "descriptor": "a descriptor could not be read",
    "alternate-setting": "the DFU interface could not be chosen",
    "process": "a program could not be started",
}


@dataclass(frozen=True)
class Problem:
    """Something that went wrong on the way."""

    t: float
    text: str


def problems(events: list[Event]) -> list[Problem]:
    """All of them, in the order of the record."""
    told = [(event["t"], _problem(event)) for event in events]
    return [Problem(t, words) for t, words in told if words]


def _problem(event: Event) -> str:
    kind = event["event"]
    result = number(event, "result") or 0
    refused = event.get("ok") is False
    if kind in ("firmware-command", "firmware-reply") and result < 0:
        return f"a firmware command failed with {hresult(result)}"
    if kind == "answer" and result < 0:
        return f"the service did not take the user's answer: {hresult(result)}"
    if kind == "handled" and result != 0:
        return f"the service answered a control with {win32_as_hresult(result)}"
    if kind in _FAILED_CALLS and refused:
        error = number(event, "error")
        return f"{_FAILED_CALLS[kind]}: {win32_as_hresult(error)}" if error else _FAILED_CALLS[kind]
    if kind == "done" and refused:
        return f"{text(event, 'command') or 'a command'} was refused: {text(event, 'why') or 'no reason given'}"
    if kind == "contract":
        return f"a contract of Windows is broken: {text(event, 'contract')} ({text(event, 'call')})"
    if kind == "event-log" and number(event, "type") == 1:
        return f"an error stands in the event log: {(texts(event, 'strings') or [''])[-1]}"
    return ""

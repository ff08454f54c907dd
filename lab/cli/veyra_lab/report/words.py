"""Says in plain words what an event means, whose doing it is, and how much it matters."""

from collections.abc import Callable

from .codes import (
    CONTROLS,
    DEVICE_EVENTS,
    INTERFACE_CLASSES,
    SERVICE_STATES,
    WHY_NO_SUCH_SERVICE,
    hresult,
    named,
    win32_as_hresult,
)
from .download import announced_blocks
from .laboratory import LABORATORY_TELLERS
from .telling import Lane, Telling, lane_of_source
from .transcript import Event, number, numbers, text, texts

_ENTER_DFU_MODE = 0x1E
_READ_INFORMATION = 0x10
_DEVICE_EVENT = 11
_STATE_WORD = 1
_CHECK_POINT_WORD = 5


def tell(event: Event) -> Telling:
    """Any event but a transfer; an unknown one is told by its name."""
    teller = _TELLERS.get(event["event"])
    return teller(event) if teller else Telling(lane_of_source(event), event["event"])


def is_block_progress(event: Event) -> bool:
    """Whether this is the service's call for a block that arrived."""
    said = texts(event, "texts")
    return event["event"] == "prompt-call" and len(said) == 1 and said[0].isascii() and said[0].isdecimal()


def class_name(event: Event) -> str:
    """The interface class that an event names, in words."""
    known = text(event, "class")
    return INTERFACE_CLASSES.get(known.lower(), known or "unnamed class")


def _hello(event: Event) -> Telling:
    return Telling(lane_of_source(event), f"a process begins: {text(event, 'command_line')}")


def _gone(event: Event) -> Telling:
    who = {"rig": "the service's executable", "toast": "the toast controller"}.get(
        text(event, "of"), text(event, "of")
    )
    lane = Lane.USER if event.get("of") == "toast" else Lane.SERVICE
    return Telling(lane, f"{who} has ended (process {number(event, 'pid')})")


def _service_status(event: Event) -> Telling:
    words = numbers(event, "words")
    state = named(SERVICE_STATES, words[_STATE_WORD] if len(words) > _STATE_WORD else None)
    point = words[_CHECK_POINT_WORD] if len(words) > _CHECK_POINT_WORD else 0
    told = f"{state}, check point {point}" if point else state
    return Telling(Lane.CONTROL_MANAGER, f"the service reports: {told}", matters=True)


def _control(event: Event) -> Telling:
    control = number(event, "control")
    if control != _DEVICE_EVENT:
        return Telling(Lane.CONTROL_MANAGER, f"the service is told: {named(CONTROLS, control)}", matters=True)
    what = named(DEVICE_EVENTS, number(event, "type"))
    return Telling(Lane.CONTROL_MANAGER, f"the service is told: {what} of a {class_name(event)} interface")


def _handled(event: Event) -> Telling:
    result = number(event, "result") or 0
    took = number(event, "ms")
    words = f"the service has dealt with the {named(CONTROLS, number(event, 'control'))}"
    words += f" in {took} ms" if took is not None else ""
    if result != 0:
        return Telling(Lane.SERVICE, f"{words}: {win32_as_hresult(result)}", matters=True, bad=True)
    return Telling(Lane.SERVICE, words)


def _late_control(event: Event) -> Telling:
    words = f"Windows would write event {number(event, 'id')} after this {named(CONTROLS, number(event, 'control'))}"
    words += f" of {(number(event, 'ms') or 0) / 1000:.1f} s: {text(event, 'text')}"
    if refused := ", ".join(named(CONTROLS, control) for control in numbers(event, "refused")):
        words += f" Refused meanwhile: {refused} ({win32_as_hresult(number(event, 'error') or 0)})"
    return Telling(Lane.CONTROL_MANAGER, words, matters=True)


def _registered(event: Event) -> Telling:
    return Telling(Lane.CONTROL_MANAGER, "the service asks for device events")


def _watch(event: Event) -> Telling:
    verb = "no longer watches" if event.get("registered") is False else "begins to watch"
    return Telling(Lane.SERVICE, f"the service {verb} {class_name(event)} interfaces")


def _watch_callback(event: Event) -> Telling:
    return Telling(Lane.SERVICE, f"the watch sees: {text(event, 'action')} of {text(event, 'link')}")


def _firmware_command(event: Event) -> Telling:
    opcode, result = number(event, "opcode"), number(event, "result") or 0
    if opcode == _ENTER_DFU_MODE:
        words = "the service sends the camera into DFU mode"
    elif opcode == _READ_INFORMATION:
        words = "the service asks the camera for its version"
    else:
        words = f"the service sends firmware command {opcode}"
    if result < 0:
        return Telling(Lane.BUS, f"{words}: {hresult(result)}", matters=True, bad=True)
    return Telling(Lane.BUS, words, matters=opcode == _ENTER_DFU_MODE)


def _firmware_reply(event: Event) -> Telling:
    result = number(event, "result") or 0
    if result < 0:
        return Telling(
            Lane.BUS, f"the camera does not answer the command: {hresult(result)}", matters=True, bad=True
        )
    return Telling(Lane.BUS, f"the camera answers with {number(event, 'bytes')} bytes")


def _usb_call(event: Event) -> Telling:
    words = {
        "usb-open": "the service opens the device in DFU mode",
        "usb-close": "the service closes the device",
        "descriptor": "the service reads a descriptor",
        "alternate-setting": "the service chooses the DFU interface",
    }[event["event"]]
    if event.get("ok") is False:
        error = number(event, "error")
        words += f": {win32_as_hresult(error)}" if error else ": that failed"
        return Telling(Lane.BUS, words, matters=True, bad=True)
    return Telling(Lane.BUS, words)


def _camera(event: Event) -> Telling:
    which = number(event, "camera")
    who = f"camera {which}" if which else "the camera"
    change = text(event, "change")
    words = {
        "plugged": f"{who} is plugged in, firmware {text(event, 'version') or 'unknown'}",
        "left": f"{who} leaves the bus",
        "dfu": f"{who} is back on the bus, in DFU mode",
        "running": f"{who} is back on the bus, running firmware {text(event, 'version') or 'unknown'}",
        "unplugged": f"{who} is unplugged",
    }.get(change, f"{who}: {change or 'a change without words'}")
    return Telling(Lane.CAMERA, words, matters=True)


def _trace(event: Event) -> Telling:
    unknown = f"trace message {number(event, 'number')} of {text(event, 'group')} (no words known)"
    return Telling(Lane.SERVICE, text(event, "text") or unknown)


def _debug_string(event: Event) -> Telling:
    return Telling(Lane.SERVICE, f"debug string: {text(event, 'text')}")


def _event_log(event: Event) -> Telling:
    said = (texts(event, "strings") or ["an entry without text"])[-1]
    bad = number(event, "type") == 1
    return Telling(Lane.SERVICE, f"event log: {said}", matters=True, bad=bad)


def _command_run(event: Event) -> Telling:
    # The name that the service knows is deliberately not its own, so this fails on most machines.
    result = number(event, "result")
    outcome = "done" if result == 0 else f"result {result}, which is no error: {WHY_NO_SUCH_SERVICE}"
    return Telling(Lane.SERVICE, f"the service runs: {text(event, 'command')} ({outcome})", matters=True)


def _process(event: Event) -> Telling:
    words = f"the service starts {text(event, 'application')} {text(event, 'command_line')}"
    if event.get("ok") is False:
        code = win32_as_hresult(number(event, "error") or 0)
        return Telling(Lane.SERVICE, f"{words}: {code}", matters=True, bad=True)
    return Telling(Lane.SERVICE, words)


def _prompt_call(event: Event) -> Telling:
    method, said = text(event, "method"), texts(event, "texts")
    if method == "ShowUpdatePrompt":
        camera, image = (said + ["unknown", "unknown"])[:2]
        question = f"the user is asked: the camera has firmware {camera}, the image {image}. Update?"
        return Telling(Lane.USER, question, matters=True)
    if method == "NotifyComplete":
        return Telling(Lane.USER, "the user is told: the download is over", matters=True)
    blocks = announced_blocks(event)
    if blocks is not None:
        return Telling(Lane.USER, f"the user is told: {blocks:,} blocks to download", matters=True)
    return Telling(Lane.USER, f"the user is told: {', '.join(said) or method}")


def _answer(event: Event) -> Telling:
    code, sinks, result = number(event, "code"), number(event, "sinks"), number(event, "result") or 0
    words = "the user accepts" if code == 1 else f"the user declines (answer {code})"
    if sinks == 0:
        return Telling(Lane.USER, f"{words}, and nobody listens", matters=True, bad=True)
    if result < 0:
        return Telling(Lane.USER, f"{words}: {hresult(result)}", matters=True, bad=True)
    return Telling(Lane.USER, words, matters=True)


def _advised(event: Event) -> Telling:
    verb = "begins" if event["event"] == "advised" else "ceases"
    return Telling(Lane.USER, f"the service {verb} to listen for the answer")


_TELLERS: dict[str, Callable[[Event], Telling]] = {
    **LABORATORY_TELLERS,
    "hello": _hello,
    "gone": _gone,
    "service-status": _service_status,
    "control": _control,
    "handled": _handled,
    "late-control": _late_control,
    "wait": lambda event: Telling(Lane.SERVICE, f"the service waits {number(event, 'ms')} ms; the wait is skipped"),
    "burst": lambda event: Telling(
        Lane.CONTROL_MANAGER, f"{number(event, 'events')} device events, one after the other, are over"
    ),
    "start requested": lambda event: Telling(Lane.CONTROL_MANAGER, f"{text(event, 'name')} is to start"),
    "notification-registered": _registered,
    "trace-registered": lambda event: Telling(Lane.SERVICE, "the service registers its trace provider"),
    "watch": _watch,
    "watch-callback": _watch_callback,
    "firmware-command": _firmware_command,
    "firmware-reply": _firmware_reply,
    "usb-open": _usb_call,
    "usb-close": _usb_call,
    "descriptor": _usb_call,
    "alternate-setting": _usb_call,
    "camera": _camera,
    "device": lambda event: Telling(Lane.BUS, f"Linux: {text(event, 'change')} of {text(event, 'path')}"),
    "trace": _trace,
    "debug-string": _debug_string,
    "event-log": _event_log,
    "command-run": _command_run,
    "process": _process,
    "prompt-call": _prompt_call,
    "answer": _answer,
    "advised": _advised, "unadvised": _advised,
}

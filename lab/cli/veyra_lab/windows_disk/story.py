"""What happens on a camera's bus, in words for the person who watches."""

from ..wire.events import Event

_CHANGES = {
    "plugged": "is plugged in",
    "unplugged": "is unplugged",
    "left": "leaves the bus",
    "dfu": "is back in DFU mode",
    "running": "is back with firmware {version}",
}
_DNLOAD = "21 01"
_FIRST_BLOCK = f"{_DNLOAD} 00 00"


def story(event: Event) -> str:
    """A line about an event; nothing about most of them, which the transcript has."""
    match event:
        case {"event": "camera", "camera": number, "change": change}:
            return f"camera {number} {_CHANGES[change].format(**event)}"
        case {"event": "configured", "camera": number}:
            return f"camera {number} is configured by the machine"
        case {"event": "reset", "camera": number}:
            return f"camera {number} is reset"
        case {"event": "firmware-command", "opcode": opcode}:
            return f"a program sends the firmware the command 0x{opcode:02X}"
        case {"event": "transfer", "setup": str(setup), "ok": False, "error": error}:
            return f"the request {setup} fails with {error}"
        case {"event": "transfer", "setup": str(setup), "length": 0} if setup.startswith(_DNLOAD):
            return "the download ends"
        case {"event": "transfer", "setup": str(setup)} if setup.startswith(_FIRST_BLOCK):
            return "a download begins"
    return ""

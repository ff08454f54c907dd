"""What goes over the wire: events, and who they come from."""

from typing import Any

Event = dict[str, Any]

RIG = "rig"
TOAST = "toast"
GUEST = "guest"
USBREDIR = "usbredir"
LAB = "lab"

# The cameras' vendor ID, and their product IDs by their mode, as a kernel writes them.
CAMERA_VENDOR = "2f1a"
CAMERA_PRODUCTS = {"running": "7e00", "dfu": "7e01"}
# The opcode of the firmware command that sends a camera into DFU mode.
ENTER_DFU_MODE = 0x1E
# A block's number has 16 bits; the service's progress is that number, so it begins again too.
BLOCK_NUMBERS = 65536
# States that a service reports, and the control that stops it.
STOPPED, RUNNING = 1, 4
STOP_CONTROL = 1
# Classes of device interfaces, as the rig spells them.
USB_CLASS = "{A5DCBF10-6530-11D2-901F-00C04FB951ED}"
SENSOR_CLASS = "{24E552D7-6523-47F7-A647-D3465BF1F5CA}"
VIDEO_CLASS = "{E5323777-F976-4F5B-9B55-B94699C46E44}"


def breach_of(event: Event) -> str:
    """What the rig tells of a call that Windows forbids, in words; none for any other event."""
    if event["event"] != "contract":
        return ""
    return f"a contract of Windows is broken: {event['contract']} ({event['call']})"


class PeerError(Exception):
    """Something that was waited for did not come, or cannot come any more."""

"""What goes over the wire: events, and who they come from."""

from typing import Any

Event = dict[str, Any]

RIG = "rig"
TOAST = "toast"
LAB = "lab"

# The opcode of the firmware command that sends a camera into DFU mode.
ENTER_DFU_MODE = 0x1E


class PeerError(Exception):
    """Something that was waited for did not come, or cannot come any more."""

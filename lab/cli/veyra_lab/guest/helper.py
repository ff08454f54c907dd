"""One question to the helper in the guest."""

from typing import Any

from ..wire.events import GUEST, Event
from ..wire.peer import Peer
from .errors import KernelRefusal

# The seconds in which something has to be heard.
PATIENCE = 20.0


def ask(peer: Peer, command: str, quiet: float = PATIENCE, **fields: Any) -> Event:
    """Has the helper carry a command out; its answer. KernelRefusal when the kernel answers with an error, PeerError
    when the helper refuses the command, or nothing is heard for `quiet` seconds."""
    answer = peer.command(GUEST, command, quiet=quiet, **fields)
    if errno := answer.get("errno"):
        raise KernelRefusal(errno, answer.get("why", "no reason given"))
    return answer

"""Whether the host's processor runs the guest itself."""

import json
import os
from contextlib import suppress
from pathlib import Path

from ..checkout import BUILD
from ..wire.events import PeerError
from ..wire.peer import Peer
from .errors import GuestError
from .files import write_whole
from .image import Image
from .machine import GuestMachine
from .qemu import KVM, TCG, Logs
from .tools import call

_DECISION = BUILD / "guest" / "accelerator.json"
_DEVICE = Path("/dev/kvm")
# Without it a boot takes hardly longer.
_TRIAL_LIMIT = 10.0


def accelerator(image: Image, decision: Path = _DECISION) -> str:
    """KVM where a guest has booted with it, TCG elsewhere. That the device is there says nothing: where this machine is
    itself a virtual one, the guest may hang. It is tried once, and tried again under another kernel or QEMU."""
    if not os.access(_DEVICE, os.R_OK | os.W_OK):
        return TCG
    tried_on = [os.uname().nodename, os.uname().release, call(["qemu-system-x86_64", "--version"]).decode()]
    with suppress(OSError, ValueError, LookupError, TypeError):
        kept = json.loads(decision.read_text(encoding="utf-8"))
        if kept["tried_on"] == tried_on and kept["accelerator"] in (KVM, TCG):
            return str(kept["accelerator"])
    decided = KVM if _boots_with_kvm(image, Logs(decision.parent, "trial")) else TCG
    write_whole(decision, json.dumps({"tried_on": tried_on, "accelerator": decided}).encode())
    return decided


def _boots_with_kvm(image: Image, logs: Logs) -> bool:
    try:
        with Peer({}, lambda event: None, lambda event: None) as peer:
            with GuestMachine(image, peer, logs, KVM, _TRIAL_LIMIT):
                return True
    except (GuestError, PeerError):
        return False

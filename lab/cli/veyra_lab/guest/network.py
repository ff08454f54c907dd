"""The guest's network, which it has when it is asked for: QEMU's own, in which the host is one address."""

from .errors import GuestError
from .system import System

# The words of QEMU's command line. It needs no rights on the host, and nobody reaches the guest.
NETWORK = ("-netdev", "user,id=network,ipv6=off", "-device", "virtio-net-pci,netdev=network,romfile=")
# What the image has to bring, besides the set of modules "network".
PROGRAMS = ("ip",)
# 127.0.0.1 of the host, as the guest sees it.
HOST = "10.0.2.2"
_GUEST = "10.0.2.15/24"
_CARD = "eth0"


def set_up(system: System) -> None:
    """Gives the guest its address. GuestError when that fails."""
    system.load("network")
    for words in (("address", "add", _GUEST, "dev", _CARD), ("link", "set", _CARD, "up")):
        end = system.run("ip", *words)
        if end.status != 0:
            raise GuestError(f"the guest has no network: {end.output.strip()}")

"""Another host of the same cameras: Debian's dfu-util on the guest's USB bus."""

from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from ...guest.accelerator import accelerator
from ...guest.dfu_util import DfuUtil
from ...guest.image import image_of
from ...guest.kernel import debian_kernel
from ...guest.kv400 import Kv400
from ...guest.machine import GuestMachine
from ...guest.qemu import Logs
from ...guest.served_cameras import ServedCameras
from ...wire.events import USBREDIR, Event
from ...wire.peer import Peer


@dataclass(frozen=True)
class Download:
    """One whole download as the served camera records it: its DFU requests, and the seconds from the first of them to the
    last."""

    transfers: int
    seconds: float


def download_of(events: Sequence[Event]) -> Download:
    """What a record that has one download of a served camera tells of it, whichever host has made it."""
    times = [event["t"] for event in events if (event["source"], event["event"]) == (USBREDIR, "transfer")]
    return Download(len(times), times[-1] - times[0])


class OtherHost:
    """dfu-util in a guest that has booted."""

    def __init__(self, guest: GuestMachine, peer: Peer) -> None:
        self.guest = guest
        self._peer = peer

    def download(self, image: bytes, **camera: Any) -> Download:
        """Its download of an image to a camera with these fields of a stage, in DFU mode. AssertionError when the image
        is not in the flash then, GuestError or PeerError when the guest does not do its part."""
        with ServedCameras(self.guest, self._peer, [camera]) as cameras:
            with Kv400(self.guest.usb, self._peer, cameras) as kv400:
                kv400.enter_dfu_mode()
                since = self._peer.mark()
                end = DfuUtil(self.guest.system).download(image)
                # The server tells what it has seen before it answers.
                if cameras.flash(0) != image:
                    raise AssertionError(f"dfu-util did not update the camera: {end.output}")
                events = self._peer.events_since(since)
        return download_of(events)


@contextmanager
def other_host(logs: Path, peer: Peer) -> Iterator[OtherHost]:
    """Boots a guest for it, which leaves its logs in the folder. GuestError when that does not succeed."""
    image = image_of(debian_kernel())
    with GuestMachine(image, peer, Logs(logs, "bench"), accelerator(image)) as guest:
        yield OtherHost(guest, peer)

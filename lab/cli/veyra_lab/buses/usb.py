"""A real bus: the guest's kernel drives the cameras, which a server of their own puts on its ports."""

import time
from collections.abc import Iterator, Sequence
from contextlib import contextmanager, suppress

from ..guest.accelerator import accelerator
from ..guest.errors import GuestError
from ..guest.machine import GuestMachine
from ..guest.qemu import Logs
from ..guest.served_cameras import TARGET, ServedCameras
from ..guest.system import complaints_of
from ..guest.up_to_date import LOG_FOLDER, up_to_date_image
from ..scenarios.transfer_pattern import spell
from ..wire.events import CAMERA_PRODUCTS, GUEST, RIG, USBREDIR, Event, PeerError
from ..wire.peer import Peer
from .bus import SETTLING_LIMIT, CameraBus

# QEMU's buffer for a control transfer.
MOST_TRANSFER_BYTES = 4096
# A kernel that finds no sense in a device tries again and again, for half a minute.
_KERNEL_PATIENCE = 60.0
_PAUSE = 0.05
# Fields of a stage's camera that say how Windows lists it: the rig's affair.
_OF_WINDOWS = ("link_case", "link_length", "listed_twice", "listed_as", "removal_notices", "unplug_error")


class UsbBus(CameraBus):
    """Use it as a context: on exit its ports are free."""

    name = "usb"
    # The service itself waits for half a minute where a camera has nothing to say.
    patience = 45.0

    def __init__(self, guest: GuestMachine, peer: Peer) -> None:
        self._guest = guest
        self._peer = peer
        self._served: ServedCameras | None = None
        self._count = 0
        self._placed_at = 0
        self._log_mark = guest.system.kernel_mark()
        answered = f"it answered after {guest.seconds_to_first_answer:.1f} s"
        peer.record("bus", kernel=guest.kernel, text=f"Linux {guest.kernel} drives the bus; {answered}")

    def stage(self, rig: Event) -> Event:
        return {**rig, "bus": "usb", "skip_waits": False}

    def place(self, cameras: Sequence[Event]) -> None:
        self.clear()
        self._placed_at = self._peer.mark()
        self._count = len(cameras)
        of_devices = [{name: each for name, each in camera.items() if name not in _OF_WINDOWS} for camera in cameras]
        with _as_peer_error():
            self._served = ServedCameras(self._guest, self._peer, of_devices).__enter__()

    def clear(self) -> None:
        """No camera has a place any more."""
        served, self._served = self._served, None
        if served is not None:
            with _as_peer_error():
                served.__exit__(None, None, None)
                # What the kernel says of cameras that are pulled so is nobody's fault.
                self._log_mark = self._guest.system.kernel_mark()

    def plug(self, camera: int) -> None:
        self._cameras().plug(camera)

    def unplug(self, camera: int) -> None:
        self._cameras().unplug(camera)

    def state(self, camera: int) -> Event:
        return self._cameras().state(camera)

    def flash(self, camera: int) -> bytes:
        return self._cameras().flash(camera)

    def settle(self, patience: float, limit: float = SETTLING_LIMIT) -> None:
        deadline = time.monotonic() + limit
        while time.monotonic() < deadline:
            mark = self._peer.mark()
            self._wait_for_the_kernel()
            self._peer.command(RIG, "settle", quiet=patience)
            if not any(event["event"] in ("camera", "device") for event in self._peer.events_since(mark)):
                return
        raise PeerError(f"the cameras still come and go after {limit:.0f} s")

    def hear_out(self) -> None:
        self.state(0)
        if self._peer.is_connected_as(RIG):
            with suppress(PeerError):  # cameras are not its affair, and it says so in its turn
                self._peer.command(RIG, "state", camera=0)

    def complaints(self, cameras: Sequence[Event], events: Sequence[Event]) -> list[str]:
        with _as_peer_error():
            lines = self._guest.system.kernel_log(self._log_mark)
        self._log_mark = lines[-1].number + 1 if lines else self._log_mark
        complaints = [f"the guest's kernel complains: {line}" for line in complaints_of(lines)]
        # What a camera is told to do wrong, the kernel may well complain of.
        if any("faults" in camera or "configuration_descriptor" in camera for camera in cameras):
            complaints = []
        lost = [f"the guest: {event['why']}" for event in events if event["event"] == "devices-lost"]
        return complaints + lost + differences(events)

    def _cameras(self) -> ServedCameras:
        if self._served is None:
            raise PeerError("no camera is on the bus of the guest")
        return self._served

    def _wait_for_the_kernel(self) -> None:
        """Until no camera has anything pending, and the guest's kernel has each as what it is."""
        deadline = time.monotonic() + _KERNEL_PATIENCE
        while True:
            states = {camera + 1: self.state(camera) for camera in range(self._count)}
            wanted = {
                port: CAMERA_PRODUCTS[state["mode"]] for port, state in states.items() if state["mode"] != "absent"
            }
            known = self._ports()
            if known == wanted and not any(state["pending"] for state in states.values()):
                return
            if time.monotonic() > deadline:
                raise PeerError(f"the guest's kernel does not come to rest: its ports have {known}, not {wanted}")
            time.sleep(_PAUSE)

    def _ports(self) -> dict[int, str]:
        """The product on each port of the bus, as far as the kernel has told."""
        ports: dict[int, str] = {}
        for event in self._peer.events_since(self._placed_at):
            if event["source"] == GUEST and event["event"] == "device":
                port = int(event["path"].rpartition("-")[2])
                if event["change"] == "ready":
                    ports[port] = event["product"]
                else:
                    ports.pop(port, None)
        return ports


def differences(events: Sequence[Event]) -> list[str]:
    """What was carried out is the same at both ends: what the service was answered, and what the cameras answered."""

    def carried_out(source: str) -> list[Event]:
        return [event for event in events if event["source"] == source and event["event"] == "transfer" and event["ok"]]

    asked, answered = carried_out(RIG), carried_out(USBREDIR)
    for number, (one, other) in enumerate(zip(asked, answered, strict=False)):
        if (one["setup"], one.get("data")) != (other["setup"], other.get("data")):
            return [f"transfer {number}: {spell([one])}for the service, {spell([other])}for the camera"]
    if len(asked) != len(answered):
        return [f"the service was answered {len(asked)} transfers, the cameras answered {len(answered)}"]
    return []


@contextmanager
def _as_peer_error() -> Iterator[None]:
    """What goes wrong with the guest ends a run as what goes wrong with any other program of the laboratory."""
    try:
        yield
    except GuestError as error:
        raise PeerError(f"the guest: {error}") from error


@contextmanager
def usb_bus(peer: Peer, whose: str) -> Iterator[UsbBus]:
    """A guest that has booted, and its bus; `whose` is what its logs are called. SetUpError or GuestError when there is
    none."""
    image = up_to_date_image(TARGET)
    with GuestMachine(image, peer, Logs(LOG_FOLDER, whose), accelerator(image)) as guest:
        bus = UsbBus(guest, peer)
        try:
            yield bus
        finally:
            bus.clear()

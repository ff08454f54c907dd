"""What the guest's kernel is asked to do on its USB bus, through the helper."""

from dataclasses import dataclass
from typing import Literal

from ..wire.events import Event
from ..wire.peer import Peer
from .helper import PATIENCE, ask

Change = Literal["arrival", "ready", "removal"]
Query = Literal["GET_CUR", "GET_MIN", "GET_MAX", "GET_RES", "GET_LEN", "GET_INFO", "GET_DEF"]

_FROM_DEVICE = 0x80


@dataclass(frozen=True)
class Interface:
    """One interface of a configured device, in the setting that is chosen; `driver` is empty without one."""

    number: int
    setting: int
    triple: tuple[int, int, int]  # class, subclass, protocol
    driver: str


@dataclass(frozen=True)
class UsbDevice:
    """A device as the guest's kernel knows it. The texts are as sysfs has them: ids in four hexadecimal digits, the
    speed in megabits a second. What a device does not have is empty."""

    path: str
    bus: int
    number: int
    vendor: str
    product: str
    release: str
    usb: str
    speed: str
    configuration: str
    manufacturer_text: str
    product_text: str
    serial_text: str
    video_node: str
    interfaces: tuple[Interface, ...]

    @property
    def is_root_hub(self) -> bool:
        """Whether it is the bus' own."""
        return self.path.startswith("usb")


class UsbHost:
    """The guest's USB core, usbfs and UVC driver. A device is named by its path ("1-2"). Every call may end with a
    KernelRefusal or a PeerError, as helper.ask does."""

    def __init__(self, peer: Peer) -> None:
        self._peer = peer

    def devices(self) -> list[UsbDevice]:
        """All that are there, root hubs too, ordered by their paths."""
        return [_device(fields) for fields in ask(self._peer, "devices")["devices"]]

    def descriptors(self, device: str) -> bytes:
        """The device's descriptor and those of its configurations, as the kernel has kept them."""
        return bytes.fromhex(ask(self._peer, "descriptors", device=device)["data"])

    def control(self, device: str, setup: bytes, data: bytes = b"", limit: float = 5.0) -> bytes:
        """One control transfer on the default pipe, with eight setup bytes and at most 4,096 bytes of data; what the
        device sent. `limit`: the seconds after which the kernel gives up, with ETIMEDOUT."""
        fields: Event = {"device": device, "setup": setup.hex(), "limit_ms": max(1, round(limit * 1000))}
        if not setup[0] & _FROM_DEVICE and data:
            fields["data"] = data.hex()
        return bytes.fromhex(ask(self._peer, "control", limit + PATIENCE, **fields).get("data", ""))

    def claim(self, device: str, interface: int) -> None:
        """Takes an interface for this helper's requests. EBUSY when a driver has it."""
        ask(self._peer, "claim", device=device, interface=interface)

    def release(self, device: str, interface: int) -> None:
        """Gives a claimed interface back."""
        ask(self._peer, "release", device=device, interface=interface)

    def set_interface(self, device: str, interface: int, setting: int) -> None:
        """Chooses an alternate setting of an interface."""
        ask(self._peer, "set-interface", device=device, interface=interface, setting=setting)

    def reset(self, device: str) -> None:
        """Resets the device's port. ENODEV when another device comes back."""
        # A device that does not come back is asked several times, for five seconds each.
        ask(self._peer, "reset", quiet=120, device=device)

    def read_unit(self, device: str, unit: int, selector: int, query: Query, length: int) -> bytes:
        """Has the UVC driver read a control of an extension unit. ENOTTY when it does not have the device, ENOBUFS when
        the control has another length."""
        place = {"device": device, "unit": unit, "selector": selector}
        return bytes.fromhex(ask(self._peer, "extension-unit", **place, query=query, length=length)["data"])

    def write_unit(self, device: str, unit: int, selector: int, data: bytes) -> None:
        """Has the UVC driver write a control of an extension unit."""
        place = {"device": device, "unit": unit, "selector": selector}
        ask(self._peer, "extension-unit", **place, query="SET_CUR", data=data.hex())

    def wait_for(self, change: Change, vendor: str, product: str, since: int, limit: float = 30.0) -> str:
        """Waits until the kernel tells this change of a device with these ids, behind the peer's mark `since`; the
        device's path. "arrival": its descriptors are read; "ready": it is configured and has met its drivers;
        "removal": it is gone. PeerError when nothing at all happens for `limit` seconds."""
        wanted = {"event": "device", "change": change, "vendor": vendor, "product": product}
        event = self._peer.follow(
            lambda each: all(each.get(name) == value for name, value in wanted.items()),
            f"the {change} of {vendor}:{product} in the guest", since=since, quiet=limit,
        )
        path: str = event["path"]
        return path


def _device(fields: Event) -> UsbDevice:
    interfaces = tuple(
        Interface(
            int(each["number"], 16), int(each["setting"] or "0"),
            (int(each["class"], 16), int(each["subclass"], 16), int(each["protocol"], 16)), each["driver"],
        )
        for each in fields["interfaces"]
    )
    return UsbDevice(**{**fields, "interfaces": interfaces})

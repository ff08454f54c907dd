"""The devices of a capture that were in DFU mode, each from one arrival to the next."""

from collections.abc import Sequence
from dataclasses import dataclass, field

from .descriptors import DfuInterface, dfu_interface, is_device
from .errors import CaptureError
from .transfer import (
    CONFIGURATION,
    DEVICE,
    GET_DESCRIPTOR,
    SET_CONFIGURATION,
    SET_INTERFACE,
    STANDARD_TO_HOST,
    TO_INTERFACE,
    End,
    Request,
    Transfer,
)

_STATUS_SIZE = 6
_MOST_IMAGE = 64 << 20


@dataclass
class Stay:
    """One stay on the bus: its requests to the DFU interface, and the descriptors that were read meanwhile."""

    bus: int
    device: int
    transfers: list[Transfer] = field(default_factory=list)
    device_descriptor: bytes = b""
    configuration: bytes = b""
    # Somebody has asked its DFU interface for something.
    is_used: bool = False
    # What came to the bus after it, if that is in the capture.
    next: "Stay | None" = None

    @property
    def name(self) -> str:
        """How the command line names it."""
        return f"{self.bus}.{self.device}"

    @property
    def interface(self) -> DfuInterface | None:
        """Its DFU interface, if its configuration is in the capture."""
        return dfu_interface(self.configuration)

    @property
    def requests(self) -> list[Transfer]:
        """What was asked of the DFU interface, and the choices of its setting."""
        interface = self.interface
        number = interface.number if interface else None

        def is_one(transfer: Transfer) -> bool:
            is_setting = transfer.setup[0] == TO_INTERFACE and transfer.request == SET_INTERFACE
            return (transfer.is_dfu or is_setting) and number in (None, transfer.index)

        return [transfer for transfer in self.transfers if is_one(transfer)]

    @property
    def is_dfu(self) -> bool:
        """Whether it is a device in DFU mode, or, where no configuration tells, answers as one."""
        if self.configuration:
            interface = self.interface
            return interface is not None and (interface.is_in_dfu_mode or self.downloaded > 0)
        return any(
            transfer.is_dfu and transfer.request == Request.GETSTATUS and len(transfer.data) == _STATUS_SIZE
            for transfer in self.transfers
        )

    @property
    def downloaded(self) -> int:
        """Bytes of the blocks that were sent to it."""
        return sum(each.length for each in self.requests if each.is_dfu and each.request == Request.DNLOAD)

    @property
    def identity(self) -> str:
        """Vendor and product ID, if its descriptor is in the capture."""
        told = self.device_descriptor
        return f"{told[9]:02x}{told[8]:02x}:{told[11]:02x}{told[10]:02x}" if told else ""

    @property
    def left(self) -> bool:
        """Whether it was found gone, or something else came to the bus after it."""
        return self.next is not None or any(transfer.end is End.GONE for transfer in self.transfers)

    def image(self) -> bytes:
        """What was sent to be downloaded, each block once: the last of several downloads."""
        parts: list[bytes] = []
        before: Transfer | None = None
        for block in self.requests:
            if not block.is_dfu or block.request != Request.DNLOAD:
                continue
            is_again = before is not None and before.end is not End.OK and before.setup == block.setup
            # After block 65,535 it only goes on; any other block 0 begins anew.
            if is_again:
                parts.pop()
            elif block.value == 0 and block.length and before is not None and before.value != 0xFFFF:
                parts.clear()
            parts.append(block.data)
            before = block
        whole = b"".join(parts)
        if len(whole) > _MOST_IMAGE:
            raise CaptureError(f"what was downloaded is longer than {_MOST_IMAGE >> 20} MiB")
        return whole


def stays_of(transfers: Sequence[Transfer]) -> list[Stay]:
    """Every stay of every device, in the order of their beginnings."""
    stays: list[Stay] = []
    present: dict[tuple[int, int], Stay] = {}
    for transfer in transfers:
        key = (transfer.bus, transfer.device)
        stay = present.get(key)
        if stay is None or _arrives_again(stay, transfer):
            stay = present[key] = Stay(*key)
            if stays and stays[-1].bus == stay.bus:
                stays[-1].next = stay
            stays.append(stay)
        stay.transfers.append(transfer)
        stay.is_used |= transfer.is_dfu and transfer.request != Request.DETACH
        _read_descriptor(stay, transfer)
    return stays


def _arrives_again(stay: Stay, transfer: Transfer) -> bool:
    """Whether the host finds out what it has at an address at which it has used a device before."""
    if not stay.is_used:
        return False
    told = _device_in(transfer)
    is_another = told is not None and stay.device_descriptor not in (b"", told)
    return is_another or (transfer.setup[0] == 0 and transfer.request == SET_CONFIGURATION)


def _device_in(transfer: Transfer) -> bytes | None:
    """The device descriptor that it brought, if it is one."""
    is_read = transfer.setup[0] == STANDARD_TO_HOST and transfer.request == GET_DESCRIPTOR
    is_one = is_read and transfer.value == DEVICE << 8 and is_device(transfer.data)
    return transfer.data if is_one else None


def _read_descriptor(stay: Stay, transfer: Transfer) -> None:
    if transfer.setup[0] != STANDARD_TO_HOST or transfer.request != GET_DESCRIPTOR or transfer.is_cut:
        return
    told = _device_in(transfer)
    if told is not None:
        stay.device_descriptor = told
    elif transfer.value >> 8 == CONFIGURATION and len(transfer.data) > len(stay.configuration):
        total = int.from_bytes(transfer.data[2:4], "little")
        # Hosts read the first bytes alone, to know how many there are.
        if len(transfer.data) >= 4 and (total == len(transfer.data) or transfer.asked > len(transfer.data)):
            stay.configuration = transfer.data

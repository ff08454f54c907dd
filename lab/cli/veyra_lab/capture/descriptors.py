"""Descriptors: taken apart with every length looked at, and those that a KV400 has in DFU mode."""

from collections.abc import Iterator
from dataclasses import dataclass

from .transfer import CLASS_OF_DFU, CONFIGURATION, DEVICE, DFU_FUNCTIONAL, DFU_MODE, INTERFACE, SUBCLASS_OF_DFU

_DEVICE_SIZE = 18
_CONFIGURATION_SIZE = 9
_INTERFACE_SIZE = 9
# bLength of the USB DFU 1.1 standard's; that of its forerunner is without the version at its end.
_FUNCTIONAL_SIZES = (7, 9)
_TOLERANT = 0x04


@dataclass(frozen=True)
class DfuInterface:
    """A device's DFU interface, as its configuration descriptor tells."""

    number: int
    protocol: int
    # Of the functional descriptor; none when there is none behind the interface.
    attributes: int | None = None
    transfer_size: int | None = None

    @property
    def is_in_dfu_mode(self) -> bool:
        """Whether this is a device in DFU mode rather than one that runs its firmware."""
        return self.protocol == DFU_MODE

    @property
    def is_tolerant(self) -> bool:
        """bitManifestationTolerant."""
        return self.attributes is not None and bool(self.attributes & _TOLERANT)


def walk(content: bytes) -> Iterator[bytes]:
    """The descriptors of a configuration, up to the first whose length cannot be."""
    place = 0
    while place + 2 <= len(content):
        length = content[place]
        if length < 2 or place + length > len(content):
            return
        yield content[place : place + length]
        place += length


def is_device(content: bytes) -> bool:
    """Whether this is a device descriptor."""
    return len(content) == _DEVICE_SIZE and content[:2] == bytes([_DEVICE_SIZE, DEVICE])


def is_configuration(content: bytes) -> bool:
    """Whether this is a whole configuration, whose parts have together the length that it tells, and which has a DFU
    interface with its functional descriptor."""
    if len(content) < _CONFIGURATION_SIZE or content[:2] != bytes([_CONFIGURATION_SIZE, CONFIGURATION]):
        return False
    parts = list(walk(content))
    is_whole = int.from_bytes(content[2:4], "little") == len(content) == sum(map(len, parts))
    heads = [part for part in parts if part[1] == INTERFACE]
    found = dfu_interface(content)
    return (
        is_whole
        and content[4] == len({head[2] for head in heads if len(head) == _INTERFACE_SIZE})
        and all(len(head) == _INTERFACE_SIZE for head in heads)
        and found is not None
        and found.transfer_size is not None
    )


def dfu_interface(content: bytes) -> DfuInterface | None:
    """The first DFU interface of a configuration descriptor."""
    found: DfuInterface | None = None
    for part in walk(content):
        if part[1] == INTERFACE and len(part) >= _INTERFACE_SIZE:
            if found is not None:
                break
            if part[5] == CLASS_OF_DFU and part[6] == SUBCLASS_OF_DFU:
                found = DfuInterface(part[2], part[7])
        elif part[1] == DFU_FUNCTIONAL and found is not None and len(part) in _FUNCTIONAL_SIZES:
            return DfuInterface(found.number, found.protocol, part[2], int.from_bytes(part[5:7], "little"))
    return found


def own_device() -> bytes:
    """A KV400's device descriptor in DFU mode."""
    return bytes.fromhex("12 01 01 02 00 00 00 40 1a 2f 01 7e 00 01 00 00 00 01")


def own_configuration() -> bytes:
    """Its configuration descriptor."""
    return bytes.fromhex("09 02 1b 00 01 01 00 80 32  09 04 00 00 00 fe 01 02 00  09 21 03 e8 03 00 04 10 01")

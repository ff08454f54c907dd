"""What crossed the bus to devices in DFU mode, from a transcript: control transfers, as a capture has them."""

import re
from collections.abc import Iterable, Iterator, Sequence
from typing import Any

from ..report.transcript import Event, number, text
from .descriptors import is_configuration, is_device, own_configuration, own_device
from .errors import CaptureError
from .stays import Stay
from .transfer import (
    CONFIGURATION,
    DEVICE,
    GET_DESCRIPTOR,
    SET_CONFIGURATION,
    SET_INTERFACE,
    STANDARD_TO_DEVICE,
    STANDARD_TO_HOST,
    TO_INTERFACE,
    End,
    Transfer,
    setup_packet,
)

_TRANSFERS = ("transfer", "descriptor", "alternate-setting")
# Windows' last errors.
_FAILED, _TOO_LONG, _TIMEOUT = 31, 87, 121
_GONE = (22, 433, 1167)
_MS = 1000
_LONGEST_MS = 24 * 3600 * 1000
_SECOND = 1_000_000
_DEVICES_OF_A_BUS = 126
# The serial number in a device path, from which the number of its camera can be told.
_SERIAL = re.compile(r"kv400([0-9]{4})", re.IGNORECASE)
_ENUMERATED = "as a host enumerates it: not in the transcript"


def transfers_of(events: Sequence[Event]) -> list[Transfer]:
    """Every transfer to a device in DFU mode, in its order, behind those with which a host finds out what it has.
    CaptureError when the transcript does not have its data."""
    return list(_Walk(events).transfers())


class _Walk:
    def __init__(self, events: Sequence[Event]) -> None:
        self._events = events
        self._tells_arrivals = any(event["event"] == "camera" for event in events)
        self._stays: dict[int, Stay] = {}
        # Those that have come since: the boot loader that has no firmware to start is in DFU mode at once.
        self._plugged: set[int] = set()
        self._camera = 0
        self._arrivals = 0
        # The laboratory's clock at one moment of the transcript's. A skipped wait moves it, and where waits are skipped it
        # stands still otherwise for as long as a control is handled.
        self._base = 0
        self._since = 0.0
        self._is_handling = False
        self._skipping = _controls_that_skip(events)
        self._now = 0

    def transfers(self) -> Iterator[Transfer]:
        told: dict[str, float] = {}
        for place, event in enumerate(self._events):
            match event["event"]:
                case "control" | "handled" as what:
                    self._base, self._since = self._clock(event), event["t"]
                    self._is_handling = what == "control" and place in self._skipping
                case "wait":
                    self._wait(event)
                case "usb-open":
                    self._open(event)
                case "camera" if event.get("change") == "dfu":
                    self._clock(event)
                    yield from self._arrive(number(event, "camera") or 0, place)
                case "camera" if event.get("change") == "plugged":
                    self._plugged.add(number(event, "camera") or 0)
                case "step" | "trial" if not self._tells_arrivals:
                    self._stays.clear()
                case "transfer" | "descriptor" | "alternate-setting":
                    yield from self._transfer(place, event, event["t"] - told.get(event["source"], 0.0))
            told[event["source"]] = event["t"]

    def _clock(self, event: Event) -> int:
        passed = 0 if self._is_handling else round((event["t"] - self._since) * _SECOND)
        self._now = max(self._now, self._base + passed)
        return self._now

    def _behind(self, place: int) -> Iterator[Event]:
        return (self._events[each] for each in range(place + 1, len(self._events)))

    def _wait(self, event: Event) -> None:
        if not self._is_handling:
            self._base = self._clock(event)
        self._base, self._since = self._base + _took(event), event["t"]

    def _open(self, event: Event) -> None:
        serial = _SERIAL.search(text(event, "link"))
        if serial and int(serial[1]) - 1 in self._stays:
            self._camera = int(serial[1]) - 1

    def _arrive(self, camera: int, place: int) -> Iterator[Transfer]:
        bus, device = divmod(self._arrivals, _DEVICES_OF_A_BUS)
        self._arrivals += 1
        self._camera = camera
        self._plugged.discard(camera)
        stay = self._stays[camera] = Stay(1 + bus, 2 + device)
        device_descriptor, configuration = _descriptors(self._behind(place))
        for setup, data in (
            (setup_packet(STANDARD_TO_HOST, GET_DESCRIPTOR, DEVICE << 8, 0, 18), device_descriptor),
            (setup_packet(STANDARD_TO_HOST, GET_DESCRIPTOR, CONFIGURATION << 8, 0, 9), configuration[:9]),
            (
                setup_packet(STANDARD_TO_HOST, GET_DESCRIPTOR, CONFIGURATION << 8, 0, len(configuration)),
                configuration,
            ),
            (setup_packet(STANDARD_TO_DEVICE, SET_CONFIGURATION, configuration[5], 0, 0), b""),
        ):
            yield self._done(stay, self._now, setup, data, (End.OK, _ENUMERATED))

    def _transfer(self, place: int, event: Event, passed: float) -> Iterator[Transfer]:
        setup = _setup(event)
        error = number(event, "error") or 0
        if setup is None or error == _TOO_LONG:
            return
        if self._camera not in self._stays or (self._camera in self._plugged and error not in _GONE):
            yield from self._arrive(self._camera, place - 1)
        # Time that has passed is in the transcript's clock already; time that was skipped is not.
        took = _took(event)
        passed = 0.0 if self._is_handling else passed
        self._base += max(took - round(passed * _SECOND), 0) if took else 0
        began = self._now
        ended = self._now = max(self._clock(event), began + took)
        is_to_host = bool(setup[0] & 0x80)
        data = _octets(event, "data" if is_to_host else "sent")
        length = number(event, "transferred") or 0 if is_to_host else int.from_bytes(setup[6:8], "little")
        if is_to_host and (error or not 0 <= length <= 0xFFFF):
            data, length = b"", 0
        if len(data) < length:
            raise CaptureError("the transcript does not have all that crossed the bus: it is an older laboratory's")
        end = self._end(place, error)
        yield self._done(self._stays[self._camera], max(ended - took, began), setup, data[:length], end)

    def _done(self, stay: Stay, began: int, setup: bytes, data: bytes, end: tuple[End, str]) -> Transfer:
        """Each packet has a time of its own, behind that of the one before."""
        ended = max(self._now, began + 1)
        self._now = ended + 1
        return Transfer(stay.bus, stay.device, began, setup, data, len(data), end[0], ended, end[1])

    def _end(self, place: int, error: int) -> tuple[End, str]:
        if error == 0:
            return End.OK, ""
        if error == _TIMEOUT:
            return End.TIMEOUT, ""
        if error in _GONE:
            return End.GONE, ""
        if error != _FAILED:
            return End.BROKEN, f"Windows' error {error}"
        if not self._tells_arrivals:
            return End.STALL, "or the device has left: the transcript does not tell"
        return (End.GONE if self._leaves_behind(place) else End.STALL), ""

    def _leaves_behind(self, place: int) -> bool:
        """Whether the camera is off the bus once the transfer is over, and nobody else has done anything before."""
        for event in (self._events[each] for each in range(place - 1, -1, -1)):
            if event["event"] == "camera" and (number(event, "camera") or 0) == self._camera:
                if event.get("change") in ("left", "unplugged"):
                    return True
                break
            if event["event"] in _TRANSFERS:
                break
        for event in self._behind(place):
            if event["event"] == "camera" and (number(event, "camera") or 0) == self._camera:
                return event.get("change") in ("left", "unplugged")
            if event["event"] in (*_TRANSFERS, "usb-close", "wait", "step", "command"):
                return False
        return False


def _controls_that_skip(events: Sequence[Event]) -> set[int]:
    """The places of the controls whose handling has skipped a wait."""
    skipping: set[int] = set()
    control = -1
    for place, event in enumerate(events):
        if event["event"] == "control":
            control = place
        elif event["event"] == "handled":
            control = -1
        elif event["event"] == "wait" and control >= 0:
            skipping.add(control)
    return skipping


def _took(event: Event) -> int:
    """The milliseconds that it tells, in microseconds."""
    return min(max(number(event, "ms") or 0, 0), _LONGEST_MS) * _MS


def _setup(event: Event) -> bytes | None:
    """The setup packet of a transfer, of a descriptor's read and of a setting's choice."""
    match event["event"]:
        case "descriptor":
            kind, index, length = (number(event, name) or 0 for name in ("type", "index", "length"))
            fields: tuple[int, ...] = (STANDARD_TO_HOST, GET_DESCRIPTOR, kind << 8 | index, 0, length)
        case "alternate-setting":
            numbers = [number(event, name) or 0 for name in ("setting", "interface")]
            fields = (TO_INTERFACE, SET_INTERFACE, *numbers, 0)
        case _:
            setup = _octets(event, "setup")
            return setup if len(setup) == 8 else None
    return setup_packet(*fields) if all(0 <= each <= 0xFFFF for each in fields) else None


def _octets(event: Event, name: str) -> bytes:
    value: Any = event.get(name)
    try:
        return bytes.fromhex(value) if isinstance(value, str) else b""
    except ValueError:
        return b""


def _descriptors(events: Iterable[Event]) -> tuple[bytes, bytes]:
    """The device's and the configuration's, as far as they are read before the next arrival; the KV400's own in place of
    what is not read, or makes no sense."""
    device, configuration = own_device(), own_configuration()
    for event in events:
        if event["event"] == "camera" and event.get("change") in ("dfu", "running", "plugged"):
            break
        if event["event"] == "descriptor" and event.get("ok") is True:
            content = _octets(event, "data")
            if is_device(content):
                device = content
            elif is_configuration(content):
                configuration = content
    return device, configuration

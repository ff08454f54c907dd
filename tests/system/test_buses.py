"""What a real bus has to say against a run, without a guest that says it."""

from typing import Any
from unittest.mock import Mock

from veyra_lab.buses.usb import UsbBus, differences
from veyra_lab.guest.system import KernelLine
from veyra_lab.updates.judge import judge
from veyra_lab.updates.plan import Foreseen, UpdatePlan
from veyra_lab.updates.record import CameraState, Record
from veyra_lab.wire.events import RIG, USBREDIR, Event

_GETSTATE = "a1 05 00 00 00 00 01 00"
_DETACH = "21 00 e8 03 00 00 00 00"


def transfer(source: str, setup: str, *, ok: bool = True, **fields: Any) -> Event:
    return {"source": source, "event": "transfer", "setup": setup, "ok": ok, "length": 0, **fields}


def test_both_ends_tell_the_same_transfers() -> None:
    both = [transfer(source, _GETSTATE, data="02") for source in (USBREDIR, RIG)]
    assert differences(both) == []
    # What failed need not have reached the camera.
    assert differences([*both, transfer(RIG, _DETACH, ok=False)]) == []


def test_a_transfer_that_one_end_alone_has_seen_is_told() -> None:
    assert differences([transfer(USBREDIR, _GETSTATE)]) == ["the service was answered 0 transfers, the cameras answered 1"]
    assert differences([transfer(RIG, _GETSTATE)]) == ["the service was answered 1 transfers, the cameras answered 0"]
    (told,) = differences([transfer(RIG, _GETSTATE, data="02"), transfer(USBREDIR, _GETSTATE, data="05")])
    assert told.startswith("transfer 0: ")
    (told,) = differences([transfer(RIG, _GETSTATE, data="02"), transfer(USBREDIR, _DETACH)])
    assert told == "transfer 0: GETSTATE for the service, DETACH for the camera"


def bus_whose_kernel_says(*lines: KernelLine) -> UsbBus:
    guest = Mock(kernel="6.1", seconds_to_first_answer=3.0)
    guest.system.kernel_mark.return_value = 10
    guest.system.kernel_log.side_effect = lambda since: [line for line in lines if line.number >= since]
    return UsbBus(guest, Mock())


def test_each_complaint_of_the_kernel_is_told_once() -> None:
    before, complaint = (KernelLine(4, number, 1.0, f"usb 1-1: complaint {number}") for number in (9, 11))
    bus = bus_whose_kernel_says(before, complaint, KernelLine(6, 12, 1.0, "usb 1-1: new device"))
    assert bus.complaints([{}], []) == ["the guest's kernel complains: usb 1-1: complaint 11"]
    assert bus.complaints([{}], []) == []


def test_a_camera_that_is_told_to_do_wrong_may_be_complained_of() -> None:
    for camera in ({"faults": []}, {"configuration_descriptor": "00"}):
        assert bus_whose_kernel_says(KernelLine(4, 11, 1.0, "usb 1-1: no")).complaints([{}, camera], []) == []


def test_devices_that_were_not_told_of_are_a_complaint() -> None:
    lost = {"source": "guest", "event": "devices-lost", "why": "too many at once"}
    assert bus_whose_kernel_says().complaints([{}], [lost]) == ["the guest: too many at once"]


def test_an_update_is_not_good_when_the_bus_has_something_to_say() -> None:
    def of_the_bus(complaints: list[str] | None) -> list[str]:
        camera = CameraState("running", "5.10.3.0", 0)
        verdicts = judge(Record(UpdatePlan(), before=camera, after=camera, bus_complaints=complaints))
        return [verdict.complaint for verdict in verdicts if verdict.name.startswith("Linux has nothing to say")]

    assert UpdatePlan().foreseen is Foreseen.UPDATED
    assert of_the_bus(None) == []
    assert of_the_bus([]) == [""]
    assert of_the_bus(["the guest's kernel complains: no", "transfer 3: no"]) == [
        "the guest's kernel complains: no; transfer 3: no"
    ]

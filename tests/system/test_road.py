"""Whole updates through the laboratory, each with another camera, image, setting or mishap."""

import re
from collections.abc import Callable
from dataclasses import replace

import pytest
from support import CHECKOUT, Bench, Shared, complaints, random_image, slow
from veyra_lab.updates.plan import Foreseen, UpdatePlan
from veyra_lab.updates.record import Record
from veyra_lab.windows.image import with_version
from veyra_lab.wire.events import ENTER_DFU_MODE, RIG
from veyra_lab.wire.trace_formats import SCOPE_TRACES, UPDATE_SERVICE_TRACES

# One installation sees all of them.
SHARED = Bench

SIZES = (402, 4096, 100_001)
TRANSFER_SIZES = (128, 1024, 4096)


@pytest.fixture
def on(shared: Shared[Bench]) -> Bench:
    return shared.get()


def check(on: Bench, plan: UpdatePlan, foreseen: Foreseen) -> Record:
    """Carries the update out; every expectation of its outcome has to hold."""
    assert plan.foreseen == foreseen
    record = on.walk(plan)
    assert complaints(record) == []
    return record


@pytest.mark.parametrize(
    ("size", "transfer_size"),
    [
        pytest.param(402, 128, id="the smallest image", marks=slow),
        pytest.param(4096, 1024, id="an image of whole blocks", marks=slow),
        pytest.param(100_001, 4096, id="an image that ends in a short block"),
        pytest.param(8 << 20, 4096, id="eight mebibytes", marks=slow),
        pytest.param(100_001, 65_535, id="the largest transfer size", marks=slow),
        pytest.param(4096, 68, id="the smallest transfer size that the probe fits", marks=slow),
        # 65,537 blocks: the number of the last one is 0 again.
        pytest.param(128 * 65_536 + 1, 128, id="past the last block number", marks=slow),
        *(
            pytest.param(size, transfer_size, marks=slow)
            for size in SIZES
            for transfer_size in TRANSFER_SIZES
            if SIZES.index(size) != TRANSFER_SIZES.index(transfer_size)
        ),
    ],
)
def test_updates_with(on: Bench, size: int, transfer_size: int) -> None:
    image = random_image(size)
    check(on, UpdatePlan(image=image, camera_version="1.2.3.4", transfer_size=transfer_size), Foreseen.UPDATED)


@slow
def test_updates_to_an_older_version(on: Bench) -> None:
    check(on, UpdatePlan(camera_version="255.255.255.255"), Foreseen.UPDATED)


@slow
def test_asks_no_second_time_after_an_image_without_a_known_version(on: Bench) -> None:
    check(on, UpdatePlan(image=with_version(random_image(4096), "0.0.0.0")), Foreseen.UPDATED)


@slow
def test_sends_no_block_to_a_camera_whose_transfers_are_too_short_for_the_probe(on: Bench) -> None:
    check(on, UpdatePlan(image=random_image(4096), transfer_size=67), Foreseen.PROBE_REFUSED)


@slow
def test_leaves_the_camera_alone_when_the_user_declines(on: Bench) -> None:
    check(on, UpdatePlan(accept=False), Foreseen.DECLINED)


@pytest.mark.parametrize(("says", "foreseen"), [(True, Foreseen.UPDATED), (False, Foreseen.DECLINED)])
@slow
def test_does_what_the_person_says(on: Bench, says: bool, foreseen: Foreseen) -> None:
    asked = []

    def ask(camera: str, image: str) -> bool:
        asked.append((camera, image))
        return says

    record = on.walk(UpdatePlan(ask=ask))
    assert asked == [("5.10.2.0", "5.10.3.0")]
    assert record.plan.foreseen == foreseen
    assert complaints(record) == []


@pytest.mark.parametrize(
    "plan",
    [
        pytest.param(UpdatePlan(update_mode="Auto"), id="in the automatic mode", marks=slow),
        pytest.param(UpdatePlan(update_mode="Disabled"), id="when updates are disabled", marks=slow),
        pytest.param(UpdatePlan(update_mode=None), id="when no update mode is set", marks=slow),
        pytest.param(UpdatePlan(update_mode="service controlled"), id="when the update mode is in another case", marks=slow),
        pytest.param(UpdatePlan(camera_version="5.10.3.0"), id="when the versions are equal"),
        pytest.param(UpdatePlan(camera_version="0.0.0.0"), id="when the camera's version is unknown", marks=slow),
        pytest.param(UpdatePlan(toast_server=False), id="without a toast controller", marks=slow),
    ],
)
def test_asks_nobody(on: Bench, plan: UpdatePlan) -> None:
    check(on, plan, Foreseen.NOT_ASKED)


@pytest.mark.parametrize("what", ["stall", "unplug"], ids=["refuses a block", "is pulled out"])
@slow
def test_ends_the_update_when_the_camera(on: Bench, what: str) -> None:
    """The fourth block meets a fault: that transfer is the last, and the service stops as ever."""
    fault = {"where": "DNLOAD", "what": what, "skip": 3, "count": 1}
    record = check(on, UpdatePlan(camera={"faults": [fault]}), Foreseen.BROKEN_OFF)
    *before, end = record.transfers()
    assert all(transfer["ok"] for transfer in before)
    assert (end["ok"], end["setup"]) == (False, "21 01 03 00 00 00 00 04")
    assert record.flash != record.plan.image


@pytest.fixture(scope="module")
def good(shared: Shared[Bench]) -> Record:
    """An update that went well, to be spoiled."""
    plan = UpdatePlan(image=with_version(random_image(5000), "9.8.7.6"))
    return check(shared.get(), plan, Foreseen.UPDATED)


def test_the_document_shows_the_trace_of_a_good_update(good: Record) -> None:
    document = (CHECKOUT / "docs" / "operations.md").read_text(encoding="utf-8")
    _, found, rest = document.partition("A good update at level 4, as the laboratory's camera made it:\n\n")
    sample = rest.partition("\n\n")[0].splitlines()
    assert found and all(line.startswith("    ") for line in sample)
    # Behind two blanks stands what a line means.
    told = [line.strip().partition("  ")[0] for line in sample] + ["The update service is asked to stop"]
    seen = [event["text"] for event in good.of_service("trace") if event["group"] != SCOPE_TRACES]
    # A toast controller that has served other tests before gives higher cookies.
    seen = [re.sub(r"\(cookie \d+\)", "(cookie 2)", text) for text in seen]
    assert [text.replace(good.plan.image_version, "5.10.3.0") for text in seen] == told


def last(record: Record, name: str) -> int:
    """Where the last event of a kind stands that does not come from the service's installer."""
    return max(
        position
        for position, event in enumerate(record.events)
        if event["event"] == name and (event["source"] != RIG or event["pid"] == record.service_pid)
    )


def changed(name: str, **fields: object) -> Callable[[Record], Record]:
    """The record with some fields of the last event of a kind changed."""

    def change(record: Record) -> Record:
        events = list(record.events)
        position = last(record, name)
        events[position] = {**events[position], **fields}
        return replace(record, events=events)

    return change


def without(name: str) -> Callable[[Record], Record]:
    """The record without the last event of a kind."""

    def change(record: Record) -> Record:
        position = last(record, name)
        return replace(record, events=record.events[:position] + record.events[position + 1 :])

    return change


def with_command_before_the_answer(record: Record) -> Record:
    early = next(event for event in record.events if event["event"] == "firmware-command")
    return replace(
        record,
        events=[{**early, "opcode": ENTER_DFU_MODE, "pid": record.service_pid}, *record.events],
        answered_at=(record.answered_at or 0) + 1,
    )


def with_failed_transfers(record: Record) -> Record:
    return replace(record, events=[{**e, "ok": False} if e["event"] == "transfer" else e for e in record.events])


def without_first_block(record: Record) -> Record:
    # The last transfer is a GETSTATUS, of which there may be any number; the one before the polls is not.
    return replace(record, events=[e for e in record.events if e.get("setup") != "21 01 00 00 00 00 00 04"])


def with_block_lost(record: Record) -> Record:
    assert record.after is not None
    return replace(record, after=replace(record.after, block_number_gaps=1))


def told(**fields: object) -> Callable[[Record], Record]:
    """The record with other fields of its own."""
    return lambda record: replace(record, **fields)


# What is to be noticed, and a good record spoiled so that it has to be.
SPOILED: dict[str, Callable[[Record], Record]] = {
    "installing says": told(install_text="VeyraCameraDfuService is installed.\n\n"),
    "is configured": lambda good: replace(good, service_key={**good.service_key, "Start": ("REG_DWORD", "0x2")}),
    "reports its states": changed("service-status", words=[16, 1, 5, 0, 0, 3, 0]),
    "notice of the start": without("event-log"),
    "every interface class": changed("notification-registered", flags=1),
    "handled with result 0": changed("handled", result=1),
    "asked at each arrival": changed("prompt-call", method="ShowUpdatePrompt", texts=["1.1.1.1", "9.8.7.6"]),
    "before the answer": with_command_before_the_answer,
    "answer reaches": changed("answer", sinks=0),
    "by one command": changed("firmware-command", opcode=ENTER_DFU_MODE, parameters=[0, 0, 0, 0]),
    "in the order of the download": changed("transfer", setup="a1 03 00 00 00 00 05 00"),
    "number of transfers": without_first_block,
    "every transfer succeeds": with_failed_transfers,
    "every contract of Windows": told(breaches=["a contract of Windows is broken: one (MFEnumDeviceSources)"]),
    "block by block": changed("prompt-call", method="NotifyProgress", texts=["5"]),
    "end of the download": without("prompt-call"),
    "flash equals": lambda good: replace(good, flash=good.flash[:-1] + bytes([good.flash[-1] ^ 1])),
    "no block is lost": with_block_lost,
    "trace tells": changed("trace", group=UPDATE_SERVICE_TRACES, number=25),
    "has its words": changed("trace", text=None),
    "only once the driver": lambda good: replace(good, driver_removed_at=len(good.events)),
    "service it knows": changed("command-run", command="sc stop VeyraCameraDfuService"),
    "within two seconds": told(stop_seconds=2.1),
    "process ends": told(process_left=False),
    "removing says": told(state_after_removal="STOPPED"),
    "no process crashed": told(crashes=["process-32-64"]),
    "gone to its end": told(broken_off="the rig went away"),
}


@pytest.mark.parametrize("name", SPOILED)
def test_judgement_notices(good: Record, name: str) -> None:
    """An expectation is worth something only when it can fail."""
    assert any(name in complaint for complaint in complaints(SPOILED[name](good)))

"""What scenarios are judged by, without a machine: good observations, each spoiled so that it has to be noticed."""

import zlib
from collections.abc import Callable, Sequence
from dataclasses import replace
from typing import Any

import pytest
from transcripts import Written, begun
from veyra_lab.judgement.always import judge_always
from veyra_lab.judgement.checks import CHECKS, judge
from veyra_lab.judgement.flash import old_flash
from veyra_lab.judgement.growth import removals
from veyra_lab.judgement.observed import CameraNow, Observed
from veyra_lab.judgement.results import RESULTS
from veyra_lab.windows.image import with_version
from veyra_lab.wire.events import ENTER_DFU_MODE, SENSOR_CLASS, USB_CLASS, VIDEO_CLASS, Event

Change = Callable[[Observed], Observed]

SERVICE = "VeyraCameraDfuService"
MONITORED = "VeyraCameraDFU"
# Four whole blocks of 1024 bytes and a short one.
IMAGE = with_version(bytes(5000), "5.10.3.0")
OLD = old_flash({})
VERSIONS = [
    "update 23: The camera's firmware version is 5.10.2.0",
    "update 27: The firmware image's version is 5.10.3.0",
]
CLRSTATUS = "21 04 00 00 00 00 00 00"
ABORT = "21 06 00 00 00 00 00 00"
CLOSING = "21 01 05 00 00 00 00 00"



def survivor(content: bytes, valid: bool = True) -> dict[str, object]:
    """What the boot loader would find after a power failure."""
    return {"valid": valid, "bytes": len(content), "checksum": zlib.crc32(content)}


HERE = CameraNow(
    mode="running", version="5.10.2.0", dfu_state=0, dfu_status=0, gaps=0, flash=OLD, survivor=survivor(OLD)
)
UPDATED = replace(HERE, version="5.10.3.0", flash=IMAGE, survivor=survivor(IMAGE))
STUCK = replace(HERE, mode="dfu", dfu_state=10, dfu_status=3, flash=IMAGE[:2048])


def observed(written: Written, now: CameraNow, **states: str) -> Observed:
    """What a transcript tells, with one camera that is now like this."""
    all_states = {SERVICE: "running", MONITORED: "deleted", **states}
    return Observed(written.events, [{}], IMAGE, [now].__getitem__, lambda name, _: all_states[name])


def updated() -> Written:
    """A whole update, and one of everything else that an expectation can name."""
    written = begun(4).prepare()
    for number in range(5):
        written.block(number)
    written.finish(5).come_back()
    written.rig("event-log", name=SERVICE, type=4, category=0, id=0, strings=[SERVICE, "OnStart Enter"])
    written.rig("debug-string", text="a text")
    written.rig("late-control", control=11, ms=30_400, id=7011, text="A timeout", refused=[4, 1], error=1053)
    return written.rig("command-run", command="sc stop VeyraCameraDFU", result=0)


# What each result is about, as it should be.
GOOD = {
    "updated": observed(updated(), UPDATED),
    "failed": observed(begun(4).prepare().block(0).block(1).block(2, error=31).close(), STUCK),
    "not opened": observed(
        Written().begin().answer().camera("left").camera("dfu").trace(20, "The camera in DFU mode could not be opened"),
        STUCK,
    ),
    "asked": observed(Written().begin().prompt("ShowUpdatePrompt", "5.10.2.0", "5.10.3.0"), HERE),
    "not asked": observed(Written().begin(image="5.10.2.0"), HERE),
}
# What can be expected of the update, all of it.
EXPECTED: dict[str, Any] = {
    "questions": [["5.10.2.0", "5.10.3.0"]],
    "progress": ["start:4", "1", "2", "3", "4", "5"],
    "completions": [1, 2],
    "commands": 1,
    "transfers": "GETSTATE DETACH GETSTATE UPLOAD (DNLOAD GETSTATUS)x5 EMPTY GETSTATUSx2 GETSTATUS!",
    "errors": [31],
    "requests": {"DNLOAD": 5, "EMPTY": 1, "GETSTATUS": [8, 9], "ABORT": 0},
    "traces": ["update 23", VERSIONS[1]],
    "traces with": [VERSIONS[0], "update 27"],
    "traces without": ["update 20", "update 23: The camera's firmware version is 5.10.3.0"],
    "event log": ["OnStart Enter"],
    "debug texts": 1,
    "controls": [0, 1],
    "late controls": 1,
    "refused controls": [4, 1],
    "commands run": ["sc stop VeyraCameraDFU"],
    "cameras": [
        {"mode": "running", "version": "5.10.3.0", "flash": "image", "dfu_state": 0, "dfu_status": 0, "gaps": 0}
    ],
    "service": "running",
    "monitored service": "deleted",
}


def last(good: Observed, name: str) -> int:
    """Where the last event of a kind stands; a method of the toast controller is a kind, too."""
    return max(at for at, event in enumerate(good.events) if name in (event["event"], event.get("method")))


def changed(name: str, **fields: object) -> Change:
    """Some fields of the last event of a kind changed."""

    def change(good: Observed) -> Observed:
        events = list(good.events)
        events[last(good, name)] = {**events[last(good, name)], **fields}
        return replace(good, events=events)

    return change


def without(name: str) -> Change:
    """The last event of a kind left out."""
    return lambda good: replace(good, events=[e for at, e in enumerate(good.events) if at != last(good, name)])


def twice(name: str) -> Change:
    """The last event of a kind once more."""
    return lambda good: replace(good, events=[*good.events, good.events[last(good, name)]])


def with_(write: Callable[[Written], object]) -> Change:
    """More events behind the others."""

    def change(good: Observed) -> Observed:
        written = Written()
        write(written)
        return replace(good, events=[*good.events, *written.events])

    return change


def now(**fields: Any) -> Change:
    """The camera as it should not be."""
    return lambda good: replace(good, look=lambda number: replace(good.look(number), **fields))


def in_state(name: str, state: str) -> Change:
    """A service in another state."""
    return lambda good: replace(
        good, service_state=lambda each, wanted: state if each == name else good.service_state(each, wanted)
    )


COMMAND = with_(lambda more: more.command(ENTER_DFU_MODE, [1, 0, 0, 0]))
TRANSFER = with_(lambda more: more.status())
PROGRESS = with_(lambda more: more.prompt("NotifyProgress", "start:4"))
COMPLETION = with_(lambda more: more.prompt("NotifyComplete"))
LEFT_ALONE: list[tuple[Change, str]] = [
    (COMMAND, "commands into DFU mode: expected 0, seen 1"),
    (TRANSFER, "transfers: expected nothing, seen GETSTATUS"),
    (PROGRESS, "progress: expected [], seen ['start:4']"),
    (COMPLETION, "ends of a download: expected 0, seen 1"),
]

# Each field of an expectation and each result, what spoils it, and what is said then.
SPOILED: dict[str, list[tuple[Change, str]]] = {
    "questions": [
        (changed("ShowUpdatePrompt", texts=["1", "2"]), "questions: expected [['5.10.2.0', '5.10.3.0']], seen [['1"),
        (without("ShowUpdatePrompt"), "questions: expected [['5.10.2.0', '5.10.3.0']], seen []"),
    ],
    "progress": [(without("NotifyProgress"), "progress: expected ['start:4', '1', '2', '3', '4', '5'], seen [")],
    "completions": [
        (without("NotifyComplete"), "ends of a download: expected [1, 2], seen 0"),
        (lambda good: COMPLETION(COMPLETION(good)), "ends of a download: expected [1, 2], seen 3"),
    ],
    "commands": [
        (changed("firmware-command", opcode=ENTER_DFU_MODE + 1), "commands into DFU mode: expected 1, seen 0"),
        (COMMAND, "commands into DFU mode: expected 1, seen 2"),
    ],
    "transfers": [
        (without("transfer"), "transfers: expected GETSTATE DETACH"),
        (changed("transfer", ok=True), "transfers: expected GETSTATE DETACH"),
        (changed("transfer", setup=ABORT), "transfers: expected GETSTATE DETACH"),
    ],
    "errors": [
        (changed("transfer", error=433), "errors of transfers: expected [31], seen [433]"),
        (changed("transfer", ok=True), "errors of transfers: expected [31], seen []"),
        (
            with_(lambda more: more.status(error=31).status(error=22).status(error=22).status(error=31)),
            "errors of transfers: expected [31], seen [31, 22, 31]",
        ),
    ],
    "requests": [
        (with_(lambda more: more.block(5, told=False)), "requests DNLOAD: expected 5, seen 6"),
        (without("transfer"), "requests GETSTATUS: expected [8, 9], seen 7"),
        (with_(lambda more: more.transfer(ABORT)), "requests ABORT: expected 0, seen 1"),
    ],
    "traces": [
        (without("trace"), f"trace messages: expected {['update 23', VERSIONS[1]]}, seen ['update 23']"),
        (changed("trace", text="other words"), "seen ['update 23', 'update 27: other words']"),
        (with_(lambda more: more.trace(24, "one more")), "'update 24: one more']"),
    ],
    "traces with": [
        (without("trace"), "trace messages: expected update 27 among ["),
        (changed("trace", number=28), "trace messages: expected update 27 among ["),
        (changed("trace", group="{86E9D1B4-5F2A-4C37-B81E-20A7934DF65C}"), "expected update 27 among ["),
    ],
    "traces without": [
        (with_(lambda more: more.trace(20, "not opened")), "unwanted trace messages: expected [], seen ['update 20']"),
        (
            changed("trace", number=23, text="The camera's firmware version is 5.10.3.0"),
            "unwanted trace messages: expected [], seen [\"update 23: The camera's",
        ),
    ],
    "event log": [
        (without("event-log"), "event log: expected ['OnStart Enter'], seen []"),
        (changed("event-log", strings=[SERVICE, "OnStop"]), "event log: expected ['OnStart Enter'], seen ['OnStop']"),
    ],
    "debug texts": [
        (without("debug-string"), "debug texts: expected 1, seen 0"),
        (twice("debug-string"), "debug texts: expected 1, seen 2"),
    ],
    "controls": [(twice("handled"), "controls handled: expected [0, 1], seen 2")],
    "late controls": [
        (without("late-control"), "late controls: expected 1, seen 0"),
        (twice("late-control"), "late controls: expected 1, seen 2"),
    ],
    "refused controls": [
        (changed("late-control", refused=[1]), "refused controls: expected [4, 1], seen [1]"),
        (without("late-control"), "refused controls: expected [4, 1], seen []"),
    ],
    "commands run": [
        (without("command-run"), "commands run: expected ['sc stop VeyraCameraDFU'], seen []"),
        (twice("command-run"), "commands run: expected ['sc stop VeyraCameraDFU'], seen ['sc stop"),
    ],
    "cameras": [
        (now(mode="dfu"), "mode of camera 0: expected running, seen dfu"),
        (now(version="1.2.3.4"), "version of camera 0: expected 5.10.3.0, seen 1.2.3.4"),
        (now(dfu_state=2), "dfu_state of camera 0: expected 0, seen 2"),
        (now(dfu_status=3), "dfu_status of camera 0: expected 0, seen 3"),
        (now(gaps=1), "gaps of camera 0: expected 0, seen 1"),
        (now(flash=OLD), "flash of camera 0: expected the image, seen what it came with"),
    ],
    "service": [(in_state(SERVICE, "stopped"), f"state of the service {SERVICE}: expected running, seen stopped")],
    "monitored service": [
        (in_state(MONITORED, "running"), f"state of the service {MONITORED}: expected deleted, seen running")
    ],
    "updated": [
        (COMMAND, "commands into DFU mode: expected 1, seen 2"),
        (with_(lambda more: more.block(5, told=False)), "transfers: expected GETSTATE DETACH GETSTATE UPLOAD"),
        (changed("NotifyProgress", texts=["4"]), "progress: expected ['start:4', '1', '2', '3', '4', '5'], seen ["),
        (without("NotifyComplete"), "ends of a download: expected 1, seen 0"),
        (now(mode="absent"), "mode, version and block gaps: expected ('running', '5.10.3.0', 0), seen ('absent'"),
        (now(version="5.10.2.0"), "mode, version and block gaps: "),
        (now(gaps=1), "mode, version and block gaps: "),
        (now(flash=IMAGE[:-1]), "flash of camera 0: expected the image, seen 4999 bytes of which the first 4999 are"),
    ],
    "failed": [
        (without("NotifyComplete"), "ends of a download: expected 1, seen 0"),
        (COMPLETION, "ends of a download: expected 1, seen 2"),
        (now(mode="running", flash=IMAGE), "the camera runs the image although the download failed"),
    ],
    "not opened": [
        *LEFT_ALONE[1:],
        (without("trace"), "the trace does not say that the device was not opened (update 20)"),
    ],
    "asked": [
        *LEFT_ALONE,
        (without("ShowUpdatePrompt"), "number of questions: expected 2, seen 1"),
        (twice("ShowUpdatePrompt"), "number of questions: expected 2, seen 3"),
        (lambda good: replace(good, cameras=[{"listed_as": "capture"}]), "number of questions: expected 1, seen 2"),
    ],
    "not asked": [
        *LEFT_ALONE,
        (with_(lambda more: more.prompt("ShowUpdatePrompt", "1", "2")), "questions: expected [], seen [['1', '2']]"),
    ],
}


def complaints(field: str, change: Change = lambda good: good) -> list[str]:
    """What is said of this field, or of this result, of an expectation alone."""
    expectation = {"result": field} if field in RESULTS else {field: EXPECTED[field]}
    return list(judge(expectation, change(GOOD.get(field, GOOD["updated"]))))


def test_everything_is_here() -> None:
    assert set(EXPECTED) == set(CHECKS)
    assert set(GOOD) == set(RESULTS)
    assert set(SPOILED) == {*CHECKS, *RESULTS}


@pytest.mark.parametrize("field", SPOILED)
def test_has_no_complaint_about_what_is_good(field: str) -> None:
    assert complaints(field) == []


@pytest.mark.parametrize("result", RESULTS)
def test_finds_only_what_always_holds_in_what_is_good(result: str) -> None:
    assert list(judge_always(GOOD[result].events)) == []


@pytest.mark.parametrize(
    ("field", "change", "words"), [(field, *each) for field, some in SPOILED.items() for each in some]
)
def test_notices(field: str, change: Change, words: str) -> None:
    """An expectation is worth something only when it can fail."""
    (complaint,) = complaints(field, change)
    assert words in complaint


def test_takes_what_an_expectation_says_instead_of_what_its_result_means() -> None:
    good = GOOD["updated"]
    odd = COMMAND(COMPLETION(PROGRESS(good)))
    told = {"commands": 2, "completions": 2, "progress": [*EXPECTED["progress"], "start:4"]}
    assert len(list(judge({"result": "updated"}, odd))) == 3
    assert list(judge({"result": "updated", **told}, odd)) == []
    failed = COMPLETION(now(mode="running", flash=IMAGE)(GOOD["failed"]))
    told = {"completions": 2, "cameras": [{"mode": "running", "flash": "image"}]}
    assert len(list(judge({"result": "failed"}, failed))) == 2
    assert list(judge({"result": "failed", **told}, failed)) == []
    asked = twice("ShowUpdatePrompt")(GOOD["asked"])
    assert list(judge({"result": "asked", "questions": [["5.10.2.0", "5.10.3.0"]] * 3}, asked)) == []


def test_lets_a_failed_camera_run_or_hold_the_image_but_not_both() -> None:
    for fields in ({"mode": "running"}, {"flash": IMAGE}):
        assert list(judge({"result": "failed"}, now(**fields)(GOOD["failed"]))) == []


def test_looks_at_the_camera_that_is_meant() -> None:
    two = replace(GOOD["updated"], cameras=[{}, {"transfer_size": 2500}], look=[HERE, UPDATED].__getitem__)
    said = list(judge({"result": "updated", "camera": 1}, two))
    assert [each.partition(":")[0] for each in said] == ["transfers", "progress"]
    assert list(judge({"cameras": [None, {"flash": "image"}]}, two)) == []
    assert list(judge({"cameras": [{"flash": "old"}]}, two)) == []


def test_takes_no_transfers_for_none() -> None:
    assert list(judge({"transfers": "none"}, GOOD["asked"])) == []
    (complaint,) = judge({"transfers": "none"}, GOOD["failed"])
    assert complaint.startswith("transfers: expected none, seen GETSTATE DETACH GETSTATE UPLOAD DNLOAD/0 GETSTATUS ")


@pytest.mark.parametrize(
    ("wanted", "flash", "seen"),
    [
        ("old", OLD, None),
        ("old", IMAGE, "expected what it came with, seen the image"),
        ("old", OLD[:-1], "expected what it came with, seen 4095 bytes of which the first 0 are the image's"),
        ("image", IMAGE, None),
        ("image", IMAGE + b"\0", "expected the image, seen 5001 bytes of which the first 5000 are the image's"),
        ("partial", IMAGE[:1024] + OLD[1024:], None),
        ("partial", IMAGE, "expected a part of the image, seen the image"),
        ("partial", OLD, "expected a part of the image, seen what it came with"),
        ("other", IMAGE[1:], None),
        ("other", IMAGE, "expected neither, seen the image"),
        ("other", OLD, "expected neither, seen what it came with"),
    ],
    ids=lambda value: value if isinstance(value, str) else "",
)
def test_tells_flash(wanted: str, flash: bytes, seen: str | None) -> None:
    said = list(judge({"cameras": [{"flash": wanted}]}, now(flash=flash)(GOOD["updated"])))
    assert said == ([] if seen is None else [f"flash of camera 0: {seen}"])


@pytest.mark.parametrize(
    ("content", "valid", "seen"),
    [
        (OLD, True, "old"),
        (IMAGE, True, "image"),
        (IMAGE, False, "none"),
        (IMAGE[:-1], True, "wrong"),
        (IMAGE[:1024] + OLD[1024:], True, "wrong"),
    ],
)
def test_tells_what_would_be_started_after_a_power_failure(content: bytes, valid: bool, seen: str) -> None:
    here = now(survivor=survivor(content, valid))(GOOD["updated"])
    for wanted in ("none", "old", "image", "wrong"):
        said = list(judge({"cameras": [{"firmware": wanted}]}, here))
        expected = f"firmware of camera 0 after a power failure: expected {wanted}, seen {seen}"
        assert said == ([] if wanted == seen else [expected])


def test_knows_the_version_in_the_flash_that_a_camera_came_with() -> None:
    assert len(OLD) == 4096
    assert (OLD[:2], OLD[398:402]) == (bytes([7, 38]), bytes([0, 2, 10, 5]))
    assert old_flash({"version": "1.2.3.4"})[398:402] == bytes([4, 3, 2, 1])


@pytest.mark.parametrize(
    ("written", "words"),
    [
        (Written().rig("handled", control=1, result=5), "controls that were not handled with 0: expected [], seen [{"),
        (Written().rig("trace", number=7, text=None), "trace messages without words: expected [], seen [7]"),
        (Written().rig("trace", number=8), "trace messages without words: expected [], seen [8]"),
        (Written().transfer(CLRSTATUS), "CLRSTATUS was sent, which the service never does"),
        (Written().transfer(ABORT), "ABORT was sent, which the service never does"),
        (Written().block(0, error=31).status(), "after DNLOAD/0! failed, GETSTATUS was sent"),
        (Written().block(2, error=31).block(3, told=False), "after DNLOAD/2! failed, DNLOAD/3 was sent"),
    ],
    ids=lambda value: value if isinstance(value, str) else "",
)
def test_notices_what_never_holds(written: Written, words: str) -> None:
    (complaint,) = judge_always(written.events)
    assert words in complaint


@pytest.mark.parametrize(
    "written",
    [
        pytest.param(Written().status(error=31).status(), id="a status is asked for again"),
        pytest.param(Written().transfer(CLOSING, error=31).status(), id="the closing block is refused"),
        pytest.param(Written().block(0, error=31).rig("usb-open", link="usb", ok=True).status(), id="another device"),
        pytest.param(Written().add("lab", "handled", result=1), id="the laboratory's own event"),
    ],
)
def test_lets_be(written: Written) -> None:
    assert list(judge_always(written.events)) == []


def control(kind: int, interface_class: str) -> Event:
    return {"event": "control", "control": 11, "type": kind, "class": interface_class}


def test_counts_the_looks_of_the_uninstall_monitor() -> None:
    events: Sequence[Event] = [
        *(control(kind, each) for kind in (0x8000, 0x8001, 0x8004) for each in (SENSOR_CLASS, VIDEO_CLASS, USB_CLASS)),
        control(0x8000, SENSOR_CLASS),
        {"event": "control", "control": 1},
        {"event": "handled", "control": 11},
    ]
    assert removals(events) == 2

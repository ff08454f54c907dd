"""The cause from what a user can send: how it is read, whatever it is, and what the answer is. Without a machine."""

import json
import re
import struct
from dataclasses import replace
from pathlib import Path

import pytest

from support import CHECKOUT, Run, check_refusal
from veyra_lab import __main__ as lab
from veyra_lab.causes import answer as answers
from veyra_lab.causes.alike import REASONS, reason
from veyra_lab.causes.answer import answer, row_of
from veyra_lab.causes.event_log import Record, read_records
from veyra_lab.causes.measure import Measured, Table, measured
from veyra_lab.causes.rows import rows
from veyra_lab.causes.sent import Sent, read_sent
from veyra_lab.causes.stand_in import event_log_records, event_log_xml, trace_text
from veyra_lab.causes.texts import MOST_BYTES, SentText, decoded, read_text
from veyra_lab.causes.trace_text import Message, TraceReader

_WHEN = "11/23/2026-09:00:02.852"
_CONTROLLER = "VeyraCameraToastCntl"
_OLD, _NEW = "5.10.2.0", "5.10.3.0"
_START = ["update 10", "sink 10 1"]
_PLUG = ["base 13", "update 18", "base 12"]
_ASK = [*_PLUG, f"update 23 {_OLD}", f"update 27 {_NEW}"]
_BACK = [*_PLUG, f"update 23 {_NEW}", f"update 27 {_NEW}"]
_DOWNLOAD = ["base 13", "update 19"]
_ASKED, _YES, _NO = f"1 {_OLD} {_NEW}", "4", "5"


def sent(trace: list[str], log: list[str] | None = None) -> Sent:
    """Messages such as "update 23 5.10.2.0", and the toast controller's records such as "22 2 4"."""
    messages = []
    for each in trace:
        group, number, *arguments = each.split()
        messages.append(Message(f"{group} {number}", tuple(arguments)))
    records = [Record(_CONTROLLER, int(each.split()[0]), tuple(each.split()[1:])) for each in log or []]
    return Sent(messages, records, traces=["trace.txt"], logs=[] if log is None else ["log.xml"])


def causes(trace: list[str], log: list[str] | None = None) -> list[tuple[str, ...]]:
    return [finding.rows for finding in answer(sent(trace, log)).causes]


# What a story means.

_STORIES: dict[str, tuple[list[str], list[str] | None, list[tuple[str, ...]]]] = {
    "no arrival": (_START, [], [("before-service",)]),
    "an update mode that does not allow it": ([*_START, "base 13", "base 12"], [], [("mode",)]),
    "a camera that Media Foundation does not offer": ([*_START, *_PLUG], [], [("no-media",)]),
    "an unknown version": ([*_START, *_PLUG, "update 22"], [], [("version-unknown",)]),
    "no image": ([*_START, *_PLUG, f"update 23 {_OLD}", "update 25"], [], [("no-image",)]),
    "no toast controller": (
        ["update 10", "launch 10 2", *_ASK], [], [("controller-missing",), ("controller-missing",)]
    ),
    "a toast controller that did not start": (
        ["update 10", *_ASK], [], [("controller-not-started",), ("controller-not-started",)]
    ),
    "a toast controller that has gone": ([*_START, *_ASK], [], [("controller-gone",)]),
    "a toast controller that cannot be told apart without the start": (
        _ASK, [], [("controller-missing", "controller-setup", "controller-not-started", "controller-gone")]
    ),
    "a user who declined": ([*_START, *_ASK], [_ASKED, _NO], [("declined",)]),
    "a user who did not answer": ([*_START, *_ASK], [_ASKED], [("unanswered",)]),
    "a question that was open when the service was stopped": (
        [*_START, *_ASK, "update 24"], [_ASKED, "3"], [("unanswered", "controller-hangs")]
    ),
    "a toast controller that had gone when the service was stopped": (
        [*_START, *_ASK, "update 24"], [_ASKED], [("controller-gone",)]
    ),
    "a question that another took the place of, and a service that was stopped": (
        [*_START, *_ASK, *_ASK, "update 24"], [_ASKED, "2", _ASKED, "3"],
        [("unanswered",), ("unanswered", "controller-hangs")],
    ),
    "one listing that is silent, and a question without an answer": (
        [*_START, *_ASK, "base 12"], [_ASKED], [("no-media", "unanswered")]
    ),
    "a camera that did not switch": ([*_START, *_ASK], [_ASKED, _YES], [("not-switched",)]),
    "a camera that came back as something else": (
        [*_START, *_ASK, "base 13", "update 18"], [_ASKED, _YES], [("other-identifiers",)]
    ),
    "a driver that was late": (
        [*_START, *_ASK, "base 13", "update 20", *_DOWNLOAD, *_BACK], [_ASKED, _YES, "10 4", "20 5 4"],
        [("driver-late",)],
    ),
    "a driver that never came": (
        [*_START, *_ASK, "base 13", "update 20", "base 13", "update 20"], [_ASKED, _YES], [("driver-wrong",)]
    ),
    "a driver of which one look is known": (
        [*_START, *_ASK, "base 13", "update 20"], [_ASKED, _YES], [("driver-late", "driver-wrong")]
    ),
    "no endpoint": ([*_START, *_ASK, "base 13", "update 21"], [_ASKED, _YES], [("driver-wrong",)]),
    "an image that is gone": ([*_START, *_ASK, *_DOWNLOAD], [_ASKED, _YES, "24 0 -"], [("image-gone",)]),
    "a block that failed": ([*_START, *_ASK, *_DOWNLOAD], [_ASKED, _YES, "10 4", "22 2 4"], [("block-failed",)]),
    "nothing before the first block": (
        [*_START, *_ASK, *_DOWNLOAD], [_ASKED, _YES, "10 4", "22 0 4"], [("refused", "block-failed")]
    ),
    "an end that the camera did not come to": (
        [*_START, *_ASK, *_DOWNLOAD, *_ASK], [_ASKED, _YES, "10 4", "20 5 4", _ASKED, _NO],
        [("end-failed", "waits-for-plug"), ("declined",)],
    ),
    "a camera that comes in DFU mode": (
        [*_START, *_DOWNLOAD], ["10 4", "22 0 4"], [("no-firmware", "refused")]
    ),
    "an update": ([*_START, *_ASK, *_DOWNLOAD, *_BACK], [_ASKED, _YES, "10 4", "20 5 4"], []),
    "equal versions": ([*_START, *_BACK], [], []),
}  # fmt: skip


@pytest.mark.parametrize(("trace", "log", "expected"), _STORIES.values(), ids=_STORIES)
def test_tells_the_cause(trace: list[str], log: list[str] | None, expected: list[tuple[str, ...]]) -> None:
    assert causes(trace, log) == expected


def test_tells_that_nothing_is_wrong() -> None:
    told = answer(sent([*_START, *_ASK, *_DOWNLOAD, *_BACK], [_ASKED, _YES, "10 4", "20 5 4"]))
    assert (told.causes, told.rows) == ([], ["up-to-date", "end-failed"])
    assert told.sentence.startswith("Nothing is wrong, as far as this tells: the camera took all 5 blocks")


def test_tells_a_download_without_an_event_log_by_what_came_of_it() -> None:
    told = answer(sent([*_START, *_ASK, *_DOWNLOAD, *_BACK]))
    assert (told.causes, told.rows) == ([], ["up-to-date", "end-failed"])
    assert "no event log" in told.notes[0]
    assert "block-failed" in answer(sent([*_START, *_ASK, *_DOWNLOAD, *_ASK])).rows


def test_tells_a_download_without_a_trace() -> None:
    log = [Record(_CONTROLLER, 1, (_OLD, _NEW)), Record(_CONTROLLER, 4), Record(_CONTROLLER, 10, ("4",))]
    told = answer(Sent([], [*log, Record(_CONTROLLER, 22, ("3", "4"))], logs=["log.xml"]))
    assert told.rows == ["block-failed"]


def test_only_wrap_around_may_leave_other_content_behind() -> None:
    log = [_ASKED, _YES, "10 65537", "20 65537 65536"]
    assert answer(sent([*_START, *_ASK, *_DOWNLOAD, *_BACK], log)).rows == ["up-to-date", "end-failed", "wrong-content"]


def test_tells_a_late_control_of_the_service_and_of_no_other() -> None:
    whole = sent([*_START, *_BACK], [])
    names = ("Spooler", "VeyraCameraDfuService")
    whole.records = [Record("Service Control Manager", 7011, ("30000", name)) for name in names]
    assert [each.rows for each in answer(whole).others if each.rows != ("same-version",)] == [("late-control",)]


def test_takes_what_the_companion_found_as_well() -> None:
    findings = [
        {"id": "update-mode-missing", "severity": "fault", "text": "The update mode is not set."},
        {"id": "service-starts-by-hand", "severity": "note", "text": "By hand."},
        {"id": "toast-controller-launch", "severity": "fault", "text": "May not start."},
        {"id": "of the future", "severity": "fault"}, 7,
    ]  # fmt: skip
    told = answer(Sent(status={"findings": findings}))
    assert [finding.rows for finding in told.causes] == [("mode",), ("controller-not-started",)]
    assert told.faults == ["of the future"]
    assert told.sentence.startswith("The update mode is not set: the update mode is not exactly")
    later = answer(replace(sent([*_START, *_ASK], [_ASKED, _NO]), status={"findings": findings}))
    assert later.sentence.startswith("The record has an answer that is no acceptance: ")


def test_a_row_says_what_to_do_where_it_is_told_alone() -> None:
    """It is told without the document around it."""
    for row in rows().values():
        assert not re.search(r"\b(?:above|below|next [a-z]+ rows)\b", row.remedy), row.name
        assert "see below" not in row.cause, row.name
    assert rows()["mode"].remedy == (
        r"reg add HKLM\SYSTEM\CurrentControlSet\Services\VeyraCameraDFU /v DFUAutoMode /t REG_SZ"
        ' /d "Service Controlled" /f'
    )


def test_tells_a_fault_that_is_no_row_in_the_companions_words() -> None:
    account = {"id": "service-account", "severity": "fault", "text": "It runs as X.", "advice": "Install it again."}
    told = answer(Sent(status={"findings": [account]}))
    assert (told.rows, told.sentence) == ([], "It runs as X. Install it again.")
    assert "the companion found: It runs as X. Install it again." in told.lines()


def test_each_fault_of_the_companion_is_a_row_or_known_to_be_none() -> None:
    text = (CHECKOUT / "docs" / "check.md").read_text(encoding="utf-8")
    table = re.findall(r"^\| (`[a-z-]+`(?:, `[a-z-]+`)*) \| fault \|", text, re.MULTILINE)
    faults = [name for cell in table for name in re.findall(r"`([a-z-]+)`", cell)]
    assert len(faults) > 25
    assert {name for name in faults if not row_of(name)} == {
        "service-unknown", "service-account", "service-program-missing", "service-program-replaced",
        "image-unknown", "camera-listed-as-capture", "dfu-device-present", "dfu-device-waits", "usb-devices-unknown",
    }  # fmt: skip
    assert row_of("image-refused") == "no-image"


def test_a_note_of_the_companion_is_no_cause_and_is_told_besides() -> None:
    names = {"camera-without-unit": "no-media", "toast-controller-waits": "nobody-there", "service-starts-by-hand": ""}
    findings = [{"id": name, "severity": "note", "text": f"The {name}."} for name in names]
    told = answer(Sent(status={"findings": findings}))
    assert (told.rows, told.faults) == ([], [])
    assert [(each.rows, each.seen) for each in told.others] == [
        (("no-media",), "The camera-without-unit."), (("nobody-there",), "The toast-controller-waits."),
    ]  # fmt: skip
    assert "seen besides: The toast-controller-waits. (row nobody-there)" in told.lines()
    text = (CHECKOUT / "docs" / "check.md").read_text(encoding="utf-8")
    for name in names:
        assert re.search(rf"^\| .*`{name}`.* \| note \|", text, re.MULTILINE), name


def test_another_makers_toast_controller_leaves_no_record_to_be_missed() -> None:
    whole = sent([*_START, *_ASK, *_DOWNLOAD, *_BACK], [])
    assert answer(whole).rows == ["controller-gone"]
    whole.status = {"toast_controller": {"ours": False}, "findings": []}
    told = answer(whole)
    assert "controller-gone" not in told.rows
    assert told.fine


def test_names_rows_that_are_there_alone() -> None:
    source = "".join(path.read_text() for path in Path(answers.__file__).parent.glob("*.py"))
    named = set(re.findall(r'"([a-z]+(?:-[a-z]+)+)"', source))
    for each in ("up-to-date", "block-failed", "controller-gone"):
        assert each in named
    for story in _STORIES.values():
        assert {name for rows_of in story[2] for name in rows_of} <= rows().keys()


def test_judges_the_end_of_an_endless_story() -> None:
    told = answer(sent([*_START, *["base 13", "update 18", "base 12"] * 20_000, *_ASK], [_ASKED, _NO]))
    assert told.causes[-1].rows == ("declined",)
    assert told.notes == ["of 40,003 arrivals, starts and stops the last 5,000 are judged"]


# How it is read.

_LINE = "[0]0178.0C84::11/23/2026-09:00:02.852 [FDUService]The camera's firmware version is 5.10.2.0"


@pytest.mark.parametrize(
    "line",
    [
        _LINE,
        _LINE + "\r",
        "[1]0BD4.0C84::2026-11-23T09:00:02.852 [FDUService] The camera's firmware version is 5.10.2.0  ",
        "The camera's firmware version is 5.10.2.0",
        "09:00:02 FDUService: The camera's firmware version is 5.10.2.0",
    ],
)
def test_reads_messages_behind_any_prefix(line: str) -> None:
    (message,) = TraceReader().read([line]).messages
    assert (message.name, message.arguments) == ("update 23", ("5.10.2.0",))


def test_passes_over_what_is_not_the_services() -> None:
    lines = [
        "EventTrace",
        "[0]0004.0008::11/23/2026-09:00:02.852 [usbhub]The device's firmware version is 5.10.2.0",
        "[0]0004.0008::11/23/2026-09:00:02.852 [x]She said: A USB device interface arrived yesterday",
        "Unknown( 12): GUID=11111111-2222-3333-4444-555555555555 (No Format Information found).",
        "Unknown( 23): GUID=fbfbaa6b-fcbc-3745-ac1c-e104c7b6cda1 (No Format Information found).",
    ]
    trace = TraceReader().read(lines)
    assert (trace.messages, trace.unformatted) == ([], 1)


@pytest.mark.parametrize(
    ("line", "read"),
    [
        ("message 23 of fbfbaa6b-fcbc-3745-ac1c-e104c7b6cda1 (352e31302e322e3000)", Message("update 23", ("5.10.2.0",), _WHEN)),
        ("message 23 of fbfbaa6b-fcbc-3745-ac1c-e104c7b6cda1 (352e)", Message("update 23", ("5.",), _WHEN)),
        ("message 23 of 11111111-fcbc-3745-ac1c-e104c7b6cda1 (352e31302e322e3000)", None),
        ("message 99999 of fbfbaa6b-fcbc-3745-ac1c-e104c7b6cda1 ()", None),
        ("message 23 of fbfbaa6b-fcbc-3745-ac1c-e104c7b6cda1 (35f)", None),
    ],
)
def test_reads_what_the_companion_writes_without_the_words(line: str, read: Message | None) -> None:
    prefix = f"[0]0004.0008::{_WHEN} [fbfbaa6b-fcbc-3745-ac1c-e104c7b6cda1]"
    assert TraceReader().read([prefix + line]).messages == ([read] if read else [])


def test_knows_each_message_of_the_service() -> None:
    texts = [
        "The service cannot listen for the user's answer (0x80040202)", "A camera interface arrived",
        "Stopping failed with error 5: the service goes on",
        "The toast controller could not be started for its registration (error 2)",
        "COM security could not be set up (0x80010119): nobody will be asked",
    ]  # fmt: skip
    names = [message.name for message in TraceReader().read(f"[0]1.2::x [y]{text}" for text in texts).messages]
    assert names == ["sink 11", "base 12", "base 14", "launch 10", "update 11"]
    assert TraceReader().read([texts[3]]).messages[0].arguments == ("2",)


@pytest.mark.parametrize("encoding", ["utf-8", "utf-8-sig", "utf-16", "utf-16-le", "utf-16-be", "cp1252"])
def test_reads_any_encoding_that_windows_writes(encoding: str) -> None:
    text = "Gerät: The camera's firmware version is 5.10.2.0\r\nÜber\r\n"
    assert decoded(text.encode(encoding)) == text.replace("\r\n", "\n")


@pytest.mark.parametrize("content", [b"", bytes(range(256)) * 20, b"\0" * 5000, b"\xff\xfe", b"MZ\x90\0" + bytes(4000)])
def test_takes_no_bytes_for_a_text_that_are_none(content: bytes) -> None:
    assert not decoded(content).strip("\0\n ")[:1].isalpha() or content.startswith(bytes(range(256)))


def test_reads_no_more_than_it_must(tmp_path: Path) -> None:
    path = tmp_path / "huge.txt"
    with path.open("wb") as file:
        file.truncate(MOST_BYTES * 40)
        file.write(b"x" * 100)
    assert len(read_text(path, 1000).text) <= 1000
    assert read_text(path, 1000).cut


_XML = """<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System>
<Provider Name='VeyraCameraToastCntl'/><EventID Qualifiers='32768'>{number}</EventID>
<TimeCreated SystemTime='2026-11-23T08:00:0{second}.1234567Z'/></System>
<EventData><Data>2</Data><Data>4</Data></EventData></Event>"""


def records(text: str) -> list[tuple[str, int, tuple[str, ...]]]:
    return [(each.source, each.number, each.texts) for each in read_records(SentText("log", text))]


def test_reads_what_event_viewer_and_wevtutil_export() -> None:
    two = _XML.format(number=10, second=1) + _XML.format(number=22, second=2)
    expected = [(_CONTROLLER, 10, ("2", "4")), (_CONTROLLER, 22, ("2", "4"))]
    assert records(two) == expected
    assert records(f'<?xml version="1.0"?><Events>{two}</Events>') == expected
    # The newest first, as with /rd:true.
    assert records(_XML.format(number=22, second=2) + _XML.format(number=10, second=1)) == expected
    # The end of a file that was cut off.
    assert records(two[:-20]) == expected[:1]


@pytest.mark.parametrize("with_places", [True, False])
def test_reads_several_logs_of_one_file_each_in_its_own_order(with_places: bool) -> None:
    """As a bundle has them: of each log the newest first."""

    def one(number: int, second: int, place: int, channel: str) -> str:
        content = _XML.replace("</System>", f"<Channel>{channel}</Channel></System>").format(number=number, second=second)
        count = f"<EventRecordID>{place}</EventRecordID><Channel>"
        return content.replace("<Channel>", count) if with_places else content

    application = one(22, 2, 12, "Application") + one(10, 1, 11, "Application")
    system = one(7036, 3, 5, "System")
    assert [number for _, number, _ in records(f"<Events>{application}{system}</Events>")] == [10, 22, 7036]
    if with_places:
        # In one tick of the clock.
        application = one(22, 1, 12, "Application") + one(10, 1, 11, "Application")
        assert [number for _, number, _ in records(application)] == [10, 22]


@pytest.mark.parametrize("place", ["", "x", "9" * 5000, "-1", "\N{SUPERSCRIPT TWO}"])
def test_reads_a_log_whose_count_is_none(place: str) -> None:
    two = _XML.format(number=22, second=2) + _XML.format(number=10, second=1)
    wrong = two.replace("</System>", f"<EventRecordID>{place}</EventRecordID></System>")
    assert [number for _, number, _ in records(wrong)] == [10, 22]


def test_reads_events_as_text_in_two_languages() -> None:
    english = """Event[0]:
  Log Name: Application
  Source: VeyraCameraToastCntl
  Date: 2026-11-23T08:00:01.123
  Event ID: 22
  Level: Warning
  Description:
The download stopped. The camera has taken 2 of 4 blocks told at the start.

"""
    german = """Event[1]:
  Protokollname: Application
  Quelle: VeyraCameraToastCntl
  Datum: 2026-11-23T08:00:02.123
  Ereignis-ID: 1
  Beschreibung:
Der Benutzer wird gefragt, ob die Firmware 5.10.2.0 einer Kamera durch die Firmware 5.10.3.0 ersetzt werden soll.
"""
    assert records(english + german) == [(_CONTROLLER, 22, ("2", "4")), (_CONTROLLER, 1, (_OLD, _NEW))]


def test_reads_a_table_with_the_newest_first() -> None:
    table = (
        "Level,Date and Time,Source,Event ID,Task Category\n"
        "Warning,11/23/2026 1:00:02 PM,VeyraCameraToastCntl,22,None,The camera has taken 2 of 4 blocks.\n"
        "Information,11/23/2026 1:00:01 PM,VeyraCameraToastCntl,10,None,A download of 4 blocks starts.\n"
        'Information,11/23/2026 11:59:00 AM,Other,10,None,"Two\nlines"\n'
    )
    assert records(table)[1:] == [(_CONTROLLER, 10, ("4",)), (_CONTROLLER, 22, ("2", "4"))]


@pytest.mark.parametrize(
    "text",
    [
        "<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'>" * 1000,
        "<!DOCTYPE x [<!ENTITY a 'b'>]>"
        + _XML.replace("<Data>2", "<!ENTITY z 'q'><Data>&a;").format(number=22, second=1),
        _XML.format(number="9" * 5000, second=1),
        _XML.format(number="x", second=1),
        "Event[0]:\n" * 1000,
        "Source,Event ID\n" + "a" * 200_000 + ',"\n' * 50,
        '"' * 5000,
        "Source;Event ID\n;;;;\n",
    ],
)
def test_survives_broken_exports(text: str) -> None:
    assert records(text) == []


def test_puts_trace_and_log_together_though_their_clocks_are_of_different_zones(tmp_path: Path) -> None:
    written = tmp_path / "sent"
    written.mkdir()
    texts = ["The update service is being set up", "The service listens for the user's answer (cookie 2)",
             "A USB device interface arrived", "A USB device arrived, but no camera in DFU mode is present",
             "A camera interface arrived", "The camera's firmware version is 5.10.2.0",
             "The firmware image's version is 5.10.3.0", "A USB device interface arrived",
             "A camera in DFU mode is present"]  # fmt: skip
    lines = [f"[0]1.2::11/23/2026-19:30:0{second}.000 [x]{text}" for second, text in enumerate(texts)]
    (written / "veyra.txt").write_text("\r\n".join(lines), encoding="utf-16")
    log = "".join(
        _XML.replace("<Data>2</Data><Data>4</Data>", data).format(number=number, second=second)
        for second, number, data in (
            (6, 1, "<Data>5.10.2.0</Data><Data>5.10.3.0</Data>"), (7, 4, ""), (8, 10, "<Data>4</Data>"),
            (9, 22, "<Data>3</Data><Data>4</Data>"),
        )
    )  # fmt: skip
    (written / "events.xml").write_text(f"<Events>{log}</Events>", encoding="utf-8")
    (written / "trace.etl").write_bytes(b"\x00\x04" * 5000)
    (written / "versions.txt").write_text("Windows 10.0.22631")
    told = answer(read_sent([written]))
    assert told.rows == ["block-failed"]
    assert "3 blocks of 4" in told.sentence


def dated(trace: list[tuple[str, str]], log: list[tuple[str, str]]) -> list[tuple[str, ...]]:
    """The causes of messages and records that have times."""
    whole = sent([each for each, _ in trace], [each for each, _ in log])
    whole.messages = [replace(each, time=time) for each, (_, time) in zip(whole.messages, trace)]
    whole.records = [replace(each, time=time) for each, (_, time) in zip(whole.records, log)]
    return [finding.rows for finding in answer(whole).causes]


@pytest.mark.parametrize("zone", [-5, 0, 2])
def test_leaves_out_what_the_log_has_from_before_the_trace(zone: int) -> None:
    """A bundle has the records of months, in UTC, and the trace of a minute, in the machine's time."""
    stories = [*_START, *_ASK, *_DOWNLOAD]
    trace = [(each, f"11/23/2026-{12 + zone:02}:00:{place:02}.000") for place, each in enumerate(stories)]
    old = [(each, f"2026-10-0{day}T08:00:00.0000000Z") for day in range(1, 9) for each in (_ASKED, _YES, "10 4", "22 1 4")]
    new = [(_ASKED, "06.100"), (_YES, "07.000"), ("10 4", "08.200"), ("24 0 -", "09.0")]
    new = [(each, f"2026-11-23T12:00:{second}0000Z") for each, second in new]
    assert dated(trace, [*old, *new[:2], ("24 0 -", "2026-11-23T12:00:08.3000000Z")]) == [("image-gone",)]
    # Nothing was recorded meanwhile: the toast controller has gone.
    assert dated(trace[:7], old) == [("controller-gone",)]


def test_takes_a_log_whose_times_cannot_be_read_as_it_is() -> None:
    trace = [(each, "11/23/2026-12:00:01.000") for each in (*_START, *_ASK)]
    assert dated(trace, [(_ASKED, "gestern"), (_NO, "heute")]) == [("declined",)]


# The command.


def field(folder: Path, run: Run) -> list[Path]:
    """A trace and a log of a download that stopped."""
    del run
    trace = folder / "veyra.txt"
    trace.write_text(_LINE + "\n[0]1.2::x [y]The firmware image could not be opened\n", encoding="utf-8")
    log = folder / "events.xml"
    log.write_text(f"<Events>{_XML.format(number=22, second=1)}</Events>", encoding="utf-8")
    return [trace, log]


def test_says_cause_and_remedy(run: Run, tmp_path: Path) -> None:
    status, text, errors = run(lab.main, "report", *map(str, field(tmp_path, run)))
    assert (status, errors) == (0, "")
    lines = text.splitlines()
    assert lines[0].startswith("The firmware image could not be opened, or is too short: no image, or a wrong file")
    assert "  what to do now: put the image in place" in lines


def test_gives_programs_the_same_as_json_and_a_page(run: Run, tmp_path: Path) -> None:
    page = tmp_path / "cause.html"
    status, text, errors = run(lab.main, "report", *map(str, field(tmp_path, run)), "--json", "-o", str(page))
    assert (status, errors) == (0, "")
    told = json.loads(text)
    assert (told["rows"], told["causes"][0]["what_to_do"]) == (["no-image"], "put the image in place")
    content = page.read_text(encoding="utf-8")
    assert "What to do now" in content and "Put the image in place." in content
    assert re.findall(r"https?:|@import|url\(", content) == []


def test_takes_no_part_of_what_was_sent_for_its_own(run: Run, tmp_path: Path) -> None:
    trace = tmp_path / "<script>alert(1)<script>.txt"
    trace.write_text("[0]1.2::<img src=x> [y]The camera's firmware version is <img/onerror=x>\n"
                     "[y]The firmware image's version is <b>\n[x]A camera interface arrived\n")  # fmt: skip
    page = tmp_path / "cause.html"
    status, _, errors = run(lab.main, "report", str(trace), "-o", str(page))
    assert (status, errors) == (0, "")
    assert not re.search(r"<img|<script>alert|<b>\W", page.read_text(encoding="utf-8").partition("<body>")[2])


def cabinet(files: dict[str, bytes]) -> bytes:
    """A cabinet of one folder that is not compressed."""
    data = b"".join(files.values())
    entries = b""
    offset = 0
    for name, content in files.items():
        entries += struct.pack("<IIHHHH", len(content), offset, 0, 0, 0, 0x20) + name.encode() + b"\0"
        offset += len(content)
    first = 36 + 8
    block = struct.pack("<IHH", 0, len(data), len(data)) + data
    folder = struct.pack("<IHH", first + len(entries), 1, 0)
    size = first + len(entries) + len(block)
    head = struct.pack("<4sIIIIIBBHHHHH", b"MSCF", 0, size, 0, first, 0, 3, 1, 1, len(files), 0, 1, 0)
    return head + folder + entries + block


def test_opens_a_cabinet(run: Run, tmp_path: Path) -> None:
    files = {path.name: path.read_bytes() for path in field(tmp_path, run)}
    path = tmp_path / "bundle.cab"
    path.write_bytes(cabinet({**files, "../outside.txt": b"x", "trace.etl": bytes(3000)}))
    status, text, errors = run(lab.main, "report", str(path))
    assert (status, errors) == (0, "")
    assert "put the image in place" in text
    assert not (tmp_path.parent / "outside.txt").exists()


def test_refuses_a_cabinet_of_more_files_than_a_bundle_has(run: Run, tmp_path: Path) -> None:
    path = tmp_path / "many.cab"
    path.write_bytes(cabinet({f"{number}.txt": b"x" for number in range(101)}))
    check_refusal(run(lab.main, "report", str(path)), "the cabinet holds more than 100 files and 256 MiB, which no bundle does")


@pytest.mark.parametrize("content", [b"", b"hello\n", bytes(range(256)) * 100, b"MSCF" + bytes(100), b"{}", b"<Event"])
def test_refuses_in_one_line_what_holds_nothing(run: Run, tmp_path: Path, content: bytes) -> None:
    path = tmp_path / "thing"
    path.write_bytes(content)
    check_refusal(run(lab.main, "report", str(path), "-o", str(tmp_path / "page.html")), "thing")
    assert not (tmp_path / "page.html").exists()
    assert path.read_bytes() == content


def test_refuses_what_is_not_there(run: Run, tmp_path: Path) -> None:
    check_refusal(run(lab.main, "report", str(tmp_path)), "there is no trace text")
    check_refusal(run(lab.main, "causes", str(tmp_path / "none.jsonl")), "none.jsonl")
    (tmp_path / "some.jsonl").write_text('{"event": "x"}\n')
    check_refusal(run(lab.main, "causes", str(tmp_path / "some.jsonl")), "no scenario is in it")
    (tmp_path / "some.jsonl").write_text("hello\n")
    check_refusal(run(lab.main, "causes", str(tmp_path / "some.jsonl")), "scripts/lab causes")
    # Without the programs there is no bundle.
    bundles = tmp_path / "bundles"
    said = run(lab.main, "causes", str(tmp_path / "x.jsonl"), "--bundles", str(bundles), "--programs", str(tmp_path))
    check_refusal(said, "is missing: scripts/setup build", 1)
    assert not bundles.exists()


# What the laboratory stands in with.


def calls(*texts: str) -> list[str]:
    """What the toast controller writes into its log: of calls such as "start:4", "3", "over", "asked", "yes"."""
    events = []
    for at, each in enumerate(texts):
        if each == "asked":
            events.append({"event": "prompt-call", "method": "ShowUpdatePrompt", "texts": [_OLD, _NEW]})
        elif each == "over":
            events.append({"event": "prompt-call", "method": "NotifyComplete", "texts": []})
        elif each in ("yes", "no"):
            events.append({"event": "answer", "code": int(each == "yes")})
        elif each == "service gone":
            events.append({"event": "gone", "of": "rig"})
        else:
            events.append({"event": "prompt-call", "method": "NotifyProgress", "texts": [each]})
        events[-1].update(t=float(at), source="toast")
    return [" ".join([str(each.number), *each.texts]) for each in event_log_records(events)]


@pytest.mark.parametrize(
    ("said", "expected"),
    [
        (["asked", "yes", "start:4", "1", "2", "3", "4", "5", "over"], [_ASKED, "4", "10 4", "20 5 4"]),
        (["asked", "asked", "no"], [_ASKED, f"2 {_OLD} {_NEW}", _ASKED, "5"]),
        (["start:4", "1", "over"], ["10 4", "22 1 4"]),
        (["start:4", "1", "2", "3", "4", "over"], ["10 4", "21 4 4"]),
        (["start:0", "over"], ["10 0", "22 0 0"]),
        (["over"], ["24 0 -"]),
        (["1", "2", "over"], ["11", "23 2 -"]),
        (["asked", "service gone"], [_ASKED, f"3 {_OLD} {_NEW}"]),
        (["start:4", "1", "service gone"], ["10 4", "26 1 4"]),
    ],
)
def test_writes_the_record_as_the_toast_controller_does(said: list[str], expected: list[str]) -> None:
    assert calls(*said) == expected


def test_counts_blocks_beyond_the_block_numbers() -> None:
    numbers = [str(number % 65536) for number in range(1, 65538)]
    assert calls("start:65536", *numbers, "over")[-1] == "20 65537 65536"


def test_the_records_numbers_are_those_of_the_program() -> None:
    messages = (CHECKOUT / "toast" / "record" / "Messages.mc").read_text(encoding="utf-8")
    severities = dict(re.findall(r"^MessageId=(\d+) Severity=(\w+)", messages, re.MULTILINE))
    assert {int(number) for number, severity in severities.items() if severity == "Warning"} == {11, 22, 23, 24, 25, 26}
    assert {int(number) for number in severities} == {1, 2, 3, 4, 5, 10, 11, *range(20, 27)}
    log = event_log_xml(event_log_records([{"event": "late-control", "t": 1.0, "source": "rig"}]))
    assert records(log) == [("Service Control Manager", 7011, ("30000", "VeyraCameraDfuService"))]


def test_measures_a_scenario() -> None:
    def traced(group: str, number: int, text: str) -> dict[str, object]:
        return {"event": "trace", "group": group, "number": number, "text": text, "t": 1.0, "source": "rig", "pid": 1}

    base, update = "{D3A7CCDD-8055-340B-3A0C-14F1E4FB3339}", "{FBFBAA6B-FCBC-3745-AC1C-E104C7B6CDA1}"
    events = [
        {"event": "scenario", "name": "one", "t": 0.0, "source": "lab"},
        traced(base, 13, "A USB device interface arrived"),
        traced(update, 18, "A USB device arrived, but no camera in DFU mode is present"),
        traced(base, 12, "A camera interface arrived"),
        {"event": "judgement", "t": 2.0, "source": "lab"},
        {"event": "scenario", "name": "two", "t": 3.0, "source": "lab"},
    ]
    assert "[FDUService]A USB device arrived, but" in trace_text(events)
    (one,) = measured(events, {"one": ("no-media",)})
    assert (one.is_right, one.missed, one.wrong) == (True, [], [])
    (one,) = measured(events, {"one": ("mode",)})
    assert (one.is_right, one.missed, [each.rows for each in one.wrong]) == (False, ["mode"], [("no-media",)])
    lines = Table([one]).lines()
    assert lines[0] == "0 of 1 scenarios right: 0.0 %."
    assert lines[-1] == "| one | `mode` | `no-media` |"


def test_what_the_scenario_before_leaves_is_not_measured() -> None:
    update = "{FBFBAA6B-FCBC-3745-AC1C-E104C7B6CDA1}"

    texts = {10: "The update service is being set up", 24: "The update service is asked to stop"}

    def traced(number: int, pid: int) -> dict[str, object]:
        words = {"group": update, "number": number, "text": texts[number]}
        return {"event": "trace", "t": 1.0, "source": "rig", "pid": pid, **words}

    own = [traced(10, 2), traced(24, 2), traced(10, 3), traced(24, 3)]
    begin = {"event": "scenario", "name": "one", "t": 0.0, "source": "lab"}
    (alone,) = measured([begin, *own], {"one": ("mode",)})
    (behind,) = measured([begin, traced(24, 1), *own], {"one": ("mode",)})
    assert alone.data.count("update 24") == 2
    assert behind.data == alone.data


def test_equal_data_are_those_of_two_scenarios() -> None:
    stopped = answer(sent([*_START, *_ASK, *_DOWNLOAD, *_ASK], [_ASKED, _YES, "10 4", "22 0 4"]))

    def shown(*expected: tuple[str, ...]) -> str:
        lines = Table([Measured("one", rows_of, stopped, "the same") for rows_of in expected]).lines()
        (line,) = (each for each in lines if each.startswith("| `refused`, `block-failed`"))
        return line.split(" | ")[2]

    assert shown(("refused",), ("refused",)) == "–"
    assert shown(("refused", "block-failed")) == "–"
    assert shown(("refused", "block-failed"), ("refused", "block-failed")) == "–"
    assert shown(("refused",), ("block-failed",)) == "`block-failed`, `refused`"
    assert shown(("refused",), ("refused", "block-failed")) == "`block-failed`, `refused`"


def test_scenarios_with_equal_data_are_there_for_each_set_of_the_document() -> None:
    text = (CHECKOUT / "docs" / "causes.md").read_text(encoding="utf-8")
    table = text.partition("| set | expected rows in it |")[2].partition("\n\n")[0].splitlines()[2:]
    sets = {line.split(" | ")[0].removeprefix("| "): line.split(" | ")[2] for line in table}
    assert len(sets) > 10
    assert {rows_of: shown for rows_of, shown in sets.items() if shown.count("`") < 4} == {}


def test_a_set_needs_a_reason() -> None:
    stopped = [_ASKED, _YES, "10 4", "22 0 4"]

    def told(*rows_of: str) -> Measured:
        found = Measured("one", ("refused",), answer(sent([*_START, *_ASK, *_DOWNLOAD, *_ASK], stopped)), "")
        assert found.answer is not None and found.answer.causes
        findings = [replace(each, rows=rows_of) for each in found.answer.causes if "refused" in each.rows]
        return replace(found, answer=replace(found.answer, causes=findings))

    assert told("refused").is_right
    assert told("refused", "block-failed", "restarts-at-detach").is_right
    assert not told("refused", "block-failed", "declined").is_right
    assert Table([told("refused", "declined")]).lines()[-5].endswith("| – | – |")


def test_reasons_are_of_rows_that_are_there() -> None:
    for each, why in REASONS.items():
        assert why
        assert list(each) == sorted(set(each) & rows().keys())


def test_tells_which_bundles_tell_something_else() -> None:
    def told(name: str, *trace: str) -> Measured:
        return Measured(name, ("mode",), answer(sent([*_START, *trace], [])), " ".join(trace))

    mode, media = ["base 13", "base 12"], _PLUG
    same = replace(told("same", *mode), bundle=told("same", *mode))
    other = replace(told("other", *mode), bundle=told("other", *media))
    less = replace(told("less", *mode), bundle=replace(told("less", *mode), data="base 13"))
    empty = replace(told("empty", *mode), bundle=Measured("empty", ("mode",), None, ""))
    assert [each.is_told_by_its_bundle for each in (same, other, less, empty)] == [True, False, False, False]
    assert Table([same, other, less, empty]).lines_of_bundles(61.4) == [
        "4 bundles: 1 tell what trace and event log told, 2 are right; 61 s.",
        "other: its bundle tells `no-media`, trace and event log `mode`",
        "less: its bundle tells `mode`, trace and event log `mode`",
        "empty: its bundle tells –, trace and event log `mode`",
    ]

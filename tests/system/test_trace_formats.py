"""The texts of the trace messages: one for every message that the service sends, and what a person reads."""

import re
import tempfile
from collections.abc import Sequence
from pathlib import Path

from support import CHECKOUT, TRACE_FORMATS
from veyra_lab.wire.trace_formats import SCOPE_TRACES, SERVICE_BASE_TRACES, UPDATE_SERVICE_TRACES, TraceFormats

FORMATS = TraceFormats(TRACE_FORMATS)
_LAUNCH_TRACES = "{1FC2A5F0-3B7D-4E0C-9A54-6D0B8EC14793}"
_SINK_TRACES = "{86E9D1B4-5F2A-4C37-B81E-20A7934DF65C}"

# TraceProvider's own emitter of scopes names no level at the call.
_SCOPE_MESSAGE = (SCOPE_TRACES.strip("{}").lower(), 12, 4)


def narrow(text: str) -> str:
    """A narrow text with its terminator, as the transcript has it."""
    return (text.encode("latin-1") + b"\0").hex()


def wide(text: str) -> str:
    """A wide text with its terminator."""
    return (text + "\0").encode("utf-16-le").hex()


def number(value: int, size: int = 4) -> str:
    """An integer of so many bytes."""
    return value.to_bytes(size, "little").hex()


# Each message, arguments as the service sends them, and the words.
_SAMPLES: list[tuple[str, int, Sequence[str], str]] = [
    (SERVICE_BASE_TRACES, 10, [], "Starting failed with an error code: the service stops again"),
    (SERVICE_BASE_TRACES, 11, [], "Starting failed: the service stops again"),
    (SERVICE_BASE_TRACES, 12, [], "A camera interface arrived"),
    (SERVICE_BASE_TRACES, 13, [b"Ge".hex(), narrow("{")], "A USB device interface arrived"),
    (SERVICE_BASE_TRACES, 14, [number(1450)], "Stopping failed with error 1450: the service goes on"),
    (SERVICE_BASE_TRACES, 15, [number(5)], "Pausing failed with error 5: the service goes on"),
    (SERVICE_BASE_TRACES, 16, [number(6)], "Continuing failed with error 6: the service stays paused"),
    (SERVICE_BASE_TRACES, 17, [number(0xFFFFFFFF)], "Shutting down failed with error 4294967295"),
    (UPDATE_SERVICE_TRACES, 10, [], "The update service is being set up"),
    (
        UPDATE_SERVICE_TRACES,
        11,
        [number(0x80010119)],
        "COM security could not be set up (0x80010119): nobody will be asked",
    ),
    (
        UPDATE_SERVICE_TRACES,
        12,
        [number(0x80070005)],
        "The toast controller could not be registered (0x80070005): nobody will be asked",
    ),
    (UPDATE_SERVICE_TRACES, 18, [], "A USB device arrived, but no camera in DFU mode is present"),
    (UPDATE_SERVICE_TRACES, 19, [], "A camera in DFU mode is present"),
    (UPDATE_SERVICE_TRACES, 20, [], "The camera in DFU mode could not be opened"),
    (UPDATE_SERVICE_TRACES, 21, [], "The camera in DFU mode has no control endpoint"),
    (UPDATE_SERVICE_TRACES, 22, [], "The camera's firmware version is unknown"),
    (UPDATE_SERVICE_TRACES, 23, [narrow("5.10.2.0")], "The camera's firmware version is 5.10.2.0"),
    (UPDATE_SERVICE_TRACES, 24, [], "The update service is asked to stop"),
    (UPDATE_SERVICE_TRACES, 25, [], "The firmware image could not be opened"),
    (UPDATE_SERVICE_TRACES, 26, [], "The firmware image is too short to hold a version"),
    (UPDATE_SERVICE_TRACES, 27, [narrow("5.10.3.0")], "The firmware image's version is 5.10.3.0"),
    (
        SCOPE_TRACES,
        12,
        [narrow("==>"), narrow("Unknown"), narrow("FDUService::OnStart"), narrow(" ")],
        "==> FDUService::OnStart",
    ),
    (
        _LAUNCH_TRACES,
        10,
        [number(2)],
        "The toast controller could not be started for its registration (error 2)",
    ),
    (_SINK_TRACES, 10, [number(4711)], "The service listens for the user's answer (cookie 4711)"),
    (_SINK_TRACES, 11, [number(0x80004005)], "The service cannot listen for the user's answer (0x80004005)"),
]


def emitted_messages() -> set[tuple[str, int, int]]:
    """Group, number and level of each message that the sources of the service emit."""
    groups = {
        match[1]: "-".join((match[2], match[3], match[4], match[5] + match[6], "".join(match.groups()[6:])))
        for match in re.finditer(
            r"GUID (k\w+)\{\s*0x(\w{8}), 0x(\w{4}), 0x(\w{4}), \{" + r"0x(\w\w), " * 7 + r"0x(\w\w)\}",
            (CHECKOUT / "src/diagnostics/TraceMessageGroups.h").read_text(encoding="utf-8"),
        )
    }
    provider = (CHECKOUT / "src/diagnostics/TraceProvider.h").read_text(encoding="utf-8")
    levels = dict(re.findall(r"^    (\w+) = (\d+),", provider, re.MULTILINE))
    messages = {_SCOPE_MESSAGE}
    for path in (CHECKOUT / "src").rglob("*.cpp"):
        source = path.read_text(encoding="utf-8")
        numbers = dict(re.findall(r"\b(k\w+) = (\d+)", source))
        for call in re.finditer(r"TraceProvider::Emit\w*\(\s*([^;]*?)\)?;", source):
            if path.parent.name == "diagnostics":
                continue
            # A call in another form fails here: it is to be read by this test too.
            parts = re.match(r"TraceLevel::(\w+),\s+(k\w+),\s+(k\w+)", call[1])
            if parts is None:
                raise AssertionError(f"{path.name}: cannot read {call[0]}")
            messages.add((groups[parts[2]].lower(), int(numbers[parts[3]]), int(levels[parts[1]])))
    return messages


def test_every_emitter_of_the_sources_has_a_text_at_its_level_and_every_text_an_emitter() -> None:
    described = set()
    for group, index in FORMATS:
        message = FORMATS.message(group, index)
        assert message is not None
        assert message.flags == 1, (group, index)
        described.add((group, index, message.level))
    assert described == emitted_messages()


def test_every_message_reads_as_a_sentence() -> None:
    assert [FORMATS.text(group, index, arguments) for group, index, arguments, _ in _SAMPLES] == [
        words for _, _, _, words in _SAMPLES
    ]
    sampled = {(group.strip("{}").lower(), index) for group, index, _, _ in _SAMPLES}
    assert sampled == set(FORMATS)


def test_an_unknown_number_or_group_has_no_text() -> None:
    assert FORMATS.text(UPDATE_SERVICE_TRACES, 17, []) is None
    assert FORMATS.text("{00000000-0000-0000-0000-000000000000}", 10, []) is None


def test_the_group_is_known_in_any_case_and_without_braces() -> None:
    for group in (SERVICE_BASE_TRACES, SERVICE_BASE_TRACES.lower(), SERVICE_BASE_TRACES.strip("{}")):
        assert FORMATS.text(group, 12, []) == "A camera interface arrived"


def test_a_missing_argument_is_named() -> None:
    text = FORMATS.text(UPDATE_SERVICE_TRACES, 23, [])
    assert text == "The camera's firmware version is (missing)"


def test_a_truncated_argument_is_named() -> None:
    text = FORMATS.text(SERVICE_BASE_TRACES, 14, [number(1450)[:6]])
    assert text == "Stopping failed with error (truncated): the service goes on"


def read(kind: str, place: str, argument: str) -> str | None:
    """What one argument of a type looks like in a message's words: those of a message that is it and nothing else."""
    group = "00112233-4455-6677-8899-aabbccddeeff"
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "one.tmf").write_text(
            f'{group} One // SRC=One.cpp MJ= MN=\n#typev One_10 10 "%0{place}" // LEVEL=4 FLAGS=1\n'
            f"{{\nValue, {kind} -- 10\n}}\n",
            encoding="utf-8",
        )
        return TraceFormats(Path(folder)).text(group, 10, [argument])


def test_narrow_texts_end_at_their_terminator() -> None:
    assert read("ItemString", "%10!s!", narrow("5.10") + "41") == "5.10"
    assert read("ItemString", "%10!s!", b"cut".hex()) == "cut"


def test_wide_texts_end_at_their_terminator() -> None:
    assert read("ItemWString", "%10!s!", wide("Caméra") + "4100") == "Caméra"
    assert read("ItemWString", "%10!s!", "410042") == "A\ufffd"


def test_integers_are_decimal_or_hexadecimal_as_the_text_asks() -> None:
    assert read("ItemLong", "%10!d!", number(0xFFFFFFFE)) == "-2"
    assert read("ItemULong", "%10!u!", number(0xFFFFFFFE)) == "4294967294"
    assert read("ItemULongX", "#%10!08x!", number(0xABC)) == "#00000abc"
    assert read("ItemShort", "%10!d!", number(0xFFFF, 2)) == "-1"
    assert read("ItemULongLong", "%10!u!", number(1 << 40, 8)) == "1099511627776"
    assert read("ItemULongLongX", "%10!X!", number(0xABC, 8)) == "ABC"


def test_statuses_are_hexadecimal_and_errors_decimal() -> None:
    assert read("ItemHRESULT", "%10!s!", number(0x80070005)) == "0x80070005"
    assert read("ItemNTSTATUS", "%10!s!", number(0xC0000001)) == "0xc0000001"
    assert read("ItemWINERROR", "%10!s!", number(1053)) == "1053"


def test_an_unknown_type_is_shown_in_bytes() -> None:
    assert read("ItemRevolution", "%10!s!", "0102ff") == "0102ff"

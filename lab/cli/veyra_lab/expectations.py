"""What has to hold after a run, each expectation with a name of its own."""

from collections.abc import Callable, Iterator
from dataclasses import dataclass, replace

from .peer import Event
from .record import Record
from .scenario import PROBE_SIZE, SERVICE_CONTROLLED, UNKNOWN_VERSION, Foreseen
from .stage import EXECUTABLE, SERVICE
from .trace_formats import SERVICE_BASE_TRACES, UPDATE_SERVICE_TRACES

_STOP_LIMIT_SECONDS = 2.0
_MONITORED = "VeyraCameraDFU"
# A block's number has 16 bits; the service's progress is that number, so it begins again too.
_BLOCK_NUMBERS = 65536


@dataclass(frozen=True)
class Expectation:
    """A check that says in words what is wrong; no words mean that it holds. It concerns only some outcomes."""

    name: str
    check: Callable[[Record], str]
    concerns: frozenset[Foreseen]


@dataclass(frozen=True)
class Verdict:
    """An expectation that was looked at."""

    name: str
    complaint: str

    @property
    def held(self) -> bool:
        return not self.complaint


EXPECTATIONS: list[Expectation] = []

_ASKED = (Foreseen.UPDATED, Foreseen.DECLINED, Foreseen.PROBE_REFUSED, Foreseen.BROKEN_OFF)
_ACCEPTED = (Foreseen.UPDATED, Foreseen.PROBE_REFUSED, Foreseen.BROKEN_OFF)
_LEFT_ALONE = (Foreseen.DECLINED, Foreseen.NOT_ASKED)


def _expect(
    name: str, *concerns: Foreseen
) -> Callable[[Callable[[Record], str]], Callable[[Record], str]]:
    """Makes a function an expectation, about every outcome unless some are named."""

    def add(check: Callable[[Record], str]) -> Callable[[Record], str]:
        EXPECTATIONS.append(Expectation(name, check, frozenset(concerns or Foreseen)))
        return check

    return add


def judge(record: Record) -> list[Verdict]:
    """Every expectation that concerns this run. After a road that broke off there is only that to say."""
    if record.broken_off:
        return [Verdict("the road is gone to its end", record.broken_off)]
    return [
        Verdict(expectation.name, expectation.check(record))
        for expectation in EXPECTATIONS
        if record.scenario.foreseen in expectation.concerns
    ]


def _differ(what: str, wanted: object, seen: object) -> str:
    return "" if wanted == seen else f"{what}: {wanted} was expected, {seen} was seen"


# The service and its control manager.


@_expect("installing says so in one line")
def _install_text(record: Record) -> str:
    return _differ("text", f"{SERVICE} is installed.\n", record.install_text)


@_expect("the service is configured as its own process, on demand, for LocalService")
def _configuration(record: Record) -> str:
    wanted = {
        "Type": ("REG_DWORD", "0x10"),
        "Start": ("REG_DWORD", "0x3"),
        "ErrorControl": ("REG_DWORD", "0x1"),
        "DisplayName": ("REG_SZ", "Veyra Camera DFU service"),
        "ObjectName": ("REG_SZ", r"NT AUTHORITY\LocalService"),
    }
    seen = {name: record.service_key.get(name) for name in wanted}
    _, path = record.service_key.get("ImagePath", ("", ""))
    return _differ("settings", wanted, seen) or _differ("unquoted path", EXECUTABLE.lower(), path.lower())


@_expect("the service reports its states with rising check points")
def _status_words(record: Record) -> str:
    wanted = [
        [0x10, 2, 5, 0, 0, 1, 0],
        [0x10, 4, 5, 0, 0, 0, 0],
        [0x10, 3, 5, 0, 0, 2, 0],
        [0x10, 1, 5, 0, 0, 0, 0],
    ]
    return _differ("status words", wanted, [event["words"] for event in record.of_service("service-status")])


@_expect("the event log has the notice of the start")
def _start_notice(record: Record) -> str:
    wanted = [(4, 0, 0, [SERVICE, "KV400CameraService::OnStart Enter"])]
    seen = [
        (event["type"], event["category"], event["id"], event["strings"]) for event in record.of_service("event-log")
    ]
    return _differ("entries (type, category, id, texts)", wanted, seen)


@_expect("the service asks for the events of every interface class")
def _notification(record: Record) -> str:
    seen = [
        (event["size"], event["device_type"], event["class"].upper(), event["flags"])
        for event in record.of_service("notification-registered")
    ]
    return _differ("registration", [(32, 5, "{00000000-0000-0000-0000-000000000000}", 5)], seen)


@_expect("every control is handled with result 0")
def _control_results(record: Record) -> str:
    return _differ("other results", [], [event for event in record.of_service("handled") if event["result"] != 0])


# The question and its answer.


@_expect("the user is asked once, with the camera's version and the image's", *_ASKED)
def _asked_once(record: Record) -> str:
    wanted = [[record.scenario.camera_version, record.scenario.image_version]]
    return _differ("questions", wanted, [event["texts"] for event in record.prompt_calls("ShowUpdatePrompt")])


@_expect("nobody is asked", Foreseen.NOT_ASKED)
def _not_asked(record: Record) -> str:
    return _differ("questions", [], [event["texts"] for event in record.prompt_calls("ShowUpdatePrompt")])


@_expect("nothing is done to the camera before the answer", *_ASKED)
def _nothing_before_the_answer(record: Record) -> str:
    early = replace(record, events=record.events[: record.answered_at])
    return _differ("early commands and transfers", [], early.commands_to_dfu_mode() + early.transfers())


@_expect("the answer reaches the service", *_ASKED)
def _answer_arrives(record: Record) -> str:
    wanted = [(1 if record.scenario.accept else 0, 1)]
    seen = [(event["code"], event["sinks"]) for event in record.events if event["event"] == "answer"]
    return _differ("answers (code, listeners)", wanted, seen)


@_expect("the camera is left alone", *_LEFT_ALONE)
def _left_alone(record: Record) -> str:
    touched = record.commands_to_dfu_mode() + record.transfers()
    return (
        _differ("commands and transfers", [], touched)
        or _differ("progress", [], record.prompt_calls("NotifyProgress"))
        or _differ("ends of a download", [], record.prompt_calls("NotifyComplete"))
        or _differ("camera before and after", record.before, record.after)
    )


# The download.


@_expect("the camera is sent into DFU mode by one command", *_ACCEPTED)
def _dfu_mode_command(record: Record) -> str:
    wanted = [(20, [1, 0, 0, 0])]
    seen = [(event["length"], event["parameters"]) for event in record.commands_to_dfu_mode()]
    return _differ("commands (length field, parameters)", wanted, seen)


@_expect("the transfers come in the order of the download", Foreseen.UPDATED, Foreseen.PROBE_REFUSED)
def _transfer_order(record: Record) -> str:
    wanted = list(_setups(record))
    seen = [_setup_bytes(event) for event in record.transfers()]
    for position, (one, other) in enumerate(zip(wanted, seen)):
        if one != other:
            return f"transfer {position}: {one.hex(' ')} was expected, {other.hex(' ')} was seen"
    return _differ("number of transfers", len(wanted), len(seen))


@_expect("every transfer succeeds", Foreseen.UPDATED, Foreseen.PROBE_REFUSED)
def _transfers_succeed(record: Record) -> str:
    # The device resets over the last GETSTATUS, so that one may fail.
    needed = record.transfers()[:-1] if record.scenario.foreseen is Foreseen.UPDATED else record.transfers()
    return _differ("failed transfers", [], [event for event in needed if not event["ok"]])


@_expect("the number of transfers is that of the blocks", Foreseen.UPDATED)
def _transfer_count(record: Record) -> str:
    wanted = 2 * record.scenario.blocks + 7 + _extra_polls(record)
    return _differ("transfers", wanted, len(record.transfers()))


@_expect("the progress is told block by block", Foreseen.UPDATED)
def _progress(record: Record) -> str:
    wanted = [f"start:{record.scenario.announced_blocks}"]
    wanted += [str(block % _BLOCK_NUMBERS) for block in range(1, record.scenario.blocks + 1)]
    seen = [event["texts"][0] for event in record.prompt_calls("NotifyProgress")]
    if wanted == seen:
        return ""
    for position, (one, other) in enumerate(zip(wanted, seen)):
        if one != other:
            return f"value {position}: {one} was expected, {other} was seen"
    return _differ("number of values", len(wanted), len(seen))


@_expect("only the number of blocks is told", Foreseen.PROBE_REFUSED)
def _no_progress(record: Record) -> str:
    wanted = [[f"start:{record.scenario.announced_blocks}"]]
    return _differ("progress", wanted, [event["texts"] for event in record.prompt_calls("NotifyProgress")])


@_expect("the end of the download is told once", *_ACCEPTED)
def _completion(record: Record) -> str:
    return _differ("calls", 1, len(record.prompt_calls("NotifyComplete")))


@_expect("the flash equals the image byte for byte", Foreseen.UPDATED)
def _flash(record: Record) -> str:
    image, flash = record.scenario.image, record.flash
    if flash == image:
        return ""
    for offset, (wanted, seen) in enumerate(zip(image, flash)):
        if wanted != seen:
            return f"byte {offset} is {seen:#04x} instead of {wanted:#04x}"
    return f"the flash has {len(flash)} bytes, the image {len(image)}"


@_expect("no block is lost and the camera runs the image's version", Foreseen.UPDATED)
def _new_firmware(record: Record) -> str:
    after = record.after
    assert after is not None
    wanted = ("running", record.scenario.image_version, 0)
    return _differ("mode, version, gaps", wanted, (after.mode, after.version, after.block_number_gaps))


@_expect("the camera keeps its firmware", Foreseen.PROBE_REFUSED)
def _old_firmware(record: Record) -> str:
    assert record.after is not None
    return _differ("version", record.scenario.camera_version, record.after.version)


# The trace.


@_expect("the trace tells the road", Foreseen.UPDATED, Foreseen.DECLINED, Foreseen.NOT_ASKED, Foreseen.PROBE_REFUSED)
def _trace_order(record: Record) -> str:
    letters = {SERVICE_BASE_TRACES: "base", UPDATE_SERVICE_TRACES: "update"}
    seen = [
        f"{letters[event['group']]} {event['number']}"
        for event in record.of_service("trace")
        if event["group"] in letters
    ]
    return _differ("messages", list(_messages(record)), seen)


@_expect("every trace message has its words")
def _trace_texts(record: Record) -> str:
    return _differ("without", [], [event for event in record.of_service("trace") if event["text"] is None])


# The end.


@_expect("the uninstall monitor acts only once the driver is gone")
def _monitor_waits(record: Record) -> str:
    early = replace(record, events=record.events[: record.driver_removed_at])
    return _differ("early commands", [], list(early.of_service("command-run")))


@_expect("the uninstall monitor stops and deletes the service it knows")
def _monitor_commands(record: Record) -> str:
    assert record.after is not None
    seen = {event["command"] for event in record.of_service("command-run")}
    # A camera in DFU mode has no camera interface whose removal the monitor could learn of.
    wanted = {f"sc stop {_MONITORED}", f"sc delete {_MONITORED}"} if record.after.mode == "running" else set()
    return _differ("commands", sorted(wanted), sorted(seen))


@_expect("the service stops within two seconds and its process ends")
def _stop_time(record: Record) -> str:
    if record.stop_seconds is None or record.stop_seconds > _STOP_LIMIT_SECONDS:
        return f"it took {record.stop_seconds} s"
    return "" if record.process_left else "the process is still there"


@_expect("removing says so in one line, and the service is gone")
def _remove_text(record: Record) -> str:
    return _differ("text", f"{SERVICE} is removed.\n", record.remove_text) or _differ(
        "state", None, record.state_after_removal
    )


@_expect("no process crashed")
def _no_crash(record: Record) -> str:
    return _differ("crashes", [], record.crashes)


# What a download looks like on the bus, by the USB DFU 1.1 standard's requests.


def _setup(request_type: int, request: int, value: int, length: int) -> bytes:
    interface = 0
    return bytes([request_type, request]) + b"".join(
        number.to_bytes(2, "little") for number in (value, interface, length)
    )


def _setup_bytes(transfer: Event) -> bytes:
    return bytes.fromhex(transfer["setup"])


_GETSTATE = _setup(0xA1, 5, 0, 1)
_DETACH = _setup(0x21, 0, 1000, 0)
_PROBE = _setup(0xA1, 2, 0, PROBE_SIZE)
_GETSTATUS = _setup(0xA1, 3, 0, 6)


def _download(block: int, length: int) -> bytes:
    return _setup(0x21, 1, block % _BLOCK_NUMBERS, length)


def _extra_polls(record: Record) -> int:
    """GETSTATUS requests beyond the two that a camera needs which finishes at once."""
    polls = 0
    for transfer in reversed(record.transfers()):
        if _setup_bytes(transfer) != _GETSTATUS:
            break
        polls += 1
    return max(0, polls - 2)


def _setups(record: Record) -> Iterator[bytes]:
    yield from (_GETSTATE, _DETACH, _GETSTATE)
    if record.scenario.foreseen is Foreseen.PROBE_REFUSED:
        return
    yield _PROBE
    remaining = len(record.scenario.image)
    for block in range(record.scenario.blocks):
        length = min(remaining, record.scenario.transfer_size)
        remaining -= length
        yield _download(block, length)
        yield _GETSTATUS
    yield _download(record.scenario.blocks, 0)
    yield from [_GETSTATUS] * (2 + _extra_polls(record))


# What the service says of the road in its trace.


def _messages(record: Record) -> Iterator[str]:
    scenario = record.scenario
    yield "update 10"
    yield from _messages_of_plugging(scenario.update_mode, scenario.camera_version)
    if scenario.foreseen in _ACCEPTED:
        yield from ("base 13", "update 19")
    if scenario.foreseen is Foreseen.UPDATED:
        yield from _messages_of_plugging(scenario.update_mode, scenario.image_version)
    yield "update 24"


def _messages_of_plugging(update_mode: str | None, version: str) -> Iterator[str]:
    if update_mode != SERVICE_CONTROLLED:
        yield from ("base 13", "base 12", "base 12")
        return
    yield from ("base 13", "update 18")
    yield "base 12"
    yield from ("update 22",) if version == UNKNOWN_VERSION else ("update 23", "update 27")
    yield "base 12"

"""What has to hold of the service: installed, started, watched, stopped and removed."""

from dataclasses import replace

from ..windows.installation import EXECUTABLE
from ..windows.programs import SERVICE
from ..windows.service_under_test import STOP_LIMIT_SECONDS
from .expectation import Expectations, differ
from .record import Record

_MONITORED = "VeyraCameraDFU"
EXPECTATIONS = Expectations()


@EXPECTATIONS.expect("installing says so in one line")
def _install_text(record: Record) -> str:
    return differ("text", f"{SERVICE} is installed.\n", record.install_text)


@EXPECTATIONS.expect("the service is configured as its own process, on demand, for LocalService")
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
    return differ("settings", wanted, seen) or differ("unquoted path", EXECUTABLE.lower(), path.lower())


@EXPECTATIONS.expect("the service reports its states with rising check points")
def _status_words(record: Record) -> str:
    wanted = [
        [0x10, 2, 5, 0, 0, 1, 0],
        [0x10, 4, 5, 0, 0, 0, 0],
        [0x10, 3, 5, 0, 0, 2, 0],
        [0x10, 1, 5, 0, 0, 0, 0],
    ]
    return differ("status words", wanted, [event["words"] for event in record.of_service("service-status")])


@EXPECTATIONS.expect("the event log has the notice of the start")
def _start_notice(record: Record) -> str:
    wanted = [(4, 0, 0, [SERVICE, "KV400CameraService::OnStart Enter"])]
    seen = [
        (event["type"], event["category"], event["id"], event["strings"]) for event in record.of_service("event-log")
    ]
    return differ("entries (type, category, id, texts)", wanted, seen)


@EXPECTATIONS.expect("the service asks for the events of every interface class")
def _notification(record: Record) -> str:
    seen = [
        (event["size"], event["device_type"], event["class"].upper(), event["flags"])
        for event in record.of_service("notification-registered")
    ]
    return differ("registration", [(32, 5, "{00000000-0000-0000-0000-000000000000}", 5)], seen)


@EXPECTATIONS.expect("every control is handled with result 0")
def _control_results(record: Record) -> str:
    return differ("other results", [], [event for event in record.of_service("handled") if event["result"] != 0])


@EXPECTATIONS.expect("the uninstall monitor acts only once the driver is gone")
def _monitor_waits(record: Record) -> str:
    early = replace(record, events=record.events[: record.driver_removed_at])
    return differ("early commands", [], list(early.of_service("command-run")))


@EXPECTATIONS.expect("the uninstall monitor stops and deletes the service it knows")
def _monitor_commands(record: Record) -> str:
    assert record.after is not None
    seen = {event["command"] for event in record.of_service("command-run")}
    # A camera in DFU mode has no camera interface whose removal the monitor could learn of.
    wanted = {f"sc stop {_MONITORED}", f"sc delete {_MONITORED}"} if record.after.mode == "running" else set()
    return differ("commands", sorted(wanted), sorted(seen))


@EXPECTATIONS.expect("the service stops within two seconds and its process ends")
def _stop_time(record: Record) -> str:
    if record.stop_seconds is None or record.stop_seconds > STOP_LIMIT_SECONDS:
        return f"it took {record.stop_seconds} s"
    return "" if record.process_left else "the process is still there"


@EXPECTATIONS.expect("removing says so in one line, and the service is gone")
def _remove_text(record: Record) -> str:
    return differ("text", f"{SERVICE} is removed.\n", record.remove_text) or differ(
        "state", None, record.state_after_removal
    )


@EXPECTATIONS.expect("no process crashed")
def _no_crash(record: Record) -> str:
    return differ("crashes", [], record.crashes)


@EXPECTATIONS.expect("every contract of Windows is kept")
def _contracts(record: Record) -> str:
    return "; ".join(record.breaches)

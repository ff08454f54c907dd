"""The executable's command line and the service's start and stop, step by step."""

import os
import re
import signal
from collections.abc import Iterator
from concurrent.futures import ThreadPoolExecutor, TimeoutError

import pytest
from support import BUILD, STOPPED, Bench, Shared
from veyra_lab.windows.installation import EXECUTABLE
from veyra_lab.windows.machine import SERVICES_KEY, windows_path
from veyra_lab.windows.programs import SERVICE
from veyra_lab.wire.events import RIG, TOAST

# One installation sees all of them.
SHARED = Bench

STOP = 1  # the control
# The end of the connection to the toast controller is given up after two seconds; the rest is quick, on a busy machine, too.
END_LIMIT_SECONDS = 5.0
INSTALLED = f"{SERVICE} is installed.\n"
REMOVED = f"{SERVICE} is removed.\n"
USAGE = "Parameters:\n -install  to install the service.\n -remove   to remove the service.\n"


@pytest.fixture
def on(shared: Shared[Bench]) -> Iterator[Bench]:
    """A machine in which the service is not installed."""
    the_bench = shared.get()
    yield the_bench
    the_bench.clear()


def said(on: Bench, *arguments: str) -> str:
    """What the executable says; it always succeeds."""
    outcome = on.machine.run(EXECUTABLE, *arguments)
    assert outcome.status == 0
    return outcome.text


def start(on: Bench) -> int:
    """Installs the service and starts it; its process id."""
    assert said(on, "-install") == INSTALLED
    return on.start_service()


def check_stop(on: Bench, process: int) -> None:
    """Stops the service: within two seconds, with its process gone soon after its report and nothing crashed."""
    since = on.peer.mark()
    on.machine.run("sc", "stop", SERVICE)
    asked = on.peer.follow(
        lambda event: event["event"] == "control" and event["control"] == STOP, "the control", since=since, quiet=20
    )
    stopped = on.wait_for_state(STOPPED, since)
    assert stopped["t"] - asked["t"] < 2.0
    gone = on.peer.follow(
        lambda event: event["event"] == "gone" and event["pid"] == process, "its end", since=since, quiet=20
    )
    assert gone["t"] - stopped["t"] < END_LIMIT_SECONDS
    assert on.machine.service_state(SERVICE) == "STOPPED"
    assert on.machine.crashes() == []


def check_removal(text: str, dots: int) -> None:
    """The service was stopped before it was removed, with so many dots or more for the wait."""
    stopping = rf"Stopping {SERVICE}\.{{{dots},}}\n"
    assert re.fullmatch(rf"{stopping}{SERVICE} is stopped\.\n{re.escape(REMOVED)}", text), text


def test_installs_its_service_once(on: Bench) -> None:
    assert said(on, "-install") == INSTALLED
    values = on.machine.registry_values(rf"{SERVICES_KEY}\{SERVICE}") or {}
    assert values.pop("ImagePath")[1].lower() == EXECUTABLE.lower()
    wanted = {
        "Type": ("REG_DWORD", "0x10"),
        "Start": ("REG_DWORD", "0x3"),
        "ErrorControl": ("REG_DWORD", "0x1"),
        "DisplayName": ("REG_SZ", "Veyra Camera DFU service"),
        "ObjectName": ("REG_SZ", r"NT AUTHORITY\LocalService"),
    }
    assert {name: values.get(name) for name in wanted} == wanted
    assert on.machine.service_state(SERVICE) == "STOPPED"
    assert said(on, "-install") == "CreateService failed w/err 0x00000431\n"


def test_takes_its_switches_in_any_case_and_with_a_slash(on: Bench) -> None:
    assert said(on, "/INSTALL") == INSTALLED
    assert said(on, "-Remove") == REMOVED
    assert on.machine.wait_for_service_state(SERVICE, None, seconds=20) is None


def test_says_why_it_cannot_remove_what_is_not_there(on: Bench) -> None:
    assert said(on, "-remove") == "OpenService failed w/err 0x00000424\n"


def test_goes_on_waiting_for_a_service_that_stays_in_stop_pending(on: Bench) -> None:
    stubborn = windows_path(BUILD / "tests" / "system" / "stubborn_service.exe")
    with ThreadPoolExecutor() as beside:
        on.machine.demand("sc", "create", SERVICE, "binPath=", stubborn)
        on.machine.demand("sc", "start", SERVICE)
        removal = beside.submit(said, on, "-remove")
        assert on.machine.wait_for_service_state(SERVICE, "STOP_PENDING", seconds=20) == "STOP_PENDING"
        # What is tested is that it waits, for longer than its own polls are apart.
        with pytest.raises(TimeoutError):
            removal.result(timeout=6)
        assert on.machine.service_state(SERVICE) == "STOP_PENDING"
        on.machine.demand(stubborn, "release")
        check_removal(removal.result(timeout=30), dots=4)


def test_says_nothing_to_a_switch_that_it_does_not_know(on: Bench) -> None:
    assert said(on, "-foo") == ""


def test_says_that_it_is_a_service_when_started_by_hand(on: Bench) -> None:
    assert said(on) == USAGE + "Service failed to run w/err 0x00000427\n"


def test_stops_while_the_user_is_being_asked(on: Bench) -> None:
    since = on.peer.mark()
    process = start(on)
    on.peer.command(RIG, "plug", camera=0)
    on.peer.follow(lambda event: event["event"] == "prompt-call", "the question", since=since, quiet=20)
    on.peer.command(RIG, "settle")
    check_stop(on, process)


@pytest.mark.parametrize("switch", ["-install", "-remove"])
def test_does_not_wait_for_a_toast_controller_that_hangs_at_the_end(on: Bench, switch: str) -> None:
    said(on, "-install")
    if switch == "-install":
        said(on, "-remove")
        assert on.machine.wait_for_service_state(SERVICE, None, seconds=20) is None
    since = on.peer.mark()
    on.peer.command(TOAST, "hang", method="Unadvise")
    try:
        assert said(on, switch) in (INSTALLED, REMOVED)
        unadvised = on.peer.follow(lambda event: event["event"] == "unadvised", "the call", since=since, quiet=20)
        gone = on.peer.follow(
            lambda event: event["event"] == "gone" and event["of"] == RIG and event["t"] > unadvised["t"],
            "the end of the program",
            since=since,
            quiet=20,
        )
        assert 1.9 < gone["t"] - unadvised["t"] < END_LIMIT_SECONDS
        assert on.machine.crashes() == []
    finally:
        on.peer.command(TOAST, "release")


def test_does_not_wait_for_a_toast_controller_that_answers_nothing_any_more(on: Bench) -> None:
    process = start(on)
    (controller,) = on.machine.processes("VeyraCameraToastCntl.exe")
    os.kill(controller, signal.SIGSTOP)
    try:
        check_stop(on, process)
    finally:
        os.kill(controller, signal.SIGCONT)
        # What it still had to answer is nobody else's.
        assert on.peer.dismiss(TOAST, seconds=20)


def test_stops_while_it_has_nothing_to_do_starts_again_and_stops_when_it_is_removed(on: Bench) -> None:
    check_stop(on, start(on))
    on.start_service()
    check_removal(said(on, "-remove"), dots=1)
    assert on.machine.wait_for_service_state(SERVICE, None, seconds=20) is None

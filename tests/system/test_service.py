"""The executable's command line and the service's start and stop, step by step."""

import os
import re
import shutil
import signal
from collections.abc import Callable, Iterator
from concurrent.futures import ThreadPoolExecutor, TimeoutError
from contextlib import contextmanager

import pytest
from support import BUILD, Bench, Shared, slow
from veyra_lab.windows.installation import EXECUTABLE, SERVICE_CONTROLLED
from veyra_lab.windows.machine import SERVICES_KEY, windows_path
from veyra_lab.windows.programs import SERVICE
from veyra_lab.wire.events import RIG, SENSOR_CLASS, STOPPED, TOAST

# One installation sees all of them.
SHARED = Bench

STOP = 1  # the control
MONITORED = "VeyraCameraDFU"
REMOVAL = 0x8004
ANY_CAMERA = r"\\?\usb#vid_2f1a&pid_7e00&mi_00#1#{24e552d7-6523-47f7-a647-d3465bf1f5ca}\global"
STUBBORN = windows_path(BUILD / "tests" / "system" / "stubborn_service.exe")
SERVICE_HOLDER = windows_path(BUILD / "tests" / "system" / "service_holder.exe")
SERVICE_END = windows_path(BUILD / "tests" / "system" / "service_end.exe")
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
    """Stops the service: within two seconds, with its process gone soon after its report, exit code 0, and nothing
    crashed."""
    since = on.peer.mark()
    assert on.machine.run(SERVICE_END, SERVICE).status == 0
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


@contextmanager
def stubborn_service(on: Bench) -> Iterator[None]:
    """A service of the product's name that stays in STOP_PENDING until it is released."""
    on.machine.demand("sc", "create", SERVICE, "binPath=", STUBBORN)
    on.machine.demand("sc", "start", SERVICE)
    try:
        yield
    finally:
        on.machine.run(STUBBORN, "release")


def test_says_why_it_cannot_remove_what_is_not_there(on: Bench) -> None:
    assert said(on, "-remove") == "OpenService failed w/err 0x00000424\n"


def test_goes_on_waiting_for_a_service_that_stays_in_stop_pending(on: Bench) -> None:
    with stubborn_service(on), ThreadPoolExecutor() as beside:
        removal = beside.submit(said, on, "-remove")
        assert on.machine.wait_for_service_state(SERVICE, "STOP_PENDING", seconds=20) == "STOP_PENDING"
        # What is tested is that it waits, for longer than its own polls are apart.
        with pytest.raises(TimeoutError):
            removal.result(timeout=6)
        assert on.machine.service_state(SERVICE) == "STOP_PENDING"
        on.machine.demand(STUBBORN, "release")
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


def hangs(on: Bench) -> None:
    """The call that ends the connection never returns; the controller goes on otherwise."""
    del on


def dies(on: Bench) -> None:
    """Its process is gone, as after a crash."""
    since = on.peer.mark()
    on.peer.command(TOAST, "die")
    on.peer.follow(lambda event: event["event"] == "gone" and event["of"] == TOAST, "its end", since=since, quiet=20)


def falls_silent(on: Bench) -> None:
    """Its process stands still: it answers nothing any more."""
    (controller,) = on.machine.processes("VeyraCameraToastCntl.exe")
    os.kill(controller, signal.SIGSTOP)


def wake_the_controller(on: Bench) -> None:
    """Puts an end to what befell it. What it still has to answer is nobody else's: it goes, if it is there."""
    for controller in on.machine.processes("VeyraCameraToastCntl.exe"):
        os.kill(controller, signal.SIGCONT)
    assert on.peer.dismiss(TOAST, seconds=20)


def remove_and_be_sure(on: Bench) -> None:
    """Removes the service that is installed."""
    assert said(on, "-remove") == REMOVED
    assert on.machine.wait_for_service_state(SERVICE, None, seconds=20) is None


@pytest.mark.parametrize("befalls", [hangs, pytest.param(dies, marks=slow), pytest.param(falls_silent, marks=slow)])
@pytest.mark.parametrize("program", ["-install", pytest.param("-remove", marks=slow), "the service"])
def test_gives_up_a_toast_controller_that_does_not_let_it_go(
    on: Bench, program: str, befalls: Callable[[Bench], None]
) -> None:
    process = start(on) if program == "the service" else 0
    if program != "the service":
        said(on, "-install")
    if program == "-install":
        remove_and_be_sure(on)
    since = on.peer.mark()
    on.peer.command(TOAST, "hang", method="Unadvise")
    with ThreadPoolExecutor() as beside:
        ending = beside.submit(check_stop, on, process) if process else beside.submit(said, on, program)
        try:
            unadvised = on.peer.follow(lambda event: event["event"] == "unadvised", "the call", since=since, quiet=20)
            befalls(on)
            assert ending.result(timeout=60) in (None, INSTALLED, REMOVED)
            gone = on.peer.follow(
                lambda event: event["event"] == "gone" and event["of"] == RIG and event["t"] > unadvised["t"],
                "the end of the program",
                since=since,
                quiet=20,
            )
        finally:
            wake_the_controller(on)
    assert (0 if befalls is dies else 1.9) < gone["t"] - unadvised["t"] < END_LIMIT_SECONDS
    assert on.machine.crashes() == []


@pytest.mark.parametrize("befalls", [pytest.param(dies, marks=slow), falls_silent])
def test_does_not_wait_at_its_end_for_a_toast_controller_that_is_gone_already(
    on: Bench, befalls: Callable[[Bench], None]
) -> None:
    process = start(on)
    befalls(on)
    try:
        check_stop(on, process)
    finally:
        wake_the_controller(on)


@slow
@pytest.mark.parametrize("befalls", [dies, falls_silent])
def test_removes_its_service_beside_a_toast_controller_that_is_gone_already(
    on: Bench, befalls: Callable[[Bench], None]
) -> None:
    with stubborn_service(on), ThreadPoolExecutor() as beside:
        removal = beside.submit(said, on, "-remove")
        assert on.machine.wait_for_service_state(SERVICE, "STOP_PENDING", seconds=20) == "STOP_PENDING"
        befalls(on)
        try:
            on.machine.demand(STUBBORN, "release")
            check_removal(removal.result(timeout=30), dots=1)
        finally:
            wake_the_controller(on)


@contextmanager
def commands_that_take_their_time(on: Bench) -> Iterator[None]:
    """There is the service that the uninstall monitor stops and deletes; what it runs for that does nothing, and ends
    when this ends."""
    on.machine.demand("sc", "create", MONITORED, "binPath=", STUBBORN)
    # The shell takes it before the program of the same name.
    command = on.machine.file(r"C:\windows\system32\sc.com")
    shutil.copyfile(BUILD / "tests" / "system" / "service_holder.exe", command)
    try:
        yield
    finally:
        on.machine.run(SERVICE_HOLDER)
        command.unlink()
        on.machine.demand("sc", "delete", MONITORED)


@slow
def test_waits_for_the_uninstall_monitors_commands_beside_a_toast_controller_that_hangs(on: Bench) -> None:
    process = start(on)
    since = on.peer.mark()
    on.peer.command(TOAST, "hang", method="Unadvise")
    on.installation.remove_driver()
    try:
        with ThreadPoolExecutor() as beside:
            with commands_that_take_their_time(on):
                on.peer.command(RIG, "deliver", times=1, type=REMOVAL, **{"class": SENSOR_CLASS}, link=ANY_CAMERA)
                on.peer.command(RIG, "settle")
                ending = beside.submit(on.machine.run, SERVICE_END, SERVICE)
                on.peer.follow(lambda event: event["event"] == "unadvised", "the call", since=since, quiet=20)
                with pytest.raises(TimeoutError):
                    ending.result(timeout=END_LIMIT_SECONDS)
            assert ending.result(timeout=60).status == 0
    finally:
        on.peer.command(TOAST, "release")
        on.installation.set_keys(on.peer.port, SERVICE_CONTROLLED)
    events = on.peer.events_since(since)
    gone = next(event for event in events if event["event"] == "gone" and event["pid"] == process)
    commands = {event["command"] for event in events[: events.index(gone)] if event["event"] == "command-run"}
    assert commands == {f"sc {verb} {MONITORED}" for verb in ("stop", "delete")}
    assert on.machine.crashes() == []


def test_stops_while_it_has_nothing_to_do_starts_again_and_stops_when_it_is_removed(on: Bench) -> None:
    check_stop(on, start(on))
    on.start_service()
    check_removal(said(on, "-remove"), dots=1)
    assert on.machine.wait_for_service_state(SERVICE, None, seconds=20) is None

"""The executable's command line and the service's start and stop, step by step."""

import unittest
from concurrent.futures import ThreadPoolExecutor, TimeoutError

from support import BUILD, Bench, bench
from veyra_lab.windows.installation import EXECUTABLE
from veyra_lab.windows.machine import SERVICES_KEY, windows_path
from veyra_lab.windows.programs import SERVICE
from veyra_lab.wire.events import RIG

STOP = 1  # the control
STOPPED = 1  # and the state
RUNNING = 4
USAGE = "Parameters:\n -install  to install the service.\n -remove   to remove the service.\n"


class Service(unittest.TestCase):
    def start(self, on: Bench) -> int:
        """Installs and starts the service; returns its process id."""
        on.machine.run(EXECUTABLE, "-install")
        since = on.peer.mark()
        on.machine.demand("sc", "start", SERVICE)
        return on.wait_for_state(RUNNING, since)["pid"]

    def check_stop(self, on: Bench, process: int) -> None:
        """Stops the service: within two seconds, with its process gone and nothing crashed."""
        since = on.peer.mark()
        on.machine.run("sc", "stop", SERVICE)
        asked = on.peer.follow(
            lambda event: event["event"] == "control" and event["control"] == STOP, "the control", since=since, quiet=20
        )
        self.assertLess(on.wait_for_state(STOPPED, since)["t"] - asked["t"], 2.0)
        on.peer.follow(
            lambda event: event["event"] == "gone" and event["pid"] == process, "its end", since=since, quiet=20
        )
        self.assertEqual(on.machine.service_state(SERVICE), "STOPPED")
        self.assertEqual(on.machine.crashes(), [])

    def test_installs_its_service(self) -> None:
        with bench() as on:
            said = on.machine.run(EXECUTABLE, "-install")
            self.assertEqual((said.status, said.text), (0, "VeyraCameraDfuService is installed.\n"))
            values = on.machine.registry_values(rf"{SERVICES_KEY}\{SERVICE}") or {}
            self.assertEqual(values.get("Type"), ("REG_DWORD", "0x10"))
            self.assertEqual(values.get("Start"), ("REG_DWORD", "0x3"))
            self.assertEqual(values.get("ErrorControl"), ("REG_DWORD", "0x1"))
            self.assertEqual(values.get("DisplayName"), ("REG_SZ", "Veyra Camera DFU service"))
            self.assertEqual(values.get("ObjectName"), ("REG_SZ", r"NT AUTHORITY\LocalService"))
            self.assertEqual(values["ImagePath"][1].lower(), EXECUTABLE.lower())
            self.assertEqual(on.machine.service_state(SERVICE), "STOPPED")

    def test_takes_its_switches_in_any_case_and_with_a_slash(self) -> None:
        with bench() as on:
            self.assertEqual(on.machine.run(EXECUTABLE, "/INSTALL").text, "VeyraCameraDfuService is installed.\n")
            self.assertEqual(on.machine.run(EXECUTABLE, "-Remove").text, "VeyraCameraDfuService is removed.\n")
            self.assertIsNone(on.machine.wait_for_service_state(SERVICE, None, seconds=20))

    def test_says_why_it_cannot_install_twice(self) -> None:
        with bench() as on:
            on.machine.run(EXECUTABLE, "-install")
            said = on.machine.run(EXECUTABLE, "-install")
            self.assertEqual((said.status, said.text), (0, "CreateService failed w/err 0x00000431\n"))

    def test_says_why_it_cannot_remove_what_is_not_there(self) -> None:
        with bench() as on:
            said = on.machine.run(EXECUTABLE, "-remove")
            self.assertEqual((said.status, said.text), (0, "OpenService failed w/err 0x00000424\n"))

    def test_stops_a_running_service_before_it_removes_it(self) -> None:
        with bench() as on:
            self.start(on)
            said = on.machine.run(EXECUTABLE, "-remove")
            self.assertEqual(said.status, 0)
            self.assertRegex(
                said.text,
                r"\AStopping VeyraCameraDfuService\.\.*\n"
                r"VeyraCameraDfuService is stopped\.\n"
                r"VeyraCameraDfuService is removed\.\n\Z",
            )
            self.assertIsNone(on.machine.wait_for_service_state(SERVICE, None, seconds=20))

    def test_goes_on_waiting_for_a_service_that_stays_in_stop_pending(self) -> None:
        with bench() as on, ThreadPoolExecutor() as beside:
            stubborn = windows_path(BUILD / "tests" / "system" / "stubborn_service.exe")
            on.machine.demand("sc", "create", SERVICE, "binPath=", stubborn)
            on.machine.demand("sc", "start", SERVICE)
            removal = beside.submit(on.machine.run, EXECUTABLE, "-remove")
            self.assertEqual(on.machine.wait_for_service_state(SERVICE, "STOP_PENDING", seconds=20), "STOP_PENDING")
            with self.assertRaises(TimeoutError):
                removal.result(timeout=6)
            self.assertEqual(on.machine.service_state(SERVICE), "STOP_PENDING")
            on.machine.demand(stubborn, "release")
            self.assertRegex(
                removal.result(timeout=30).text,
                r"\AStopping VeyraCameraDfuService\.\.{3,}\n"
                r"VeyraCameraDfuService is stopped\.\n"
                r"VeyraCameraDfuService is removed\.\n\Z",
            )

    def test_says_nothing_to_a_switch_that_it_does_not_know(self) -> None:
        with bench() as on:
            said = on.machine.run(EXECUTABLE, "-foo")
            self.assertEqual((said.status, said.text), (0, ""))

    def test_says_that_it_is_a_service_when_started_by_hand(self) -> None:
        with bench() as on:
            said = on.machine.run(EXECUTABLE)
            self.assertEqual((said.status, said.text), (0, USAGE + "Service failed to run w/err 0x00000427\n"))

    def test_stops_while_it_has_nothing_to_do(self) -> None:
        with bench() as on:
            self.check_stop(on, self.start(on))

    def test_stops_while_the_user_is_being_asked(self) -> None:
        with bench() as on:
            process = self.start(on)
            on.peer.command(RIG, "plug", camera=0)
            on.peer.follow(lambda event: event["event"] == "prompt-call", "the question", since=0, quiet=20)
            on.peer.command(RIG, "settle")
            self.check_stop(on, process)

    def test_starts_again_after_a_stop(self) -> None:
        with bench() as on:
            self.check_stop(on, self.start(on))
            since = on.peer.mark()
            on.machine.demand("sc", "start", SERVICE)
            self.check_stop(on, on.wait_for_state(RUNNING, since)["pid"])

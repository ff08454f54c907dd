"""The road of one update: every step of it, in the order in which it is gone."""

import time
from dataclasses import replace

from ..buses.bus import CameraBus
from ..updates.plan import Foreseen, UpdatePlan
from ..updates.record import CameraState, Record
from ..windows.installation import EXECUTABLE, Installation
from ..windows.machine import SERVICES_KEY, Machine, MachineError
from ..windows.programs import SERVICE
from ..wire.events import RUNNING, STOP_CONTROL, STOPPED, TOAST, Event, PeerError
from ..wire.peer import Peer

_ACCEPT = 1
_DECLINE = 0
# The longest silence that is still no failure: the engine waits 30 s for the camera to finish.
_LONGEST_SILENCE = 45
_SHORT_SILENCE = 15


class Road:
    """Goes the road of a planned update, with everything installed, and records what happens."""

    def __init__(
        self, plan: UpdatePlan, machine: Machine, peer: Peer, bus: CameraBus, installation: Installation
    ) -> None:
        self._plan = plan
        self._machine = machine
        self._peer = peer
        self._bus = bus
        self._installation = installation
        self._record = Record(plan)
        self._plugged_at = 0

    def walk(self) -> Record:
        """All the steps. A step that cannot be gone ends the road; the record then says why."""
        try:
            self._install()
            self._start()
            self._plug()
            if self._plan.foreseen is not Foreseen.NOT_ASKED:
                self._ask()
                self._answer()
                self._wait_for_the_end_of_the_update()
            self._look()
            self._remove_driver()
            self._stop()
            self._remove()
            self._record.bus_complaints = self._bus.complaints(self._plan.stage()["cameras"], self._peer.events())
        except (PeerError, MachineError) as error:
            self._record.broken_off = str(error)
        self._peer.catch_up()
        self._record.events = self._peer.events()
        self._record.breaches = self._peer.breaches()
        self._record.crashes = self._machine.crashes()
        return self._record

    def _install(self) -> None:
        self._step(f"Installing the service: {SERVICE}.exe -install")
        self._record.install_text = self._machine.run(EXECUTABLE, "-install").text
        self._record.service_key = self._machine.registry_values(rf"{SERVICES_KEY}\{SERVICE}") or {}

    def _start(self) -> None:
        if self._plan.window:
            self._step("Starting the toast controller that ships, on your display")
            self._installation.show_toast_controller()
        started = self._step("Starting the service")
        self._machine.demand("sc", "start", SERVICE)
        report = self._wait_for_report(RUNNING, started, _LONGEST_SILENCE)
        self._record.service_pid = report["pid"]

    def _plug(self) -> None:
        plugged = self._plugged_at = self._step(f"Plugging the camera in, firmware {self._plan.camera_version}")
        self._bus.plug(0)
        if self._plan.foreseen is not Foreseen.NOT_ASKED:
            self._wait_for_call("ShowUpdatePrompt", plugged, _SHORT_SILENCE)
        self._settle()
        self._record.before = self._state()
        if self._plan.why_not_asked:
            self._step(f"Nobody is asked: {self._plan.why_not_asked}")

    def _ask(self) -> None:
        """A person decides what becomes of the rest of the road, if somebody is to be asked at all."""
        if self._plan.window:
            self._await_answer(self._plugged_at)
            return
        if self._plan.ask is None:
            return
        self._step("Asking you")
        call = next(
            event
            for event in reversed(self._peer.events())
            if event["event"] == "prompt-call" and event["method"] == "ShowUpdatePrompt"
        )
        camera_version, image_version = call["texts"]
        accept = self._plan.ask(camera_version, image_version)
        self._plan = self._record.plan = replace(self._plan, accept=accept, ask=None)

    def _await_answer(self, since: int) -> None:
        """The answer comes from the window, however long that takes."""
        self._step("Asking you, in the window at the lower right of your screen")
        while not (answers := [each for each in self._peer.events_since(since) if each["event"] == "answer"]):
            if not self._installation.toast_controller_is_shown():
                raise PeerError("the toast controller has gone without an answer")
            time.sleep(0.1)
        self._peer.catch_up()
        self._record.answered_at = self._peer.events().index(answers[-1])
        accept = answers[-1]["code"] == _ACCEPT
        self._step(f"You {'accept' if accept else 'decline'}")
        self._plan = self._record.plan = replace(self._plan, accept=accept)

    def _answer(self) -> None:
        if self._plan.window:
            return
        self._record.answered_at = self._step(
            "The user accepts" if self._plan.accept else "The user declines"
        )
        self._peer.command(TOAST, "respond", code=_ACCEPT if self._plan.accept else _DECLINE)

    def _wait_for_the_end_of_the_update(self) -> None:
        answered = self._record.answered_at or 0
        if self._plan.foreseen is not Foreseen.DECLINED:
            self._wait_for_call("NotifyComplete", answered, _LONGEST_SILENCE)
        if self._plan.foreseen is Foreseen.UPDATED:
            self._peer.follow(
                lambda event: event["event"] == "camera" and event["change"] == "running",
                "the camera with its new firmware",
                since=answered,
                quiet=_LONGEST_SILENCE,
            )
            self._step("Waiting while the service looks at the camera once more")
        self._settle()

    def _look(self) -> None:
        self._step("Reading the camera's flash")
        self._record.after = self._state()
        self._record.flash = self._bus.flash(0)

    def _remove_driver(self) -> None:
        removed = self._step("Removing the camera's driver package and unplugging the camera")
        self._record.driver_removed_at = removed
        self._installation.remove_driver()
        mode = self._record.after.mode if self._record.after else "absent"
        if mode != "absent":
            self._bus.unplug(0)
        self._settle()
        # A camera in DFU mode has no camera interface whose removal the uninstall monitor could learn of.
        if mode == "running":
            for verb in ("stop", "delete"):
                self._peer.follow(
                    lambda event, verb=verb: event["event"] == "command-run" and f" {verb} " in event["command"],
                    f"the uninstall monitor's {verb} command",
                    since=removed,
                    quiet=_SHORT_SILENCE,
                )

    def _stop(self) -> None:
        asked = self._step("Stopping the service")
        # sc's own status does not count: under Wine it is a failure when the process ends before it has answered.
        self._machine.run("sc", "stop", SERVICE)
        control = self._peer.follow(
            lambda event: event["event"] == "control" and event["control"] == STOP_CONTROL,
            "the control that stops the service",
            since=asked,
            quiet=_SHORT_SILENCE,
        )
        self._record.stop_seconds = self._wait_for_report(STOPPED, asked, _SHORT_SILENCE)["t"] - control["t"]
        self._peer.follow(
            lambda event: event["event"] == "gone" and event["pid"] == self._record.service_pid,
            "the end of the service's process",
            since=asked,
            quiet=_SHORT_SILENCE,
        )
        self._record.process_left = True

    def _remove(self) -> None:
        self._step(f"Removing the service: {SERVICE}.exe -remove")
        self._record.remove_text = self._machine.run(EXECUTABLE, "-remove").text
        self._record.state_after_removal = self._machine.wait_for_service_state(SERVICE, None, seconds=20)

    # The smaller things that the steps are made of.

    def _step(self, text: str) -> int:
        """Says what comes now; returns the mark of its own event."""
        mark = self._peer.mark()
        self._peer.record("step", text=text)
        self._peer.catch_up()
        return mark

    def _settle(self) -> None:
        self._bus.settle(_LONGEST_SILENCE)

    def _state(self) -> CameraState:
        answer = self._bus.state(0)
        return CameraState(answer["mode"], answer["version"], answer["block_number_gaps"])

    def _wait_for_call(self, method: str, since: int, quiet: float) -> Event:
        return self._peer.follow(
            lambda event: event["event"] == "prompt-call" and event["method"] == method,
            f"the service's call of {method}",
            since=since,
            quiet=quiet,
        )

    def _wait_for_report(self, state: int, since: int, quiet: float) -> Event:
        return self._peer.follow(
            lambda event: event["event"] == "service-status" and event["words"][1] == state,
            f"the service's report of state {state}",
            since=since,
            quiet=quiet,
        )

"""Plays scenarios in a machine that is booted: the stage changed as each needs it, the steps gone, the end judged."""

import time
from dataclasses import dataclass, field
from types import TracebackType

from .machine import Machine, MachineError
from .peer import RIG, TOAST, Peer, PeerError
from .performance import Performance
from .scenario import SERVICE_CONTROLLED, Scenario
from .scenario_checks import judge_always
from .scenario_file import ImagePlan, StagePlan, Variant
from .service_under_test import Resources, ServiceUnderTest
from .stage import EXECUTABLE, Programs, Stage

__all__ = ["Outcome", "Resources", "ScenarioPlayer"]

_STOP_LIMIT_SECONDS = 2.0


@dataclass
class Outcome:
    """How one scenario ended. No complaints: everything held."""

    name: str
    complaints: list[str] = field(default_factory=list)
    seconds: float = 0.0
    before: Resources | None = None
    after: Resources | None = None

    @property
    def held(self) -> bool:
        """Whether everything held."""
        return not self.complaints


class ScenarioPlayer:
    """The service is installed once. One process of it carries as many scenarios as it can: a scenario gets a new one
    only when it says so, needs another prompt server, or when the one before has ended or failed.

    Use it as a context; the peer is entered and the machine booted before."""

    def __init__(self, machine: Machine, peer: Peer, programs: Programs, *, always_fresh: bool = False) -> None:
        self._machine = machine
        self._peer = peer
        self._stage = Stage(machine, programs, Scenario())
        self._service = ServiceUnderTest(machine, peer)
        self._always_fresh = always_fresh
        self._staged: StagePlan | None = None
        self._has_prompt_server = True
        self._update_mode: str | None = SERVICE_CONTROLLED
        self._keys_changed = False

    def __enter__(self) -> "ScenarioPlayer":
        self._machine.forget_crashes()
        try:
            self._stage.set(self._peer.port)
            self._machine.demand(EXECUTABLE, "-install")
        except BaseException:
            self._stage.clear(self._peer)
            raise
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self._service.end()
        self._stage.clear(self._peer)

    def play(self, variant: Variant) -> Outcome:
        """One scenario from beginning to end. What it leaves in the machine is put right before the next one."""
        outcome = Outcome(variant.name)
        began = time.monotonic()
        self._peer.record("scenario", name=variant.name, description=variant.description)
        performance = None
        place = "start"
        try:
            self._prepare(variant)
            performance = Performance(variant, self, outcome.complaints)
            outcome.before = self._service.resources()
            performance.carry_out()
            place = "end"
            outcome.after = self._close(performance)
        except (PeerError, MachineError) as error:
            outcome.complaints.append(f"{performance.place if performance and place == 'start' else place}: {error}")
        finally:
            if performance is not None:
                performance.clear_away()
        if performance is not None:
            outcome.complaints += [f"always: {complaint}" for complaint in judge_always(performance.events())]
        outcome.complaints += [f"a process crashed: {note}" for note in self._machine.crashes()]
        self._machine.forget_crashes()
        if not outcome.held:
            self._service.end()
        outcome.seconds = time.monotonic() - began
        return outcome

    def is_set(self) -> bool:
        """Whether the stage that it has set is still there."""
        return self._stage.is_set()

    # What a performance needs of the machine.

    @property
    def machine(self) -> Machine:
        """The booted machine."""
        return self._machine

    @property
    def peer(self) -> Peer:
        """The laboratory's end of the wire."""
        return self._peer

    @property
    def service(self) -> ServiceUnderTest:
        """The service."""
        return self._service

    def stop_service(self) -> list[str]:
        """Stops the service; complains when that takes too long."""
        seconds = self._service.stop()
        return [f"the service took {seconds:.1f} s to stop"] if seconds > _STOP_LIMIT_SECONDS else []

    def put_image(self, image: ImagePlan) -> None:
        """Changes the firmware image in the machine."""
        self._stage.put_image(image.content, folder=image.is_folder)

    def set_update_mode(self, mode: str | None) -> None:
        """Changes the registry value."""
        if mode != self._update_mode or self._keys_changed:
            self._stage.set_keys(self._peer.port, mode)
            self._update_mode = mode
            self._keys_changed = False

    def remove_driver(self) -> None:
        """Takes the camera's driver package away, until the scenario is over."""
        self._keys_changed = True
        self._stage.remove_driver()

    def create_service(self, name: str) -> None:
        """Makes another service and starts it: Wine's own print spooler under a name of the scenario's."""
        self._keys_changed = True
        self._machine.demand("sc", "create", name, "binPath=", r"C:\windows\system32\spoolsv.exe")
        self._machine.demand("sc", "start", name)

    def delete_service(self, name: str) -> None:
        """Takes such a service away again, when it is still there."""
        if self._machine.service_state(name) not in (None, "DELETED"):
            self._machine.run("sc", "stop", name)
            self._machine.run("sc", "delete", name)

    # Between the scenarios.

    def _prepare(self, variant: Variant) -> None:
        plan = variant.stage
        needs_fresh = (
            self._always_fresh
            or variant.fresh_service
            or self._staged is None
            or (plan.prompt_server, plan.skip_waits, plan.transfer_us)
            != (self._staged.prompt_server, self._staged.skip_waits, self._staged.transfer_us)
            or not self._peer.is_connected_as(TOAST)
        )
        if self._service.is_up and needs_fresh:
            self._service.end()
        if not self._service.is_up:
            self._peer.dismiss(TOAST, seconds=20)
        self.put_image(plan.image)
        self.set_update_mode(plan.update_mode)
        wanted = plan.prompt_server != "missing"
        if wanted != self._has_prompt_server:
            self._stage.put_toast_server(wanted)
            self._has_prompt_server = wanted
        self._staged = plan
        # Also for a process that the scenario itself will start.
        self._peer.set_stage(plan.for_rig(), plan.for_prompt_server())
        if self._service.is_up:
            self._peer.command(RIG, "restage", stage=plan.for_rig())
            self._peer.command(TOAST, "behave")
        else:
            self._service.start()

    def _close(self, performance: Performance) -> Resources | None:
        """Takes the cameras off the bus, and tells what the service holds then; stops it when it is not to go on."""
        if not self._service.is_up:
            return None
        if not self._service.is_alive():
            self._service.is_up = False
            raise PeerError("the service's process is gone")
        performance.unplug_all()
        self._service.settle()
        return self._service.resources()

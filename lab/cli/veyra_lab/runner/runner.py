"""Carries scenarios out in a machine that is booted, one after the other."""

import time
from dataclasses import dataclass, field
from pathlib import Path
from types import TracebackType
from typing import Any

from ..buses.bus import SETTLING_LIMIT
from ..buses.virtual import VirtualBus
from ..judgement.always import judge_always
from ..scenarios.variant import StagePlan, Variant
from ..windows.machine import Machine, MachineError
from ..windows.programs import Programs
from ..windows.service_under_test import Resources
from ..wire.events import RIG, TOAST, Event, PeerError
from .installed_service import installed
from .run import ScenarioRun
from .scenario_id import id_of


@dataclass
class Outcome:
    """How one scenario ended. No complaints: everything held."""

    name: str
    # With which scripts/lab replay plays it again.
    id: str = ""
    complaints: list[str] = field(default_factory=list)
    seconds: float = 0.0
    before: Resources | None = None
    after: Resources | None = None
    # What service, toast controller and laboratory did, from the moment at which everything was ready.
    events: list[Event] = field(default_factory=list)

    @property
    def held(self) -> bool:
        """Whether everything held."""
        return not self.complaints


class ScenarioRunner:
    """The service is installed once. One process of it carries as many scenarios as it can: a scenario gets a new one
    only when it says so, needs another toast controller, or when the one before has ended or failed.

    Use it as a context, in a machine that is booted; on exit everything is taken away again. An outcome says what the
    service holds only if `looks_at_resources` is set: under Wine, a third of a short scenario's work is to count
    handles."""

    def __init__(
        self,
        machine: Machine,
        programs: Programs,
        transcript: Path | None = None,
        *,
        always_fresh: bool = False,
        bus: str = VirtualBus.name,
    ) -> None:
        self._machine = machine
        self._installation = installed(machine, programs, transcript, bus)
        self._always_fresh = always_fresh
        self._bus_name = bus
        self.looks_at_resources = False
        # How long a step may take to settle, in seconds.
        self.settling_limit = SETTLING_LIMIT
        self._last: StagePlan | None = None

    def __enter__(self) -> "ScenarioRunner":
        self._installed = self._installation.__enter__()
        self._peer = self._installed.peer
        self._bus = self._installed.bus
        self._service = self._installed.service
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self._installation.__exit__(kind, error, trace)

    def run(self, variant: Variant, id_: str = "") -> Outcome:
        """One scenario from beginning to end. What it leaves in the machine is put right before the next one. `id_` is that
        of what is no scenario but is played as one."""
        outcome = Outcome(variant.name, id_ or str(id_of(variant, self._bus_name)))
        began = time.monotonic()
        self._peer.record(
            "scenario",
            name=variant.name,
            description=variant.description,
            id=outcome.id,
            skip_waits=self._bus.stage(variant.stage.for_rig()).get("skip_waits", False),
            cameras=[_camera(fields) for fields in variant.stage.cameras],
        )
        run = None
        place = "start"
        try:
            self._prepare(variant)
            outcome.complaints += [f"the service before: {breach}" for breach in self._peer.breaches()]
            self._installed.settling_limit = self.settling_limit
            run = ScenarioRun(variant, self._installed, outcome.complaints)
            outcome.before = self._resources()
            run.carry_out()
            place = "end"
            outcome.after = self._close(run)
            outcome.complaints += run.complaints_of_the_bus()
        except (PeerError, MachineError) as error:
            outcome.complaints.append(f"{run.place if run and place == 'start' else place}: {error}")
        finally:
            if run is not None:
                run.clear_away()
        if run is not None:
            outcome.events = run.events()
            outcome.complaints += [f"always: {complaint}" for complaint in judge_always(outcome.events)]
        outcome.complaints += self._peer.breaches()
        outcome.complaints += [f"a process crashed: {note}" for note in self._machine.crashes()]
        self._machine.forget_crashes()
        self._peer.record("judgement", held=outcome.held, complaints=outcome.complaints, id=outcome.id)
        if not outcome.held:
            self._service.end()
        outcome.seconds = time.monotonic() - began
        return outcome

    def events(self) -> list[Event]:
        """Everything that was told since the service was installed."""
        return list(self._peer.events_since(0))

    def _prepare(self, variant: Variant) -> None:
        plan = variant.stage
        needs_fresh = (
            self._always_fresh
            or variant.fresh_service
            or self._last is None
            or (plan.toast_controller, plan.skip_waits, plan.transfer_us)
            != (self._last.toast_controller, self._last.skip_waits, self._last.transfer_us)
            or not self._peer.is_connected_as(TOAST)
        )
        if self._service.is_up and needs_fresh:
            self._service.end()
        if not self._service.is_up:
            self._peer.dismiss(TOAST, seconds=20)
        self._installed.put_image(plan.image)
        self._installed.set_update_mode(plan.update_mode)
        self._installed.put_toast_controller(plan.toast_controller != "missing")
        self._last = plan
        # Also for a process that the scenario itself will start.
        stage = self._bus.stage(plan.for_rig())
        self._peer.set_stage(stage, plan.for_toast_controller())
        self._bus.place(plan.cameras)
        if self._service.is_up:
            self._peer.command(RIG, "restage", stage=stage)
            self._peer.command(TOAST, "behave")
        else:
            self._service.start()

    def _close(self, run: ScenarioRun) -> Resources | None:
        """Takes the cameras off the bus, and tells what the service holds then."""
        if not self._service.is_up:
            return None
        if not self._service.is_alive():
            self._service.is_up = False
            raise PeerError("the service's process is gone")
        run.unplug_all()
        self._installed.settle()
        return self._resources()

    def _resources(self) -> Resources | None:
        return self._service.resources() if self.looks_at_resources else None


def _camera(fields: dict[str, Any]) -> dict[str, Any]:
    """What the record tells of a camera: what a person would ask for."""
    told = ("version", "personality", "transfer_size", "speed")
    return {name: fields[name] for name in told if name in fields}

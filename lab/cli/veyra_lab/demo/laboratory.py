"""One update from beginning to end: everything installed, the road gone, everything taken away again."""

import signal
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from dataclasses import replace
from pathlib import Path

from ..buses.choice import opened
from ..buses.usb import UsbBus
from ..buses.virtual import VirtualBus
from ..terminal.screen import Screen
from ..updates.expectation import ACCEPTED, Verdict
from ..updates.judge import judge
from ..updates.plan import UpdatePlan
from ..updates.record import Record
from ..windows.installation import READING_SECONDS, Installation
from ..windows.machine import Machine
from ..windows.particulars import of_image, of_run
from ..windows.programs import Programs
from ..wire.peer import Peer
from ..wire.trace_formats import TraceFormats
from .reporter import Reporter
from .road import Road

_ENDING_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Laboratory:
    """A booted machine, and the programs to run in it. Any number of runs may follow one another."""

    def __init__(self, machine: Machine, programs: Programs, trace_formats: Path) -> None:
        self._machine = machine
        self._programs = programs
        self._formats = TraceFormats(trace_formats)

    def run(
        self,
        plan: UpdatePlan,
        screen: Screen,
        transcript: Path | None = None,
        bus: str = VirtualBus.name,
        image_name: str = "",
        judge: Callable[[Record], list[Verdict]] = judge,
    ) -> tuple[Record, list[Verdict]]:
        """Carries the update out, on the bus of that name, and judges it; the verdicts end the transcript. However it
        ends, no program of it is left running and the machine is as it was before. SetUpError or GuestError when there
        is no such bus."""
        if bus == UsbBus.name:
            screen.step("Booting a Linux guest, whose kernel drives the bus")
        with (
            Peer({}, self._formats.add_words, Reporter(screen, plan), transcript) as peer,
            opened(bus, peer, "demo") as cameras,
        ):
            peer.record("run", **of_run(self._programs.service))
            peer.record("image", **of_image(plan.image, image_name))
            stage = cameras.stage(plan.stage())
            peer.record("stage", cameras=[{"version": plan.camera_version, "transfer_size": plan.transfer_size}])
            peer.set_stage(stage)
            cameras.place(stage["cameras"])
            self._machine.forget_crashes()
            installation = Installation(
                self._machine,
                self._programs,
                image=plan.image,
                update_mode=plan.update_mode,
                toast_server=plan.toast_server and not plan.window,
            )
            try:
                installation.make(peer.port)
                record = Road(plan, self._machine, peer, cameras, installation).walk()
                if installation.toast_controller_is_shown() and not record.broken_off:
                    if record.plan.foreseen in ACCEPTED:
                        screen.step(f"Close the window when you have read it; it goes by itself in {READING_SECONDS} s")
                    installation.take_toast_controller_away(READING_SECONDS)
            finally:
                with _undisturbed():
                    screen.step("Cleaning up")
                    installation.remove(peer)
            verdicts = judge(record)
            for verdict in verdicts:
                complaints = [verdict.complaint] if verdict.complaint else []
                peer.record("expectation", text=verdict.name, complaints=complaints)
            broken = [verdict for verdict in verdicts if not verdict.held]
            peer.record("judgement", held=not broken, complaints=[verdict.complaint for verdict in broken])
            return replace(record, events=peer.events()), verdicts


@contextmanager
def _undisturbed() -> Iterator[None]:
    """Lets nobody's Ctrl-C end the cleaning up half-way."""
    before = {number: signal.signal(number, lambda *_: None) for number in _ENDING_SIGNALS}
    try:
        yield
    finally:
        for number, handler in before.items():
            signal.signal(number, handler)

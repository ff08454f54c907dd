"""The demo: python3 -m veyra_lab.demo, started by scripts/demo."""

import subprocess
import sys
from dataclasses import replace

from ..buses.virtual import VirtualBus
from ..checkout import BUILD, CHECKOUT
from ..guest.errors import GuestError
from ..report.page import page
from ..report.summary import summarize
from ..report.transcript import of_events
from ..terminal.parser import give_up
from ..terminal.screen import Screen
from ..terminal.set_up import SetUpError, call_setup
from ..updates.expectation import Verdict
from ..updates.judge import judge
from ..updates.plan import PROBE_SIZE, Foreseen, UpdatePlan, transfer_time
from ..updates.record import Record
from ..windows.image import DEFAULT_IMAGE_SIZE, ODD_IMAGE_SIZE, read_image, sha256
from ..windows.machine import Machine, MachineError
from ..windows.programs import PRESET, TARGETS, TOAST_CONTROLLER_TARGET, Programs
from ..windows.sole_use import sole_use
from ..wire.events import PeerError
from .closing import last_sentence
from .laboratory import Laboratory
from .options import Options, parse

_MACHINE = BUILD / "wine"


class DemoFailed(Exception):
    """The demo went its road, and something did not hold. The text is its last sentence."""


def main() -> int:
    """The exit status: 0 when everything held, 1 when not, 2 for a wrong command line."""
    options = parse(sys.argv[1:])
    screen = Screen()
    try:
        with sole_use(_MACHINE):
            _prepare(options, screen)
            return _show(options, screen)
    except (
        KeyboardInterrupt, SetUpError, MachineError, GuestError, PeerError, OSError, subprocess.SubprocessError,
    ) as error:  # fmt: skip
        return give_up("scripts/demo", error)


def _prepare(options: Options, screen: Screen) -> None:
    screen.step("Looking for the packages that the build needs")
    call_setup("packages")
    screen.step("Building the service and the laboratory")
    call_setup("build", PRESET, *TARGETS, *([TOAST_CONTROLLER_TARGET] if options.window else []))


def _show(options: Options, screen: Screen) -> int:
    plan = _plan(options)
    machine = Machine(_MACHINE)
    screen.step("Starting Windows" if machine.is_made else "Making a Windows machine (once)")
    with machine:
        laboratory = Laboratory(machine, Programs.of(BUILD / PRESET), CHECKOUT / "trace")
        name = options.image.name if options.image else "the demo's own image"
        record, verdicts = laboratory.run(
            plan, screen, options.transcript, options.bus, name, lambda made: [*judge(made), *_outcome(made)]
        )
    failed = [verdict for verdict in verdicts if not verdict.held]
    screen.step(f"{len(verdicts) - len(failed)} of {len(verdicts)} expectations held")
    for verdict in failed:
        screen.line(f"failed: {verdict.name}: {verdict.complaint}", style="bold red")
    _close(record, screen)
    transcript = of_events(record.events)
    summary = summarize(transcript)
    if options.report is not None:
        content = page(transcript, summary, options.transcript.name if options.transcript else "scripts/demo")
        options.report.write_bytes(content.encode("utf-8", "replace"))
    sentence = last_sentence(record, verdicts, summary, options.report)
    if failed:
        return give_up("scripts/demo", DemoFailed(sentence))
    screen.line(sentence)
    return 0


def _plan(options: Options) -> UpdatePlan:
    is_virtual = options.bus == VirtualBus.name
    # The window can tell the end of a download for certain only when the last block is not a whole one.
    has_whole_blocks = is_virtual and not options.window
    image = read_image(options.image, DEFAULT_IMAGE_SIZE if has_whole_blocks else ODD_IMAGE_SIZE)
    plan = UpdatePlan(
        image=image,
        camera_version=options.camera_version,
        transfer_size=options.transfer_size,
        accept=options.accept,
        window=options.window,
    )
    if options.ask is not None:
        plan = replace(plan, ask=options.ask)
    # On a real bus a transfer takes its time.
    return replace(plan, transfer_us=transfer_time(plan.blocks)) if is_virtual else plan


def _outcome(record: Record) -> list[Verdict]:
    """A demo in which the user accepts is there to show an update: without one it fails, for a good reason too."""
    plan = record.plan
    if record.broken_off or plan.foreseen in (Foreseen.UPDATED, Foreseen.DECLINED):
        return []
    if plan.foreseen is Foreseen.PROBE_REFUSED:
        why = (
            f"the camera takes {plan.transfer_size} bytes in one transfer, but before the first block the service "
            f"reads a status of {PROBE_SIZE} bytes in one transfer; that was refused, and no block was sent"
        )
    elif plan.accept:
        why = f"nobody was asked: {plan.why_not_asked}"
    else:
        return []
    return [Verdict("the camera is updated", why)]


def _close(record: Record, screen: Screen) -> None:
    if record.before is None or record.after is None:
        return
    screen.line(f"camera firmware: {record.before.version} -> {record.after.version}")
    screen.line(f"image sha256: {sha256(record.plan.image)}")
    screen.line(f"flash sha256: {sha256(record.flash)}")
    screen.line(f"control transfers: {len(record.transfers())}")


if __name__ == "__main__":
    sys.exit(main())

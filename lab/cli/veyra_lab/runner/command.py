"""scripts/lab list and scripts/lab run: the scenarios of lab/scenarios."""

import argparse
import json
import shlex
from collections.abc import Sequence
from pathlib import Path
from typing import Any

from ..buses.choice import add_bus
from ..buses.usb import UsbBus
from ..checkout import BUILD
from ..guest.errors import GuestError
from ..scenarios.errors import ScenarioError
from ..scenarios.files import read_folder, read_named, read_scenario
from ..scenarios.schema import SCENARIOS
from ..scenarios.variant import Variant
from ..terminal.parser import add_places, add_transcript, give_up
from ..terminal.screen import Screen
from ..terminal.set_up import SetUpError, call_setup
from ..terminal.table import style_of
from ..windows.machine import Machine, MachineError
from ..windows.programs import PRESET, TARGETS, Programs, built
from ..windows.service_under_test import Resources
from ..windows.sole_use import sole_use
from ..wire.events import PeerError
from . import listing
from .listing import can_have
from .runner import Outcome, ScenarioRunner
from .scenario_id import check_name

_WRONG = 2

_RUN_CLOSING = """\
Exit status: 0 when everything held in every scenario, 1 when something did not, 2 when a scenario file or the command
line is wrong. What has changed in the programs of build/windows-release is built first, unless --programs names a
folder: that one is taken as it is."""


def register(subparsers: Any) -> None:
    """Adds the commands "list" and "run" to the laboratory's command line."""
    listing.register(subparsers)
    run = subparsers.add_parser(
        "run",
        help="run scenarios on the service",
        description="Runs scenarios on the service that ships, and says of each in one line what came of it.",
        epilog=_RUN_CLOSING,
    )
    run.add_argument(
        "names", nargs="*", metavar="NAME",
        help="a scenario, a file's name for all of its scenarios, or the path of another file",
    )
    run.add_argument("--all", action="store_true", help="every scenario, the slow ones too")
    run.add_argument("--quick", action="store_true", help="every scenario that is not slow")
    run.add_argument("--keep-going", action="store_true", help="go on after a scenario that did not hold")
    run.add_argument("--fresh", action="store_true", help="start the service anew for each scenario")
    run.add_argument("--json", action="store_true", help="write one JSON object a scenario instead of a line")
    add_bus(run)
    add_transcript(run)
    add_places(run)
    run.set_defaults(run=_run, programs=None)


def as_json(outcome: Outcome) -> dict[str, Any]:
    """An outcome for other programs to read."""

    def resources(held: Resources | None) -> dict[str, int] | None:
        return None if held is None else dict(held.__dict__)

    return {
        "name": outcome.name,
        "id": outcome.id,
        "held": outcome.held,
        "complaints": outcome.complaints,
        "seconds": round(outcome.seconds, 3),
        "before": resources(outcome.before),
        "after": resources(outcome.after),
    }


def _run(options: argparse.Namespace) -> int:
    try:
        variants = _chosen(options)
        with sole_use(options.machine):
            programs = up_to_date_programs(options)
            if options.bus == UsbBus.name and not options.json:
                Screen().step("Booting a Linux guest, whose kernel drives the bus")
            with (
                Machine(options.machine) as machine,
                ScenarioRunner(
                    machine, programs, options.transcript, always_fresh=options.fresh, bus=options.bus
                ) as runner,
            ):
                runner.looks_at_resources = options.json
                return _run_all(variants, runner, options)
    except ScenarioError as error:
        return give_up("scripts/lab", error, _WRONG)
    except (SetUpError, MachineError, GuestError, PeerError, OSError) as error:
        return give_up("scripts/lab", error)


def _chosen(options: argparse.Namespace) -> list[Variant]:
    if options.all + options.quick + bool(options.names) != 1:
        raise ScenarioError("say one of these: names of scenarios, --all or --quick (scripts/lab list shows them)")
    if options.names:
        named = _named(options.names)
        chosen = [variant for variant in named if can_have(options.bus, variant)]
        for variant in named:
            # Of a file's scenarios those are meant that can be.
            if variant not in chosen and (variant.name in options.names or not chosen):
                raise ScenarioError(f"'{variant.name}' is not for a real bus: {variant.not_on_usb}")
        return chosen
    return [
        variant
        for variant in read_folder(SCENARIOS)
        if can_have(options.bus, variant) and (options.all or not variant.slow)
    ]


def _named(names: Sequence[str]) -> list[Variant]:
    """Those of lab/scenarios by their names, and those of files elsewhere by their paths."""
    files = [name for name in names if name.endswith(".json")]
    own = read_named(SCENARIOS, [name for name in names if name not in files])
    others = [variant for name in files for variant in read_scenario(Path(name))]
    for variant in others:
        check_name(variant.name)
    everything = [*own, *others]
    names_of = [variant.name for variant in everything]
    for name in names_of:
        if others and names_of.count(name) > 1:
            raise ScenarioError(f"two scenarios are called '{name}'")
    return everything


def up_to_date_programs(options: argparse.Namespace) -> Programs:
    """Those of the named folder as they are; the usual ones brought up to date."""
    if options.programs is None:
        call_setup("packages", aside=True)
        call_setup("build", PRESET, *TARGETS, aside=True)
    return built(options.programs or BUILD / PRESET)


def _run_all(variants: Sequence[Variant], runner: ScenarioRunner, options: argparse.Namespace) -> int:
    screen = Screen()
    failed = 0
    done = 0
    files = {Path(name).stem: name for name in options.names if name.endswith(".json")}
    for variant in variants:
        outcome = runner.run(variant)
        done += 1
        failed += not outcome.held
        if options.json:
            print(json.dumps(as_json(outcome)), flush=True)
        else:
            word = "held" if outcome.held else "FAILED"
            screen.line((f"{word:6}", style_of(word)), f" {outcome.seconds:5.1f} s  {outcome.name}  {outcome.id}")
            for complaint in outcome.complaints:
                screen.line(f"         {complaint}")
            if not outcome.held:
                file = files.get(variant.name.partition("/")[0])
                beside = f" --file {shlex.quote(file)}" if file else ""
                screen.line(f"         again: scripts/lab replay {outcome.id}{beside}")
        if failed and not options.keep_going:
            break
    if not options.json:
        screen.line(f"{done - failed} of {len(variants)} scenarios held")
    return 1 if failed else 0

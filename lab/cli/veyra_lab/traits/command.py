"""scripts/lab traits: an update of each kind of boot loader, and the table of what becomes of it."""

import argparse
from collections.abc import Iterator
from typing import Any

from ..runner.command import up_to_date_programs
from ..runner.installed_service import InstalledService, installed
from ..terminal.parser import add_places, add_transcript, give_up
from ..terminal.screen import Screen
from ..terminal.set_up import SetUpError
from ..windows.machine import Machine, MachineError
from ..windows.sole_use import sole_use
from ..wire.events import PeerError
from .kinds import kinds
from .trial_id import id_of
from .trials import TrialError, Trials

HEAD = "| # | boot loader | result | last request | flash | transfers | seconds | id |"

_CLOSING = """\
Exit status: 0 when each of the faultless cameras was updated and one process of the service did it all, 1 when not, 2
when the command line is wrong. The table is that of docs/laboratory.md, which a test compares with a run.
By the id at a row's end scripts/lab replay plays it again."""


def register(subparsers: Any) -> None:
    """Adds the command "traits" to the laboratory's command line."""
    parser = subparsers.add_parser(
        "traits",
        help="update cameras with boot loaders of other kinds",
        description="Updates a camera of each named kind of boot loader, and of combinations of traits in which every"
        " two values meet, each followed by a faultless camera, with one process of the service. Writes the table of"
        " what became of them.",
        epilog=_CLOSING,
    )
    add_transcript(parser)
    add_places(parser)
    parser.set_defaults(run=_run, programs=None)


def rows(service: InstalledService) -> Iterator[str]:
    """The table's rows, each as soon as it is known. TrialError, PeerError or MachineError when something does not
    hold."""
    trials = Trials(service)
    for number, kind in enumerate(kinds(), 1):
        id_ = id_of(number, kind)
        attempt, flash = trials.run(kind, id_)
        cells = (attempt.result, attempt.ended, flash, str(attempt.transfers), f"{attempt.seconds:.1f}", id_)
        yield f"| {number} | {kind.words} | {' | '.join(cells)} |"
    trials.check_that_the_process_is_the_first()
    for complaint in service.stop_service():
        raise TrialError(complaint)


def _run(options: argparse.Namespace) -> int:
    screen = Screen()
    try:
        with sole_use(options.machine):
            programs = up_to_date_programs(options)
            with Machine(options.machine) as machine, installed(machine, programs, options.transcript) as service:
                screen.line(HEAD)
                screen.line("|---" * (HEAD.count("|") - 1) + "|")
                for row in rows(service):
                    screen.line(row)
    except (TrialError, SetUpError, MachineError, PeerError, OSError) as error:
        return give_up("scripts/lab", error)
    return 0

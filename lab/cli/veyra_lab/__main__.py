"""The laboratory's tool: python3 -m veyra_lab, started by scripts/lab.

Each subcommand lives in a module with a function `register(subparsers)`, which adds its parser and names the function
that carries it out: `parser.set_defaults(run=function)`. That function takes the parsed arguments and returns the
exit status.
"""

import os
import sys
from collections.abc import Sequence

from .capture import command as capture_command
from .causes import command as causes_command
from .guest import command as guest_command
from .replay import command as replay_command
from .report import command as report_command
from .runner import command as runner_command
from .terminal.parser import Parser, give_up
from .traits import command as traits_command
from .windows_disk import command as windows_disk_command

# One line for each subcommand's module.
_COMMANDS = (
    report_command, runner_command, causes_command, traits_command, replay_command, capture_command, guest_command,
    windows_disk_command,
)  # fmt: skip

_DESCRIPTION = "Tools around the firmware update laboratory. The update itself is shown by scripts/demo."

_CLOSING = """\
Examples:
  scripts/demo --transcript update.jsonl
  scripts/lab report update.jsonl -o update.html
  scripts/lab list

scripts/lab SUBCOMMAND --help tells more, with examples. Exit status: 0 when the subcommand did what was asked, 1 when
it could not, 2 when the command line is wrong or names a file that cannot be read or written, 130 when interrupted."""


def _parser() -> Parser:
    parser = Parser(prog="scripts/lab", description=_DESCRIPTION, epilog=_CLOSING)
    subparsers = parser.add_subparsers(title="subcommands", metavar="SUBCOMMAND", required=True)
    for module in _COMMANDS:
        module.register(subparsers)
    return parser


def main(arguments: Sequence[str] | None = None) -> int:
    """The exit status."""
    parsed = _parser().parse_args(arguments)
    try:
        status: int = parsed.run(parsed)
        sys.stdout.flush()
        return status
    except KeyboardInterrupt as error:
        return give_up("scripts/lab", error)
    except BrokenPipeError:
        # Nobody reads any more, as behind `| head`. Python would complain once more at its end.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 0


if __name__ == "__main__":
    sys.exit(main())

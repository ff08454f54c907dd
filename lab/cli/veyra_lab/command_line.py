"""What the command lines of scripts/demo and scripts/lab have in common."""

import argparse
from typing import Any, NoReturn


class Parser(argparse.ArgumentParser):
    """Takes no abbreviations, keeps the line breaks of its texts, and says what is wrong in one line instead of
    argparse's usage and message. Subparsers are of the same kind."""

    def __init__(self, **settings: Any) -> None:
        settings.setdefault("formatter_class", argparse.RawDescriptionHelpFormatter)
        settings.setdefault("allow_abbrev", False)
        super().__init__(**settings)

    def error(self, message: str) -> NoReturn:
        line = " ".join(message.split())
        self.exit(2, f"{self.prog}: {line} (--help shows the options)\n")

"""Runs the fuzz targets: scripts/fuzz."""

import argparse
import os
import random
import re
import shutil
import subprocess
import sys
from collections.abc import Sequence
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

from veyra_lab.checkout import BUILD, CHECKOUT
from veyra_lab.fuzz.find import tell_find
from veyra_lab.fuzz.input_id import TARGETS, TRANSCRIPTS, FuzzInput
from veyra_lab.terminal.parser import Parser
from veyra_lab.terminal.set_up import SetUpError, call_setup

from .interruption import status_of

_FOLDER = BUILD / "host-fuzz"
_FINDS = BUILD / "fuzz-finds"
_SOURCES = CHECKOUT / "host" / "fuzz"
# What a target needs that others do not: a trial reads at most 35 bytes, and is so short that what libFuzzer does for
# an input counts. So does what AddressSanitizer notes of each allocation: who plays a find again sees it.
_OPTIONS = {"trial": ("-max_len=40", "-entropic=0")}
_ENVIRONMENT = {"trial": {"ASAN_OPTIONS": "malloc_context_size=0:quarantine_size_mb=16"}}
_FIXED_RUNS = 2000
_FIXED_SEED = 1
_SEEDS = 1 << 31  # libFuzzer takes 0 for none
_AT_A_TIME = 2

_DESCRIPTION = f"""\
Runs each TARGET for SECONDS, two at a time; without one named, all of them:
  {" ".join(TARGETS)}
Each line tells a target's executions, its coverage (edges of the code; lines of the reader for transcripts) and what it
found; of trials, which hold several conversations each, also how many of these there were, and in how many a fault
struck. What libFuzzer's runs learn is kept in build/host-fuzz/learnt and taken up by the next one.

SECONDS 0 is the short run of scripts/test --all: {_FIXED_RUNS} executions from the inputs of the checkout alone, with
the seed {_FIXED_SEED} unless another is named: the same each time.

A longer run begins by telling the seed of its choices. The same seed makes the same choices again from the same inputs,
and what was learnt meanwhile is among these; how far a run comes in its seconds is the machine's. A find needs neither:
its id is the input."""

_CLOSING = """\
An input that breaks a target's promises is written to build/fuzz-finds, and the exit status is then 1. It is told by its id,
by which scripts/lab replay plays it again, and made as small as it goes; what is a road of the service, of the targets
conversation and trial, becomes a trial of scripts/faults and a scenario in build/faults."""


@dataclass(frozen=True)
class Outcome:
    """What a target's run said."""

    target: str
    log: Path
    held: bool

    @property
    def find(self) -> FuzzInput | None:
        """The input that broke a promise, when the run has left one."""
        path = Path(self._last(re.escape(str(_FINDS)) + r"/\S+-[0-9a-f]{40}"))
        return FuzzInput(self.target, path.read_bytes()) if not self.held and path.is_file() else None

    def _last(self, pattern: str) -> str:
        said = self.log.read_text(encoding="utf-8", errors="replace")
        return str((re.findall(pattern, said, re.MULTILINE) or ["?"])[-1])

    def __str__(self) -> str:
        executions = self._last(r"^stat::number_of_executed_units: *(\d+)")
        coverage = self._last(r" cov: (\d+)")
        found = "no find" if self.held else f"a find, see {self.log}: {self.find or 'no input is left'}"
        return f"{self.target:19} {executions:>9} executions, coverage {coverage:>5}, {self._conversations()}{found}"

    def _conversations(self) -> str:
        said = self.log.read_text(encoding="utf-8", errors="replace")
        told = re.findall(r"^stat::conversations: *(\d+)\nstat::conversations_with_a_fault: *(\d+)", said, re.MULTILINE)
        return f"{int(told[-1][0]):,} conversations, {int(told[-1][1]):,} with a fault; " if told else ""


def _command(target: str, seconds: int, seed: int) -> Sequence[str]:
    corpus = str(_SOURCES / "corpus" / target)
    if target == TRANSCRIPTS:
        extent = ["--seconds", str(seconds)] if seconds else ["--runs", str(_FIXED_RUNS)]
        return [sys.executable, str(_SOURCES / "transcripts.py"), "--finds", f"{_FINDS}/{target}-", "--seed", str(seed),
                *extent, corpus]
    # What is learnt goes into the first folder: never into the seeds, and into none that a later short run looks at.
    learnt = _FOLDER / ("learnt" if seconds else "learnt-in-short-run") / target
    if not seconds:
        shutil.rmtree(learnt, ignore_errors=True)
    learnt.mkdir(parents=True, exist_ok=True)
    extent = [f"-max_total_time={seconds}"] if seconds else [f"-runs={_FIXED_RUNS}"]
    return [str(_FOLDER / "host" / "fuzz" / target), "-timeout=20", "-max_len=4096", "-print_final_stats=1",
            f"-artifact_prefix={_FINDS}/{target}-", f"-seed={seed}", *_OPTIONS.get(target, ()), *extent,
            str(learnt), corpus]


def _run(target: str, seconds: int, seed: int) -> Outcome:
    log = _FOLDER / f"{target}.log"
    with log.open("w", encoding="utf-8") as stream:
        done = subprocess.run(
            _command(target, seconds, seed),
            cwd=_FOLDER,
            env=os.environ | _ENVIRONMENT.get(target, {}),
            stdin=subprocess.DEVNULL,
            stdout=stream,
            stderr=stream,
            check=False,
        )
    return Outcome(target, log, done.returncode == 0)


def _seconds(text: str) -> int:
    if not re.fullmatch(r"[0-9]{1,6}", text):
        raise argparse.ArgumentTypeError(f"no number of seconds: {text}")
    return int(text)


def _seed(text: str) -> int:
    if not re.fullmatch(r"[0-9]{1,10}", text) or not 0 < int(text) < _SEEDS:
        raise argparse.ArgumentTypeError(f"no seed from 1 to {_SEEDS - 1}: {text}")
    return int(text)


def main() -> int:
    parser = Parser(prog="scripts/fuzz", description=_DESCRIPTION, epilog=_CLOSING)
    parser.add_argument("seconds", type=_seconds, metavar="SECONDS")
    parser.add_argument("target", nargs="*", metavar="TARGET", default=TARGETS)
    parser.add_argument("--seed", type=_seed, metavar="N", help="make the choices of a run that told this seed")
    options = parser.parse_args()
    for target in options.target:
        if target not in TARGETS:
            parser.error(f"no target: {target}")
    try:
        call_setup("packages", "test")
        call_setup("build", "host-fuzz")
        return _run_all(options.target, options.seconds, options.seed)
    except SetUpError as error:
        print(f"scripts/fuzz: {error}", file=sys.stderr)
        return 1


def _run_all(targets: Sequence[str], seconds: int, named_seed: int | None) -> int:
    """The exit status. SetUpError when what tells of a find cannot be built."""
    seed = named_seed or (random.SystemRandom().randrange(1, _SEEDS) if seconds else _FIXED_SEED)
    named = "" if targets == TARGETS else " " + " ".join(targets)
    print(f"seed {seed} (scripts/fuzz {seconds}{named} --seed {seed} chooses the same)", flush=True)
    _FINDS.mkdir(parents=True, exist_ok=True)
    held = True
    with ThreadPoolExecutor(_AT_A_TIME) as pool:
        for outcome in pool.map(lambda target: _run(target, seconds, seed), targets):
            print(outcome, flush=True)
            held &= outcome.held
            if found := outcome.find:
                for line in tell_find(found):
                    print(line, flush=True)
    return 0 if held else 1


if __name__ == "__main__":
    sys.exit(status_of(main, "scripts/fuzz"))

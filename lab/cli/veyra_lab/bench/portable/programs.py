"""The measuring programs of the Linux build: what a work takes in calls, instructions and time."""

import json
import statistics
import subprocess
from collections import defaultdict
from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from .instructions import instructions

# A process's memory lies where it lies for all of its repetitions, so there are several of both.
_PROCESSES = 5
_REPETITIONS = 5
_SECONDS = 300
_NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


@dataclass(frozen=True)
class Times:
    """Processor time of a work and of the bare one beside it, in nanoseconds."""

    ours: float
    bare: float


@dataclass(frozen=True)
class PortablePrograms:
    """Where the build leaves them."""

    folder: Path

    def counts(self, work: str, size: int) -> dict[str, Any]:
        """What one work of this size took in allocations, and in transfers where it makes some."""
        command = [str(self.folder / "counted_work"), work, str(size)]
        counted: dict[str, Any] = json.loads(_output(command))
        return counted

    def instructions(self, work: str, sizes: Sequence[int]) -> dict[int, float]:
        """How many instructions a work of each size takes for one of its pieces."""
        return {size: instructions(self.folder / "counted_work", work, str(size)) / size for size in sizes}

    def times(self, work: str, bare: str) -> dict[int, Times]:
        """Times of each size of a work. Its relation to the bare work is the median of pairs, each made one right after
        the other: it is steady where either time is not."""
        bare_times: dict[int, list[float]] = defaultdict(list)
        relations: dict[int, list[float]] = defaultdict(list)
        for _ in range(_PROCESSES):
            for measured in self._measure(f"^({work}|{bare})/"):
                name, size = measured["run_name"].split("/")
                if name == bare:
                    bare_times[int(size)].append(measured["cpu_time"] * _NANOSECONDS[measured["time_unit"]])
                else:
                    relations[int(size)].append(measured["times_bare"])
        medians = {size: statistics.median(of_one) for size, of_one in bare_times.items()}
        return {size: Times(statistics.median(relations[size]) * time, time) for size, time in medians.items()}

    def _measure(self, works: str) -> Iterator[dict[str, Any]]:
        command = [
            str(self.folder / "benchmarks"),
            f"--benchmark_filter={works}",
            f"--benchmark_repetitions={_REPETITIONS}",
            "--benchmark_enable_random_interleaving=true",
            "--benchmark_min_time=0.05",
            "--benchmark_format=json",
        ]
        return (each for each in json.loads(_output(command))["benchmarks"] if each["run_type"] == "iteration")


def _output(command: list[str]) -> str:
    """What a program writes, which has to succeed."""
    answer = subprocess.run(command, capture_output=True, text=True, timeout=_SECONDS, check=False)
    if answer.returncode != 0:
        raise RuntimeError(f"{' '.join(command)} ended with {answer.returncode}: {answer.stderr.strip()}")
    return answer.stdout

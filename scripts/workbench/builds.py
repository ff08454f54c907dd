"""The builds, what each finds that no other does, and the test programs in them."""

import json
import subprocess
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from veyra_lab.checkout import BUILD


@dataclass(frozen=True)
class Build:
    """A preset with tests. The first finds most of what there is to find, and is for every day; --all runs every one."""

    preset: str
    finds: str
    besides: Sequence[str] = ()  # what is built beside its test programs

    @property
    def folder(self) -> Path:
        """Where it is built."""
        return BUILD / self.preset

    @property
    def is_windows(self) -> bool:
        """Whether its programs run under Wine."""
        return self.preset.startswith("windows-")


RELEASE = Build("windows-release", "whether what ships does what it should, alone and with the whole system")
LAB = Build("host-lab", "what the servers of cameras tell a foreign host, and what the guest's helper does")
BUILDS = (
    RELEASE,
    Build("host-sanitize", "reads and writes outside of memory, and undefined behaviour, in the portable code"),
    Build("windows-checked", "misuse of the C++ library, overruns and undefined behaviour in what only Windows has"),
    Build("windows-clang", "what another compiler warns of, and what means something else to it",
          besides=("VeyraCameraDfuService", "toast_controller", "VeyraCameraDfuCheck")),
    Build("host-thread", "data races"),
    Build("host-bench", "transfers, allocations and instructions that have become more"),
    LAB,
)


@dataclass(frozen=True)
class TestProgram:
    """One entry of CTest: a program, the folder of tests/ that it is from, and whether it is too slow for every day."""

    name: str
    folder: str
    slow: bool

    def answers_to(self, name: str) -> bool:
        """Whether a person may mean it by the name."""
        return name in (self.name, self.name.removesuffix("_test"), self.folder, self.folder.rpartition("/")[2])


def programs_of(build: Build) -> Sequence[TestProgram]:
    """The test programs of a build that is configured."""
    listed = subprocess.run(
        ["ctest", "--show-only=json-v1"], cwd=build.folder, capture_output=True, text=True, check=True
    ).stdout
    programs = []
    for test in json.loads(listed)["tests"]:
        properties = {entry["name"]: entry["value"] for entry in test.get("properties", ())}
        labels = properties.get("LABELS", [])
        folder = next((label for label in labels if label != "slow"), "")
        programs.append(TestProgram(test["name"], folder, "slow" in labels))
    return programs

"""The programs that a run puts into the machine."""

from dataclasses import dataclass
from pathlib import Path

from .machine import MachineError

SERVICE = "VeyraCameraDfuService"
# The build that ships, and those of its targets that make the programs.
PRESET = "windows-release"
TARGETS = (SERVICE, "lab_rig", "VeyraCameraToastCntl")
# That of the toast controller that ships.
TOAST_CONTROLLER_TARGET = "toast_controller"
# The program of that name, and its target.
COMPANION = "VeyraCameraDfuCheck"


@dataclass(frozen=True)
class Programs:
    """The three programs of a build folder that a run needs, and two that ship, which few runs do: the toast controller
    and the companion."""

    service: Path
    rig: Path
    toast_server: Path
    toast_controller: Path
    companion: Path

    @staticmethod
    def of(build_folder: Path) -> "Programs":
        """Where the build leaves them."""
        return Programs(
            service=build_folder / f"{SERVICE}.exe",
            rig=build_folder / "lab" / "rig" / "winusb.dll",
            toast_server=build_folder / "lab" / "toast" / "VeyraCameraToastCntl.exe",
            toast_controller=build_folder / "VeyraCameraToastCntl.exe",
            companion=build_folder / f"{COMPANION}.exe",
        )


def built(folder: Path) -> Programs:
    """The programs of a build folder. MachineError when they are not built."""
    programs = Programs.of(folder)
    for path in (programs.service, programs.rig, programs.toast_server):
        if not path.is_file():
            raise MachineError(f"{path} is missing: scripts/setup build {PRESET} builds it")
    return programs

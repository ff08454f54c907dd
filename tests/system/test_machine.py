"""What a run leaves behind: nothing."""

import tempfile
import unittest
from pathlib import Path

from support import BUILD, complaints, processes_of, run_scenario, the_machine
from veyra_lab.bench.contenders import Contenders
from veyra_lab.machine import Machine
from veyra_lab.scenario import Scenario

# What Wine itself writes when it first starts a console program, and when it looks at the display again.
_WINES_OWN = ("user.reg [Console]", '"DriverDateData"')
_REGISTRY_FILES = ("system.reg", "user.reg", "userdef.reg")


def files_of(prefix: Path) -> set[str]:
    """Every file and folder of drive C."""
    drive = prefix / "drive_c"
    return {str(path.relative_to(drive)) for path in drive.rglob("*")}


def registry_of(prefix: Path) -> dict[str, str]:
    """Every key and every value of the registry as Wine stores it, without the times."""
    entries = {}
    for name in _REGISTRY_FILES:
        key = ""
        for line in (prefix / name).read_text(encoding="utf-8").splitlines():
            if line.startswith("["):
                key = f"{name} {line[: line.rindex(']') + 1]}"
                entries[key] = ""
            elif line.startswith(('"', "@")):
                value, _, text = line.partition("=")
                entries[f"{key} {value}"] = text
    return entries


class MachineState(unittest.TestCase):
    def test_leaves_the_machine_as_it_was(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            prefix = Path(folder) / "wine"
            with Machine(prefix):
                pass
            files, registry = files_of(prefix), registry_of(prefix)
            with Machine(prefix) as machine:
                self.assertEqual(complaints(run_scenario(Scenario(), machine)), [])
            self.assertEqual(processes_of(prefix), [])
            self.assertEqual(files_of(prefix) ^ files, set())
            after = registry_of(prefix)
            changed = {key for key in registry.keys() | after.keys() if registry.get(key) != after.get(key)}
            self.assertEqual({key for key in changed if not any(own in key for own in _WINES_OWN)}, set())

    def test_leaves_no_toast_server_to_the_next_run(self) -> None:
        """It would tell the laboratory that has started it what the next one waits for."""
        server = "VeyraCameraToastCntl.exe"
        with Contenders(the_machine(), BUILD) as run:
            run.product.start()
            self.assertNotEqual(the_machine().processes(server), [])
            run.stage.clear(None)
            self.assertEqual(the_machine().processes(server), [])


if __name__ == "__main__":
    unittest.main()

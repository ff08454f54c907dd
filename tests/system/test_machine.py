"""The machine's promises: a run leaves nothing behind, and what goes wrong in it is told."""

import subprocess
from concurrent.futures import ThreadPoolExecutor
from contextlib import suppress
from pathlib import Path

import pytest
from support import BUILD, Bench, complaints, slow, the_machine
from veyra_lab.bench.service.contenders import Contenders
from veyra_lab.updates.plan import UpdatePlan
from veyra_lab.windows.installation import EXECUTABLE
from veyra_lab.windows.machine import Machine, MachineError, processes_of

# What Wine itself writes when it first starts a console program, and when it looks at the display again.
_WINES_OWN = ("user.reg [Console]", '"DriverDateData"')
_ADDR_NO_RANDOMIZE = 0x0040000  # Linux' <sys/personality.h>
_REGISTRY_FILES = ("system.reg", "user.reg", "userdef.reg")
_TOAST_SERVER = "VeyraCameraToastCntl.exe"


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


@slow
def test_leaves_the_machine_as_it_was(tmp_path: Path) -> None:
    prefix = tmp_path / "wine"
    with Machine(prefix):
        pass
    files, registry = files_of(prefix), registry_of(prefix)
    with Machine(prefix) as machine, Bench(machine) as on:
        assert complaints(on.walk(UpdatePlan())) == []
    assert processes_of(prefix) == {}
    assert files_of(prefix) ^ files == set()
    after = registry_of(prefix)
    changed = {key for key in registry.keys() | after.keys() if registry.get(key) != after.get(key)}
    assert {key for key in changed if not any(own in key for own in _WINES_OWN)} == set()


def test_leaves_no_toast_controller_to_the_next_run() -> None:
    """It would tell the laboratory that has started it what the next one waits for."""
    killed = Bench(the_machine()).__enter__()
    killed.machine.demand(EXECUTABLE, "-install")
    killed.start_service()
    assert killed.machine.processes(_TOAST_SERVER) != []
    killed.peer.__exit__(None, None, None)
    killed.installation.remove(None)
    assert killed.machine.processes(_TOAST_SERVER) == []


def test_addresses_are_not_randomized() -> None:
    """With random ones one start of a program in some thousands fails."""
    if subprocess.run(["setarch", "--addr-no-randomize", "true"], capture_output=True, check=False).returncode != 0:
        pytest.skip("this system does not let a program keep its addresses from being randomized")
    personalities = {}
    for number, words in processes_of(the_machine().prefix).items():
        # One that an earlier test has started may be leaving.
        with suppress(OSError):
            if words[0].endswith(".exe"):
                personalities[words[0]] = int(Path(f"/proc/{number}/personality").read_text(encoding="ascii"), 16)
    assert len(personalities) > 2
    assert {name for name, value in personalities.items() if not value & _ADDR_NO_RANDOMIZE} == set()


def test_tells_what_runs_when_a_program_does_not_end() -> None:
    told = r"^C:\\windows\\system32\\cmd\.exe /c .* did not end within 1 s; the machine runs: .*services.exe"
    with pytest.raises(MachineError, match=told):
        the_machine().run("cmd", "/c", "for /L %i in (1,0,2) do @rem", timeout=1)


@slow
def test_tells_resources_while_programs_start() -> None:
    """Wine's server ends, and the whole machine with it, when it is asked for all handles while a process that
    was started from the host has none yet."""
    with Contenders(the_machine(), BUILD) as run, ThreadPoolExecutor(max_workers=4) as beside:
        run.product.start()
        asked = 0
        starts = [beside.submit(the_machine().run, "cmd", "/c", "exit") for _ in range(40)]
        while not all(start.done() for start in starts):
            assert run.product.resources().handles > 0
            asked += 1
        assert [start.result().status for start in starts] == [0] * 40
        assert asked > 10


def test_what_wine_says_of_a_process_that_has_ended_is_not_the_programs() -> None:
    said = "wine client error:674: sendmsg: Socket operation on non-socket"
    assert the_machine().run("cmd", "/c", f"echo before& echo {said}& echo behind").text.splitlines() == ["before", "behind"]
    assert the_machine().run("cmd", "/c", f"echo a {said}").text == f"a {said}\n"

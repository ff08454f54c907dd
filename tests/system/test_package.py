"""The release package: what its installer does to a machine, and that equal sources give equal files."""

import re
import shutil
import struct
import subprocess
import tempfile
import time
import zipfile
from collections.abc import Callable, Iterator
from functools import cache
from pathlib import Path

import make_package as packaging
import pytest
from support import BUILD, CHECKOUT, Bench, Shared, complaints, discard_the_machine, slow
from veyra_lab.buses.virtual import VirtualBus
from veyra_lab.demo.road import Road
from veyra_lab.updates.plan import UpdatePlan
from veyra_lab.windows.image import sha256
from veyra_lab.windows.installation import EXECUTABLE, UPDATE_MODE_KEY
from veyra_lab.windows.machine import SERVICES_KEY, Machine, Outcome, registry_string, windows_path
from veyra_lab.windows.programs import SERVICE, Programs
from veyra_lab.wire.events import RUNNING, TOAST

_FOLDER = r"C:\windows\VeyraCameraDfu"
_EXECUTABLE = rf"{_FOLDER}\{SERVICE}.exe"
_TOAST_NAME = "VeyraCameraToastCntl.exe"
_CHECK_NAME = "VeyraCameraDfuCheck.exe"
_TOAST_CONTROLLER = rf"{_FOLDER}\{_TOAST_NAME}"
_OTHER_TOAST_CONTROLLER = rf"C:\windows\system32\{_TOAST_NAME}"
_TOAST_CLASS = r"HKEY_LOCAL_MACHINE\SOFTWARE\Classes\CLSID\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}"
_SERVICE_KEY = rf"{SERVICES_KEY}\{SERVICE}"
_UNINSTALL_KEY = r"HKEY_LOCAL_MACHINE\Software\Microsoft\Windows\CurrentVersion\Uninstall"
_INSTALLER_KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\VeyraCameraDfuService"
_SERVICE_CONTROLLED = "Service Controlled"
_NEWER = "99.0.0"
_DATE = 1_700_000_000
# What is no service: for any switch the one fails, the other says that all is well.
_FAILING_PROGRAM = BUILD / "tests" / "system" / "stubborn_service.exe"
_SERVICE_HOLDER = BUILD / "tests" / "system" / "service_holder.exe"
_START_TYPE_TOOL = BUILD / "set_start_type.exe"
_EVENT_SOURCE = rf"{SERVICES_KEY}\EventLog\Application\{SERVICE}"
_STARTS = {"Automatic": "0x2", "Manual": "0x3", "Disabled": "0x4"}


VERSION = packaging.product_version(BUILD)
_made = tempfile.TemporaryDirectory()


@cache
def rig() -> Path:
    """The laboratory's rig without its symbols, which would make the installers large."""
    stripped = Path(_made.name) / "winusb.dll"
    subprocess.run(["x86_64-w64-mingw32-strip", "-o", stripped, Programs.of(BUILD).rig], check=True)
    return stripped


@cache
def program(name: str, version: str) -> Path:
    """A program of a version: that of the newer one is another file, which does the same."""
    path = Path(_made.name) / f"{version}-{name}"
    path.write_bytes(packaging.package_files(BUILD)[name].read_bytes() + (b"\0" if version == _NEWER else b""))
    return path


def version_files(version: str) -> dict[str, Path]:
    """What a version brings. Wine cannot run the executable without the rig, which has to lie beside it, so it is
    installed along."""
    programs = {name: program(name, version) for name in (f"{SERVICE}.exe", _TOAST_NAME, _CHECK_NAME)}
    return packaging.package_files(BUILD) | programs | {"winusb.dll": rig()}


@cache
def installer(version: str = VERSION, name: str = "", other: Path | None = None) -> Path:
    """An installer of the build's files that calls itself this version; with another file in the named one's place."""
    files = version_files(version) | ({name: other} if other else {})
    path = Path(_made.name) / f"{version}-{name}-{other.stem if other else 'works'}.msi"
    packaging.make_msi(files, version, _DATE, path)
    return path


def table(name: str) -> dict[str, list[str]]:
    """A table of the installer: the columns behind the first by that one."""
    exported = subprocess.run(["msiinfo", "export", installer(), name], capture_output=True, text=True, check=True)
    rows = (line.rstrip("\r").split("\t") for line in exported.stdout.splitlines()[3:])
    return {key: columns for key, *columns in rows}


def msiexec(machine: Machine, *arguments: str, interface: str = "/qn") -> Outcome:
    """Windows' installer, without questions. It reads its command line itself, in which a property's text has the quotes:
    NAME="a text". So it gets the line that a person types, and not words that somebody else puts quotes around."""
    typed = machine.file(r"C:\typed.cmd")
    typed.write_text(f"@msiexec {' '.join(arguments)} {interface}\r\n@exit /b %errorlevel%\r\n", encoding="ascii")
    return machine.run("cmd", "/c", r"C:\typed.cmd", timeout=120)


def install(machine: Machine, version: str = VERSION, *properties: str) -> Outcome:
    """Installs a version; one that is older is upgraded."""
    return msiexec(machine, "/i", f'"{windows_path(installer(version))}"', *properties)


def repair(machine: Machine) -> Outcome:
    """What msiexec /f does; Wine's has no /f."""
    return msiexec(machine, "/i", packaging.product_code(VERSION), "REINSTALL=ALL", "REINSTALLMODE=omus")


def remove(machine: Machine, version: str = VERSION) -> Outcome:
    """Removes a version."""
    return msiexec(machine, "/x", packaging.product_code(version))


def update_mode(machine: Machine) -> tuple[str, str] | None:
    """Type and text of the update mode; None when there is none."""
    return (machine.registry_values(UPDATE_MODE_KEY) or {}).get("DFUAutoMode")


def package_files() -> dict[str, str]:
    """Every file of the package, with its digest."""
    return {name: sha256(source.read_bytes()) for name, source in packaging.package_files(BUILD).items()}


def installed_files(machine: Machine) -> dict[str, str]:
    """Every file of the installation folder, with its digest."""
    folder = machine.file(_FOLDER)
    paths = [path for path in folder.rglob("*") if path.is_file()]
    return {path.relative_to(folder).as_posix(): sha256(path.read_bytes()) for path in paths}


def program_entries(machine: Machine) -> dict[str, str]:
    """What the list of programs says of each version that is installed."""
    listed = machine.run("reg", "query", _UNINSTALL_KEY, "/s").text.split("\n\n")
    return {
        version: entry
        for version in (VERSION, _NEWER)
        for entry in listed
        if packaging.product_code(version) in entry
    }


def service_keys(machine: Machine) -> list[str]:
    """The services in the registry that have to do with the cameras."""
    listed = machine.demand("reg", "query", SERVICES_KEY)
    return sorted(line.rsplit("\\", 1)[1] for line in listed.splitlines() if "Veyra" in line)


def state_of(machine: Machine) -> set[str]:
    """Every file and folder of drive C, and every key and value of the machine's registry."""
    drive = machine.file("C:\\")
    # A pipe of the installer's commands is one of Windows' own; Wine's cmd plays it with a file, and not every Wine removes it.
    state = {f"file {path.relative_to(drive)}" for path in drive.rglob("*") if not path.match("Temp/CMD????.tmp")}
    with tempfile.TemporaryDirectory() as folder:
        for hive in ("HKLM\\Software", "HKLM\\System\\CurrentControlSet\\Services", "HKCU"):
            exported = Path(folder) / "exported.reg"
            machine.demand("reg", "export", hive, windows_path(exported), "/y")
            key = ""
            for line in exported.read_text("utf-16").splitlines():
                key = line if line.startswith("[") else key
                state.add(f"{key} {line}")
    return state


def SHARED(machine: Machine) -> Bench:
    """One machine without an update mode sees all of them."""
    return Bench(machine, UpdatePlan(update_mode=None))


@pytest.fixture
def on(shared: Shared[Bench]) -> Iterator[Bench]:
    """A machine in which nothing is installed; whatever a test has installed in it is removed."""
    on = shared.get()
    yield on
    for version in program_entries(on.machine):
        remove(on.machine, version)
    on.clear()
    on.machine.change_registry({}, removed=[UPDATE_MODE_KEY])


@pytest.fixture
def machine_left() -> Iterator[None]:
    """For the tests whose installer ends a toast controller. Wine starts no other in the place of one that was killed."""
    yield
    discard_the_machine()


@pytest.fixture
def alone(on: Bench) -> Iterator[Bench]:
    """The same machine without the laboratory's toast controller, which is to the installer another maker's."""
    assert on.peer.dismiss(TOAST, seconds=20)
    on.installation.put_toast_server(False)
    yield on
    for version in program_entries(on.machine):
        remove(on.machine, version)
    on.machine.change_registry({}, removed=[_TOAST_CLASS])
    on.installation.put_toast_server(True)


class InstalledRoad(Road):
    """The road of an update with the service of the installed package."""

    def _install(self) -> None:
        self._step("Installing the package")
        said = install(self._machine, VERSION, f'DFUAUTOMODE="{_SERVICE_CONTROLLED}"').text
        # The program's line; what follows is the service control manager's answer to the installer.
        self._record.install_text = said.partition("\n")[0] + "\n"
        self._record.service_key = self._machine.registry_values(_SERVICE_KEY) or {}

    def _remove(self) -> None:
        self._step("Removing the package")
        self._record.remove_text = remove(self._machine).text
        self._record.state_after_removal = self._machine.wait_for_service_state(SERVICE, None, seconds=20)


def toast_registration(machine: Machine) -> str | None:
    """The program that is registered for the toast controller's class."""
    values = machine.registry_values(rf"{_TOAST_CLASS}\LocalServer32")
    return None if values is None else values["ServerExecutable"][1].lower()


def check_installed(machine: Machine, version: str = VERSION, *, toast_controller: bool = False) -> None:
    """The files, one service with their path, and the entry in the list of programs. The toast controller is there and
    registered, or it is neither."""
    files = {name: path for name, path in version_files(version).items() if toast_controller or name != _TOAST_NAME}
    assert installed_files(machine) == {name: sha256(path.read_bytes()) for name, path in files.items()}
    assert (toast_registration(machine) == _TOAST_CONTROLLER.lower()) is toast_controller
    assert machine.service_state(SERVICE) is not None
    path = (machine.registry_values(_SERVICE_KEY) or {})["ImagePath"][1]
    assert path.lower() == _EXECUTABLE.lower()
    entries = program_entries(machine)
    assert list(entries) == [version]
    assert f"    DisplayVersion    REG_SZ    {version}\n" in entries[version] + "\n"


def check_nothing_left(machine: Machine) -> None:
    assert not machine.file(_FOLDER).exists()
    assert machine.wait_for_service_state(SERVICE, None, seconds=20) is None
    assert service_keys(machine) == []
    assert machine.registry_values(_INSTALLER_KEY) is None
    assert machine.registry_values(_EVENT_SOURCE) is None
    assert program_entries(machine) == {}


def test_installs_files_and_service_and_removes_both(on: Bench) -> None:
    assert install(on.machine).status == 0
    check_installed(on.machine)
    assert on.machine.service_state(SERVICE) == "STOPPED"
    assert start_type(on.machine) == "Manual"
    assert service_keys(on.machine) == [SERVICE]
    # An event viewer finds the words of the service's records.
    assert on.machine.registry_values(_EVENT_SOURCE) == {
        "EventMessageFile": ("REG_SZ", rf"{_FOLDER}\VeyraCameraDfuMessages.dll"),
        "TypesSupported": ("REG_DWORD", "0x7"),
    }
    on.start_service()
    on.machine.run("sc", "stop", SERVICE)
    assert on.machine.wait_for_service_state(SERVICE, "STOPPED", seconds=20) == "STOPPED"
    assert remove(on.machine).status == 0
    check_nothing_left(on.machine)


@slow
def test_removal_leaves_nothing_behind(on: Bench) -> None:
    # Every start registers the toast controller, which is none of the package's here.
    on.machine.run(EXECUTABLE, "-none")
    before = state_of(on.machine)
    install(on.machine, VERSION, f'DFUAUTOMODE="{_SERVICE_CONTROLLED}"')
    install(on.machine, _NEWER)
    assert len(state_of(on.machine) - before) > 20
    remove(on.machine, _NEWER)
    check_nothing_left(on.machine)
    assert sorted(state_of(on.machine) ^ before) == []


@slow
def test_removal_stops_the_service_first(on: Bench) -> None:
    install(on.machine)
    on.start_service()
    assert remove(on.machine).status == 0
    check_nothing_left(on.machine)
    assert on.machine.crashes() == []


@slow
def test_removal_deletes_the_service_also_when_the_program_fails(on: Bench) -> None:
    install(on.machine)
    shutil.copyfile(_SERVICE_HOLDER, on.machine.file(_EXECUTABLE))
    assert remove(on.machine).status == 0
    check_nothing_left(on.machine)


@slow
def test_removal_deletes_the_service_also_when_the_program_is_lost(on: Bench) -> None:
    install(on.machine)
    on.machine.file(_EXECUTABLE).unlink()
    assert remove(on.machine).status == 0
    check_nothing_left(on.machine)


@slow
def test_repair_brings_back_what_is_lost_and_installs_nothing_twice(on: Bench) -> None:
    install(on.machine)
    assert repair(on.machine).status == 0
    check_installed(on.machine)
    on.machine.file(rf"{_FOLDER}\README.md").unlink()
    on.machine.demand("sc", "delete", SERVICE)
    assert repair(on.machine).status == 0
    check_installed(on.machine)
    assert service_keys(on.machine) == [SERVICE]


def start_type(machine: Machine) -> str:
    """The service's start type, in the installer's words."""
    kind, number = (machine.registry_values(_SERVICE_KEY) or {})["Start"]
    assert kind == "REG_DWORD"
    return next(word for word, its in _STARTS.items() if its == number)


def change_start_type(machine: Machine, word: str = "Automatic") -> None:
    """As an administrator does."""
    machine.demand(windows_path(_START_TYPE_TOOL), SERVICE, word)


@pytest.mark.parametrize(
    ("running", "interface", "mode"),
    [
        pytest.param(True, "/qn", None, id="a running service, silently"),
        pytest.param(True, "/qr", _SERVICE_CONTROLLED, id="a running service, with the user interface", marks=slow),
        pytest.param(False, "/qr", _SERVICE_CONTROLLED, id="a stopped service, with the user interface", marks=slow),
    ],
)
def test_upgrade_replaces_the_older_version_and_leaves_as_it_was(
    on: Bench, running: bool, interface: str, mode: str | None
) -> None:
    install(on.machine, VERSION, *([f'DFUAUTOMODE="{mode}"'] if mode else []))
    change_start_type(on.machine)
    before = on.start_service() if running else None
    since = on.peer.mark()
    assert msiexec(on.machine, "/i", f'"{windows_path(installer(_NEWER))}"', interface=interface).status == 0
    check_installed(on.machine, _NEWER)
    if running:
        assert on.wait_for_state(RUNNING, since)["pid"] != before
    assert on.machine.service_state(SERVICE) == ("RUNNING" if running else "STOPPED")
    assert start_type(on.machine) == "Automatic"
    assert update_mode(on.machine) == (("REG_SZ", mode) if mode else None)
    assert remove(on.machine, _NEWER).status == 0
    check_nothing_left(on.machine)
    assert on.machine.crashes() == []


def test_searches_in_the_sequence_alone_that_uses_what_is_found() -> None:
    sequences = {name: table(f"Install{name}Sequence") for name in ("UI", "Execute")}
    for action in ("AppSearch", "LaunchConditions"):
        assert action not in sequences["UI"]
        assert action in sequences["Execute"]
    # What the search for other versions finds goes from one sequence to the other.
    secure = table("Property")["SecureCustomProperties"][0].split(";")
    assert {"WIX_UPGRADE_DETECTED", "WIX_DOWNGRADE_DETECTED"} <= set(secure)
    assert "DFUAUTOMODE" not in secure


def test_its_actions_run_when_they_have_to() -> None:
    steps = {action: int(columns[1]) for action, columns in table("InstallExecuteSequence").items()}
    in_order = ["InstallInitialize", "UndoStopService", "NoteRunningService", "StopService", "EndToast", "InstallFiles",
                "InstallService", "CheckService", "UndoRegisterToast", "RegisterToast", "StartServiceAgain", "ApplyStartType",
                "StartService", "InstallFinalize", "RemoveExistingProducts"]  # fmt: skip
    assert sorted(in_order, key=lambda action: steps[action]) == in_order
    in_order = ["ProcessComponents", "UndoUnregisterToast", "UnregisterToast", "RemoveService", "EndToast", "RemoveFiles"]
    assert sorted(in_order, key=lambda action: steps[action]) == in_order
    kinds = {action: int(columns[0]) for action, columns in table("CustomAction").items()}
    rollback, commit = 256, 512
    assert {action for action, kind in kinds.items() if kind & rollback} == {
        "UndoInstallService",
        "UndoRemoveService",
        "UndoStopService",
        "UndoRegisterToast",
        "UndoUnregisterToast",
    }
    assert {action for action, kind in kinds.items() if kind & commit} == {"StartServiceAgain", "StartService"}


@pytest.fixture
def held(on: Bench) -> Iterator[Callable[[], None]]:
    """The service is installed, and a program has it open; lets it go."""
    install(on.machine)
    holder = windows_path(_SERVICE_HOLDER)
    program = subprocess.Popen(
        [str(CHECKOUT / "scripts" / "wine"), holder, SERVICE],
        env=on.machine.environment,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        text=True,
    )
    assert program.stdout is not None
    with program.stdout:
        assert program.stdout.readline().strip() == "held"

        def let_go() -> None:
            if program.poll() is None:
                on.machine.demand(holder)
                assert program.wait(timeout=20) == 0

        yield let_go
        let_go()


@slow
def test_upgrade_and_repair_do_not_mind_who_has_the_service_open(on: Bench, held: Callable[[], None]) -> None:
    assert repair(on.machine).status == 0
    assert install(on.machine, _NEWER).status == 0
    held()
    check_installed(on.machine, _NEWER)


@slow
def test_removal_is_complete_once_nobody_has_the_service_open(on: Bench, held: Callable[[], None]) -> None:
    assert remove(on.machine).status == 0
    assert not on.machine.file(_FOLDER).exists()
    assert on.machine.service_state(SERVICE) is not None
    # The name is not free yet: nothing is installed that the last handle's end would take away.
    assert install(on.machine).status != 0
    assert not on.machine.file(_FOLDER).exists()
    held()
    check_nothing_left(on.machine)
    assert install(on.machine).status == 0
    check_installed(on.machine)


@slow
def test_says_that_a_removed_service_is_still_open(on: Bench) -> None:
    install(on.machine)
    on.machine.change_registry({_SERVICE_KEY: {"DeleteFlag": "dword:00000001"}})
    assert repair(on.machine).status != 0
    assert install(on.machine, _NEWER).status != 0
    assert "restart Windows" in table("LaunchCondition")['NOT MARKEDSERVICE OR REMOVE="ALL"'][0]


@slow
@pytest.mark.parametrize("mode", ["service controlled", "Service Controlled ", "On"])
def test_refuses_an_update_mode_that_it_does_not_know(on: Bench, mode: str) -> None:
    log = on.machine.file(r"C:\refused.log")
    assert install(on.machine, VERSION, f'DFUAUTOMODE="{mode}"', "/l*v", r"C:\refused.log").status != 0
    check_nothing_left(on.machine)
    assert update_mode(on.machine) is None
    # Wine shows the text of the condition that does not hold in a window and nowhere else: its log tells the action.
    ended = re.findall(r"Action ended .*: (\w+)\. Return value (\d+)\.", log.read_text(encoding="ascii"))
    assert {action for action, value in ended if value != "1"} == {"LaunchConditions", "INSTALL"}
    (text,) = (columns[0] for condition, columns in table("LaunchCondition").items() if "DFUAUTOMODE" in condition)
    assert all(f'"{known}"' in text for known in ("[DFUAUTOMODE]", _SERVICE_CONTROLLED, "Auto", "Disabled"))
    log.unlink()


@pytest.mark.parametrize("word", ["Automatic", pytest.param("Manual", marks=slow), pytest.param("Disabled", marks=slow)])
def test_gives_the_service_the_start_type_that_is_asked_for(on: Bench, word: str) -> None:
    assert install(on.machine, VERSION, f"STARTTYPE={word}").status == 0
    check_installed(on.machine)
    assert start_type(on.machine) == word
    assert on.machine.service_state(SERVICE) == "STOPPED"
    assert remove(on.machine).status == 0
    check_nothing_left(on.machine)


@slow
def test_start_type_and_start_go_through_repair_and_upgrade(on: Bench) -> None:
    assert install(on.machine, VERSION, "STARTTYPE=Automatic", "STARTSERVICE=Yes").status == 0
    assert on.machine.wait_for_service_state(SERVICE, "RUNNING", seconds=20) == "RUNNING"
    assert install(on.machine, _NEWER).status == 0
    check_installed(on.machine, _NEWER)
    assert start_type(on.machine) == "Automatic"
    assert on.machine.wait_for_service_state(SERVICE, "RUNNING", seconds=20) == "RUNNING"
    # A service that is lost comes back as it was asked for.
    on.machine.end_service(SERVICE)
    on.machine.demand("sc", "delete", SERVICE)
    product = packaging.product_code(_NEWER)
    assert msiexec(on.machine, "/i", product, "REINSTALL=ALL", "REINSTALLMODE=omus").status == 0
    assert start_type(on.machine) == "Automatic"
    assert on.machine.wait_for_service_state(SERVICE, "RUNNING", seconds=20) == "RUNNING"
    assert remove(on.machine, _NEWER).status == 0
    check_nothing_left(on.machine)
    # What a removed version was told is forgotten.
    assert install(on.machine).status == 0
    assert (start_type(on.machine), on.machine.service_state(SERVICE)) == ("Manual", "STOPPED")


@slow
def test_an_administrators_start_type_is_left_alone(on: Bench) -> None:
    install(on.machine, VERSION, "STARTTYPE=Automatic", "STARTSERVICE=Yes")
    change_start_type(on.machine, "Disabled")
    on.machine.end_service(SERVICE)
    assert repair(on.machine).status == 0
    assert (start_type(on.machine), on.machine.service_state(SERVICE)) == ("Disabled", "STOPPED")
    assert install(on.machine, _NEWER).status == 0
    assert (start_type(on.machine), on.machine.service_state(SERVICE)) == ("Disabled", "STOPPED")


@slow
def test_an_upgrade_gives_the_start_type_and_the_start_that_it_is_told(on: Bench) -> None:
    install(on.machine)
    assert install(on.machine, _NEWER, "STARTTYPE=Automatic", "STARTSERVICE=Yes").status == 0
    assert start_type(on.machine) == "Automatic"
    assert on.machine.wait_for_service_state(SERVICE, "RUNNING", seconds=20) == "RUNNING"


@slow
@pytest.mark.parametrize(
    ("properties", "text"),
    [
        (["STARTTYPE=automatic"], "STARTTYPE"),
        (["STARTTYPE=Boot"], "STARTTYPE"),
        (["STARTSERVICE=Perhaps"], "STARTSERVICE"),
        (["STARTTYPE=Disabled", "STARTSERVICE=Yes"], "contradict"),
    ],
    ids=["another case", "no such type", "neither yes nor no", "disabled and started"],
)
def test_refuses_a_start_that_it_does_not_know(on: Bench, properties: list[str], text: str) -> None:
    assert install(on.machine, VERSION, *properties).status != 0
    check_nothing_left(on.machine)
    texts = [columns[0] for columns in table("LaunchCondition").values()]
    assert any(text in said for said in texts)


@slow
def test_installs_nothing_when_the_start_type_cannot_be_set(on: Bench) -> None:
    failing = Path(_made.name) / "no-start-type.msi"
    packaging.make_msi(version_files(VERSION), VERSION, _DATE, failing, _FAILING_PROGRAM)
    assert msiexec(on.machine, "/i", f'"{windows_path(failing)}"', "STARTTYPE=Automatic").status != 0
    # What takes the service back has no effect under Wine.
    assert not on.machine.file(_FOLDER).exists()
    assert program_entries(on.machine) == {}


@slow
def test_an_upgrade_that_fails_keeps_the_service(on: Bench) -> None:
    install(on.machine)
    change_start_type(on.machine)
    failing = installer(_NEWER, f"{SERVICE}.exe", _FAILING_PROGRAM)
    assert msiexec(on.machine, "/i", f'"{windows_path(failing)}"').status != 0
    assert on.machine.service_state(SERVICE) is not None
    assert start_type(on.machine) == "Automatic"
    assert list(program_entries(on.machine)) == [VERSION]


@slow
def test_refuses_to_replace_a_newer_version(on: Bench) -> None:
    install(on.machine, _NEWER)
    assert install(on.machine).status != 0
    check_installed(on.machine, _NEWER)


@slow
def test_writes_the_update_mode_keeps_it_and_takes_it_along(on: Bench) -> None:
    assert install(on.machine, VERSION, f'DFUAUTOMODE="{_SERVICE_CONTROLLED}"').status == 0
    assert update_mode(on.machine) == ("REG_SZ", _SERVICE_CONTROLLED)
    repair(on.machine)
    assert update_mode(on.machine) == ("REG_SZ", _SERVICE_CONTROLLED)
    on.machine.change_registry({UPDATE_MODE_KEY: {"DFUAutoMode": registry_string("Auto")}})
    install(on.machine, _NEWER)
    assert update_mode(on.machine) == ("REG_SZ", "Auto")
    remove(on.machine, _NEWER)
    check_nothing_left(on.machine)


@slow
def test_leaves_an_update_mode_alone_that_it_has_not_written(on: Bench) -> None:
    on.machine.change_registry({UPDATE_MODE_KEY: {"DFUAutoMode": registry_string("Disabled")}})
    install(on.machine)
    repair(on.machine)
    install(on.machine, _NEWER)
    assert update_mode(on.machine) == ("REG_SZ", "Disabled")
    remove(on.machine, _NEWER)
    assert update_mode(on.machine) == ("REG_SZ", "Disabled")


@slow
def test_an_upgrade_writes_the_update_mode_that_is_given(on: Bench) -> None:
    install(on.machine)
    install(on.machine, _NEWER, f'DFUAUTOMODE="{_SERVICE_CONTROLLED}"')
    assert update_mode(on.machine) == ("REG_SZ", _SERVICE_CONTROLLED)


@slow
def test_does_not_install_beside_a_service_that_was_installed_by_hand(on: Bench) -> None:
    on.machine.demand("sc", "create", SERVICE, "binPath=", r"C:\VeyraLab\VeyraCameraDfuService.exe")
    assert install(on.machine).status != 0
    assert not on.machine.file(_FOLDER).exists()


@slow
@pytest.mark.parametrize("executable", [_FAILING_PROGRAM, _SERVICE_HOLDER], ids=["it fails", "it only says so"])
def test_leaves_nothing_behind_when_the_service_cannot_be_installed(on: Bench, executable: Path) -> None:
    failing = installer(VERSION, f"{SERVICE}.exe", executable)
    assert msiexec(on.machine, "/i", f'"{windows_path(failing)}"').status != 0
    check_nothing_left(on.machine)


@slow
def test_the_installed_service_makes_a_whole_update(on: Bench) -> None:
    plan = UpdatePlan()
    record = on.record_of(InstalledRoad(plan, on.machine, on.peer, VirtualBus(on.peer), on.installation))
    # The road's own copy lies elsewhere: that, and nothing else, has to differ.
    wanted, seen = (path.lower() for path in (EXECUTABLE, _EXECUTABLE))
    found = complaints(record)
    if not record.install_text.strip() and not record.remove_text.strip():
        # Wine 10 gives no console to what the installer starts: nothing is heard of it.
        found = [complaint for complaint in found if ": text: " not in complaint]
    assert [complaint.partition("unquoted path: ")[2] for complaint in found] == [
        f"{wanted} was expected, {seen} was seen"
    ]
    assert sha256(record.flash) == sha256(plan.image)
    check_nothing_left(on.machine)
    # The road ends with the driver's removal.
    on.installation.set_keys(on.peer.port, None)


@slow
def test_the_script_for_a_fleet_installs_and_may_run_again(on: Bench) -> None:
    document = (CHECKOUT / "docs" / "fleet.md").read_text(encoding="utf-8")
    block = document[document.index("    @echo off") :].partition("\n\n")[0]
    lines = [line[4:] for line in block.splitlines()]
    assert lines[1] == r"set SHARE=\\server\veyra"
    share = on.machine.file(r"C:\share")
    share.mkdir()
    image = on.machine.file(r"C:\windows\system32\drivers\KV400Firmware.bin")
    shutil.move(image, share / image.name)
    shutil.copyfile(installer(), share / f"{SERVICE}-{VERSION}.msi")
    lines[1] = r"set SHARE=C:\share"
    script = share / "deploy.cmd"
    script.write_text("\r\n".join(lines).replace("<version>", VERSION) + "\r\n", encoding="ascii")
    try:
        for _ in range(2):
            assert on.machine.run("cmd", "/c", r"C:\share\deploy.cmd", timeout=120).status == 0
            check_installed(on.machine)
            assert image.read_bytes() == (share / image.name).read_bytes()
            assert update_mode(on.machine) == ("REG_SZ", _SERVICE_CONTROLLED)
            assert start_type(on.machine) == "Automatic"
            assert on.machine.wait_for_service_state(SERVICE, "RUNNING", seconds=20) == "RUNNING"
    finally:
        shutil.copyfile(share / image.name, image)
        shutil.rmtree(share)


# The feature "Toast controller".


def test_installs_the_toast_controller_where_the_machine_has_no_other(alone: Bench) -> None:
    assert install(alone.machine).status == 0
    check_installed(alone.machine, toast_controller=True)
    assert remove(alone.machine).status == 0
    check_nothing_left(alone.machine)
    assert alone.machine.registry_values(_TOAST_CLASS) is None


@slow
def test_takes_the_toast_controller_along_with_nothing_left(alone: Bench) -> None:
    # What the event log's own key is missing under Wine comes with the first registration, and stays.
    install(alone.machine)
    remove(alone.machine)
    before = state_of(alone.machine)
    install(alone.machine)
    install(alone.machine, _NEWER)
    remove(alone.machine, _NEWER)
    check_nothing_left(alone.machine)
    assert sorted(state_of(alone.machine) ^ before) == []


@slow
def test_leaves_a_toast_controller_alone_that_lies_in_the_system_folder(alone: Bench) -> None:
    other = alone.machine.file(_OTHER_TOAST_CONTROLLER)
    other.write_bytes(b"another maker's")
    install(alone.machine)
    check_installed(alone.machine)
    assert toast_registration(alone.machine) is None
    remove(alone.machine)
    assert other.read_bytes() == b"another maker's"


def register_another(machine: Machine) -> str:
    """A program of another maker is registered for the class; its path."""
    path = r"c:\windows\system32\cmd.exe"
    values: dict[str, str | None] = {"": registry_string(path), "ServerExecutable": registry_string(path)}
    machine.change_registry({rf"{_TOAST_CLASS}\LocalServer32": values})
    return path


@slow
@pytest.mark.parametrize("properties", [(), ("TOASTCONTROLLER=Yes",)], ids=["by itself", "when it has to come"])
def test_takes_over_no_other_registration(alone: Bench, properties: tuple[str, ...]) -> None:
    other = register_another(alone.machine)
    assert install(alone.machine, VERSION, *properties).status == 0
    assert alone.machine.file(_TOAST_CONTROLLER).exists() is bool(properties)
    assert toast_registration(alone.machine) == other
    assert repair(alone.machine).status == 0
    assert remove(alone.machine).status == 0
    check_nothing_left(alone.machine)
    assert toast_registration(alone.machine) == other


@slow
@pytest.mark.usefixtures("machine_left")
def test_installs_the_toast_controller_beside_another_when_it_has_to(on: Bench) -> None:
    on.machine.change_registry({}, removed=[_TOAST_CLASS])
    assert install(on.machine, VERSION, "TOASTCONTROLLER=Yes").status == 0
    # -install has had the other one register itself.
    assert on.machine.file(_TOAST_CONTROLLER).exists()
    assert toast_registration(on.machine) == _OTHER_TOAST_CONTROLLER.lower()


@slow
def test_leaves_the_toast_controller_out_until_it_is_wanted(alone: Bench) -> None:
    install(alone.machine, VERSION, "TOASTCONTROLLER=No")
    check_installed(alone.machine)
    repair(alone.machine)
    check_installed(alone.machine)
    install(alone.machine, _NEWER)
    check_installed(alone.machine, _NEWER)
    remove(alone.machine, _NEWER)
    check_nothing_left(alone.machine)
    install(alone.machine, VERSION, "TOASTCONTROLLER=No")
    install(alone.machine, _NEWER, "TOASTCONTROLLER=Yes")
    check_installed(alone.machine, _NEWER, toast_controller=True)


@slow
def test_refuses_a_word_about_the_toast_controller_that_it_does_not_know(alone: Bench) -> None:
    assert install(alone.machine, VERSION, "TOASTCONTROLLER=Perhaps").status != 0
    check_nothing_left(alone.machine)


@slow
def test_installs_nothing_when_the_toast_controller_cannot_be_registered(alone: Bench) -> None:
    failing = installer(VERSION, _TOAST_NAME, _FAILING_PROGRAM)
    assert msiexec(alone.machine, "/i", f'"{windows_path(failing)}"').status != 0
    # What takes the service back has no effect under Wine.
    assert not alone.machine.file(_FOLDER).exists()
    assert program_entries(alone.machine) == {}
    assert toast_registration(alone.machine) is None


@slow
def test_repair_registers_the_toast_controller_again(alone: Bench) -> None:
    install(alone.machine)
    alone.machine.change_registry({}, removed=[_TOAST_CLASS])
    alone.machine.file(_TOAST_CONTROLLER).unlink()
    assert repair(alone.machine).status == 0
    check_installed(alone.machine, toast_controller=True)


@slow
@pytest.mark.usefixtures("machine_left")
def test_upgrade_replaces_the_toast_controller_while_the_service_uses_it(alone: Bench) -> None:
    install(alone.machine)
    before = alone.start_service()
    assert alone.machine.processes(_TOAST_NAME) != []
    since = alone.peer.mark()
    assert install(alone.machine, _NEWER).status == 0
    check_installed(alone.machine, _NEWER, toast_controller=True)
    assert alone.wait_for_state(RUNNING, since)["pid"] != before
    assert remove(alone.machine, _NEWER).status == 0
    check_nothing_left(alone.machine)
    assert alone.machine.processes(_TOAST_NAME) == []
    assert alone.machine.crashes() == []


@slow
@pytest.mark.usefixtures("machine_left")
@pytest.mark.parametrize("newer", [True, False], ids=["upgrade", "removal"])
def test_a_toast_controller_that_does_not_leave_is_ended(alone: Bench, newer: bool) -> None:
    install(alone.machine)
    # It waits a minute for its first client.
    staying = subprocess.Popen(
        [str(CHECKOUT / "scripts" / "wine"), _TOAST_CONTROLLER, "-Embedding"],
        env=alone.machine.environment,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
    )
    began = time.monotonic()
    while not alone.machine.processes(_TOAST_NAME) and time.monotonic() < began + 20:
        time.sleep(0.1)
    if newer:
        assert install(alone.machine, _NEWER).status == 0
        check_installed(alone.machine, _NEWER, toast_controller=True)
    else:
        assert remove(alone.machine).status == 0
        check_nothing_left(alone.machine)
    staying.wait(timeout=20)
    assert time.monotonic() < began + 55


def test_the_zip_holds_what_the_installer_installs(tmp_path: Path) -> None:
    package = tmp_path / "package.zip"
    packaging.make_zip(packaging.package_files(BUILD), VERSION, _DATE, package)
    with zipfile.ZipFile(package) as archive:
        held = {name: sha256(archive.read(name)) for name in archive.namelist()}
    folder = f"{SERVICE}-{VERSION}"
    # What the installer does with the toast controller is told in three lines to whoever does it by hand.
    told = (CHECKOUT / "packaging" / "VeyraCameraToastCntl.txt").read_bytes()
    assert len(told.splitlines()) == 3
    assert held.pop(f"{folder}/VeyraCameraToastCntl.txt") == sha256(told)
    assert held == {f"{folder}/{name}": digest for name, digest in package_files().items()}


def test_the_package_has_programs_words_and_the_operators_documents() -> None:
    names = set(packaging.package_files(BUILD))
    traces = {f"trace/{path.name}" for path in (CHECKOUT / "trace").iterdir()}
    pictures = {f"docs/{path.name}" for path in (CHECKOUT / "docs").glob("toast-*.png")}
    documents = {name for name in names if name.startswith("docs/")} - pictures
    policy = {"policy/VeyraCameraDfu.admx", "policy/en-US/VeyraCameraDfu.adml", "policy/de-DE/VeyraCameraDfu.adml"}
    besides = {"README.md", "CHANGELOG.md", "THIRD-PARTY-NOTICES.txt", "VeyraCameraDfuMessages.dll"}
    assert names == {f"{SERVICE}.exe", _TOAST_NAME, _CHECK_NAME, *besides, *traces, *pictures, *documents, *policy}
    assert {"docs/fleet.md", "docs/operations.md", "docs/security.md", "docs/toast-controller.md"} <= documents
    # Nothing for those who change the programs.
    assert not {"docs/architecture.md", "docs/laboratory.md", "docs/scenarios.md", "docs/performance.md"} & documents


def test_the_version_has_one_place() -> None:
    declared = rf"project\(\w+ VERSION {re.escape(VERSION)} "
    assert re.search(declared, (CHECKOUT / "CMakeLists.txt").read_text())
    program = (BUILD / f"{SERVICE}.exe").read_bytes()
    for name in ("FileVersion", "ProductVersion"):
        text, value = (re.escape(f"{words}\0".encode("utf-16-le")) for words in (name, VERSION))
        assert re.search(text + b"\0{0,3}" + value, program)
    numbers = [int(number) for number in VERSION.split(".")]
    words = struct.pack("<HHHH", numbers[1], numbers[0], 0, numbers[2])
    assert struct.pack("<I", 0xFEEF04BD) + b"\0\0\1\0" + 2 * words in program
    assert f'name="Veyra.CameraDfuService" version="{VERSION}.0"'.encode() in program


def test_the_toast_controller_is_small() -> None:
    assert packaging.package_files(BUILD)[_TOAST_NAME].stat().st_size < 600_000


@pytest.mark.parametrize("name", [f"{SERVICE}.exe", _TOAST_NAME, _CHECK_NAME])
def test_the_program_says_what_it_bears(name: str) -> None:
    """Addresses that move, also far; no code in data; a Windows directory that all sessions share."""
    program = packaging.package_files(BUILD)[name].read_bytes()
    (header,) = struct.unpack_from("<I", program, 0x3C)
    (characteristics,) = struct.unpack_from("<H", program, header + 24 + 70)
    assert characteristics & 0x8160 == 0x8160


def test_the_same_files_give_the_same_packages(tmp_path: Path) -> None:
    files = packaging.package_files(BUILD)
    made = []
    for number in range(2):
        for make in (packaging.make_zip, packaging.make_msi):
            made.append(tmp_path / f"{make.__name__}-{number}")
            make(files, VERSION, _DATE, made[-1])
        # A ZIP's times have a grain of two seconds.
        time.sleep(2.1 * (1 - number))
    zip_digest, msi_digest, *again = [sha256(path.read_bytes()) for path in made]
    assert again == [zip_digest, msi_digest]


def test_what_is_missing_is_said_in_one_line(tmp_path: Path) -> None:
    no_build = f"^{tmp_path} is no build folder: No such file or directory$"
    with pytest.raises(packaging.PackageError, match=no_build):
        packaging.product_version(tmp_path)
    toast_controller = rf"{tmp_path}/VeyraCameraToastCntl\.exe"
    check, messages = (rf"{tmp_path}/VeyraCameraDfu{name}" for name in (r"Check\.exe", r"Messages\.dll"))
    missing = rf"^these files are missing: {tmp_path}/{SERVICE}\.exe, {toast_controller}, {check}, {messages}$"
    with pytest.raises(packaging.PackageError, match=missing):
        packaging.package_files(tmp_path)

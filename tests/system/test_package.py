"""The release package: what its installer does to a machine, and that equal sources give equal files."""

import importlib.util
import re
import shutil
import struct
import subprocess
import tempfile
import time
import unittest
import zipfile
from collections.abc import Iterator
from contextlib import contextmanager
from functools import cache
from pathlib import Path
from types import ModuleType

from support import BUILD, CHECKOUT, Bench, bench, complaints, slow
from veyra_lab.demo.road import Road
from veyra_lab.updates.plan import UpdatePlan
from veyra_lab.updates.record import Record
from veyra_lab.windows.installation import EXECUTABLE, UPDATE_MODE_KEY
from veyra_lab.windows.machine import SERVICES_KEY, Machine, Outcome, registry_string, windows_path
from veyra_lab.windows.programs import SERVICE, Programs
from veyra_lab.wire.trace_formats import TraceFormats

_FOLDER = r"C:\windows\VeyraCameraDfu"
_EXECUTABLE = rf"{_FOLDER}\{SERVICE}.exe"
_SERVICE_KEY = rf"{SERVICES_KEY}\{SERVICE}"
_UNINSTALL_KEY = r"HKEY_LOCAL_MACHINE\Software\Microsoft\Windows\CurrentVersion\Uninstall"
_INSTALLER_KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\VeyraCameraDfuService"
_SERVICE_CONTROLLED = "Service Controlled"
_NEWER = "99.0.0"
_DATE = 1_700_000_000
_RUNNING = 4


def _load_packaging() -> ModuleType:
    path = CHECKOUT / "packaging" / "make_package.py"
    described = importlib.util.spec_from_file_location(path.stem, path)
    assert described is not None and described.loader is not None
    module = importlib.util.module_from_spec(described)
    described.loader.exec_module(module)
    return module


packaging = _load_packaging()
VERSION = packaging.product_version(BUILD)
_made = tempfile.TemporaryDirectory()


@cache
def rig() -> Path:
    """The laboratory's rig without its symbols, which would make the installers large."""
    stripped = Path(_made.name) / "winusb.dll"
    subprocess.run(["x86_64-w64-mingw32-strip", "-o", stripped, Programs.of(BUILD).rig], check=True)
    return stripped


@cache
def installer(version: str = VERSION, with_rig: bool = True) -> Path:
    """An installer of the build's files that calls itself this version. Wine cannot run the executable
    without the rig, which has to lie beside it, so it is installed along."""
    files = packaging.package_files(BUILD)
    if with_rig:
        files["winusb.dll"] = rig()
    path = Path(_made.name) / f"{version}-{with_rig}.msi"
    packaging.make_msi(files, version, _DATE, path)
    return path


def msiexec(machine: Machine, *arguments: str) -> Outcome:
    """Windows' installer, without questions."""
    return machine.run("msiexec", *arguments, "/qn", timeout=120)


def install(machine: Machine, version: str = VERSION, *properties: str) -> Outcome:
    """Installs a version; one that is older is upgraded."""
    return msiexec(machine, "/i", windows_path(installer(version)), *properties)


def repair(machine: Machine) -> Outcome:
    """What msiexec /f does; Wine's has no /f."""
    return msiexec(machine, "/i", packaging.product_code(VERSION), "REINSTALL=ALL", "REINSTALLMODE=omus")


def remove(machine: Machine, version: str = VERSION) -> Outcome:
    """Removes a version."""
    return msiexec(machine, "/x", packaging.product_code(version))


def update_mode(machine: Machine) -> tuple[str, str] | None:
    """Type and text of the update mode; None when there is none."""
    return (machine.registry_values(UPDATE_MODE_KEY) or {}).get("DFUAutoMode")


def installed_files(machine: Machine) -> dict[str, bytes]:
    """Every file of the installation folder."""
    folder = machine.file(_FOLDER)
    paths = [path for path in folder.rglob("*") if path.is_file()]
    return {path.relative_to(folder).as_posix(): path.read_bytes() for path in paths}


def program_entry(machine: Machine, version: str) -> dict[str, tuple[str, str]] | None:
    """A version's entry in the list of programs; None when it is not installed."""
    return machine.registry_values(rf"{_UNINSTALL_KEY}\{packaging.product_code(version)}")


def service_keys(machine: Machine) -> list[str]:
    """The services in the registry that have to do with the cameras."""
    listed = machine.demand("reg", "query", SERVICES_KEY)
    return sorted(line.rsplit("\\", 1)[1] for line in listed.splitlines() if "Veyra" in line)


def state_of(machine: Machine) -> set[str]:
    """Every file and folder of drive C, and every key and value of the machine's registry."""
    drive = machine.file("C:\\")
    state = {f"file {path.relative_to(drive)}" for path in drive.rglob("*")}
    with tempfile.TemporaryDirectory() as folder:
        for hive in ("HKLM\\Software", "HKLM\\System\\CurrentControlSet\\Services", "HKCU"):
            exported = Path(folder) / "exported.reg"
            machine.demand("reg", "export", hive, windows_path(exported), "/y")
            key = ""
            for line in exported.read_text("utf-16").splitlines():
                key = line if line.startswith("[") else key
                state.add(f"{key} {line}")
    return state


@contextmanager
def workshop() -> Iterator[Bench]:
    """A machine without an update mode; whatever a test has installed in it is removed."""
    with bench(UpdatePlan(update_mode=None)) as on:
        try:
            yield on
        finally:
            for version in (VERSION, _NEWER):
                if program_entry(on.machine, version):
                    remove(on.machine, version)
            on.machine.change_registry({}, removed=[UPDATE_MODE_KEY])


class InstalledRoad(Road):
    """The road of an update with the service of the installed package."""

    def walk(self) -> Record:
        record = super().walk()
        formats = TraceFormats(CHECKOUT / "trace")
        for event in record.of_service("trace"):
            event["text"] = formats.text(event["group"], event["number"], event["arguments"])
        return record

    def _install(self) -> None:
        self._step("Installing the package")
        said = install(self._machine, VERSION, f"DFUAUTOMODE={_SERVICE_CONTROLLED}").text
        # The program's line; what follows is the service control manager's answer to the installer.
        self._record.install_text = said.partition("\n")[0] + "\n"
        self._record.service_key = self._machine.registry_values(_SERVICE_KEY) or {}

    def _remove(self) -> None:
        self._step("Removing the package")
        self._record.remove_text = remove(self._machine).text
        self._record.state_after_removal = self._machine.wait_for_service_state(SERVICE, None, seconds=20)


class Installer(unittest.TestCase):
    def check_installed(self, machine: Machine, version: str = VERSION) -> None:
        """The files, one service with their path, and the entry in the list of programs."""
        wanted = {name: source.read_bytes() for name, source in packaging.package_files(BUILD).items()}
        self.assertEqual(installed_files(machine), {**wanted, "winusb.dll": rig().read_bytes()})
        self.assertIsNotNone(machine.service_state(SERVICE))
        path = (machine.registry_values(_SERVICE_KEY) or {})["ImagePath"][1]
        self.assertEqual(path.lower(), _EXECUTABLE.lower())
        listed = program_entry(machine, version) or {}
        self.assertEqual(listed.get("DisplayVersion"), ("REG_SZ", version))

    def check_nothing_left(self, machine: Machine) -> None:
        self.assertFalse(machine.file(_FOLDER).exists())
        self.assertIsNone(machine.wait_for_service_state(SERVICE, None, seconds=20))
        self.assertEqual(service_keys(machine), [])
        self.assertIsNone(machine.registry_values(_INSTALLER_KEY))
        for version in (VERSION, _NEWER):
            self.assertIsNone(program_entry(machine, version))

    def start(self, on: Bench) -> None:
        since = on.peer.mark()
        on.machine.demand("sc", "start", SERVICE)
        on.wait_for_state(_RUNNING, since)

    def test_installs_files_and_service_and_removes_both(self) -> None:
        with workshop() as on:
            self.assertEqual(install(on.machine).status, 0)
            self.check_installed(on.machine)
            self.assertEqual(on.machine.service_state(SERVICE), "STOPPED")
            self.assertEqual(service_keys(on.machine), [SERVICE])
            self.start(on)
            on.machine.run("sc", "stop", SERVICE)
            self.assertEqual(on.machine.wait_for_service_state(SERVICE, "STOPPED", seconds=20), "STOPPED")
            self.assertEqual(remove(on.machine).status, 0)
            self.check_nothing_left(on.machine)

    @slow
    def test_removal_leaves_nothing_behind(self) -> None:
        with workshop() as on:
            # Every start registers the toast controller, which is no part of the package.
            on.machine.run(EXECUTABLE, "-none")
            before = state_of(on.machine)
            install(on.machine, VERSION, f"DFUAUTOMODE={_SERVICE_CONTROLLED}")
            install(on.machine, _NEWER)
            self.assertGreater(len(state_of(on.machine) - before), 20)
            remove(on.machine, _NEWER)
            self.check_nothing_left(on.machine)
            self.assertEqual(sorted(state_of(on.machine) ^ before), [])

    def test_removal_stops_the_service_first(self) -> None:
        with workshop() as on:
            install(on.machine)
            self.start(on)
            self.assertEqual(remove(on.machine).status, 0)
            self.check_nothing_left(on.machine)
            self.assertEqual(on.machine.crashes(), [])

    def test_removal_deletes_the_service_also_when_the_program_fails(self) -> None:
        with workshop() as on:
            install(on.machine)
            # Without the rig the program does not come to its -remove under Wine.
            on.machine.file(rf"{_FOLDER}\winusb.dll").unlink()
            self.assertEqual(remove(on.machine).status, 0)
            self.check_nothing_left(on.machine)
            on.machine.forget_crashes()

    def test_repair_brings_back_what_is_lost_and_installs_nothing_twice(self) -> None:
        with workshop() as on:
            install(on.machine)
            self.assertEqual(repair(on.machine).status, 0)
            self.check_installed(on.machine)
            on.machine.file(rf"{_FOLDER}\README.md").unlink()
            on.machine.demand("sc", "delete", SERVICE)
            self.assertEqual(repair(on.machine).status, 0)
            self.check_installed(on.machine)
            self.assertEqual(service_keys(on.machine), [SERVICE])

    def test_upgrade_replaces_the_older_version(self) -> None:
        with workshop() as on:
            install(on.machine)
            self.start(on)
            self.assertEqual(install(on.machine, _NEWER).status, 0)
            self.check_installed(on.machine, _NEWER)
            self.assertEqual(on.machine.service_state(SERVICE), "STOPPED")
            self.assertIsNone(program_entry(on.machine, VERSION))
            self.assertIsNone(update_mode(on.machine))
            self.assertEqual(remove(on.machine, _NEWER).status, 0)
            self.check_nothing_left(on.machine)

    def test_refuses_to_replace_a_newer_version(self) -> None:
        with workshop() as on:
            install(on.machine, _NEWER)
            self.assertNotEqual(install(on.machine).status, 0)
            self.check_installed(on.machine, _NEWER)

    def test_writes_the_update_mode_keeps_it_and_takes_it_along(self) -> None:
        with workshop() as on:
            self.assertEqual(install(on.machine, VERSION, f"DFUAUTOMODE={_SERVICE_CONTROLLED}").status, 0)
            self.assertEqual(update_mode(on.machine), ("REG_SZ", _SERVICE_CONTROLLED))
            repair(on.machine)
            self.assertEqual(update_mode(on.machine), ("REG_SZ", _SERVICE_CONTROLLED))
            on.machine.change_registry({UPDATE_MODE_KEY: {"DFUAutoMode": registry_string("Auto")}})
            install(on.machine, _NEWER)
            self.assertEqual(update_mode(on.machine), ("REG_SZ", "Auto"))
            remove(on.machine, _NEWER)
            self.check_nothing_left(on.machine)

    def test_leaves_an_update_mode_alone_that_it_has_not_written(self) -> None:
        with workshop() as on:
            on.machine.change_registry({UPDATE_MODE_KEY: {"DFUAutoMode": registry_string("Disabled")}})
            install(on.machine)
            repair(on.machine)
            install(on.machine, _NEWER)
            self.assertEqual(update_mode(on.machine), ("REG_SZ", "Disabled"))
            remove(on.machine, _NEWER)
            self.assertEqual(update_mode(on.machine), ("REG_SZ", "Disabled"))

    def test_an_upgrade_writes_the_update_mode_that_is_given(self) -> None:
        with workshop() as on:
            install(on.machine)
            install(on.machine, _NEWER, f"DFUAUTOMODE={_SERVICE_CONTROLLED}")
            self.assertEqual(update_mode(on.machine), ("REG_SZ", _SERVICE_CONTROLLED))

    def test_does_not_install_beside_a_service_that_was_installed_by_hand(self) -> None:
        with workshop() as on:
            on.machine.demand("sc", "create", SERVICE, "binPath=", r"C:\VeyraLab\VeyraCameraDfuService.exe")
            self.assertNotEqual(install(on.machine).status, 0)
            self.assertFalse(on.machine.file(_FOLDER).exists())

    def test_leaves_nothing_behind_when_the_service_cannot_be_installed(self) -> None:
        with workshop() as on:
            # Without the rig the program does not come to its -install under Wine.
            self.assertNotEqual(msiexec(on.machine, "/i", windows_path(installer(with_rig=False))).status, 0)
            self.check_nothing_left(on.machine)
            on.machine.forget_crashes()

    def test_the_installed_service_makes_a_whole_update(self) -> None:
        plan = UpdatePlan()
        with workshop() as on:
            record = InstalledRoad(plan, on.machine, on.peer, on.installation).walk()
            # The road's own copy lies elsewhere: that, and nothing else, has to differ.
            wanted, seen = (path.lower() for path in (EXECUTABLE, _EXECUTABLE))
            self.assertEqual(
                [complaint.partition("unquoted path: ")[2] for complaint in complaints(record)],
                [f"{wanted} was expected, {seen} was seen"],
            )
            self.assertEqual(record.flash, plan.image)
            self.check_nothing_left(on.machine)


class Packages(unittest.TestCase):
    def folder(self) -> Path:
        """A folder for this test."""
        made = tempfile.TemporaryDirectory()
        self.addCleanup(made.cleanup)
        return Path(made.name)

    def test_the_zip_holds_what_the_installer_installs(self) -> None:
        package = self.folder() / "package.zip"
        packaging.make_zip(packaging.package_files(BUILD), VERSION, _DATE, package)
        with zipfile.ZipFile(package) as archive:
            held = {name: archive.read(name) for name in archive.namelist()}
        self.assertEqual(
            held,
            {
                f"{SERVICE}-{VERSION}/{name}": source.read_bytes()
                for name, source in packaging.package_files(BUILD).items()
            },
        )

    def test_the_package_has_program_trace_formats_and_documents(self) -> None:
        names = set(packaging.package_files(BUILD))
        wanted = {f"{SERVICE}.exe", "README.md", "CHANGELOG.md", "docs/operations.md", "trace/FDUService.tmf"}
        self.assertLessEqual(wanted, names)
        for folder, kind in (("docs", "md"), ("trace", "tmf")):
            wanted = {f"{folder}/{path.name}" for path in (CHECKOUT / folder).glob(f"*.{kind}")}
            self.assertEqual({name for name in names if name.startswith(f"{folder}/")}, wanted)

    def test_the_version_has_one_place(self) -> None:
        declared = rf"project\(\w+ VERSION {re.escape(VERSION)} "
        self.assertRegex((CHECKOUT / "CMakeLists.txt").read_text(), declared)
        program = (BUILD / f"{SERVICE}.exe").read_bytes()
        for name in ("FileVersion", "ProductVersion"):
            text, value = (re.escape(f"{words}\0".encode("utf-16-le")) for words in (name, VERSION))
            self.assertRegex(program, text + b"\0{0,3}" + value)
        numbers = [int(number) for number in VERSION.split(".")]
        words = struct.pack("<HHHH", numbers[1], numbers[0], 0, numbers[2])
        self.assertIn(struct.pack("<I", 0xFEEF04BD) + b"\0\0\1\0" + 2 * words, program)
        self.assertIn(f'name="Veyra.CameraDfuService" version="{VERSION}.0"'.encode(), program)

    def test_the_same_files_give_the_same_packages(self) -> None:
        folder = self.folder()
        files = packaging.package_files(BUILD)
        for make in (packaging.make_zip, packaging.make_msi):
            packages = [folder / f"{make.__name__}-{number}" for number in range(2)]
            for package in packages:
                make(files, VERSION, _DATE, package)
                # A ZIP's times have a grain of two seconds.
                time.sleep(2.1)
            self.assertEqual(packages[0].read_bytes(), packages[1].read_bytes())

    def test_what_is_missing_is_said_in_one_line(self) -> None:
        folder = self.folder()
        no_build = f"^{folder} is no build folder: No such file or directory$"
        with self.assertRaisesRegex(packaging.PackageError, no_build):
            packaging.product_version(folder)
        missing = rf"^these files are missing: {folder}/{SERVICE}\.exe$"
        with self.assertRaisesRegex(packaging.PackageError, missing):
            packaging.package_files(folder)

    @slow
    def test_two_builds_give_the_same_executable(self) -> None:
        programs = []
        for name in ("one", "the other, in a longer path"):
            tree = self.folder() / name
            tree.mkdir()
            for source in ("CMakeLists.txt", "CMakePresets.json", "cmake", "src", "lab", "scripts"):
                copy = shutil.copytree if (CHECKOUT / source).is_dir() else shutil.copy2
                copy(CHECKOUT / source, tree / source)
            configure = ["cmake", "--preset", "windows-release", "-DBUILD_TESTING=OFF"]
            for command in (configure, ["cmake", "--build", "build/windows-release", "--target", SERVICE]):
                answer = subprocess.run(command, cwd=tree, capture_output=True, text=True, check=False)
                self.assertEqual(answer.returncode, 0, answer.stdout + answer.stderr)
            programs.append((tree / "build" / "windows-release" / f"{SERVICE}.exe").read_bytes())
        self.assertEqual(len(programs[0]), len(programs[1]))
        self.assertTrue(programs[0] == programs[1], "the two executables differ")

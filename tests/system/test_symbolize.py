"""scripts/symbolize: from what Windows tells of a crash to function and line. The crashes are seeded in the sources, so it is
the sources that say where they are, and not the symbols."""

import re
import shutil
import struct
import subprocess
import sys
import time
import zipfile
from collections.abc import Callable, Iterator
from contextlib import suppress
from dataclasses import dataclass
from pathlib import Path

import pytest
from support import BUILD, CHECKOUT, PREFIX, Bench, Shared, check_refusal, discard_the_machine, run_script, slow
from veyra_lab.buses.virtual import VirtualBus
from veyra_lab.windows.installation import EXECUTABLE
from veyra_lab.windows.machine import Machine, MachineError, windows_path
from veyra_lab.windows.programs import SERVICE
from veyra_lab.wire.events import TOAST, PeerError

sys.path.insert(0, str(CHECKOUT / "scripts"))

from workbench import crashes  # noqa: E402

_PROGRAM = f"{SERVICE}.exe"
_TOAST_CONTROLLER = "VeyraCameraToastCntl.exe"
_RECORDER = BUILD / "tests" / "system" / "crash_recorder.exe"
_AEDEBUG_KEY = r"HKEY_LOCAL_MACHINE\Software\Microsoft\Windows NT\CurrentVersion\AeDebug"
_CONTROL_KEY = r"HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Control"
_TOAST_CLASS = r"HKEY_LOCAL_MACHINE\SOFTWARE\Classes\CLSID\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}"
_SEEDED_KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\VeyraSeeded"
_RECORD = r"C:\crash.txt"
_VERSION = re.search(r"VERSION (\d+\.\d+\.\d+)", (CHECKOUT / "CMakeLists.txt").read_text())[1] + ".0"  # type: ignore[index]

_WORDS = """\
Faulting application name: {program}, version: {version}, time stamp: 0x00000000
Faulting module name: {module}, version: {module_version}, time stamp: 0x00000000
Exception code: 0x{code}
Fault offset: 0x{offset}
Faulting process id: 0x4d2
Faulting application start time: 0x01dc5c7a1b2c3d4e
Faulting application path: C:\\Windows\\VeyraCameraDfu\\{program}
Faulting module path: C:\\Windows\\VeyraCameraDfu\\{module}
Report Id: 5f3c1d9a-0b7e-4a59-9a40-7a3a0c0d7b11
"""
_GERMAN_WORDS = """\
Name der fehlerhaften Anwendung: {program}, Version: {version}, Zeitstempel: 0x00000000
Name des fehlerhaften Moduls: {module}, Version: {module_version}, Zeitstempel: 0x00000000
Ausnahmecode: 0x{code}
Fehleroffset: 0x{offset}
ID des fehlerhaften Prozesses: 0x4d2
"""
_XML = (
    "<Events><Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System><EventID>1000</EventID></System>"
    "<EventData><Data>{program}</Data><Data>{version}</Data><Data>00000000</Data><Data>{module}</Data>"
    "<Data>{module_version}</Data><Data>00000000</Data><Data>{code}</Data><Data>{offset}</Data><Data>4d2</Data>"
    "</EventData></Event></Events>"
)


@dataclass(frozen=True)
class Place:
    """A line of the sources, by words that stand in it alone, and the function that it is in. `stage` is when it runs."""

    file: str
    words: str
    function: str
    stage: str

    @property
    def number(self) -> int:
        return PLACES.index(self) + 1

    @property
    def line(self) -> int:
        lines = (CHECKOUT / self.file).read_text(encoding="utf-8").splitlines()
        (line,) = [number for number, text in enumerate(lines, 1) if self.words in text]
        return line


PLACES = (
    Place("src/service/CommandLine.cpp", 'Print(L"%ls is installed.', "Install", "-install"),
    Place("src/service/FDUService.cpp", "watcher_.AddFilter(kVendorText", "FDUService::FDUService", "start"),
    Place("src/service/FDUService.cpp", "promptServer_ = std::make_shared", "FDUService::SetUpPrompt", "start"),
    Place("src/service/FDUService.cpp", 'WriteEventLogEntry(L"KV400Cam', "FDUService::OnStart", "start"),
    Place("src/diagnostics/TraceProvider.cpp", "controlPointer = &controlBlock;", "TraceProvider::Register", "start"),
    Place("src/service/DFUServiceBase.cpp", "filter.dbcc_devicetype =",
          "DFUServiceBase::RegisterForDeviceNotifications", "start"),
    Place("src/prompt/CSink.cpp", "const HRESULT result = connectionPoint_->Advise", "CSink::Advise", "start"),
    Place("src/service/UpdateModeSetting.cpp", "DWORD size = sizeof text;", "UpdateModeSetting::IsServiceControlled",
          "plug"),
    Place("src/camera/CameraDevicesFactory.cpp", "DeviceSources sources;", "CameraDevicesFactory::Enumerate", "plug"),
    Place("src/camera/ExtensionUnitKsControl.cpp", "probe.NodeId = node;", "ExtensionUnitKsControl::TryNode", "plug"),
    Place("src/camera/KV400UpdatableDevice.cpp", "pipe_ = std::make_shared<FirmwareCommandPipe>",
          "KV400UpdatableDevice::ReadInformationBlock", "plug"),
    Place("src/service/FDUService.cpp", "const std::wstring cameraVersion = camera", "FDUService::OnCameraArrival",
          "plug"),
    Place("src/service/FDUService.cpp", "versionText = win32::VersionText", "FDUService::ReadImageVersion", "plug"),
    # Not in what the user's answer calls: COM catches what crashes there.
    Place("src/service/KeepAlive.cpp", "KeepAlive& keepAlive = **owner;", "KeepAlive::WorkItem", "start"),
    Place("src/dfu/WinUsbControlEndpoint.cpp", "packet.Index = interfaceNumber_;",
          "dfu::WinUsbControlEndpoint::Transfer", "answer"),
    Place("src/dfu/WinUsbDfuConnection.cpp", "if (configurationHeader_.bNumInterfaces",
          "dfu::WinUsbDfuConnection::SelectDfuInterface", "answer"),
    Place("src/dfu/DfuCommand.cpp", "const bool isOk =", "dfu::DfuCommand::WaitForState", "answer"),
    Place("src/monitor/CUninstallMonitor.cpp", "const std::wstring parametersPath", "CUninstallMonitor::Scan", "answer"),
    Place("toast/registration/RegistryChanges.cpp", "const LSTATUS status = SetValue(value);",
          "toast::RegistryChanges::Write", "/RegServer"),
    Place("toast/registration/RegistrationPlan.cpp", "Plan whole;", "toast::RegistrationPlan", "/RegServer"),
)  # fmt: skip


@pytest.fixture(scope="module")
def seeded(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The build folder of the product with a crash at each place, built as what ships is."""
    tree = tmp_path_factory.mktemp("seeded")
    for source in ("CMakeLists.txt", "CMakePresets.json", "cmake", "src", "toast", "lab", "packaging", "scripts"):
        copy = shutil.copytree if (CHECKOUT / source).is_dir() else shutil.copy2
        copy(CHECKOUT / source, tree / source)
    for place in PLACES:
        path = tree / place.file
        lines = path.read_text(encoding="utf-8").splitlines(keepends=True)
        # No two are alike, so the compiler makes no one of them. The rest of the line stays on it.
        crash = f'if (seeded::Is({place.number})) {{ asm volatile("movl ${place.number}, 0"); }} '
        indent = len(lines[place.line - 1]) - len(lines[place.line - 1].lstrip())
        lines[place.line - 1] = " " * indent + crash + lines[place.line - 1].lstrip()
        path.write_text("".join(lines), encoding="utf-8")
    header = CHECKOUT / "tests" / "system" / "Seeded.h"
    for command in (
        ["cmake", "--preset", "windows-release", "-DBUILD_TESTING=OFF", f"-DCMAKE_CXX_FLAGS=-include {header}"],
        ["cmake", "--build", "build/windows-release", "--target", SERVICE, "toast_controller"],
    ):
        answer = subprocess.run(command, cwd=tree, capture_output=True, text=True, check=False)
        assert answer.returncode == 0, answer.stdout + answer.stderr
    return tree / "build" / "windows-release"


def SHARED(machine: Machine) -> Bench:
    # Wine ends a service that crashes before it has met its manager after 10 s, in the middle of the record; Windows does
    # after 30 s. Wine reads it when it boots, and as a text where Windows has a number.
    machine.change_registry({_CONTROL_KEY: {"ServicesPipeTimeout": '"30000"'}})
    machine.reboot()
    return Bench(machine)


@pytest.fixture
def on(shared: Shared[Bench], seeded: Path) -> Iterator[Bench]:
    """A machine with the seeded service in the place of what ships, and Windows' record of a crash."""
    on = shared.get()
    recorder = rf"{windows_path(_RECORDER)} {_RECORD} %ld %ld".replace("\\", "\\\\")
    on.machine.change_registry({_AEDEBUG_KEY: {"Debugger": f'"{recorder}"', "Auto": '"1"'}})
    executable = on.machine.file(EXECUTABLE)
    executable.unlink()
    shutil.copyfile(seeded / _PROGRAM, executable)
    shutil.copyfile(seeded / _TOAST_CONTROLLER, on.machine.file(rf"C:\{_TOAST_CONTROLLER}"))
    for name in (_RECORD, f"{_RECORD}.dmp"):
        on.machine.file(name).unlink(missing_ok=True)
    yield on
    on.machine.change_registry({}, removed=[_SEEDED_KEY])
    on.peer.dismiss(TOAST, seconds=20)
    on.clear()


@pytest.fixture(scope="module", autouse=True)
def machine_left() -> Iterator[None]:
    """No other test finds this record of crashes, or this patience: its machine is made anew."""
    yield
    discard_the_machine()
    if Machine(PREFIX).file(_RECORD).exists():
        shutil.rmtree(PREFIX)


def recorded(machine: Machine, seconds: float) -> dict[str, str] | None:
    """What Windows would record of the crash, when it has happened within the time."""
    path = machine.file(_RECORD)
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        # The line's end is written last.
        if path.exists() and (line := path.read_text(encoding="ascii")).endswith("\n"):
            fields = line.split()
            names = ("program", "version", "module", "module_version", "code", "offset")
            assert len(fields) == len(names), line
            return dict(zip(names, fields, strict=True))
        time.sleep(0.1)
    return None


def crash(on: Bench, place: Place) -> dict[str, str]:
    """Goes the road until the program crashes; the record."""
    on.machine.change_registry({_SEEDED_KEY: {"Place": f"dword:{place.number:08x}"}})
    if place.stage == "/RegServer":
        # An earlier place's -install has registered the laboratory's own, beside which the other one registers nothing.
        on.machine.change_registry({}, removed=[_TOAST_CLASS])
        steps: list[Callable[[], object]] = [lambda: on.machine.run(rf"C:\{_TOAST_CONTROLLER}", "/RegServer")]
    else:
        steps = [lambda: on.machine.run(EXECUTABLE, "-install")]
        if place.stage in ("plug", "answer"):
            steps += [on.start_service, lambda: VirtualBus(on.peer).plug(0)]
        elif place.stage == "start":
            steps += [lambda: on.machine.run("sc", "start", SERVICE)]
        if place.stage == "answer":
            steps += [lambda: asked(on), lambda: on.peer.command(TOAST, "respond", code=1)]
    for step in steps[:-1]:
        step()
        if record := recorded(on.machine, 0.2):
            return record
    with suppress(PeerError, MachineError):
        steps[-1]()
    record = recorded(on.machine, 30)
    assert record is not None, "nothing has crashed"
    return record


def asked(on: Bench) -> None:
    """Waits until the user is asked."""
    on.peer.follow(
        lambda event: event["event"] == "prompt-call" and event["method"] == "ShowUpdatePrompt",
        "the question",
        since=0,
        quiet=20,
    )


def told(symbols: Path, what: Path | str) -> list[str]:
    """What scripts/symbolize says, line by line."""
    done = run_script("symbolize", str(what), "--symbols", str(symbols))
    assert (done.returncode, done.stderr) == (0, ""), done.stdout
    return done.stdout.splitlines()


def innermost(lines: list[str]) -> str:
    """The place of the first frame."""
    return lines[1].removeprefix("   0  ").removesuffix(", inlined into")


@slow
@pytest.mark.parametrize("place", PLACES, ids=lambda place: place.function)
def test_finds_a_crash(on: Bench, seeded: Path, tmp_path: Path, place: Place) -> None:
    record = crash(on, place)
    assert record["code"] == "c0000005"
    program = _TOAST_CONTROLLER if place.file.startswith("toast/") else _PROGRAM
    assert (record["module"].lower(), record["module_version"]) == (program.lower(), _VERSION)
    said = []
    for name, text in (("words", _WORDS), ("German", _GERMAN_WORDS), ("xml", _XML)):
        event = tmp_path / name
        # wevtutil writes UTF-16 where its output is a file's.
        event.write_text(text.format(**record), encoding="utf-16" if name == "German" else "utf-8")
        said.append(told(seeded, event))
    assert said[0] == said[1] == said[2]
    # Of a function that is nobody else's the symbols have the name without some or all of its scopes.
    *scopes, name = place.function.split("::")
    known = ["::".join(scopes[first:]) + "::" for first in range(len(scopes))]
    scope = "|".join(map(re.escape, [*known, "(anonymous namespace)::"]))
    function = rf"(?:{scope})?{re.escape(name)}(?:\(.*\)(?: const)?)?"
    wanted = rf"{function}  {re.escape(place.file)}:{place.line}"
    assert re.fullmatch(wanted, innermost(said[0])), said[0]
    dump = on.machine.file(f"{_RECORD}.dmp")
    assert innermost(told(seeded, dump)) == innermost(said[0])


_FRENCH_WORDS = """\
Nom de l’application défaillante {program}, version : {version}, horodatage : 0x00000000
Nom du module défaillant : {module}, version : {module_version}, horodatage : 0x00000000
Code d’exception : 0x{code}
Décalage d’erreur : 0x{offset}
ID du processus défaillant : 0x4d2
"""
_JAPANESE_WORDS = """\
障害が発生しているアプリケーション名: {program}、バージョン: {version}、タイム スタンプ: 0x00000000
障害が発生しているモジュール名: {module}、バージョン: {module_version}、タイム スタンプ: 0x00000000
例外コード: 0x{code}
障害オフセット: 0x{offset}
"""


@pytest.mark.parametrize("words", [_WORDS, _GERMAN_WORDS, _FRENCH_WORDS, _JAPANESE_WORDS, _XML])
def test_reads_an_event_in_any_language(words: str) -> None:
    """The crash of another program's module in between is one of its own."""
    events = ""
    wanted = []
    for module, offset in ((_PROGRAM, 0x1DC4F), ("ntdll.dll", 0x2A), (_TOAST_CONTROLLER, 0x5000)):
        fields = {"program": _PROGRAM, "version": "1.0.0.0", "module": module, "module_version": "2.3.4.5"}
        events += words.format(**fields, code="c0000005", offset=f"{offset:016x}")
        wanted.append(crashes.Crash([crashes.Frame(module, offset)], 0xC0000005, "2.3.4.5"))
    assert crashes.of_text(events.replace("\n", "\r\n")) == wanted


def test_tells_the_place_of_an_offset() -> None:
    offset = offset_of("KeepAlive::WorkItem")
    said = told(BUILD, f"{_PROGRAM}+{offset:#x}")
    assert said[0] == f"{_PROGRAM}+{offset:#x}"
    assert re.fullmatch(r"   0  KeepAlive::WorkItem\(void\*\)  src/service/KeepAlive\.cpp:\d+", said[1])


def offset_of(function: str) -> int:
    """Where a function begins in the service, by nm."""
    debug = BUILD / f"{_PROGRAM}.debug"
    command = ["x86_64-w64-mingw32-nm", "--demangle", debug]
    listed = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    (line,) = [line for line in listed.splitlines() if re.search(rf" [Tt] {re.escape(function)}\(", line)]
    return int(line.split()[0], 16) - 0x140000000


def test_a_return_address_is_told_as_the_call(tmp_path: Path) -> None:
    """In a stack, all but the innermost are where a call returns to: what stands there may be another line's."""
    offset = offset_of("KeepAlive::WorkItem")
    stack = tmp_path / "stack.txt"
    stack.write_text(f"0: {_PROGRAM}+0x{offset:x}\n1: VeyraCameraDfuService+0x{offset + 1:x}\n2: ntdll.dll+0x1234\n")
    said = told(BUILD, stack)
    assert said[2] == said[1].replace("   0  ", "   1  ")
    assert said[3] == "   2  ntdll.dll+0x1234"


@pytest.mark.parametrize("name", ["a folder", "a ZIP"])
def test_takes_the_symbols_of_a_release(tmp_path: Path, name: str) -> None:
    symbols = BUILD
    if name == "a ZIP":
        symbols = tmp_path / "symbols.zip"
        with zipfile.ZipFile(symbols, "w") as archive:
            for file in (_PROGRAM, f"{_PROGRAM}.debug"):
                archive.write(BUILD / file, f"any folder/{file}")
    assert "src/service/KeepAlive.cpp" in told(symbols, f"{_PROGRAM}+{offset_of('KeepAlive::WorkItem'):#x}")[1]


def check_failure(because: str, *arguments: str, status: int = 2) -> None:
    done = run_script("symbolize", *arguments)
    check_refusal((done.returncode, "", done.stderr), because, status)


def test_says_in_one_line_why_it_tells_nothing(tmp_path: Path) -> None:
    other = tmp_path / "other.txt"
    fields = {"program": _PROGRAM, "version": "1.0.0.0", "module": _PROGRAM, "module_version": "0.9.0.0"}
    other.write_text(_WORDS.format(**fields, code="c0000005", offset=f"{0x1234:016x}"))
    check_failure(f"the crash is of {_PROGRAM} 0.9.0.0, the symbols are of {_VERSION}", str(other))
    other.write_text("nothing of the kind")
    check_failure("other.txt tells of no crash", str(other))
    check_failure("has no symbols", "ntdll.dll+0x1234", "--symbols", str(tmp_path))
    check_failure("has no symbols", "ntdll.dll+0x1234", "--symbols", "/no/such")
    check_failure("is no ZIP and no folder", "ntdll.dll+0x1234", "--symbols", str(other))
    check_failure("File name too long", "ntdll.dll+0x1234", "--symbols", 5000 * "x")
    # A question with an answer: it is none of these programs.
    check_failure("no place of VeyraCameraDfu", "ntdll.dll+0x1234", status=1)


def test_says_in_one_line_what_is_broken_in_the_symbols(tmp_path: Path) -> None:
    symbols = tmp_path / "symbols.zip"
    where = (f"{_PROGRAM}+0x1234", "--symbols", str(symbols))
    with zipfile.ZipFile(symbols, "w") as archive:
        archive.writestr(f"{_PROGRAM}.debug", b"x")
    check_failure(f"{_PROGRAM}.debug is no program", *where)
    with zipfile.ZipFile(symbols, "w", zipfile.ZIP_DEFLATED) as archive:
        archive.writestr(f"{_PROGRAM}.debug", bytes(range(256)) * 9)
    content = bytearray(symbols.read_bytes())
    start = 30 + len(f"{_PROGRAM}.debug")
    symbols.write_bytes(content[:start] + b"\xff" * 20 + content[start + 20 :])
    check_failure("symbols.zip cannot be unpacked", *where)
    # Bit 0 of the flags, in the entry itself and in the directory: it is encrypted.
    content[6] |= 1
    content[content.index(b"PK\1\2") + 8] |= 1
    symbols.write_bytes(content)
    check_failure("symbols.zip cannot be unpacked", *where)


@slow
def test_says_in_one_line_that_a_dump_is_none(tmp_path: Path) -> None:
    other = tmp_path / "other.dmp"
    other.write_bytes(b"MDMP" + struct.pack("<I", 0))
    check_failure("lldb finds no modules in other.dmp", str(other))


@pytest.mark.parametrize(
    ("arguments", "reason"),
    [
        ((), "the following arguments are required: WHAT"),
        (("/no/such",), "neither a file nor a program with an offset"),
        ((5000 * "x",), "neither a file nor a program with an offset"),
        (("ntdll.dll+0x1234", "--symbols"), "--symbols: expected one argument"),
    ],
    ids=["nothing", "no file", "a long word", "no ZIP"],
)
def test_refuses_wrong_usage_in_one_line(arguments: tuple[str, ...], reason: str) -> None:
    done = run_script("symbolize", *arguments)
    check_refusal((done.returncode, done.stdout, done.stderr), reason)

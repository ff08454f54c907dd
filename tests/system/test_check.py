"""VeyraCameraDfuCheck.exe, the companion of the service: what it says of machines in different states, and that it only
reads."""

import json
import re
import shutil
import subprocess
import tempfile
from collections.abc import Callable, Iterator
from concurrent.futures import Future, ThreadPoolExecutor
from contextlib import contextmanager, suppress
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

import check_program
import pytest
from check_program import Said
from support import BUILD, CHECKOUT, Bench, Shared, check_refusal
from veyra_lab.windows.image import default_image, sha256, with_version
from veyra_lab.windows.installation import EXECUTABLE, FOLDER, SERVICE_CONTROLLED, UPDATE_MODE_KEY
from veyra_lab.windows.machine import Machine, Outcome, registry_string, windows_path
from veyra_lab.windows.programs import SERVICE
from veyra_lab.wire.events import RIG, TOAST

IMAGE_VERSION = "5.10.3.0"
_FILE_IN_PLACE = r"C:\Veyra.exe"
_BLANKS = r"C:\Veyra Lab"
_CLASS = r"HKEY_LOCAL_MACHINE\SOFTWARE\Classes\CLSID\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}"
_TOAST_PROGRAM = r"C:\windows\system32\VeyraCameraToastCntl.exe"
_IMAGE = r"C:\windows\system32\drivers\KV400Firmware.bin"
_NAMESAKE = "VeyraCameraDFU"
_WINE_DIFFERENCES = CHECKOUT / "tests" / "system" / "windows_probes_under_wine.json"
_LOCAL_SERVICE = r"NT AUTHORITY\LocalService"
# Under Wine each file belongs to the user who runs the tests, who is no administrator there: on Windows nobody is told.
_OF_WINE = {"service-writable", "toast-controller-writable"}


@contextmanager
def _bench(machine: Machine) -> Iterator[Bench]:
    with Bench(machine) as bench, check_program.installed(bench):
        yield bench


# One installation sees all of them.
SHARED = _bench


@pytest.fixture
def on(shared: Shared[Bench]) -> Iterator[Bench]:
    """A machine with image, update mode and a toast controller that is not registered, without the service."""
    bench = shared.get()
    yield bench
    bench.clear()
    bench.installation.put_image(None)
    bench.installation.put_image(default_image())
    bench.installation.set_keys(bench.peer.port, SERVICE_CONTROLLED)
    assert bench.peer.dismiss(TOAST, seconds=20)
    bench.installation.put_toast_server(False)
    bench.machine.change_registry({}, removed=[_CLASS])
    bench.installation.put_toast_server(True)
    bench.machine.file(_FILE_IN_PLACE).unlink(missing_ok=True)
    shutil.rmtree(bench.machine.file(_BLANKS), ignore_errors=True)
    bench.machine.file(FOLDER).chmod(0o755)


def install(on: Bench) -> None:
    assert on.machine.run(EXECUTABLE, "-install").text == f"{SERVICE} is installed.\n"


def run_service(on: Bench) -> None:
    """Installs the service and starts it; the toast controller is registered and runs then."""
    on.peer.set_stage({"trace": None, "cameras": []})
    install(on)
    on.start_service()


def create(on: Bench, *options: str, path: str = EXECUTABLE) -> None:
    """Installs it with other options than its own."""
    on.machine.demand("sc", "create", SERVICE, "binPath=", path, *options)


def with_account(on: Bench, *options: str, path: str = EXECUTABLE) -> None:
    create(on, "obj=", _LOCAL_SERVICE, *options, path=path)


def another_account(on: Bench) -> None:
    create(on)


def stopped(on: Bench) -> None:
    with_account(on)


def disabled(on: Bench) -> None:
    with_account(on, "start=", "disabled")


def path_with_blanks(on: Bench) -> str:
    path = rf"{_BLANKS}\{SERVICE}.exe"
    on.machine.file(_BLANKS).mkdir()
    shutil.copyfile(on.machine.file(EXECUTABLE), on.machine.file(path))
    return path


def unquoted(on: Bench) -> None:
    with_account(on, path=path_with_blanks(on))


def replaced(on: Bench) -> None:
    unquoted(on)
    on.machine.file(_FILE_IN_PLACE).write_bytes(b"MZ")


def program_missing(on: Bench) -> None:
    with_account(on, path=rf"{FOLDER}\Nowhere\{SERVICE}.exe")


def writable_by_all(on: Bench) -> None:
    stopped(on)
    on.machine.file(FOLDER).chmod(0o777)


def beside_a_namesake(on: Bench) -> None:
    stopped(on)
    on.machine.demand("sc", "create", _NAMESAKE, "binPath=", EXECUTABLE)


def update_mode(text: str | None) -> Callable[[Bench], None]:
    def prepare(on: Bench) -> None:
        run_service(on)
        value = None if text is None else registry_string(text)
        on.machine.change_registry({UPDATE_MODE_KEY: {"DFUAutoMode": value}})

    return prepare


def image(content: bytes | None, *, folder: bool = False) -> Callable[[Bench], None]:
    def prepare(on: Bench) -> None:
        run_service(on)
        on.installation.put_image(content, folder=folder)

    return prepare


def image_of_one_user(on: Bench) -> None:
    """As one that was moved into place: its list of who may read it came along."""
    run_service(on)
    on.machine.file(_IMAGE).chmod(0o600)


def no_toast_controller(on: Bench) -> None:
    on.installation.put_toast_server(False)
    run_service(on)


def broken_toast_controller(on: Bench) -> None:
    run_service(on)
    assert on.peer.dismiss(TOAST, seconds=20)
    on.machine.file(_TOAST_PROGRAM).unlink()


def ended_toast_controller(on: Bench) -> None:
    run_service(on)
    assert on.peer.dismiss(TOAST, seconds=20)


def another_makers_toast_controller(on: Bench) -> None:
    on.machine.change_registry(
        {_CLASS + r"\LocalServer32": {"": registry_string(r"C:\windows\system32\services.exe")}}
    )
    with_account(on)


def another_makers_expandable_path(on: Bench) -> None:
    """Its program is named as Windows' own are: by a variable of the environment."""
    key = _CLASS + r"\LocalServer32"
    on.machine.demand("reg", "add", key.replace("HKEY_LOCAL_MACHINE", "HKLM"), "/ve", "/t", "REG_EXPAND_SZ", "/d",
                      r"%SystemRoot%\system32\services.exe", "/f")  # fmt: skip
    with_account(on)


def refusing_toast_controller(on: Bench) -> None:
    """LocalService is not among those who may start it."""
    run_service(on)
    on.machine.change_registry(
        {
            r"HKEY_LOCAL_MACHINE\SOFTWARE\Classes\AppID\{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}": {
                # No list of who may: nobody.
                "LaunchPermission": f"hex:01,00,04,80{',00' * 12},14,00,00,00,02,00,08{',00' * 5}"
            }
        }
    )


Camera = dict[str, Any]


@dataclass(frozen=True)
class State:
    """A machine in some state, and what is said of it."""

    prepare: Callable[[Bench], None]
    status: int
    stopped_by: str
    # What is told besides what stops the update, and besides what Wine has everywhere.
    told: set[str] = field(default_factory=set)
    cameras: list[Camera] = field(default_factory=list)
    stage: dict[str, Any] = field(default_factory=dict)

    @property
    def judgement(self) -> tuple[Any, ...]:
        """What tells it apart from the others."""
        return self.status, self.stopped_by, frozenset(self.told)


OLD: Camera = {"version": "5.10.2.0"}
CURRENT: Camera = {"version": IMAGE_VERSION}
IN_DFU_MODE: Camera = {"starts": "dfu"}
SILENT: Camera = {"faults": [{"where": "COMMAND-READ", "what": "stall", "count": 99}]}
# What is said, too, of a service that has never run.
UNSTARTED = {"service-starts-by-hand", "toast-controller-missing"}
BY_HAND = {"service-starts-by-hand"}

STATES = {
    "nothing installed": State(lambda on: None, 20, "service-not-installed", {"toast-controller-missing"}),
    "another account": State(another_account, 20, "service-account", {"service-not-running", *UNSTARTED}),
    "disabled": State(disabled, 20, "service-disabled", {"toast-controller-missing"}),
    "stopped": State(stopped, 20, "service-not-running", UNSTARTED),
    "path with blanks and no quotes": State(
        unquoted, 20, "service-not-running", {"service-path-unquoted", *UNSTARTED}
    ),
    "another program is started": State(
        replaced, 20, "service-program-replaced", {"service-path-unquoted", "service-not-running", *UNSTARTED}
    ),
    "program missing": State(program_missing, 20, "service-program-missing", {"service-not-running", *UNSTARTED}),
    "a namesake": State(beside_a_namesake, 20, "service-not-running", {"service-namesake", *UNSTARTED}),
    "ready, no camera": State(run_service, 0, "no-camera", BY_HAND),
    "ready, camera up to date": State(run_service, 0, "versions-equal", BY_HAND, [CURRENT]),
    "ready, camera older": State(run_service, 10, "", BY_HAND, [OLD]),
    "ready, camera newer": State(run_service, 10, "", {"camera-newer", *BY_HAND}, [{"version": "5.11.0.0"}]),
    "ready, camera does not tell its version": State(
        run_service, 30, "camera-version-unknown", BY_HAND, [SILENT]
    ),
    "ready, one camera older, one silent": State(
        run_service, 30, "", {"camera-version-unknown", *BY_HAND}, [OLD, SILENT]
    ),
    "ready, camera without unit": State(
        run_service, 0, "no-camera", {"camera-without-unit", *BY_HAND}, [{"has_extension_unit": False}]
    ),
    "service runs, camera in DFU mode": State(run_service, 30, "dfu-device-present", BY_HAND, [IN_DFU_MODE]),
    "service stopped, camera in DFU mode": State(
        stopped, 20, "service-not-running", {"dfu-device-waits", *UNSTARTED}, [IN_DFU_MODE]
    ),
    "service stopped, camera in DFU mode does not open": State(
        stopped,
        20,
        "service-not-running",
        {"dfu-device-not-opened", *UNSTARTED},
        [{**IN_DFU_MODE, "driver_ms": "never"}],
    ),
    "update mode not set": State(update_mode(None), 20, "update-mode-missing", BY_HAND),
    "update mode Disabled": State(update_mode("Disabled"), 20, "update-mode-disabled", BY_HAND),
    "update mode Auto": State(update_mode("Auto"), 20, "update-mode-auto", BY_HAND),
    "update mode in other words": State(update_mode("service controlled"), 20, "update-mode-other", BY_HAND),
    "image missing": State(image(None), 20, "image-missing", BY_HAND, [OLD]),
    "image empty": State(image(b""), 20, "image-too-short", BY_HAND, [OLD]),
    "image unreadable": State(image(None, folder=True), 20, "image-unreadable", BY_HAND, [OLD]),
    "image of one user": State(image_of_one_user, 20, "image-refused", BY_HAND, [OLD]),
    "image older": State(
        image(with_version(default_image(), "5.9.0.0")), 10, "", {"camera-newer", *BY_HAND}, [OLD]
    ),
    "toast controller missing": State(no_toast_controller, 20, "toast-controller-missing", BY_HAND),
    "toast controller broken": State(broken_toast_controller, 20, "toast-controller-broken", BY_HAND),
    "toast controller ended": State(ended_toast_controller, 20, "toast-controller-not-running", BY_HAND),
    "toast controller refuses": State(refusing_toast_controller, 20, "toast-controller-launch", BY_HAND),
    "toast controller of another maker": State(
        another_makers_toast_controller,
        20,
        "service-not-running",
        {
            "service-starts-by-hand",
            "toast-controller-unseen",
            "toast-controller-launch",
            "toast-controller-access-default",
        },
    ),
    "no Media Foundation": State(run_service, 20, "media-foundation", BY_HAND, stage={"failed_media_starts": 9}),
}


def check_only_reads(said: Said) -> None:
    assert said.more_than_reads() == []


@pytest.mark.parametrize("name", STATES)
def test_tells_the_state_of_a_machine(on: Bench, name: str) -> None:
    state = STATES[name]
    state.prepare(on)
    try:
        said = check_program.run(on, "--json", cameras=state.cameras, **state.stage)
        text = check_program.run(on, cameras=state.cameras, **state.stage)
    finally:
        if state.prepare is beside_a_namesake:
            on.machine.run("sc", "delete", _NAMESAKE)
    answer = said.json
    told = {finding["id"] for finding in answer["findings"]} - _OF_WINE
    assert (said.status, answer["stopped_by"], told) == (
        state.status,
        state.stopped_by,
        state.told | ({state.stopped_by} - {"", "no-camera", "versions-equal"}),
    )
    assert answer["exit_code"] == said.status == text.status
    assert answer["would_ask"] == (state.stopped_by == "")
    assert text.text.startswith(answer["headline"] + "\n")
    check_only_reads(said)
    check_only_reads(text)


def test_the_states_are_told_apart() -> None:
    judgements = [state.judgement for state in STATES.values()]
    # What is told of a camera that is newer than the image, and of an image that is older than the camera, is the same.
    assert len(set(judgements)) == len(judgements) - 1 >= 20


@pytest.mark.parametrize("text", ["Auto", "service controlled", "Service Controlled "])
def test_names_an_update_mode_that_does_not_let_the_service_update(on: Bench, text: str) -> None:
    update_mode(text)(on)
    answer = check_program.run(on, "--json").json
    assert answer["update_mode"] == {"service_controlled": False, "text": text, "error": 0}
    assert f'The update mode is "{text}", not "Service Controlled".' in answer["headline"]


def test_describes_the_whole_machine(on: Bench) -> None:
    run_service(on)
    answer = check_program.run(on, "--json", cameras=[OLD]).json
    assert answer["service"] | {"process_id": 0, "program_writers": [], "folder_writers": []} == {
        "installed": True,
        "error": 0,
        "marked_for_deletion": False,
        "account": _LOCAL_SERVICE,
        "path": EXECUTABLE,
        "quoted": False,
        "program": EXECUTABLE,
        "program_exists": True,
        "program_version": "1.0.0.0",
        "started_instead": "",
        "program_error": 0,
        "delayed_start": False,
        "program_writers": [],
        "folder_writers": [],
        "start_type": "manual",
        "state": "running",
        "process_id": 0,
        "exit_code": 0,
        "namesake": False,
    }
    assert answer["image"]["sha256"] == sha256(default_image())
    assert answer["image"]["size"] == len(default_image())
    assert answer["image"]["version"] == IMAGE_VERSION
    assert answer["image"]["service_may_read"] is True
    controller = answer["toast_controller"]
    assert controller["program"].lower() == _TOAST_PROGRAM.lower()
    assert controller["class_id"] == "{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}"
    assert (controller["registered"], controller["ours"], controller["run_as"]) == (True, True, "Interactive User")
    assert (controller["launch_permission"], controller["access_permission"]) == ("granted", "granted")
    assert len(controller["sessions"]) == 1
    (camera,) = answer["cameras"]
    assert (camera["version"], camera["standing"]) == ("5.10.2.0", "older than the image")
    assert [listing["category"] for listing in camera["listings"]] == ["sensor camera", "video camera"]


def test_finds_the_program_of_a_toast_controller_that_is_registered_with_a_variable(on: Bench) -> None:
    another_makers_expandable_path(on)
    controller = check_program.run(on, "--json").json["toast_controller"]
    assert controller["program"].lower() == r"c:\windows\system32\services.exe"
    assert controller["program_exists"] is True


def test_an_image_that_only_its_owner_reads_stops_the_service(on: Bench) -> None:
    """Such is one that was moved out of a user's folder. Whoever asks here may read it."""
    image_of_one_user(on)
    said = check_program.run(on, "--json", cameras=[OLD])
    assert (said.status, said.json["stopped_by"]) == (20, "image-refused")
    assert (said.json["image"]["readable"], said.json["image"]["service_may_read"]) == (True, False)


def test_names_who_may_change_the_services_folder(on: Bench) -> None:
    writable_by_all(on)
    assert "Everyone" in check_program.run(on, "--json").json["service"]["folder_writers"]


def test_reads_a_version_once_and_nothing_else(on: Bench) -> None:
    run_service(on)
    touched = check_program.run(on, cameras=[OLD, CURRENT]).touched()
    assert [(event["event"], event["opcode"]) for event in touched] == 2 * [
        ("firmware-command", 0x10),
        ("firmware-reply", 0x10),
    ]


def test_does_not_touch_a_camera_in_dfu_mode_while_the_service_runs(on: Bench) -> None:
    run_service(on)
    assert check_program.run(on, cameras=[IN_DFU_MODE]).touched() == []


def test_reads_descriptors_of_a_camera_in_dfu_mode_while_the_service_is_stopped(on: Bench) -> None:
    said = check_program.run(on, "--json", cameras=[{**IN_DFU_MODE, "transfer_size": 2048}])
    assert [event["event"] for event in said.touched()] == ["usb-open", "descriptor", "descriptor", "usb-close"]
    assert [device["transfer_size"] for device in said.json["dfu_devices"]] == [2048]


@pytest.mark.parametrize(
    ("words", "because"),
    [
        (["repair"], 'there is no command "repair"'),
        (["--xml"], 'there is no option "--xml"'),
        (["status", "now"], 'one word too many: "now"'),
        (["status", "--block-size", "9"], "--block-size belongs to rehearse"),
        (["rehearse", "--block-size", "0"], "--block-size takes a number from 1 to 65535"),
        (["rehearse", r"C:\no such file.bin"], r"the image cannot be read (error 2): C:\no such file.bin"),
        (["rehearse", r"\\?\usb#vid_2f1a&pid_7e01#1"], "an image is a file, which this is not"),
        (["rehearse", "NUL"], "the image cannot be read (error 222): NUL"),
        (["rehearse", "no\nfile"], "the image cannot be read (error 123): no?file"),
        (["rehearse", r"C:\windows"], r"the image cannot be read (error 5): C:\windows"),
    ],
)
def test_refuses_what_makes_no_sense_and_touches_nothing(on: Bench, words: list[str], because: str) -> None:
    said = check_program.run(on, *words, cameras=[OLD])
    check_refusal((said.status, "", said.text), because)
    assert said.events == []


def test_answers_without_looking_at_the_machine(on: Bench) -> None:
    helped = check_program.run(on, "--help", cameras=[OLD])
    assert helped.status == 0
    assert helped.text.startswith("usage: VeyraCameraDfuCheck ")
    assert helped.events == []
    assert check_program.run(on, "--version").text == "VeyraCameraDfuCheck 1.0.0\n"


def test_the_document_lists_each_finding() -> None:
    source = (CHECKOUT / "src" / "check" / "Judgement.cpp").read_text(encoding="utf-8")
    beginnings = "service|update-mode|media|image|toast-controller|camera|dfu-device|usb-devices"
    found = set(re.findall(rf'"((?:{beginnings})-[a-z0-9-]+)"', source))
    document = (CHECKOUT / "docs" / "check.md").read_text(encoding="utf-8")
    table = document.partition("| `id` |")[2].partition("What cannot be seen")[0]
    assert set(re.findall(r"`([a-z0-9]+(?:-[a-z0-9]+)+)`", table)) == found


def registry_of(machine: Machine) -> set[str]:
    """Every value of the machine's registry that a program could have to do with."""
    values = set()
    with tempfile.TemporaryDirectory() as folder:
        for hive in ("HKLM\\Software", "HKLM\\System\\CurrentControlSet", "HKCU"):
            exported = Path(folder) / "exported.reg"
            machine.demand("reg", "export", hive, windows_path(exported), "/y")
            key = ""
            for line in exported.read_text("utf-16").splitlines():
                key = line if line.startswith("[") else key
                values.add(f"{key} {line}")
    return values


def files_of(machine: Machine) -> dict[Path, tuple[int, int]]:
    """Every file and folder of the machine, with its size and the time of its last change."""
    files = {}
    for path in machine.file("C:\\").rglob("*"):
        status = path.lstat()
        files[path] = (status.st_size, status.st_mtime_ns)
    return files


@pytest.mark.parametrize(("command", "status"), [("status", 30), ("rehearse", 30), ("windows", None)])
def test_changes_nothing(on: Bench, command: str, status: int | None) -> None:
    run_service(on)
    files = files_of(on.machine)
    registry = registry_of(on.machine)
    said = check_program.run(on, command, cameras=[OLD, CURRENT, IN_DFU_MODE])
    # One of the questions of "windows" is what a broken contract gives.
    assert len(on.peer.breaches()) == (command == "windows")
    assert status is None or said.status == status
    check_only_reads(said)
    assert files_of(on.machine) == files
    assert registry_of(on.machine) == registry
    assert on.machine.service_state(SERVICE) == "RUNNING"


def test_rehearses_camera_by_camera(on: Bench) -> None:
    run_service(on)
    said = check_program.run(on, "rehearse", "--json", cameras=[OLD, CURRENT])
    assert said.status == 10
    cameras = said.json["cameras"]
    assert [camera["questions"] for camera in cameras] == [2, 0]
    assert [camera["would_download"] for camera in cameras] == [True, False]
    assert cameras[0]["steps"][2].endswith("with the command 0x10: 5.10.2.0.")
    assert cameras[1]["steps"][-1] == "The versions are equal: nothing is done."
    assert [(each["block_size"], each["blocks"], each["transfers"]) for each in said.json["downloads"]] == [
        (512, 512, 1031),
        (1024, 256, 519),
        (2048, 128, 263),
        (4096, 64, 135),
    ]
    assert [(event["event"], event["opcode"]) for event in said.touched()] == 2 * [
        ("firmware-command", 0x10),
        ("firmware-reply", 0x10),
    ]


def test_rehearses_with_another_image(on: Bench, tmp_path: Path) -> None:
    run_service(on)
    image = tmp_path / "other image.bin"
    image.write_bytes(with_version(default_image(5000), "5.10.2.0"))
    arguments = ["rehearse", windows_path(image), "--block-size", "1000", "--json"]
    said = check_program.run(on, *arguments, cameras=[OLD])
    assert said.status == 0
    assert (said.json["image_version"], said.json["image_size"]) == ("5.10.2.0", 5000)
    assert [(each["blocks"], each["busy_once_ms"]) for each in said.json["downloads"]] == [(5, 1200)]


def test_rehearses_a_camera_in_dfu_mode_with_descriptors_alone(on: Bench) -> None:
    stopped(on)
    said = check_program.run(on, "rehearse", "--json", cameras=[{**IN_DFU_MODE, "transfer_size": 2048}])
    assert said.status == 20
    assert [event["event"] for event in said.touched()] == ["usb-open", "descriptor", "descriptor", "usb-close"]
    assert [each["block_size"] for each in said.json["downloads"]] == [2048]
    assert said.json["cameras"][0]["steps"][-1] == "It ends here. The service is not running: it is stopped."


def test_what_it_rehearses_is_what_the_service_does(on: Bench) -> None:
    """The announced question, and after it the transfers of the download."""
    run_service(on)
    camera = {**OLD, "transfer_size": 1024, "manifests_at_once": True}
    rehearsed = check_program.run(on, "rehearse", "--json", "--block-size", "1024", cameras=[camera]).json
    on.machine.demand("sc", "stop", SERVICE)
    assert on.machine.wait_for_service_state(SERVICE, "STOPPED", seconds=20) == "STOPPED"
    on.peer.set_stage({"trace": None, "cameras": [camera]})
    on.start_service()
    since = on.peer.mark()
    on.peer.command(RIG, "plug", camera=0)
    on.peer.command(RIG, "settle")
    prompts = [event for event in on.peer.events_since(since) if event.get("method") == "ShowUpdatePrompt"]
    assert len(prompts) == rehearsed["cameras"][0]["questions"]
    on.peer.command(TOAST, "respond", code=1)
    on.peer.follow(
        lambda event: event.get("method") == "NotifyComplete", "the end of the download", since=since, quiet=30
    )
    # The user is told by another process than the one that records the transfers.
    on.peer.command(RIG, "settle")
    transfers = [event for event in on.peer.events_since(since) if event["event"] == "transfer"]
    assert len(transfers) == rehearsed["downloads"][0]["transfers"]


def probes_of(said: Said) -> dict[str, dict[str, Any]]:
    """What "windows" has asked, by its name."""
    return {probe["id"]: probe for probe in said.json["probes"]}


def contracts_of_the_document() -> set[int]:
    """The numbers of the contracts that docs/windows.md lists."""
    text = (CHECKOUT / "docs" / "windows.md").read_text(encoding="utf-8")
    table = text.partition("## Contracts")[2].partition("A breach of")[0]
    return {int(line.split("|")[1]) for line in table.splitlines() if re.match(r"\| \d+ \|", line)}


# Without the rig: it is Wine that is asked.
def test_asks_windows_about_each_contract_of_the_document(on: Bench) -> None:
    with check_program.without_rig(on):
        said = check_program.run(on, "windows", "--json")
        text = check_program.run(on, "windows")
    probes = probes_of(said)
    assert {probe["contract"] for probe in probes.values()} == {0, *contracts_of_the_document()}
    differences = json.loads(_WINE_DIFFERENCES.read_text(encoding="utf-8"))
    seen = {name: probe["seen"] for name, probe in probes.items() if probe["outcome"] == "different"}
    assert {name: text for name, text in seen.items() if text not in differences.get(name, ())} == {}
    for probe in probes.values():
        assert probe["seen"]
        assert f"{probe['contract']}. {probe['question']}: {probe['outcome']}\n" in text.text
    assert said.status == text.status == (10 if seen else 0)


def test_asks_a_camera_that_is_there(on: Bench) -> None:
    said = check_program.run(on, "windows", "--json", cameras=[OLD])
    probes = probes_of(said)
    assert (probes["control-length"]["outcome"], probes["control-length"]["seen"]) == ("as expected", "1024 bytes")
    assert probes["camera-links"]["outcome"] == "as expected"
    # The rig keeps Windows' contract where Wine does not: a program that breaks it is told, and refused.
    assert probes["media-before-start"]["outcome"] == "as expected"
    assert len(on.peer.breaches()) == 1
    check_only_reads(said)


def test_asks_about_the_links_of_several_cameras(on: Bench) -> None:
    probe = probes_of(check_program.run(on, "windows", "--json", cameras=[OLD, CURRENT]))["camera-links"]
    assert len(on.peer.breaches()) == 1
    assert (probe["outcome"], probe["seen"]) == (
        "as expected",
        r"sensor camera ...\global and video camera ...\global",
    )


def unpacked(cabinet: Path, folder: Path) -> dict[str, str]:
    """What is in a cabinet, by the files' names, as another program reads it."""
    subprocess.run(["cabextract", "-q", "-d", str(folder), str(cabinet)], check=True)
    return {path.name: path.read_text(encoding="utf-8") for path in folder.iterdir()}


def test_collects_a_bundle(on: Bench, tmp_path: Path) -> None:
    run_service(on)
    log = on.machine.file(r"C:\windows\INF\setupapi.dev.log")
    log.parent.mkdir(exist_ok=True)
    log.write_text(
        "".join(
            f">>>  [Device Install - USB\\{device}\\1]\n>>>  Section start\n     C:\\Users\\anna\\x\n<<<  Section end\n"
            for device in ("VID_2F1A&PID_7E01", "VID_1234&PID_0001")
        )
    )
    cabinet = tmp_path / "bundle of today.cab"
    files = {path for path in on.machine.file("C:\\").rglob("*")}
    try:
        said = check_program.run(on, "collect", windows_path(cabinet), "--seconds", "1", cameras=[OLD])
    finally:
        log.unlink()
    assert said.status == 0, said.text
    check_only_reads(said)
    assert {path for path in on.machine.file("C:\\").rglob("*")} == files - {log}
    held = unpacked(cabinet, tmp_path / "unpacked")
    contents = held["contents.txt"]
    assert set(held) == {"trace.txt", "status.json", "versions.txt", "events.xml", "setup.txt", "contents.txt"}
    for name in held:
        assert name in contents
    status = json.loads(held["status.json"])
    assert (status["stopped_by"], status["cameras"][0]["version"]) == ("", "5.10.2.0")
    assert "root" not in held["status.json"]
    assert "VID_2F1A" in held["setup.txt"]
    assert "VID_1234" not in held["setup.txt"]
    assert "anna" not in held["setup.txt"]
    assert "VeyraCameraDfuService 1.0.0.0\n" in held["versions.txt"]
    assert held["trace.txt"] == ""
    assert held["events.xml"].startswith("<Events>\n")


def _record(channel: str, provider: str, text: str) -> str:
    """An event log's record, as Windows renders it."""
    return (
        f"<Event><System><Provider Name='{provider}'/><EventID>0</EventID><Channel>{channel}</Channel>"
        f"<Computer>PC-OF-ANNA</Computer><Security UserID='S-1-5-21-1'/></System><EventData><Data>{text}</Data>"
        "</EventData></Event>"
    )


def test_collects_what_is_traced_while_it_records(on: Bench, tmp_path: Path) -> None:
    """The service's own messages of an arrival, told to the program's session, and what the event logs hold."""
    shutil.copytree(CHECKOUT / "trace", on.machine.file(rf"{FOLDER}\trace"))
    install(on)
    on.peer.set_stage({"trace": {"level": 4, "flags": 1}, "cameras": [OLD]})
    on.start_service()
    since = on.peer.mark()
    on.peer.command(RIG, "plug", camera=0)
    on.peer.command(RIG, "settle")
    traced = [event for event in on.peer.events_since(since) if event["event"] == "trace"]
    assert traced
    records = [
        _record("Application", SERVICE, "KV400CameraService::OnStart Enter"),
        _record("System", "Service Control Manager", "another service"),
        _record("System", "Service Control Manager", "Veyra Camera DFU service"),
    ]
    cabinet = tmp_path / "bundle.cab"
    on.peer.set_stage({"trace": None, "cameras": [], "event_records": records})
    since = on.peer.mark()
    with ThreadPoolExecutor() as beside:
        collecting = beside.submit(
            on.machine.run, check_program.PROGRAM, "collect", windows_path(cabinet), "--seconds", "5"
        )
        on.peer.follow(
            lambda event: event["event"] == "trace-session",
            "the program's session",
            since=since,
            quiet=20,
        )
        for event in traced:
            on.peer.command(
                RIG, "trace-message", group=event["group"], number=event["number"], process=event["pid"],
                arguments=event["arguments"],
            )  # fmt: skip
        outcome = collecting.result(timeout=60)
    shutil.rmtree(on.machine.file(rf"{FOLDER}\trace"))
    assert outcome.status == 0, outcome.text
    held = unpacked(cabinet, tmp_path / "unpacked")
    lines = held["trace.txt"].splitlines()
    assert [line.partition("]")[2].partition("]")[2] for line in lines] == [event["text"] for event in traced]
    time = r"\d\d/\d\d/\d{4}-\d\d:\d\d:\d\d\.\d{3}"
    form = rf"\[0\][0-9A-F]{{4,}}\.[0-9A-F]{{4}}::{time} \[(FDUService|DFUServiceBase)\].+"
    assert [line for line in lines if not re.fullmatch(form, line)] == []
    for line in lines:
        assert line + "\n" in outcome.text
    assert "KV400CameraService::OnStart Enter" in held["events.xml"]
    assert held["events.xml"].count("<Event>") == 2
    assert "another service" not in held["events.xml"]
    assert "ANNA" not in held["events.xml"]
    assert "S-1-5-21" not in held["events.xml"]


@contextmanager
def collecting(on: Bench, cabinet: Path, seconds: int) -> Iterator[Future[Outcome]]:
    """A collection that records while the block runs, and how it ends."""
    on.peer.set_stage({"trace": None, "cameras": []})
    since = on.peer.mark()
    with ThreadPoolExecutor() as beside:
        words = ["collect", windows_path(cabinet), "--seconds", str(seconds)]
        running = beside.submit(on.machine.run, check_program.PROGRAM, *words)
        on.peer.follow(lambda event: event["event"] == "trace-session", "its session", since=since, quiet=20)
        yield running


def test_only_one_collects_at_a_time(on: Bench, tmp_path: Path) -> None:
    with collecting(on, tmp_path / "first.cab", seconds=6) as first:
        words = ["collect", windows_path(tmp_path / "second.cab"), "--seconds", "1"]
        second = on.machine.run(check_program.PROGRAM, *words)
        assert (second.status, second.text) == (3, "VeyraCameraDfuCheck: another collect is at work on this machine\n")
        assert first.result(timeout=60).status == 0
    assert [path.name for path in tmp_path.iterdir()] == ["first.cab"]


def test_keeps_a_cabinet_that_cannot_be_put_in_its_place(on: Bench, tmp_path: Path) -> None:
    place = tmp_path / "place"
    place.mkdir()
    with collecting(on, place / "bundle.cab", seconds=2) as running:
        place.rmdir()
        outcome = running.result(timeout=60)
    assert outcome.status == 3
    told = re.search(r"the cabinet could not be put in place \(error 3\): .*; it lies at (.+\.cab)", outcome.text)
    assert told
    # Wine's folder of that name is in lower case, which the host tells apart.
    kept = on.machine.file(told[1].replace("\\Temp\\", "\\temp\\"))
    assert [path.name for path in kept.parent.iterdir()] == ["bundle.cab"]
    assert "status.json" in unpacked(kept, tmp_path / "unpacked")
    shutil.rmtree(kept.parent)


@pytest.mark.parametrize(
    ("words", "because"),
    [
        (["collect"], "collect takes the name of the file to make"),
        (["collect", r"C:\bundle.zip"], "the file to make ends in .cab"),
        (["collect", r"C:\no such folder\x.cab"], "the file cannot be written (error 3)"),
        (["collect", r"C:\x.cab", "--seconds", "none"], "--seconds takes a number from 1 to 86400"),
    ],
)
def test_refuses_to_collect_and_leaves_nothing(on: Bench, words: list[str], because: str) -> None:
    files = {path for path in on.machine.file("C:\\").rglob("*")}
    said = check_program.run(on, *words, cameras=[OLD])
    check_refusal((said.status, "", said.text), because)
    assert said.events == []
    assert {path for path in on.machine.file("C:\\").rglob("*")} == files


def test_does_not_write_over_a_file(on: Bench, tmp_path: Path) -> None:
    cabinet = tmp_path / "old.cab"
    cabinet.write_bytes(b"mine")
    said = check_program.run(on, "collect", windows_path(cabinet), "--seconds", "1")
    check_refusal((said.status, "", said.text), "there is a file already")
    assert cabinet.read_bytes() == b"mine"


def imports() -> dict[str, set[str]]:
    """The functions that the executable imports, by the name of the DLL, in lower case."""
    answer = subprocess.run(
        ["x86_64-w64-mingw32-objdump", "-p", str(check_program.BUILT)], capture_output=True, text=True, check=True
    )
    functions: dict[str, set[str]] = {}
    for line in answer.stdout.splitlines():
        words = line.split()
        if line.startswith("\tDLL Name: "):
            functions[library := words[-1].lower()] = set()
        elif functions and line.startswith("\t") and len(words) in (3, 4):  # since binutils 2.41 with the ordinal
            with suppress(ValueError):
                int(words[0], 16)
                functions[library].add(words[-1])
    return functions


def test_imports_nothing_but_windows_and_nothing_that_writes_or_switches() -> None:
    found = imports()
    assert set(found) == {
        "advapi32.dll",
        "bcrypt.dll",
        "cabinet.dll",
        "cfgmgr32.dll",
        "kernel32.dll",
        "mf.dll",
        "mfplat.dll",
        "msvcrt.dll",
        "ole32.dll",
        "version.dll",
        "wevtapi.dll",
        "winusb.dll",
        "wtsapi32.dll",  # whether somebody is logged on
    }
    functions = set().union(*found.values())
    assert found["winusb.dll"] == {
        "WinUsb_Free",
        "WinUsb_GetAssociatedInterface",
        "WinUsb_GetDescriptor",
        "WinUsb_Initialize",
        "WinUsb_QueryInterfaceSettings",
    }
    assert not functions & {
        "RegCreateKeyExW",
        "RegSetValueExW",
        "RegSetKeyValueW",
        "RegDeleteKeyW",
        "CreateProcessW",
        "CreateProcessAsUserW",
        "CreateServiceW",
        "StartServiceW",
        "ControlService",
        "DeleteService",
        "SetNamedSecurityInfoW",
    }
    assert not functions & {"ChangeServiceConfigW", "CoCreateInstance", "CM_Register_Notification", "system"}


def test_its_executable_is_told_from_the_services_by_its_version_resource() -> None:
    content = (BUILD / "VeyraCameraDfuCheck.exe").read_bytes()
    assert "VeyraCameraDfuCheck.exe".encode("utf-16-le") in content
    assert "VeyraCameraDfuService.exe".encode("utf-16-le") not in content


def test_its_json_is_whole_whatever_stands_in_the_registry(on: Bench) -> None:
    on.machine.change_registry({UPDATE_MODE_KEY: {"DFUAutoMode": 'hex(1):00,d8,22,00,5c,00,0a,00,e4,00,00,00'}})
    answer = check_program.run(on, "--json")
    umlaut = "\N{LATIN SMALL LETTER A WITH DIAERESIS}"
    assert json.loads(answer.text)["update_mode"]["text"] == f"\N{REPLACEMENT CHARACTER}\"\\\n{umlaut}"

"""What a camera's software package leaves in a Windows machine: put there, changed, and taken away again."""

import shutil
import subprocess
import time
from contextlib import ExitStack
from pathlib import PureWindowsPath

from ..wire.events import SENSOR_CLASS, TOAST
from ..wire.peer import Peer
from .display import serve_on_display
from .image import default_image
from .machine import SERVICES_KEY, Machine, registry_string
from .programs import SERVICE, Programs

SERVICE_CONTROLLED = "Service Controlled"
UPDATE_MODE_KEY = rf"{SERVICES_KEY}\VeyraCameraDFU"
_CLASS = SENSOR_CLASS.lower()
_CLASS_KEY = rf"HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Control\DeviceClasses\{_CLASS}"
_INSTANCE_KEY = rf"{_CLASS_KEY}\##?#USB#VID_2F1A&PID_7E00&MI_00#6&1&0&0000#{_CLASS}"
_LABORATORY_KEY = r"HKEY_LOCAL_MACHINE\SOFTWARE\VeyraLaboratory"
APP_DEFAULTS_KEY = r"HKEY_CURRENT_USER\Software\Wine\AppDefaults"
_NOTIFICATIONS_KEY = (
    r"HKEY_CURRENT_USER\SOFTWARE\Microsoft\Windows\CurrentVersion\Notifications\Settings\Morrow.Veyra.DFUToastCntl"
)
FOLDER = r"C:\VeyraLab"
EXECUTABLE = rf"{FOLDER}\{SERVICE}.exe"
_RIG = rf"{FOLDER}\winusb.dll"
_LEAVING_SECONDS = 10
# How long somebody may read the end of an update.
READING_SECONDS = 60
_TOAST_SERVER = r"C:\windows\system32\VeyraCameraToastCntl.exe"
_IMAGE = r"C:\windows\system32\drivers\KV400Firmware.bin"


class Installation:
    """The files and the registry of a machine with a camera's software package."""

    def __init__(
        self,
        machine: Machine,
        programs: Programs,
        *,
        image: bytes | None = None,
        update_mode: str | None = SERVICE_CONTROLLED,
        toast_server: bool = True,
    ) -> None:
        self._machine = machine
        self._programs = programs
        self._image = default_image() if image is None else image
        self._update_mode = update_mode
        self._toast_server = toast_server
        self._shown: subprocess.Popen[bytes] | None = None

    def make(self, port: int) -> None:
        """Copies the files and writes the registry. Whatever a run that was killed has left is taken away first."""
        if self.is_made():
            self.remove(None)
        self._machine.file(FOLDER).mkdir()
        shutil.copyfile(self._programs.service, self._machine.file(EXECUTABLE))
        shutil.copyfile(self._programs.rig, self._machine.file(_RIG))
        if self._toast_server:
            shutil.copyfile(self._programs.toast_server, self._machine.file(_TOAST_SERVER))
        self._machine.file(_IMAGE).write_bytes(self._image)
        self._machine.change_registry(self._keys(port))

    def is_made(self) -> bool:
        """Whether it is there, made by this object or another one."""
        return self._machine.file(FOLDER).exists()

    def remove_driver(self) -> None:
        """What the removal of the camera's driver package does to the registry."""
        self._machine.change_registry({}, removed=[_INSTANCE_KEY])

    def set_keys(self, port: int, update_mode: str | None) -> None:
        """Writes the registry of a machine with this update mode, whatever a scenario has made of it."""
        keys = self._keys(port)
        keys[UPDATE_MODE_KEY] = {"DFUAutoMode": None if update_mode is None else registry_string(update_mode)}
        self._machine.change_registry(keys)

    def put_image(self, content: bytes | None, *, folder: bool = False) -> None:
        """Puts a firmware image where the service looks for it: a file, a folder of its name, or (None) nothing."""
        path = self._machine.file(_IMAGE)
        if path.is_dir():
            path.rmdir()
        path.unlink(missing_ok=True)
        if folder:
            path.mkdir()
        elif content is not None:
            path.write_bytes(content)

    def put_toast_server(self, there: bool) -> None:
        """Puts the toast controller into the machine, or takes it away with its registration."""
        if there:
            # A new file: one that runs would get stuck when its own was written over.
            self._machine.file(_TOAST_SERVER).unlink(missing_ok=True)
            shutil.copyfile(self._programs.toast_server, self._machine.file(_TOAST_SERVER))
        else:
            self._unregister_toast_server()
            self._machine.file(_TOAST_SERVER).unlink(missing_ok=True)

    def show_toast_controller(self) -> None:
        """Puts the toast controller that ships into the machine, registers it, and starts it on the display that DISPLAY
        names, where it waits a minute for its first client: one that the service's activation starts has no display. It
        leaves by itself, two seconds after the last client, once nothing is shown."""
        self.put_toast_server(False)
        shutil.copyfile(self._programs.toast_controller, self._machine.file(_TOAST_SERVER))
        self._machine.demand(_TOAST_SERVER, "/RegServer")
        self._shown = serve_on_display(self._machine, _TOAST_SERVER, "-Embedding")

    def toast_controller_is_shown(self) -> bool:
        """Whether the one that was started on the display is there."""
        return self._shown is not None and self._shown.poll() is None

    def take_toast_controller_away(self, seconds: float) -> None:
        """Waits so long for the end of the toast controller that ships, ends it, and takes it away, registration and
        all."""
        if self._shown is not None:
            try:
                self._shown.wait(seconds)
            except subprocess.TimeoutExpired:
                self._machine.run("taskkill", "/F", "/IM", PureWindowsPath(_TOAST_SERVER).name)
                self._shown.wait(_LEAVING_SECONDS)
            self._shown = None
        self._await_end_of_toast_server()
        self.put_toast_server(False)

    def remove(self, peer: Peer | None) -> None:
        """Takes away everything that make() and the programs have left, also half-way through a run. A step that fails
        keeps none of the later ones from being done."""
        with ExitStack() as steps:
            steps.callback(self._remove_files)
            steps.callback(self._remove_keys)
            steps.callback(self._unregister_toast_server)
            if self._shown is not None:
                steps.callback(self.take_toast_controller_away, 0)
            elif peer is not None:
                steps.callback(peer.dismiss, TOAST, seconds=20)
            else:
                steps.callback(self._await_end_of_toast_server)
            remove_service(self._machine, SERVICE)

    def _keys(self, port: int) -> dict[str, dict[str, str | None]]:
        keys: dict[str, dict[str, str | None]] = {
            _LABORATORY_KEY: {"Port": f"dword:{port:08x}"},
            rf"{APP_DEFAULTS_KEY}\{SERVICE}.exe\DllOverrides": {"winusb": registry_string("native")},
            rf"{_INSTANCE_KEY}\#GLOBAL\Device Parameters": {
                "FSSensorGroupName": registry_string("Morrow KV400 Cameras")
            },
        }
        if self._update_mode is not None:
            keys[UPDATE_MODE_KEY] = {"DFUAutoMode": registry_string(self._update_mode)}
        return keys

    def _await_end_of_toast_server(self) -> None:
        """A server whose last client is gone stays for a while, for the next one: it would report to the laboratory
        that has started it, not to the one that comes next. Only that one can dismiss it."""
        deadline = time.monotonic() + _LEAVING_SECONDS
        while self._machine.processes(PureWindowsPath(_TOAST_SERVER).name) and time.monotonic() < deadline:
            time.sleep(0.05)

    def _unregister_toast_server(self) -> None:
        if self._machine.file(_TOAST_SERVER).exists():
            self._machine.run(_TOAST_SERVER, "/UnregServer")

    def _remove_keys(self) -> None:
        self._machine.change_registry(
            {},
            removed=[
                _CLASS_KEY,
                UPDATE_MODE_KEY,
                _LABORATORY_KEY,
                rf"{APP_DEFAULTS_KEY}\{SERVICE}.exe",
                _NOTIFICATIONS_KEY,
            ],
        )

    def _remove_files(self) -> None:
        self.put_image(None)
        self._machine.file(_TOAST_SERVER).unlink(missing_ok=True)
        shutil.rmtree(self._machine.file(FOLDER), ignore_errors=True)


def remove_service(machine: Machine, name: str) -> None:
    """Deletes a service, in whatever state it is, if there is one of this name."""
    if machine.service_state(name) is None:
        return
    machine.end_service(name)
    machine.run("sc", "delete", name)
    machine.wait_for_service_state(name, None, seconds=5)

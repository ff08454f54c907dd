"""The machine with the service installed in it, as scenarios change it."""

from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

from ..buses.bus import SETTLING_LIMIT, CameraBus
from ..buses.choice import opened
from ..buses.virtual import VirtualBus
from ..checkout import CHECKOUT
from ..scenarios.variant import ImagePlan
from ..windows.installation import EXECUTABLE, SERVICE_CONTROLLED, Installation
from ..windows.machine import Machine
from ..windows.particulars import of_image, of_run
from ..windows.programs import Programs
from ..windows.service_under_test import SETTLING_PATIENCE, STOP_LIMIT_SECONDS, ServiceUnderTest
from ..wire.peer import Peer
from ..wire.trace_formats import TraceFormats


class InstalledService:
    """Installed and removed by its user; in between it remembers what a scenario has changed."""

    def __init__(self, machine: Machine, peer: Peer, bus: CameraBus, programs: Programs) -> None:
        self.machine = machine
        self.peer = peer
        self.bus = bus
        self.service = ServiceUnderTest(machine, peer)
        self._installation = Installation(machine, programs)
        self._has_toast_controller = True
        self._update_mode: str | None = SERVICE_CONTROLLED
        self._keys_changed = False
        # How long, in seconds, it may take to settle.
        self.settling_limit = SETTLING_LIMIT

    def install(self) -> None:
        """Puts everything into the machine; nothing runs yet."""
        self.machine.forget_crashes()
        try:
            self._installation.make(self.peer.port)
            self.machine.demand(EXECUTABLE, "-install")
        except BaseException:
            self._installation.remove(self.peer)
            raise

    def remove(self) -> None:
        """Takes everything away again."""
        self.service.end()
        self._installation.remove(self.peer)

    def settle(self) -> None:
        """Waits until the service has handled everything and no camera has anything pending."""
        self.bus.settle(SETTLING_PATIENCE, self.settling_limit)

    def stop_service(self) -> list[str]:
        """Stops the service; complains when that takes too long."""
        seconds = self.service.stop()
        return [f"the service took {seconds:.1f} s to stop"] if seconds > STOP_LIMIT_SECONDS else []

    def put_image(self, image: ImagePlan) -> None:
        """Changes the firmware image in the machine."""
        self.peer.record("image", **of_image(image.content))
        self._installation.put_image(image.content, folder=image.is_folder)

    def set_update_mode(self, mode: str | None) -> None:
        """Changes the registry value."""
        if mode != self._update_mode or self._keys_changed:
            self._installation.set_keys(self.peer.port, mode)
            self._update_mode = mode
            self._keys_changed = False

    def put_toast_controller(self, there: bool) -> None:
        """Puts the toast controller into the machine, or takes it away."""
        if there != self._has_toast_controller:
            self._installation.put_toast_server(there)
            self._has_toast_controller = there

    def remove_driver(self) -> None:
        """Takes the camera's driver package away, until the scenario is over."""
        self._keys_changed = True
        self._installation.remove_driver()

    def create_service(self, name: str) -> None:
        """Makes another service and starts it: Wine's own print spooler under a name of the scenario's."""
        self._keys_changed = True
        self.machine.demand("sc", "create", name, "binPath=", r"C:\windows\system32\spoolsv.exe")
        self.machine.demand("sc", "start", name)

    def delete_service(self, name: str) -> None:
        """Takes such a service away again, when it is still there."""
        if self.machine.service_state(name) not in (None, "DELETED"):
            self.machine.run("sc", "stop", name)
            self.machine.run("sc", "delete", name)


@contextmanager
def installed(
    machine: Machine, programs: Programs, transcript: Path | None = None, bus: str = VirtualBus.name
) -> Iterator[InstalledService]:
    """The service in the machine, not started, and the bus of that name; afterwards everything is taken away again.
    SetUpError or GuestError when there is no such bus."""
    with (
        Peer({}, TraceFormats(CHECKOUT / "trace").add_words, lambda event: None, transcript) as peer,
        opened(bus, peer, "scenarios") as cameras,
    ):
        peer.record("run", **of_run(programs.service))
        service = InstalledService(machine, peer, cameras, programs)
        service.install()
        try:
            yield service
        finally:
            service.remove()

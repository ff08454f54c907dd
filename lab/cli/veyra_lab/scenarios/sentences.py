"""A scenario's steps as sentences, for whoever follows a run and has not read its file."""

import re
from typing import Any

_ACCEPT = 1
_WORDS = {
    "settle": "Waiting until the service has handled everything",
    "start": "Starting the service",
    "stop": "Stopping the service",
    "restart": "Stopping the service and starting it anew",
    "shut down": "Shutting the system down",
    "ask to stop": "Asking the service to stop",
    "await stop": "Waiting until the service has stopped",
    "remove driver": "Removing the camera's driver package",
    "remember resources": "Noting what the service's process holds",
}
_SIGNS = {
    "question": "the question to the user",
    "answer": "the user's answer",
    "download end": "the end of the download",
    "toast controller gone": "the end of the toast controller's process",
    "service gone": "the end of the service's process",
    "command stop": "the uninstall monitor's command that stops a service",
    "command delete": "the uninstall monitor's command that deletes a service",
}
_CAMERA_SIGNS = {
    "plugged": "to be plugged in",
    "left": "to leave the bus",
    "dfu": "to come back in DFU mode",
    "running": "to come back with its firmware running",
    "unplugged": "to be unplugged",
}
_CONTROLS = {1: "stop", 2: "pause", 3: "continue", 4: "interrogate", 5: "shutdown"}


def sentence(step: Any) -> str:
    """What a step does, in words and without a full stop. A step that is new is told by its name."""
    name, argument = (step, None) if isinstance(step, str) else next(iter(step.items()))
    teller = _TELLERS.get(name)
    return teller(argument) if teller else _WORDS.get(name, name[:1].upper() + name[1:])


def numbered(place: str) -> str:
    """A step's number as people count, from its place in the file: "2" for steps[1], "2.3" for steps[1].steps[2]."""
    return ".".join(str(int(each) + 1) for each in re.findall(r"steps\[(\d+)\]", place))


def _sign(what: str) -> str:
    first, _, rest = what.partition(" ")
    if first == "camera":
        number, _, change = rest.partition(" ")
        return f"camera {number} {_CAMERA_SIGNS.get(change, change)}"
    if first == "progress":
        return f"the progress “{rest}”"
    return _SIGNS.get(what, what)


def _image(value: Any) -> str:
    if value == "missing":
        return "Deleting the firmware image"
    if value == "folder":
        return "Putting a folder in the firmware image's place"
    version = f" of version {value['version']}" if "version" in value else ""
    if "file" in value:
        return f"Putting the firmware image {value['file']} into the machine"
    size = len(value["bytes"]) // 2 if "bytes" in value else value["size"]
    return f"Putting another firmware image{version} into the machine: {size:,} bytes"


def _toast_controller(value: Any) -> str:
    if value == "die":
        return "Ending the toast controller's process"
    if value == "release":
        return "Letting go of what hangs in the toast controller"
    if "fail" in value:
        return f"From now on {value['fail']} of the toast controller fails"
    skipped = f"After {value['skip']} calls that come through, the next" if value.get("skip") else "The next"
    lasting = f" for {value['ms']:,} ms" if value.get("ms") else ""
    return f"{skipped} call of {value['hang']} of the toast controller hangs{lasting}"


def _delivery(fields: dict[str, Any]) -> str:
    times = fields.get("times", 1)
    count = f"{times:,} made-up events" if times > 1 else "a made-up event"
    return f"Delivering {count} to the service: {fields['type']} of the class {fields['class']}"


def _control(control: int) -> str:
    name = f" ({_CONTROLS[control]})" if control in _CONTROLS else ""
    return f"Sending the service the control {control}{name}"


def _repeat(fields: dict[str, Any]) -> str:
    times = "once" if fields["times"] == 1 else f"{fields['times']:,} times, one round after the other"
    return f"What follows, {times}"


_TELLERS: dict[str, Any] = {
    "plug": lambda camera: f"Plugging camera {camera} in",
    "unplug": lambda camera: f"Pulling camera {camera} out",
    "accept": lambda camera: f"Camera {camera} comes, the user accepts, and the service handles all of it",
    "decline": lambda camera: f"Camera {camera} comes, the user declines, and the service handles all of it",
    "take away": lambda camera: f"Taking camera {camera} off the bus, if it is there",
    "faults": lambda fields: f"Giving camera {fields['camera']} other faults",
    "answer": lambda code: "The user accepts" if code == _ACCEPT else f"The user answers {code}, which is no yes",
    "wait for": lambda what: f"Waiting for {_sign(what)}",
    "update": lambda camera: f"A whole update of camera {camera}, which has to succeed",
    "deliver": _delivery,
    "pass": lambda ms: f"Letting {ms:,} ms pass for the cameras and the bus",
    "rest": lambda ms: f"Letting the machine rest for {ms:,} ms",
    "control": _control,
    "image": _image,
    "update mode": lambda mode: f"Setting the update mode to “{mode}”" if mode else "Taking the update mode away",
    "toast controller": _toast_controller,
    "create service": lambda name: f"Making another service, {name}",
    "repeat": _repeat,
    "expect": lambda _: "Looking at what came of it",
}

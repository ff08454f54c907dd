"""The id of an input of a fuzz target: "fuzz.device_path.AAEC", the input itself in the base64 for file names; a longer one
lies in build/fuzz-finds/inputs and is named by its digest, "fuzz.transcripts.file.0a1b2c3d4e5f6071"."""

import base64
import binascii
import hashlib
import re
from dataclasses import dataclass
from pathlib import Path

from ..checkout import BUILD

PREFIX = "fuzz"
TRANSCRIPTS = "transcripts"
TARGETS = (
    "descriptor_walk", "conversation", "command_pipe", "device_path", "image_file", "virtual_camera_host", "usb_device",
    "check_texts", "trial", TRANSCRIPTS,
)  # fmt: skip
INPUTS = BUILD / "fuzz-finds" / "inputs"
_LONGEST = 96  # bytes of one that its id holds
_EMPTY = "empty"  # which is no base64: it would be one letter too long
_DIGEST = 16
_ID = re.compile(PREFIX + r"\.([a-z_]+)\.(?:file\.([0-9a-f]{16})|([A-Za-z0-9_-]+))")


@dataclass(frozen=True)
class FuzzInput:
    """A target and what it was given."""

    target: str
    content: bytes

    def __str__(self) -> str:
        if not self.content:
            said = _EMPTY
        elif len(self.content) > _LONGEST:
            said = f"file.{self._digest}"
        else:
            said = base64.urlsafe_b64encode(self.content).decode().rstrip("=")
        return f"{PREFIX}.{self.target}.{said}"

    @property
    def _digest(self) -> str:
        return hashlib.sha256(self.content).hexdigest()[:_DIGEST]

    def keep(self, folder: Path = INPUTS) -> "FuzzInput":
        """Lays one that its id does not hold where its id finds it."""
        if len(self.content) > _LONGEST:
            folder.mkdir(parents=True, exist_ok=True)
            (folder / self._digest).write_bytes(self.content)
        return self


def read_id(text: str, folder: Path = INPUTS) -> FuzzInput:
    """ValueError when it is none, or when the file of a long one is not there or has other bytes."""
    whole = _ID.fullmatch(text)
    if whole is None or whole[1] not in TARGETS:
        raise ValueError(f"'{text}' is not the id of a fuzz target's input")
    found = FuzzInput(whole[1], _content(text, whole[2], whole[3], folder))
    if str(found) != text:
        raise ValueError(f"'{text}' is not the id of a fuzz target's input: its bytes would be {found}")
    return found


def _content(text: str, digest: str | None, letters: str | None, folder: Path) -> bytes:
    if digest:
        try:
            return (folder / digest).read_bytes()
        except OSError:
            raise ValueError(f"'{text}' cannot be played: its input {folder / digest} is not there") from None
    if letters is None or letters == _EMPTY:
        return b""
    try:
        return base64.urlsafe_b64decode(letters + "=" * (-len(letters) % 4))
    except binascii.Error:
        raise ValueError(f"'{text}' is not the id of a fuzz target's input") from None

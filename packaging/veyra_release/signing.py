"""Signing by whoever holds the key: a command of the vendor's signs each file in its place."""

import hashlib
import shlex
import struct
import subprocess
from pathlib import Path

from .errors import PackageError

_SECURITY_DIRECTORY = 4
# The name of the stream that holds an installer's signature, as it stands in the file's directory.
_MSI_SIGNATURE = "\x05DigitalSignature".encode("utf-16-le")


def command_words(command: str) -> list[str]:
    """The words of a command line as a shell would see them; PackageError when there are none, or a quote is open."""
    try:
        words = shlex.split(command)
    except ValueError as error:
        raise PackageError(f"the signing command is no command line: {error}") from None
    if not words:
        raise PackageError("the signing command is empty")
    return words


def sign(command: list[str], file: Path) -> None:
    """Has the command sign the file: its path is the last word. A command that fails, or leaves a file that has no
    signature, ends the packaging."""
    before = _digest(file)
    try:
        answer = subprocess.run(
            [*command, str(file)],
            stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace", check=False,
        )  # fmt: skip
    except OSError as error:
        raise PackageError(f"the signing command {command[0]} did not start: {error.strerror}") from None
    if answer.returncode != 0:
        words = " ".join((answer.stderr + answer.stdout).split())
        raise PackageError(f"the signing command ended with {answer.returncode} for {file.name}: {words}")
    if not is_signed(file) or _digest(file) == before:
        raise PackageError(f"the signing command has not signed {file.name}")


def is_signed(file: Path) -> bool:
    """Whether a program, a DLL or an installer bears a signature, of whatever worth."""
    content = file.read_bytes()
    if content[:2] != b"MZ":
        return _MSI_SIGNATURE in content
    (header,) = struct.unpack_from("<I", content, 0x3C)
    # The directories of a 64-bit program stand 112 bytes behind the 24 of the file's header.
    _, size = struct.unpack_from("<II", content, header + 24 + 112 + 8 * _SECURITY_DIRECTORY)
    return size > 0


def _digest(file: Path) -> str:
    return hashlib.sha256(file.read_bytes()).hexdigest()

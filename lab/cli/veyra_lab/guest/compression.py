"""What Debian's kernels and their modules are packed with, told by their first bytes."""

import gzip
import lzma
import zlib

from .errors import GuestError
from .tools import call

_GZIP = b"\x1f\x8b"
_XZ = b"\xfd7zXZ\x00"
_ZSTD = b"\x28\xb5\x2f\xfd"
ELF = b"\x7fELF"


def unpacked(content: bytes, what: str) -> bytes:
    """The ELF file that the bytes are, or that is packed in them. GuestError, which names `what`, when it is
    neither."""
    try:
        plain = _plain(content)
    except (OSError, EOFError, lzma.LZMAError, zlib.error) as error:
        raise GuestError(f"{what} cannot be unpacked: {error}") from error
    if not plain.startswith(ELF):
        raise GuestError(f"{what} is packed in a way that is not known: it begins with {content[:6].hex(' ')}")
    return plain


def _plain(content: bytes) -> bytes:
    if content.startswith(_GZIP):
        return gzip.decompress(content)
    if content.startswith(_XZ):
        return lzma.decompress(content)
    if content.startswith(_ZSTD):
        return call(["zstd", "--decompress", "--stdout"], given=content)
    return content

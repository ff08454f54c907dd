"""Texts that somebody has sent: of any size and encoding, perhaps cut off, perhaps no texts at all."""

from dataclasses import dataclass
from pathlib import Path

# More than a day's trace has. What is beyond is left out, and said.
MOST_BYTES = 64 << 20
LONGEST_LINE = 4096
_MARKS = (
    (b"\xef\xbb\xbf", "utf-8"),
    (b"\xff\xfe", "utf-16-le"),
    (b"\xfe\xff", "utf-16-be"),
)
_LOOKED_AT = 4096


@dataclass(frozen=True)
class SentText:
    """A text with the name of its file. `cut`: there was more."""

    name: str
    text: str
    cut: bool = False

    def lines(self) -> list[str]:
        """Its lines, the ends of endless ones left out."""
        return [line[:LONGEST_LINE] for line in self.text.split("\n")]


def read_text(path: Path, most: int = MOST_BYTES) -> SentText:
    """The file's text; none of a file that is no text. OSError when it cannot be read."""
    with path.open("rb") as file:
        content = file.read(most + 1)
    return SentText(path.name, decoded(content[:most]), len(content) > most)


def decoded(content: bytes) -> str:
    """The bytes as text, with single line feeds: UTF-8 or UTF-16, with a mark or without, otherwise Windows' western
    code page; nothing for what is none of them."""
    encoding, content = _encoding(content)
    if not encoding:
        return ""
    text = content.decode(encoding, "replace")
    return text.replace("\r\n", "\n").replace("\r", "\n").replace("\0", "")


def _encoding(content: bytes) -> tuple[str, bytes]:
    for mark, encoding in _MARKS:
        if content.startswith(mark):
            return encoding, content[len(mark) :]
    some = content[:_LOOKED_AT]
    # Every second byte of western words in UTF-16 is 0; no other text has any.
    zeros = [some[side::2].count(0) for side in (0, 1)]
    if max(zeros) > len(some) // 5:
        return ("utf-16-le" if zeros[1] > zeros[0] else "utf-16-be") if min(zeros) < max(zeros) // 4 else "", content
    if sum(zeros) > len(some) // 50:
        return "", content
    try:
        # A character may be cut off at the end.
        content[: max(0, len(content) - 4)].decode("utf-8")
    except UnicodeDecodeError:
        return "cp1252", content
    return "utf-8", content

"""The drive with the service's package."""

from pathlib import Path

from ..checkout import BUILD
from ..guest.tools import call
from .errors import Unusable

PACKAGE_FOLDER = BUILD / "package"
LABEL = "VEYRA"


def package_files(folder: Path) -> list[str]:
    """The names of what lies in the folder. Unusable when that is nothing."""
    try:
        names = sorted(path.name for path in folder.iterdir())
    except OSError:
        names = []
    if not names:
        raise Unusable(f"there is no package in {folder}: scripts/package makes one, --package names another folder")
    return names


def make_disc(folder: Path, image: Path) -> None:
    """Writes a DVD's image with the folder's content, under the names that it has there."""
    call([
        "xorriso", "-as", "mkisofs", "-quiet", "-volid", LABEL, "-joliet", "-joliet-long", "-rational-rock",
        "-output", image, folder,
    ])

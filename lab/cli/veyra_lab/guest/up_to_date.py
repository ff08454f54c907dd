"""What the guest needs, installed and built when it is not."""

from ..checkout import BUILD
from ..terminal.set_up import call_setup
from .image import PRESET, TARGET, Image, image_of
from .kernel import debian_kernel

LOG_FOLDER = BUILD / "guest"


def up_to_date_image(*targets: str) -> Image:
    """What the guest boots, with its packages installed, and its helper built with these targets beside it. SetUpError
    or GuestError when that fails."""
    call_setup("packages", "usb", aside=True)
    call_setup("build", PRESET, TARGET, *targets, aside=True)
    return image_of(debian_kernel())

"""What is wrong with a capture."""


class CaptureError(Exception):
    """A file is no capture, or holds nothing that a camera could be made of. The text says so in one line."""

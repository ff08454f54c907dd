"""What can go wrong with the guest."""


class GuestError(Exception):
    """The guest did not do what every run of it needs, or something that it takes is missing."""


class KernelRefusal(GuestError):
    """The guest's kernel was asked for something and answered with an error: `errno` is its name ("EPIPE")."""

    def __init__(self, errno: str, why: str) -> None:
        super().__init__(f"{errno}: {why}")
        self.errno = errno

"""Why there is no package."""


class PackageError(Exception):
    """Why there is no package, in one line."""

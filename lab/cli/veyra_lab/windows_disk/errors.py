"""What can be wrong with what the command line names."""


class Unusable(Exception):
    """A file or folder is not what it is said to be."""

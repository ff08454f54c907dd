"""What is wrong with a scenario file."""


class ScenarioError(Exception):
    """A scenario file says something that has no meaning. The text is one line: file, field, what is allowed."""

"""What was carried out and judged, and by which id it can be played again."""

from .transcript import Event, text


def scenario_words(event: Event) -> str:
    """A scenario, or a round of a long run, that begins."""
    return f"scenario {text(event, 'name')}: {text(event, 'description')}{_again(event)}"


def judgement_words(event: Event) -> str:
    """What came of it."""
    return f"did not hold: {text(event, 'why')}{_again(event)}" if is_broken(event) else "everything held"


def is_broken(event: Event) -> bool:
    """Whether the event tells that something did not hold."""
    return event["event"] == "judgement" and event.get("held") is False


def again(events: list[Event], t: float) -> str:
    """The id of what was being carried out at that time; empty when it had none."""
    return next((text(each, "id") for each in reversed(events) if each["event"] == "scenario" and each["t"] <= t), "")


def _again(event: Event) -> str:
    name = text(event, "id")
    return f" (again: scripts/lab replay {name})" if name else ""

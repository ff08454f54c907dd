"""Says in plain words what the laboratory's own events mean: what it did, what it expected, what held."""

from collections.abc import Callable, Iterable

from .telling import Lane, Telling, lane_of_source
from .transcript import Event, number, text, texts


def is_step(event: Event) -> bool:
    """Whether this is a step that the laboratory takes, or a scenario that it begins."""
    return event["event"] in ("step", "scenario")


def step_numbers(steps: Iterable[Event]) -> list[str]:
    """The number of each step: the laboratory's own, or else its place since the run or its scenario began. A
    scenario has none."""
    numbers = []
    count = 0
    for event in steps:
        is_scenario = event["event"] == "scenario"
        count = 0 if is_scenario else count + 1
        numbers.append("" if is_scenario else text(event, "number") or str(count))
    return numbers


def _step(event: Event) -> Telling:
    return Telling(Lane.LABORATORY, text(event, "text") or "a step without words", matters=True)


def _scenario(event: Event) -> Telling:
    words = f"{text(event, 'name')}: {text(event, 'description')}{_again(event)}"
    return Telling(Lane.LABORATORY, words, matters=True)


def _expectation(event: Event) -> Telling:
    complaints = texts(event, "complaints")
    said = f"did not hold: {'; '.join(complaints)}" if complaints else f"held: {text(event, 'text')}"
    return Telling(Lane.LABORATORY, said, matters=True, bad=bool(complaints))


def _judgement(event: Event) -> Telling:
    if event.get("held") is False:
        return Telling(Lane.LABORATORY, f"not everything held{_again(event)}", matters=True, bad=True)
    said = "everything held" if event.get("held") is True else "nothing was judged"
    return Telling(Lane.LABORATORY, said, matters=True)


def _again(event: Event) -> str:
    id_ = text(event, "id")
    return f" (again: scripts/lab replay {id_})" if id_ else ""


def _image(event: Event) -> Telling:
    if event.get("missing") is True:
        return Telling(Lane.LABORATORY, "there is no firmware image in the machine")
    size = number(event, "size")
    words = "" if size is None else f": {size:,} bytes"
    version = f" of version {text(event, 'version')}" if text(event, "version") else ""
    return Telling(Lane.LABORATORY, f"the firmware image in the machine is one{version}{words}")


def _command(event: Event) -> Telling:
    return Telling(Lane.LABORATORY, f"the laboratory tells the {text(event, 'to')}: {text(event, 'command')}")


def _done(event: Event) -> Telling:
    if event.get("ok") is False:
        why = text(event, "why") or "no reason given"
        return Telling(
            lane_of_source(event), f"{text(event, 'command')} was refused: {why}", matters=True, bad=True
        )
    return Telling(lane_of_source(event), f"done: {text(event, 'command')}")


LABORATORY_TELLERS: dict[str, Callable[[Event], Telling]] = {
    "step": _step,
    "scenario": _scenario,
    "expectation": _expectation,
    "judgement": _judgement,
    "image": _image,
    "run": lambda event: Telling(Lane.LABORATORY, f"the run begins, {text(event, 'date').replace('T', ' ')}"),
    "stage": lambda event: Telling(Lane.LABORATORY, "the cameras are made"),
    "command": _command,
    "done": _done,
}

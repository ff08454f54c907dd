"""Makes what fails as small as it goes."""

from collections.abc import Callable, Iterable
from typing import TypeVar

T = TypeVar("T")


def smallest(failing: T, why: Callable[[T], str], smaller: Callable[[T], Iterable[T]]) -> tuple[T, str]:
    """The smallest that is found to fail with the same words as the one given, and these words; the one given, and no
    words, when it does not fail. `why` plays one and says what does not hold; `smaller` has the steps down from one,
    those first that matter most."""
    wanted = why(failing)
    found = bool(wanted)
    while found:
        found = False
        for candidate in smaller(failing):
            if why(candidate) == wanted:
                failing, found = candidate, True
                break
    return failing, wanted

"""Makes a trial that fails as small as it goes."""

from collections.abc import Iterator
from dataclasses import replace
from pathlib import Path

from ..again.smallest import smallest
from .program import replay
from .trial_id import TrialId, read_id

# The smallest image with a version, a whole block, one byte more, and two blocks and a bit.
_SIZES = (402, 1024, 1025, 2049)


def shrink(program: Path, trial: str) -> tuple[str, str]:
    """The id of the smallest trial found that fails with the same words, and these: fewer faults, fewer updates that
    begin otherwise than as ever, a smaller image, an earlier update, an earlier place, in this order of importance. The
    one given, and no words, when it holds alone."""
    found, why = smallest(read_id(trial), lambda each: replay(program, str(each)).why, _smaller)
    return str(found), why


def _smaller(trial: TrialId) -> Iterator[TrialId]:
    faults = list(trial.faults)
    for number in range(len(faults)):
        yield trial.with_faults(faults[:number] + faults[number + 1 :])
    for number in range(len(trial.circumstances)):
        yield replace(trial, circumstances=trial.circumstances[:number] + trial.circumstances[number + 1 :])
    for size in _SIZES:
        if size < trial.image_size:
            yield replace(trial, image_size=size)
            # Of a smaller image's blocks there are fewer: what struck behind the last is somewhere else.
            for number, fault in enumerate(faults):
                for skip in range(fault.skip):
                    moved = [*faults[:number], replace(fault, skip=skip), *faults[number + 1 :]]
                    yield replace(trial.with_faults(moved), image_size=size)
    for number, fault in enumerate(faults):
        for update in range(1, fault.update):
            yield trial.with_faults([*faults[:number], replace(fault, update=update), *faults[number + 1 :]])
        for skip in range(fault.skip):
            yield trial.with_faults([*faults[:number], replace(fault, skip=skip), *faults[number + 1 :]])

"""What happened, in order: a line for each event that matters, one for each run of equal transfers."""

from dataclasses import dataclass

from .codes import DFU_STATES, named
from .download import Download, all_transfers
from .laboratory import is_step, step_numbers
from .summary import Summary
from .telling import Lane, Telling
from .transcript import Event, Transcript
from .transfer import Role, Transfer, describe
from .words import is_block_progress, tell

# More lines than anybody reads; a record of many thousand events has them as technical detail only.
MOST_LINES = 1500


@dataclass
class Line:
    """One line of the list. `detail` for what only a developer needs."""

    t: float
    lane: Lane
    words: str
    detail: bool = False
    bad: bool = False
    # Of a step its number; of a scenario, which has none, its word.
    head: str = ""
    # It failed as was expected, or it held.
    expected: bool = False
    good: bool = False


@dataclass
class Story:
    """The list, and how many lines of technical detail did not fit into it."""

    lines: list[Line]
    left_out: int


def story(transcript: Transcript, summary: Summary) -> Story:
    """The whole list, in the order of the record."""
    lines: list[Line] = []
    heads = iter(step_numbers(event for event in transcript.events if is_step(event)))
    runs = _Runs(summary.downloads)
    for event in transcript.events:
        if event["event"] == "transfer":
            lines += runs.take()
        elif not is_block_progress(event):
            head = (f"Step {count}" if (count := next(heads)) else "Scenario") if is_step(event) else ""
            lines.append(_line(event, tell(event), head))
    for line in lines:
        line.expected = line.bad and summary.held_at(line.t) is True
    return _limited(lines)


def _line(event: Event, telling: Telling, head: str) -> Line:
    line = Line(event["t"], telling.lane, telling.words, not telling.matters, telling.bad, head)
    line.good = event["event"] in ("expectation", "judgement") and not telling.bad
    return line


def _limited(lines: list[Line]) -> Story:
    if len(lines) <= MOST_LINES:
        return Story(lines, 0)
    important = [line for line in lines if line.bad or not line.detail]
    half = MOST_LINES // 2
    if len(important) > MOST_LINES:
        important = important[:half] + important[-half:]
    return Story(important, len(lines) - len(important))


class _Runs:
    """Hands out a line when a run of transfers begins, and nothing for the rest of the run."""

    def __init__(self, downloads: list[Download]) -> None:
        in_order = sorted(all_transfers(downloads), key=lambda transfer: transfer.t)
        self._lines: dict[int, Line] = {}
        begin = 0
        for end in range(1, len(in_order) + 1):
            if end == len(in_order) or _sort_of(in_order[end]) != _sort_of(in_order[begin]):
                self._lines[begin] = _run_line(in_order[begin:end])
                begin = end
        self._position = -1

    def take(self) -> list[Line]:
        self._position += 1
        line = self._lines.get(self._position)
        return [line] if line else []


def _sort_of(transfer: Transfer) -> str:
    """Transfers of one sort that follow each other make a run."""
    if transfer.role is Role.WAIT:
        return f"wait {transfer.block} {transfer.state} {transfer.error}"
    if transfer.role is Role.PLAIN and transfer.block and transfer.ok:
        return "blocks"
    return f"single {transfer.t} {transfer.request} {transfer.value}"


def _run_line(run: list[Transfer]) -> Line:
    first, last = run[0], run[-1]
    if first.role is Role.WAIT:
        often = f"asked {len(run):,} times in {last.t - first.t:.1f} s" if len(run) > 1 else "asked once"
        found = f"state {named(DFU_STATES, last.state)}" if last.ok else f"no answer: {last.code}"
        return Line(first.t, Lane.BUS, f"the camera is not ready: {often}; {found}")
    if first.role is Role.PLAIN and first.block and first.ok:
        sent = [transfer for transfer in run if transfer.request == "DNLOAD"]
        octets = sum(transfer.length for transfer in sent)
        which = (
            f"block {first.block:,}"
            if first.block == last.block
            else f"blocks {first.block:,} to {last.block:,}"
        )
        words = f"{which} sent: {octets:,} bytes in {last.t - first.t:.2f} s ({len(run):,} transfers)"
        return Line(first.t, Lane.BUS, words)
    bad = first.role is Role.FAILED
    return Line(
        first.t,
        Lane.BUS,
        describe(first),
        detail=not bad and first.role is Role.PLAIN and first.request != "DNLOAD",
        bad=bad,
    )

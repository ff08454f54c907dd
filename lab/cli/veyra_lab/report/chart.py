"""Where things stand in the picture, in percent of its width and height."""

from .download import Download, End
from .summary import Summary

_TICKS = 6
_MOST_LABELS = 3
_MOST_STOP_LINES = 12
# What a download's progress is drawn with at most: corners of its line, and points with a tip.
_MOST_CORNERS = 400
_MOST_POINTS = 150


class Chart:
    """The picture's scale, and what of the downloads is drawn over it."""

    def __init__(self, begin: float, end: float, summary: Summary) -> None:
        downloads = summary.downloads
        self.begin = begin
        self.end = end if end > begin else begin + 1.0
        step = (self.end - begin) / _TICKS
        self.ticks = [begin + index * step for index in range(_TICKS)]
        self.sent = [download for download in downloads if download.sent]
        self.most = max((download.blocks or 1 for download in self.sent), default=1)
        # The part of the record that the update takes.
        self.focus: tuple[float, float] | None = None
        if downloads:
            first, last = downloads[0].began, downloads[-1].last
            margin = max(0.05, 0.05 * (last - first))
            self.focus = first - margin, last + margin
        # The failure that the picture opens on, with what led to it.
        self.opening: tuple[float, float] | None = None
        failure = summary.opens_at
        if failure is not None and failure.download is not None:
            begun = failure.download.began
            margin = max(0.01, 0.5 * (failure.t - begun))
            self.opening = begun - margin, failure.t + margin
        stops = [download for download in downloads if download.end is End.STOPPED]
        self.stops = stops if len(stops) <= _MOST_STOP_LINES else []
        self.held_at = summary.held_at
        self.labelled = len(stops) <= _MOST_LABELS

    def at(self, t: float) -> float:
        """A time's place from the left."""
        return min(100.0, max(0.0, 100 * (t - self.begin) / (self.end - self.begin)))

    def width(self, begin: float, end: float) -> float:
        """How wide a length of time is."""
        return self.at(end) - self.at(begin)

    def height(self, blocks: int) -> float:
        """A number of blocks' place from the bottom."""
        return 100 * blocks / self.most

    def longest(self) -> Download:
        """The download that the height of the progress stands for."""
        return max(self.sent, key=lambda each: each.blocks or 0)

    def line(self, download: Download) -> list[tuple[float, float]]:
        """The corners of a download's progress, from the left and from the top."""
        corners = [(self.at(t), 100 - self.height(blocks)) for t, blocks, _ in _some(download.curve, _MOST_CORNERS)]
        end = max(download.stopped_at, download.curve[-1][0])
        return [*corners, (self.at(end), corners[-1][1])]

    def points(self, download: Download) -> list[tuple[float, int, int]]:
        """Time, blocks and bytes of a download's progress."""
        return _some(download.curve, _MOST_POINTS)


def _some(points: list[tuple[float, int, int]], most: int) -> list[tuple[float, int, int]]:
    """At most so many of them, first and last always."""
    if len(points) <= most:
        return points
    step = (len(points) - 1) / (most - 1)
    return [points[round(index * step)] for index in range(most)]

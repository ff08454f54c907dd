"""Writes the page: one HTML text that needs nothing but itself."""

from collections.abc import Iterable
from html import escape
from pathlib import Path

from .download import Download, End, request_in_words
from .lanes import LANES, Mark, Row, Span, curve, rows
from .story import Line, Story, story
from .summary import Failure, Summary, Verdict, duration
from .transcript import Transcript
from .words import Lane

_FOLDER = Path(__file__).resolve().parent
_TICKS = 6
_MOST_LABELS = 3
_MOST_STOP_LINES = 12
_FLAGS = {
    Verdict.UPDATED: ("good", "✓", "Updated"),
    Verdict.STOPPED: ("bad", "✕", "Failed"),
    Verdict.DECLINED: ("calm", "–", "Declined"),
    Verdict.NOT_ASKED: ("calm", "–", "Nothing to do"),
    Verdict.UNFINISHED: ("odd", "?", "Unfinished"),
    Verdict.UNCONFIRMED: ("odd", "!", "Updated, but not confirmed"),
}
# No address but the page itself may be asked for anything, whatever a transcript smuggles in.
_POLICY = "default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'"
_LEGEND = (
    ("o", "bus, upwards: a request that sends something to the camera, mostly a block of the image"),
    ("i", "bus, downwards: a request that asks the camera something, mostly whether it is ready"),
    ("w", "bus: the camera was not ready; the service asks again 0.2 s later"),
    ("e", "bus: a request that may fail, since the camera restarts over it or the service ignores its end"),
    ("c", "bus: a firmware command, or the opening and closing of the device"),
    ("m", "other lanes: something that matters to the story"),
    ("d", "other lanes: a technical detail"),
    ("f", "anywhere: a failure"),
)


def page(transcript: Transcript, summary: Summary, name: str) -> str:
    """The whole page. `name` is what the transcript is called in it."""
    told = story(transcript, summary)
    drawn = rows(transcript, summary)
    scale = _Scale(transcript.events[0]["t"], transcript.events[-1]["t"])
    body = "\n".join(
        [
            _header(summary, name),
            "<main>",
            _failure(summary),
            _totals(summary),
            _picture(summary, drawn, scale),
            _happened(told, summary),
            _problems(summary),
            "</main>",
            _footer(summary, name),
        ]
    )
    return _document(body, summary)


def _document(body: str, summary: Summary) -> str:
    style = (_FOLDER / "page.css").read_text(encoding="utf-8")
    script = (_FOLDER / "page.js").read_text(encoding="utf-8")
    return f"""<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="{_POLICY}">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>{_text(_FLAGS[summary.verdict][2])}: {_text(summary.sentence)}</title>
<style>
{style}</style>
</head>
<body>
{body}
<div id="tip" role="status" aria-live="polite" hidden></div>
<script>
{script}</script>
</body>
</html>
"""


def _text(words: str) -> str:
    """A text as it stands in HTML, also in an attribute. What HTML cannot hold becomes a question mark."""
    printable = "".join(
        each if each in "\n\t" or each.isprintable() else "\N{REPLACEMENT CHARACTER}" for each in words
    )
    return escape(printable, quote=True)


# The top.


def _header(summary: Summary, name: str) -> str:
    kind, sign, word = _FLAGS[summary.verdict]
    headline, _, reason = summary.sentence.partition(": ")
    because = f"<span class='because'>{_text(reason[:1].upper() + reason[1:])}</span>" if reason else ""
    headline = headline if not reason else f"{headline}."
    return f"""<header class="{kind}">
<div class="sign" aria-hidden="true">{sign}</div>
<div>
<p class="kicker">Camera firmware update · <b>{word}</b></p>
<h1>{_text(headline)} {because}</h1>
{_cut_short(summary)}</div>
</header>"""


def _cut_short(summary: Summary) -> str:
    if not summary.cut_short:
        return ""
    words = "The record's last line is half-written: the run was ended by force, or was still going on."
    return f"<p class='note'>{words}</p>\n"


def _failure(summary: Summary) -> str:
    failure = summary.failure
    if failure is None:
        return ""
    download = failure.download
    facts = [("When", f"{failure.t:.3f} s after the run began")]
    if failure.code is not None:
        name = f" <b>{_text(failure.code.name)}</b>" if failure.code.name else ""
        meaning = f"<br>{_text(failure.code.meaning)}" if failure.code.meaning else ""
        facts.append(("Status code", f"<code>{failure.code.number}</code>{name}{meaning}"))
    if download is not None and download.culprit is not None:
        facts.append(("Last request", _text(request_in_words(download.culprit))))
    facts.append(("And then", "The service does not try again and leaves the camera as it is."))
    return f"""<section class="card failure" aria-labelledby="where">
<h2 id="where">Where it stopped</h2>
{_how_far(failure, download)}
<dl>{''.join(f'<div><dt>{what}</dt><dd>{fact}</dd></div>' for what, fact in facts)}</dl>
</section>"""


def _how_far(failure: Failure, download: Download | None) -> str:
    if download is None or not failure.blocks:
        return ""
    share = 100 * download.confirmed / failure.blocks
    here = f"block {failure.block:,} of {failure.blocks:,}" if failure.block else "before the first block"
    here = "after the last block" if download.complete_image else here
    return f"""<div class="far" role="img" aria-label="{share:.0f} percent had arrived">
<div class="done" style="width:{share:.2f}%"></div><div class="stop" style="left:{share:.2f}%"></div></div>
<p class="farwords"><b>{here}</b> · {download.confirmed:,} had arrived ({share:.0f}&nbsp;%)</p>"""


def _totals(summary: Summary) -> str:
    if not summary.downloads:
        return ""
    blocks = f"{summary.blocks_confirmed:,}"
    known = [download.blocks or 0 for download in summary.downloads]
    if sum(known) > summary.blocks_confirmed:
        blocks += f" <small>of {sum(known):,}</small>"
    update = "–" if summary.update_seconds is None else duration(summary.update_seconds)
    tiles = [
        ("Update", update, "from the user's yes to the end"),
        ("Download", duration(summary.download_seconds), "with the device open"),
        ("Blocks", blocks, "confirmed by the camera"),
        ("Bytes", f"{summary.bytes_sent:,}", "of the image sent"),
        ("Transfers", f"{summary.transfers:,}", "requests on the USB cable"),
        ("Waits", f"{summary.waits:,}", _waiting(summary)),
    ]
    cells = "".join(
        f"<div><dt>{name}</dt><dd>{value}</dd><dd class='hint'>{hint}</dd></div>"
        for name, value, hint in tiles
    )
    return f"<section aria-label='Totals'><dl class='totals'>{cells}</dl></section>"


def _waiting(summary: Summary) -> str:
    if summary.waits == 0:
        return "for a camera that was not ready"
    return f"{duration(summary.wait_seconds)} for a camera that was not ready"


# The picture.


class _Scale:
    """Turns times into places, in percent of the picture's width."""

    def __init__(self, begin: float, end: float) -> None:
        self.begin = begin
        self.end = end if end > begin else begin + 1.0

    def at(self, t: float) -> float:
        return min(100.0, max(0.0, 100 * (t - self.begin) / (self.end - self.begin)))


def _picture(summary: Summary, drawn: list[Row], scale: _Scale) -> str:
    lanes = "\n".join(_row(row, scale) for row in drawn)
    update = _focus(summary)
    focus = f' data-from="{scale.at(update[0]):.4f}" data-to="{scale.at(update[1]):.4f}"' if update else ""
    return f"""<section class="card" aria-labelledby="picture">
<div class="bar"><h2 id="picture">The picture</h2><div class="zoom" hidden></div></div>
<p class="hint">Time runs from left to right. Point at anything, or tap it; with the keyboard, go to a lane and use the
arrow keys.{_thinned(drawn)}</p>
<div class="scroll" tabindex="-1"><div class="chart" data-begin="{scale.begin:.6f}" data-end="{scale.end:.6f}"{focus}>
{_axis(scale)}
{lanes}
{_progress(summary, scale)}
{_stop_line(summary, scale)}
</div></div>
{_legend()}
</section>"""


def _focus(summary: Summary) -> tuple[float, float] | None:
    """The part of the record that the update takes."""
    if not summary.downloads:
        return None
    first, last = summary.downloads[0], summary.downloads[-1]
    margin = max(0.05, 0.05 * (last.last - first.began))
    return first.began - margin, last.last + margin


def _thinned(drawn: Iterable[Row]) -> str:
    heavy = [row for row in drawn if row.thinned_from]
    if not heavy:
        return ""
    which = " and ".join(f"{row.thinned_from:,} in lane “{LANES[row.lane][0]}”" for row in heavy)
    return (
        f" <strong>There are too many events to draw each one ({which}): there a bar stands for all that happened in"
        " its time; failures are drawn one by one.</strong>"
    )


def _axis(scale: _Scale) -> str:
    step = (scale.end - scale.begin) / _TICKS
    ticks = "".join(
        f'<span class="tick" style="left:{scale.at(scale.begin + index * step):.3f}%">'
        f"{scale.begin + index * step:.1f} s</span>"
        for index in range(_TICKS)
    )
    return f'<div class="lane axis"><div class="name" aria-hidden="true"></div><div class="track">{ticks}</div></div>'


def _row(row: Row, scale: _Scale) -> str:
    name, meaning = LANES[row.lane]
    things = "".join(_span(span, scale) for span in row.spans) + "".join(
        _mark(mark, scale) for mark in row.marks
    )
    count = len(row.spans) + len(row.marks)
    kinds = f"lane {row.lane.value} thin" if row.thinned_from else f"lane {row.lane.value}"
    how = f"{name}, {count} things. Use the arrow keys."
    levels = 1 + max((span.level for span in row.spans), default=0)
    room = f' style="--levels:{levels}"' if levels > 1 else ""
    return f"""<div class="{kinds}"><div class="name"><b>{name}</b><small>{meaning}</small></div>
<div class="track" tabindex="0" role="group" aria-label="{how}"{room}>{things}</div></div>"""


def _span(span: Span, scale: _Scale) -> str:
    left = scale.at(span.begin)
    width = scale.at(span.end) - left
    count = f"<b>{span.number}</b>" if span.number else ""
    label = f"<span>{count}<em>{_text(span.label)}</em></span>" if span.label else ""
    level = f";--level:{span.level}" if span.level else ""
    return f'<div class="s {span.kind}" style="left:{left:.3f}%;width:{width:.3f}%{level}" title="{_text(span.tip)}">{label}</div>'


def _mark(mark: Mark, scale: _Scale) -> str:
    left = scale.at(mark.at)
    if mark.end is None:
        return f'<i class="{mark.kind}" style="left:{left:.3f}%" title="{_text(mark.tip)}"></i>'
    width = scale.at(mark.end) - left
    height = max(4.0, 100 * mark.weight)
    return (
        f'<i class="{mark.kind}" style="left:{left:.3f}%;width:{width:.3f}%;height:{height:.1f}%" '
        f'title="{_text(mark.tip)}"></i>'
    )


def _progress(summary: Summary, scale: _Scale) -> str:
    drawn = [download for download in summary.downloads if len(download.curve) > 1 or download.sent]
    name = (
        "<div class='name'><b>Progress</b><small>how much of the image the camera has confirmed</small></div>"
    )
    if not drawn:
        empty = "<p class='none'>No block of an image was sent.</p>"
        return f'<div class="lane progress empty">{name}<div class="track">{empty}</div></div>'
    most = max(download.blocks or 1 for download in drawn)
    lines = "".join(_curve(download, most, scale) for download in drawn)
    points = "".join(_curve_points(download, most, scale) for download in drawn)
    whole = max(drawn, key=lambda each: each.blocks or 0)
    top = f"{most:,} blocks"
    if whole.complete_image:
        top += f" ({whole.bytes_confirmed:,} bytes)"
    return f"""<div class="lane progress">{name}
<div class="track" tabindex="0" role="group" aria-label="Progress. Use the arrow keys.">
<span class="y top">{top}</span><span class="y mid">half</span><span class="y zero">0</span>
<svg viewBox="0 0 100 100" preserveAspectRatio="none" aria-hidden="true">{lines}</svg>{points}</div></div>"""


def _curve(download: Download, most: int, scale: _Scale) -> str:
    places = [(scale.at(t), 100 - 100 * blocks / most) for t, blocks, _ in curve(download)]
    places.append((scale.at(max(download.stopped_at, download.curve[-1][0])), places[-1][1]))
    line = " ".join(f"{x:.3f},{y:.2f}" for x, y in places)
    area = f"{places[0][0]:.3f},100 {line} {places[-1][0]:.3f},100"
    return f'<polygon points="{area}"/><polyline points="{line}"/>'


def _curve_points(download: Download, most: int, scale: _Scale) -> str:
    total = f" of {download.blocks:,}" if download.blocks else ""
    points = "".join(
        f'<i class="p" style="left:{scale.at(t):.3f}%;bottom:{100 * blocks / most:.2f}%" '
        f'title="{t:.3f} s&#10;{blocks:,}{total} blocks, {count:,} bytes confirmed"></i>'
        for t, blocks, count in curve(download, 150)
    )
    if download.end is not End.STOPPED:
        return points
    tip = f"{download.stopped_at:.3f} s\nStopped here: {download.why}"
    return points + (
        f'<i class="x" style="left:{scale.at(download.stopped_at):.3f}%;bottom:{100 * download.confirmed / most:.2f}%" '
        f'title="{_text(tip)}"></i>'
    )


def _stop_line(summary: Summary, scale: _Scale) -> str:
    stops = [download for download in summary.downloads if download.end is End.STOPPED]
    if len(stops) > _MOST_STOP_LINES:
        return ""
    return "".join(_one_stop_line(download, scale, len(stops) <= _MOST_LABELS) for download in stops)


def _one_stop_line(download: Download, scale: _Scale, labelled: bool) -> str:
    left = scale.at(download.stopped_at)
    if download.complete_image:
        where = "stopped after the last block"
    elif download.sent:
        where = f"stopped at block {download.sent:,}"
    else:
        where = "stopped here"
    label = f"<span>{where}</span>" if labelled else ""
    side = "left" if left > 45 else "right"
    return f'<div class="stopline {side}" style="--at:{left / 100:.5f}">{label}</div>'


def _legend() -> str:
    things = "".join(f'<li><i class="key {kind}"></i>{words}</li>' for kind, words in _LEGEND)
    lanes = "".join(f"<li><b>{name}</b>: {meaning}</li>" for name, meaning in LANES.values())
    return f"""<details class="legend" open><summary>What the signs mean</summary>
<ul class="keys">{things}</ul><ul class="lanes">{lanes}</ul></details>"""


# The list.


def _happened(told: Story, summary: Summary) -> str:
    lines = "".join(_line(line) for line in told.lines)
    left_out = (
        f"<p class='hint'>{told.left_out:,} lines of technical detail do not fit into this page;"
        " the transcript has them.</p>"
        if told.left_out
        else ""
    )
    return f"""<section class="card" aria-labelledby="happened">
<h2 id="happened">What happened, in order</h2>
<input type="checkbox" id="details"><label for="details">also show technical detail</label>
<ol class="story">{lines}</ol>{left_out}
</section>"""


def _line(line: Line) -> str:
    kinds = [line.lane.value]
    kinds += ["detail"] if line.detail else []
    kinds += ["bad"] if line.bad else []
    kinds += ["head"] if line.step else []
    who = {Lane.LABORATORY: "Laboratory", Lane.CONTROL_MANAGER: "Control manager"}.get(
        line.lane, LANES[line.lane][0]
    )
    who = f"Step {line.step}" if line.step else who
    sentence = line.words[:1].upper() + line.words[1:]
    return f'<li class="{" ".join(kinds)}"><time>{line.t:.3f} s</time><b>{who}</b><span>{_text(sentence)}</span></li>'


def _problems(summary: Summary) -> str:
    real = [problem for problem in summary.problems if not problem.harmless]
    if not real:
        return ""
    lines = "".join(
        f"<li class='bad'><time>{problem.t:.3f} s</time><b>Problem</b><span>{_text(problem.text)}</span></li>"
        for problem in real[:200]
    )
    return f"""<section class="card" aria-labelledby="problems">
<h2 id="problems">Went wrong on the way</h2><ol class="story">{lines}</ol></section>"""


def _footer(summary: Summary, name: str) -> str:
    return (
        f"<footer><p>Made from <code>{_text(name)}</code>: {summary.events:,} events in "
        f"{duration(summary.record_seconds)}. Times are seconds since the run began.</p></footer>"
    )

"""Writes the page: one HTML text that needs nothing but itself."""

from pathlib import Path

from jinja2 import Environment, FileSystemLoader, StrictUndefined
from markupsafe import Markup

from ..causes.answer import Answer
from ..causes.rows import rows as rows_of_operations
from ..causes.sent import Sent
from .chart import Chart
from .codes import duration
from .lanes import LANES, rows
from .remedy import row_named
from .story import story
from .summary import Summary
from .top import top
from .transcript import Transcript
from .transfer import request_in_words

_FOLDER = Path(__file__).resolve().parent


def page(transcript: Transcript, summary: Summary, name: str) -> str:
    """The whole page. `name` is what the transcript is called in it."""
    events = transcript.events
    return _ENVIRONMENT.get_template("page.html.j2").render(
        name=name,
        summary=summary,
        chart=Chart(events[0]["t"], events[-1]["t"], summary),
        top=top(summary),
        row_named=row_named,
        rows=rows(transcript, summary),
        story=story(transcript, summary),
        lanes=LANES,
        style=_style(),
        script=Markup((_FOLDER / "page.js").read_text(encoding="utf-8")),
    )


def cause_page(answer: Answer, sent: Sent, name: str) -> str:
    """The page of what a user has sent. `name` is what that is called in it."""
    return _ENVIRONMENT.get_template("cause.html.j2").render(
        answer=answer, sent=sent, name=name, rows=rows_of_operations(), most=30, style=_style()
    )


def _style() -> Markup:
    return Markup((_FOLDER / "page.css").read_text(encoding="utf-8"))


def _printable(value: object) -> object:
    """Whatever a template writes, without the characters that HTML cannot hold or that hide what stands there."""
    if not isinstance(value, str) or isinstance(value, Markup) or value.isprintable():
        return value
    return "".join(each if each in "\n\t" or each.isprintable() else "\N{REPLACEMENT CHARACTER}" for each in value)


def _environment() -> Environment:
    environment = Environment(
        loader=FileSystemLoader(_FOLDER / "templates"),
        autoescape=True,
        undefined=StrictUndefined,
        finalize=_printable,
        trim_blocks=True,
        lstrip_blocks=True,
        auto_reload=False,
    )
    environment.filters.update(
        duration=duration,
        request=request_in_words,
        thousands=lambda count: f"{count:,}",
        capital=lambda words: words[:1].upper() + words[1:],
    )
    return environment


_ENVIRONMENT = _environment()

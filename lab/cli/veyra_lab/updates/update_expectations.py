"""What has to hold of the question, its answer and the camera."""

from dataclasses import replace

from ..wire.events import BLOCK_NUMBERS
from .expectation import ACCEPTED, ASKED, LEFT_ALONE, Expectations, differ
from .plan import Foreseen
from .record import Record

EXPECTATIONS = Expectations()


@EXPECTATIONS.expect("the user is asked at each arrival, with the camera's version and the image's", *ASKED)
def _asked_at_each_arrival(record: Record) -> str:
    wanted = [[record.plan.camera_version, record.plan.image_version]] * record.plan.questions
    seen = [event["texts"] for event in record.prompt_calls("ShowUpdatePrompt")]
    # In the window somebody may have answered before the second arrival.
    return "" if record.plan.window and seen == wanted[:1] else differ("questions", wanted, seen)


@EXPECTATIONS.expect("nobody is asked", Foreseen.NOT_ASKED)
def _not_asked(record: Record) -> str:
    return differ("questions", [], [event["texts"] for event in record.prompt_calls("ShowUpdatePrompt")])


@EXPECTATIONS.expect("nothing is done to the camera before the answer", *ASKED)
def _nothing_before_the_answer(record: Record) -> str:
    early = replace(record, events=record.events[: record.answered_at])
    return differ("early commands and transfers", [], early.commands_to_dfu_mode() + early.transfers())


@EXPECTATIONS.expect("the answer reaches the service", *ASKED)
def _answer_arrives(record: Record) -> str:
    wanted = [(1 if record.plan.accept else 0, 1)]
    seen = [(event["code"], event["sinks"]) for event in record.events if event["event"] == "answer"]
    return differ("answers (code, listeners)", wanted, seen)


@EXPECTATIONS.expect("the camera is left alone", *LEFT_ALONE)
def _left_alone(record: Record) -> str:
    touched = record.commands_to_dfu_mode() + record.transfers()
    return (
        differ("commands and transfers", [], touched)
        or differ("progress", [], record.prompt_calls("NotifyProgress"))
        or differ("ends of a download", [], record.prompt_calls("NotifyComplete"))
        or differ("camera before and after", record.before, record.after)
    )


@EXPECTATIONS.expect("the camera is sent into DFU mode by one command", *ACCEPTED)
def _dfu_mode_command(record: Record) -> str:
    wanted = [(20, [1, 0, 0, 0])]
    seen = [(event["length"], event["parameters"]) for event in record.commands_to_dfu_mode()]
    return differ("commands (length field, parameters)", wanted, seen)


@EXPECTATIONS.expect("the progress is told block by block", Foreseen.UPDATED)
def _progress(record: Record) -> str:
    wanted = [f"start:{record.plan.announced_blocks}"]
    wanted += [str(block % BLOCK_NUMBERS) for block in range(1, record.plan.blocks + 1)]
    seen = [event["texts"][0] for event in record.prompt_calls("NotifyProgress")]
    if wanted == seen:
        return ""
    for position, (one, other) in enumerate(zip(wanted, seen)):
        if one != other:
            return f"value {position}: {one} was expected, {other} was seen"
    return differ("number of values", len(wanted), len(seen))


@EXPECTATIONS.expect("only the number of blocks is told", Foreseen.PROBE_REFUSED)
def _no_progress(record: Record) -> str:
    wanted = [[f"start:{record.plan.announced_blocks}"]]
    return differ("progress", wanted, [event["texts"] for event in record.prompt_calls("NotifyProgress")])


@EXPECTATIONS.expect("the end of the download is told once", *ACCEPTED)
def _completion(record: Record) -> str:
    return differ("calls", 1, len(record.prompt_calls("NotifyComplete")))


@EXPECTATIONS.expect("the flash equals the image byte for byte", Foreseen.UPDATED)
def _flash(record: Record) -> str:
    image, flash = record.plan.image, record.flash
    if flash == image:
        return ""
    for offset, (wanted, seen) in enumerate(zip(image, flash)):
        if wanted != seen:
            return f"byte {offset} is {seen:#04x} instead of {wanted:#04x}"
    return f"the flash has {len(flash)} bytes, the image {len(image)}"


@EXPECTATIONS.expect("no block is lost and the camera runs the image's version", Foreseen.UPDATED)
def _new_firmware(record: Record) -> str:
    after = record.after
    assert after is not None
    wanted = ("running", record.plan.image_version, 0)
    return differ("mode, version, gaps", wanted, (after.mode, after.version, after.block_number_gaps))


@EXPECTATIONS.expect("the camera keeps its firmware", Foreseen.PROBE_REFUSED)
def _old_firmware(record: Record) -> str:
    assert record.after is not None
    return differ("version", record.plan.camera_version, record.after.version)

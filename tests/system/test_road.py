"""Whole runs through the laboratory, each with another camera, image, machine or mishap."""

import unittest

from support import complaints, random_image, run_update, slow
from veyra_lab.updates.plan import Foreseen, UpdatePlan
from veyra_lab.windows.image import with_version

SIZES = (402, 4096, 100_001)
TRANSFER_SIZES = (128, 1024, 4096)


class Road(unittest.TestCase):
    def check(self, plan: UpdatePlan, foreseen: Foreseen) -> None:
        """Carries the update out; every expectation of its outcome has to hold."""
        self.assertEqual(plan.foreseen, foreseen)
        self.assertEqual(complaints(run_update(plan)), [])

    def check_update(self, size: int, transfer_size: int) -> None:
        """An image of this size arrives whole."""
        image = random_image(size)
        self.check(UpdatePlan(image=image, camera_version="1.2.3.4", transfer_size=transfer_size), Foreseen.UPDATED)

    def test_updates_with_the_smallest_image(self) -> None:
        self.check_update(SIZES[0], TRANSFER_SIZES[0])

    def test_updates_with_an_image_of_whole_blocks(self) -> None:
        self.check_update(SIZES[1], TRANSFER_SIZES[1])

    def test_updates_with_an_image_that_ends_in_a_short_block(self) -> None:
        self.check_update(SIZES[2], TRANSFER_SIZES[2])

    @slow
    def test_updates_with_each_size_whatever_the_camera_takes_in_one_transfer(self) -> None:
        for size in SIZES:
            for transfer_size in TRANSFER_SIZES:
                with self.subTest(size=size, transfer_size=transfer_size):
                    self.check_update(size, transfer_size)

    def test_updates_with_eight_mebibytes(self) -> None:
        self.check(UpdatePlan(image=random_image(8 << 20), transfer_size=4096), Foreseen.UPDATED)

    @slow
    def test_updates_past_the_last_block_number(self) -> None:
        # 65,537 blocks: the number of the last one is 0 again.
        self.check(UpdatePlan(image=random_image(128 * 65_536 + 1), transfer_size=128), Foreseen.UPDATED)

    def test_updates_with_the_largest_transfer_size(self) -> None:
        self.check(UpdatePlan(image=random_image(100_001), transfer_size=65_535), Foreseen.UPDATED)

    def test_updates_with_the_smallest_transfer_size_that_the_probe_fits(self) -> None:
        self.check(UpdatePlan(image=random_image(4096), transfer_size=68), Foreseen.UPDATED)

    def test_updates_to_an_older_version(self) -> None:
        self.check(UpdatePlan(camera_version="255.255.255.255"), Foreseen.UPDATED)

    def test_asks_no_second_time_after_an_image_without_a_known_version(self) -> None:
        self.check(UpdatePlan(image=with_version(random_image(4096), "0.0.0.0")), Foreseen.UPDATED)

    def test_sends_no_block_to_a_camera_whose_transfers_are_too_short_for_the_probe(self) -> None:
        self.check(UpdatePlan(image=random_image(4096), transfer_size=67), Foreseen.PROBE_REFUSED)

    def test_leaves_the_camera_alone_when_the_user_declines(self) -> None:
        self.check(UpdatePlan(accept=False), Foreseen.DECLINED)

    def test_asks_nobody_in_the_automatic_mode(self) -> None:
        self.check(UpdatePlan(update_mode="Auto"), Foreseen.NOT_ASKED)

    def test_asks_nobody_when_updates_are_disabled(self) -> None:
        self.check(UpdatePlan(update_mode="Disabled"), Foreseen.NOT_ASKED)

    def test_asks_nobody_when_no_update_mode_is_set(self) -> None:
        self.check(UpdatePlan(update_mode=None), Foreseen.NOT_ASKED)

    def test_asks_nobody_when_the_update_mode_is_written_in_another_case(self) -> None:
        self.check(UpdatePlan(update_mode="service controlled"), Foreseen.NOT_ASKED)

    def test_asks_nobody_when_the_versions_are_equal(self) -> None:
        self.check(UpdatePlan(camera_version="5.10.3.0"), Foreseen.NOT_ASKED)

    def test_asks_nobody_when_the_camera_version_is_unknown(self) -> None:
        self.check(UpdatePlan(camera_version="0.0.0.0"), Foreseen.NOT_ASKED)

    def test_runs_and_stops_without_a_toast_server(self) -> None:
        self.check(UpdatePlan(toast_server=False), Foreseen.NOT_ASKED)

    def check_end(self, what: str) -> None:
        """The fourth block meets a fault: that transfer is the last, and the service stops as ever."""
        fault = {"where": "DNLOAD", "what": what, "skip": 3, "count": 1}
        plan = UpdatePlan(camera={"faults": [fault]})
        self.assertEqual(plan.foreseen, Foreseen.BROKEN_OFF)
        record = run_update(plan)
        self.assertEqual(complaints(record), [])
        *before, end = record.transfers()
        self.assertTrue(all(transfer["ok"] for transfer in before))
        self.assertEqual((end["ok"], end["setup"]), (False, "21 01 03 00 00 00 00 04"))
        self.assertNotEqual(record.flash, plan.image)

    def test_ends_the_update_when_the_camera_refuses_a_block(self) -> None:
        self.check_end("stall")

    def test_ends_the_update_when_the_camera_is_pulled_out(self) -> None:
        self.check_end("unplug")

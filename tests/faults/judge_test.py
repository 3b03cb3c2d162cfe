"""The judge sees what it is there for: a card that was tampered with does not pass."""

import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(__file__))
from bench import Bench  # noqa: E402


class JudgeTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.bench = Bench()
        cls.addClassCleanup(cls.bench.close)
        cls.bench.start_recorder()
        cls.bench.wait_until_recording()
        cls.bench.make_event()
        cls.bench.stop_recorder()
        cls.judge = cls.bench.judge
        cls.before = cls.judge.snapshot()
        cls.judge.check(cls.before)

    def assert_found(self, what, undo, before=None):
        with self.assertRaisesRegex(AssertionError, what):
            self.judge.check(before or self.before)
        undo()
        self.judge.check(self.before)

    def write(self, name, offset, data):
        """Overwrites bytes of the store; returns what puts them back."""
        old = self.bench.camera.overwrite(name, offset, data)
        return lambda: self.bench.camera.overwrite(name, offset, old)

    def test_bytes_written_over_are_told(self):
        for what, name, offset, data in (
                ("gone: the bytes", "hi000000.mp4", 400, b"\x5a\xa5"),
                ("gone: section", "index000.bin", 1024 + 24, b"\x01"),  # the file's sections
                ("gone: event", "event000.bin", 16, b"\x00"),  # the file's events
                ("torn: .* key frame", "hi000000.mp4", 0x0FC00000 + 20 + 12, b"\x01")):
            with self.subTest(what):
                self.assert_found(what, self.write(name, offset, data))

    def test_what_nobody_published_is_told(self):
        self.assert_found("never published", self.write("hi000000.mp4", 400, b"\x5a\xa5"), before=({}, {}))

    def test_a_frame_that_comes_again_is_told(self):
        records, places = self.judge.journals.records, self.judge.journals.places
        video = [i for i in self.judge.indices if records[i].kind == "video"]
        frame = (records[video[3]].kind, records[video[3]].crc, records[video[3]].length)
        places[frame] = [0]  # as if it had been published long before the section began
        self.assert_found("twice", lambda: places.update({frame: [video[3]]}))

    def test_a_file_beneath_the_card_is_beside_it(self):
        path = self.judge.beneath + "/sdcard/hi000009.mp4"
        open(path, "w").close()
        self.assert_found("beside", lambda: os.unlink(path))

    def test_only_the_known_price_of_a_fault_is_forgiven(self):
        undo = self.write("index000.bin", 131072 + 64 + 24, b"\x01\0\0\0")  # pictures of section 0:1
        with self.assertRaisesRegex(AssertionError, "check: error: .*pictures"):
            self.judge.check(self.before, cost="key frames have none")
        self.judge.check(self.before, cost=r"section \d+:\d+ has \d+ pictures")
        self.assertTrue(self.judge.marked)
        undo()
        self.judge.check(self.before)
        self.assertFalse(self.judge.marked)


if __name__ == "__main__":
    unittest.main(verbosity=2)

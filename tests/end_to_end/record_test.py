"""The whole recording path on real video: every way a run ends, and every published access unit on the card."""

import datetime
import os
import struct
import sys
import unittest
import zlib
from pathlib import Path

sys.path.insert(0, os.path.dirname(__file__))
from camera import RECORDER, CameraTest, wait_for  # noqa: E402
from card_reader import STREAM_LIMIT  # noqa: E402

PROGRAM = Path(RECORDER[-1]).read_bytes()


class EndsOfARun(CameraTest):
    def test_a_changed_setting_ends_the_run_and_the_next_begins_with_it(self):
        camera = self.camera
        camera.start()
        changes = {"stream_config[0].height": 700, "lan_config.nRotateAngle": 1, "Record_config.ucVideoStreamType": 1,
                   "lan_config.nEncodingType2": 1}
        for name, value in changes.items():
            camera.set(**{name: value})
            self.expect(r"Record Over")
            self.expect(r"Now RotateAngle")
        camera.set(Record_config__ucEnable=0)
        self.expect(r"Video Record Enable close !")
        self.expect(r"VideoRecord not enable")
        camera.set(Record_config__ucEnable=1)
        self.expect(r"keyType = 1")
        self.assert_stopped_in_order()

        recorded = camera.recorded()
        self.assertEqual([section.video for section, _ in recorded], 4 * [4096 & 0xFF] + 2 * [4097 & 0xFF])
        camera.assert_complete(recorded[:3], stream=0)
        camera.assert_complete(recorded[3:], stream=1)
        sizes = [(section.width, section.height) for section, _ in recorded]
        self.assertEqual(sizes[1:3], [(1280, 700), (700, 1280)], "a rotated picture is indexed upright")

    def test_a_full_file_is_followed_by_the_next_and_the_ring_wraps(self):
        camera = self.camera
        nearly_full = struct.pack("<4s7I16x", b"RFHF", 2, 1, 2, STREAM_LIMIT - 300_000, 1, 0, 0)
        camera.overwrite("index000.bin", 1024 + 48 * 2, nearly_full)
        camera.overwrite("index000.bin", 24, struct.pack("<II", 2, 2))  # files used, the current one
        camera.start()
        self.expect(r"File size  lager  over!")
        self.expect(r"FileName = /var/etc/sdcard/hi000000.mp4")
        self.expect(r"keyType = 1")
        self.assert_stopped_in_order()
        system = camera.card.system()
        self.assertEqual((system.current, system.used), (0, 3))
        self.assertGreaterEqual(camera.card.file_head(2).length, STREAM_LIMIT)
        last, first = camera.card.sections(2)[-1], camera.card.sections(0)[0]
        camera.assert_complete([(s, camera.card.check_section(s)) for s in (last, first)])

    def test_midnight_ends_the_run_and_the_next_belongs_to_the_new_day(self):
        self.camera.start_desk()
        self.camera.start_recorder(clock("2026-11-21 23:59:50"))
        self.expect(r"keyType = 1")
        self.expect(r"23:59:59\n")
        self.expect(r"KeyFrameTime. 2026-11-22")
        self.assert_stopped_in_order()
        first, second = [section for section, _ in self.camera.recorded()][:2]
        self.assertEqual(day(first.start), day(first.end))
        self.assertEqual(day(second.start), day(first.end) + datetime.timedelta(days=1), "no section spans two days")
        self.assertLessEqual(second.start - first.end, 3)


class Resilience(CameraTest):
    def test_what_was_missing_at_the_start_is_tried_again(self):
        limit = Path("/proc/sys/kernel/shmmni")
        limit.write_text("0")
        self.camera.start_recorder()
        self.expect(r"camera access did not start, is tried again")
        self.expect(r"stream readers did not start, is tried again")
        self.expect(r"CheckRecordStart sleep")
        limit.write_text("4096")
        self.camera.start_desk()
        self.expect(r"camera access started")
        self.expect(r"keyType = 1")
        self.assert_stopped_in_order()
        self.camera.assert_complete()

    @unittest.skipIf(len(RECORDER) > 1 or b"__asan_init" in PROGRAM or b"__tsan_init" in PROGRAM,
                     "emulated, or under a sanitizer")
    def test_memory_stays_within_its_ceiling(self):
        camera = self.camera
        camera.start()
        wait_for("frames on the card", lambda: camera.frames() > 50)
        process = f"/proc/{camera.recorder.child.pid}"
        with open(f"{process}/status") as status, open(f"{process}/smaps_rollup") as rollup:
            kib = {line.split(":")[0]: int(line.split()[1]) for line in [*status, *rollup]
                   if line.startswith(("VmSize", "Anonymous", "Private_Clean", "Private_Dirty"))}
        self.assertLess(kib["VmSize"], 6144, "address space")
        self.assertLess(kib["Anonymous"], 320, "written by the recorder")
        self.assertLess(kib["Private_Clean"] + kib["Private_Dirty"], 512, "and the program itself, which nobody shares")
        self.assert_stopped_in_order()


class HostileMediaServer(CameraTest):
    def test_recording_survives_garbage_and_resumes(self):
        camera = self.camera
        camera.start("--hostile", os.environ.get("SEED", "7"))
        camera.desk.expect(r"hostile: over")
        seen = len(camera.published())
        wait_for("frames after the garbage", lambda: len(camera.published()) > seen + 100)
        self.assert_stopped_in_order()
        good = {p.crc for p in camera.published()}
        for _, frames in camera.recorded():
            self.assertGreater(len(frames), 0)
            for frame in frames[-50:]:
                self.assertIn(zlib.crc32(frame.payload), good)


def clock(at):
    """Environment in which the recorder's wall clock starts at `at`; its binary stays as it is.

    The library's waits go past the thread sanitizer, which then believes that a thread that waits holds its mutex.
    """
    if b"__tsan_init" in PROGRAM:
        raise unittest.SkipTest("the thread sanitizer does not see waits by a faked clock")
    library = next(Path("/usr/lib").glob("*/faketime/libfaketime.so.1"))
    # A sanitizer would insist on being the first library, which its children (a shell, mount) do not survive.
    return {"LD_PRELOAD": str(library), "FAKETIME": "@" + at, "FAKETIME_DONT_FAKE_MONOTONIC": "1",
            "ASAN_OPTIONS": "verify_asan_link_order=0:" + os.environ.get("ASAN_OPTIONS", "")}


def day(seconds):
    return datetime.datetime.fromtimestamp(seconds).date()


if __name__ == "__main__":
    unittest.main(verbosity=2)

"""Alarms, heartbeat and console beside recording, on the unmodified recorder."""

import os
import re
import socket
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(__file__))
from camera import DESK_CAMERA, Camera, wait_for  # noqa: E402

MARKER = "/tmp/Debug_Port_ON"
ROUNDS = 100


class PeersTest(unittest.TestCase):
    def setUp(self):
        self.camera = Camera()
        self.addCleanup(self.camera.close)
        self.addCleanup(lambda: os.path.exists(MARKER) and os.unlink(MARKER))

    def tell(self, *command):
        subprocess.run([DESK_CAMERA, *command], check=True, capture_output=True, text=True)


def connect():
    try:
        return socket.create_connection(("127.0.0.1", 409), 2)
    except OSError:
        return None


def newest_beat():
    """The seconds between which the table's newest beat lies, however long the answer took; None before the first."""
    asked = int(time.time())
    status = subprocess.run([DESK_CAMERA, "status"], check=True, capture_output=True, text=True).stdout
    beat = re.search(r"heartbeat (\d+) s ago|no heartbeat yet", status)
    return beat[1] and (asked - int(beat[1]), int(time.time()) - int(beat[1]))


class AlarmEvents(PeersTest):
    def test_alarms_become_events_that_can_be_exported(self):
        camera = self.camera
        camera.set(schedule__daily="00:00-24:00 motion", Record_config__ucrecordDelay=8, Record_config__ucpreRecordTime=0)
        camera.start()
        self.tell("alarm", "motion", "on")
        camera.recorder.expect(r"KeyFrameTime", 10)
        camera.recorder.expect(r"KeyFrameTime", 10)
        self.tell("alarm", "motion", "off")
        camera.recorder.expect(r"KeyFrameTime", 10)
        camera.set(schedule__daily="00:00-24:00 io")
        camera.recorder.expect(r"KeyFrameTime", 10)
        self.tell("alarm", "io0", "on")  # still on when the recorder stops: the event ends with the run
        camera.recorder.expect(r"KeyFrameTime", 10)
        camera.recorder.expect(r"KeyFrameTime", 10)
        self.assertEqual(camera.stop(), 0)
        camera.assert_complete()

        listed = camera.card_tool("events", camera.image).splitlines()
        self.assertEqual(len(listed), 2, listed)
        self.assertRegex(listed[0], r"^ *1 .* motion ")
        self.assertRegex(listed[1], r"^ *2 .* input ")
        for number in ("1", "2"):
            clip = os.path.join(camera.folder, number + ".mp4")
            camera.card_tool("export", camera.image, "--event", number, clip)
            frames = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v", "-count_frames", "-show_entries",
                                     "stream=nb_read_frames", "-of", "csv=p=0", clip], capture_output=True, text=True)
            self.assertGreater(int(frames.stdout), 25, frames.stderr)


class Watchdog(PeersTest):
    def test_the_heartbeat_is_seen_and_missed_when_it_stops(self):
        self.camera.start_desk()
        self.assertIsNone(newest_beat())
        self.camera.start_recorder()
        _, latest = wait_for("a beat", newest_beat, 30)
        wait_for("the next beat", lambda: newest_beat()[0] > latest, 30)
        self.camera.recorder.child.kill()
        self.camera.recorder.child.wait()
        self.camera.desk.expect(r"heartbeat has stopped", 120)


class Restart(PeersTest):
    def test_peers_that_restart_in_order_are_followed(self):
        camera = self.camera
        camera.start()
        camera.recorder.expect(r"KeyFrameTime", 10)
        camera.desk.stop()  # which removes its segments and queues
        camera.start_desk()
        camera.recorder.expect(r"KeyFrameTime", 20)
        wait_for("a beat in the new table", newest_beat, 30)
        camera.set(lan_config__nFrameRate1=24)
        camera.recorder.expect(r"Video FrameRate Change! .* change to 24")
        camera.recorder.expect(r"KeyFrameTime", 10)
        self.assertEqual(camera.stop(), 0)


class Endurance(PeersTest):
    def resources(self):
        process = f"/proc/{self.camera.recorder.child.pid}"
        return len(os.listdir(process + "/fd")), len(os.listdir(process + "/task"))

    def test_a_hundred_console_sessions_leave_nothing_behind(self):
        camera = self.camera
        camera.start()
        before = self.resources()
        for _ in range(ROUNDS // 20):  # the console opens and closes, twenty viewers each time
            open(MARKER, "w").close()
            with wait_for("the console", connect, 10) as first:
                self.see_log(first)
            for _ in range(19):
                with wait_for("the console", connect, 10) as viewer:
                    self.see_log(viewer)
            os.unlink(MARKER)
            wait_for("the closed port", lambda: (c := connect()) is None or c.close(), 10)
        wait_for(f"as before: {before}", lambda: self.resources() == before, 10)
        self.assertEqual(camera.stop(), 0)
        camera.assert_complete()

    @staticmethod
    def see_log(viewer):
        viewer.settimeout(10)
        text = b""
        while b"[Trace]: " not in text:
            text += viewer.recv(65536)

    def test_a_hundred_runs_leave_nothing_behind(self):
        camera = self.camera
        camera.start()
        before = self.resources()
        for number in range(ROUNDS):
            camera.set(lan_config__nFrameRate1=24 + number % 2)
            camera.recorder.expect(r"Video FrameRate Change!")
            camera.recorder.expect(r"Now RotateAngle .* framerate = %d" % (24 + number % 2))
        wait_for(f"as before: {before}", lambda: self.resources() == before, 10)
        self.assertEqual(camera.stop(), 0)
        self.assertGreaterEqual(len(camera.recorded()), ROUNDS)


if __name__ == "__main__":
    unittest.main(verbosity=2)

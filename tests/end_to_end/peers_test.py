"""Alarms, heartbeat and console beside recording, on the unmodified recorder."""

import os
import socket
import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, os.path.dirname(__file__))
from camera import CameraTest, wait_for  # noqa: E402

MARKER = "/tmp/Debug_Port_ON"  # while it exists, the console is open
ROUNDS = 100


def connect():
    try:
        return socket.create_connection(("127.0.0.1", 409), 2)
    except OSError:
        return None


class AlarmEvents(CameraTest):
    def test_alarms_become_events_that_can_be_exported(self):
        camera = self.camera
        camera.set(schedule__daily="00:00-24:00 motion", Record_config__ucrecordDelay=8, Record_config__ucpreRecordTime=0)
        camera.start()
        camera.tell_desk("alarm", "motion", "on")
        self.expect(r"KeyFrameTime")
        self.expect(r"KeyFrameTime")
        camera.tell_desk("alarm", "motion", "off")
        self.expect(r"KeyFrameTime")
        camera.set(schedule__daily="00:00-24:00 io")
        self.expect(r"KeyFrameTime")
        camera.tell_desk("alarm", "io0", "on")  # still on when the recorder stops: the event ends with the run
        self.expect(r"KeyFrameTime")
        self.expect(r"KeyFrameTime")
        self.assert_stopped_in_order()
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


class Restart(CameraTest):
    def test_peers_that_restart_in_order_are_followed(self):
        camera = self.camera
        camera.start()
        self.expect(r"KeyFrameTime")
        camera.desk.stop()  # which removes its segments and queues
        camera.start_desk()
        self.expect(r"KeyFrameTime")
        wait_for("a beat in the new table", lambda: "no heartbeat yet" not in camera.tell_desk("status"))
        camera.set(lan_config__nFrameRate1=24)
        self.expect(r"Video FrameRate Change! .* change to 24")
        self.expect(r"KeyFrameTime")
        self.assert_stopped_in_order()


class Endurance(CameraTest):
    def resources(self):
        process = f"/proc/{self.camera.recorder.child.pid}"
        return len(os.listdir(process + "/fd")), len(os.listdir(process + "/task"))

    def test_a_hundred_console_sessions_and_a_hundred_runs_leave_nothing_behind(self):
        self.camera.start()
        before = self.resources()
        self.addCleanup(Path(MARKER).unlink, missing_ok=True)
        Path(MARKER).touch()
        for _ in range(ROUNDS):
            with wait_for("the console", connect) as viewer:
                viewer.settimeout(30)
                self.assertTrue(any(b"[Trace]: " in line for line in viewer.makefile("rb")), "the console ended the session")
        Path(MARKER).unlink()
        wait_for("the closed port", lambda: (c := connect()) is None or c.close())
        for number in range(ROUNDS):
            self.camera.set(lan_config__nFrameRate1=24 + number % 2)
            self.expect(r"Video FrameRate Change!")
            self.expect(r"Now RotateAngle .* framerate = %d" % (24 + number % 2))
        # Beside two descriptors or threads that come and go: what a session or a run leaves, many leave more of.
        wait_for(f"not more than {before}, and two",
                 lambda: all(now <= then + 2 for now, then in zip(self.resources(), before)))
        self.assert_stopped_in_order()
        self.assertGreaterEqual(len(self.camera.recorded()), ROUNDS)


if __name__ == "__main__":
    unittest.main(verbosity=2)

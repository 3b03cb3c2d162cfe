"""A camera whose recorder runs under the shim, whose peers come and go, and whose card is judged."""

import os
import struct
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "end_to_end"))
from camera import BUILD, Camera, TimedOut, wait_for  # noqa: E402
from card_reader import STREAM_LIMIT  # noqa: E402
from judge import Judge, Journals  # noqa: E402
from shim import Shim  # noqa: E402

RESUMES_WITHIN = 25  # s after the fault's end; the bound of a loaded machine


class Bench:
    def __init__(self):
        self.camera = Camera(files=5)
        self.camera.set(**{"stream_config[0]__width": 320, "stream_config[0]__height": 180,
                           "stream_config[1]__iEnable": 0, "lan_config__nBitrate1": 100000,
                           "codec_advconfig[0]__ipRatio": 25,
                           "schedule__daily": "00:00-24:00 motion", "Record_config__ucrecordDelay": 1})
        self.shim = Shim(self.camera.folder, os.path.join(BUILD, "tests/faults/fault_shim.so"))
        self.journals = Journals()
        self.judge = Judge(self.camera, self.journals)
        self.lives = 0
        self.rate = 25
        self.start_desk()

    def close(self):
        self.judge.close()
        self.camera.close()

    def start_desk(self):
        self.lives += 1
        self.camera.journal = os.path.join(self.camera.folder, f"journal.{self.lives}.log")
        self.journals.follow(self.camera.journal)
        self.camera.start_desk()

    def start_recorder(self):
        self.camera.start_recorder(self.shim.environment)

    def recorder_ended(self):
        """The status a recorder ended with by itself; None: it runs."""
        return self.camera.recorder.child.poll() if self.camera.recorder else 0

    def stop_recorder(self):
        try:
            status = self.camera.recorder.stop()
        except subprocess.TimeoutExpired:
            raise AssertionError("stops: SIGTERM is not obeyed") from None
        self.camera.recorder = None
        return status

    def change_setting(self):
        """Ends the run; the next one begins at once."""
        self.rate = 49 - self.rate
        self.camera.set(lan_config__nFrameRate1=self.rate)

    def raise_alarm(self):
        """An alarm of 0.3 s; its event is saved as the run ends."""
        for state in ("on", "off"):
            self.camera.tell_desk("alarm", "motion", state)
            time.sleep(0.3)
        self.change_setting()

    def make_event(self):
        self.raise_alarm()
        wait_for("the event on the card", self.judge.events, RESUMES_WITHIN)
        self.wait_until_recording()

    def fill_file(self):
        """Leaves room for a second or two in the current file: the bytes in front of it are no section's."""
        self.full = self.camera.card.system().current
        self.camera.overwrite("index000.bin", 1024 + 48 * self.full + 16, struct.pack("<I", STREAM_LIMIT - 60000))

    def is_worn(self):
        """After the last file comes the first, section 251 is used again: rightly, but gone is gone.  A fault may cost a
        switch one file more.  What an earlier fault left is not this one's, nor is an overlap made worse by filling."""
        system = self.camera.card.system()
        head = self.camera.card.file_head(system.current)
        sections = self.camera.card.sections(system.current, missing=True) if head else []
        overlap = any(b.position < a.position + a.size for a, b in zip(sections, sections[1:]))
        return (system.current >= system.file_count - 2 or (head is not None and head.sections > 200) or overlap
                or self.judge.marked)

    def record(self):
        if self.recorder_ended() is not None:
            self.start_recorder()
            self.wait_until_recording()

    def resume(self, *, restart=False, switches=False):
        """Recording goes on, `switches`: in the next file; returns the seconds until then."""
        since = time.monotonic()
        try:
            if switches:
                self.wait_for_switch(restart)
            self.wait_until_recording(restart)
        except TimedOut as error:
            raise AssertionError(f"does not resume: {error}: {self.last_words()}") from None
        return time.monotonic() - since

    def last_words(self):
        return self.camera.recorder.last_words()[-300:].strip() if self.camera.recorder else ""

    def wait_until_recording(self, restart=False):
        """Five pictures more than now on the card."""
        begin = self.judge.frame_count()
        self.wait_for("recording resumes", lambda: self.judge.frame_count() >= begin + 5, restart)

    def wait_for_switch(self, restart=False):
        self.wait_for("the next file", lambda: self.camera.card.system().current != self.full, restart)

    def wait_for(self, what, condition, restart):
        """With `restart` a recorder that ended is started again, as on a camera."""

        def look():
            status = self.recorder_ended()
            if status is not None:
                assert restart, f"stops: the recorder ended with {status}"
                self.start_recorder()
            return condition()

        wait_for(what, look, RESUMES_WITHIN)

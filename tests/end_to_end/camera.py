"""A camera to test with: a card image mounted as the card, the desk camera and the unmodified recorder.

Runs inside desk/in-camera.  Nothing here sleeps to wait for luck: every wait names its event and has a bound.
"""

import os
import re
import subprocess
import sys
import tempfile
import time
import unittest
import zlib
from pathlib import Path

from card_reader import Card, record

BUILD = os.environ["BUILD"]
RECORDER = os.environ.get("RECORDER", os.path.join(BUILD, "src/AVRecordEx/AVRecordAccess/AVRecordAccess")).split()
DESK_CAMERA = os.path.join(BUILD, "desk/deskcamera")
RECORDCARD = os.path.join(BUILD, "card/recordcard")
STORE = "/var/etc/sdcard"
DEVICE = "/dev/mmcblk0p1"


# One record that the media server put into a ring, as its journal tells.
Published = record("Published", "stream kind serial length key crc")


def published_in(journal):
    """The records that a journal's whole lines tell of."""
    for line in journal.splitlines(keepends=True):
        if line.endswith("\n") and not line.startswith("#"):
            values = dict(word.split("=", 1) for word in line.split())
            yield Published(int(values["stream"]), values["kind"], int(values["serial"]), int(values["length"]),
                            values["key"] == "1", int(values["crc32"], 16))


class TimedOut(Exception):
    pass


PATIENCE = 120  # s; a bound that a loaded machine does not reach
STOPS_WITHIN = 150  # s: the recorder ends with a sync, of all that others have written on this machine, too


def wait_for(what, condition, seconds=PATIENCE):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.02)
    raise TimedOut(f"{what}: not within {seconds} s")


class Process:
    def __init__(self, name, arguments, folder, environment=None):
        self.name = name
        self.log = os.path.join(folder, name + ".log")
        self.seen = 0
        with open(self.log, "wb") as log:
            self.child = subprocess.Popen(arguments, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                          env={**os.environ, **(environment or {})})

    def text(self):
        return Path(self.log).read_bytes().decode(errors="replace")

    def expect(self, pattern, seconds=PATIENCE):
        """Waits for a log line that matches, after all those already expected; returns the match."""

        def look():
            match = re.compile(pattern).search(self.text(), self.seen)
            if match:
                self.seen = match.end()
                return match
            if self.child.poll() is not None:
                raise AssertionError(f"{self.name} ended with {self.child.returncode}: {self.text()[-2000:]}")
            return None

        try:
            return wait_for(f"{self.name}: /{pattern}/", look, seconds)
        except TimedOut as error:
            raise AssertionError(f"{error}\n... {self.last_words()}") from None

    def last_words(self):
        """The end of the log without the queries that repeat every 20 ms."""
        return "\n".join(line for line in self.text().splitlines()[-10000:] if "CameraGet" not in line)[-3000:]

    def stop(self):
        self.child.terminate()
        return self.child.wait(STOPS_WITHIN)

    def kill(self):
        self.child.kill()
        self.child.wait()


class Camera:
    """Verbs of a camera: `set` a setting, `start` and `stop` recording, read back what is on the card."""

    def __init__(self, files=3):
        self.folder = tempfile.mkdtemp(prefix="camera.", dir=os.environ.get("SCRATCH", "/tmp"))
        self.image = os.path.join(self.folder, "card.img")
        self.format(self.image, files)
        self.insert(self.image)
        os.symlink(self.image, DEVICE)
        self.card = Card(STORE)
        self.settings = os.path.join(self.folder, "settings.txt")
        self.tell_desk("--write-settings", self.settings)
        self.journal = os.path.join(self.folder, "journal.log")
        self.desk = None
        self.recorder = None

    @staticmethod
    def card_tool(*arguments):
        done = subprocess.run([RECORDCARD, *arguments], capture_output=True, text=True)
        if done.returncode != 0:
            raise AssertionError(f"recordcard {' '.join(arguments)}: {done.stdout}{done.stderr}")
        return done.stdout

    @classmethod
    def format(cls, image, files):
        cls.card_tool("format", "--yes", "--size", f"{1024 + 256 * files + 16}M", "--video-percent", "100", image)

    @classmethod
    def insert(cls, image):
        cls.card_tool("mount", image, STORE, "--fsname", DEVICE)

    @staticmethod
    def overwrite(name, offset, data):
        """Puts bytes into a file of the store; returns those that were there."""
        with open(os.path.join(STORE, name), "r+b") as file:
            old = os.pread(file.fileno(), len(data), offset)
            os.pwrite(file.fileno(), data, offset)
        return old

    @staticmethod
    def tell_desk(*command):
        return subprocess.run([DESK_CAMERA, *command], check=True, capture_output=True, text=True).stdout

    def set(self, **values):
        """Changes settings in the text file, which the desk camera re-reads; `__` in a name stands for `.`."""
        text = Path(self.settings).read_text()
        for name, value in values.items():
            name = name.replace("__", ".")
            line = f"{name} = {value}"
            text, found = re.subn(rf"(?m)^[ \t]*{re.escape(name)}[ \t]*=.*$", lambda _: line, text)
            text += "" if found else f"\n{line}\n"
        Path(self.settings + ".new").write_text(text)
        os.rename(self.settings + ".new", self.settings)

    def start_desk(self, *arguments):
        self.desk = Process("deskcamera", [DESK_CAMERA, "--settings", self.settings, "--journal", self.journal, *arguments],
                            self.folder)
        wait_for("the first published key frame", lambda: any(p.key for p in self.published()))

    def start_recorder(self, environment=None):
        self.recorder = Process("recorder", RECORDER, self.folder, environment)

    def start(self, *arguments):
        self.start_desk(*arguments)
        self.start_recorder()
        self.recorder.expect(r"keyType = 1")

    def stop(self):
        """An orderly stop of the recorder; returns its exit status."""
        status = self.recorder.stop()
        if status != 0:
            print(f"recorder: exit status {status}\n{self.recorder.last_words()}", file=sys.stderr)
        return status

    def close(self):
        for process in (self.recorder, self.desk):
            if process is not None:
                process.kill()
        subprocess.run(["umount", STORE], check=False)
        Path(DEVICE).unlink(missing_ok=True)
        subprocess.run(["ipcrm", "--all"], check=False)
        subprocess.run(["rm", "-rf", self.folder], check=False)

    def published(self):
        return list(published_in(Path(self.journal).read_text())) if os.path.exists(self.journal) else []

    def frames(self):
        return sum(section.frames for section in self.card.all_sections())

    def recorded(self):
        """Every section on the card with its frames, all of the index's claims checked against the stream."""
        return [(s, self.card.check_section(s)) for s in self.card.all_sections() if s.size]

    def assert_complete(self, sections=None, stream=0):
        """Each section holds an unbroken stretch of what was published: every access unit, byte for byte."""
        published = [p for p in self.published() if p.stream == stream]
        have = [(p.kind, p.crc, p.length) for p in published]
        at = 0
        for section, frames in sections or self.recorded():
            for i, frame in enumerate(frames):
                wanted = (frame.kind, zlib.crc32(frame.payload), len(frame.payload))
                place = f"section {section.file}:{section.number}: frame {i}"
                found = next((n for n in range(at, len(have)) if have[n] == wanted), None)
                assert found is not None, f"{place} was not published after the one before"
                assert i == 0 or found == at, f"{place} is not record {published[at].serial}"
                at = found + 1

    @staticmethod
    def state():
        """What the recorder says of itself."""
        return dict(line.split(" ", 1) for line in Path("/tmp/AVRecordAccess.state").read_text().splitlines())


class CameraTest(unittest.TestCase):
    def setUp(self):
        self.camera = Camera()
        self.addCleanup(self.camera.close)

    def expect(self, pattern):
        return self.camera.recorder.expect(pattern)

    def assert_stopped_in_order(self):
        self.assertEqual(self.camera.stop(), 0)
        self.assertIn("RecordStop AVRecord exit!!!", self.camera.recorder.text())
        self.assertEqual(self.camera.state()["activity"], "stopped")

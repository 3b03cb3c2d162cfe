"""What the tests of the page share: the tool, FFmpeg, cards, and a browser that has the page open."""
import contextlib
import json
import mmap
import os
import pathlib
import shutil
import subprocess
import tempfile
import time
import unittest

from browser import Browser

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ["BUILD"])
TOOL = str(BUILD / "card" / "recordcard")
PAGE = (ROOT / "viewer" / "viewer.html").as_uri()
SMALL = (32, 24)  # pictures are told apart at this size


def run(*command, **more):
    return subprocess.run([str(c) for c in command], check=True, stdout=subprocess.PIPE, **more).stdout


def tool_list(card):
    """What the tool lists, although something may be missing; None: nothing."""
    told = subprocess.run([TOOL, "list", "--json", card], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    return json.loads(told.stdout) if told.stdout else None


@contextlib.contextmanager
def unreadable(path, begin, end, then="reads-on"):
    """Bytes [begin, end) of a file; then="gone": and after the first try at them all of it."""
    with subprocess.Popen([BUILD / "tests" / "viewer" / "bad_blocks", path, str(begin), str(end), then], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE) as process:
        if not process.stdout.readline():
            raise AssertionError(f"no bad blocks in {path}")
        yield
        process.stdin.close()


def place_in_image(card, name, page):
    """Where a page of a file of a card lies in the image of the same card beside it."""
    with open(card / name, "rb") as file, open(str(card) + ".img", "rb") as image:
        file.seek(page)
        with mmap.mmap(image.fileno(), 0, access=mmap.ACCESS_READ) as content:
            place = content.find(file.read(4096))
    assert place >= 0, f"{name} is not in {card}.img"
    return place


def small_pictures(clip):
    """Every picture of a clip, small and grey, in the order shown."""
    raw = run("ffmpeg", "-v", "error", "-i", clip, "-vf", f"scale={SMALL[0]}:{SMALL[1]}:flags=area,format=gray", "-f", "rawvideo",
              "-fps_mode", "passthrough", "-")
    size = SMALL[0] * SMALL[1]
    return [raw[i:i + size] for i in range(0, len(raw), size)]


def distance(a, b):
    return sum((x - y) ** 2 for x, y in zip(a, b))


def nearest(pictures, shown):
    return min(range(len(pictures)), key=lambda i: distance(pictures[i], shown))


def frame_sums(clip, stream="v"):
    """(time, checksum of the decoded picture) of every picture."""
    lines = run("ffmpeg", "-v", "error", "-i", clip, "-map", "0:" + stream, "-c:v", "rawvideo", "-fps_mode", "passthrough", "-copyts",
                "-enc_time_base", "1:90000", "-f", "framemd5", "-").decode().splitlines()
    rows = [[field.strip() for field in line.split(",")] for line in lines if not line.startswith("#")]
    return [(int(row[2]), row[5]) for row in rows]


class CardTest(unittest.TestCase):
    """Cards for all tests of a class: `cards` names them."""

    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="viewer-"))
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        run(BUILD / "tests" / "viewer" / "make_cards", cls.folder, *cls.cards)

    def copied(self, name):
        copy = self.folder / ("copy of " + name)
        shutil.rmtree(copy, ignore_errors=True)
        run("cp", "-a", "--sparse=always", self.folder / name, copy)
        return copy

    def exported(self, card, section):
        """A section as the tool exports it."""
        clip = self.folder / f"{card.name}-{section.replace(':', '-')}.mp4"
        run(TOOL, "export", card, "--section", section, clip, "--force")
        return clip


class PageTest(CardTest):
    """One browser for all tests of a class; after each, nothing was asked for and nothing went wrong; at the end, of no network."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.browser = Browser(PAGE)
        cls.addClassCleanup(cls.end)

    @classmethod
    def end(cls):
        asked = cls.browser.close()
        assert not asked, f"asked of a network: {asked}"

    def tearDown(self):
        self.assertEqual(self.browser.requests(), [], "nothing is asked of any network")
        self.assertEqual(self.browser.run("violations.concat(faults)"), [])

    def open(self, card, until="list !== null && !player.loading && byId('video').readyState >= 2"):
        self.browser.run("list = null; byId('video').pause(); notice('')")
        self.browser.pick("#folder" if card.is_dir() else "#files", [card])
        self.browser.wait(until)

    def go(self, moment, until="true"):
        self.browser.run(f"goTo({moment})")
        self.browser.wait("!player.loading && " + until)

    def play(self, until):
        self.browser.run("player.play()")
        self.browser.wait(until)
        self.browser.run("player.pause()")

    def shows(self, pictures, wanted, seconds=20):
        """The video comes to show that picture: a seek may end a moment before its picture is there."""
        self.browser.wait("!player.loading && !byId('video').seeking && byId('video').readyState >= 2")
        end = time.monotonic() + seconds
        while (shown := nearest(pictures, self.grey("byId('video')"))) != wanted:
            self.assertLess(time.monotonic(), end, f"picture {shown} is shown, not {wanted}")
            time.sleep(.05)

    def grey(self, source):
        """What a video or canvas of the page shows, as small_pictures() gives it."""
        return bytes(self.browser.run(
            "(s => { const c = document.createElement('canvas'); c.width = %d; c.height = %d;"
            "const g = c.getContext('2d'); g.imageSmoothingQuality = 'high'; g.drawImage(s, 0, 0, c.width, c.height);"
            "const d = g.getImageData(0, 0, c.width, c.height).data, r = [];"
            "for (let i = 0; i < d.length; i += 4) r.push(Math.round(.299 * d[i] + .587 * d[i + 1] + .114 * d[i + 2])); return r; })(%s)"
            % (*SMALL, source)))

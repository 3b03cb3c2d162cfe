"""Judges a card after a fault: nothing gone, nothing on it that was not published, nothing beside it.

It reads through the strict second reader of tests/end_to_end, and knows what was published from the journals of
every life of the desk camera.
"""

import bisect
import os
import re
import subprocess
import zlib
from dataclasses import replace

from camera import RECORDCARD, STORE, TimedOut, published_in, wait_for
from card_reader import record


class Journals:
    """All records of the first stream that any life of the desk camera published, in order."""

    def __init__(self):
        self.records = []
        self.places = {}  # (kind, crc, length) -> indices into records, ascending
        self.ends = set()  # indices after which a killed desk camera may have kept one record to itself
        self.path, self.offset = None, 0

    def follow(self, path):
        """A new desk camera writes its journal to `path`."""
        self.read()
        if self.path:
            self.ends.add(len(self.records) - 1)
        self.path, self.offset = path, 0

    def read(self):
        if not self.path or not os.path.exists(self.path):
            return
        with open(self.path, "rb") as file:
            file.seek(self.offset)
            text = file.read()
        whole = text.rfind(b"\n") + 1
        self.offset += whole
        for record in published_in(text[:whole].decode()):
            if record.stream == 0:
                self.places.setdefault((record.kind, record.crc, record.length), []).append(len(self.records))
                self.records.append(record)

    def next(self, frame, at):
        """The first index from `at` on where `frame` was published; None: nowhere."""
        places = self.places.get(frame, [])
        i = bisect.bisect_left(places, at)
        return places[i] if i < len(places) else None


# A section as it was seen: what may never change again.
Piece = record("Piece", "start position size crc frames")


class Judge:
    def __init__(self, camera, journals, image=None):
        self.card, self.image, self.journals = camera.card, image or camera.image, journals
        self.files = sorted(os.listdir(STORE))
        self.marked = False  # the card bears the price of a fault
        self.indices = []  # of the records that were last found on the card
        self.beneath = "/tmp/beneath"  # what the card's folder holds without the card
        os.makedirs(self.beneath, exist_ok=True)
        subprocess.run(["mount", "--bind", "/var/etc", self.beneath], check=True)

    def close(self):
        subprocess.run(["umount", self.beneath], check=False)

    def sections(self):
        """Every section that counts, cut where its file's length or the next section says so."""
        found = []
        for number in range(self.card.system().file_count):
            head = self.card.file_head(number)
            if head is None:
                continue
            sections = [s for s in self.card.sections(number, missing=True) if s.size]
            for i, section in enumerate(sections):
                end = sections[i + 1].position if i + 1 < len(sections) else head.length
                found.append(replace(section, size=min(section.size, end - section.position)))
        return [section for section in found if section.size > 0]

    def frame_count(self):
        return sum(section.frames for section in self.sections())

    def snapshot(self):
        return {(s.file, s.number): self.piece(s) for s in self.sections()}, self.events()

    def piece(self, section):
        crc = zlib.crc32(self.card.stream(section))
        return Piece(section.start, section.position, section.size, crc, section.frames)

    def events(self):
        """The saved alarm events: (file, number) -> start and type."""
        found = {}
        for number in range(self.card.system().file_count):
            head = self.card._read("event000.bin", 256 * number, 256)
            for k in range(int.from_bytes(head[16:20], "little") if head[:4] == b"AEMF" else 0):
                raw = self.card._read("event000.bin", (number + 8) * 131072 + 48 * k, 48)
                found[number, k + 1] = raw[4:8] + raw[24:25]
        return found

    # The rules

    def check(self, before, cost=None):
        """`cost`: what of the card owner's tool's findings is the known price of the fault, a pattern."""
        self.nothing_gone(before)
        self.only_published()
        self.nothing_beside()
        self.card_in_order(cost)

    def nothing_gone(self, before):
        pieces, events = before
        now = {(s.file, s.number): s for s in self.sections()}
        for (file, number), old in pieces.items():
            section = now.get((file, number))
            assert section is not None, f"gone: section {file}:{number} with {old.frames} frames"
            assert (section.start, section.position) == (old.start, old.position), \
                f"gone: section {file}:{number} is another one"
            assert section.size >= old.size, f"gone: section {file}:{number} had {old.size} bytes, has {section.size}"
            assert zlib.crc32(self.card.stream(replace(section, size=old.size))) == old.crc, \
                f"gone: the bytes of section {file}:{number} have changed"
        events_now = self.events()
        for place, event in events.items():
            assert events_now.get(place) == event, f"gone: event {place[0]}:{place[1]}"

    def only_published(self):
        """Every frame is a published record, in order, none twice; what cannot be (torn, repeated) is told."""
        self.indices, ends = [], set(self.journals.ends)
        for section in self.sections():
            for i, frame in enumerate(self.frames(section)):
                self.indices.append(self.place_of(frame, ends, f"frame {i} of section {section.file}:{section.number}"))

    def place_of(self, frame, ends, where):
        at = self.indices[-1] + 1 if self.indices else 0
        wanted = (frame.kind, zlib.crc32(frame.payload), len(frame.payload))

        def look():
            self.journals.read()
            return self.journals.next(wanted, at) is not None

        try:
            look() or wait_for("its line in the journal", look, 1)  # written a moment after the frame is published
        except TimedOut:
            if at - 1 not in ends:
                what = "never published" if self.journals.next(wanted, 0) is None else "twice"
                raise AssertionError(f"{what}: {where}, {frame.kind}, {wanted[2]} bytes") from None
            ends.remove(at - 1)  # the desk camera was killed between the two
            return at - 1
        return self.journals.next(wanted, at)

    def frames(self, section):
        """The frames of a section, its index entries checked; one that could not be written leaves its number out."""
        where = f"section {section.file}:{section.number}"
        frames = list(self.card.frames(section))
        keys = {frame.offset: frame for frame in frames if frame.key}
        for i, record in enumerate(self.card.key_frames(section)):
            head = 40 if record.position == 0 else 0
            if record.position + record.length > section.size:
                continue  # of the frame that was cut off
            key = keys.get(record.position + head)
            assert key is not None and key.packed + head == record.length, f"torn: {where}, key frame {i}"
        clock = 0
        for frame in frames:
            if frame.kind == "video":
                assert frame.pts > clock and frame.pts % 3600 == 0, f"torn: {where}, clock {clock} then {frame.pts}"
                clock = frame.pts
        return frames

    def nothing_beside(self):
        assert os.listdir(self.beneath + "/sdcard") == [], "beside: a file on the flash beneath the card"
        if os.path.ismount(STORE):
            assert sorted(os.listdir(STORE)) == self.files, "beside: another file on the card"

    def card_in_order(self, cost):
        """By the card owner's tool; again when it caught a running recorder between two heads, or what the card refused
        is still to be written: once a second."""
        errors = []

        def look():
            done = subprocess.run([RECORDCARD, "check", self.image], capture_output=True, text=True)
            found = [line for line in done.stdout.splitlines() if line.startswith("error")]
            errors[:] = [line for line in found if cost is None or not re.search(cost, line)]
            if done.returncode != 0 and not found:
                errors.append(done.stderr[-300:])
            self.marked = len(found) > len(errors)
            return not errors

        try:
            wait_for("a card in order", look, 5)
        except TimedOut:
            raise AssertionError("check: " + " / ".join(errors[:3])) from None

    def lost(self, begin):
        """Pictures published from index `begin` on that are not on the card, up to the last that is."""
        have = {i for i in self.indices if i >= begin}
        return sum(1 for i in range(begin, max(have, default=begin))
                   if i not in have and self.journals.records[i].kind == "video")

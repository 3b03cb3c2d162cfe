"""What a cut camera's card holds, frame by frame, told by a reader that shares no code with the product."""

import re
import struct
import subprocess
import sys
from dataclasses import dataclass, field, replace
from pathlib import Path

import emulator

sys.path.insert(0, str(emulator.ROOT / "tests/end_to_end"))
from card_reader import KEY_FRAME_BASE, STREAM_LIMIT, Card, FormatError, need  # noqa: E402

FRAME_RATE = 25
AFTER_LIMIT = 4 << 20  # more than arrives until the recording of a full file ends
PICTURE_STAMP = re.compile(rb"recframerecframe([0-9a-f]{16})\x80$")
SOUND_STAMP = re.compile(rb"^recsound([0-9a-f]{16})")


class ImageCard(Card):
    """The card's files inside a card image: FAT32 on the first partition, every file in one piece."""

    def __init__(self, image):
        super().__init__(str(image))
        self.image = open(image, "rb")
        first, self.sectors = struct.unpack_from("<II", self._bytes(0, 512), 446 + 8)  # of the partition
        self.start = start = first * 512
        boot = self._bytes(start, 512)
        sector, cluster, reserved = struct.unpack_from("<HBH", boot, 11)
        fat_sectors, = struct.unpack_from("<I", boot, 36)
        root, = struct.unpack_from("<I", boot, 44)
        self.cluster_bytes = sector * cluster
        self.fats = [start + (reserved + i * fat_sectors) * sector for i in range(2)]
        self.data = start + (reserved + 2 * fat_sectors) * sector
        self.places = {}
        for at in range(0, self.cluster_bytes, 32):
            entry = self._bytes(self._place(root) + at, 32)
            if entry[0] == 0:
                break
            if entry[11] != 0x0F:
                high, low, size = struct.unpack_from("<H4xHI", entry, 20)
                self.places[entry[:11]] = (self._place(high << 16 | low), size)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.image.close()

    def _place(self, cluster):
        return self.data + (cluster - 2) * self.cluster_bytes

    def _bytes(self, at, length):
        self.image.seek(at)
        return self.image.read(length)

    def _read(self, name, offset, length):
        stem, ending = name.upper().split(".")
        place, size = self.places[f"{stem:8.8}{ending:3.3}".encode()]
        need(offset + length <= size, f"{name}: ends before {offset} + {length}")
        return self._bytes(place + offset, length)


@dataclass
class Found:
    """A section as its frames tell it."""

    file: int
    number: int
    start: int = 0
    stamps: list = field(default_factory=list)  # of its pictures, in order
    claimed: int = 0  # pictures, by its head
    broken: str = ""  # why reading ended before the claimed size


def stamped(frame):
    """The number that a frame was published with; its whole payload is known then to be in one piece at both ends."""
    if frame.kind == "audio":
        match = SOUND_STAMP.match(frame.payload)
    else:
        match = PICTURE_STAMP.search(frame.payload)
    need(match, f"no stamp in the frame at {frame.offset}")
    return int(match.group(1), 16)


def read_section(card, section):
    """What a section holds; with the pictures that came after its file was full, which its head counts and its size does not."""
    found = Found(section.file, section.number, section.start, claimed=section.frames)
    size, reached = section.size, 0
    if section.position + size > STREAM_LIMIT:
        section = replace(section, size=min(KEY_FRAME_BASE - section.position, size + AFTER_LIMIT))
    try:
        for frame in card.frames(section):
            number = stamped(frame)
            is_late = frame.offset >= size
            if frame.kind == "video":
                last = found.stamps[-1] if found.stamps else number - 1
                need(number == last + 1 if is_late else number > last, f"picture {number} after {last}")
                found.stamps.append(number)
            reached = frame.offset + frame.packed
    except FormatError as error:
        found.broken = str(error) if reached < size else ""
    return found


def read_card(image):
    found = []
    with ImageCard(image) as card:
        for number in range(card.system().file_count):
            try:
                found += [read_section(card, s) for s in card.sections(number) if s.size]
            except FormatError as error:  # a head that the file's head counts is not there
                found.append(Found(number, 0, broken=str(error)))
    return found


def file_system_alone(image, copy):
    """The partition without its files' data, for checkers that know no partition table."""
    with ImageCard(image) as card, open(copy, "wb") as file:
        file.write(card._bytes(card.start, min(place for place, _ in card.places.values()) - card.start))
        file.truncate(card.sectors * 512)
    return copy


# What a mounted volume that was cut always shows: the dirty mark (byte 65 of the boot sector), and our format's free count.
HARMLESS = re.compile(r"fsck\.fat|Free cluster summary|There are differences between boot sector|This is mostly harmless|^\s*65:01/00|"
                      r"Dirty bit is set|Fs was not properly|uto-correcting|utomatically|Leaving|: \d+ files, \d+/\d+ clusters|^$")


def file_system_faults(image, scratch):
    """What fsck finds in the file system."""
    part = file_system_alone(image, scratch)
    done = subprocess.run(["fsck.vfat", "-n", str(part)], capture_output=True, text=True)
    part.unlink()
    return [line for line in done.stdout.splitlines() if not HARMLESS.search(line)]

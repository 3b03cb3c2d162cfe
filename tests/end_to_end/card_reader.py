"""A second reader of the card, written from docs/card-format.md alone and sharing no code with the product.

Strict: anything that is not exactly as the format page says raises FormatError with its place.
"""

import os
import struct
from dataclasses import dataclass, make_dataclass

STREAM_LIMIT = 0x0F900000
KEY_FRAME_BASE = 0x0FC00000
SYSTEM_HEADER = bytes.fromhex("000c 827331 04e17f e0e080 c0c008")  # after its start code
STREAM_HEAD = b"IMKH" + bytes.fromhex("01020000 02000001 01200110 80BB0000 00FA0000") + bytes(16)


class FormatError(AssertionError):
    pass


def need(condition, what):
    if not condition:
        raise FormatError(what)


def record(name, members):
    return make_dataclass(name, members.split())


System = record("System", "file_count used current")
FileHead = record("FileHead", "number start end length types sections key_frames")
Section = record("Section", "start end file number position size frames key_frames key_position width height rate type "
                            "video audio smart")
KeyFrame = record("KeyFrame", "time length position type")


@dataclass
class Frame:
    kind: str  # "video" or "audio"
    offset: int  # of its first byte in the record file
    packed: int = 0  # bytes it takes there
    key: bool = False
    time: int = 0
    pts: int = 0
    payload: bytes = b""


def pts_of(header):
    b = header[9:14]
    need(b[0] >> 4 == 2 and b[0] & 1 and b[2] & 1 and b[4] & 1, "PTS marker bits")
    return (b[0] >> 1 & 7) << 30 | b[1] << 22 | b[2] >> 1 << 15 | b[3] << 7 | b[4] >> 1


def scr_of(pack):
    b = pack[4:10]
    need(b[0] >> 6 == 1 and b[0] & 4 and b[2] & 4 and b[4] & 4 and b[5] & 1, "SCR marker bits")
    return (b[0] >> 3 & 7) << 30 | (b[0] & 3) << 28 | b[1] << 20 | b[2] >> 3 << 15 | (b[2] & 3) << 13 | b[3] << 5 | b[4] >> 3


class Card:
    def __init__(self, folder):
        self.folder = folder

    def _read(self, name, offset, length):
        with open(os.path.join(self.folder, name), "rb") as file:
            file.seek(offset)
            data = file.read(length)
        need(len(data) == length, f"{name}: short at {offset}")
        return data

    def system(self):
        raw = self._read("index000.bin", 0, 236)
        flag, formatted, _, space, picture, count, used, current, word = struct.unpack_from("<4s8I", raw)
        need(flag == b"SIHF" and formatted == 1, "system head flag")
        need(space == count << 28 & 0xFFFFFFFF and picture == 0, "system head space")
        need(word == 0x55AABB55 and not any(raw[36:]), "system head tail")
        need(used <= count and current < count, "system head counts")
        return System(count, used, current)

    def file_head(self, number):
        raw = self._read("index000.bin", 1024 + 48 * number, 48)
        if not any(raw):
            return None
        flag, *values = struct.unpack_from("<4s7I", raw)
        need(flag == b"RFHF" and not any(raw[32:]), f"file head {number}")
        need(values[0] == number, f"file head {number} names {values[0]}")
        return FileHead(*values)

    def sections(self, number, missing=False):
        """The sections of a file; `missing`: slots that were used up without a recording are left out."""
        head = self.file_head(number)
        if head is None:
            return []
        found = []
        for use in range(1, head.sections + 1):
            raw = self._read("index000.bin", 131072 + 16384 * number + 64 * use, 64)
            flag, start, end, file, slot, *rest = struct.unpack_from("<4sIIHHIIIIIHHBBBBB", raw)
            if missing and not any(raw):
                continue
            need(flag == b"RIHF" and (file, slot) == (number, use), f"section head {number}:{use}")
            found.append(Section(start, end, file, slot, *rest))
        return found

    def all_sections(self):
        return [s for n in range(self.system().file_count) for s in self.sections(n)]

    def key_frames(self, section):
        found = []
        for k in range(section.key_frames):
            raw = self._read(f"hi{section.file:06d}.mp4", KEY_FRAME_BASE + section.key_position + 20 * k, 20)
            flag, time, length, position, kind = struct.unpack("<4sIIIB3x", raw)
            need(flag == b"KFHF" and not any(raw[17:]), f"key-frame record {k} of {section.file}:{section.number}")
            found.append(KeyFrame(time, length, position, kind))
        return found

    def stream(self, section):
        return self._read(f"hi{section.file:06d}.mp4", section.position, section.size)

    def frames(self, section):
        """The frames of a section in order; offsets are relative to the section's start."""
        data = self.stream(section)
        need(data[:40] == STREAM_HEAD, f"stream head of {section.file}:{section.number}")
        at = 40
        while at < len(data):
            frame, at = self._frame(data, at)
            yield frame

    def _frame(self, data, at):
        start = data[at : at + 4]
        if start == b"\0\0\1\xc0":
            frame = Frame("audio", at)
            end = self._packet(data, at, frame)
        else:
            need(start == b"\0\0\1\xba", f"no frame at {at}: {start.hex()}")
            frame = Frame("video", at)
            need(data[at + 10 : at + 14] == bytes.fromhex("00a003fc"), f"pack header tail at {at}")
            frame.time = struct.unpack_from("<I", data, at + 14)[0]
            scr = scr_of(data[at : at + 18])
            end = at + 18
            if data[end : end + 4] == b"\0\0\1\xbb":
                need(data[end + 4 : end + 18] == SYSTEM_HEADER, f"system header at {end}")
                need(data[end + 18 : end + 22] == b"\0\0\1\xbc", f"stream map at {end + 18}")
                frame.key = True
                end += 66
            while data[end : end + 4] == b"\0\0\1\xe0":
                end = self._packet(data, end, frame)
                need(frame.pts == scr, f"PTS {frame.pts} differs from SCR {scr} at {at}")
        frame.packed = end - at
        return frame, end

    @staticmethod
    def _packet(data, at, frame):
        header = data[at : at + 14]
        need(len(header) == 14 and header[6:9] == b"\x80\x80\x05", f"packet header at {at}")
        length = struct.unpack_from(">H", header, 4)[0] - 8
        need(0 < length <= 65470, f"packet length at {at}")
        piece = data[at + 14 : at + 14 + length]
        need(len(piece) == length, f"packet at {at} passes the section's end")
        frame.pts = pts_of(header)
        frame.payload += piece
        return at + 14 + length

    def check_section(self, section):
        """Every claim that the index makes of a section against the stream's bytes; returns its frames."""
        where = f"{section.file}:{section.number}"
        frames = list(self.frames(section))
        video = [f for f in frames if f.kind == "video"]
        # Frames that still arrive once a file's length has passed the limit are counted, and the lengths stand still.
        is_over = section.position + section.size > STREAM_LIMIT
        need(len(video) == section.frames or (is_over and len(video) < section.frames),
             f"{where}: {len(video)} frames, head says {section.frames}")
        records = [r for r in self.key_frames(section) if not is_over or r.position + r.length <= section.size]
        keys = [f for f in video if f.key]
        need(len(keys) == len(records), f"{where}: {len(keys)} key frames, index has {len(records)}")
        for i, (key, record) in enumerate(zip(keys, records)):
            head = 40 if i == 0 else 0
            need(record.position == key.offset - head, f"{where}: key frame {i} at {key.offset}, index says {record.position}")
            need(record.length == key.packed + head, f"{where}: key frame {i} length")
            # The first record carries the section's start, which may join the run before it.
            need(record.time == (section.start if i == 0 else key.time), f"{where}: key frame {i} time")
        for i, frame in enumerate(video):
            need(frame.pts == 3600 * (i + 1), f"{where}: frame {i} has PTS {frame.pts}")
        need(section.start <= section.end, f"{where}: ends before it starts")
        return frames

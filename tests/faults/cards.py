"""The card itself: pulled, exchanged between two looks of the recorder, its driver dead."""

import os
import signal
import subprocess
from dataclasses import dataclass

from camera import STORE, Camera, wait_for
from judge import Fault, Judge

DEVICE = "/dev/mmcblk0p1"


@dataclass(frozen=True)
class CardCase:
    what: str

    def __str__(self):
        return f"card:{self.what}"

    def run(self, bench):
        before, begin = bench.begin()
        bench.resume(restart=True, first=lambda: CARD_CASES[self.what](bench))
        bench.judge.check(before)
        return f"{bench.judge.lost(begin)} pictures lost"


def pulled(bench):
    """Out, and back a moment later."""
    os.unlink(DEVICE)
    subprocess.run(["umount", "--lazy", STORE], check=True)
    wait_for("the end of the run", lambda: "Record Over" in bench.camera.recorder.text(), 20)
    bench.judge.nothing_beside()
    insert(bench.camera.image)
    os.symlink(bench.camera.image, DEVICE)


def dead(bench):
    """Its driver dies: every call fails until the card is mounted anew."""
    os.kill(driver_of(bench.camera.image), signal.SIGKILL)
    wait_for("calls that fail", lambda: not can_list(STORE), 5)
    subprocess.run(["umount", "--lazy", STORE], check=True)
    bench.judge.nothing_beside()
    insert(bench.camera.image)


def exchanged(bench):
    """Another card is in its place at the next look; later the first one is back."""
    other = os.path.join(bench.camera.folder, "other.img")
    Camera.card_tool("format", "--yes", "--size", f"{1024 + 256 + 16}M", "--video-percent", "100", other)
    exchange(bench, other)
    judge = Judge(bench.camera, bench.journals, bench.shim, other)
    wait_for("pictures on the other card", lambda: judge.frame_count() >= 5, 25)
    judge.check(({}, {}))
    judge.close()
    exchange(bench, bench.camera.image)


def insert(image):
    Camera.card_tool("mount", image, STORE, "--fsname", DEVICE)


def exchange(bench, image):
    subprocess.run(["umount", "--lazy", STORE], check=True)
    insert(image)
    bench.change_setting()


def driver_of(image):
    for process in filter(str.isdigit, os.listdir("/proc")):
        with open(f"/proc/{process}/cmdline", "rb") as file:
            words = file.read().split(b"\0")
        if b"mount" in words and image.encode() in words:
            return int(process)
    raise Fault(f"nobody mounts {image}")


def can_list(folder):
    try:
        return bool(os.listdir(folder))
    except OSError:
        return False


CARD_CASES = {case.__name__: case for case in (pulled, dead, exchanged)}

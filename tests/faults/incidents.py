"""What happens around a recorder that records: its card is pulled, exchanged between two looks, or its driver dead; the
recorder or the desk camera is killed."""

import os
import random
import signal
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Callable

from camera import DEVICE, STORE, wait_for
from judge import Judge


@dataclass(frozen=True)
class Incident:
    name: str
    happen: Callable
    may_end: bool = False  # the recorder, by itself

    def __str__(self):
        return self.name

    def run(self, bench):
        bench.record()
        before, begin = bench.judge.snapshot(), len(bench.journals.records)
        self.happen(bench)
        took = bench.resume(restart=self.may_end)
        bench.judge.check(before)
        return f"{bench.judge.lost(begin)} pictures lost, records after {took:.1f} s"


def pulled(bench):
    """Out, and back a moment later."""
    os.unlink(DEVICE)
    subprocess.run(["umount", "--lazy", STORE], check=True)
    wait_for("the end of the run", lambda: "Record Over" in bench.camera.recorder.text(), 20)
    bench.judge.nothing_beside()
    bench.camera.insert(bench.camera.image)
    os.symlink(bench.camera.image, DEVICE)


def dead(bench):
    """Its driver dies: every call fails until the card is mounted anew."""
    os.kill(driver_of(bench.camera.image), signal.SIGKILL)
    wait_for("calls that fail", lambda: not can_list(STORE), 5)
    subprocess.run(["umount", "--lazy", STORE], check=True)
    bench.judge.nothing_beside()
    bench.camera.insert(bench.camera.image)


def exchanged(bench):
    """Another card is in its place at the next look; later the first one is back."""
    other = os.path.join(bench.camera.folder, "other.img")
    bench.camera.format(other, files=1)
    exchange(bench, other)
    judge = Judge(bench.camera, bench.journals, other)
    wait_for("pictures on the other card", lambda: judge.frame_count() >= 5, 25)
    judge.check(({}, {}))
    judge.close()
    exchange(bench, bench.camera.image)


def exchange(bench, image):
    subprocess.run(["umount", "--lazy", STORE], check=True)
    bench.camera.insert(image)
    bench.change_setting()


def driver_of(image):
    for command in Path("/proc").glob("[0-9]*/cmdline"):
        words = command.read_bytes().split(b"\0")
        if b"mount" in words and image.encode() in words:
            return int(command.parent.name)
    raise AssertionError(f"nobody mounts {image}")


def can_list(folder):
    try:
        return bool(os.listdir(folder))
    except OSError:
        return False


CARDS = {name: Incident(name, happen, may_end=True)
         for name, happen in (("card:pulled", pulled), ("card:exchanged", exchanged), ("card:dead", dead))}


def kill(seed, number):
    """Kill -9 in random order at random moments; the dice depend on nothing but seed and number."""
    rng = random.Random(f"{seed}:{number}")
    who = rng.choice(["recorder", "desk", "recorder desk", "desk recorder", "recorder recorder"]).split()

    def happen(bench):
        for one in who:
            if rng.random() < 0.3:
                bench.change_setting()
            time.sleep(rng.uniform(0, 1.5))  # the moment is what the dice say
            (bench.camera.recorder if one == "recorder" else bench.camera.desk).kill()
        for one in sorted(set(who), key=lambda _: rng.random()):
            time.sleep(rng.uniform(0, 0.5))
            bench.start_recorder() if one == "recorder" else bench.start_desk()

    return Incident(f"kill:{number}:{' '.join(who)}", happen)

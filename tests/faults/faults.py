"""Makes the recorder's calls fail, one after the other, and judges the card after each.

A case is named PHASE:CALL@PLACE:FAULT:MODE:N.
  phase   start (the recorder begins), running, change (a run ends, the next begins), alarm (an event is saved),
          switch (a file is full, the next one begins), stop
  call    as the C library calls it; place: what it works on (shim.py)
  fault   an errno, or short, torn (half, then EIO), kill (the recorder dies in front of the call)
  mode    once, burst (5 in a row), window (all for 3 s), good (all for 13 s; then the fault is over)
  n       so many such calls pass first

The cards of card:WHAT are pulled, exchanged or dead; kill:N kills recorder and desk camera.

Of a broken case the folder KEEP, if it is set, gets the card, the logs and the journals.
"""

import argparse
import errno
import json
import os
import random
import re
import subprocess
import sys
import time
from contextlib import ExitStack, closing
from dataclasses import dataclass

sys.path.insert(0, os.path.dirname(__file__))
from bench import Bench  # noqa: E402
from camera import TimedOut, wait_for  # noqa: E402
from incidents import CARDS, kill  # noqa: E402
from shim import FAULTS  # noqa: E402

MODES = {"once": (1, 0), "burst": (5, 0), "window": (0, 3), "good": (0, 13)}  # how many fail (0: all), for how long
LASTING = ("burst", "window", "good")
PHASES = ("start", "running", "change", "alarm", "switch", "stop")

# What a fault may cost beside frames, and `recordcard check` then finds; docs/robustness.md tells why.
COSTS = {
    r"pwrite@event(_head)?:kill": r"event \d+ of file \d+ ",  # its head was there first
    # The run ended before they were taken.
    r"pwrite@key_frame:(EROFS:burst|\w+:(window|good))": "key frames have none",
    r"(change|alarm|switch|stop):pwrite@key_frame:\w+:burst": "key frames have none",
    r"(fsync|pwrite|pread)@(record_file|stream|key_frame):EIO:(window|good)": r"file \d+ is not full",  # it was left
}

# What ./test looks at: the places where a fault decides what is written, and each kind of call.
SELECTION = """
start:pread@file_head:EIO:once:0 start:pread@file_head:short:once:0 start:pread@system_head:EIO:once:0
start:shmat@elsewhere:ENOMEM:burst:0 start:malloc@elsewhere:ENOMEM:burst:0 start:pthread_create@elsewhere:EAGAIN:once:1
change:open@record_file:EIO:burst:0 change:open@index:EMFILE:burst:0
change:pwrite@stream:kill:once:1 change:msgrcv@elsewhere:EINTR:burst:0
running:pwrite@stream:torn:once:0 running:pwrite@section_head:ENOSPC:burst:0
running:pwrite@stream:EROFS:window:0 running:pwrite@key_frame:EIO:once:0
running:access@device:EIO:window:0 switch:pwrite@system_head:EIO:window:0
alarm:pread@event_head:EIO:once:0 stop:close@record_file:EIO:once:0
card:pulled card:exchanged card:dead
""".split()


@dataclass(frozen=True)
class Case:
    phase: str
    call: str
    place: str
    fault: str
    mode: str
    n: int
    may_miss: bool = False  # the phase may go without this call

    def __str__(self):
        return f"{self.phase}:{self.call}@{self.place}:{self.fault}:{self.mode}:{self.n}"

    def run(self, bench):
        """What happened, in words; or an AssertionError."""
        prepare(bench, self.phase)
        before = bench.judge.snapshot()
        bench.judge.only_published()
        begin = len(bench.journals.records)
        count, seconds = MODES[self.mode]
        bench.shim.arm(self.call, self.place, self.fault, self.n, count)
        status = self.provoke(bench)
        self.wait_for_fault(bench, count, seconds)
        bench.shim.disarm()
        if self.phase == "stop":
            assert status == 0 or self.fault == "kill", f"stop: exit status {status}"
            bench.judge.check(before, self.cost())
            bench.start_recorder()
        return self.verdict(bench, before, begin, seconds)

    def cost(self):
        return "|".join(finding for case, finding in COSTS.items() if re.search(case, str(self))) or None

    def provoke(self, bench):
        acts = {"start": bench.start_recorder, "change": bench.change_setting, "alarm": bench.raise_alarm,
                "stop": bench.stop_recorder}
        return acts[self.phase]() if self.phase in acts else None

    def wait_for_fault(self, bench, count, seconds):
        """Until all of its calls have failed, or for its time; a run that makes fewer such calls has seen them all."""
        if self.phase == "stop":
            return
        bound = 6 if self.may_miss else 20
        try:
            wait_for("the fault", lambda: bench.shim.page.injected >= 1 or bench.recorder_ended() is not None, bound)
            wait_for("the burst", lambda: bench.shim.page.injected >= count or bench.recorder_ended() is not None, 3)
        except TimedOut:
            return
        time.sleep(seconds)

    def verdict(self, bench, before, begin, seconds):
        injected = bench.shim.page.injected
        assert injected or self.may_miss, "the fault was not met"
        status = bench.recorder_ended()
        may_end = self.fault in ("ENOENT", "kill")  # ENOENT: the card is not there
        assert status is None or may_end, f"stops: the recorder ended with {status}: {bench.last_words()}"
        took = bench.resume(restart=may_end, switches=self.phase == "switch")
        bench.judge.check(before, self.cost())
        is_on_card = self.place != "device"  # without a descriptor of its own the node is asked for by its name
        if seconds and injected and is_on_card and self.call in ("open", "pread", "pwrite") and hasattr(errno, self.fault):
            assert says(bench, self.fault), "silent: no line of the log tells of it"
        words = [f"{injected} failed" if injected else "not met"]
        if self.phase in ("running", "change", "alarm"):
            words.append(f"{bench.judge.lost(begin)} pictures lost")
        if status is not None:
            words.append(f"recorder ended with {status}, started again")
        return ", ".join(words + [f"records after {took:.1f} s"])


def case_named(name):
    if name in CARDS:
        return CARDS[name]
    phase, call, fault, mode, n = name.split(":")
    return Case(phase, *call.split("@"), fault, mode, int(n))


def prepare(bench, phase):
    bench.record()
    if not bench.judge.events():
        bench.make_event()
    if phase in ("start", "switch"):
        bench.stop_recorder()
    if phase == "switch":
        bench.fill_file()
        bench.start_recorder()
        bench.wait_until_recording()


def says(bench, fault):
    """Whether the recorder's log names the error, by number or by words.

    One kind of failure gets a line a minute: that of an earlier case may stand for this one.
    """
    number = getattr(errno, fault)
    text = rf"errno\W{{0,3}}{number}\b|{os.strerror(number)}|failed: errno"
    return re.search(text, bench.camera.recorder.text()) is not None


def census(bench):
    """Which calls each phase makes, and how often: what the long mode lets fail."""
    found = {}
    for phase in PHASES:
        prepare(bench, phase)
        seen = bench.shim.seen()
        Case(phase, "open", "elsewhere", "EIO", "once", 0).provoke(bench)
        if phase == "switch":
            bench.wait_for_switch()
        if phase != "stop":
            bench.wait_until_recording()
            time.sleep(1)  # and what follows a little later
        new = {where: n - seen.get(where, 0) for where, n in bench.shim.seen().items()}
        found[phase] = {where: n for where, n in new.items() if n > 0}
    return found


def all_cases(seed):
    """Every call at every place in every phase with each fault; in each mode and at each turn with the first of them."""
    with closing(Bench()) as bench:
        found = census(bench)
    rng = random.Random(seed)
    cases = []
    for phase, calls in found.items():
        for (call, place), n in sorted(calls.items()):
            first, *others = FAULTS[call].split()
            each = [(first, "once", skip) for skip in (range(n) if n <= 6 else [0, 1, 2, rng.randrange(3, min(n, 60))])]
            each += [(first, mode, 0) for mode in LASTING]
            each += [(fault, "once", skip) for fault in others for skip in {0, rng.randrange(min(n, 60))}]
            each += [(fault, "burst", 0) for fault in others]
            cases += [Case(phase, call, place, *one, may_miss=True) for one in each if phase != "stop" or one[1] == "once"]
    cases += CARDS.values()
    rng.shuffle(cases)  # each on cards of many histories
    return cases


class Table:
    """The rows so far; with a file they outlive an interruption."""

    def __init__(self, path):
        self.file = open(path or os.devnull, "a+")
        self.file.seek(0)
        self.rows = {row["case"]: row for row in map(json.loads, self.file) if not row["broken"]}

    def add(self, case, result, broken):
        self.rows[case] = row = {"case": case, "result": result, "broken": broken}
        print(f"{'FAULT' if broken else 'ok   '} {case}  {result}", flush=True)
        print(json.dumps(row), file=self.file, flush=True)


def keep(bench, case):
    """A broken case leaves its card, logs and journals in the folder KEEP, if that is given."""
    if "KEEP" in os.environ:
        place = os.path.join(os.environ["KEEP"], re.sub(r"\W", "_", str(case)))
        subprocess.run(["cp", "-r", "--sparse=always", bench.camera.folder, place], check=True)


def run_all(cases, table):
    with ExitStack() as room:
        bench = None
        for case in (case for case in cases if str(case) not in table.rows):
            if bench is None or bench.is_worn():
                room.close()
                bench = room.enter_context(closing(Bench()))
            try:
                table.add(str(case), case.run(bench), False)
            except (AssertionError, TimedOut, OSError) as error:
                table.add(str(case), str(error), True)
                keep(bench, case)
                bench = None  # the next case gets a card that is in order


def main():
    parser = argparse.ArgumentParser(prog="tests/faults/run", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", metavar="PATTERN", help="the cases that match; a whole name need not be listed")
    parser.add_argument("--long", action="store_true", help="all calls, faults and modes instead of the selection")
    parser.add_argument("--kills", type=int, default=5, metavar="N", help="N kills of recorder and desk camera (5)")
    parser.add_argument("--resume", metavar="FILE", help="keep the rows in FILE, leave out the cases that passed")
    arguments = parser.parse_args()

    if arguments.only and re.fullmatch(r"\w+:\w+@\w+:\w+:\w+:\d+|card:\w+", arguments.only):
        cases = [case_named(arguments.only)]
    else:
        cases = all_cases(arguments.seed) if arguments.long else [case_named(name) for name in SELECTION]
        cases += [kill(arguments.seed, number) for number in range(arguments.kills)]
        cases = [case for case in cases if not arguments.only or re.search(arguments.only, str(case))]
    if not cases:
        parser.error(f"no case matches {arguments.only}")
    print(f"{len(cases)} cases, seed {arguments.seed}")
    table = Table(arguments.resume)
    run_all(cases, table)
    return 1 if any(row["broken"] for row in table.rows.values()) else 0


if __name__ == "__main__":
    sys.exit(main())

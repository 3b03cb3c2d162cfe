#!/usr/bin/env python3
"""How many wrong recorders do the tests let pass?

Makes one-place changes of src/, one at a time, in a scratch copy, builds the tests of the changed module and runs them
until one fails.  A mutant that none of them notices survives: it is printed with its place.  It then gets a test, or a
line in `equivalent` that says why nobody can tell it from the recorder.  The choice follows from the seed and the
sources alone.  Interrupted, the next call goes on where it was; --again tries the mutants of an earlier run once more,
to see what changed tests notice.

  tests/mutation/mutate.py [--mutants N] [--seed N] [--only REGEX] [--state DIR] [--again DIR] [--least PERCENT]
"""

import argparse
import json
import os
import random
import re
import shutil
import subprocess
import sys
import time
from collections import Counter
from itertools import chain, groupby, zip_longest
from operator import attrgetter
from pathlib import Path

from mutants import mutants_of

ROOT = Path(__file__).resolve().parents[2]
EQUIVALENT = Path(__file__).with_name("equivalent")  # "path | source line | change | why", without the line's number
# What else runs a module's code, after the tests in its own folder.
FURTHER_TESTS = {
    "common": ["libLog", "libAVSpsPpsProcess", "libAVRecord"], "libRecordFile": ["libAVRecord", "libAVRecordProcess"],
    "libAVRecord": ["libAVRecordProcess"], "libIpcUtils": ["libAlarmProcess", "libAVServerAccess", "libOthers"],
}
KILLED, SURVIVED, INVALID = "killed", "survived", "does not build"


class Bench:
    """The scratch copy, in which it builds and runs."""

    def __init__(self, state):
        self.tree = state / "tree"
        self.build = self.tree / "build" / "mutation"
        self.environment = dict(os.environ, CCACHE_BASEDIR=str(self.tree), CCACHE_NOHASHDIR="1")
        self.seconds = {}  # each test's, unchanged

    def prepare(self):
        shutil.rmtree(self.tree, ignore_errors=True)
        self.tree.mkdir(parents=True)
        subprocess.run(f"git ls-files -z | xargs -0 cp -p --parents --target-directory '{self.tree}'", shell=True,
                       cwd=ROOT, check=True)
        subprocess.run(["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja", "-DRECORDER_ONLY=ON",
                        "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -w"],  # a mutant may leave things unused
                       env=self.environment, check=True, stdout=subprocess.DEVNULL)

    def programs_for(self, path):
        """The tests of the module of `path`, first the one that is named after it."""
        module = Path(path).parent.name
        found = []
        for area in [module, *FURTHER_TESTS.get(module, [])]:
            rules = self.tree / "tests" / area / "CMakeLists.txt"
            names = re.findall(r"recorder_test\(\s*(\w+)", rules.read_text()) if rules.exists() else []
            found += sorted(names, key=lambda name: not name.startswith(Path(path).stem))
        return found

    def builds(self, program):
        return subprocess.run(["ninja", "-C", self.build, program], env=self.environment,
                              capture_output=True).returncode == 0

    def passes(self, program, bound):
        binary = next((self.build / "tests").glob(f"*/{program}"))
        try:
            return subprocess.run([self.tree / "desk" / "in-camera", binary, "--gtest_fail_fast"], timeout=bound,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                  stdin=subprocess.DEVNULL).returncode == 0
        except subprocess.TimeoutExpired:  # it hangs: noticed; what runs in the camera dies with it
            return False

    def measure(self, program):
        if program in self.seconds:
            return
        if not self.builds(program):
            sys.exit(f"{program}, unchanged, does not build")
        begin = time.monotonic()
        if not self.passes(program, 600):
            sys.exit(f"{program}, unchanged, does not pass")
        self.seconds[program] = time.monotonic() - begin

    def judge(self, mutant):
        """(verdict, the test that noticed it)"""
        programs = self.programs_for(mutant.path)
        for program in programs:
            self.measure(program)
        place = self.tree / mutant.path
        original = place.read_text()
        try:
            place.write_text(mutant.apply(original))
            for program in programs:
                if not self.builds(program):
                    return INVALID, None
                if not self.passes(program, 5 * self.seconds[program] + 20):
                    return KILLED, program
            return SURVIVED, None
        finally:
            place.write_text(original)


def all_mutants(options, bench):
    stale = {line.rsplit(" | ", 1)[0] for line in EQUIVALENT.read_text().splitlines()}
    equivalent = frozenset(stale)
    for source in sorted((bench.tree / "src").rglob("*.cpp")):
        path = str(source.relative_to(bench.tree))
        for mutant in mutants_of(path, source.read_text()):
            stale.discard(mutant.key())
            if re.search(options.only, path) and bench.programs_for(path) and mutant.key() not in equivalent:
                yield mutant
    for line in sorted(stale):
        print(f"{EQUIVALENT.name}: there is no such mutant any more: {line}", file=sys.stderr)


def chosen(options, bench):
    """The mutants, in the order of trying: every kind of change as often as every other, as far as there are any."""
    mutants = list(all_mutants(options, bench))
    if options.again:
        places = {(row["key"], row["offset"]) for row in rows_of(options.again) if row["verdict"] != INVALID}
        there = [mutant for mutant in mutants if (mutant.key(), mutant.offset) in places]
        moved = {key for key, _ in places} - {mutant.key() for mutant in there}
        yield from there + [mutant for mutant in mutants if mutant.key() in moved]
        return
    kind = attrgetter("kind")
    kinds = [list(each) for _, each in groupby(sorted(mutants, key=kind), kind)]
    dice = random.Random(options.seed)
    for each in kinds:
        dice.shuffle(each)
    yield from filter(None, chain.from_iterable(zip_longest(*map(reversed, kinds))))


def rows_of(state):
    return [json.loads(line) for line in (state / "results").read_text().splitlines()]


def report(rows):
    total = Counter(row["verdict"] for row in rows)
    tried = total[KILLED] + total[SURVIVED]
    score = 100 * total[KILLED] / tried if tried else 0
    print(f"{total[KILLED]} of {tried} mutants noticed: {score:.0f} %; {total[INVALID]} more did not build")
    for row in rows:
        if row["verdict"] == SURVIVED:
            print(f"survived: {row['mutant']}")
    return score


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--mutants", type=int, default=300)
    options.add_argument("--seed", type=int, default=1)
    options.add_argument("--only", default="", help="of the paths below src/")
    options.add_argument("--state", type=Path, default=ROOT / "build" / "mutation")
    options.add_argument("--again", type=Path, help="the state folder of an earlier run")
    options.add_argument("--least", type=float, default=0, help="score below which it fails")
    options = options.parse_args()

    options.state.mkdir(parents=True, exist_ok=True)
    bench = Bench(options.state.resolve())
    results = options.state / "results"
    if not results.exists() or not bench.build.exists():
        bench.prepare()
        results.write_text("")
    rows = rows_of(options.state)
    known = {row["key"] + str(row["offset"]) for row in rows}
    left = (sys.maxsize if options.again else options.mutants) - sum(row["verdict"] != INVALID for row in rows)
    for mutant in chosen(options, bench):
        if left <= 0:
            break
        if mutant.key() + str(mutant.offset) in known:
            continue
        verdict, program = bench.judge(mutant)
        left -= verdict != INVALID
        rows.append({"mutant": str(mutant), "key": mutant.key(), "path": mutant.path, "offset": mutant.offset,
                     "verdict": verdict, "program": program})
        with results.open("a") as file:
            file.write(json.dumps(rows[-1]) + "\n")
        print(f"{verdict:14} {mutant}" + (f"  ({program})" if program else ""), flush=True)
    return 0 if report(rows) >= options.least else 1


if __name__ == "__main__":
    sys.exit(main())

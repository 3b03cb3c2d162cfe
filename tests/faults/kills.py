"""Kill -9 of the recorder and of the desk camera, in random order at random moments."""

import random
import time

KILLS = 5  # in ./test


class Kill:
    """The kill of this number; its dice depend on nothing but seed and number."""

    def __init__(self, seed, number):
        self.number = number
        self.rng = random.Random(f"{seed}:{number}")
        self.who = self.rng.choice(["recorder", "desk", "recorder desk", "desk recorder", "recorder recorder"])

    def __str__(self):
        return f"kill:{self.number}:{self.who}"

    def run(self, bench):
        before, begin = bench.begin()
        for who in self.who.split():
            if self.rng.random() < 0.3:
                bench.change_setting()
            time.sleep(self.rng.uniform(0, 1.5))  # the moment is what the dice say
            (bench.camera.recorder if who == "recorder" else bench.camera.desk).kill()
        for who in sorted(set(self.who.split()), key=lambda _: self.rng.random()):
            time.sleep(self.rng.uniform(0, 0.5))
            bench.start_recorder() if who == "recorder" else bench.start_desk()
        took = bench.resume()
        bench.judge.check(before)
        return f"{bench.judge.lost(begin)} pictures lost, records after {took:.1f} s"

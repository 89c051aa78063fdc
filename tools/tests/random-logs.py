"""Random logs, whole and damaged, through vek-plot; RANDOM_PROGRAMS says how many."""

import os
import random

from randomlogs import MAKERS, OPTIONS, damage, draw
from support import tap

COUNT = int(os.environ.get('RANDOM_PROGRAMS', 500))


def run_random(is_damaged):
    drawn = 0
    for seed in range(COUNT):
        source = random.Random(seed)
        files = {name: MAKERS[name](source).encode()
                 for name in source.sample(list(MAKERS), source.randrange(1, 4))}
        if is_damaged:
            files = {name: damage(source, content) for name, content in files.items()}
        try:
            drawn += draw(files, *source.sample(OPTIONS, source.randrange(3))).status == 0
        except BaseException:
            print(f'# seed {seed}: {files}')
            raise
    assert drawn > COUNT / 2, drawn


def random_logs_are_drawn():
    run_random(False)


def damaged_logs_are_drawn():
    run_random(True)


if __name__ == '__main__':
    tap.run([random_logs_are_drawn, damaged_logs_are_drawn])

#!/usr/bin/python3
"""Fills a folder with the reports of a fleet in beta: make_reports.py FOLDER N [SEED]

Each is another device's. What is wrong with one is drawn by the odds of its build; the same N and SEED make
the same reports.
"""
import concurrent.futures
import pathlib
import random
import sys

import make_report

MODELS = ('Norvel Tarn', 'Norvel Beck')
BUILDS = ('NWB1.260910.011', 'NWB1.261012.002', 'NWB1.261109.004')
# In a hundred reports of each build. One has risen with the newest build.
ODDS = {'failed': (2, 3, 24), 'timeout': (4, 5, 6), 'frozen': (1, 8, 1), 'limited': (9, 9, 9),
        'hot': (2, 3, 2), 'modem': (5, 5, 9), 'gap': (3, 3, 3), 'skipped': (2, 2, 2), 'no-data': (1, 1, 1),
        'unfinished': (1, 1, 1), 'hostile': (1, 1, 1), 'slow': (6, 6, 6)}


def make(folder, number, odds, options):
    rng = random.Random(number)
    build = rng.randrange(len(BUILDS))
    faults = [word for fault, its in odds.items() if rng.randrange(100) < its[build] for word in ('--fault', fault)]
    arguments = make_report.options().parse_args(
        ['--seed', str(number), '--device', rng.choice(MODELS), '--build', BUILDS[build], *faults, *options])
    with open(folder / f'{number:06}.txt', 'wb') as out:
        make_report.write(out, arguments)


def make_reports(folder, count, seed=0, odds=None, options=()):
    folder.mkdir(parents=True, exist_ok=True)
    numbers = range(1 + seed, 1 + seed + count)
    with concurrent.futures.ProcessPoolExecutor() as workers:
        for made in [workers.submit(make, folder, number, odds or ODDS, options) for number in numbers]:
            made.result()


if __name__ == '__main__':
    make_reports(pathlib.Path(sys.argv[1]), int(sys.argv[2]), int((sys.argv[3:] or ['0'])[0]))

#!/usr/bin/python3
"""Fills a folder with the reports of a fleet in beta: make_reports.py FOLDER N

Each is another device's. What is wrong with one is drawn by the odds of its build; the same N makes
the same reports.
"""
import concurrent.futures
import os
import pathlib
import random
import subprocess
import sys

GENERATOR = pathlib.Path(__file__).resolve().parent / 'make_report.py'
MODELS = ('Norvel Tarn', 'Norvel Beck')
BUILDS = ('NWB1.260910.011', 'NWB1.261012.002', 'NWB1.261109.004')
# In a hundred reports of each build.
ODDS = {'failed': (2, 3, 24), 'timeout': (4, 5, 6), 'frozen': (1, 8, 1), 'limited': (9, 9, 9),
        'hot': (2, 3, 2), 'modem': (5, 5, 9), 'gap': (3, 3, 3), 'skipped': (2, 2, 2), 'no-data': (1, 1, 1),
        'unfinished': (1, 1, 1), 'hostile': (1, 1, 1), 'slow': (6, 6, 6)}


def make(folder, number):
    rng = random.Random(number)
    build = rng.randrange(len(BUILDS))
    faults = [fault for fault, odds in ODDS.items() if rng.randrange(100) < odds[build]]
    subprocess.run([GENERATOR, '--seed', str(number), '--device', rng.choice(MODELS), '--build', BUILDS[build],
                    *(word for fault in faults for word in ('--fault', fault)),
                    '-o', folder / f'{number:06}.txt'], check=True)


def main():
    folder, count = pathlib.Path(sys.argv[1]), int(sys.argv[2])
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as workers:
        for _ in workers.map(lambda number: make(folder, number), range(1, count + 1)):
            pass


main()

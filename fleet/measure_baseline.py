#!/usr/bin/python3
"""Measures what a baseline is worth: measure_baseline.py BOARDREPORT FOLDER [N [SEED]]

Learns from N healthy reports (200), and judges by it N others, and N others with one oddity each. Another SEED
makes all of them others.
"""
import collections
import concurrent.futures
import json
import os
import pathlib
import random
import subprocess
import sys

import make_report

MODELS = ('Norvel Tarn', 'Norvel Beck')
GENERATOR = pathlib.Path(__file__).resolve().parent / 'make_report.py'


def make(folder, first, count, odd):
    folder.mkdir(parents=True, exist_ok=True)

    def one(seed):
        words = ['--odd', make_report.ODDITIES[seed % len(make_report.ODDITIES)]] if odd else []
        subprocess.run([GENERATOR, '--seed', str(seed), '--device', random.Random(seed).choice(MODELS), '--size', '2000',
                        '--records', '3000', *words, '-o', folder / f'{seed:06}.txt'], check=True)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as workers:
        list(workers.map(one, range(first, first + count)))
    return sorted(folder.glob('*.txt'))


def main():
    program, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    count, seed = [int(word) for word in sys.argv[3:]] + [200, 0][len(sys.argv) - 3:]
    learned, healthy, odd = (make(folder / name, seed * 1_000_000 + first, count, name == 'odd')
                             for name, first in (('learned', 1), ('healthy', 100001), ('odd', 200001)))
    baseline = folder / 'baseline.json'
    subprocess.run([program, 'baseline', *learned, '-o', baseline], check=True)
    print(f'a baseline of {len(learned)} reports has {baseline.stat().st_size} bytes')

    def first_findings(files):
        output = subprocess.run([program, 'json', '--baseline', baseline, *files], check=True, capture_output=True).stdout
        first = dict.fromkeys(map(str, files))
        for record in map(json.loads, output.splitlines()):
            if record['type'] == 'finding' and record['severity'] != 'note' and first[record['file']] is None:
                first[record['file']] = record
        return first

    wrong = {file: finding for file, finding in first_findings(healthy).items() if finding}
    print(f'healthy reports with a warning: {len(wrong)} of {len(healthy)}')
    for file, finding in wrong.items():
        print(f'  {file}: {finding["says"]}')
    found, kinds, example = collections.Counter(), collections.Counter(), {}
    for file, finding in first_findings(odd).items():
        kind = make_report.ODDITIES[int(pathlib.Path(file).stem) % len(make_report.ODDITIES)]
        kinds[kind] += 1
        found[kind] += finding is not None
        example.setdefault(kind, finding and f'{finding["check"]}: {finding["says"]}')
    print(f'odd reports found: {found.total()} of {kinds.total()}')
    for kind in sorted(kinds):
        print(f'  {kind:18} {found[kind]:3} of {kinds[kind]:3}  {example[kind]}')


main()

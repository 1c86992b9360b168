#!/usr/bin/python3
"""Prints the table of doc/performance.md: table.py ROWS FOLDER

Each of ROWS has the medians of two measures, from Google Benchmark's PROGRAM.json in the folder, and their
ratio, bold where it is more than it may come to. What was not measured is left out, unless nothing was. A
measure is NAME[.COUNTER][*FACTOR], a benchmark's time or a counter of it, or a given NUMBER UNIT.
PROGRAM.device.json is of a build as a device's: shown where it differs by more than a tenth.
"""
import json
import pathlib
import re
import sys

UNITS = {'ns': 1, 'us': 1e3, 'µs': 1e3, 'ms': 1e6, 's': 1e9, 'KiB': 1, 'MiB': 1024}
ADDED = re.compile(r'/(iterations|repeats|min_time|real_time|manual_time|process_time)(:[0-9.]+)?')


def medians_of(path):
    medians = {}
    for run in json.loads(path.read_text())['benchmarks'] if path.exists() else []:
        if run.get('aggregate_name') != 'median':
            continue
        name = ADDED.sub('', run['run_name'])
        medians[name] = run['real_time'] * UNITS[run['time_unit']]
        medians.update({f'{name}.{counter}': value for counter, value in run.items()
                        if counter.endswith(('_kib', '_ns'))})
    return medians


def value_of(measure, medians):
    if given := re.fullmatch(r'([0-9.]+) (\w+)', measure):
        return float(given[1]) * UNITS[given[2]]
    name, _, factor = measure.partition('*')
    return medians[name] * float(factor or 1) if name in medians else None


def human(value, measure):
    if value is None:
        return '–'
    names = ('KiB', 'MiB') if re.search(r'_kib| [KM]iB', measure) else ('ns', 'µs', 'ms', 's')
    name = max((name for name in names if value >= UNITS[name]), key=UNITS.get)
    scaled = value / UNITS[name]
    return f'{scaled:.{max(0, 3 - len(str(int(scaled))))}f} {name}'


def cells_of(work, measure, beside, other_measure, most, medians, devices):
    ours, other, device = (value_of(measure, medians), value_of(other_measure, medians),
                           value_of(measure, devices))
    differs = ours and device and not 0.9 < device / ours < 1.1
    ratio = f'{ours / other:.2f}' if ours and other else '–'
    if ours and other and not most.startswith('-') and float(ratio) > float(most.split()[0]):
        ratio = f'**{ratio}**'
    return [work, human(ours, measure), human(device, measure) if differs else '', beside,
            human(other, other_measure), ratio, most.removeprefix('-').strip()]


def main():
    rows, folder = sys.argv[1], sys.argv[2]
    results = {path: medians_of(path) for path in pathlib.Path(folder).glob('*.json')}
    print('| work | ours | as on a device | beside | | ratio | at most |')
    print('| --- | --- | --- | --- | --- | --- | --- |')
    last = ''
    for line in pathlib.Path(rows).read_text().splitlines():
        if line.startswith('['):
            program = pathlib.Path(folder) / line[1:-1]
            medians = results.get(program.with_suffix('.json'), {})
            devices = results.get(program.with_suffix('.device.json'), {})
            last = ''
        elif not line.startswith('#') and (medians or not results):
            cells = cells_of(*line.split('\t'), medians, devices)
            shown = ['', '', ''] + cells[3:] if cells[0] == last else cells
            print('|', ' | '.join(shown), '|')
            last = cells[0]


main()

#!/usr/bin/python3
"""Holds every line of `boardreport json` to doc/records.schema.json, and to what no schema can say.

records_test.py BUILD_FOLDER [OPTION OF device/boot]...
"""
import itertools
import json
import pathlib
import re
import subprocess
import sys
import tempfile

import jsonschema

HERE = pathlib.Path(__file__).resolve().parent.parent
BUILD = pathlib.Path(sys.argv[1])
SCHEMA = json.loads((HERE / 'doc/records.schema.json').read_text())
CHECKS = {kind: jsonschema.Draft202012Validator({'$ref': '#/$defs/' + kind, '$defs': SCHEMA['$defs']})
          for kind in SCHEMA['$defs']}
jsonschema.Draft202012Validator.check_schema(SCHEMA)
LOST = '\N{REPLACEMENT CHARACTER}'
NUMBERS_KEY = '85b852de6a7395366f99fb235747a9a8'  # by xxh128sum
FACTS = {'device': 'Norvel Tarn', 'build.type': 'userdebug', 'serial': 'NVW000001', 'uptime': 174}


class Made:
    """A report of the generator's, and what its records have to say."""

    def __init__(self, *arguments, black_box=None, failed=(), lossy=False, cut=False,
                 incomplete=(), facts=None, truncated=None):
        self.arguments, self.truncated = arguments, truncated
        self.says = {'black_box': black_box, 'failed': set(failed), 'lossy': lossy, 'cut': cut,
                     'incomplete': set(incomplete), 'facts': FACTS if facts is None else facts}

    def write(self, path):
        subprocess.run([HERE / 'fleet/make_report.py', '--records', '610', '-o', path,
                        *self.arguments], check=True)
        if self.truncated:
            path.write_bytes(path.read_bytes()[:self.truncated])


class Written:
    """One byte for byte, and the times of its sensors."""

    def __init__(self, text, times, **says):
        self.text, self.times = text, times
        self.says = {'black_box': None, 'failed': set(), 'lossy': False, 'cut': False,
                     'incomplete': set(), 'facts': {}, **says}

    def write(self, path):
        path.write_bytes(self.text)


REPORTS = {
    'healthy': Made('--records', '7500'),
    'faults': Made('--fault', 'failed', '--fault', 'timeout', '--fault', 'slow', '--fault', 'limited',
                   failed=('USF stat', 'TEV Metrics'), facts={**FACTS, 'charging.limit': 'at most 150 mA by BD_TEMP'}),
    'hot': Made('--fault', 'hot', '--fault', 'modem', '--fault', 'gap', '--fault', 'frozen',
                facts={**FACTS, 'battery.health': 'Overheat', 'modem.restarts': 2}),
    'hostile': Made('--fault', 'hostile', lossy=True, failed=('Hostile "<b>&\'',)),
    'skipped': Made('--fault', 'skipped', black_box='Accelerometer skipped: Incomplete buffer'),
    'no-data': Made('--fault', 'no-data', black_box='no data'),
    'unfinished': Made('--fault', 'unfinished', incomplete=('Kernel log',)),
    'long': Made('--size', str((63 << 20) + 1), cut=True),
    'fits': Made('--size', str((63 << 20) - (1 << 20))),
    'broken-off': Made(truncated=50000, incomplete=('Kernel log',)),
    'numbers': Written(
        b'verbose logging: enabled\n------ Sensor Black Box ------\n*** Sensor 1 (Accelerometer) ***\n'
        b'Time: 9007199254740993, Value: (nan, -inf, 0.000001)\n'
        b'Time: 18446744073709551615, Value: (1e300, -0.000000, 1.000000)\n'
        b'*** Sensor 2 (No such) ***\nTime: 5, Value: (1.000000, 2.000000)\n'
        b'*** Sensor 196 (W) ***\nTotal Time On Wrist: nan seconds\n------ \xe2\x80 (/x) ------\n'
        b"------ 0.001s was the duration of '\xe2\x80' ------\n"
        b'------ VENDOR PROPERTIES (/x) ------\n[ro.product.model]: [\xef\xbf\xbd]\n'
        b"------ 0.001s was the duration of 'VENDOR PROPERTIES' ------\n",
        [[9007199254740993, 18446744073709551615], [], []], lossy=True, black_box='text in it is lost',
        complete=False),
    'wearable': Made(failed=('RM DUMPSTATE BIN DIR', 'Power supply property sw5100_bms'), lossy=True,
                     facts={'device': 'Norvel Tarn', 'battery.level': 64}),
}


if '--instrumented' in sys.argv:  # short texts have shown a sanitizer all that these would
    del REPORTS['long'], REPORTS['fits']

# What is done to the wearable's report, and what all three commands have to say then: how many sections and
# sensors there are, whether it is whole, and what is found besides its two failed sections.
def without(*lines):
    """Without the first line that begins so, of each in turn, behind the one before."""
    def change(report):
        at = 0
        for line in lines:
            begin = report.index(b'\n' + line, at) + 1
            end = report.index(b'\n', begin) + 1
            report, at = report[:begin] + report[end:], begin
        return report
    return change


def within(title, text):
    def change(report):
        at = report.index(b'\n', report.index(b'------ ' + title + b' (')) + 1
        return report[:at] + text(report) + report[at:]
    return change


def records_of(sensor, change):
    """The sensor's lines, numbered, through `change`."""
    def changed(report):
        begin = report.index(b'\n', report.index(b'(' + sensor + b') ***')) + 1
        end = begin
        while report.startswith(b'Time: ', end):
            end = report.index(b'\n', end) + 1
        lines = report[begin:end].splitlines(keepends=True)
        return report[:begin] + b''.join(change(i, line) for i, line in enumerate(lines)) + report[end:]
    return changed


def moved(line, seconds):
    return re.sub(rb'\d+', lambda time: b'%d' % (int(time[0]) + seconds * 10**9), line, count=1)


def cut_at(before, more=0):
    return lambda report: report[:report.index(before) + more]


def footer(title, nth=0):
    return lambda report: re.sub(
        rb"^------ [0-9.]+s was the duration of '" + title + rb"' ------\n",
        (lambda counter: lambda match: match[0] if next(counter) != nth else b'')(itertools.count()),
        report, flags=re.M)


def section_lost(title):
    whole = rb"^------ %b \(.*?^------ \S+ was the duration of '%b' ------\n" % (title, title)
    return lambda report: re.sub(whole, b'', report, flags=re.M | re.S)


def glued(title, other):
    """Without what is between the middle of the section's text and the next of the other title."""
    def change(report):
        begin = report.index(b'\n', report.index(b'------ ' + title + b' (')) + 1
        end = report.index(b'------ ' + other + b' (', begin)
        middle = begin + (report.index(b"was the duration of '" + title) - begin) // 3
        return report[:middle] + report[end:]
    return change


TRUTHS = {  # the change, sections, sensors, whole, what is found
    'untouched': (lambda report: report, 55, 7, True, []),
    "a repeated title's footer lost": (footer(b'MKDIR DUMPSTATE BIN DIR'), 55, 7, False, ['text-lost']),
    'the last footer lost': (footer(b'Modem SSR history'), 55, 7, False, ['report-cut']),
    'a header lost': (without(b'------ TTF ('), 54, 7, False, ['text-lost']),
    'the first line lost': (lambda report: report[report.index(b'\n') + 1:], 55, 7, False, ['text-lost']),
    "the black box's heading lost": (without(b'------ Sensor Black Box'), 55, 7, False, ['text-lost']),
    "a sensor's heading lost": (without(b'*** Sensor 8 ('), 55, 6, False, ['text-lost']),
    'a header and another footer lost':
        (lambda report: without(b'------ USF stat (', b'------ USF stat (')(footer(b'USF stat')(report)), 53, 7, False, None),
    'an older report in a log': (within(b'Bootloader Log', lambda report: report), 55, 7, True, []),
    'an older report in the first log': (within(b'VENDOR PROPERTIES', lambda report: report), 55, 7, True, []),
    'a header behind a cut line': (glued(b'BMS', b'TTF'), 55, 7, False, ['text-lost']),
    'a header behind a cut line of its title':
        (glued(b'MKDIR DUMPSTATE BIN DIR', b'MKDIR DUMPSTATE BIN DIR'), 54, 7, False, ['text-lost'] * 2),
    'a section lost': (section_lost(b'BMS'), 54, 7, False, ['text-lost']),
    'a section that some reports lack': (section_lost(b'Sleep Stats'), 54, 7, True, []),
    'a separator lost': (without(b'-' * 55), 55, 7, False, ['text-lost']),
    'the beginning of another': (lambda report: report + report[:report.index(b'\n') + 1], 55, 7, False, ['report-cut']),
    'another without its beginning': (lambda report: report + report[report.index(b'\n') + 1:], 110, 14, False, None),
    'two reports': (lambda report: 2 * report, 110, 14, True, []),
    'the first of two cut': (lambda report: cut_at(b'------ TTF (')(report) + report, None, 14, False, None),
    'cut at a record': (cut_at(b'*** Sensor', 700), None, 1, False, ['report-cut']),
    "cut at a record's end": (lambda report: (lambda at: report[:report.index(b'\n', at) + 1])(
        report.index(b'*** Sensor') + 700), None, 1, False, ['report-cut']),
    'cut between sections': (cut_at(b'------ TTF ('), None, 7, False, ['report-cut']),
    'cut before the last newline': (lambda report: report[:-1], 55, 7, False, ['report-cut']),
    'a sensor missing': (lambda report: without(b'*** Sensor 8 (')(records_of(b'Magnetometer', lambda i, line: b'')(report)),
                         55, 6, True, ['sensor-missing']),
    'a sensor empty': (records_of(b'Barometer', lambda i, line: b''), 55, 7, True, ['sensor-empty']),
    'one axis stuck': (records_of(b'Gyroscope', lambda i, line: line[:line.index(b'(')] + re.sub(rb', .*?,', b', 0.500000,', line[line.index(b'('):])),
                       55, 7, True, ['sensor-frozen']),
    'a sensor silent': (records_of(b'Gyroscope', lambda i, line: line if i < 2000 else b''), 55, 7, True, ['sensor-silent']),
    'a clock set back': (records_of(b'Gyroscope', lambda i, line: line if i < 2000 else moved(line, -3600)),
                         55, 7, True, ['sensor-gaps']),
    'a clock set ahead': (records_of(b'Gyroscope', lambda i, line: line if i < 2000 else moved(line, 3600)),
                          55, 7, True, ['records-from-the-future', 'sensor-gaps']),
    'a gap': (records_of(b'Gyroscope', lambda i, line: line if not 1000 < i < 1100 else b''), 55, 7, True, ['sensor-gaps']),
    'a line of no record': (records_of(b'Gyroscope', lambda i, line: line[9:] if i == 1000 else line), 55, 7, False, ['text-lost']),
    'a time without its zone': (lambda report: report.replace(b' UTC ', b' '), 55, 7, True, []),
    'all sensors stopped': (lambda report: re.sub(
        rb'^(Now: .*? )(\d\d):', lambda now: now[1] + b'%02d:' % (int(now[2]) + 1), report, flags=re.M), 55, 7, True, ['sensor-silent']),
    'a byte order mark': (lambda report: b'\xef\xbb\xbf' + report, 55, 7, True, []),
}
PAGE = re.compile(r'data-(section|sensor|finding)=')


def check_truth(name, folder):
    """What the three commands say of a changed report, beside what is true."""
    change, sections, sensors, whole, found = TRUTHS[name]
    base = (folder / 'wearable').read_bytes()
    path = folder / 'changed'
    path.write_bytes(change(base))
    _, records = convert(folder, ['changed'])
    its = records['changed']
    kinds = [r['type'] for r in its]
    findings = sorted(r['check'] for r in its if r['type'] == 'finding' and r['severity'] != 'note')
    summary = subprocess.run([BUILD / 'bin/boardreport', 'summary', path], stdout=subprocess.PIPE, check=False)
    subprocess.run([BUILD / 'bin/boardreport', 'page', '-o', folder / 'page', path], check=True)
    marks = PAGE.findall((folder / 'page').read_text())
    failed = sum(r['type'] == 'section' and r['failure'] is not None for r in its)
    truths = {
        'sections': (kinds.count('section'), sections or kinds.count('section')),
        'sensors': (kinds.count('sensor'), sensors),
        'whole': (its[-1]['complete'], whole),
        'found': (findings, sorted(found) if found is not None and 'report-cut' not in found else
                  findings),
        'accused': ([f for f in findings if f.startswith('sensor-')], [f for f in found or [] if f.startswith('sensor-')]),
        'counts': ((its[-1]['errors'] + its[-1]['warnings'], its[-1]['failed']), (len(findings), failed)),
        'summary': ((summary.returncode, b'\nComplete: ' in summary.stdout, b'%d failed' % failed in summary.stdout),
                    (bool(findings), whole, True)),
        'page': ((marks.count('section'), marks.count('sensor')), (kinds.count('section'), sensors)),
        'page findings': (marks.count('finding'), kinds.count('finding')),
    }
    return [f'{name}: {what}: {got}, not {true}' for what, (got, true) in truths.items() if got != true]


def without_duplicates(pairs):
    if len(dict(pairs)) != len(pairs):
        raise ValueError(f'a key twice: {pairs}')
    return dict(pairs)


def check_line(record):
    """What is wrong with one record, whatever report it is of."""
    kind = record.get('type')
    if kind not in ('section', 'sensor', 'fact', 'state', 'finding', 'report'):
        return f'no type: {record}'
    if error := jsonschema.exceptions.best_match(CHECKS[kind].iter_errors(record)):
        return f'{error.message[:300]} at {error.json_path}'
    for at, part in (kind, record), ('facts', record.get('facts', {})):
        properties = SCHEMA['$defs']['report']['properties']['facts'] if at == 'facts' else SCHEMA['$defs'][at]
        if [key for key in properties['properties'] if key in part] != list(part):
            return f'keys out of order: {list(part)}'
    if len(json.dumps(record, ensure_ascii=False).encode()) >= 64 << 20:
        return 'longer than 64 MiB'
    if kind == 'section':
        strings = (record['title'], record['detail'], record['failure'] or '', record['text'])
        # The one character that is written so in a report is in a fact.
        if record['lossy'] != any(LOST in s for s in strings) and record['title'] != 'VENDOR PROPERTIES':
            return f'lossy is {record["lossy"]}: {record["title"]}'
    if kind == 'sensor':
        if not all(type(time) is int for time in record['times']):
            return 'a time is no integer'
        if len(record['times']) != len(record['values']):
            return f'{len(record["times"])} times, {len(record["values"])} values'
    return None


def check_report(name, says, records, wanted_times):
    sections = [r for r in records if r['type'] == 'section']
    last = records[-1]
    if last['type'] != 'report' or sum(r['type'] == 'report' for r in records) != 1:
        return 'the report is not its last record'
    told = {
        'black_box': last['black_box'], 'lossy': any(s['lossy'] for s in sections),
        'failed': {s['title'] for s in sections if s['failure']}, 'cut': any('cut' in s for s in sections),
        'incomplete': {s['title'] for s in sections if not s['complete']},
        'facts': {key: last['facts'].get(key) for key in says['facts']},
    }
    wrong = [f'{key}: {told[key]}, not {says[key]}' for key in told if told[key] != says[key]]
    if [s['index'] for s in sections] != list(range(last['sections'])):
        wrong.append('indices are not 0, 1, ...')
    if last['failed'] != len([s for s in sections if s['failure']]):
        wrong.append(f'{last["failed"]} failed')
    if last['complete'] != says.get('complete', not says['incomplete']):
        wrong.append(f'complete: {last["complete"]}')
    if any(('cut' in s) != (len(s['text'].encode()) > 62 << 20 and name == 'long') for s in sections):
        wrong.append('cut stands elsewhere')
    if {r['fact']: r['text'] if r['number'] is None else r['number']
            for r in records if r['type'] == 'fact'} != last['facts']:
        wrong.append('other facts in rows than in the report')
    sensors = {kind: [(r['sensor'], r['name'], r['records'] if kind == 'state' else len(r['times']))
                      for r in records if r['type'] == kind] for kind in ('sensor', 'state')}
    if sensors['sensor'] != sensors['state']:
        wrong.append(f'states of other sensors: {sensors}')
    states = ' '.join(r['state'] or '' for r in records if r['type'] == 'state')
    if any(r['says'] != f'{r["name"]} {r["says"].removeprefix(r["name"] + " ")}'
           or r['says'].removeprefix(r['name'] + ' ') not in states
           for r in records if r['type'] == 'finding' and r['name']):
        wrong.append('a finding of a sensor that its state does not tell')
    times = [r['times'] for r in records if r['type'] == 'sensor']
    if wanted_times is not None and times != wanted_times:
        wrong.append(f'times: {times}')
    return '; '.join(wrong)


def convert(folder, names, **options):
    """The records of several reports in one call, by file."""
    call = subprocess.run([BUILD / 'bin/boardreport', 'json', *names], cwd=folder,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False, **options)
    records = {}
    for line in call.stdout.decode().split('\n')[:-1]:  # strict: what is no UTF-8 ends the test
        record = json.loads(line, object_pairs_hook=without_duplicates)
        records.setdefault(record['file'], []).append(record)
    return call, records


def main():
    wrong = []
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        for name, report in REPORTS.items():
            if name != 'wearable':
                report.write(folder / name)
        subprocess.run([HERE / 'device/boot', '--state', BUILD / 'tests/records_test.device', '--build', BUILD,
                        *sys.argv[2:], '--', BUILD / 'bin/boardreport', '-o', folder / 'wearable',
                        '-b', folder / 'bundle'],
                       check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        (folder / 'none').write_text('nothing of the kind\n')
        call, records = convert(folder, [*REPORTS, 'none', 'missing'])
        if (call.returncode, list(records)) != (3, list(REPORTS)):
            wrong.append(f'exit status {call.returncode}, records of {list(records)}')
        for name, its in records.items():
            wrong += [f'{name}: {what}' for what in map(check_line, its) if what]
            report = REPORTS[name]
            what = check_report(name, report.says, its, getattr(report, 'times', None))
            wrong += [f'{name}: {what}'] if what else []
        keys = {name: {r['key'] for r in its} for name, its in records.items()}
        if len(set().union(*keys.values())) != len(REPORTS) or any(len(its) != 1 for its in keys.values()):
            wrong.append(f'not a key a report: {keys}')
        if records['numbers'][0]['key'] != NUMBERS_KEY:
            wrong.append(f'another key than the hash of its bytes: {records["numbers"][0]["key"]}')
        for name in TRUTHS:
            wrong += check_truth(name, folder)
        with open(folder / 'healthy', 'rb') as standard_input:
            call, piped = convert(folder, ['-'], stdin=standard_input)
        if [{**r, 'file': 'healthy'} for r in piped.get('-', [])] != records['healthy']:
            wrong.append('standard input makes other records than the file')
    print(*wrong or [f'{sum(map(len, records.values()))} records'], sep='\n')
    return 1 if wrong else 0


sys.exit(main())

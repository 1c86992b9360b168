#!/usr/bin/python3
"""Holds checks and baselines to what they are for, through `boardreport` alone: checks_test.py BUILD_FOLDER

Every built-in check is seen to hold and not to hold: by its own examples, each a line of a report, and by
tests/data/checks.tsv, whose rows are CHECK, holds or not, and pairs of a section's title and text.
"""
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import tomllib

HERE = pathlib.Path(__file__).resolve().parent.parent
PROGRAM = pathlib.Path(sys.argv[1]).resolve() / 'bin/boardreport'
BUILT_IN = tomllib.loads((HERE / 'reader/findings/checks.toml').read_text())
failures = []


def expect(what, got, wanted):
    if got != wanted:
        failures.append(what)
        print(f'FAILED {what}: {got!r} instead of {wanted!r}')


def run(folder, *arguments, **options):
    return subprocess.run([PROGRAM, *arguments], capture_output=True, cwd=folder, text=True, check=False,
                          env={**os.environ, 'HOME': str(folder)}, **options)


def section(title, text):
    title, _, seconds = title.partition('@')
    return f"------ {title} (/x) ------\n{text}------ {seconds or '0.004'}s was the duration of '{title}' ------\n"


def report(*parts):
    """A whole one with these sections, or this sensor's block."""
    text = 'verbose logging: disabled\n'
    for title, content in zip(parts[::2], parts[1::2]):
        if title == 'SENSOR':
            text += f'------ Sensor Black Box ------\n{content}\n' + '-' * 55 + '\n'
        else:
            text += section(title, content)
    return text + ('' if parts[-2] == 'Modem SSR history' else section('Modem SSR history', ''))


def leaves(condition):
    for key in ('all', 'any'):
        for part in condition.get(key, ()):
            yield from leaves(part)
    yield condition


def findings(folder, *arguments):
    result = run(folder, 'json', *arguments)
    expect(f'status of {arguments}', result.returncode, 0)
    found = {}
    for record in map(json.loads, result.stdout.splitlines()):
        if record['type'] == 'finding':
            found.setdefault(record['file'], []).append(record)
    return found


def built_in_checks(folder):
    cases = []
    for check in BUILT_IN['check']:
        for leaf in leaves(check):
            title = leaf.get('section')
            if title is None or 'matches' not in leaf:
                continue
            title = title if isinstance(title, str) else title[0]
            title = 'Kernel log' if title == '*' else title
            alone = leaf is check or 'any' in check
            cases += [(check['id'], True, report(title, f'before\n{line}\nafter\n'))
                      for line in leaf['example'] if alone]
            cases += [(check['id'], False, report(title, f'{line}\n')) for line in leaf['counterexample']]
    for row in (HERE / 'tests/data/checks.tsv').read_text().splitlines():
        check, holds, *parts = row.split('\t')
        cases.append((check, holds == 'holds', report(*(part.replace('\\n', '\n') for part in parts))))
    for i, (_, _, text) in enumerate(cases):
        (folder / f'{i}.txt').write_text(text)
    found = findings(folder, *(f'{i}.txt' for i in range(len(cases))))
    for i, (check, holds, text) in enumerate(cases):
        ids = [finding['check'] for finding in found.get(f'{i}.txt', ())]
        expect(f'{check} holds of\n{text}', check in ids, holds)
    for holds in (True, False):
        missing = {check['id'] for check in BUILT_IN['check']} - {case[0] for case in cases if case[1] == holds}
        expect(f'checks without a case that {holds}', missing, set())
    expect('checks', len(BUILT_IN['check']) >= 40, True)


FACTS = ('VENDOR PROPERTIES', '[ro.product.model]: [Norvel Tarn]\n[ro.build.type]: [user]\n'
         '[ro.build.fingerprint]: [norvel/tarn/tarn:14/NWB1.261012.002/1:user/x]\n')
BATTERY = ('Power supply property battery', 'POWER_SUPPLY_TEMP=470\nPOWER_SUPPLY_CAPACITY=66\n')
LOG = ('Kernel log', 'x\nfatal error: rf_task.c:211\nfatal error: two\nno fatal error\n')
CHECK = '[[check]]\nid = "own"\nseverity = "error"\nsays = "{battery.level} {count} {1} {report.time}"\n'
LINES = CHECK + 'section = "Kernel log"\nmatches = \'^fatal error: (\\S+)\'\n'
# A file, and what is found by "own", or by the check that the file is about, in a report of the above.
OWN = (
    (LINES, 'own', ['66 2 rf_task.c:211 ?']),
    (LINES + 'at_least = 3\n', 'own', []),
    (LINES + 'build_type = "user"\ndevice = "Norvel Tarn"\n', 'own', ['66 2 rf_task.c:211 ?']),
    (LINES + 'build_type = "userdebug"\n', 'own', []),
    (LINES + 'fixed_since = "NWB1.261012.002"\n', 'own', []),
    (LINES + 'fixed_since = "NWB1.261012.10"\n', 'own', ['66 2 rf_task.c:211 ?']),
    (LINES + 'since_build = "NWB1.261109.004"\n', 'own', []),
    (LINES.replace('Kernel log', '*').replace('{1}', ''), 'own', ['66 2  ?']),
    (LINES.replace('^fatal', '\\A(?i)FATAL'), 'own', ['66 2 rf_task.c:211 ?']),
    (CHECK.replace('{1}', '{0}') + 'fact = "battery.temperature"\nis = 47\n', 'own', ['66 1  ?']),
    (CHECK.replace('{1}', '') + 'fact = "battery.cycles"\nis_not = 3\n', 'own', []),
    (CHECK.replace('{1}', '') + 'section = "BMS"\nabsent = true\n', 'own', ['66 0  ?']),
    (CHECK.replace('{1}', '') + 'section = "Kernel log"\nabsent = true\n', 'own', []),
    (CHECK.replace('{1}', '') + 'section = "TTF"\nfailure = "exit status \\\\d"\n', 'own', ['66 1  ?']),
    (CHECK.replace('{1}', '') + 'section = "TTF"\nfailure = "exit"\n', 'own', []),
    (CHECK.replace('{1}', '') + 'sensor = "Barometer"\nstate = "frozen"\n', 'own', ['66 1  ?']),
    (CHECK.replace('{1}', '') + 'any = [{fact = "battery.level", above = 90}, {all = [{fact = "battery.level", below = 90},'
     ' {section = "Kernel log", matches = "x"}]}]\n', 'own', ['66 1  ?']),
    ('', 'battery-hot', ['The battery is at 47 °C']),
    ('[[check]]\nid = "battery-hot"\nseverity = "none"\n', 'battery-hot', []),
    ('[[check]]\nid = "battery-hot"\nseverity = "note"\nfact = "battery.level"\nbelow = 70\nsays = "Mine"\n',
     'battery-hot', ['Mine']),
    ('', 'section-failed', ['TTF: exit status 4']),
    ('[[check]]\nid = "section-failed"\nseverity = "none"\n', 'section-failed', []),
    ('[[expected]]\nsection = "TTF"\nfailure = "exit status \\\\d"\nwhy = "so"\n', 'section-failed', []),
    ('[[expected]]\nsection = "TTF"\nfailure = "exit status"\nwhy = "so"\n', 'section-failed', ['TTF: exit status 4']),
)
GOOD = LINES + 'example = ["fatal error: x"]\n'
# A file, and of its complaints a line and a part each; what is right in it is in force all the same.
BROKEN = (
    (GOOD + 'example2 = 1\n', 8, 'unknown here'), (GOOD.replace('Kernel log', 'No such'), 5, 'No such'),
    (GOOD.replace('fatal error: x', 'nothing'), 7, "doesn't match"), (GOOD.replace('(\\S', '((\\S'), 6, 'no RE2 pattern'),
    (GOOD.replace('"error"', '"bad"'), 3, 'severity is to be'), (GOOD.replace('{1}', '{2}'), 4, '{2}'),
    (GOOD.replace('{1}', '{battery.nothing}'), 4, 'battery.nothing'), (GOOD.replace('= "own"', '= "an id"'), 1, 'id'),
    (CHECK + 'fact = "battery.lvel"\nabove = 1\n', 5, 'battery.lvel'), (CHECK + 'fact = "battery.health"\nabove = 1\n', 5, 'number'),
    (CHECK + 'above = 1\n', 1, 'no condition'), (CHECK + 'fact = "battery.level"\n', 1, 'is to be said'),
    (CHECK + 'sensor = "Nose"\nstate = "frozen"\n', 5, 'Nose'), (CHECK + 'sensor = "Barometer"\nstate = "ill"\n', 6, 'state'),
    (GOOD + 'counterexample = ["fatal error: y"]\n', 8, 'matches'), (GOOD + 'broken = \n', 8, ''),
    ('[[chek]]\nid = "x"\n', 1, 'chek'), ('[[expected]]\nsection = "TTF"\nfailure = "x"\n', 1, 'why'),
)
OTHER = '\n[[check]]\nid = "other"\nseverity = "note"\nfact = "battery.level"\nabove = 1\nsays = "Other"\n'


def own_checks(folder):
    still = '*** Sensor 10 (Barometer) ***\n' + ''.join(
        f'Time: {10**9 * (i + 1)}, Value: {min(i, 20)}.000000\n' for i in range(40))
    (folder / 'r.txt').write_text(report(*FACTS, 'SENSOR', still, *BATTERY, *LOG, 'TTF', '*** exit status 4\n'))
    for text, check, wanted in OWN:
        (folder / 'own.toml').write_text(text)
        found = findings(folder, '--checks', 'own.toml', 'r.txt')['r.txt']
        says = [finding['says'] for finding in found if finding['check'] == check]
        expect(f'found by\n{text}', says, wanted)
    for text, line, part in BROKEN:
        (folder / 'own.toml').write_text(text + OTHER)
        complaints = run(folder, 'checks', 'own.toml')
        expect(f'status of\n{text}', complaints.returncode, 1)
        named = any(f'own.toml:{line}: ' in told and part in told for told in complaints.stderr.splitlines())
        expect(f'{line}: {part} is said of\n{text}{complaints.stderr}', named, True)
        expect('the rest works', ' Other ' in complaints.stdout + ' ', True)
    (folder / '.config/boardreport/checks.d').mkdir(parents=True)
    (folder / '.config/boardreport/checks.d/mine.toml').write_text(OTHER)
    expect('a file in the folder', [f['check'] for f in findings(folder, 'r.txt')['r.txt'] if f['check'] == 'other'], ['other'])
    expect('a missing file', run(folder, 'summary', '--checks', 'none.toml', 'r.txt').returncode, 3)


def baselines(folder):
    names = []
    for i in range(40):
        names.append(f'b{i}.txt')
        (folder / names[-1]).write_text(report(
            *FACTS, f'USF stat@0.00{i % 9 + 1}', 'queue\n', BATTERY[0], f'POWER_SUPPLY_TEMP={300 + i % 20}\n',
            'TTF', '*** exit status 4\n'))
    run(folder, 'baseline', *names, '-o', 'all.json')
    run(folder, 'baseline', *names[:25], '-o', 'part.json')
    run(folder, 'baseline', 'part.json', *names[25:], '-o', 'merged.json')
    expect('merged', json.loads((folder / 'merged.json').read_text()), json.loads((folder / 'all.json').read_text()))
    (folder / 'odd.txt').write_text(report(*FACTS, 'USF stat@0.900', 'queue\n', BATTERY[0], 'POWER_SUPPLY_TEMP=390\n',
                                           'TTF', '*** exit status 4\n'))
    for name, wanted in (('b3.txt', set()), ('odd.txt', {'USF stat', 'Battery temperature'})):
        found = findings(folder, '--baseline', 'all.json', name).get(name, [])
        unusual = {f['says'].split(' took ')[0].split(' is ')[0] for f in found if f['check'] == 'unusual'}
        expect(f'unusual of {name}', unusual, wanted)
        expect('failures that are usual', [f for f in found if f['check'] == 'section-failed'], [])
    (folder / 'bad.json').write_text('{"format":"boardreport-baseline","version":1,"reports":-1,"sections":[]')
    expect('a bad baseline', run(folder, 'summary', '--baseline', 'bad.json', 'odd.txt').returncode, 3)


for group in (built_in_checks, own_checks, baselines):
    with tempfile.TemporaryDirectory() as temporary:
        group(pathlib.Path(temporary))
expect('the installed file is right', run(HERE, 'checks', 'reader/findings/checks.toml').stderr, '')
sys.exit(len(failures) > 0)

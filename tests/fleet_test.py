#!/usr/bin/python3
"""Holds `./dev fleet` to what doc/fleet.md says of it: ./dev test --fleet

fleet_test.py [FILTER]   from the project's folder, with build/ built. FILTER: checks whose name has it.
"""
import hashlib
import json
import os
import pathlib
import random
import signal
import subprocess
import sys
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.chrome.service import Service

HERE = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(HERE / 'fleet'))
import duckdb  # noqa: E402
import make_reports  # noqa: E402
import page  # noqa: E402
import tables  # noqa: E402

WORK = pathlib.Path(tempfile.mkdtemp(prefix='fleet_test.'))
MODULES = duckdb.install(HERE / 'build/fleet')
QUESTIONS = {path.stem: path.read_text() for path in (HERE / 'fleet').glob('*.sql')}
SWITCHES = ('headless=new no-sandbox disable-gpu disable-quic no-first-run disable-sync '
            'disable-background-networking disable-component-update hide-scrollbars').split()


def rows_of(size, rng, rates):
    """Rows of a fleet as if converted: a report a device, in one of two builds, with findings and slow sections
    drawn by rates, which are a pair of odds by trouble."""
    rows = {table: [] for table in tables.TABLES}
    for number in range(size):
        key, new = hashlib.md5(b'%d' % number).hexdigest(), number % 2
        troubles = [what for what, odds in rates.items() if rng.random() < odds[new]]
        rows['reports'].append({'file': f'{number}.txt', 'serial': f'S{number:05}', 'device': 'M', 'complete': True,
                                'build': ('A1', 'A2')[new], 'sections': 1, 'failed': 0, 'warnings': 0,
                                'errors': len(troubles), 'key': key, 'n': 0})
        for at, what in enumerate(troubles):
            rows['findings'].append({'key': key, 'n': at + 100, 'check': what, 'severity': 'error', 'says': what})
        rows['sections'].append({'key': key, 'n': 1, 'index': 0, 'title': 'T', 'kind': 'file', 'detail': '/x',
                                 'seconds': 9.0 if rng.random() < 0.05 else 0.5, 'complete': True, 'text': ''})
        rows['facts'].append({'key': key, 'n': 2, 'fact': 'level', 'number': rng.randrange(100), 'text': '-'})
        rows['facts'].append({'key': key, 'n': 3, 'fact': 'word', 'text': 'odd' if 'planted' in troubles else 'even'})
    return rows


def engine_of(rows, name):
    folder = WORK / name
    folder.mkdir()
    for table, its in rows.items():
        (folder / f'{table}.ndjson').write_text(''.join(json.dumps(row) + '\n' for row in its))
    engine = duckdb.DuckDb(MODULES, WORK / f'{name}.duckdb')
    engine.load([folder])
    return engine, folder


def fleet(*words, caller=HERE, **options):
    return subprocess.run([HERE / 'fleet/run', *map(str, words)], capture_output=True, text=True, check=False,
                          env={**os.environ, 'FLEET_CALLER': str(caller)}, timeout=500, **options)


def check_risen():
    """What was planted is found, what goes with it as well, and of twenty fleets without anything nothing."""
    noise = {f'noise-{i}': (odds, odds) for i, odds in enumerate((0.01, 0.02, 0.03, 0.05, 0.1, 0.2, 0.5, 0.9) * 3)}
    for seed in range(20):
        engine, _ = engine_of(rows_of(400, random.Random(seed), noise), f'noise-{seed}')
        for name in 'risen', 'goes_with':
            rows = engine.ask(QUESTIONS[name])[1]
            if rows:
                yield f'fleet {seed} has an invented answer to {name}: {rows}'
        engine.close()
    for before, now in (0.01, 0.12), (0.05, 0.2), (0.3, 0.55):
        engine, folder = engine_of(rows_of(400, random.Random(1), {**noise, 'planted': (before, now), 'fallen': (now, before)}),
                                   f'planted-{now}')
        risen = engine.ask(QUESTIONS['risen'])[1]
        if [row[0] for row in risen] != ['planted']:
            yield f'planted {before} to {now}, found {risen}'
        if not any(row[:2] == ['planted', 'word = odd'] for row in engine.ask(QUESTIONS['goes_with'])[1]):
            yield f'planted {before} to {now}: no fact goes with it'
        answers = {name: engine.ask(sql) for name, sql in QUESTIONS.items()}
        engine.load([folder])
        for name, sql in QUESTIONS.items():
            if engine.ask(sql) != answers[name]:
                yield f'{name} has another answer after importing twice'
        engine.close()


def check_own_reports_and_questions():
    """Files, folders and patterns; a report twice, what is no report, an own query, and a bad one."""
    folder = WORK / 'own'
    for name, seed in ('a', 0), ('b', 3):
        (folder / name).mkdir(parents=True)
        make_reports.make_reports(folder / name, 3, seed, options=('--records', '610'))
    (folder / 'b/again.txt').write_bytes((folder / 'a/000001.txt').read_bytes())
    (folder / 'b/none.txt').write_text('nothing of the kind\n')
    (folder / 'mine.sql').write_text('-- How many are there?\nSELECT count(*) AS there, sum(errors + warnings) AS faults FROM reports')
    (folder / 'join.sql').write_text('-- Joined?\nSELECT count(*) AS joined FROM sections JOIN reports USING (key)')
    (folder / 'bad.sql').write_text('-- Bad?\nSELECT nothing FROM nowhere')
    said = fleet('--query', 'mine.sql', '--query', 'join.sql', 'a', 'b/*.txt', '-o', 'own.html', caller=folder)
    lines = said.stdout.splitlines()
    after = {line.split('?')[0]: lines[at + 2].split() for at, line in enumerate(lines[:-2]) if '?' in line and line.endswith('s]')}
    if said.returncode != 0 or after.get('How many are there', [''])[0] != '6' or int(after.get('Joined', ['0'])[0]) < 54:
        yield f'own reports: {said.returncode}, {after}, {said.stderr}'
    if 'none.txt is no board report' not in said.stderr:
        yield f'what is no report is not told: {said.stderr}'
    if not (folder / 'own.html').exists():
        yield 'no page where the caller stands'
    for words, part in ((['--query', 'bad.sql', 'a'], 'refuses bad.sql'), (['nowhere'], 'there is no report nowhere'),
                        (['--query', 'nowhere.sql', 'a'], 'cannot read the question')):
        said = fleet(*words, '-o', 'bad.html', caller=folder)
        if said.returncode != 1 or part not in said.stdout + said.stderr:
            yield f'{words}: {said.returncode}, {said.stderr}'


def check_baseline():
    """The fleet's baseline is the one that boardreport makes of the same reports, to the byte."""
    boardreport = HERE / 'build/bin/boardreport'
    if b'baseline' not in subprocess.run([boardreport, '--help'], capture_output=True, check=False).stdout:
        print('this boardreport makes no baselines')
        return
    folder = WORK / 'usual'
    folder.mkdir()
    make_reports.make_reports(folder, 60, options=('--records', '610', '--size', '2000'))
    said = fleet(folder, '-o', WORK / 'usual.html')
    reports = sorted(folder.glob('*.txt'))
    theirs = subprocess.run([boardreport, 'baseline', *reports, '-o', WORK / 'theirs.json'], capture_output=True, check=False)
    if theirs.returncode != 0 or (WORK / 'theirs.json').read_bytes() != (WORK / 'usual.baseline.json').read_bytes():
        yield f'{theirs.stderr.decode()}, {said.stderr}; see {WORK}'


def check_no_network():
    """A sentence within ten seconds."""
    begin = time.monotonic()
    os.environ['npm_config_registry'] = 'http://192.0.2.1/'  # nobody is there
    try:
        duckdb.install(WORK / 'no-network')
        yield 'DuckDB was installed from nowhere'
    except duckdb.Failed as error:
        if 'npm cannot fetch' not in str(error):
            yield f'it says {error}'
    finally:
        del os.environ['npm_config_registry']
    if time.monotonic() - begin > 10:
        yield f'it took {time.monotonic() - begin:.1f} s'


def check_page():
    """Ten thousand devices open in two seconds; what has risen is marked; tables sort and filter; nothing runs
    or loads that isn't the page's."""
    rows = rows_of(20000, random.Random(3), {'planted': (0.2, 0.4), '</script><img src=x onerror=hacked=1>': (0.3, 0.3)})
    engine, _ = engine_of(rows, 'page')
    answers = {name: engine.ask(sql) for name, sql in QUESTIONS.items()}
    page.write(WORK / 'page.html', engine, QUESTIONS, answers, HERE / 'build/bin/boardreport')
    engine.close()
    options = webdriver.ChromeOptions()
    for switch in SWITCHES:
        options.add_argument('--' + switch)
    options.set_capability('goog:loggingPrefs', {'browser': 'ALL'})
    browser = webdriver.Chrome(options=options, service=Service('/usr/bin/chromedriver'))
    try:
        browser.get('about:blank')
        browser.get(f'file://{WORK}/page.html')
        end = time.monotonic() + 30
        while not browser.execute_script('return !!(window.fleet && window.fleet.ready)'):
            if time.monotonic() > end:
                yield 'the page was not ready within 30 s'
                return
            time.sleep(0.02)
        took = browser.execute_script('return performance.now()')
        print(f'the page of {len(answers["devices"][1])} devices was ready after {took / 1000:.2f} s at most')
        if took > 2000:
            yield f'it took {took} ms'
        risen = [each.get_attribute('data-risen') for each in browser.find_elements(By.CSS_SELECTOR, '[data-risen]')]
        if risen != ['planted']:
            yield f'marked as risen: {risen}'
        head = browser.find_elements(By.CSS_SELECTOR, '[data-answer="devices"] th button')[0]
        cell = '[data-answer="devices"] tbody tr:first-child td'
        head.click()
        first = browser.find_element(By.CSS_SELECTOR, cell).text
        head.click()
        last = browser.find_element(By.CSS_SELECTOR, cell).text
        if not first < last:
            yield f'sorted: {first}, {last}'
        browser.find_element(By.CSS_SELECTOR, '#devices input').send_keys(first)
        if browser.find_element(By.CSS_SELECTOR, cell).text != first:
            yield 'the filter finds nothing'
        saved = browser.execute_script('return csv(["a"], [["=1+1"], ["x,\\"y\\""], [null], [-2]])')
        if saved != 'a\r\n\'=1+1\r\n"x,""y"""\r\n\r\n-2\r\n':
            yield f'saved as {saved!r}'
        if browser.execute_script('return window.hacked') is not None:
            yield 'a finding was run'
        if log := browser.get_log('browser'):
            yield f'the browser complains: {log}'
    finally:
        browser.quit()


def mine_alive():
    """Servers whose files are in this project's build folder."""
    alive = []
    for entry in pathlib.Path('/proc').glob('[0-9]*'):
        try:
            if str(HERE / 'build/fleet/cluster') in os.readlink(entry / 'cwd'):
                alive.append(entry.name)
        except OSError:
            pass
    return alive


def check_cluster():
    """Nothing is lost, double or different while servers are killed; and a signal leaves nothing behind."""
    folder = WORK / 'cluster'
    folder.mkdir()
    make_reports.make_reports(folder, 200, options=('--records', '610', '--size', '2000'))
    said = fleet('--cluster', folder, '-o', WORK / 'cluster.html')
    if said.returncode != 0 or 'lost 0, double 0, answers that differ 0' not in said.stdout:
        yield f'cluster: {said.returncode}, {said.stdout[-1500:]}, {said.stderr}'
    for number in signal.SIGTERM, signal.SIGINT:
        asking = subprocess.Popen([HERE / 'fleet/run', '--cluster', folder, '-o', WORK / 'cluster.html'],
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                                  env={**os.environ, 'PYTHONUNBUFFERED': '1'})
        for line in asking.stdout:
            if 'servers are up' in line:
                break
        asking.send_signal(number)
        asking.communicate(timeout=60)
        if asking.returncode == 0 or mine_alive():
            yield f'after signal {number}: status {asking.returncode}, and these run on: {mine_alive()}'


def main():
    wanted = sys.argv[1] if len(sys.argv) > 1 else ''
    checks = {name: check for name, check in globals().items() if name.startswith('check_') and wanted in name}
    wrong = 0
    for name, check in checks.items():
        found = list(check())
        wrong += len(found)
        print(f'{"failed" if found else "passed"}: {check.__doc__.splitlines()[0]}', *found, sep='\n  ', flush=True)
    return 1 if wrong or not checks else 0


sys.exit(main())

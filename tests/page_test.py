#!/usr/bin/python3
"""Looks at report pages in a headless Chromium, as people do: ./dev test --page

page_test.py [--picture FILE] [FILTER]   from the project's folder, with build/ built. The picture is
the upper part of the healthy wearable's page, as the README shows it. FILTER: pages whose name has it.
"""
import argparse
import io
import pathlib
import re
import subprocess
import sys
import tarfile
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.chrome.service import Service

HERE = pathlib.Path(__file__).resolve().parent.parent
BOARDREPORT = HERE / 'build/bin/boardreport'
AXE = HERE / 'build/npm/node_modules/axe-core/axe.min.js'
AXE_PACKAGE = 'axe-core@4.14.1'
WORK = pathlib.Path(tempfile.mkdtemp(prefix='page_test.'))
SWITCHES = ('headless=new no-sandbox disable-gpu disable-quic no-first-run disable-sync '
            'disable-background-networking disable-component-update hide-scrollbars').split()


# ---- reports -------------------------------------------------------------------------------------

def wearable(name, *boot):
    """The simulated wearable's report, made by the real service."""
    subprocess.run([HERE / 'device/boot', '--state', WORK / 'device', *boot, '--', BOARDREPORT,
                    '-o', WORK / f'{name}.txt', '-b', WORK / f'{name}.tar'],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, cwd=HERE)


def section(title, text, detail='/vendor/bin/x', failure=b''):
    return (b'------ %s (%s) ------\n' % (title, detail.encode()) + text + b'\n' + failure +
            b"------ 0.250s was the duration of '%s' ------\n" % title)


# What must stay text, and what it is to be seen as.
NASTY = [
    (b'</script><script>window.hacked=1</script>', None),
    (b'</pre></details><img src=x onerror="window.hacked=2">', None),
    (b']]><!-- <svg onload=window.hacked=3> --!>', None),
    (b'<style>*{display:none}</style><base href="http://example.invalid/">', None),
    (b'<meta http-equiv=refresh content="0;url=http://example.invalid/">', None),
    (b'<details data-section="FAKE" data-failed="no"><p data-fact="device">', None),
    (b'&lt;b&gt; &amp;#x41; &#0;', None),
    ('line\u2028separator, \u202edirection'.encode(), 'line\u2028separator, \u202edirection'),
    (b'nul\0 escape\x1b[31m cr\r bell\a', '\N{SYMBOL FOR NULL}'.join(['nul', ' escape']) +
     '\N{SYMBOL FOR ESCAPE}[31m cr\N{SYMBOL FOR CARRIAGE RETURN} bell\N{SYMBOL FOR BELL}'),
    (b'no utf-8: \xff\xc3( \xed\xa0\x80', r'no utf-8: \xFF\xC3( \xED\xA0\x80'),
    ('\u00e9\u4e2d\U0001f600'.encode(), None),
    (b'\n\nempty lines first', None),
]
SEEN = [seen if seen is not None else text.decode() for text, seen in NASTY]
NASTY_TITLE = '''"'><img src=x onerror=window.hacked=4> & <b data-section='x'>'''


def hostile(name):
    (WORK / f'{name}.txt').write_bytes(
        b'verbose logging: enabled\n' +
        b''.join(section(b'N%d' % i, text) for i, (text, _) in enumerate(NASTY)) +
        section(NASTY_TITLE.encode(), b'text', failure=b'*** cannot run <b>"x"</b>: why\n') +
        b'------ Sensor Black Box ------\n*** Sensor 1 (</script><b>A) ***\n'
        b'Time: 18446744073709551615, Value: (1.000000, nan, inf)\n'
        b'Time: 5, Value: (2.000000, -inf, 340282346638528859811704183484516925440.000000)\n'
        b'Skipping Sensor 10 (Barometer): <Incomplete buffer>\n' +
        section(b'VENDOR PROPERTIES', b'[ro.product.model]: [<img src=x onerror=window.hacked=5>]') +
        b'------ CUT (/never/ends) ------\nhalf a line')


def big(name):
    """A million records."""
    subprocess.run([HERE / 'fleet/make_report.py', '--records', '1000000', '--fault', 'frozen', '--fault', 'gap',
                    '-o', WORK / f'{name}.txt'], check=True)


def full(name):
    """With more logs than a page takes, and one that is longer than is shown."""
    (WORK / f'{name}.txt').write_bytes(b'verbose logging: disabled\n' + section(b'N', b'text'))
    lines = b''.join(b'11-25 07:30:00.000 D tag: <line> %06d & so on\n' % i for i in range(120_000))
    with tarfile.open(WORK / f'{name}.tar', 'w') as bundle:
        for log in [*(f'./logs/log_{i}.txt' for i in range(1, 31)), './long.txt']:
            member = tarfile.TarInfo(log)
            member.size = len(lines) if log == './long.txt' else 1 << 20
            member.mtime = 1795000000 + 3600 * (log == './logs/log_2.txt')
            bundle.addfile(member, io.BytesIO(lines))


PICTURES = {code: 0x2400 + code for code in range(32) if chr(code) not in '\t\n'} | {127: 0x2421}


def sections_of(path):
    """(title, text) of a whole report without surprises, read another way than the program does."""
    found = []
    whole = re.compile(rb"^------ (.+?) \(.*\) ------\n((?:.*\n)*?)"
                       rb"------ [\d.]+s was the duration of '\1' ------\n", re.M)
    for match in whole.finditer(path.read_bytes()):
        text = re.sub(rb'^\*\*\* .*\n\Z', b'', match[2], flags=re.M).decode(errors='backslashreplace')
        text = re.sub(r'\\x..', lambda byte: byte[0].upper().replace('X', 'x'), text)
        found.append((match[1].decode(), text.translate(PICTURES).rstrip('\n')))
    return found


# ---- the browser ---------------------------------------------------------------------------------

def start_browser():
    options = webdriver.ChromeOptions()
    for switch in SWITCHES:
        options.add_argument('--' + switch)
    options.add_argument(f'--user-data-dir={WORK}/profile')
    options.add_argument('--window-size=1600,1000')
    options.set_capability('goog:loggingPrefs', {'browser': 'ALL', 'performance': 'ALL'})
    options.binary_location = '/usr/bin/chromium'
    return webdriver.Chrome(options=options, service=Service('/usr/bin/chromedriver'))


class Page:
    def __init__(self, browser, name, arguments):
        self.browser, self.name, self.failed, self.passed = browser, name, 0, 0
        self.file = WORK / f'{name}.html'
        self.arguments = arguments

    def open(self):
        started = time.monotonic()
        files = [word if word.startswith('-') else WORK / word for word in self.arguments]
        subprocess.run([BOARDREPORT, 'page', '-o', self.file, *files], check=True)
        self.made = time.monotonic() - started
        self.browser.get('about:blank')
        self.browser.get_log('browser')
        self.browser.get_log('performance')
        started = time.monotonic()
        self.browser.get(f'file://{self.file}')
        self.wait('window.boardreport.ready')
        self.ready = time.monotonic() - started

    def js(self, expression):
        return self.browser.execute_script('return ' + expression)

    def wait(self, expression, seconds=60):
        end = time.monotonic() + seconds
        while not self.js(expression):
            if time.monotonic() > end:
                raise AssertionError(f'never came: {expression}')
            time.sleep(0.02)

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def media(self, **features):
        self.browser.execute_cdp_cmd('Emulation.setEmulatedMedia', {
            'features': [{'name': n.replace('_', '-'), 'value': v} for n, v in features.items()]})

    def width(self, width, height=1000, scale=1):
        self.browser.execute_cdp_cmd('Emulation.setDeviceMetricsOverride', {
            'width': width, 'height': height, 'deviceScaleFactor': scale, 'mobile': False})

    def picture(self, file):
        self.width(1240, 1880, scale=0.55)
        time.sleep(1)  # for what follows a change of size
        self.browser.save_screenshot(str(file))
        self.width(1600)

    def wait_for(self, what, come, seconds=60):
        end = time.monotonic() + seconds
        while not come():
            if time.monotonic() > end:
                raise AssertionError(f'never came: {what}')
            time.sleep(0.02)

    def touch(self, *steps):
        """Fingers at x, from the middle of the first plot down, step by step."""
        self.browser.execute_cdp_cmd('Emulation.setTouchEmulationEnabled', {'enabled': True, 'maxTouchPoints': 2})
        y = self.js("(p => (p.scrollIntoView({block: 'center'}), p.getBoundingClientRect().top + 60))(document.querySelector('.plot'))")
        for i, fingers in enumerate([*steps, []]):
            kind = 'touchEnd' if not fingers else 'touchStart' if i < 2 else 'touchMove'
            self.browser.execute_cdp_cmd('Input.dispatchTouchEvent', {'type': kind, 'touchPoints': [
                {'x': x, 'y': y + dy, 'id': n} for n, (x, dy) in enumerate(fingers)]})
        self.browser.execute_cdp_cmd('Emulation.setTouchEmulationEnabled', {'enabled': False})

    def reopen(self, address):
        self.browser.get('about:blank')
        self.browser.get(address)
        self.wait('window.boardreport.ready')

    def check_access(self, what):
        """Nothing is found that keeps somebody out, light or dark."""
        if not AXE.exists():
            subprocess.run(['npm', 'install', '--silent', '--no-fund', '--no-audit', '--prefix', AXE.parents[2],
                            AXE_PACKAGE], check=True)
        self.browser.set_script_timeout(120)
        for scheme in 'light', 'dark':
            self.media(prefers_color_scheme=scheme)
            self.browser.execute_script(AXE.read_text())
            self.check(f'{what}, {scheme}', self.browser.execute_async_script("""
                const tags = ['wcag2a', 'wcag2aa', 'wcag21a', 'wcag21aa', 'wcag22aa'];
                axe.run(document, {runOnly: tags}).then(found => arguments[0](
                    found.violations.map(v => v.id + ': ' + v.nodes[0].html.slice(0, 200))))"""), [])
        self.media()

    def check(self, what, got, expected=True):
        if got == expected:
            self.passed += 1
        else:
            self.failed += 1
            print(f'{self.name}: {what}: got {got!r}\n    instead of {expected!r}')

    def check_quiet(self):
        """Nothing was complained about, nothing asked of a network."""
        self.check('console', [entry['message'] for entry in self.browser.get_log('browser')], [])
        asked = re.findall(r'"documentURL":"[^"]*".*?"url":"([^"]*)"', ''.join(
            entry['message'] for entry in self.browser.get_log('performance')
            if '"Network.requestWillBeSent"' in entry['message']))
        own = (f'file://{self.file}', 'about:blank')
        self.check('requests', [url for url in asked if url not in own], [])
        self.check('resources', self.js("performance.getEntriesByType('resource').length"), 0)


TITLES = "[...document.querySelectorAll('[data-section]')].map(e => e.dataset.section)"
TEXTS = """[...document.querySelectorAll('[data-section]')].map(e =>
    [...e.querySelectorAll('pre')].map(p => p.textContent).join('').replace(/\\n+$/, ''))"""
SHOWN = "[...document.querySelectorAll('[data-section]')].filter(e => e.checkVisibility()).map(e => e.dataset.section)"
FOUND = "document.querySelector('#found').textContent"
AROUND = "!document.querySelector('#around').hidden"
RANGES = "[...new Set(boardreport.plots.map(plot => plot.xAxisRange().map(Math.round).join()))]"


# ---- what is looked at ---------------------------------------------------------------------------

def look_at_healthy(page):
    sections = sections_of(WORK / 'healthy.txt')
    page.check('titles', page.js(TITLES), [title for title, _ in sections])
    page.check('texts', page.js(TEXTS), [text for _, text in sections])
    page.check('black box', page.js("document.querySelector('[data-black-box]').dataset.failed ?? null"), None)
    for what, expression, expected in [
        ('facts', "document.querySelector('[data-fact=\"battery.level\"]').textContent", '64'),
        ('failed', "document.querySelectorAll('[data-failed]').length", 2),
        ('seconds', "document.querySelectorAll('[data-section]:not([data-seconds])').length", 0),
        ('failures are linked', """[...document.querySelectorAll('#verdict a')].every(a =>
            document.querySelector(a.getAttribute('href')))""", True),
        ('findings', """[...document.querySelectorAll('#verdict [data-finding]')]
            .map(e => e.dataset.finding)""", []),
        ('expected', "document.querySelectorAll('[data-failed][data-expected]').length", 2),
        ('sensors', "[...document.querySelectorAll('[data-sensor]')].map(e => e.dataset.sensor)",
         ['1', '6', '8', '10', '196', '200', '214']),
        ('bars', "document.querySelectorAll('.strip [data-bar]').length", len(sections)),
        ('bundle', "document.querySelector('#bundle').textContent.includes('the archive is whole')", True),
        ('newest first', """[...document.querySelectorAll('.series')].map(e =>
            [...e.querySelectorAll('[data-member]')].map(m => m.dataset.member)).every(names =>
            names.join() === [...names].sort().reverse().join())""", True),
        ('newest said', "[...document.querySelectorAll('.series')].every(e => e.textContent.includes('newest: highest number'))", True),
        ('exact', "document.querySelector('[data-fact=uptime]').textContent.match(/^\\d+$/) !== null", True),
        ('for people', """getComputedStyle(document.querySelector('[data-fact=uptime]'), '::after').content
            .match(/^"\\d+ h( \\d+ min)?"$/) !== null""", True),
        ('axis of the timeline', "document.querySelectorAll('.strip-axis text').length > 4", True),
        ('no path', f"document.documentElement.outerHTML.includes('{WORK}')", False),
    ]:
        page.check(what, page.js(expression), expected)
    # The bundle's texts are whole, and the page is not much more than what it shows.
    with tarfile.open(WORK / 'healthy.tar') as bundle:
        logs = {m.name: bundle.extractfile(m).read() for m in bundle if m.isfile()}
    shown = page.js("Object.fromEntries([...document.querySelectorAll('details[data-member]')].map(e => "
                    "[e.dataset.member, [...e.querySelectorAll('pre')].map(p => p.textContent).join('')]))")
    page.check('logs', page.js("document.querySelectorAll('[data-member]').length"), len(logs))
    page.check('their texts', [n for n, text in logs.items() if b'\0' not in text and shown.get('./' + n.removeprefix('./')) != text.decode()], [])
    page.check('no binaries', [n for n, text in logs.items() if b'\0' in text and './' + n.removeprefix('./') in shown], [])
    page.check_access('access')

    times = re.findall(rb'^Time: (\d+), Value: \(', (WORK / 'healthy.txt').read_bytes(), re.M)
    page.check('records', page.js("""[...document.querySelectorAll('[data-shape=vector]')]
        .reduce((n, e) => n + +e.dataset.records, 0)"""), len(times))
    values = re.findall(rb'^Time: \d+, Value: \((.*?), (.*?), (.*?)\)', (WORK / 'healthy.txt').read_bytes(), re.M)
    drawn = page.js("""[...document.querySelectorAll('[data-shape=vector] script')]
        .map(readRecords).flatMap(r => r.columns.flatMap(c => [...c]))""")
    printed = sorted(float(value) for row in values for value in row)
    page.check('values decoded', max(abs(a - b) for a, b in zip(sorted(drawn), printed, strict=True)) < 1e-4)
    page.check('records decoded', page.js("""[...document.querySelectorAll('[data-shape=vector] script')]
        .map(readRecords).flatMap(r => [...r.times].map(t => String(r.first + BigInt(t)))).sort().join()"""),
        ','.join(sorted(time.decode() for time in times)))

    # A search shows the sections with the word and no others, as it is typed; Enter opens the first.
    search = page.find('input[type=search]')
    search.send_keys('Fingerprint')
    page.check('search', page.js(SHOWN), [t for t, text in sections if 'fingerprint' in (t + text).lower()])
    search.send_keys(Keys.ENTER)
    page.check('search opens', 'fingerprint' in page.js(
        "document.querySelector('[data-section][open] pre').textContent"))
    search.clear()
    search.send_keys('error')
    hits = sum((t + text).lower().count('error') for t, text in sections) + sum(
        (n + text.decode()).lower().count('error') for n, text in logs.items() if b'\0' not in text)
    page.check('hits', page.js(FOUND).split(' in ')[0], f'{hits} hits')
    for what, keys, at in [('next', Keys.ENTER * 2, 2), ('previous', Keys.SHIFT + Keys.ENTER * 2 + Keys.SHIFT, hits)]:
        search.send_keys(keys)
        page.check(what, page.js(FOUND).split(' in ')[0], f'{at} of {hits} hits')
        page.check(f'{what} marked', page.js("[...CSS.highlights.get('current')].join().toLowerCase()"), 'error')
    page.check('snippets', page.js("[...document.querySelectorAll('.snippet mark')].every(e => /^error$/i.test(e.textContent))"))
    search.send_keys('nowhere')
    page.check('no hit', page.js(FOUND), 'No hit for “errornowhere”')
    search.send_keys(Keys.ESCAPE)
    page.find('#failing').click()
    page.check('failures only', page.js(SHOWN), page.js("[...document.querySelectorAll('[data-failed][data-section]')].map(e => e.dataset.section)"))
    page.find('#failing').click()
    page.check('search cleared', len(page.js(SHOWN)), len(sections))

    # By keyboard alone.
    page.js("document.querySelector('[data-section=INTERRUPTS] summary').focus()")
    ActionChains(page.browser).send_keys(Keys.ENTER).perform()
    page.check('opens by keyboard', page.js("document.querySelector('[data-section=INTERRUPTS]').open"))
    page.js("document.querySelector('.strip [data-bar]').focus()")
    ActionChains(page.browser).send_keys(Keys.ARROW_RIGHT).perform()
    page.check('bar tells', page.js("document.querySelector('#bar-told').textContent").split(':')[0],
               sections[1][0])
    page.find('#verdict .expected summary').click()
    page.find('#verdict a').click()
    page.wait("document.querySelector('[data-failed]').open")
    page.find('[data-failed] .copy').click()
    page.wait("/Copied|Selected/.test(document.querySelector('[data-failed] .copy').textContent)")

    # One time axis: buttons, keys and the mouse move all plots.
    before = page.js(RANGES)
    page.check('one axis', len(before), 1)
    plot = page.find('[data-sensor="6"] .plot')
    for what, act in [
        ('button', lambda: page.find('[data-action=in]').click()),
        ('key', lambda: page.find('#plots').send_keys(Keys.ARROW_LEFT)),
        ('drag', lambda: ActionChains(page.browser).move_to_element(plot).click_and_hold()
         .move_by_offset(150, 0).release().perform()),
        ('reset', lambda: page.find('[data-action=reset]').click()),
    ]:
        act()
        page.wait(f"{RANGES}.length === 1 && {RANGES}[0] !== '{before[0]}'")
        page.check(f'{what} moves all', len(page.js(RANGES)), 1)
        before = page.js(RANGES)
    ActionChains(page.browser).move_to_element(plot).perform()
    told = page.js("document.querySelector('[data-sensor=\"6\"] .readout').textContent")
    page.check('cursor tells', bool(re.search(r'\d\d:\d\d:\d\d\d{8,} nsx -?\d+\.\d{6}', told)))

    # From a line to the plots and back, and from the plots to the lines around; an address holds it.
    page.js("document.querySelector('[data-section=BMS] summary').click()")
    page.wait("document.querySelector('[data-section=BMS] a.time')")
    page.js("[...document.querySelectorAll('[data-section=BMS] a.time')].at(-1).click()")
    told = page.js("document.querySelector('#around .origin').textContent")
    seconds = page.js("[...document.querySelectorAll('[data-section=BMS] a.time')].at(-1).textContent")
    page.check('marked', page.js("Math.round(boardreport.view.mark() - 1000 * document.querySelector('main').dataset.boots)"),
               round(1000 * float(seconds)))
    page.check('line in the list', seconds in told and 'BMS' in told)
    page.find('#around .origin a').click()
    page.check('back at the line', page.js("[...CSS.highlights.get('line')].join()").startswith(f'[{seconds}]'))
    page.find('#plots').send_keys(Keys.ESCAPE)
    page.check('closed', page.js(AROUND), False)
    ActionChains(page.browser).move_to_element(plot).click().perform()
    page.check('click opens', page.js(AROUND))
    page.find('[data-action=in]').click()
    page.wait("location.hash.includes('zoom=') && location.hash.includes('mark=')")
    before = page.js(f'[{RANGES}, Math.round(boardreport.view.mark())]')
    page.reopen(page.js('location.href'))
    page.check('address', page.js(f'[{RANGES}, Math.round(boardreport.view.mark())]'), before)
    page.check('no clock', 'they can’t be placed' in page.js(
        "(e => (e.open = true, prepare(e), e.textContent))(document.querySelector('[data-member*=mcu_log_0]'))"))

    # What is shown is saved, and a finger does what a mouse does.
    page.browser.execute_cdp_cmd('Browser.setDownloadBehavior', {'behavior': 'allow', 'downloadPath': str(WORK)})
    page.find('#plots').send_keys('as')
    page.wait("document.querySelector('#pointed').textContent.includes('saved')")
    page.wait_for('a file', (WORK / 'sensors.csv').exists)
    page.check('saved', len((WORK / 'sensors.csv').read_text().splitlines()) - 1,
               page.js("[...document.querySelectorAll('figure script')].reduce((n, e) => n + +e.dataset.records, 0)"))
    page.find('[data-action=reset]').click()
    view = 'boardreport.plots[0].xAxisRange()'
    before = page.js(view)
    page.touch([(600, 0)], [(600, 0), (800, 0)], [(550, 0), (950, 0)])
    page.check('pinch', round((lambda a, b: (b[1] - b[0]) / (a[1] - a[0]))(before, page.js(view)), 2), 0.5)

    light = page.js('getComputedStyle(document.body).backgroundColor')
    page.media(prefers_color_scheme='dark')
    page.check('dark', page.js('getComputedStyle(document.body).backgroundColor') != light)
    page.media()
    page.width(360)
    page.wait('document.documentElement.scrollWidth === 360')
    page.width(1600)


# What a finding rests on is linked to the very line, which is marked.
def look_at_worn_out(page):
    page.check('texts', page.js(TEXTS), [text for _, text in sections_of(WORK / 'worn-out.txt')])
    page.check('worst', page.js("document.querySelector('[data-finding]').dataset.finding"), 'boot-thermal')
    page.check('fact', page.js("""(a => [a.parentNode.className, document.querySelector(a.hash).textContent])(
        document.querySelector('[data-fact="battery.health"] a'))"""), ['bad', 'POWER_SUPPLY_HEALTH=Overheat'])
    page.find('[data-finding=modem-down] a').click()
    page.wait("document.querySelector('[data-section=\"Modem Stat\"]').open")
    page.check('line', page.js("document.querySelector('mark:target').textContent"), 'state=restarting')


def look_at_faulty(page):
    page.check('black box', bool(page.js("document.querySelector('[data-black-box]').dataset.failed")))
    page.check('linked', page.js("[...document.querySelectorAll('#verdict a')].some(a => a.hash === '#sensors')"))


def look_at_comparison(page):
    page.check('titles', page.js(TITLES), [title for title, _ in sections_of(WORK / 'healthy.txt')])
    for what, expression, expected in [
        ('facts', "[...document.querySelectorAll('[data-fact=\"build.type\"]')].map(e => e.dataset.report + e.textContent)",
         ['0userdebug', '1userdebug', '2user']),
        ('strips', "document.querySelectorAll('.strip').length", 3),
        ('differs', "'differs' in document.querySelector('[data-section=\"VENDOR PROPERTIES\"]').dataset", True),
        ('same', "'differs' in document.querySelector('[data-section=\"Extcon states\"]').dataset", False),
        ('lines', """[...document.querySelectorAll('[data-section="VENDOR PROPERTIES"] ins')]
            .some(e => e.textContent === '+ [ro.build.type]: [user]\\n')""", True),
        ('black box', "document.querySelector('[data-black-box]').dataset.failed.startsWith('[1]: ')", True),
        ('plots are whole', "[...document.querySelectorAll('.plot')].every(e => e.scrollHeight <= e.clientHeight)", True),
        ('overlaid', "document.querySelectorAll('[data-sensor=\"1\"] script').length", 2),
        ('odd one out', "[...document.querySelectorAll('[data-fact=\"build.type\"]')].map(e => 'odd' in e.dataset)", [False, False, True]),
        ('axes', "document.querySelectorAll('.strip-axis').length", 3),
        ('colours', """new Set([...Array(12).keys()].map(i =>
            getComputedStyle(document.documentElement).getPropertyValue(`--line-${i + 1}`))).size""", 12),
        ('counts from', "document.querySelector('#legend').textContent.includes('from each report’s newest record')", True),
    ]:
        page.check(what, page.js(expression), expected)
    page.check_access('access')
    page.js("document.querySelector('[data-action=logs]').click()")
    page.check('whose lines', page.js("(e => e.length > 0 && e.every(e => /^\\[[012]\\] /.test(e.textContent)))([...document.querySelectorAll('#around .from')])"))
    page.js('boardreport.leaveMark()')
    height = page.js("document.querySelector('figure').offsetHeight")
    ActionChains(page.browser).move_to_element(page.find('.plot')).perform()
    page.check('nothing moves', page.js("document.querySelector('figure').offsetHeight"), height)
    page.find('#reports button').click()
    columns = "[...document.querySelectorAll('[data-fact=\"build.type\"]')].map(e => e.checkVisibility())"
    page.check('hidden', page.js(columns), [False, True, True])
    page.wait("location.hash === '#?hide=0'")
    page.reopen(page.js('location.href'))
    page.check('hidden by address', page.js(columns), [False, True, True])


def look_at_hostile(page):
    page.check('titles', page.js(TITLES), [f'N{i}' for i in range(len(NASTY))] + [NASTY_TITLE, 'VENDOR PROPERTIES', 'CUT'])
    page.check('texts', page.js(TEXTS)[:len(NASTY)], SEEN)
    for what, expression, expected in [
        ('direction', "document.querySelectorAll('i[data-code=\"202E\"]').length", 1),
        ('hacked', 'window.hacked ?? null', None),
        ('elements', "document.querySelectorAll('img, base, meta[http-equiv=refresh], pre script, svg[onload]').length", 0),
        ('styles', 'document.styleSheets.length', 2),
        ('facts', "[...document.querySelectorAll('[data-fact=device]')].map(e => e.textContent)", ['<img src=x onerror=window.hacked=5>']),
        ('failure', "document.querySelector('[data-section][data-failed]').dataset.failed", 'cannot run <b>"x"</b>: why'),
        ('not finished', "document.querySelector('[data-section=CUT]').dataset.failed", 'not finished'),
        ('times', "[...readRecords(document.querySelector('figure script')).times]", [-2**64, 0]),
        ('policy', "document.querySelector('meta[http-equiv]').content.startsWith(\"default-src 'none'; script-src 'sha256-\")", True),
    ]:
        page.check(what, page.js(expression), expected)
    page.width(360)
    page.wait('document.documentElement.scrollWidth === 360')
    page.width(1600)


def look_at_full(page):
    page.check('below 20 MiB', page.file.stat().st_size < 20 << 20)
    for what, expression, expected in [
        ('beginning and end', """(text => [text.includes('> 000000 &'), text.includes('> 060000 &'), text.includes('> 119999 &')])(
            document.querySelector('[data-member="./long.txt"]').textContent)""", [True, False, True]),
        ('newest first', "[...document.querySelectorAll('details[data-member]')].slice(1, 3).map(e => e.dataset.member)",
         ['./logs/log_30.txt', './logs/log_29.txt']),
        ('not all', "document.querySelectorAll('div[data-member]').length > 10", True),
        ('newest by time', "document.querySelector('[data-member=\"./logs/log_2.txt\"]').textContent.includes('newest: latest time')", True),
        ('said', "document.querySelector('#bundle > .left-out').textContent.includes('--bundle-size')", True),
    ]:
        page.check(what, page.js(expression), expected)


def look_at_big(page):
    print(f'big: made in {page.made:.2f} s, {page.file.stat().st_size / 2**20:.1f} MiB, ready in {page.ready:.2f} s')
    page.check('records', page.js("[...document.querySelectorAll('[data-sensor]')].reduce((n, e) => n + +e.dataset.records, 0) > 990000"))
    page.check('drawn', page.js("[...document.querySelectorAll('.go')].slice(0, 2).map(e => e.textContent)"),
               ['Logs when it froze', 'Logs when the longest gap began'])
    for trouble in 'froze at 2026-11-25 ', 'a gap of ':
        page.check(trouble, page.js(f"[...document.querySelectorAll('figcaption .trouble')].some(e => e.textContent.includes('{trouble}'))"))
    page.check('few rows', page.js('Math.max(...boardreport.plots.map(plot => plot.numRows())) < 4000'))
    page.find('[data-action=in]').click()
    page.check('still few', page.js('Math.max(...boardreport.plots.map(plot => plot.numRows())) < 4000'))
    page.find('input[type=search]').send_keys('WAKEUPS_total')
    page.check('search', page.js(SHOWN), ['TEV Metrics'])


PAGES = [
    # name, how its report is made, what its page is of, what is looked at
    ('healthy', wearable, ['healthy.txt', '-b', 'healthy.tar'], look_at_healthy),
    ('faulty', lambda name: wearable(name, '--set', 'vendor.sim.contexthubd.args=--absent'), ['faulty.txt'], look_at_faulty),
    ('worn-out', lambda name: wearable(name, '--set', 'vendor.sim.state=worn-out'), ['worn-out.txt'], look_at_worn_out),
    ('user', lambda name: wearable(name, '--set', 'ro.build.type=user'), ['user.txt'], None),
    ('comparison', None, ['healthy.txt', 'faulty.txt', 'user.txt'], look_at_comparison),
    ('hostile', hostile, ['hostile.txt'], look_at_hostile),
    ('full', full, ['full.txt', '-b', 'full.tar'], look_at_full),
    ('big', big, ['big.txt'], look_at_big),
]


def main():
    arguments = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    arguments.add_argument('--picture', type=pathlib.Path, help='PNG file of the healthy page')
    arguments.add_argument('filter', nargs='?', default='')
    chosen = arguments.parse_args()
    passed = failed = 0
    browser = start_browser()
    try:
        for name, make, of, look in PAGES:
            if make and (chosen.filter in name or chosen.filter == 'comparison' and make != big):
                make(name)
            if chosen.filter not in name or not look:
                continue
            page = Page(browser, name, of)
            try:
                page.open()
                if chosen.picture and name == 'healthy':
                    page.picture(chosen.picture)
                look(page)
            except Exception as stopped:  # the other pages are looked at all the same
                page.check('to the end', str(stopped).split('\n')[0], '')
            page.check_quiet()
            passed, failed = passed + page.passed, failed + page.failed
    finally:
        browser.quit()
        subprocess.run(['rm', '-rf', WORK], check=True)
    print(f'{passed} passed, {failed} failed')
    return failed > 0 or passed == 0


if __name__ == '__main__':
    sys.exit(main())

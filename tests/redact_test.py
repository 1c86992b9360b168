#!/usr/bin/python3
"""Plants identifiers in all notations and places among lines that only look like them: none may be
left, nothing else may change, and undoing it has to give the original back, all to the byte.

redact_test.py BUILD_FOLDER LINES, of which so many only look like them
"""
import gzip
import io
import json
import lzma
import os
import pathlib
import random
import subprocess
import sys
import tarfile
import tempfile

BOARDREPORT = pathlib.Path(sys.argv[1]) / 'bin/boardreport'
random.seed(20261125)


def run(*arguments, status=0, **more):
    done = subprocess.run([BOARDREPORT, 'redact', *arguments], capture_output=True, check=False, **more)
    if done.returncode != status:
        sys.exit(f'redact {arguments}: status {done.returncode}, not {status}\n'
                 f'{done.stdout.decode()}{done.stderr.decode()}')
    return done


def require(holds, what):
    if not holds:
        sys.exit(f'not so: {what}')


def check_digit(number):
    doubled = [int(digit) * (1 + (i % 2 == 0)) for i, digit in enumerate(reversed(number))]
    return str(-sum(d - 9 if d > 9 else d for d in doubled) % 10)


def digits(count):
    return ''.join(random.choice('0123456789') for _ in range(count))


def mac():
    return '3c:' + ':'.join(f'{random.randrange(1, 256):02x}' for _ in range(5))


def imei():
    body = '35' + digits(12)
    return body + check_digit(body)


def iccid():
    body = '8949' + digits(14)
    return body + check_digit(body)


def escaped(how):
    return lambda c: how % ord(c) if isinstance(how, str) else how(c)


# How a character is written.
CODES = {
    'plain': lambda c: c,
    'percent': escaped('%%%02X'), 'hex': escaped('\\x%02x'), 'json': escaped('\\u%04x'),
    'octal': escaped('\\%03o'), 'xml': escaped('&#%d;'), 'xmlhex': escaped('&#x%x;'),
    'twice': escaped('%%25%02x'),
    'utf16le': lambda c: c + '\0', 'utf16be': lambda c: '\0' + c,
}


def backwards(address):
    return ':'.join(reversed(address.split(':')))


# How the form of a value may differ, by kind.
SHAPES = {
    'mac': [str, str.upper, backwards, lambda m: m.replace(':', '-'), lambda m: m.replace(':', ''),
            lambda m: m.replace(':', ' '), lambda m: m.replace(':', '').upper(),
            lambda m: backwards(m).replace(':', ''),
            lambda m: '.'.join(m.replace(':', '')[i:i + 4] for i in (0, 4, 8))],
    'serial': [str, str.lower, str.upper, lambda s: f'{s[:3]}-{s[3:]}'],
    'imei': [str, lambda i: f'{i[:2]}-{i[2:8]}-{i[8:14]}-{i[14]}'],
    'iccid': [str, lambda i: ' '.join(i[j:j + 4] for j in range(0, 20, 4))],
    'phone': [str, lambda p: f'{p[:3]} {p[3:6]} {p[6:]}', lambda p: p[1:]],
    'email': [str, str.upper],
}
# How a line names it that nothing else tells of.
NAMED = {'mac': 'wlan0: link %s up', 'serial': '[ro.boot.serialno]: [%s]', 'imei': 'modem %s registered',
         'iccid': 'sim %s ready', 'phone': 'call from %s ended', 'email': 'account <%s> synced',
         'ipv4': 'route via %s dev wlan0', 'ipv6': 'inet6 %s scope global', 'imsi': 'IMSI: %s',
         'ssid': 'SSID: "%s", x', 'location': 'latitude=%s;', 'account': 'userName=%s,',
         'path-user': 'open /home/%s/log'}
MAKE = {'mac': mac, 'imei': imei, 'iccid': iccid,
        'serial': lambda: random.choice('ABCXYZ') * 2 + 'W' + digits(9),
        'phone': lambda: '+49' + '17' + digits(8),
        'email': lambda: f'anna.{digits(4)}@mail.example.com',
        'ipv4': lambda: f'10.{random.randrange(1, 255)}.{random.randrange(1, 255)}.{random.randrange(1, 255)}',
        'ipv6': lambda: f'2a02:8{digits(2)}:{digits(3)}::{random.randrange(1, 65535):x}',
        'imsi': lambda: '26201' + digits(10), 'ssid': lambda: 'Nordstern ' + digits(3),
        'location': lambda: f'{random.randrange(10, 80)}.{digits(5)}1',
        'account': lambda: 'meier' + digits(3), 'path-user': lambda: 'ameier' + digits(2)}
# Looked for by their names alone, or by one form that has no other.
PLACES_ONLY = {'location', 'ssid', 'account', 'path-user', 'ipv4', 'ipv6', 'imsi'}


def canonical(value):
    return ''.join(c for c in value.lower() if c.isalnum())


class Planted:
    def __init__(self, kind, value, shape=str, code='plain'):
        self.kind, self.value, self.shape, self.code = kind, value, shape, code

    def before(self):
        return ''.join(map(CODES[self.code], self.shape(self.value))).encode('latin-1')

    def after(self, stand_ins):
        stand_in, code = stand_ins[canonical(self.value)], CODES[self.code]
        text = self.shape(self.value)
        wide = self.code.startswith('utf16')
        if self.kind == 'mac':
            stand_in = self.shape(stand_in)
            if any('A' <= c <= 'F' for c in text):
                stand_in = stand_in.upper()
            else:
                stand_in = stand_in.lower()
        return ''.join(code(c) if wide or not c.isalnum() and c in text else c
                       for c in stand_in).encode('latin-1')


def look_alike():
    r = random.randrange
    return random.choice((
        lambda: f'0x{r(256):02x}: ' + ' '.join(f'{r(256):02x}' for _ in range(16)),
        lambda: f'{r(1 << 32):08x}: {r(1 << 16):04x} {r(1 << 16):04x} {r(1 << 16):04x} {r(1 << 16):04x}',
        lambda: ':'.join(f'{r(256):02x}' for _ in range(random.choice((3, 4, 5, 7, 8, 16)))),
        lambda: f'firmware version {r(9)}.{r(99)}.{r(99)}.{r(255)}',
        lambda: f'libfoo-{r(9)}.{r(9)}.{r(9)}.{r(99)} v{r(9)}.{r(9)}.{r(9)}.{r(9)} agent/{r(9)}.{r(9)}.{r(9)}.1',
        lambda: f'2026-{r(1, 13):02}-{r(1, 29):02} {r(24):02}:{r(60):02}:{r(60):02}.{r(1000):03}',
        lambda: f'log_26-{r(1, 13):02}-{r(1, 29):02}-{r(24):02}-{r(60):02}-{r(60):02}.bin',
        lambda: f'[{r(100000):9}.{r(1000000):06}] cpu0 irq {r(1 << 16):04x}: nobody cared',
        lambda: f'modem {imei()[:-1]}' + 'x',
        lambda: f'counter {wrong(imei)} {wrong(iccid)}',
        lambda: f'monotonic ts={imei()} elapsed: {imei()} ns {imei()} ns 0.{imei()}',
        lambda: f'sha {random.getrandbits(160):040x} {random.getrandbits(256):064x}',
        lambda: f'uuid {random.getrandbits(32):08x}-{r(65536):04x}-{r(65536):04x}-{r(65536):04x}-{random.getrandbits(48):012x}',
        lambda: f'std::map dead::beef a::b {r(24):02}:{r(60):02}:{r(60):02}',
        lambda: f'power@1.{r(9)}-service.pixel sdhci@{r(1 << 28):x}.bus x@{r(9)} user@{r(1000)}.service',
        lambda: f'lat={r(99)}.{r(9999):04} ms offset +{digits(10)} ns, +{digits(6)}',
        lambda: f'mask 255.255.255.0 lo 127.0.0.1 any 0.0.0.0 {r(300, 999)}.1.1.1 1.2.3.{r(9)}.4',
        lambda: f'serial: ttyMSM0 serial={r(99999)} login: failed account: {r(9)} /home/ {r(100)} % 50%',
        lambda: f'"C:\\\\n\\\\t{r(99)}" 100%zz &amp &lt;{r(9)}; a=%d \\q',
    ))().encode()


def wrong(make):
    number = make()
    return number[:-1] + str((int(number[-1]) + 1 + random.randrange(8)) % 10)


def line(pattern, planted):
    begin, end = pattern.encode().split(b'%s')
    return [begin, planted, end + b'\n']


def pieces(values, count):
    """A text of look-alikes, with every value where it is named and then in all its notations."""
    lines = [[look_alike() + b'\n'] for _ in range(count)]
    planted = 0
    for kind, known in values.items():
        for value in known:
            lines.insert(random.randrange(len(lines)), line(NAMED[kind], Planted(kind, value)))
            planted += 1
            for shape in SHAPES.get(kind, []):
                code = random.choice(list(CODES))
                lines.insert(random.randrange(len(lines)),
                             [b'note ', Planted(kind, value, shape, code), b' noted\n'])
                planted += 1
    return [piece for one in lines for piece in one], planted


def before(text):
    return b''.join(p.before() if isinstance(p, Planted) else p for p in text)


def after(text, stand_ins):
    return b''.join(p.after(stand_ins) if isinstance(p, Planted) else p for p in text)


def compare(what, is_now, expected):
    if is_now == expected:
        return
    at = next((i for i, (a, b) in enumerate(zip(is_now, expected)) if a != b), min(len(is_now), len(expected)))
    sys.exit(f'{what} differs at {at}:\n  is  {is_now[max(0, at - 60):at + 60]!r}\n'
             f'  not {expected[max(0, at - 60):at + 60]!r}')


def tar(members, form):
    data = io.BytesIO()
    with tarfile.open(fileobj=data, mode='w', format=form) as archive:
        for number, (name, content, link) in enumerate(members):
            info = tarfile.TarInfo(name)
            info.mtime, info.mode, info.uname = 1794211200 + number, 0o640, 'wearable'
            if link is not None:
                info.type, info.linkname = tarfile.SYMTYPE, link
                archive.addfile(info)
            else:
                info.size = len(content)
                archive.addfile(info, io.BytesIO(content))
    return data.getvalue()


def main(folder, lines):
    values = {kind: [MAKE[kind]() for _ in range(24)] for kind in MAKE}
    header = [b'verbose logging: disabled\n']
    records = [f'Time: {imei()}, Value: ({values["location"][0]}, -0.123456, 1.5)\n'.encode() for _ in range(5000)]
    body, planted = pieces(values, lines)
    report = header + [b'------ Sensor Black Box ------\n*** Sensor 1 (Accelerometer) ***\n'] + records + \
        [b'------ LOG ', Planted('mac', values['mac'][0]), b' (/bin/log -s ', Planted('serial', values['serial'][0]),
         b') ------\n'] + body + [b'------ 0.012s was the duration of \'LOG ', Planted('mac', values['mac'][0]), b"' ------\n"]
    # However it is read in pieces, their ends are within one.
    report += [piece for i in range(lines // 3) for piece in (Planted('mac', values['mac'][i % 24]), b'\n')]
    log, more = pieces({kind: known[:3] for kind, known in values.items()}, 300)
    address, serial = (values[kind][1] for kind in ('mac', 'serial'))
    raw = [b'\x01\x02\0\0', bytes.fromhex(address.replace(':', ''))]
    print(f'{planted + more} planted, and the addresses {lines // 3} times')

    for form in tarfile.USTAR_FORMAT, tarfile.GNU_FORMAT, tarfile.PAX_FORMAT:
        long = 'a' * 90 + '/' + 'b' * (60 if form == tarfile.USTAR_FORMAT else 130) + '/'
        zipped = gzip.compress(before(log), mtime=7)
        inner = tar([('in/' + serial, before(log), None)], form)
        same = gzip.compress(b'nothing in it\n' * 99, mtime=8)
        members = [
            (f'./log/{serial}.txt', before(log), None), ('./plain.txt', b'plain\n', None),
            (f'{long}dev_{address.replace(":", "-")}', b'x' * 512, None), ('./link', None, f'../{serial}/x'),
            ('./a.gz', zipped, None), ('./a.xz', lzma.compress(before(log)), None), ('./same.gz', same, None),
            ('./in.tar.gz', gzip.compress(inner, mtime=9), None), ('./raw', b''.join(raw) + b'\0text' * 40, None),
            ('./secret.zip', b'PK\x03\x04' + os.urandom(700), None), ('./noise', random.randbytes(5000), None),
            ('./empty.gz', gzip.compress(b'', mtime=1), None), ('./last', b'', None)]
        bundle = tar(members, form)
        paths = {name: folder / name for name in ('report', 'bundle.tar', 'map', 'out.txt', 'out.tar')}
        paths['report'].write_bytes(before(report))
        paths['bundle.tar'].write_bytes(bundle)
        done = run(paths['report'], '-b', paths['bundle.tar'], '-o', paths['out.txt'], '-B', paths['out.tar'],
                   '--map', paths['map'])
        require(b'left out: ./secret.zip' in done.stdout and b'left out: ./noise' in done.stdout, 'left out is said')
        require(paths['map'].stat().st_mode & 0o777 == 0o600, 'the map is its owner\'s')
        stand_ins = {canonical(v['value']): v['stand_in'] for v in json.loads(paths['map'].read_text())['values']}
        compare('the report', paths['out.txt'].read_bytes(), after(report, stand_ins))
        with tarfile.open(paths['out.tar']) as archive:
            got = {m.name: (m, archive.extractfile(m).read() if m.isfile() else m.linkname) for m in archive}
        its = stand_ins[canonical(serial)]
        own = stand_ins[canonical(address)]
        expected = [
            (f'./log/{its}.txt', after(log, stand_ins)), ('./plain.txt', b'plain\n'),
            (f'{long}dev_{own.replace(":", "-")}', b'x' * 512), ('./link', f'../{its}/x'),
            ('./a.gz', after(log, stand_ins)), ('./a.xz', after(log, stand_ins)), ('./same.gz', same),
            ('./in.tar.gz', None), ('./raw', raw[0] + bytes.fromhex(own.replace(':', '')) + b'\0text' * 40),
            ('./empty.gz', gzip.compress(b'', mtime=1)), ('./last', b'')]
        kept = [member for member in members if member[0] not in ('./secret.zip', './noise')]
        original_names = dict(zip((name for name, _ in expected), (member[0] for member in kept)))
        require(list(got) == [name for name, _ in expected], f'the members are {list(got)}')
        for (name, content), unpack in zip(expected, [bytes] * 4 + [gzip.decompress, lzma.decompress] + [bytes] * 5):
            its_info, its_content = got[name]
            number = [member[0] for member in kept].index(original_names.get(name, name))
            require((its_info.mode, its_info.uname, its_info.mtime) ==
                    (0o640, 'wearable', 1794211200 + members.index(kept[number])), f'mode and time of {name}')
            if content is not None:
                compare(name, its_content if isinstance(content, str) else unpack(its_content), content)
        with tarfile.open(fileobj=io.BytesIO(gzip.decompress(got['./in.tar.gz'][1]))) as archive:
            require(archive.getnames() == ['in/' + its], 'a name within a packed archive')
        for original, redacted in (before(report), 'out.txt'), (bundle, 'out.tar'):
            compare(f'what was undone of {redacted}', run('--undo', paths['map'], paths[redacted]).stdout, original)
        # Once more with the same map: the same stand-ins.
        first = paths['out.txt'].read_bytes()
        run(paths['report'], '-o', paths['out.txt'], '--map', paths['map'])
        compare('the second time', paths['out.txt'].read_bytes(), first)
        paths['map'].unlink()


with tempfile.TemporaryDirectory() as temporary:
    main(pathlib.Path(temporary), int(sys.argv[2]))

#!/usr/bin/python3
"""Makes a report like the service's, of any size and with any fault: make_report.py --help"""
import argparse
import datetime
import random
import sys

FAULTS = ('failed', 'slow', 'timeout', 'unfinished', 'hot', 'limited', 'modem', 'frozen', 'gap',
          'skipped', 'no-data', 'hostile')
# What else may be odd about one report of a fleet; doc/baseline.md has each.
ODDITIES = ('slow-section', 'slower-section', 'slowest-section', 'missing-section', 'more-cycles', 'warmer',
            'cooler', 'more-current', 'thick-voltage', 'other-health', 'other-status', 'other-boot-reason',
            'other-limit', 'other-modem-state', 'more-restarts', 'less-capacity', 'slower-sensor',
            'faster-sensor')
HOSTILE = (b'</script><script>document.title="obeyed"</script><img src=x onerror=alert(1)> ]]> <!--\n'
           b'\xe2\x80\xa8\xe2\x80\xae \x00\x1b[31m\x80\xff \xed\xa0\x80 data-section="x"\n'
           b"------ 0.001s was the duration of 'nobody' ------\n*** exit status 9\n")


def section(title, text, detail, seconds=0.004, failure=None, end=True):
    command = '/bin/' in detail
    out = b'------ %s (%s) ------\n' % (title.encode(), detail.encode()) + text
    out += b'\n' if command else b''
    out += b'*** %s\n' % failure.encode() if failure else b''
    return out + (b"------ %.3fs was the duration of '%s' ------\n" % (seconds, title.encode())
                  if end else b'')


def sensor(number, name, records, rate, faults, rng, values=3):
    factor = faults.get('rates', {}).get(name, rng.uniform(0.99, 1.01))
    rate, records = rate * factor, int(records * factor)
    if name in faults.get('skipped', ()):
        return b'Skipping Sensor %d (%s): Incomplete buffer\n' % (number, name.encode())
    time, lines, at = faults['start'], [], [rng.uniform(-5, 5) for _ in range(values)]
    frozen = name in faults.get('frozen', ())
    gap = name in faults.get('gap', ())
    for i in range(records):
        time += int(1e9 / rate * rng.uniform(0.99, 1.01)) + (int(60e9 / rate)
                                                             if gap and i == records // 2 else 0)
        if not (frozen and i > records * 2 // 3):
            at = [v + rng.gauss(0, 0.1) for v in at]
        text = ', '.join('%.6f' % v for v in at)
        lines.append('Time: %d, Value: %s\n' % (time, '(%s)' % text if values > 1 else text))
    return b'*** Sensor %d (%s) ***\n' % (number, name.encode()) + ''.join(lines).encode()


def black_box(records, faults, rng):
    out = b'------ Sensor Black Box ------\n'
    if 'no-data' in faults:
        return out
    shares = ((1, 'Accelerometer', 25, 3), (6, 'Gyroscope', 25, 3), (8, 'Magnetometer', 10, 3),
              (10, 'Barometer', 1, 1))
    for number, name, rate, values in shares:
        out += sensor(number, name, records * rate // 61, rate, faults, rng, values)
    for number, name in ((200, 'TiltToWake'), (214, 'RaiseToTalk')):
        out += b'*** Sensor %d (%s) ***\nTime: 52741057606, Value: 1.000000\n' % (number, name.encode())
    return out + (b'*** Sensor 196 (LowLatencyOffBody) ***\n'
                  b'Time: 7075000000, Time On Wrist: 38.110016s\n'
                  b'Total Time On Wrist: 38.110016 seconds\n') + b'-' * 55 + b'\n'


def write(out, args):
    rng = random.Random(args.seed)
    faults = {name: ('Accelerometer',) for name in args.fault}
    has = (set(args.fault) | set(args.odd)).__contains__
    faults['rates'] = {'Magnetometer': 0.85 if has('slower-sensor') else 1.2} if (
        has('slower-sensor') or has('faster-sensor')) else {}
    slow = 3 if has('slowest-section') else 0.6 if has('slower-section') else 0.15 if has('slow-section') else 0

    def took(seconds):  # most alike, some much longer
        return min(seconds * rng.lognormvariate(0, 0.4), 0.09)

    # The records end two seconds before the report is made.
    uptime = max(174, args.records // 61 + 51)
    faults['start'] = (uptime - 2 - args.records // 61) * 10**9 + 130995926
    out.write(b'verbose logging: disabled\n')
    model = args.device.split()[-1].lower()
    build = 'norvel/%s/%s:14/%s/1:userdebug/dev-keys' % (
        model, model, args.build or 'NWB1.%d' % rng.randrange(3))
    large = model != 'tarn'
    reason = 'bootloader,test' if has('other-boot-reason') else rng.choice(
        ('reboot', 'reboot', 'reboot,ota', 'cold,powerkey', 'reboot,userrequested'))
    out.write(section('VENDOR PROPERTIES', (
        '[ro.boot.bootreason]: [%s]\n[ro.build.fingerprint]: [%s]\n'
        '[ro.build.type]: [userdebug]\n[ro.product.model]: [%s]\n'
        '[ro.serialno]: [NVW%06d]\n' % (reason, build, args.device, args.seed)).encode(), '/vendor/bin/getprop',
        took(0.004)))
    out.write(black_box(args.records, faults, rng))
    out.write(section('USF stat', b'queue: depth 3, peak 41, overruns 0\n', '/vendor/bin/usf_stats get -a',
                      took(0.006) + slow, 'exit status 1' if has('failed') else None))
    if not has('missing-section'):
        out.write(section('TEV Metrics', b'wakeups_total: 7930\n', '/vendor/bin/tev GetMetrics',
                          3.0 if has('timeout') else took(0.004),
                          'timed out after 3 s, stopped' if has('timeout') else None))
    boot = datetime.datetime(2026, 11, 25, 7, 29, 7)
    now = boot + datetime.timedelta(seconds=uptime)
    out.write(section('Power Stats Times', now.strftime(
        'Boot: 2026-11-25 07:29:07\nNow: %a %b %d %H:%M:%S UTC %Y\n').encode(), '/vendor/bin/sh -c uptime', took(0.01)))
    level = rng.randrange(5, 100)
    status = 'Charging' if rng.random() < 0.3 and level < 95 else 'Discharging'
    current = int(rng.gauss(250000, 20000) if status == 'Charging' else -rng.lognormvariate(9.8, 0.5))
    voltage = int(3.5e6 + 7.5e3 * level + rng.gauss(0, 15e3)) - 250000 * has('thick-voltage') * (1 if level < 40 else 0)
    voltage += 600000 * has('thick-voltage') * (level >= 40)
    full = rng.gauss(0.95, 0.02) - 0.4 * has('less-capacity')
    out.write(section('Power supply property battery', (
        'POWER_SUPPLY_STATUS=%s\nPOWER_SUPPLY_HEALTH=%s\nPOWER_SUPPLY_CAPACITY=%d\n'
        'POWER_SUPPLY_VOLTAGE_NOW=%d\nPOWER_SUPPLY_CURRENT_NOW=%d\nPOWER_SUPPLY_CHARGE_FULL=%d\n'
        'POWER_SUPPLY_CHARGE_FULL_DESIGN=306000\nPOWER_SUPPLY_CYCLE_COUNT=%d\nPOWER_SUPPLY_TEMP=%d\n' % (
            'Not charging' if has('other-status') else status,
            'Overheat' if has('hot') else 'Unknown' if has('other-health') else 'Good', level, voltage,
            current - 400000 * has('more-current'), full * 306000,
            rng.triangular(5, 150 if large else 300, 40) + 430 * has('more-cycles'),
            min(max(rng.gauss(310 if large else 290, 12), 250), 340) + 200 * has('hot') + 80 * has('warmer')
            - 120 * has('cooler'))).encode(),
        '/sys/class/power_supply/battery/uevent', took(0.001)))
    out.write(section('nvotables', b'CHG_FCC: min, result %s\n' % (
        b'150000 by BD_TEMP' if has('limited') else b'200000 by TTF' if has('other-limit')
        else b'290000 by PROFILE'),
        '/vendor/bin/sh -c cat', 0.250 if has('slow') else took(0.012)))
    if has('hostile'):
        out.write(section('Hostile "<b>&\'', HOSTILE, '/x'))
    line = b'[ %12.6f] some_driver 4a88000.i2c: transfer of %5d bytes in %5d us, status 0x0000\n'
    block = b''.join(line % (i / 7, rng.randrange(4096), rng.randrange(997)) for i in range(12000))
    out.write(section('Kernel log', b'', '/dev/log', end=False))
    for left in range(args.size, 0, -len(block)):
        out.write(block[:left] if left > len(block) else block[:left - 1] + b'\n')
    if not has('unfinished'):
        out.write(b"------ 0.120s was the duration of 'Kernel log' ------\n")
    logs = ''.join('/d/ssr_log%d\n' % i for i in range(2 if has('modem') else rng.randrange(3) + 7 * has('more-restarts')))
    out.write(section('Modem Stat', b'state=%s\n' % (b'limited_service' if has('other-modem-state') else b'online'),
                      '/data/vendor/modem_stat/debug.txt', took(0.001)))
    out.write(section('Modem SSR history', logs.encode(), '/vendor/bin/sh -c ls'))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('--size', type=int, default=100000, help='bytes of its longest section')
    parser.add_argument('--records', type=int, default=7500, help='of all sensors together')
    parser.add_argument('--fault', action='append', default=[], choices=FAULTS,
                        help='several may be given')
    parser.add_argument('--odd', action='append', default=[], choices=ODDITIES,
                        help='what a healthy device has not, in small; several may be given')
    parser.add_argument('--device', default='Norvel Tarn', help='its model')
    parser.add_argument('--build', help='its build, one of three unless given')
    parser.add_argument('--seed', type=int, default=1, help='and serial number; the same gives the same report')
    parser.add_argument('-o', metavar='FILE', help='standard output unless given')
    args = parser.parse_args()
    with open(args.o, 'wb') if args.o else sys.stdout.buffer as out:
        write(out, args)


if __name__ == '__main__':
    main()

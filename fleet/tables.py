"""The tables that questions find, and how a report's records become their rows."""
import json
import pathlib

# Name, what kind of record its rows are made of, and its columns: text, integer, number, flag; with a
# question mark where a report may not say. `n` is the record's place in its report: the key and it name
# a row wherever it comes from.
TABLES = {
    'reports': ('report', 'key text, n integer, file text, serial text, device text, build text, complete flag, '
                'sections integer, failed integer, errors integer, warnings integer, black_box text?'),
    'sections': ('section', 'key text, n integer, index integer, title text, kind text, detail text, seconds number, '
                 'failure text?, expected text?, complete flag, text text'),
    'sensors': ('state', 'key text, n integer, sensor integer, name text, records integer, seconds number?, '
                'rate number?, state text?'),
    'facts': ('fact', 'key text, n integer, fact text, number number?, text text'),
    'findings': ('finding', 'key text, n integer, check text, severity text, says text, hint text?, section text?, '
                 'name text?, index integer?, line integer?, evidence text?'),
    'samples': ('sensor', 'key text, n integer, sensor integer, name text, skipped text?, times times, values values'),
}
TABLE_OF = {kind: table for table, (kind, _) in TABLES.items()}


# What questions rest on besides, each on those before.
VIEWS = [path.read_text() for path in sorted((pathlib.Path(__file__).resolve().parent / 'views').glob('*.sql'))]


def columns(table):
    return [column.rsplit(' ', 1) for column in TABLES[table][1].split(', ')]


def row_of(kind, line, place):
    """A record as a row: with its place, and a report with those facts in columns that all ask for."""
    if kind != 'report':
        return b'%s,"n":%d}\n' % (line.rstrip()[:-1], place)
    record = json.loads(line)
    facts = record.pop('facts')
    parts = facts.get('build', '').split('/')
    build = parts[3] if len(parts) > 3 else parts[0]  # of a fingerprint, what people call the build
    return json.dumps({**record, 'n': place, 'build': build, 'serial': facts.get('serial', ''),
                       'device': facts.get('device', '')}, ensure_ascii=False, separators=(',', ':')).encode() + b'\n'


def split(lines):
    """Of the lines of `boardreport json`, each report's key and its rows, a list for each table. What is no
    report to its end has no record of that type, and is left out."""
    rows, of, place = {}, None, 0
    for line in lines:
        kind = line[9:line.index(b'"', 9)].decode()  # {"type":"section",...
        at = line.index(b'"key":"') + 7  # in no string, where the quotes would have backslashes
        key = line[at:at + 32]
        if key != of:
            rows, of, place = {table: [] for table in TABLES}, key, 0
        rows[TABLE_OF[kind]].append(row_of(kind, line, place))
        place += 1
        if kind == 'report':
            yield key.decode(), rows
            of = None

"""DuckDB, as it comes from npm, with the tables in a file below build/."""
import json
import pathlib
import subprocess

import tables

HERE = pathlib.Path(__file__).resolve().parent
PACKAGE, VERSION = '@duckdb/node-api', '1.5.6-r.1'
TYPES = {'text': 'VARCHAR', 'integer': 'BIGINT', 'number': 'DOUBLE', 'flag': 'BOOLEAN', 'times': 'UBIGINT[]',
         'values': 'DOUBLE[][]'}
# What ClickHouse calls so.
MACROS = ('groupArray(x) AS list(x)', 'groupUniqArray(x) AS list(DISTINCT x)', 'arraySort(x) AS list_sort(x)',
          'arrayJoin(x) AS unnest(x)', "arrayStringConcat(x, y) AS array_to_string(x, y)",
          'toUInt64(x) AS CAST(x AS BIGINT)', 'toInt64(x) AS CAST(x AS BIGINT)',
          'toFloat64(x) AS CAST(x AS DOUBLE)')


class Failed(Exception):
    """What an engine says, or why there is none."""


def install(folder):
    """Makes the package there, within ten seconds where there is no network."""
    modules = folder / 'node_modules'
    try:
        if json.loads((modules / PACKAGE / 'package.json').read_text())['version'] == VERSION:
            return modules
    except (OSError, ValueError):
        pass
    print(f'Installing {PACKAGE}@{VERSION} ... ', end='', flush=True)
    npm = ['npm', '--no-audit', '--no-fund', '--loglevel=error', '--fetch-retries=0']
    try:
        # Whether the registry answers is asked first: an installation itself may take its time.
        subprocess.run([*npm, '--fetch-timeout=5000', 'view', f'{PACKAGE}@{VERSION}', 'version'], check=True,
                       capture_output=True, text=True, timeout=8)
        subprocess.run([*npm, 'install', '--prefix', folder, f'{PACKAGE}@{VERSION}'], check=True,
                       capture_output=True, text=True, timeout=600)
    except subprocess.SubprocessError as error:
        print('failed')
        said = getattr(error, 'stderr', None) or ''
        raise Failed(f'npm cannot fetch {PACKAGE}@{VERSION}; once it is below {modules} no network is needed'
                     + (': ' + said.strip().splitlines()[0] if said.strip() else '')) from None
    print('done')
    return modules


class DuckDb:
    """One session; its file is made anew."""

    name = 'DuckDB'

    def __init__(self, modules, database):
        self.database = database
        database.unlink(missing_ok=True)
        self.node = subprocess.Popen(['setpriv', '--pdeathsig', 'KILL', 'node', HERE / 'duckdb.js', modules,
                                      database], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        for macro in MACROS:
            self.ask(f'CREATE MACRO {macro}')
        for table in tables.TABLES:
            its = ', '.join(f'"{name}" {TYPES[kind.rstrip("?")]}' for name, kind in tables.columns(table))
            self.ask(f'CREATE TABLE {table} ({its})')
        for view in tables.VIEWS:
            self.ask(view)

    def ask(self, sql):
        """The names of the columns, and the rows."""
        self.node.stdin.write(json.dumps({'sql': sql}) + '\n')
        self.node.stdin.flush()
        line = self.node.stdout.readline()
        answer = json.loads(line) if line else {'error': 'DuckDB has ended'}
        if 'error' in answer:
            raise Failed(answer['error'])
        return answer['names'], answer['rows']

    def load(self, folders):
        """Takes in what rows are in the folders, and of a report that is there already nothing. None is to be
        in two of them."""
        for table in reversed(tables.TABLES):  # the reports last, by which the others are known
            its = ', '.join(f"'{name}': '{TYPES[kind.rstrip('?')]}'" for name, kind in tables.columns(table))
            files = ', '.join(f"'{folder}/{table}.ndjson'" for folder in folders)
            self.ask(f"INSERT INTO {table} SELECT * FROM read_json([{files}], columns = {{{its}}}, "
                     "format = 'newline_delimited', maximum_object_size = 134217728) "
                     'WHERE key NOT IN (SELECT key FROM reports)')

    def sizes(self):
        """Bytes on the disk, and the process's peak in memory."""
        self.ask('CHECKPOINT')
        return self.database.stat().st_size, peak(self.node.pid)

    def close(self):
        self.node.stdin.close()
        try:
            self.node.wait(20)
        except subprocess.TimeoutExpired:
            self.node.kill()
            self.node.wait()


def peak(pid):
    """What a process has had in memory at most, in bytes."""
    for line in pathlib.Path(f'/proc/{pid}/status').read_text().splitlines():
        if line.startswith('VmHWM:'):
            return int(line.split()[1]) * 1024
    return 0

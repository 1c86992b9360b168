"""A cluster of ClickHouse on this machine: two shards of two replicas, each a server of its own."""
import collections
import http.client
import json
import os
import pathlib
import shutil
import socket
import string
import subprocess
import threading
import time

import tables
from duckdb import Failed, peak

HERE = pathlib.Path(__file__).resolve().parent / 'cluster'
HOST = '127.0.0.1'
PLACES = [(shard, replica) for shard in (1, 2) for replica in (1, 2)]
ZOOKEEPER = '/usr/share/java/zookeeper.jar'
TYPES = {'text': 'String', 'integer': 'Int64', 'number': 'Float64', 'flag': 'UInt8', 'times': 'Array(UInt64)',
         'values': 'Array(Array(Nullable(Float64)))'}
ALIVE = 'SELECT 1'
START_SECONDS, ASK_SECONDS, SETTLE_SECONDS, LATE_SECONDS = 90, 300, 120, 15


def free_ports(count):
    sockets = [socket.socket() for _ in range(count)]
    try:
        for each in sockets:
            each.bind((HOST, 0))
        return [each.getsockname()[1] for each in sockets]
    finally:
        for each in sockets:
            each.close()


def wait_for(what, seconds, is_so):
    end = time.monotonic() + seconds
    while not is_so():
        if time.monotonic() > end:
            raise Failed(f'{what}: not within {seconds} s')
        time.sleep(0.2)


def type_of(kind):
    plain = TYPES[kind.rstrip('?')]
    return f'Nullable({plain})' if kind.endswith('?') or plain == 'Nullable' else plain


def statements():
    """Of each table: what a server stores, what it shows of it, and the same of all servers."""
    for table in tables.TABLES:
        its = ', '.join(f'`{name}` {type_of(kind)}' for name, kind in tables.columns(table))
        names = ', '.join(f'`{name}`' for name, _ in tables.columns(table))
        yield (f"CREATE TABLE {table}_stored ({its}, arrived Date DEFAULT today()) "
               f"ENGINE = ReplicatedReplacingMergeTree('/fleet/{{shard}}/{table}', '{{replica}}') "
               'PARTITION BY arrived ORDER BY (key, n)')
        # The same row may have come twice, and may not be merged yet.
        yield f'CREATE VIEW {table}_here AS SELECT {names} FROM {table}_stored FINAL'
        yield f"CREATE TABLE {table} ({its}) ENGINE = Distributed(fleet, default, {table}_here)"
        yield (f"CREATE TABLE {table}_in ({its}) "
               f"ENGINE = Distributed(fleet, default, {table}_stored, cityHash64(key))")


class Server:
    """One of ClickHouse's, and what asks it."""

    def __init__(self, folder, place, environment):
        self.folder, self.place, self.environment = folder, place, environment
        self.process = None
        self.most = 0  # bytes in memory, of those that have ended

    @property
    def name(self):
        return 'replica %d of shard %d' % self.place[::-1]

    @property
    def alive(self):
        return self.process is not None and self.process.poll() is None

    def start(self):
        shard, replica = self.place
        (self.folder / 'tmp').mkdir(parents=True, exist_ok=True)
        its = {'DATA': f'{self.folder}/', 'TMP': f'{self.folder}/tmp/', 'LOG': self.folder / 'log',
               'ERRORS': self.folder / 'errors', 'USERS': HERE / 'users.xml', 'SHARD': shard, 'REPLICA': replica,
               'HOST': HOST}
        self.process = subprocess.Popen(
            ['setpriv', '--pdeathsig', 'KILL', 'clickhouse-server', f'--config-file={HERE / "server.xml"}'],
            cwd=self.folder, stdin=subprocess.DEVNULL, start_new_session=True,
            stdout=open(self.folder / 'stdout', 'ab'), stderr=subprocess.STDOUT,
            env={**os.environ, **self.environment, **{f'FLEET_{name}': str(value) for name, value in its.items()}})

    def answers(self):
        if not self.alive:
            raise Failed(f'{self.name} has ended; {self.folder}/errors says why')
        try:
            return self.post(ALIVE, seconds=5) == b'1\n'
        except OSError:
            return False

    def post(self, sql, body=b'', seconds=ASK_SECONDS):
        """The answer's bytes. OSError where nobody is there (any more)."""
        connection = http.client.HTTPConnection(HOST, int(self.environment['FLEET_HTTP']), timeout=seconds)
        try:
            connection.request('POST', '/',
                               sql.encode() + b'\n' + body)
            answer = connection.getresponse()
            text = answer.read()
        except http.client.HTTPException as error:
            raise OSError(str(error)) from None
        finally:
            connection.close()
        # Errors in the middle of an answer come with the status of success.
        if answer.status != 200 or b'DB::Exception' in text[-4000:]:
            raise Failed(text.decode(errors='replace')[:2000].strip())
        return text

    def kill(self):
        """As a power cut would."""
        if self.alive:
            self.most = max(self.most, peak(self.process.pid))
            self.process.kill()
        if self.process is not None:
            self.process.wait()


class Cluster:
    """Servers and a ZooKeeper, which are gone when the with statement ends."""

    name = 'the cluster'

    def __init__(self, folder):
        self.folder = folder
        ports = free_ports(1 + 3 * len(PLACES))
        shared = {'FLEET_ZOOKEEPER_HOST': HOST, 'FLEET_ZOOKEEPER_PORT': str(ports.pop())}
        own = {place: {key: str(ports.pop()) for key in ('FLEET_TCP', 'FLEET_HTTP', 'FLEET_INTERSERVER')}
               for place in PLACES}
        for (shard, replica), its in own.items():
            shared[f'FLEET_HOST_{shard}_{replica}'] = HOST
            shared[f'FLEET_PORT_{shard}_{replica}'] = its['FLEET_TCP']
        self.shared = shared
        self.servers = [Server(folder / '{}-{}'.format(*place), place, {**shared, **own[place]}) for place in PLACES]
        self.zookeeper = None
        self.turn = 0

    def __enter__(self):
        shutil.rmtree(self.folder, ignore_errors=True)
        keeper = self.folder / 'zookeeper'
        keeper.mkdir(parents=True)
        try:
            settings = string.Template((HERE / 'zoo.cfg').read_text())
            (keeper / 'zoo.cfg').write_text(settings.substitute(self.shared, FLEET_DATA=keeper))
            self.zookeeper = subprocess.Popen(
                ['setpriv', '--pdeathsig', 'KILL', 'java', '-Xmx256m', '-cp', ZOOKEEPER,
                 'org.apache.zookeeper.server.quorum.QuorumPeerMain', keeper / 'zoo.cfg'], cwd=keeper,
                stdin=subprocess.DEVNULL, stdout=open(keeper / 'stdout', 'wb'), stderr=subprocess.STDOUT,
                start_new_session=True)
            wait_for('ZooKeeper to serve', START_SECONDS, self.keeper_serves)
            for server in self.servers:
                server.start()
            for server in self.servers:
                wait_for(f'{server.name} to answer', START_SECONDS, server.answers)
                for statement in statements():
                    server.post(statement)
            for server in self.servers:  # once all have the tables, which are looked at
                for view in tables.VIEWS:
                    server.post(view)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for server in self.servers:
            server.kill()
        if self.zookeeper is not None:
            self.zookeeper.kill()
            self.zookeeper.wait()

    def keeper_serves(self):
        if self.zookeeper.poll() is not None:
            raise Failed(f'ZooKeeper has ended; {self.folder}/zookeeper/stdout says why')
        try:
            with socket.create_connection((HOST, int(self.shared['FLEET_ZOOKEEPER_PORT'])), 1) as asking:
                asking.settimeout(5)
                asking.sendall(b'srvr')
                return b'Mode:' in asking.makefile('rb').read()
        except OSError:
            return False

    def living(self):
        return [server for server in self.servers if server.alive]

    def ask(self, sql):
        """Names and rows. Each question goes to the next server, and on to another when one is gone."""
        for _ in range(2 * len(self.servers)):
            living = self.living()
            if not living:
                break
            self.turn += 1
            server = living[self.turn % len(living)]
            try:
                answer = json.loads(server.post(sql.rstrip().rstrip(';') + '\nFORMAT JSONCompact'))
                return [column['name'] for column in answer['meta']], answer['data']
            except OSError:
                continue
            except Failed as error:
                if len(living) == len(self.servers) or not lost_connection(str(error)):
                    raise
        raise Failed('no server of the cluster answers')

    def load(self, folders, during=lambda done: None):
        """Imports split reports: each server takes the next folder until none is left, and of one that is
        gone another takes over. during(N) is called after N folders."""
        queue, lock, done, errors = collections.deque(folders), threading.Lock(), [0], []

        def work(server):
            while not errors:
                with lock:
                    if not queue:
                        return
                    folder = queue.popleft()
                try:
                    load_into(server, folder)
                except (OSError, Failed) as error:
                    with lock:
                        queue.append(folder)
                    if server.alive and not lost_connection(str(error)):
                        errors.append(error)
                    if not server.alive:
                        return
                    time.sleep(0.5)  # a server that others have lost is noticed soon
                    continue
                with lock:
                    done[0] += 1
                    during(done[0])

        for _ in range(3):  # what a server had taken when it went, after the others had ended
            workers = [threading.Thread(target=work, args=(server,)) for server in self.living()]
            for worker in workers:
                worker.start()
            for worker in workers:
                worker.join()
            if errors:
                raise errors[0]
            if not queue:
                return
        raise Failed(f'{len(queue)} parts of the import found no server')

    def mend(self, parts, counts):
        """Sends those parts again of which a report has not arrived as a whole: what a server has confirmed
        and no other had copied is gone with it. Returns how many that were."""
        again = self.missing(parts, counts, LATE_SECONDS)
        self.load(again)
        if again and (late := self.missing(again, counts, LATE_SECONDS)):
            raise Failed(f'{len(late)} parts have not arrived, though they were sent twice')
        return len(again)

    def missing(self, parts, counts, seconds):
        """The parts that are not there after so many seconds, in which servers copy from each other."""
        end = time.monotonic() + seconds
        while True:
            found = self.counts()
            late = [part for part in parts if any(found.get(key) != counts[key] for key in keys_of(part, counts))]
            if not late or time.monotonic() > end:
                return late
            time.sleep(0.5)

    def differences(self, counts):
        """How many rows are not there, and how many are there once too often."""
        found = self.counts()
        pairs = [(its.get(table, 0), found.get(key, {}).get(table, 0))
                 for key, its in {**dict.fromkeys(found, {}), **counts}.items() for table in tables.TABLES]
        return sum(max(0, a - b) for a, b in pairs), sum(max(0, b - a) for a, b in pairs)

    def counts(self):
        """How many rows each report has in each table, as questions see them."""
        counts = collections.defaultdict(dict)
        for table in tables.TABLES:
            for key, count in self.ask(f'SELECT key, count(*) FROM {table} GROUP BY key')[1]:
                counts[key][table] = int(count)
        return dict(counts)

    def settle(self):
        """Waits until each server that lives has what the others have."""
        def behind():
            sql = "SELECT sum(queue_size) + sum(absolute_delay) + sum(is_readonly) FROM system.replicas"
            return [s.name for s in self.living() if int(s.post(sql)) > 0]
        wait_for('the replicas to have copied from each other', SETTLE_SECONDS, lambda: not behind())

    def revive(self, server):
        server.start()
        wait_for(f'{server.name} to answer', START_SECONDS, server.answers)
        self.settle()

    def sizes(self):
        """Bytes on the disks of all servers, and in the memory of all at their peaks."""
        disk = sum(path.stat().st_size for path in self.folder.glob('*-*/data/**/*') if path.is_file())
        return disk, sum(max(s.most, peak(s.process.pid) if s.alive else 0) for s in self.servers)


def lost_connection(sentence):
    """Whether it is what a server says of another that is gone."""
    return any(word in sentence for word in ('Connection refused', 'All connection tries failed', 'Connection reset',
                                             'Attempt to read after eof', 'NETWORK_ERROR', 'Broken pipe',
                                             'Session expired', 'connection loss', 'Timeout'))


def keys_of(part, counts):
    """The reports of a part."""
    with open(part / 'reports.ndjson', 'rb') as rows:
        keys = [json.loads(row)['key'] for row in rows]
    return [key for key in keys if key in counts]


def load_into(server, folder):
    for table in reversed(tables.TABLES):
        rows = (folder / f'{table}.ndjson').read_bytes()
        if rows:
            names = ', '.join(f'`{name}`' for name, _ in tables.columns(table))
            server.post(f'INSERT INTO {table}_in ({names}) FORMAT JSONEachRow', rows)

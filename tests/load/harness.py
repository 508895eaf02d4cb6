"""What the tests of tallow-load share: databases, data, and runs of the program."""

import contextlib
import csv
import io
import os
import pathlib
import random
import re
import shutil
import socket
import sqlite3
import subprocess
import sys
import tempfile
import time

from tallow_tests import BIN, programs
from tallow_tests import LIMIT as PATIENCE
from tallow_tests.programs import CANNOT_START, end_all, wake_wine  # noqa: F401
from tallow_tests.programs import Program as Process
from tallow_tests.waiting import unique, wait_until

csv.field_size_limit(1 << 30)

KILLED = 137


# ---------------------------------------------------------------------------------------- databases


def free_port():
    with contextlib.closing(socket.socket()) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Sqlite:
    """A database in a file."""

    name = "sqlite"

    def __init__(self, folder):
        self.path = pathlib.Path(folder) / (unique("db") + ".sqlite")
        self.connection_string = f"Driver={{SQLite3}};Database={self.path};Timeout=3000"

    def execute(self, *statements):
        with contextlib.closing(sqlite3.connect(self.path, timeout=60)) as connection:
            for statement in statements:
                connection.execute(statement)
            connection.commit()

    def query(self, statement):
        """Rows of texts and Nones."""
        with contextlib.closing(sqlite3.connect(self.path, timeout=60)) as connection:
            return [
                tuple(None if value is None else str(value) for value in row)
                for row in connection.execute(statement)
            ]

    def number_table(self, table):
        """A table that refuses rows whose second column is no number."""
        self.execute(
            f"create table {table} (id integer primary key,"
            f" amount integer check (typeof(amount) = 'integer'), note text)"
        )


class SqliteFile(Sqlite):
    """The same, opened by the program itself."""

    name = "sqlite-file"

    def __init__(self, folder):
        super().__init__(folder)
        self.connection_string = f"sqlite:Z:{self.path}"


class Postgres:
    """A database of a server that the tests have started."""

    name = "postgres"
    creation = ""  # further words of CREATE DATABASE

    def __init__(self, server):
        self.server = server
        self.database = unique("db").replace("-", "_")
        server.psql("postgres", f"create database {self.database} {self.creation}")
        self.connection_string = self.address()

    def address(self, port=None, user=None):
        return (
            "Driver={PostgreSQL Unicode};Server=127.0.0.1;Port="
            f"{port or self.server.port};Database={self.database};Uid={user or self.server.user}"
        )

    def execute(self, *statements):
        self.server.psql(self.database, *statements)

    def query(self, statement):
        text = self.server.psql(
            self.database, rf"copy ({statement}) to stdout (format csv, null '\N')"
        )
        rows = csv.reader(io.StringIO(text, newline=""))
        return [tuple(None if value == r"\N" else value for value in row) for row in rows]

    def number_table(self, table):
        self.execute(f"create table {table} (id integer primary key, amount integer, note text)")


class PostgresByLibpq(Postgres):
    """The same, by PostgreSQL's own client library."""

    name = "libpq"

    def address(self, port=None, user=None, more=""):
        place = f"127.0.0.1:{port or self.server.port}"
        return f"postgresql://{user or self.server.user}@{place}/{self.database}{more}"


class PostgresServer:
    """A server in a scratch folder, on a loopback port, under an unprivileged user."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="tallow-pg-")
        self.user = "postgres"
        self.programs = sorted(pathlib.Path("/usr/lib/postgresql").glob("*/bin"))[-1]
        self.prefix = []
        if os.geteuid() == 0:
            self.prefix = ["runuser", "-u", "postgres", "--"]
            shutil.chown(self.folder, "postgres")
        self.port = free_port()
        data = f"{self.folder}/data"
        # With Debian's settings, the driver would leave a log of each connection in /tmp.
        drivers = pathlib.Path("/etc/odbcinst.ini").read_text(encoding="utf-8")
        pathlib.Path(self.folder, "odbcinst.ini").write_text(drivers.replace("CommLog=1", "CommLog=0"))
        os.environ["ODBCSYSINI"] = self.folder
        self.run("initdb", "-A", "trust", "-U", self.user, "-E", "UTF8", "--locale=C", "-D", data)
        self.start()

    def run(self, program, *arguments):
        subprocess.run(
            [*self.prefix, self.programs / program, *arguments],
            cwd="/",
            check=True,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            timeout=PATIENCE,
        )

    def start(self):
        options = f"-p {self.port} -k {self.folder} -c listen_addresses=127.0.0.1 -c fsync=off"
        control = ["-D", f"{self.folder}/data", "-l", f"{self.folder}/log", "-o", options]
        self.run("pg_ctl", *control, "-w", "start")

    def stop(self, mode):
        self.run("pg_ctl", "-D", f"{self.folder}/data", "-m", mode, "-w", "stop")

    def psql(self, database, *statements):
        commands = [argument for text in statements for argument in ("-c", text)]
        result = subprocess.run(
            ["psql", "-XqAt", "-v", "ON_ERROR_STOP=1", "-h", "127.0.0.1", "-p", str(self.port)]
            + ["-U", self.user, "-d", database, *commands],
            check=True,
            capture_output=True,
            timeout=PATIENCE,
            env=dict(os.environ, PGCLIENTENCODING="UTF8"),
        )
        return result.stdout.decode()

    def close(self):
        try:
            self.stop("immediate")
        finally:
            shutil.rmtree(self.folder, ignore_errors=True)


class Mariadb:
    """A database of a server that the tests have started."""

    name = "mariadb"

    def __init__(self, server):
        self.server = server
        self.database = unique("db").replace("-", "_")
        server.execute("", f"create database {self.database} character set utf8mb4")
        self.connection_string = (
            "Driver={MariaDB Unicode};Server=127.0.0.1;"
            f"Port={server.port};Database={self.database};Uid={server.user}"
        )

    def execute(self, *statements):
        # The table name that most cases use is a reserved word here.
        name = re.compile(r"\b(table|from|into|update|on|exists) rows\b")
        self.server.execute(self.database, *(name.sub(r"\1 `rows`", text) for text in statements))

    def query(self, statement):
        """Rows of texts and Nones."""
        path = pathlib.Path(self.server.folder, unique("rows"))
        self.execute(f"{statement} into outfile '{path}' character set utf8mb4")
        text = path.read_bytes().decode()
        path.unlink()
        return list(self.rows_of(text))

    @staticmethod
    def rows_of(text):
        """The rows of a file that the server has written. A backslash marks characters that do not
        end a field or row."""
        row, field, characters = [], "", iter(text)
        for c in characters:
            if c == "\\":
                c = next(characters)
                field = None if c == "N" else field + ("\0" if c == "0" else c)
            elif c in "\t\n":
                row.append(field)
                field = ""
                if c == "\n":
                    yield tuple(row)
                    row = []
            else:
                field += c

    def number_table(self, table):
        self.execute(f"create table {table} (id int primary key, amount int, note text)")


class MariadbServer:
    """A server in a scratch folder, on a loopback port, under an unprivileged user."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="tallow-maria-")
        self.user = "loader"
        self.account = []
        if os.geteuid() == 0:
            self.account = ["--user=mysql"]
            shutil.chown(self.folder, "mysql")
        self.port = free_port()
        self.socket = f"{self.folder}/socket"
        silence = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
        install = ["mariadb-install-db", "--no-defaults", "--skip-test-db", *self.account]
        install += [f"--datadir={self.folder}/data", "--auth-root-authentication-method=normal"]
        subprocess.run(install, check=True, stdin=subprocess.DEVNULL, timeout=PATIENCE, **silence)
        self.process = None
        self.start()
        rights = "select, insert, update, delete, create, drop, alter, index, trigger"
        self.execute(
            "",
            f"create user {self.user}@'%'",
            f"grant {rights} on *.* to {self.user}@'%'",
        )

    def start(self, *options):
        with open(f"{self.folder}/log", "ab") as log:
            self.process = subprocess.Popen(
                ["/usr/sbin/mariadbd", "--no-defaults", *self.account, f"--socket={self.socket}"]
                + [f"--datadir={self.folder}/data", f"--port={self.port}"]
                + ["--bind-address=127.0.0.1", "--skip-name-resolve", "--innodb-flush-method=nosync"]
                + ["--innodb-buffer-pool-size=32M", "--innodb-flush-log-at-trx-commit=2", *options],
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=log,
            )
        wait_until(self.answers, "the server's first answer")

    def client(self, database):
        return ["mariadb", "--no-defaults", "-u", "root", f"--socket={self.socket}", "-N", database]

    def answers(self):
        if self.process.poll() is not None:
            raise RuntimeError("the server has ended; see its log")
        probe = subprocess.run(
            [*self.client("mysql"), "-e", "select 1"], capture_output=True, check=False
        )
        return probe.returncode == 0

    def kill(self):
        """Ends it at once, with nothing flushed."""
        self.process.kill()
        self.process.wait(PATIENCE)

    def execute(self, database, *statements):
        result = subprocess.run(
            self.client(database or "mysql"),
            input=";\n".join(statements).encode(),
            check=True,
            capture_output=True,
            timeout=PATIENCE,
        )
        return result.stdout.decode()

    def session(self, database):
        """A session that stays open."""
        return MariadbSession(self.client(database))

    def close(self):
        self.kill()
        shutil.rmtree(self.folder, ignore_errors=True)


class MariadbSession:
    """A client that holds its transaction open until the end of the block."""

    def __init__(self, command):
        self.process = subprocess.Popen(
            [*command, "-n"], stdin=subprocess.PIPE, stdout=subprocess.PIPE
        )

    def send(self, statements):
        """Runs statements, the last of which returns one line."""
        self.process.stdin.write(statements.encode() + b"\n")
        self.process.stdin.flush()
        return self.process.stdout.readline()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.wait(PATIENCE)
        self.process.stdout.close()


@contextlib.contextmanager
def silent_server():
    """A port that accepts connections and never answers."""
    with contextlib.closing(socket.socket()) as listener:
        listener.bind(("127.0.0.1", 0))
        listener.listen()
        yield listener.getsockname()[1]


# --------------------------------------------------------------------------------------------- data

VALUES = ["plain", "with, comma", 'a "quote"', "two\nlines", "two\r\nlines", " blanks ", ""]
VALUES += ["\u00e9\u6f22\U0001f600", "x" * 70, "\u00e9" * 50, "'", ";", "\t", "?", "NULL", "long " * 40]


def write_rows(path, count, seed=1, columns=3, start=1, header=True):
    """Writes random rows, numbered in the first column, with every kind of line break."""
    chance = random.Random(seed)
    with open(path, "w", newline="", encoding="utf-8") as file:
        writers = [csv.writer(file, lineterminator=end) for end in ("\r\n", "\n")]
        if header:
            names = ["id", *(f"c{i}" for i in range(1, columns))]
            writers[0].writerow(names)
        for number in range(start, start + count):
            values = [chance.choice(VALUES) for _ in range(columns - 1)]
            chance.choice(writers).writerow([number, *values])
    return path


def read_rows(path, header=True):
    """The rows as the independent parser reads them; an empty field is a null."""
    with open(path, newline="", encoding="utf-8-sig") as file:
        rows = [tuple(value or None for value in row) for row in csv.reader(file)]
    return rows[1:] if header else rows


def table_rows(database, table):
    """The table's rows in the order of their first column, which is a number."""
    return sorted(database.query(f"select * from {table}"), key=lambda row: int(row[0]))


# --------------------------------------------------------------------------------------------- runs


class Outcome(programs.Outcome):
    """How a run of tallow-load ended; its output is text."""

    def __init__(self, process):
        super().__init__(process)
        self.out = self.out.decode("utf-8", "replace")

    @property
    def text(self):
        return self.out

    @property
    def json(self):
        return super().json if self.out.startswith("{") else {}


class Job:
    """One load job: its database, data and options, and runs of it."""

    def __init__(self, folder, database, source, *options, **settings):
        self.folder = pathlib.Path(folder)
        self.database = database
        self.source = source
        self.table = settings.get("table", "rows")
        self.pipe = settings.get("pipe") or rf"\\.\pipe\{unique('load')}"
        self.fallback = self.folder / "fallback"
        self.fallback.mkdir(exist_ok=True)
        block = settings.get("block", 512)
        own = f"Block_size={block} Fallback_Directory=Z:{self.fallback}"
        self.init = settings.get("init", own)
        self.every = settings.get("every", 2)
        self.options = list(options)
        self.to = None  # arguments that name the database, if not --to
        self.variables = {}

    def command(self, *more):
        to = ["--to", self.database.connection_string] if self.to is None else self.to
        return [
            *(BIN / "tallow-load.exe", "--pipe", self.pipe, "--json", "--table", self.table),
            *(*to, "--init", self.init),
            *("--checkpoint-every", self.every, *self.options, *more),
        ]

    def start(self, *more, fault=None):
        if fault is None:
            return Process(*self.command(*more), **self.variables)
        report = self.folder / "calls.txt"
        starter = [BIN / "start_with.exe", f"Z:{BIN}/call_faults.dll"]
        command = self.command(*more)
        command[0] = f"Z:{command[0]}"
        return Process(*starter, *command, TALLOW_FAULT=fault, TALLOW_FAULT_REPORT=str(report))

    def feed(self, source=None):
        command = [BIN / "tallow-feed.exe", "--pipe", self.pipe, "--wait", "60"]
        return Process(*command, "--in", source or self.source)

    def run(self, *more, fault=None, source=None, kill_after=None):
        """Runs the program beside a writer that sends all of the data."""
        feed = self.feed(source)
        load = self.start(*more, fault=fault)
        try:
            end = time.monotonic() + (PATIENCE if kill_after is None else kill_after)
            while load.running() and time.monotonic() < end:
                with contextlib.suppress(subprocess.TimeoutExpired):
                    load.process.wait(min(0.5, end - time.monotonic()))
                if feed.never_began():
                    feed = self.feed(source)
                if load.never_began():
                    load = self.start(*more, fault=fault)
            if kill_after is not None:
                load.kill()
            return Outcome(load)
        finally:
            feed.discard()

    def run_alone(self, *more):
        """Runs the program without a writer."""
        return Outcome(self.start(*more))

    def calls(self):
        """Calls and commits that the last run with the fault "count" has made."""
        return tuple(map(int, (self.folder / "calls.txt").read_text().split()))

    def record(self):
        """Position, rows, rejects and whether the job is done; None without a row."""
        try:
            rows = self.database.query(
                "select block_position, rows_loaded, rows_rejected, job_done from tallow_checkpoint"
                f" where job = '{self.pipe[9:]}'"
            )
        except (sqlite3.OperationalError, subprocess.CalledProcessError):
            return None
        return tuple(map(int, rows[0])) if rows else None

    def fallback_files(self):
        return list(self.fallback.glob(f"*{self.pipe[9:]}*"))

    def state(self):
        """All that a restart can know: the contents of the database and the fallback file."""
        name = self.pipe[9:]  # differs from job to job
        contents = []
        for table in ("tallow_checkpoint", self.table):
            try:
                contents.append(repr(self.database.query(f"select * from {table}")))
            except (sqlite3.OperationalError, subprocess.CalledProcessError):
                contents.append("")
        for file in self.fallback_files():
            contents.append(file.read_bytes().hex().replace(name.encode().hex(), ""))
        return "\n".join(contents).replace(name, "")

    def finish(self, *more):
        """Runs the job to its end, from wherever it is."""
        record = self.record()
        return self.run(*([] if record is None else ["--restart"]), *more)


class SlowFeed:
    """A writer that sends only what and when the test says."""

    def __init__(self, job, *options):
        command = [BIN / "tallow-feed.exe", "--pipe", job.pipe, "--wait", "60", "--in", "-"]
        self.process = Process(*command, *options, stdin=subprocess.PIPE)

    def send(self, data):
        self.process.stdin.write(data)
        self.process.stdin.flush()

    def end(self):
        self.process.stdin.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.discard()

    def discard(self):
        self.process.discard()


def main_arguments():
    """Removes --full from the command line; unittest gets the rest."""
    full = "--full" in sys.argv
    sys.argv = [argument for argument in sys.argv if argument != "--full"]
    return full

#!/usr/bin/env python3
"""tallow-load into PostgreSQL by libpq: COPY. The cases of the ODBC way hold here too."""

import contextlib
import os
import random
import shutil
import socket
import struct
import subprocess
import tempfile
import threading
import unittest
import unittest.mock

import harness
import load_cases
import load_postgres_test
from harness import BIN, read_rows, table_rows
from tallow_tests.reports import main

SECRET = "geheim4711"


class Libpq(load_cases.Cases):
    def database_factory(self):
        return harness.PostgresByLibpq(self.server)

    def rows_job(self, content, *options, **settings):
        """A job that sets bad rows aside."""
        self.rejects = self.folder / "rejects.csv"
        return self.job(self.data("in.csv", content), "--rejects", self.rejects, *options, **settings)

    def reasons(self):
        """Line, state and text of each rejected row."""
        rows = read_rows(str(self.rejects) + ".reasons.csv")
        return [(int(row[0]), row[2], row[3]) for row in rows]


class LibpqLoad(Libpq, load_postgres_test.PostgresLoad):
    """What holds by ODBC."""

    # These are about statements and drivers.
    test_more_values_than_a_statement_holds = None
    test_driver_that_says_a_longer_name_than_it_gives = None
    test_driver_that_is_missing = None


class LibpqCase(Libpq, unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = harness.PostgresServer()
        cls.addClassCleanup(cls.server.close)


for inherited in dir(load_cases.Cases):
    if inherited.startswith("test_"):
        setattr(LibpqCase, inherited, None)


class Values(LibpqCase):
    def quoted(self, value):
        return '"' + value.replace('"', '""') + '"'

    def check_texts(self, values):
        """Loads the texts and reads them back from the server, as hexadecimal digits."""
        self.database.execute("create table rows (id int, v text)")
        lines = [f"{i},{self.quoted(value)}\n" for i, value in enumerate(values)]
        job = self.job(self.data("in.csv", "".join(lines).encode()), block=4096)
        outcome = job.run()
        self.assertEqual(outcome.status, 0, outcome)
        hexadecimal = "select id, encode(convert_to(v, 'UTF8'), 'hex') from rows order by id"
        got = [row[1] for row in self.database.query(hexadecimal)]
        self.assertEqual(got, [value.encode().hex() for value in values])

    def test_every_byte_of_a_value(self):
        characters = [chr(i) for i in range(1, 0x180)] + ["\u6f22", "\U0001f600", "\ufeff"]
        forms = ["{}", "x{}", "{}x", "\\{}", "0123456789abcde{}0123456789abcdef"]
        self.check_texts([form.format(c) for c in characters for form in forms])

    def test_random_values(self):
        seed = random.randrange(1 << 30)
        chance = random.Random(seed)
        pieces = ["\\", "\\N", "\\.", "\t", "\n", "\r", "\r\n", "a", '"', ",", "\u00e9", "\x01", "' "]
        with self.subTest(seed=seed):
            self.check_texts(
                ["".join(chance.choices(pieces, k=chance.randrange(30))) for _ in range(2000)]
            )

    def test_values_of_many_types(self):
        self.database.execute(
            "create table rows (id int, t timestamptz, j jsonb, a int[], u uuid, y bytea, r numrange)"
        )
        content = (
            "1,2026-02-28 10:00:00+00,\"{\"\"a\"\": \"\"b\\\\n\"\"}\",\"{1,2}\","
            "00000000-0000-0000-0000-000000000001,\\x00ff,\"[1,2)\"\n"
            "2,,,,,,\n"
        )
        self.assertEqual(self.job(self.data("in.csv", content.encode())).run().status, 0)
        got = self.database.query(
            "select id, extract(epoch from t)::bigint, j->>'a', a[2], u, y, upper(r) from rows"
        )
        self.assertEqual(
            got,
            [
                ("1", "1772272800", "b\\n", "2", "0" * 8 + "-0000-0000-0000-" + "0" * 11 + "1")
                + ("\\x00ff", "2"),
                ("2", None, None, None, None, None, None),
            ],
        )

    def test_columns_that_the_database_fills_when_they_are_not_named(self):
        self.database.execute(
            "create table rows (id int generated always as identity, v int,"
            " w int generated always as (v * 2) stored)"
        )
        job = self.job(self.data("in.csv", b"5\n\n7\n"), "--columns", "v")
        self.assertEqual(job.run().status, 0)
        self.assertEqual(
            table_rows(self.database, "rows"), [("1", "5", "10"), ("2", None, None), ("3", "7", "14")]
        )


class BadRows(LibpqCase):
    """Rows that the server refuses are set aside within the transaction."""

    def check(self, job, good, bad, rewinds=0):
        """`good` are the first columns of the table, `bad` the lines of the rejects."""
        outcome = job.run()
        self.assertEqual(outcome.status, 0, outcome)
        ids = [int(row[0]) for row in table_rows(self.database, "rows")]
        self.assertEqual(ids, good)
        self.assertEqual([reason[0] for reason in self.reasons()], bad)
        lines = job.source.read_bytes().splitlines(keepends=True)
        self.assertEqual(self.rejects.read_bytes(), b"".join(lines[i - 1] for i in bad))
        self.assertEqual(outcome.json["rejects"], len(bad))
        self.assertEqual(outcome.json["rewinds"], rewinds)
        return outcome

    def numbers(self, count, bad):
        return "".join(f"{i},{'x' if i in bad else i}\n" for i in range(1, count + 1)).encode()

    def check_numbers(self, count, bad, **settings):
        self.database.execute("create table rows (id int primary key, v int)")
        job = self.rows_job(self.numbers(count, bad), "--max-rejects", len(bad), **settings)
        self.check(job, [i for i in range(1, count + 1) if i not in bad], sorted(bad))
        self.assertEqual({reason[1] for reason in self.reasons()}, {"22P02"})

    def test_nothing_is_loaded_twice_for_them(self):
        self.check_numbers(60000, {1, 2, 777, 30000, 30001, 30002, 59999, 60000}, block=65536)

    def test_all_rows_are_bad(self):
        self.check_numbers(3000, set(range(1, 3001)), block=65536)

    def test_every_other_row_is_bad(self):
        self.check_numbers(3000, set(range(1, 3001, 2)), block=65536, every=100)

    def test_their_order_among_rows_that_are_no_rows(self):
        self.database.execute("create table rows (id int, v int)")
        content = b"1,1\n2,x\n3\n4,4\n5,x\n6,6,6\n7,x\n8,8\n"
        self.check(self.rows_job(content, "--max-rejects", 9), [1, 4, 8], [2, 3, 5, 6, 7])

    def test_keys_that_come_twice(self):
        self.database.execute("create table rows (id int primary key, v text)")
        job = self.rows_job(b"1,a\n2,b\n1,c\n3,d\n2,e\n", "--max-rejects", 2)
        self.check(job, [1, 2, 3], [3, 5])
        self.assertEqual({reason[1] for reason in self.reasons()}, {"23505"})
        self.assertIn("(id)=(1) already exists", self.reasons()[0][2])

    def foreign_keys(self, *options):
        """Rows of which 700 and 1900 name a key that is not there. The server names no row."""
        self.database.execute(
            "create table keys (k int primary key)",
            "insert into keys select generate_series(0, 9)",
            "create table rows (id int, k int references keys)",
        )
        content = "".join(f"{i},{99 if i in (700, 1900) else i % 10}\n" for i in range(1, 2501))
        return self.rows_job(content.encode(), *options, block=65536)

    def test_foreign_keys(self):
        job = self.foreign_keys("--max-rejects", 2)
        self.check(job, [i for i in range(1, 2501) if i not in (700, 1900)], [700, 1900])
        self.assertEqual({reason[1] for reason in self.reasons()}, {"23503"})

    def test_foreign_key_that_stops_the_load(self):
        outcome = self.foreign_keys().run()
        self.check_refused(outcome, 4, "line 700 ", "23503")

    def test_trigger_that_refuses_rows(self):
        self.database.execute(
            "create table rows (id int, v int)",
            "create function f() returns trigger language plpgsql as 'begin if new.v = 7 then"
            " raise exception ''COPY rows, line 1'' using errcode = ''22000''; end if;"
            " return new; end'",
            "create trigger t before insert on rows for each row execute function f()",
        )
        job = self.rows_job(b"".join(b"%d,%d\n" % (i, i % 10) for i in range(1, 31)), "--max-rejects", 3)
        self.check(job, [i for i in range(1, 31) if i % 10 != 7], [7, 17, 27])

    def test_values_that_look_like_the_servers_words(self):
        self.database.execute("create table rows (id int, v int)")
        content = b'1,1\n2,2\n3,"COPY rows, line 1"\n4,4\n5,"x\nCOPY rows, line 2"\n'
        self.rejects = self.folder / "rejects.csv"
        source = self.data("in.csv", content)
        job = self.job(source, "--rejects", self.rejects, "--max-rejects", 2)
        outcome = job.run()
        self.assertEqual(outcome.status, 0, outcome)
        self.assertEqual([row[0] for row in table_rows(self.database, "rows")], ["1", "2", "4"])
        self.assertEqual([reason[0] for reason in self.reasons()], [3, 5])

    def test_value_that_looks_like_the_servers_words_and_stops_the_load(self):
        self.database.execute("create table rows (id int, v int)")
        job = self.job(self.data("in.csv", b'1,1\n2,2\n3,"x\nCOPY rows, line 2"\n4,4\n'))
        outcome = job.run()
        self.assertEqual(outcome.status, 4, outcome)
        self.assertIn("line 3 ", outcome.err)

    def test_too_many(self):
        self.database.execute("create table rows (id int, v int)")
        job = self.rows_job(b"1,x\n2,2\n3,x\n4,4\n")
        self.check_refused(job.run("--max-rejects", "1"), 4, "line 3 ", "22P02", "3,x")
        self.assertEqual(table_rows(self.database, "rows"), [])
        outcome = job.run("--restart", "--max-rejects", "2")
        self.assertEqual((outcome.status, outcome.json["rows"]), (0, 2), outcome)
        self.assertEqual(self.rejects.read_bytes(), b"1,x\n3,x\n")

    def test_partitions(self):
        self.database.execute(
            "create table rows (id int, v int) partition by range (id)",
            "create table low partition of rows for values from (0) to (10)",
            "create table high partition of rows for values from (20) to (30)",
        )
        job = self.rows_job(b"1,1\n21,1\n15,1\n2,x\n22,2\n", "--max-rejects", 2)
        self.check(job, [1, 21, 22], [3, 4])

    def test_characters_that_the_database_lacks(self):
        class Latin(harness.PostgresByLibpq):
            creation = "encoding LATIN1 locale 'C' template template0"

        self.database = Latin(self.server)
        self.database.execute("create table rows (id int, v text)")
        values = ["\u00e9"] * 1000
        values[699] = "\u6f22"
        content = "".join(f"{i},{value}\n" for i, value in enumerate(values, 1))
        job = self.rows_job(content.encode(), "--max-rejects", 1, block=65536)
        self.check(job, [i for i in range(1, 1001) if i != 700], [700])
        self.assertEqual(self.database.query("select v from rows where id = 1"), [("\u00e9",)])
        self.database = Latin(self.server)
        self.database.execute("create table rows (id int, v text)")
        outcome = self.job(self.data("in.csv", content.encode()), block=65536).run()
        self.check_refused(outcome, 4, "line 700 ")

    def test_server_that_speaks_german(self):
        with contextlib.ExitStack() as stack:
            locales = tempfile.mkdtemp(prefix="tallow-locale-")
            stack.callback(shutil.rmtree, locales)
            os.chmod(locales, 0o755)
            command = ["localedef", "-i", "de_DE", "-f", "UTF-8", f"{locales}/de_DE.UTF-8"]
            subprocess.run(command, check=True, capture_output=True)
            stack.enter_context(unittest.mock.patch.dict(os.environ, LOCPATH=locales))
            server = harness.PostgresServer()
            stack.callback(server.close)
            server.psql("postgres", "alter system set lc_messages = 'de_DE.UTF-8'")
            server.psql("postgres", "select pg_reload_conf()")
            self.database = harness.PostgresByLibpq(server)
            self.database.execute("create table rows (id int, v int)")
            outcome = self.job(self.data("in.csv", self.numbers(300, {123})), block=65536).run()
            self.check_refused(outcome, 4, "line 123 ", "ung\u00fcltige Eingabesyntax")
            # The server has named the row: the load has gone back once, and not for each half.
            self.assertEqual(outcome.json["rewinds"], 1)


class Sessions(LibpqCase):
    def small(self, *options, **settings):
        return self.job(self.data("in.csv", b"1,a\n"), "--columns", "id,v", "--create", *options, **settings)

    @contextlib.contextmanager
    def open_load(self, job):
        load = job.start()
        with harness.SlowFeed(job) as feed:
            feed.send(b"1,a\n")
            harness.wait_until(lambda: job.record() is not None, "the job's row")
            yield
            feed.end()
            outcome = harness.Outcome(load)
        self.assertEqual(outcome.status, 0, outcome)

    def names(self):
        return self.database.query(
            "select application_name from pg_stat_activity where datname = current_database()"
            " and pid <> pg_backend_pid()"
        )

    def test_name_that_the_server_shows(self):
        job = self.small()
        with self.open_load(job):
            self.assertEqual(self.names(), [(f"tallow-load {job.pipe[9:]} {job.pipe}",)])

    def test_name_that_the_address_has(self):
        self.database.connection_string = self.database.address(more="?application_name=mine")
        with self.open_load(self.small()):
            self.assertEqual(self.names(), [("mine",)])

    def test_encoding_that_the_address_names(self):
        self.database.connection_string = self.database.address(more="?client_encoding=LATIN1")
        job = self.job(self.data("in.csv", "1,\u6f22\n".encode()), "--columns", "id,v", "--create")
        self.assertEqual(job.run().status, 0)
        self.assertEqual(table_rows(self.database, "rows"), [("1", "\u6f22")])

    def test_notes_of_the_server_are_shown_once(self):
        self.database.execute(
            "create table rows (id text, v text)",
            "create function f() returns trigger language plpgsql as 'begin"
            " raise notice ''look here''; raise warning ''and there''; return new; end'",
            "create trigger t before insert on rows for each row execute function f()",
        )
        job = self.job(self.data("in.csv", b"1,a\n2,b\n3,c\n"))
        outcome = job.run()
        self.assertEqual(outcome.status, 0, outcome)
        self.assertEqual(outcome.err.count("look here"), 1, outcome)
        self.assertEqual(outcome.err.count("and there"), 1, outcome)

    def test_table_that_another_program_locks(self):
        self.database.execute("create table rows (id text, v text)")
        holder = subprocess.Popen(
            ["psql", "-XqAt", "-h", "127.0.0.1", "-p", str(self.server.port), "-U", self.server.user]
            + ["-d", self.database.database],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
        )
        with holder:
            holder.stdin.write(b"begin; lock table rows; select 1;\n")
            holder.stdin.flush()
            holder.stdout.readline()
            outcome = self.job(self.data("in.csv", b"1,a\n")).run("--retry", "2")
            holder.stdin.close()
        self.check_refused(outcome, 3, "locked by another program")

    def test_several_servers(self):
        place = f"127.0.0.1:1,127.0.0.1:{self.server.port}"
        self.database.connection_string = (
            f"postgres://{place}/{self.database.database}?user={self.server.user}"
            "&target_session_attrs=read-write"
        )
        job = self.small()
        self.assertEqual(job.run().status, 0)

    def test_server_that_only_reads(self):
        self.server.psql(
            "postgres", f"alter database {self.database.database} set default_transaction_read_only = on"
        )
        self.database.connection_string = self.database.address(more="?target_session_attrs=read-write")
        outcome = self.small().run_alone("--retry", "1")
        self.check_refused(outcome, 3, "out of reach for 1 second")

    def test_service_file_and_password_file(self):
        port, name, user = self.server.port, self.database.database, self.server.user
        service = self.data("service", f"[shop]\nhost=127.0.0.1\nport={port}\ndbname={name}\n".encode())
        job = self.small()
        job.variables = {"PGSERVICEFILE": f"Z:{service}"}
        self.database.connection_string = f"postgresql://{user}@/?service=shop"
        self.assertEqual(job.run().status, 0)
        self.database.connection_string = f"postgresql://{user}@/?service=nothing"
        self.check_refused(job.run_alone("--restart"), 4, "nothing", "check --to")

    def test_password(self):
        self.database.execute(f"create role keeper login superuser password '{SECRET}'")
        rule = "host all keeper 127.0.0.1/32 scram-sha-256\n"
        path = f"{self.server.folder}/data/pg_hba.conf"
        with open(path, encoding="utf-8") as file:
            rules = file.read()
        with open(path, "w", encoding="utf-8") as file:
            file.write(rule + rules)
        self.database.query("select pg_reload_conf()")
        good = self.database.address(user=f"keeper:{SECRET}")
        self.database.connection_string = good
        self.assertEqual(self.small().run().status, 0)
        self.database.connection_string = good.replace(SECRET, SECRET + "x")
        outcome = self.small().run_alone()
        self.check_refused(outcome, 1, "authentication failed")
        self.assertNotIn(SECRET, outcome.out + outcome.err)
        # The command to go on with has *** in its place, and so have the words of libpq.
        for address in (good.replace("/db", ":x/db"), f"postgresql://keeper@/x?password={SECRET}&y"):
            self.database.connection_string = address
            outcome = self.small().run_alone()
            self.assertNotIn(SECRET, outcome.out + outcome.err)
            self.assertNotEqual(outcome.status, 0)
        self.database.connection_string = good
        stopped = self.job(self.data("bad.csv", b"1,a\n2\n"), "--columns", "id,v").run()
        self.assertEqual(stopped.status, 4, stopped)
        self.assertNotIn(SECRET, stopped.out + stopped.err)
        self.assertIn("keeper:***@", stopped.json["restart"])
        passwords = self.data("pgpass", f"127.0.0.1:*:*:keeper:{SECRET}\n".encode())
        job = self.small()
        job.variables = {"PGPASSFILE": f"Z:{passwords}"}
        self.database.connection_string = self.database.address(user="keeper")
        self.assertEqual(job.run().status, 0)


class OldServer(threading.Thread):
    """Lets everybody in and says that it is PostgreSQL 9.6."""

    def __init__(self):
        super().__init__()
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]

    def run(self):
        with contextlib.suppress(OSError):
            while True:
                with contextlib.closing(self.listener.accept()[0]) as client:
                    self.serve(client)

    def serve(self, client):
        def message(kind, content):
            return kind + struct.pack("!i", len(content) + 4) + content

        stream = client.makefile("rb")
        while True:
            length, protocol = struct.unpack("!ii", stream.read(8))
            stream.read(length - 8)
            if protocol == 196608:
                break
            client.sendall(b"N")  # no encryption
        client.sendall(
            message(b"R", struct.pack("!i", 0))
            + message(b"S", b"server_version\x009.6.24\x00")
            + message(b"S", b"client_encoding\x00UTF8\x00")
            + message(b"Z", b"I")
        )
        stream.read()  # until it goes

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.join()


class BadInput(LibpqCase):
    def refused(self, status, *words, columns=()):
        job = self.job(self.data("in.csv", b"1,2\n"), *columns)
        self.check_refused(job.run_alone(), status, *words)
        self.assertIsNone(job.record())
        return job

    def test_addresses_that_libpq_refuses(self):
        for address in ("postgresql://[::1", "postgresql://h?nonsense=1", "postgres://h/%zz"):
            self.database.connection_string = address
            self.refused(2, "cannot be read", "postgresql://USER@HOST:PORT/DATABASE")

    def test_settings_that_libpq_refuses(self):
        self.database.connection_string = self.database.address(more="?sslmode=perhaps")
        self.refused(1, "perhaps", "check --to")

    def test_server_that_is_too_old(self):
        with OldServer() as server:
            self.database.connection_string = self.database.address(port=server.port)
            job = self.job(self.data("in.csv", b"1,2\n"))
            self.check_refused(job.run_alone(), 1, "PostgreSQL 9.6", "10 or later", "ODBC")

    def test_view(self):
        self.database.execute("create table t (a int, b int)", "create view rows as select * from t")
        self.refused(1, "view", "name the table")

    def test_materialized_view(self):
        self.database.execute("create materialized view rows as select 1 a, 2 b")
        self.refused(1, "materialized view", "name the table")

    def test_foreign_table(self):
        self.database.execute(
            "create extension file_fdw",
            "create server s foreign data wrapper file_fdw",
            "create foreign table rows (a int, b int) server s options (filename '/dev/null')",
        )
        self.refused(1, "foreign table", "could come twice")

    def test_generated_column(self):
        self.database.execute("create table rows (a int, b int generated always as (a) stored)")
        self.refused(1, '"b" is generated', "--columns")

    def test_identity_column(self):
        self.database.execute("create table rows (a int, b int generated always as identity)")
        self.refused(1, '"b"', "IDENTITY", "--columns", "BY DEFAULT")

    def test_identity_column_that_takes_values(self):
        self.database.execute("create table rows (a int, b int generated by default as identity)")
        self.assertEqual(self.job(self.data("in.csv", b"1,2\n")).run().status, 0)
        self.assertEqual(table_rows(self.database, "rows"), [("1", "2")])

    def test_table_without_the_right_to_fill_it(self):
        self.database.execute(
            "create table rows (a int, b int)",
            "drop role if exists reader", "create role reader login",
            "grant create on schema public to reader", "grant select on rows to reader",
        )
        self.database.connection_string = self.database.address(user="reader")
        outcome = self.job(self.data("in.csv", b"1,2\n")).run()
        self.check_refused(outcome, 4, "permission denied for table rows", "42501")


class Library(LibpqCase):
    """Where libpq comes from."""

    def job_without(self, *options, **variables):
        job = self.job(self.data("in.csv", b"1,2\n"), "--columns", "a,b", "--create", *options)
        job.variables = {"TALLOW_LIBPQ": "", **variables}
        return job

    def test_library_that_is_not_there(self):
        job = self.job_without()
        self.check_refused(job.run_alone(), 2, "libpq.dll", "--libpq", "ODBC")
        job = self.job_without("--libpq", self.folder / "no.dll")
        self.check_refused(job.run_alone(), 2, "no.dll does not exist", "install")

    def test_library_that_is_named(self):
        self.assertEqual(self.job_without("--libpq", os.environ["TALLOW_LIBPQ"]).run().status, 0)

    def test_library_that_the_option_names_before_the_environment(self):
        job = self.job_without("--libpq", os.environ["TALLOW_LIBPQ"], TALLOW_LIBPQ="Z:/nothing.dll")
        self.assertEqual(job.run().status, 0)

    def test_file_that_is_no_library(self):
        job = self.job_without("--libpq", f"Z:{self.data('text.dll', b'text')}")
        self.check_refused(job.run_alone(), 2, "text.dll", "install")

    def test_another_library(self):
        job = self.job_without(TALLOW_LIBPQ=f"Z:{BIN}/csv.dll")
        self.check_refused(job.run_alone(), 2, "csv.dll", "exports no PQ", "install")

    def test_library_beside_the_program(self):
        folder = self.folder / "programs"
        folder.mkdir()
        for name in ("tallow-load.exe", "tallowin.dll", "tallowinenu.dll", "csv.dll"):
            shutil.copy(BIN / name, folder)
        shutil.copy(os.environ["TALLOW_LIBPQ"].removeprefix("Z:"), folder / "libpq.dll")
        job = self.job_without("--libpq", "Z:/nothing.dll")
        command = job.command()
        command[0] = folder / "tallow-load.exe"
        feed = job.feed()
        try:
            outcome = harness.Outcome(harness.Process(*command, **job.variables))
        finally:
            feed.discard()
        self.assertEqual(outcome.status, 0, outcome)

    def test_other_ways_need_none(self):
        self.database = harness.Postgres(self.server)
        self.assertEqual(self.job_without().run().status, 0)


if __name__ == "__main__":
    load_cases.FULL = harness.main_arguments()
    main()

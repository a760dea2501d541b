"""Runs the program `zemhost` as a process on a new store. Shared by the tests in tests/ and tools/."""
import contextlib
import http.client
import json
import os
import pathlib
import select
import sqlite3
import subprocess
import sys

SKIPPED = 77  # the exit status that ctest counts as skipped
SAMPLE = pathlib.Path(__file__).resolve().parent.parent / "fleets/sample.json"


class Store:
    """A store in a folder, or at a URL. Commands run in the folder, which also holds the server's log."""

    def __init__(self, build, folder, url=None):
        self.program = pathlib.Path(build).resolve() / "zemhost"
        self.folder = pathlib.Path(folder)
        self.path = self.folder / "zem.db"  # the commands' default; the server gets it as an option
        self.url = url or f"sqlite:{self.path}"
        self.is_sqlite = url is None
        self.environment = {**os.environ, "ZEM_STORE": url} if url else None
        self.log = self.folder / "log"

    def run(self, *arguments, status=0, **options):
        """Runs a command, which must end with this status, and returns its output and errors as one text.

        options: passed on to subprocess.run.
        """
        done = subprocess.run([self.program, *arguments], cwd=self.folder, timeout=120, encoding="utf-8",
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              **{"env": self.environment, **options})
        if done.returncode != status:
            raise RuntimeError(f"zemhost {arguments} ended with status {done.returncode}: {done.stdout}")
        return done.stdout

    def fill(self):
        self.run("apply", SAMPLE)

    def rows(self, query):
        """Queries the database directly and returns the rows as tuples."""
        if not self.is_sqlite:
            rows = psql(self.url, f"SELECT coalesce(json_agg(answer), '[]') FROM ({query}) AS answer")
            return [tuple(row.values()) for row in json.loads(rows)]
        with contextlib.closing(sqlite3.connect(self.path)) as connection:
            return connection.execute(query).fetchall()

    def token(self, account, *arguments):
        return self.run("token", account, *arguments).strip()


def psql(url, *statements):
    """Returns PostgreSQL's answer to the last statement, without the final line break."""
    commands = [part for statement in statements for part in ("-c", statement)]
    return subprocess.run(["psql", "-qXAt", "-v", "ON_ERROR_STOP=1", *commands, url], check=True, timeout=60,
                          encoding="utf-8", stdout=subprocess.PIPE).stdout.removesuffix("\n")


@contextlib.contextmanager
def database(kind):
    """Provides an empty database for a with statement, as a URL.

    kind "sqlite": None, with which Store creates a file of its own. kind "postgresql": a new schema in the database that
    ZEM_TEST_POSTGRESQL names; ends the program as skipped when that variable is not set.
    """
    if kind == "sqlite":
        yield None
        return
    url = os.environ.get("ZEM_TEST_POSTGRESQL")
    if url is None:
        print("ZEM_TEST_POSTGRESQL is not set")
        sys.exit(SKIPPED)
    name = f"zem_test_{os.getpid()}"
    psql(url, f"CREATE SCHEMA {name}")
    try:
        yield f"{url}{'&' if '?' in url else '?'}application_name={name}&options=-csearch_path%3D{name}"
    finally:
        psql(url, "SET client_min_messages = error", f"DROP SCHEMA {name} CASCADE")


class Server:
    """A running `zemhost serve`, which is killed when this process ends.

    before: a command that runs the server. options: passed on to subprocess.Popen.
    """

    def __init__(self, store, *arguments, before=(), **options):
        self.log = store.log
        command = ["setpriv", "--pdeathsig", "KILL", *before, store.program, "serve", "--listen", "127.0.0.1:0",
                   "--store", store.url, *arguments]
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(command, cwd=store.folder, stdout=subprocess.PIPE, text=True,
                                            **{"stderr": log, **options})
        readable, _, _ = select.select([self.process.stdout], [], [], 60)
        line = self.process.stdout.readline() if readable else ""
        if "listening on " not in line:
            self.kill()
            raise RuntimeError(f"the server did not start: {self.log.read_text(errors='replace')}")
        self.port = int(line.rsplit(":", 1)[1])

    def connect(self):
        return http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)

    def stop(self):
        """Lets the server finish its requests and waits for its end, which must be with status 0."""
        self.process.terminate()
        try:
            status = self.process.wait(timeout=60)
        finally:
            self.kill()
        if status != 0:
            raise RuntimeError(f"the server ended with status {status}: {self.log.read_text(errors='replace')}")

    def kill(self):
        self.process.kill()
        self.process.wait(timeout=60)
        self.process.stdout.close()


def send(connection, path, token, body=b"", method="POST", headers=()):
    """Sends a request, without an Authorization header when token is None."""
    authorization = {} if token is None else {"Authorization": f"Bearer {token}"}
    connection.request(method, path, body, {**authorization, **dict(headers)})


def receive(connection):
    """Returns the answer to the request that was sent: (HTTP status, envelope)."""
    response = connection.getresponse()
    return response.status, json.loads(response.read())


def request(connection, *arguments, **options):
    """Sends a request with the arguments of send(), and returns (HTTP status, envelope)."""
    send(connection, *arguments, **options)
    return receive(connection)


def call(connection, token, api_method, params):
    """Calls a method of the module and returns (HTTP status, envelope)."""
    api, method = api_method.split()
    return request(connection, f"/webapi/VELQ.ZEM.{api}/1/{method}", token, json.dumps(params))

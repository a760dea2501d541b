"""The program `zemhost` on a store of its own, for the tests that run it as a process."""
import contextlib
import http.client
import json
import os
import pathlib
import select
import sqlite3
import subprocess
import sys

SKIPPED = 77  # exit status, which ctest knows
SAMPLE = pathlib.Path(__file__).resolve().parent.parent / "fleets/sample.json"


class Store:
    """A store in a folder that the program works in, or at the URL, the server's log beside it."""

    def __init__(self, build, folder, url=None):
        self.program = pathlib.Path(build).resolve() / "zemhost"
        self.folder = pathlib.Path(folder)
        self.path = self.folder / "zem.db"  # which commands take by themselves; the server is told
        self.url = url or f"sqlite:{self.path}"
        self.is_sqlite = url is None
        self.environment = {**os.environ, "ZEM_STORE": url} if url else None
        self.log = self.folder / "log"

    def run(self, *arguments, status=0, **options):
        """What a command prints, on standard error too. It must end with that status. options: of subprocess.run."""
        done = subprocess.run([self.program, *arguments], cwd=self.folder, timeout=120, encoding="utf-8",
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              **{"env": self.environment, **options})
        if done.returncode != status:
            raise RuntimeError(f"zemhost {arguments} ended with status {done.returncode}: {done.stdout}")
        return done.stdout

    def fill(self):
        self.run("apply", SAMPLE)

    def rows(self, query):
        """The rows that the database itself gives, as tuples."""
        if not self.is_sqlite:
            rows = psql(self.url, f"SELECT coalesce(json_agg(answer), '[]') FROM ({query}) AS answer")
            return [tuple(row.values()) for row in json.loads(rows)]
        with contextlib.closing(sqlite3.connect(self.path)) as connection:
            return connection.execute(query).fetchall()

    def token(self, account, *arguments):
        return self.run("token", account, *arguments).strip()


def psql(url, *statements):
    """What PostgreSQL answers to the last of the statements, as text without a line end."""
    commands = [part for statement in statements for part in ("-c", statement)]
    return subprocess.run(["psql", "-qXAt", "-v", "ON_ERROR_STOP=1", *commands, url], check=True, timeout=60,
                          encoding="utf-8", stdout=subprocess.PIPE).stdout.removesuffix("\n")


@contextlib.contextmanager
def database(kind):
    """The URL of an empty database, for a with statement: None, which means a file of the store's own, for "sqlite"; for
    "postgresql" a new schema where ZEM_TEST_POSTGRESQL says. Where that says nothing, the program ends as skipped."""
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
    """A running `zemhost serve`, our own child, which does not outlive us. options: of subprocess.Popen."""

    def __init__(self, store, *arguments, **options):
        self.log = store.log
        command = ["setpriv", "--pdeathsig", "KILL", store.program, "serve", "--listen", "127.0.0.1:0",
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
        """Has the server finish what it is at. It must then end with status 0."""
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
    """Sends a request. token: None sends none."""
    authorization = {} if token is None else {"Authorization": f"Bearer {token}"}
    connection.request(method, path, body, {**authorization, **dict(headers)})


def receive(connection):
    """The answer to the request that was sent: (HTTP status, envelope)."""
    response = connection.getresponse()
    return response.status, json.loads(response.read())


def request(connection, *arguments, **options):
    """The answer to a request, which is as for send."""
    send(connection, *arguments, **options)
    return receive(connection)


def call(connection, token, api_method, params):
    """The answer of a method of the module: (HTTP status, envelope)."""
    api, method = api_method.split()
    return request(connection, f"/webapi/VELQ.ZEM.{api}/1/{method}", token, json.dumps(params))

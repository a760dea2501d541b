"""The program `zemhost` on a store of its own, for the tests that run it as a process."""
import http.client
import json
import pathlib
import select
import subprocess

SAMPLE = pathlib.Path(__file__).resolve().parent.parent / "fleets/sample.json"


class Store:
    """A store in a folder that the program works in, the server's log beside it."""

    def __init__(self, build, folder):
        self.program = pathlib.Path(build).resolve() / "zemhost"
        self.folder = pathlib.Path(folder)
        self.path = self.folder / "zem.db"  # which commands take by themselves; the server is told
        self.log = self.folder / "log"

    def run(self, *arguments, status=0, **options):
        """What a command prints, on standard error too. It must end with that status. options: of subprocess.run."""
        done = subprocess.run([self.program, *arguments], cwd=self.folder, timeout=120, encoding="utf-8",
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
        if done.returncode != status:
            raise RuntimeError(f"zemhost {arguments} ended with status {done.returncode}: {done.stdout}")
        return done.stdout

    def fill(self):
        self.run("apply", SAMPLE)

    def token(self, account, *arguments):
        return self.run("token", account, *arguments).strip()


class Server:
    """A running `zemhost serve`, our own child, which does not outlive us. options: of subprocess.Popen."""

    def __init__(self, store, *arguments, **options):
        self.log = store.log
        command = ["setpriv", "--pdeathsig", "KILL", store.program, "serve", "--listen", "127.0.0.1:0",
                   "--store", f"sqlite:{store.path}", *arguments]
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

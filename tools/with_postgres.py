#!/usr/bin/env python3
"""Runs a command with a temporary PostgreSQL server, whose URL is in ZEM_TEST_POSTGRESQL. The server's data and its only
socket are in a temporary folder, which is removed at the end. When the variable is set already, that database is used.

usage: tools/with_postgres.py COMMAND [ARGUMENT]...
"""
import os
import pathlib
import pwd
import shutil
import signal
import subprocess
import sys
import tempfile
import time

VARIABLE = "ZEM_TEST_POSTGRESQL"
SIGNALS = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP]
PATIENCE = 60  # seconds for the server to start, and for it and the command to end

# Writes survive the death of a process, which the tests cause, but not that of the machine.
SETTINGS = {"listen_addresses": "", "max_connections": 300, "fsync": "off", "full_page_writes": "off"}


def server_user():
    """Returns the user to run the server as, since it refuses to run as root."""
    for name in ["postgres", "nobody"]:
        try:
            return pwd.getpwnam(name)
        except KeyError:
            pass
    raise RuntimeError("neither a user postgres nor nobody is there")


def find_programs():
    """Returns the folder of the newest version's programs, which Debian keeps out of the PATH."""
    found = sorted(pathlib.Path("/usr/lib/postgresql").glob("*/bin/initdb"), key=lambda path: int(path.parts[-3]))
    path = found[-1] if found else shutil.which("initdb")
    if path is None:
        raise RuntimeError("PostgreSQL is not installed: tools/setup test")
    return pathlib.Path(path).parent


class Cluster:
    """A running server with a new database at `url`, for a with statement. It is killed when this process ends."""

    def __init__(self):
        self.programs = find_programs()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="zem-pg-", dir="/tmp"))  # a socket's path has to be short
        self.log = self.folder / "log"
        self.url = f"postgresql:///postgres?host={self.folder}&user=postgres"
        self.process = None
        self.as_user = []
        if os.geteuid() == 0:
            user = server_user()
            os.chown(self.folder, user.pw_uid, user.pw_gid)
            self.as_user = ["--reuid", str(user.pw_uid), "--regid", str(user.pw_gid), "--clear-groups"]

    def __enter__(self):
        try:
            self.process = self.make_data()
            self.process.wait(PATIENCE)
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        try:
            self.stop()
        finally:
            self.remove_folder()

    def make_data(self):
        # Sorting by a language, as on many machines, exposes code that relies on the order of bytes.
        return self.popen("initdb", "--pgdata", self.folder / "data", "--username", "postgres", "--auth", "trust",
                          "--encoding", "UTF8", "--locale", "C", "--locale-provider", "icu", "--icu-locale", "en",
                          "--no-sync")

    def remove_folder(self):
        """Removes the folder, again and again while processes of an interrupted initdb still write to it."""
        end = time.monotonic() + PATIENCE
        while self.folder.exists() and time.monotonic() < end:
            shutil.rmtree(self.folder, ignore_errors=True)
            time.sleep(0.02)

    def popen(self, program, *arguments):
        with open(self.log, "ab") as log:
            return subprocess.Popen(["setpriv", "--pdeathsig", "QUIT", *self.as_user, self.programs / program,
                                     *arguments], cwd=self.folder, stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def start(self):
        settings = [part for name, value in SETTINGS.items() for part in ("-c", f"{name}={value}")]
        self.process = self.popen("postgres", "-D", self.folder / "data", "-k", self.folder, *settings)
        end = time.monotonic() + PATIENCE
        while subprocess.run([self.programs / "pg_isready", "-q", "-h", self.folder], check=False).returncode != 0:
            if self.process.poll() is not None or time.monotonic() > end:
                raise RuntimeError(f"PostgreSQL did not start: {self.log.read_text(errors='replace')}")
            time.sleep(0.02)

    def stop(self, how=signal.SIGINT):
        """Ends the server without waiting for its clients. how: SIGQUIT ends it without writing its memory to disk."""
        if self.process is None:
            return
        self.process.send_signal(how)
        try:
            self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait(PATIENCE)


class Standby(Cluster):
    """A standby of a running cluster, whose commits wait for it from then on."""

    def __init__(self, primary):
        super().__init__()
        self.primary = primary

    def make_data(self):
        return self.popen("pg_basebackup", "-D", self.folder / "data", "-h", self.primary.folder, "-U", "postgres", "-R",
                          "-c", "fast", "--no-sync")

    def start(self):
        super().start()
        for statement in ["ALTER SYSTEM SET synchronous_standby_names = '*'", "SELECT pg_reload_conf()"]:
            subprocess.run(["psql", "-qXAtc", statement, self.primary.url], check=True, stdout=subprocess.DEVNULL)


def run(command, environment):
    """Runs the command in a process group, which ends with this process, and returns its exit status."""
    process = subprocess.Popen(["setpriv", "--pdeathsig", "TERM", *command], env=environment, process_group=0)
    try:
        return process.wait()
    finally:
        if process.poll() is None:
            os.killpg(process.pid, signal.SIGTERM)
            try:
                process.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)


def leave(number, _):
    for other in SIGNALS:
        signal.signal(other, signal.SIG_IGN)  # the exit has begun
    sys.exit(128 + number)


def main(command):
    if not command:
        sys.exit(__doc__)
    if VARIABLE in os.environ:
        os.execvp(command[0], command)
    for number in SIGNALS:
        signal.signal(number, leave)
    with Cluster() as cluster:
        status = run(command, {**os.environ, VARIABLE: cluster.url})
    return status if status >= 0 else 128 - status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

#!/usr/bin/env python3
"""Restarts and stops the database under two servers while clients write. Checks that the store contains every change that
was answered with success and none that was refused, that waiting requests get an answer while the database is stopped,
that other requests work, that each outage is logged once, and that a server can end during an outage.

usage: tools/outage_test.py BUILD_DIR [--outages 12] [--seed N]
"""
import argparse
import contextlib
import http.client
import json
import os
import pathlib
import random
import re
import signal
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True  # no cache beside the sources
from with_postgres import Cluster  # noqa: E402
from zemhost import Server, Store, call, psql, request  # noqa: E402

WRITERS = 8
PATIENCE = 40  # seconds until an expected event counts as missing
MANY = 30  # requests, none of which may wait for a failing attempt to connect
QUICK = 5  # seconds for an answer that needs no database, on a busy machine
UNKNOWN = re.compile("may be there now or not|had changed before stays")
BEGUN, ENDED = "zemhost: the store does not answer: ", "zemhost: the store answers again after "
LOST = "owner of a token could not be looked up"
REQUEST = re.compile(r"\S+ (?:- )?(?:admin|-) \S+ \S+ (?:\d+|cut) \d+")


def await_true(condition, what, patience=PATIENCE):
    end = time.monotonic() + patience
    while not condition():
        if time.monotonic() > end:
            raise RuntimeError(f"not within {patience} s: {what}")
        time.sleep(0.02)


class Loop(threading.Thread):
    """Calls step repeatedly, on a connection to the server, until it must stop. Collects the faults as texts."""

    def __init__(self, server, pause):
        super().__init__(daemon=True)
        self.server, self.pause, self.rounds, self.faults = server, pause, 0, []
        self.is_stopping = threading.Event()
        self.timeout = PATIENCE  # seconds for an answer

    def run(self):
        connection = self.server.connect()
        connection.timeout = self.timeout
        while not self.is_stopping.wait(self.pause):
            try:
                self.step(connection)
                self.rounds += 1
            except (OSError, http.client.HTTPException, ValueError) as e:
                if not self.is_stopping.is_set():
                    self.faults.append(f"{type(self).__name__}: {e!r}")
                return

    def stop(self):
        self.is_stopping.set()
        self.join(PATIENCE)


class Writer(Loop):
    """Alternately creates groups below its own group and changes that group's description."""

    def __init__(self, server, token, home):
        super().__init__(server, 0.005)
        self.token, self.home = token, home
        # The names of new groups and the numbers that were set, by the outcome of their requests.
        self.made, self.set = ({"there": [], "unknown": [], "refused": []} for _ in range(2))
        self.slowest = 0

    def step(self, connection):
        name = str(self.rounds)
        if self.rounds % 2 == 0:
            fates, method, params = self.made, "create", {"id": 0, "name": name, "parent_id": self.home}
        else:
            fates, method, params = self.set, "set", {"node_id": self.home, "desc": name}
        start = time.monotonic()
        status, answer = call(connection, self.token, "KXGroup " + method, params)
        self.slowest = max(self.slowest, time.monotonic() - start)
        if answer["success"]:
            fates["there"].append(name)
        else:
            is_unknown = UNKNOWN.search(answer["error"]["message"])
            fates["unknown" if is_unknown else "refused"].append(name)
            if (status, answer["error"]["code"]) not in [(200, 117), (503, 503)]:
                self.faults.append(f"{status} {answer}")

    def succeeded(self):
        return len(self.made["there"])

    def check(self, store, revision):
        """Returns where the store differs from the answers. revision: the first one of the group."""
        names = {name for name, in store.rows(f"SELECT name FROM ou WHERE parent_id = {self.home}")}
        (now, last), = store.rows(f'SELECT revision, "desc" FROM ou WHERE id = {self.home}')
        lost = set(self.made["there"]) - names
        extra = names - set(self.made["there"]) - set(self.made["unknown"])
        sets = now - revision - len(self.set["there"])
        faults = [f"{text} below {self.home}: {sorted(found)}" for text, found in
                  [("lost", lost), ("there though refused", extra)] if found]
        if not 0 <= sets <= len(self.set["unknown"]) or last not in self.set["there"][-1:] + self.set["unknown"]:
            faults.append(f"group {self.home}: {sets} changes more than were answered; {last} is the last")
        return faults


class Watcher(Loop):
    """Requests the health and a page that does not exist."""

    def __init__(self, server):
        super().__init__(server, 0.05)
        self.health, self.slowest = 200, 0

    def step(self, connection):
        start = time.monotonic()
        self.health, _ = request(connection, "/health", None, None, method="GET")
        status, _ = request(connection, "/webapi/none/1/get", None)
        self.slowest = max(self.slowest, time.monotonic() - start)
        if status != 404 or self.health not in (200, 503):
            self.faults.append(f"{status} for no method, {self.health} for the health")


def processes(cluster):
    """Yields the database server's processes, the parent of the others first."""
    main = cluster.process.pid
    yield main
    for path in pathlib.Path("/proc").glob("[0-9]*/stat"):
        with contextlib.suppress(OSError):
            if int(path.read_text().rpartition(")")[2].split()[1]) == main:
                yield int(path.parent.name)


@contextlib.contextmanager
def stopped(cluster):
    """Freezes the database server while its sockets stay open."""
    halted = []
    try:
        for process in processes(cluster):
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGSTOP)
                halted.append(process)
        yield
    finally:
        for process in halted:
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGCONT)


def stop_for_a_while(cluster, writers, watchers):
    with stopped(cluster):
        before = [writer.rounds for writer in writers]
        await_true(lambda: all(watcher.health == 503 for watcher in watchers), "no health")
        await_true(lambda: all(writer.rounds > rounds + MANY for writer, rounds in zip(writers, before)),
                   "many answers for everyone while the database is stopped")


def restart(how):
    def work(cluster, *_):
        cluster.stop(how)
        cluster.start()
    return work


OUTAGES = {"stopped": stop_for_a_while, "restarted": restart(signal.SIGINT), "killed": restart(signal.SIGQUIT)}


def play(cluster, writers, watchers, kinds):
    """Causes each outage in turn and checks what follows it."""
    for kind in kinds:
        before = [writer.succeeded() for writer in writers]
        OUTAGES[kind](cluster, writers, watchers)
        await_true(lambda: all(writer.succeeded() > done + 2 for writer, done in zip(writers, before)),
                   f"success for everyone after the database was {kind}")
        await_true(lambda: all(watcher.health == 200 for watcher in watchers), f"health after it was {kind}")


def check_log(text, kinds, seconds):
    """Returns the faults of a server's log. Some restarts are too quick to appear there."""
    lines = [line.split(" ", 1)[1] for line in text.splitlines()]
    lines = [line for line in lines if not REQUEST.fullmatch("- " + line) and not line.startswith(("change: ", "module: "))]
    outages = [line for line in lines if LOST not in line]
    marks = [BEGUN, ENDED] * (len(outages) // 2)
    faults = [line for line, mark in zip(outages, marks + [""] * len(outages)) if not mark or not line.startswith(mark)]
    if not kinds.count("stopped") <= len(outages) // 2 <= len(kinds):
        faults.append(f"{len(outages)} lines report {len(kinds)} outages: {outages}")
    if len(lines) - len(outages) > seconds / 10 + 1:
        faults.append(f"{len(lines) - len(outages)} lines report requests")
    return faults


def check_end(cluster, store, servers, loops):
    """Ends the servers while the database is stopped and all clients wait for it."""
    with stopped(cluster):
        time.sleep(0.5)
        for loop in loops:
            loop.is_stopping.set()
        for server in servers:
            server.process.terminate()
        for server in servers:
            server.stop()
        refused = store.run("tree", "--as", "admin", status=1)
    for loop in loops:
        loop.stop()
    return [] if "timeout" in refused else [f"a start while the database is stopped says {refused}"]


def check_start(cluster, folder):
    """Checks that a server reports at once when it lacks the connection that it needs beside those of its requests."""
    psql(cluster.url, "CREATE ROLE few LOGIN CONNECTION LIMIT 3", "GRANT pg_read_all_data TO few")
    store = Store(sys.argv[1], folder, cluster.url.replace("user=postgres", "user=few"))
    refused = store.run("serve", "--listen", "127.0.0.1:0", "--connections", "3", status=1)
    server = Server(store, "--connections", "2")
    time.sleep(2.5)  # the health probe runs every second
    health, _ = request(server.connect(), "/health", None, None, method="GET")
    server.stop()
    faults = [] if "too many connections" in refused else [f"a start with too few connections says {refused}"]
    return faults if health == 200 else faults + [f"the health with just enough connections is {health}"]


def run(cluster, folder, kinds):
    store = Store(sys.argv[1], folder, cluster.url)
    store.fill()
    token = store.token("admin")
    too_few = check_start(cluster, folder)
    params = json.dumps({"multiple_data": [{"name": f"writer {i}", "parent_id": 1} for i in range(WRITERS)]})
    homes = json.loads(store.run("call", "VELQ.ZEM.KXGroup", "create", "--params", params, "--as", "admin"))["data"]["ids"]
    revisions = dict(store.rows("SELECT id, revision FROM ou"))
    logs = [store.folder / f"log {i}" for i in range(2)]
    start = time.monotonic()
    with contextlib.ExitStack() as stack:
        files = [stack.enter_context(open(log, "wb")) for log in logs]
        servers = [Server(store, "--no-console", "--connections", count, stderr=file) for count, file in zip(["8", "2"], files)]
        for server in servers:
            stack.callback(server.kill)
        watchers = [Watcher(server) for server in servers]
        writers = [Writer(servers[i % 2], token, home) for i, home in enumerate(homes)]
        for loop in watchers + writers:
            loop.start()
        play(cluster, writers, watchers, kinds)
        faults = too_few + [fault for loop in watchers + writers for fault in loop.faults]
        for writer in writers:
            writer.stop()
        faults += [fault for writer in writers for fault in writer.check(store, revisions[writer.home])]
        faults += [fault for log in logs for fault in check_log(log.read_text(), kinds, time.monotonic() - start)]
        last = [Writer(servers[i % 2], token, home) for i, home in enumerate(homes)]
        for loop in last:
            loop.rounds = 10**9
            loop.start()
        faults += check_end(cluster, store, servers, watchers + last)
    faults += [f"{log}: {line}" for log in logs for line in log.read_text().splitlines() if "stopped before" in line]
    slowest = max(watcher.slowest for watcher in watchers)
    if slowest > QUICK:
        faults.append(f"a refusal or the health took {slowest:.1f} s")
    report(writers, kinds, slowest, time.monotonic() - start)
    return faults


def report(writers, kinds, slowest, seconds):
    count = {fate: sum(len(fates[fate]) for writer in writers for fates in (writer.made, writer.set))
             for fate in ["there", "unknown", "refused"]}
    print(f"{len(kinds)} outages: {count['there']} changes answered and all there, {count['refused']} refused and none "
          f"there, {count['unknown']} said to be unknown; slowest change {max(w.slowest for w in writers):.1f} s, "
          f"slowest refusal or health {slowest:.2f} s; {seconds:.0f} s")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--outages", type=int, default=12)
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(10**6))
    options = parser.parse_args()
    print(f"seed {options.seed}")
    kinds = [kind for _ in range(options.outages) for kind in OUTAGES][:options.outages]
    random.Random(options.seed).shuffle(kinds)
    with Cluster() as cluster, tempfile.TemporaryDirectory(prefix="zem-") as folder:
        faults = run(cluster, folder, kinds)
    print(*faults, sep="\n", end="\n" if faults else "")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())

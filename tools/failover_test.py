#!/usr/bin/env python3
"""Moves a PostgreSQL database to its synchronous standby under two servers while clients write. The primary is killed,
stopped, or cut off from the network; the standby is promoted; then the old primary comes back without knowing. Checks
that the new primary contains every change that was answered with success and none that was refused, and that nothing
more is written to the old one. Prints how long clients waited for their first success. Two kinds move nothing: the
connections of requests hang, or the standby is stopped, beside which reads have to work.

usage: tools/failover_test.py BUILD_DIR [--kinds killed,stopped,cut,hung,standby] [--url-parameters TEXT]
"""
import argparse
import contextlib
import json
import pathlib
import signal
import socket
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True  # no cache beside the sources
from outage_test import WRITERS, Watcher, Writer, await_true, stopped  # noqa: E402
from with_postgres import Cluster, Standby  # noqa: E402
from zemhost import Server, Store, call, psql  # noqa: E402

PROMOTION = 1.2  # seconds from the loss of the primary to the promotion of its standby
BOUND = 15  # seconds from the loss of the primary to a success for every client


class Proxy:
    """Passes connections to a port of the loopback interface on to a database server. No byte passes while the gate of
    a connection is closed, and no new connection while `gate` is."""

    def __init__(self, cluster):
        self.target = str(cluster.folder / ".s.PGSQL.5432")
        self.listener = socket.create_server(("127.0.0.1", 0), backlog=100)
        self.port = self.listener.getsockname()[1]
        self.gate, self.gates = threading.Event(), []
        self.gate.set()
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            client = self.listener.accept()[0]
            self.gate.wait()
            server = socket.socket(socket.AF_UNIX)
            try:
                server.connect(self.target)
            except OSError:
                client.close()
                continue
            self.gates.append(threading.Event())
            self.gates[-1].set()
            for pair in [(client, server), (server, client)]:
                threading.Thread(target=self.pass_on, args=(*pair, self.gates[-1]), daemon=True).start()

    def pass_on(self, source, sink, gate):
        with contextlib.suppress(OSError):
            while data := source.recv(65536):
                gate.wait()
                sink.sendall(data)
        gate.wait()
        for end in (source, sink):
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)


@contextlib.contextmanager
def killed(cluster, _):
    cluster.stop(signal.SIGQUIT)
    yield
    cluster.start()


@contextlib.contextmanager
def cut(_, proxy):
    closed = [proxy.gate, *proxy.gates]
    for gate in closed:
        gate.clear()
    yield
    for gate in closed:
        gate.set()


@contextlib.contextmanager
def hung(_, proxy):
    """Lets the connections of requests hang while those of the health probes and new ones work."""
    for gate in [gate for number, gate in enumerate(proxy.gates) if number not in proxy.probes]:
        gate.clear()
    yield


LOSSES = {"killed": killed, "stopped": lambda cluster, _: stopped(cluster), "cut": cut, "hung": hung}


def successes(writers):
    return [writer.succeeded() for writer in writers]


def move(kind, old, new, proxy, writers):
    """Loses the primary, promotes the standby and brings the old primary back. Prints the waiting times."""
    with LOSSES[kind](old, proxy):
        start = time.monotonic()
        time.sleep(PROMOTION / 2)
        before = successes(writers)
        time.sleep(PROMOTION / 2)
        if kind != "hung":
            psql(new.url, "SELECT pg_promote()")
        first = []
        for server in range(2):
            await_true(lambda: any(now > then for now, then in list(zip(successes(writers), before))[server::2]),
                       "a success", patience=100)
            first.append(time.monotonic() - start)
        await_true(lambda: all(now > then for now, then in zip(successes(writers), before)), "success for everyone",
                   patience=100)
        everyone = time.monotonic() - start
    # The old primary now takes writes without a standby, and the servers have to choose again.
    psql(old.url, "ALTER SYSTEM RESET synchronous_standby_names", "SELECT pg_reload_conf()")
    psql(new.url if kind != "hung" else old.url, "SELECT pg_terminate_backend(pid) FROM pg_stat_activity"
         " WHERE backend_type = 'client backend' AND pid <> pg_backend_pid()")
    before = successes(writers)
    time.sleep(4)
    await_true(lambda: all(now > then + 2 for now, then in zip(successes(writers), before)), "success at the primary")
    print(f"{kind}: first success after {max(first):.1f} s, for everyone after {everyone:.1f} s", flush=True)
    return [] if everyone < BOUND else [f"{kind}: success for everyone only after {everyone:.1f} s"]


def stop_standby(new, server, token, writers):
    """Stops the standby, and measures reads until the patience of the changes ends."""
    slowest = 0
    before = [len(writer.made["unknown"]) + len(writer.set["unknown"]) for writer in writers]
    start = time.monotonic()
    with stopped(new):
        connection = server.connect()
        connection.timeout = 200
        while [len(writer.made["unknown"]) + len(writer.set["unknown"]) for writer in writers] == before:
            begin = time.monotonic()
            status, answer = call(connection, token, "Tree get", {})
            slowest = max(slowest, time.monotonic() - begin)
            if not answer["success"]:
                return [f"a read beside a stopped standby is answered {status} {answer}"]
            time.sleep(0.2)
    print(f"standby: slowest read {slowest:.2f} s, a change unknown after {time.monotonic() - start:.0f} s", flush=True)
    return [] if slowest < 2 else [f"a read beside a stopped standby took {slowest:.1f} s"]


def check_old(old, now, writer):
    """Returns what the old primary holds of a writer and the new one does not, besides what was said to be unknown."""
    query = f"SELECT name FROM ou WHERE parent_id = {writer.home}"
    extra = set(psql(old.url, query).split()) - {name for name, in now.rows(query)} - set(writer.made["unknown"])
    return [f"on the old primary alone, below {writer.home}: {sorted(extra)}"] if extra else []


def run(build, folder, kind, parameters):
    with Cluster() as old, Standby(old) as new, contextlib.ExitStack() as stack:
        proxies = [Proxy(old), Proxy(new)]
        hosts = ",".join(f"127.0.0.1:{proxy.port}" for proxy in proxies)
        moving = Store(build, folder, f"postgresql://postgres@{hosts}/postgres?{parameters}")
        store = Store(build, folder, old.url)
        store.fill()
        token, reader = store.token("admin"), store.token("m.okafor")
        params = json.dumps({"multiple_data": [{"name": f"writer {i}", "parent_id": 1} for i in range(WRITERS)]})
        created = store.run("call", "VELQ.ZEM.KXGroup", "create", "--params", params, "--as", "admin")
        homes = json.loads(created)["data"]["ids"]
        revisions = dict(store.rows("SELECT id, revision FROM ou"))
        servers, proxies[0].probes = [], []
        for _ in range(2):
            proxies[0].probes.append(len(proxies[0].gates))  # a server connects its probe first
            servers.append(Server(moving, "--no-console"))
            stack.callback(servers[-1].kill)
        writers = [Writer(servers[i % 2], token, home) for i, home in enumerate(homes)]
        loops = writers + [Watcher(server) for server in servers]
        for loop in loops:
            loop.timeout = 200
            loop.start()
        time.sleep(1)
        if kind == "standby":
            faults = stop_standby(new, servers[0], reader, writers)
        else:
            faults = move(kind, old, new, proxies[0], writers)
        faults += [fault for loop in loops for fault in loop.faults]
        for loop in loops:
            loop.stop()
        is_moved = kind in ("killed", "stopped", "cut")
        now = Store(build, folder, new.url if is_moved else old.url)
        faults += [fault for writer in writers for fault in writer.check(now, revisions[writer.home])]
        if is_moved:
            late = json.dumps({"id": 0, "name": "late", "parent_id": 1})
            moving.run("call", "VELQ.ZEM.KXGroup", "create", "--params", late, "--as", "admin")
            if not now.rows("SELECT 1 AS there FROM ou WHERE name = 'late'"):
                faults.append("a command wrote to the old primary")
            faults += [fault for writer in writers for fault in check_old(old, now, writer)]
        count = {fate: sum(len(w.made[fate]) + len(w.set[fate]) for w in writers) for fate in writers[0].made}
        print(f"{kind}: {count}; slowest {max(w.slowest for w in writers):.1f} s", flush=True)
        return faults


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--kinds", default="killed,stopped,cut,hung,standby")
    parser.add_argument("--url-parameters", default="target_session_attrs=read-write")
    options = parser.parse_args()
    faults = []
    for kind in options.kinds.split(","):
        with tempfile.TemporaryDirectory(prefix="zem-") as folder:
            faults += run(options.build, folder, kind, options.url_parameters)
            for line in pathlib.Path(folder, "log").read_text().splitlines():
                if "zemhost:" in line:
                    print(line)
    print(*faults, sep="\n", end="\n" if faults else "")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())

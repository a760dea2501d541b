#!/usr/bin/env python3
"""Lets eight delegates use the server as hard as they can, each with long links, large records, bodies of many values and
slow connections. Beside them an administrator's tree and change, the command that revokes a token, and the health check
must stay quick. Then stops the server while their requests are at work.

usage: tools/hostile_delegates.py BUILD_DIR [--seconds 60] [--database postgresql]
"""
import argparse
import collections
import contextlib
import http.client
import itertools
import json
import multiprocessing
import os
import pathlib
import resource
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True  # no cache beside the sources
from hostile_clients import MAX_MEMORY_MB, attack, max_memory, peak_memory, slow_bodies, unread_answers  # noqa: E402
from zemhost import Server, Store, database, request  # noqa: E402

DELEGATES, GROUPS, UNSEEN = 8, 500, 99
MAX_SECONDS = 4.0  # for each thing that is measured, on a machine that also builds
MAX_STOP = 12.0  # seconds until the server has stopped
PATIENCE = 3  # seconds after which a hostile client goes away and sends its request again


def make_fleet():
    """Each delegate has a group with many groups in it, and links none of their policies but the first."""
    groups = [{"id": id, "parent_id": 0, "name": f"realm {id}", "delegate": [{"ugid": 2000 + id, "user_type": 2}],
               "linked_gpo": {"order": [{"id": 1}]}} for id in range(1, DELEGATES + 1)]
    groups += [{"id": DELEGATES * number + id, "parent_id": id, "name": f"group {number}"}
               for id in range(1, DELEGATES + 1) for number in range(1, GROUPS + 1)]
    return {"accounts": [{"uid": 1000, "name": "admin", "admin": True}, {"uid": 3000, "name": "leaver"}]
            + [{"uid": 2000 + id, "name": f"delegate {id}"} for id in range(1, DELEGATES + 1)],
            "groups": groups, "policies": [{"id": id, "parent_id": 0, "name": f"policy {id}"} for id in (1, UNSEEN)]}


def requests_of(realm):
    """The methods that a delegate calls, each with its parameters as a text."""
    inner = [DELEGATES * number + realm for number in range(1, GROUPS + 1)]
    targets = [{"node_type": 2, "node_id": id} for id in inner] * (10000 // GROUPS)
    large = {"order": [{"id": 1}], "more": list(range(500000))}
    yield "GPO/1/link", json.dumps({"id": 1, "target_add": targets, "target_remove": targets})
    yield "KXGroup/1/set", json.dumps({"multiple_data": [{"id": id, "linked_gpo": large} for id in inner[:1]]})
    yield "KXGroup/1/set", json.dumps({"multiple_data": [{"id": id, "desc": 60000 * "x"} for id in inner[:60]]})
    yield "KXGroup/1/set", json.dumps({"node_id": inner[0], "linked_gpo": {"order": [{"id": UNSEEN}]}})
    yield "KXGroup/1/create", '{"multiple_data":[' + "{}," * 1300000 + "{}]}"


def repeat(port, token, method, text, until):
    while time.monotonic() < until:
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=PATIENCE)
        with contextlib.suppress(OSError, http.client.HTTPException, ValueError):
            request(connection, f"/webapi/VELQ.ZEM.{method}", token, text)
        connection.close()


def work_hard(port, token, realm, until):
    """Sends everything that a delegate sends, in a process of its own."""
    os.nice(5)  # leaves the processor to the server, which is measured
    work = [threading.Thread(target=repeat, args=(port, token, *what, until)) for what in requests_of(realm)
            for _ in range(3)]
    work += [threading.Thread(target=attack, args=(port, token, pieces, 100, 0.1, until))
             for pieces in (slow_bodies, unread_answers)]
    for thread in work:
        thread.start()
    for thread in work:
        thread.join()


def measure(store, server, admin, until):
    """Returns the longest time, in seconds, that an administrator waited for anything."""
    worst = collections.Counter()

    def time_of(what, work):
        start = time.monotonic()
        outcome = work()
        worst[what] = max(worst[what], time.monotonic() - start)
        return outcome

    def send(path, body=None):
        connection = server.connect()
        try:
            return request(connection, path, admin, body, "GET" if body is None else "POST")
        finally:
            connection.close()
    for number in itertools.count():
        if time.monotonic() > until:
            break
        store.token("leaver")
        group = json.dumps({"id": 0, "parent_id": 0, "name": f"n{number}"})
        time_of("revoke", lambda: store.run("revoke", "leaver"))
        answers = [time_of("health", lambda: send("/health")),
                   time_of("create", lambda: send("/webapi/VELQ.ZEM.KXGroup/1/create", group)),
                   time_of("tree", lambda: send("/webapi/VELQ.ZEM.Tree/1/get"))]
        refused = [answer for status, answer in answers if status != 200 or not answer["success"]]
        if refused:
            raise RuntimeError(f"the administrator was refused: {str(refused)[:500]}")
    print(f"{number} rounds; worst:", ", ".join(f"{what} {1000 * seconds:.0f} ms" for what, seconds in worst.items()))
    return max(worst.values())


def withstand(store, options):
    """Returns what went wrong."""
    path = store.folder / "fleet.json"
    path.write_text(json.dumps(make_fleet()), encoding="utf-8")
    store.run("apply", str(path))
    admin, *tokens = [store.token(name) for name in ["admin", *(f"delegate {id}" for id in range(1, DELEGATES + 1))]]
    server = Server(store)
    slack = max_memory(server) / MAX_MEMORY_MB  # more than 1 under a sanitizer
    until = time.monotonic() + options.seconds
    workers = [multiprocessing.Process(target=work_hard, args=(server.port, token, realm, until + 10), daemon=True)
               for realm, token in enumerate(tokens, 1)]
    try:
        for worker in workers:
            worker.start()
        longest = measure(store, server, admin, until)
        memory = peak_memory(server)
        start = time.monotonic()
        server.stop()
        stopped = time.monotonic() - start
    finally:
        for worker in workers:
            worker.kill()
        server.kill()
    print(f"peak memory {memory:.0f} MB, stopped after {stopped:.1f} s")
    limits = [("longest wait, s", longest, MAX_SECONDS), ("peak memory, MB", memory, 2 * MAX_MEMORY_MB),
              ("end, s", stopped, MAX_STOP)]
    return [f"{what}: {value:.1f}, at most {limit}" for what, value, limit in limits if value > slack * limit]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--seconds", type=float, default=60)
    parser.add_argument("--database", choices=["sqlite", "postgresql"], default="sqlite")
    options = parser.parse_args()
    limit = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (limit[1], limit[1]))
    with tempfile.TemporaryDirectory(prefix="zem-") as folder, database(options.database) as url:
        faults = withstand(Store(options.build, pathlib.Path(folder), url), options)
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())

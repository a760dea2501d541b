#!/usr/bin/env python3
"""Attacks the server over loopback in a dozen ways while a well-behaved client measures its own waiting times. Then fills
the disk, makes the store read-only, and searches logs and files for tokens.

usage: tools/hostile_clients.py BUILD_DIR [--seconds 60]
"""
import argparse
import collections
import contextlib
import gzip
import json
import multiprocessing
import os
import pathlib
import random
import re
import resource
import socket
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True  # no cache beside the sources
from crash_test import find_faults  # noqa: E402
from zemhost import SKIPPED, Server, Store, call, request, send  # noqa: E402

MEMORY_MIB = 192  # for the requests
MAX_MEMORY_MB = 512  # with a head of 32 KiB for each of 8192 connections
SLOW_SECONDS = 45  # until the server ends a request or reader that is too slow: at most 30, and a second or two
MAX_SECONDS = 5.0  # for a request of the well-behaved client
MAX_RELEASE = 20.0  # seconds until the connections of the attacks are gone
BLOCK = b" " * 65536


def head(token, *lines, path="/webapi/VELQ.ZEM.KXGroup/1/create"):
    return "\r\n".join([f"POST {path} HTTP/1.1", "Host: x", f"Authorization: Bearer {token}", *lines, "", ""]).encode()


TREE = "/webapi/VELQ.ZEM.Tree/1/get"


# Attacks: generators of the pieces to send on a connection, which closes when its generator ends.


def slow_heads(_, token):
    for byte in head(token, "Content-Length: 0"):
        yield bytes([byte])


def slow_bodies(_, token):
    yield head(token, "Content-Length: 4000000")
    while True:
        yield b" "


def nothing(_, token):
    while True:
        yield b""


def endless_line(_, token):
    yield head(token)[:-4] + b"\r\nX: "
    while True:
        yield BLOCK


def endless_headers(_, token):
    yield head(token)[:-2]
    while True:
        yield b"X: y\r\n" * 1000


def huge_body(_, token):
    yield head(token, "Content-Length: 100000000")
    while True:
        yield BLOCK


def endless_chunks(_, token):
    yield head(token, "Transfer-Encoding: chunked")
    while True:
        yield b"10000\r\n" + BLOCK + b"\r\n"


def unknown_tokens(_, __):
    yield head("0" * 64, "Content-Length: 16000")
    while True:
        yield b" "


def many_bodies(_, token):
    yield head(token, "Content-Length: 4000000")
    for _ in range(60):
        yield BLOCK
    while True:
        yield b""


def compressed(_, token):
    bomb = gzip.compress(bytes(10**7))
    for encoding in ["Content-Encoding: gzip", "Transfer-Encoding: gzip, chunked"]:
        yield head(token, encoding, f"Content-Length: {len(bomb)}") + bomb


def garbage(_, token):
    yield head(token, "Content-Length: 0", path=TREE) * 20
    yield b"GET / HTTP/1.1\r\n\r\n" * 200
    yield random.randbytes(2000) + b"\r\n\r\n"


def half_closed(connection, token):
    yield head(token, "Content-Length: 100", path=TREE)
    connection.shutdown(socket.SHUT_WR)
    for _ in range(20):
        yield b""


def resets(connection, token):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\1\0\0\0\0\0\0\0")
    yield head(token, "Content-Length: 0", path=TREE)


def unread_answers(_, token):
    while True:
        yield head(token, "Content-Length: 0", path=TREE) * 20


# Each attack with its number of open connections and the seconds between two pieces.
ATTACKS = [(slow_heads, 9000, 0.1), (slow_bodies, 9000, 0.1), (unknown_tokens, 9000, 0.1), (nothing, 4000, 0.1),
           (endless_line, 20, 0.01), (endless_headers, 20, 0.01), (huge_body, 10, 0.01), (endless_chunks, 10, 0.01), (many_bodies, 100, 0.01),
           (compressed, 20, 0.02), (garbage, 20, 0.05), (half_closed, 200, 0.05), (resets, 50, 0.02),
           (unread_answers, 200, 0.1)]


def attack(port, token, pieces, connections, pause, until):
    """Runs in a process of its own."""
    os.nice(5)  # leaves the processor to the server, which is measured
    slots = [None] * connections
    while time.monotonic() < until:
        for i, slot in enumerate(slots):
            try:
                if slot is None:
                    connection = socket.create_connection(("127.0.0.1", port), timeout=1)
                    connection.setblocking(False)
                    slots[i] = slot = connection, pieces(connection, token)
                slot[0].send(next(slot[1]))
            except BlockingIOError:
                pass
            except (OSError, StopIteration):
                if slot is not None:
                    slot[0].close()
                slots[i] = None
            if time.monotonic() >= until:
                break
        time.sleep(pause)


def measure(server, token, until):
    """Returns the milliseconds that requests took, one after the other, each on a new connection."""
    times = []
    while time.monotonic() < until:
        start = time.monotonic()
        connection = server.connect()
        status, answer = call(connection, token, "Tree get", {})
        connection.close()
        times.append(1000 * (time.monotonic() - start))
        if status != 200 or not answer["success"] or times[-1] > 1000 * MAX_SECONDS:
            raise RuntimeError(f"the well-behaved client got {status} {str(answer)[:200]} after {times[-1]:.0f} ms")
        time.sleep(0.005)
    return times


def peak_memory(server):
    status = pathlib.Path(f"/proc/{server.process.pid}/status").read_text()
    return int(status.split("VmHWM:")[1].split()[0]) / 1024


def max_memory(server):
    """Returns the limit in MB, which is higher under a sanitizer because that holds back released memory."""
    maps = pathlib.Path(f"/proc/{server.process.pid}/maps").read_text()
    return MAX_MEMORY_MB * (4 if "san.so" in maps else 1)


def descriptors(server):
    return len(os.listdir(f"/proc/{server.process.pid}/fd"))


def sockets(server):
    """Returns the number of open sockets. Files do not count: a health probe opens some."""
    count = 0
    for descriptor in pathlib.Path(f"/proc/{server.process.pid}/fd").iterdir():
        with contextlib.suppress(FileNotFoundError):  # closed meanwhile
            count += os.readlink(descriptor).startswith("socket:")
    return count


def show(what, times, server):
    print(f"{what:16} {len(times):5} requests, median {statistics.median(times):6.1f} ms, worst {max(times):7.1f} ms; "
          f"{descriptors(server):5} descriptors, peak memory {peak_memory(server):4.0f} MB", flush=True)


def withstand(server, token, seconds):
    """Runs every attack in turn, each for its share of the time."""
    share = seconds / (len(ATTACKS) + 1)
    show("(none)", measure(server, token, time.monotonic() + share), server)
    for pieces, connections, pause in ATTACKS:
        until = time.monotonic() + share
        attacker = multiprocessing.Process(target=attack,
                                           args=(server.port, token, pieces, connections, pause, until))
        attacker.start()
        try:
            show(pieces.__name__, measure(server, token, until), server)
        finally:
            attacker.join(timeout=10)
            attacker.kill()


def large_bodies():
    """Yields bodies that become many values, with the code of the answer."""
    record = {"parent_id": 1, "desc": "x" * 60, "linked_gpo": {"order": [{"id": 4}, {"id": 1}]},
              "delegate": [{"ugid": 1001, "user_type": 2}]}
    yield 413, '{"multiple_data":[' + ",".join(["{}"] * 1_300_000) + "]}"
    yield 413, '{"multiple_data":[' + ",".join(["{}"] * 160_000) + "]}"
    yield 117, json.dumps({"multiple_data": [record] * 20_000})  # the first one has no name


def connect_slowly(server, data):
    connection = socket.socket()
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
    connection.connect(("127.0.0.1", server.port))
    connection.sendall(data)
    connection.setblocking(False)
    return connection


def is_open(connection, sent):
    """Sends these bytes, or reads a little of the answer, and returns whether the connection is still open."""
    try:
        return connection.send(sent) > 0 if sent else connection.recv(400) != b""
    except BlockingIOError:
        return True
    except OSError:
        return False


def bound_memory(store_in, build):
    """Sends bodies of many values, reads many large answers hardly at all, and sends and reads too slowly."""
    folder = store_in / "large"
    folder.mkdir()
    store = Store(build, folder)
    store.fill()
    large, small = [store.token(name) for name in ["admin", "m.okafor"]]
    server = Server(store, "--memory", str(MEMORY_MIB), "--idle-timeout", "60")
    client = server.connect()
    try:
        for code, body in large_bodies():
            answer = request(client, "/webapi/VELQ.ZEM.KXGroup/1/create", large, body)[1]
            if answer["error"]["code"] != code:
                raise RuntimeError(f"a body of {len(body)} bytes: {answer}")
        for i in range(150):
            call(client, large, "KXGroup create", {"id": 0, "parent_id": 1, "name": f"n{i}", "desc": "x" * 60000})
        tree = head(large, "Content-Length: 9", path=TREE)
        body = head(large, "Content-Length: 900", path=TREE)
        slow = {connect_slowly(server, body): b" ", connect_slowly(server, tree + b'{"n":100}'): b""}
        readers = [connect_slowly(server, tree + b'{"n":%d}' % n) for n in range(101, 160)]
        worst = 0
        start = time.monotonic()
        while slow and time.monotonic() < start + SLOW_SECONDS:
            slow = {connection: sent for connection, sent in slow.items() if is_open(connection, sent)}
            asked = time.monotonic()
            status, _ = call(client, small, "KXGroup set", {"node_id": 3, "desc": str(asked)})
            worst = max(worst, time.monotonic() - asked)
            if status != 200 or worst > MAX_SECONDS:
                raise RuntimeError(f"beside slow readers: answered {status} after {worst:.1f} s")
            time.sleep(0.5)
        print(f"{len(readers)} readers of 9 MB each, slow ones cut off after {time.monotonic() - start:.0f} s; "
              f"others waited up to {1000 * worst:.0f} ms, peak memory {peak_memory(server):.0f} MB")
        ended = {reason: metrics(server, large)[f'zemhost_connections_ended_total{{reason="{reason}"}}']
                 for reason in ("limit", "slow", "memory")}
        print(f"connections that the server ended: {ended}")
        if ended["limit"] or ended["slow"] < 2 or not ended["memory"]:
            raise RuntimeError("the connections that were ended are not counted")
        if slow or peak_memory(server) > max_memory(server):
            raise RuntimeError(f"{len(slow)} slow connections are left, {peak_memory(server):.0f} MB of memory")
    finally:
        client.close()
        server.stop()


def await_release(server, before):
    start = time.monotonic()
    while sockets(server) > before:
        if time.monotonic() > start + MAX_RELEASE:
            raise RuntimeError(f"{sockets(server) - before} connections are still open")
        time.sleep(0.1)
    print(f"connections released after {time.monotonic() - start:.1f} s")


def status_of(server, data):
    """Returns the HTTP status of the answer to these bytes, or 0 when the connection closes without one."""
    with socket.create_connection(("127.0.0.1", server.port), timeout=20) as connection:
        connection.sendall(data)
        answer = connection.recv(65536)
    return int(answer.split()[1]) if answer.startswith(b"HTTP/1.") else 0


def answers_to(server, data):
    """Returns all that the server sends until it closes the connection."""
    with socket.create_connection(("127.0.0.1", server.port), timeout=20) as connection:
        connection.sendall(data)
        return b"".join(iter(lambda: connection.recv(65536), b""))


def refuse_odd_requests(server, token):
    good = head(token, "Content-Length: 0", path=TREE)
    secret = token.encode()
    refused = [400, 401, 404, 413]
    either = [200, *refused]  # the library may end a text at its first NUL
    requests = [
        ("no fault", [200], good),
        ("SQL as token", [401], head("' OR '1'='1' --".ljust(64), "Content-Length: 0", path=TREE)),
        ("NUL in the path", refused, good.replace(b"Tree", b"Tr\0ee")),
        ("NUL after the path", either, good.replace(b"/get", b"/get\0x")),
        ("bytes in the path", refused, good.replace(b"/get", b"/get\xff\xc0\x9b")),
        ("NUL in the token", refused, good.replace(secret, secret[:63] + b"\0")),
        ("NUL after the token", either, good.replace(secret, secret + b"\0x")),
        ("bytes in the token", refused, good.replace(secret, secret[:62] + b"\xc3\xa9")),
        ("NUL in a length", either, good.replace(b"Length: 0", b"Length: 0\0")),
        ("negative length", refused, good.replace(b"Length: 0", b"Length: -1")),
        ("length past 64 bits", refused, good.replace(b"Length: 0", b"Length: 18446744073709551616")),
        ("two lengths", refused, good.replace(b"Length: 0", b"Length: 0\r\nContent-Length: 2")),
        ("length and chunks", refused, good.replace(b"Length: 0", b"Length: 2\r\nTransfer-Encoding: chunked") +
         b"0\r\n\r\n"),
        ("wrong chunks", refused, good.replace(b"Content-Length: 0", b"Transfer-Encoding: chunked") + b"zz\r\n\r\n"),
    ]
    for what, expected, data in requests:
        status = status_of(server, data)
        if status not in expected:
            raise RuntimeError(f"{what}: answered {status}")
    lengths = b"Content-Length: 0"
    ambiguous = [("space before a colon", b"Content-Length : 33"), ("folded line", b"Content-Length: 3\r\n 3"),
                 ("folded into another", b"X: 3\r\n Content-Length: 33"), ("NUL in a value", b"X: a\0\r\n" + lengths),
                 ("bare CR", b"X: a\rContent-Length: 33"), ("bare LF", b"X: a\nContent-Length: 33"),
                 ("sign in a length", b"Content-Length: +33"), ("two hosts", b"Host: y\r\n" + lengths)]
    for what, lines in ambiguous:
        answers = answers_to(server, good.replace(lengths, lines) + b"GET /health HTTP/1.1\r\nHost: x\r\n\r\n")
        if answers.count(b"HTTP/1.1 ") != 1 or not answers.startswith(b"HTTP/1.1 400 "):
            raise RuntimeError(f"{what}: answered {answers}")
    print(f"{len(requests) - 1 + len(ambiguous)} odd requests, none served that should not be")


def fill_disk(store_in, build):
    """Fills a small file system. Changes are refused while it is full, none is lost, and they work again after that."""
    disk = store_in / "disk"
    disk.mkdir()
    if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=3m", "none", disk], capture_output=True).returncode != 0:
        print("full disk: not tried, no right to mount")
        return False
    with contextlib.ExitStack() as last:
        last.callback(subprocess.run, ["umount", disk], check=True)
        store = Store(build, disk)
        store.log = store_in / "disk.log"
        store.fill()
        token = store.token("admin")
        server = Server(store)
        last.callback(server.kill)
        connection = server.connect()

        def create(name):
            params = {"id": 0, "parent_id": 1, "name": name, "desc": "x" * 50000}
            return call(connection, token, "KXGroup create", params)

        answers = [create(f"n{i}") for i in range(100)]
        made = {f"n{i}" for i, (_, answer) in enumerate(answers) if answer["success"]}
        tree_status, tree = call(connection, token, "Tree get", {})
        subprocess.run(["mount", "-o", "remount,size=20m", disk], check=True)
        after = create("with room")[1]
        server.stop()
        with sqlite3.connect(store.path) as database:
            faults = find_faults(store)
            stored = {row[0] for row in database.execute("SELECT name FROM ou WHERE name GLOB 'n[0-9]*'")}
        database.close()
        refusals = {(status, answer["error"]["code"]) for status, answer in answers if not answer["success"]}
        if faults or stored != made or len(made) == 100 or not tree["success"] or not after["success"]:
            raise RuntimeError(f"full disk: {faults}, {len(made)} answered, {len(stored)} stored, tree {tree_status}, "
                               f"with room again {after}")
        print(f"full disk: {len(made)} changes stored, {100 - len(made)} refused with {refusals}, then one more stored")
    return True


def forbid_writing(store):
    """Serves a read-only file, which must not change whatever the server answers."""
    store.path.chmod(0o444)
    store.folder.chmod(0o555)
    before = store.path.read_bytes()
    options = {"user": 65534, "group": 65534, "extra_groups": []} if os.geteuid() == 0 else {}
    try:
        server = Server(store, **options)
    except RuntimeError as e:
        outcome = str(e).splitlines()[-1]
        if "zemhost: " not in outcome:
            raise RuntimeError(f"the program could not be run: {outcome}") from e
    else:
        server.stop()
        outcome = "served"
    store.folder.chmod(0o755)
    if store.path.read_bytes() != before:
        raise RuntimeError("the read-only file was changed")
    print(f"read-only file unchanged: {outcome}")


def metrics(server, token):
    """Returns the value of each sample by its name with its labels."""
    with contextlib.closing(server.connect()) as connection:
        send(connection, "/metrics", token, method="GET")
        text = connection.getresponse().read().decode()
    return {name: int(float(value)) for name, value in re.findall(r"^([^#\n].*) (\S+)$", text, re.M)}


def compare_with_log(server, store, token):
    """Compares the requests that the server has counted with the lines of its log, all paths and unknown methods as one."""
    counted = collections.Counter()
    for name, count in metrics(server, token).items():
        if labels := re.fullmatch(r'zemhost_requests_total{api="(.*)",code="(.*)",method="(.*)"}', name):
            api, code, method = labels.groups()
            counted[(api, method, code) if method else code] += count
    logged, limit = collections.Counter(), time.monotonic() + 10
    while counted != logged and time.monotonic() < limit:  # a thread writes the log
        time.sleep(0.2)
        log = store.log.read_text(encoding="utf-8")
        logged = collections.Counter(
            code if method == "-" or code == "404" else (api, method, code) for api, method, code in
            re.findall(r"^\S+ (?!change:|module:|zemhost:)\S+ (?!/metrics )(\S+) (\S+) (\S+) \d+$", log, re.M))
    if counted != logged and "lines were dropped" not in log:
        raise RuntimeError(f"counted but not logged: {counted - logged}, logged but not counted: {logged - counted}")
    print(f"{counted.total()} requests counted as in the log: {dict(counted)}")


def find_tokens(server, store, tokens):
    process = pathlib.Path(f"/proc/{server.process.pid}")
    places = [store.log, *store.folder.glob(store.path.name + "*"), process / "cmdline", process / "environ"]
    found = [str(place) for place in places for token in tokens if token.encode() in place.read_bytes()]
    if found:
        raise RuntimeError(f"tokens found in {found}")
    store.log.read_text(encoding="utf-8")  # fails when a client could put other bytes into it
    print(f"no token in {len(places)} places")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--seconds", type=float, default=60)
    options = parser.parse_args()
    limit = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (limit[1], limit[1]))
    with tempfile.TemporaryDirectory(prefix="zem-") as folder:
        store = Store(options.build, folder)
        store.fill()
        tokens = [store.token(name) for name in ["m.okafor", "admin"]]
        server = Server(store)
        try:
            measure(server, tokens[-1], time.monotonic() + 0.2)
            before = sockets(server)
            withstand(server, tokens[-1], options.seconds)
            await_release(server, before)
            refuse_odd_requests(server, tokens[-1])
            compare_with_log(server, store, tokens[-1])
            find_tokens(server, store, tokens)
            if peak_memory(server) > max_memory(server):
                raise RuntimeError(f"{peak_memory(server):.0f} MB of memory")
        finally:
            server.stop()
        bound_memory(store.folder, options.build)
        has_filled = fill_disk(store.folder, options.build)
        forbid_writing(store)
    return 0 if has_filled else SKIPPED


if __name__ == "__main__":
    sys.exit(main())

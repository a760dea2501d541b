#!/usr/bin/env python3
"""Compares PostgreSQL with SQLite: times the same operations on large fleets in both, alternately in one run.

usage: tools/with_postgres.py bench/databases.py BUILD_DIR [--rounds 3] [--only TEXT]

Prints a table of medians in milliseconds. PostgreSQL runs with default settings, on the same disk as the SQLite file.
"""
import argparse
import contextlib
import http.client
import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
sys.dont_write_bytecode = True  # no cache beside the sources
from zemhost import Server, Store, database, psql, send  # noqa: E402

ADMIN = {"uid": 1, "name": "admin", "admin": True}
CHAINS, LENGTH, POLICIES = 500, 126, 100_000
DELEGATE_OF_ONE = {"delegate": [{"ugid": 2, "user_type": 2}]}


class Database(Store):
    """A store that can be emptied and loaded again, with a server on it."""

    def __init__(self, build, folder, url):
        folder.mkdir()
        super().__init__(build, folder, url)
        self.server = None
        self.file = self.folder / "fleet.json"

    def empty(self):
        if self.is_sqlite:
            for suffix in ["", "-wal", "-shm"]:
                self.path.with_name(self.path.name + suffix).unlink(missing_ok=True)
        else:
            schema = psql(self.url, "SELECT current_schema()")
            psql(self.url, "SET client_min_messages = error", f"DROP SCHEMA {schema} CASCADE", f"CREATE SCHEMA {schema}")

    def load(self):
        self.empty()
        self.run("apply", self.file)

    def serve(self):
        self.server = Server(self, "--keep-answers", "0")
        self.tokens = {account: self.token(account) for account in ["admin", "ann"]}

    def call(self, account, method, params):
        """Sends a request but does not parse the answer, which can take longer than the request."""
        path = f"/webapi/VELQ.ZEM.{method.replace(' ', '/1/')}"
        with contextlib.closing(http.client.HTTPConnection("127.0.0.1", self.server.port, timeout=600)) as connection:
            send(connection, path, self.tokens[account], json.dumps(params))
            answer = connection.getresponse().read()
        if not answer.startswith(b'{"success":true'):
            raise RuntimeError(f"{method}: {answer[:200]}")

    def stop(self):
        if self.server is not None:
            self.server.stop()
            self.server = None


# --- The fleets

def fleet_of(groups, policies=0, **more):
    return {"accounts": [ADMIN, {"uid": 2, "name": "ann", "admin": False}], "groups": groups,
            "policies": [{"id": i, "parent_id": 0, "name": f"policy {i}", "desc": "what it does",
                          "setting": {"version": 1}} for i in range(1, policies + 1)], **more}


def chains():
    """Groups in long chains; the first chain is delegated to ann."""
    groups = [{"id": i, "parent_id": i - 1 if i % LENGTH != 1 else 0, "name": f"group {i}"}
              for i in range(1, CHAINS * LENGTH + 1)]
    groups[0].update(DELEGATE_OF_ONE)
    return fleet_of(groups, POLICIES)


def families():
    """Three parents with 100,000 groups each."""
    return fleet_of([{"id": i, "parent_id": 0 if i <= 3 else i % 3 + 1, "name": f"group {i}"}
                     for i in range(1, 300_004)])


def delegations():
    """100 delegates for each of 1,000 groups."""
    accounts = [ADMIN] + [{"uid": i, "name": f"account {i}", "admin": False} for i in range(2, 102)]
    delegates = [{"ugid": i, "user_type": 2} for i in range(2, 102)]
    return {**fleet_of([{"id": i, "parent_id": 0, "name": f"group {i}", "delegate": delegates}
                        for i in range(1, 1001)]), "accounts": accounts}


def nodes(count):
    """As many servers as groups, twenty groups below each; five links and a delegate for each group."""
    groups = [{"id": i, "parent_id": i // 21, "name": f"group {i}", **DELEGATE_OF_ONE,
               "linked_gpo": {"order": [{"id": (i * 7 + link) % 1000 + 1} for link in range(5)]}}
              for i in range(1, count // 2 + 1)]
    servers = [{"id": group["id"], "parent_id": group["id"], "name": f"server {group['id']}", "address": "192.0.2.1"}
               for group in groups]
    return fleet_of(groups, 1000, servers=servers)


# --- The rows. Where an earlier round would influence a later one, each round uses another chain or family.

def group_of(round_number, level):
    return (2 * round_number + 1) * LENGTH + level


def move(store, round_number):
    target = group_of(round_number, 63) + LENGTH
    store.call("admin", "KXGroup set", {"node_id": group_of(round_number, 64), "parent_id": target})


def links(store, round_number):
    order = [{"id": i} for i in range(1, POLICIES + 1)]
    store.call("admin", "KXGroup set", {"node_id": group_of(round_number, 1), "linked_gpo": {"order": order}})


def describe(store, round_number):
    store.call("admin", "KXGroup set", {"node_id": group_of(0, 1), "desc": f"changed {round_number}"})


def unlink(store, round_number):
    store.run("link", "remove", "group", str(group_of(0, 1)), str(POLICIES // 2 + round_number))


def creates(store, round_number):
    records = [{"parent_id": group_of(round_number, 2), "name": f"new {i}"} for i in range(5000)]
    store.call("admin", "KXGroup create", {"multiple_data": records})


def delete(store, round_number):
    store.call("admin", "KXGroup delete", {"node_id": round_number % 3 + 1})


def tree(account):
    return lambda store, _: store.call(account, "Tree get", {})


# The fleet to load, the name of the row for loading it, and the operations to measure then.
STAGES = [
    (chains, "load 63,000 groups in chains of 126, 100,000 policies", {
        "move 63 levels below another's 63rd": move,
        "tree of a delegated account that sees one chain": tree("ann"),
        "set 100,000 links on one group": links,
        "change the description of that group": describe,
        "remove one link of it from the command line": unlink,
        "one request of 5,000 creates": creates}),
    (families, "load 300,000 groups", {"delete a parent with 100,000 groups": delete}),
    (delegations, "load 100,000 delegations", {}),
    *[(lambda count=count: nodes(count), f"load {count:,} nodes", {f"tree of {count:,} nodes": tree("admin")})
      for count in (1000, 10_000, 100_000)],
]


def measure(name, stores, rounds, work):
    """Times the work on each store in turn, in more rounds if it is quick, and prints the medians."""
    times = [[] for _ in stores]
    round_number = 0
    while round_number < rounds or (times[-1][0] < 100 and round_number < 10 * rounds):
        for store, taken in zip(stores, times):
            start = time.monotonic()
            work(store, round_number)
            taken.append((time.monotonic() - start) * 1000)
        round_number += 1
    medians = [statistics.median(taken) for taken in times]
    print(f"| {name} | {medians[0]:.1f} | {medians[1]:.1f} | {medians[1] / medians[0]:.1f} |", flush=True)


def run_stage(stores, options, make_fleet, load_name, rows):
    """Measures the wanted rows of one fleet; loads it once if loading itself is not measured."""
    wanted = {name: work for name, work in rows.items() if options.only in name}
    is_load_wanted = options.only in load_name
    if not wanted and not is_load_wanted:
        return
    text = json.dumps(make_fleet())
    for store in stores:
        store.file.write_text(text, encoding="utf-8")
    if is_load_wanted:
        measure(load_name, stores, options.rounds, lambda store, _: store.load())
    for store in stores if wanted else []:
        if not is_load_wanted:
            store.load()
        store.serve()
    for name, work in wanted.items():
        measure(name, stores, options.rounds, work)
    for store in stores:
        store.stop()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--rounds", type=int, default=3, help="of slow operations; at most 3, because the delete has only three parents")
    parser.add_argument("--only", default="", metavar="TEXT", help="only rows whose names contain this")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder, database("postgresql") as url:
        stores = [Database(options.build, pathlib.Path(folder) / kind, address) for kind, address in
                     [("sqlite", None), ("postgresql", url)]]
        print("| milliseconds | SQLite | PostgreSQL | ratio |\n|---|---|---|---|")
        try:
            for stage in STAGES:
                run_stage(stores, options, *stage)
        finally:
            for each in stores:
                each.stop()


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Kills two servers of one store at random moments while eight accounts change groups. Checks each time that the
database is intact, that the fleet is valid, that the store contains every change that was answered with success, that
the history has one row for each group that a change in the store changed and no other, and that these rows lead from
the groups before to those after.

usage: tools/crash_test.py BUILD_DIR [--rounds 50] [--seed N] [--database postgresql]
"""
import argparse
import http.client
import json
import random
import shutil
import sqlite3
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True  # no cache beside the sources
from zemhost import Server, Store, call, database  # noqa: E402

WRITERS = 8  # accounts, half of them at each server
POLICIES = range(1, 9)  # those of the sample fleet

# Each query returns a row for each fault. The first two check SQLite's file.
FAULTS = {
    "database": "SELECT integrity_check FROM pragma_integrity_check WHERE integrity_check <> 'ok'",
    "no such parent": "SELECT * FROM pragma_foreign_key_check",
    "not below the root": "WITH RECURSIVE below (id) AS (SELECT id FROM ou WHERE id = 0 UNION SELECT o.id FROM ou o"
                          " JOIN below b ON o.parent_id = b.id)"
                          " SELECT id, name FROM ou WHERE id NOT IN (SELECT id FROM below)",
    "siblings of one name": "SELECT parent_id, name FROM ou WHERE id <> 0 GROUP BY parent_id, name HAVING COUNT(*) > 1",
    "delegate of no group": "SELECT * FROM delegate WHERE node_type = 2 AND node_id NOT IN (SELECT id FROM ou)",
}
SESSIONS = ("SELECT pid FROM pg_stat_activity WHERE pid <> pg_backend_pid()"
            " AND application_name = current_setting('application_name')")
MEMBERS = ["parent_id", "name", "desc", "linked_gpo"]
NO_GROUP = (0, "", "", [])
CUT = object()  # a value that the history does not hold as a whole
LINKS = "SELECT linked_gpo FROM ou UNION ALL SELECT linked_gpo FROM kx"


def links_in(text):
    """Returns the policies that a stored text links."""
    return [link["id"] for link in json.loads(text or "{}").get("order", [])]


def find_faults(store):
    """Returns the faults of the database as texts."""
    try:
        faults = [f"{what}: {row}" for what, query in list(FAULTS.items())[0 if store.is_sqlite else 2:]
                  for row in store.rows(query)]
        policies = set(store.rows("SELECT id FROM gpo"))
        return faults + [f"link to no policy: {links}" for links, in store.rows(LINKS)
                         if not policies.issuperset((id,) for id in links_in(links))]
    except sqlite3.DatabaseError as e:
        return [str(e)]


def changes_since(store, when):
    """Returns the changes of the history since a time, the oldest first."""
    since = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(when))
    return [json.loads(line) for line in store.run("history", "--json", "--since", since).splitlines()][::-1]


def value_of(member, side):
    """Returns a member's value before or after a change."""
    value = member.get(side, NO_GROUP[MEMBERS.index(member["member"])])
    if member["member"] == "linked_gpo" and isinstance(value, str):
        return [int(id) for id in value.split(",") if id]
    return CUT if member.get("cut") else value


def is_same(one, other):
    return CUT in (one, other) or one == other


def below(groups, top):
    """Returns the group and all its descendants."""
    found = {top}
    while True:
        more = {id for id, group in groups.items() if group[0] in found} - found
        if not more:
            return found
        found |= more


class Writer(threading.Thread):
    """Changes groups below one of its own until the server is gone, and keeps what they must look like.

    groups: by identifier, (parent, name, desc, linked policies), as the answers said. pending: the steps of the request
    that has no answer yet, each from the groups before it to those after it; ids gives those of new groups.
    """

    def __init__(self, home, groups, server, account, token, seed):
        super().__init__()
        self.home, self.groups, self.server, self.account, self.token = home, groups, server, account, token
        self.start_groups = groups
        self.random = random.Random(seed)
        self.pending, self.answered, self.changed, self.refused = [], 0, 0, []

    def run(self):
        connection = self.server.connect()
        while True:
            method, params, steps = self.choose()
            self.pending = steps
            try:
                status, answer = call(connection, self.token, "KXGroup " + method, params)
            except (OSError, http.client.HTTPException, ValueError):
                return
            if status != 200 or not answer["success"]:
                self.refused.append(f"{method} {params}: {status} {answer}")
                return
            new_ids = answer["data"]["ids"] if method == "create" else []
            self.adopt(list(self.states(new_ids)))
            self.pending = []
            self.answered += 1

    def states(self, new_ids):
        """Returns the groups before the pending request and after each of its steps."""
        groups, ids = self.groups, iter(new_ids)
        yield groups
        for step in self.pending:
            groups = step(groups, ids)
            yield groups

    def adopt(self, states):
        """Takes the last of the states and counts the groups that changed on the way."""
        self.changed += sum(before.get(id) != after.get(id) for before, after in zip(states, states[1:])
                            for id in before.keys() | after.keys())
        self.groups = states[-1]

    def choose(self):
        """Returns a request that must succeed: its method, parameters and steps."""
        others = [id for id in self.groups if id != self.home]
        kind = self.random.choice(["create", "set", "set", "move", "delete"])
        if kind == "create" or len(others) < 3:
            return self.create()
        target = self.random.choice(others)
        if kind == "delete" and len(others) > 15:
            gone = below(self.groups, target)
            return "delete", {"node_id": target}, [lambda groups, _: {id: group for id, group in groups.items()
                                                                      if id not in gone}]
        parent, name, _, links = self.groups[target]
        if kind == "move":
            parent = self.random.choice([id for id in self.groups if id not in below(self.groups, target)])
        else:
            links = self.random.sample(POLICIES, self.random.randint(0, 3))
        # Long texts take many pages, and some time to write.
        desc = self.random.choice(["", "'; DELETE FROM ou; --", "\u20ac" * self.random.randint(1, 20000)])
        params = {"node_id": target, "parent_id": parent, "desc": desc,
                  "linked_gpo": {"order": [{"id": id} for id in links]}}
        return "set", params, [lambda groups, _: {**groups, target: (parent, name, desc, links)}]

    def create(self):
        parent = self.random.choice(list(self.groups))
        names = [f"{self.random.getrandbits(64):x}" for _ in range(self.random.randint(1, 3))]
        records = [{"name": name, "parent_id": parent} for name in names]
        return "create", {"multiple_data": records}, [
            lambda groups, ids, name=name: {**groups, next(ids, None): (parent, name, "", [])} for name in names]

    def check(self, stored):
        """Adopts the stored state. Returns its faults and how many steps of the last request it contains."""
        states = list(self.states(sorted(stored.keys() - self.groups.keys())))
        if stored in states:
            steps = states.index(stored)
            self.adopt(states[:steps + 1])
            return None, steps
        return f"below {self.home}: stored {stored}\nanswered {self.groups}\nand {len(self.pending)} steps more", 0

    def replay(self, changes):
        """Makes the account's changes of the history on the groups that were there at the start. Returns the faults."""
        if len(changes) != self.changed:
            return [f"{self.account}: {self.changed} groups changed, the history has {len(changes)}: {changes}"]
        groups = dict(self.start_groups)
        for change in changes:
            id, is_new = change["id"], change["id"] not in groups
            group = dict(zip(MEMBERS, groups.pop(id, NO_GROUP)))
            if is_new != (change["action"] == "created"):
                return [f"{self.account}: no change of {group}: {change}"]
            for member in change["members"]:
                if not is_same(group[member["member"]], value_of(member, "before")):
                    return [f"{self.account}: no change of {group}: {change}"]
                group[member["member"]] = value_of(member, "after")
            group["name"] = change["name"]
            if change["action"] != "deleted":
                groups[id] = tuple(group.values())
        if groups.keys() == self.groups.keys() and all(is_same(*pair) for id, values in groups.items()
                                                       for pair in zip(values, self.groups[id])):
            return []
        return [f"{self.account}: the history leads to {groups}\nstored {self.groups}"]


def read_groups(store, home):
    rows = store.rows('SELECT id, parent_id, name, "desc", linked_gpo FROM ou')
    groups = {row[0]: (*row[1:4], links_in(row[4])) for row in rows}
    return {id: groups[id] for id in below(groups, home)}


def take_copy(store, folder):
    """The store to look at: a copy of its file, so that the next server finds what the killed one left, or the database
    itself, once it has noticed that the server is gone."""
    if store.is_sqlite:
        for path in store.folder.glob(store.path.name + "*"):
            if not path.name.endswith("-shm"):
                shutil.copy(path, folder)
        return Store(store.program.parent, folder)
    end = time.monotonic() + 60
    while store.rows(SESSIONS) and time.monotonic() < end:
        time.sleep(0.01)
    return store


def play_round(store, tokens, homes, chance, totals):
    """Serves, kills the servers and checks the store. Returns the faults."""
    servers = [Server(store), Server(store)]
    writers = [Writer(home, groups, servers[i % 2], f"writer {i}", tokens[i], chance.random())
               for i, (home, groups) in enumerate(homes.items())]
    start = time.time()
    known = len(changes_since(store, start))
    for writer in writers:
        writer.start()
    time.sleep(chance.uniform(0.05, 0.8))
    for server in servers:
        server.kill()
    for writer in writers:
        writer.join()
    with tempfile.TemporaryDirectory() as folder:
        copy = take_copy(store, folder)
        faults = find_faults(copy)
        for writer in [] if faults else writers:
            fault, steps = writer.check(read_groups(copy, writer.home))
            faults += writer.refused + ([fault] if fault else [])
            homes[writer.home] = writer.groups
            totals["answered"] += writer.answered
            totals["cut"] += bool(writer.pending)
            totals["kept"] += steps > 0
            totals["changed"] += writer.changed
        changes = [] if faults else changes_since(copy, start)[known:]
        for writer in [] if faults else writers:
            faults += writer.replay([change for change in changes if change.get("account") == writer.account])
        faults += [f"made by nobody: {change}" for change in changes
                   if change.get("account") not in {writer.account for writer in writers}]
        totals["recorded"] += len(changes)
    return faults


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--rounds", type=int, default=50)
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(10**6))
    parser.add_argument("--database", choices=["sqlite", "postgresql"], default="sqlite")
    options = parser.parse_args()
    chance = random.Random(options.seed)
    print(f"seed {options.seed}")
    totals = dict.fromkeys(["answered", "cut", "kept", "changed", "recorded"], 0)
    start = time.monotonic()
    with tempfile.TemporaryDirectory() as folder, database(options.database) as url:
        store = Store(options.build, folder, url)
        store.fill()
        accounts = [{"uid": 5000 + i, "name": f"writer {i}", "admin": True} for i in range(WRITERS)]
        (store.folder / "accounts.json").write_text(json.dumps({"accounts": accounts}))
        store.run("apply", "accounts.json")
        params = json.dumps({"multiple_data": [{"name": f"writer {i}", "parent_id": 1} for i in range(WRITERS)]})
        made = json.loads(store.run("call", "VELQ.ZEM.KXGroup", "create", "--params", params, "--as", "admin"))
        homes = {id: {id: (1, f"writer {i}", "", [])} for i, id in enumerate(made["data"]["ids"])}
        tokens = [store.token(account["name"]) for account in accounts]
        for number in range(options.rounds):
            faults = play_round(store, tokens, homes, chance, totals)
            if faults:
                print(f"round {number + 1}:", *faults, sep="\n")
                return 1
        store.run("tree", "--as", "admin")
    print(f"{options.rounds} kills, {totals['answered']} changes answered and all there, {totals['cut']} cut off, "
          f"{totals['kept']} of these there; {totals['changed']} groups "
          f"changed, {totals['recorded']} changes in the history; {time.monotonic() - start:.0f} s")
    return 0 if totals["answered"] else 1


if __name__ == "__main__":
    sys.exit(main())

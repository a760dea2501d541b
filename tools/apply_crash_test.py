#!/usr/bin/env python3
"""Kills `zemhost apply` at random moments and checks each time that the store contains either the whole old fleet or
the whole new one, and that the history has each change of an apply that was done and none of another.

usage: tools/apply_crash_test.py BUILD_DIR [--rounds 50] [--seed N] [--database postgresql]
"""
import argparse
import json
import random
import re
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True  # no cache beside the sources
from zemhost import Store, database  # noqa: E402

NODES = 1500  # groups, and servers


def make_fleet(chance):
    """Returns a fleet with random parents, so that almost every record differs between two such fleets."""
    order = list(range(1, NODES + 1))
    chance.shuffle(order)
    parents = {id: order[chance.randrange(at // 8, at)] if at else 0 for at, id in enumerate(order)}
    gone = chance.randrange(NODES)
    links = [{"id": id} for id in chance.sample(range(1, 10), 3)]
    nodes = [{"id": id, "parent_id": parents[id], "name": f"{chance.random()}", "linked_gpo": {"order": links},
              "delegate": [{"ugid": 1000 + chance.randrange(9), "user_type": 2}]} for id in order]
    return {"accounts": [{"uid": 1000 + i, "name": f"n{chance.random()}", "admin": True} for i in range(9)],
            "policies": [{"id": id, "parent_id": order[0], "name": "p"} for id in range(1, 10)],
            "groups": nodes, "servers": [node for node in nodes if node["id"] != gone]}


def state(store):
    """Returns the exported fleet without the times and revisions that the store adds."""
    return re.sub(r', "mtime": \d+, "revision": \d+', "", store.run("export"))


def recorded(store):
    """Returns the number of changes in the history."""
    return sum(len(json.loads(changes)) for changes, in store.rows("SELECT changes FROM history"))


def apply_and_kill(store, path, moment):
    """Kills the program after `moment` seconds. Returns None when killed, else whether it ended with status 0."""
    process = subprocess.Popen([store.program, "apply", "--prune", path], cwd=store.folder, env=store.environment,
                               stdout=subprocess.DEVNULL)
    try:
        process.wait(timeout=moment)
    except subprocess.TimeoutExpired:
        process.kill()
    return {0: True, -9: None}.get(process.wait(timeout=60), False)


def play(store, chance, rounds):
    """Returns the faults as texts."""
    paths, states, history = [store.folder / "0.json", store.folder / "1.json"], [], []
    for path in paths:
        path.write_text(json.dumps(make_fleet(chance)), encoding="utf-8")
        start = time.monotonic()
        store.run("apply", "--prune", path)
        duration = time.monotonic() - start
        states.append(state(store))
        history.append(recorded(store))
    changes = history[1] - history[0]  # from one fleet to the other, in either direction
    now, killed, kept = 1, 0, 0
    for number in range(1, rounds + 1):
        ended = apply_and_kill(store, paths[1 - now], chance.uniform(0.2, 1.05) * duration)
        found = state(store)
        is_whole = found in states and (ended is None or found == states[1 - now])
        if ended is False or not is_whole or (store.is_sqlite and store.rows("PRAGMA integrity_check") != [("ok",)]):
            return f"round {number}: ended {ended}, fleet {states.index(found) if found in states else 'of neither'}"
        killed += ended is None
        kept += found != states[now]
        now = states.index(found)
        if recorded(store) != history[1] + kept * changes:
            return f"round {number}: {kept} applies done, {recorded(store) - history[1]} changes in the history"
    print(f"{rounds} applies of {2 * NODES} nodes, {killed} killed, {kept} done, each as a whole and with its {changes}"
          " changes in the history")
    return None if killed else "none was killed"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--rounds", type=int, default=50)
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(10**6))
    parser.add_argument("--database", choices=["sqlite", "postgresql"], default="sqlite")
    options = parser.parse_args()
    print(f"seed {options.seed}")
    with tempfile.TemporaryDirectory() as folder, database(options.database) as url:
        fault = play(Store(options.build, folder, url), random.Random(options.seed), options.rounds)
    if fault:
        print(fault)
    return 1 if fault else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Lets random accounts change groups, servers, links, delegates and tokens of a server, and compares each answer and each
tree with a small model. Then withdraws a right from an account while the account uses it.

usage: tools/model_test.py BUILD_DIR [--steps 2000] [--races 100] [--seed N] [--database postgresql]
"""
import argparse
import collections
import concurrent.futures
import dataclasses
import http.client
import json
import random
import socket
import sys
import tempfile
import threading
import time
import urllib.parse

sys.dont_write_bytecode = True  # no cache beside the sources
from zemhost import Server, Store, call, database, receive, send  # noqa: E402

ADMINS = {1000: "admin", 1001: "deputy"}
RACER = 3000  # whose rights the races take; the steps give it none
USERS = {2000: "ann", 2001: "bob", 2002: "cy", 2003: "dora", 2004: "eve, of servers only"}
NAMES = {**ADMINS, **USERS, RACER: "racer"}
MAX_DEPTH, MAX_NAME = 128, 255
GROUP, SERVER, POLICY = 2, 3, 4  # "node_type"


def ignored(method, params):
    """Returns what the answer lists as ignored: servers have fewer members than groups."""
    records = [params, *params.get("multiple_data", [])] if method == "set_servers" else []
    names = [name for record in records for name in sorted(record) if name in ("desc", "block_inheritance")]
    return {"ignored": list(dict.fromkeys(names))} if names else {}


# --- The model

class Refusal(Exception):
    """code: of the answer. why: for the table of what was tried."""

    def __init__(self, why, code=117):
        super().__init__(why)
        self.why, self.code = why, code


def demand(holds, why, code=117):
    if not holds:
        raise Refusal(why, code)


def is_int(value):
    return type(value) is int and -2**63 <= value < 2**63


@dataclasses.dataclass
class Node:
    """A group, server or policy. fields: members that answers contain unchanged."""
    parent: int
    fields: dict
    links: list = dataclasses.field(default_factory=list)
    delegates: list = dataclasses.field(default_factory=list)
    revision: int = 1

    @property
    def name(self):
        return self.fields["name"]


def wanted_links(value):
    if value is None:
        return []
    demand(isinstance(value, dict), "links are no object")
    links = []
    for entry in value.get("order") or []:
        demand(isinstance(entry, dict), "link is no object")
        id = entry.get("gpo_id") if entry.get("id") is None else entry["id"]
        demand(is_int(id), "link has no integer")
        links.append(id)
    return links


class Model:
    """What the server must hold. Every change counts the node's revision up, except that of its delegates. Groups get the
    next identifier, and one that is gone never comes back."""

    def __init__(self, fleet):
        def nodes(kind, *shown):
            return {record["id"]: Node(record["parent_id"], {key: record[key] for key in ("name", *shown)},
                                       wanted_links(record.get("linked_gpo")),
                                       [delegate["ugid"] for delegate in record.get("delegate", [])])
                    for record in fleet[kind]}
        self.groups = {0: Node(0, {"name": "root", "desc": "", "block_inheritance": 0}, revision=0),
                       **nodes("groups", "desc")}
        for group in self.groups.values():
            group.fields.setdefault("block_inheritance", 0)
        self.servers = nodes("servers", "address")
        self.policies = nodes("policies", "desc", "setting")
        self.last = max(self.groups)
        self.notices = {}  # by kind and identifier of the node: whose change the servers are to fetch

    # What an account may do and see

    def above(self, id):
        """Returns the group and its ancestors, the root last."""
        path = [id]
        while path[-1] != 0:
            path.append(self.groups[path[-1]].parent)
        return path

    def below(self, tops):
        """Returns these groups and all their descendants."""
        children = collections.defaultdict(list)
        for id, group in self.groups.items():
            if id != 0:
                children[group.parent].append(id)
        found = set(tops)
        todo = list(found)
        while todo:
            fresh = [id for id in children[todo.pop()] if id not in found]
            found.update(fresh)
            todo += fresh
        return found

    def manages(self, uid, id):
        return uid in ADMINS or (id in self.groups and any(uid in self.groups[g].delegates for g in self.above(id)))

    def seen_groups(self, uid):
        if uid in ADMINS:
            return set(self.groups)
        return self.below(id for id, group in self.groups.items() if uid in group.delegates)

    def seen_policies(self, uid, seen):
        if uid in ADMINS:
            return set(self.policies)
        linking = [self.groups[id] for id in seen] + [node for node in self.servers.values() if node.parent in seen]
        return ({id for id, policy in self.policies.items() if policy.parent in seen}
                | {id for node in linking for id in node.links})

    # Changes. Each raises Refusal and changes nothing, except that a list's earlier items stay done.

    def create(self, uid, params):
        several = "multiple_data" in params
        if several:
            records = params["multiple_data"]
            demand(isinstance(records, list), "no array")
        else:
            demand(params.keys() >= {"id", "name", "parent_id"}, "parameter missing")
            records = [{**params, "id": params.get("node_id")}]
        ids = [self.create_one(uid, record, several) for record in records]
        return {"ids": ids if several else ids[0]}

    def create_one(self, uid, record, several):
        blank = Node(0, {"name": "", "desc": "", "block_inheritance": 0})
        group = self.laid_over(blank, record, several)
        demand(self.manages(uid, group.parent), "parent not managed", 414)
        demand(group.parent in self.groups, "unknown parent")
        self.check(uid, group, blank, None)
        demand(len(self.above(group.parent)) <= MAX_DEPTH, "too deep")
        self.last += 1
        self.groups[self.last] = group
        self.delegate(self.last, record.get("delegate"), [])
        return self.last

    def set(self, uid, params):
        several = "multiple_data" in params
        records = params["multiple_data"] if several else [{**params, "id": params.get("node_id")}]
        demand(isinstance(records, list), "no array", 101)
        for record in records:
            self.set_one(uid, record, several)

    def set_one(self, uid, record, several):
        demand(isinstance(record, dict) and "id" in record, "no identifier")
        demand(record["id"] is None or is_int(record["id"]), "identifier no integer", 101)
        id = record["id"] or 0  # no identifier: the rights count of the root
        demand(self.manages(uid, id), "not managed", 414)
        demand(id in self.groups, "unknown group")
        demand(record["id"] is not None, "null identifier")
        before = self.groups[id]
        if several and record.get("revision") is not None:
            demand(record["revision"] == before.revision, "another revision")
        group = self.laid_over(before, record, several)
        if group.parent != before.parent:
            self.check_move(uid, id, group.parent)
        self.check(uid, group, before, id)
        group.revision += self.differ(group, before)
        self.groups[id] = group
        self.delegate(id, record.get("delegate"), group.delegates)
        self.notices[GROUP, id] = uid

    def set_servers(self, uid, params):
        several = "multiple_data" in params
        demand(several or "node_id" in params, "parameter missing", 101)
        ids = params.get("node_id")
        records = params["multiple_data"] if several else [
            {**params, "id": id} for id in (ids if isinstance(ids, list) else [ids])]
        for record in records:
            self.set_server(uid, record, several)

    def set_server(self, uid, record, several):
        demand(record["id"] is None or is_int(record["id"]), "identifier no integer", 101)
        before = self.servers.get(record["id"])
        demand(self.manages(uid, before.parent if before else 0), "server not managed", 414)
        demand(before, "unknown server")
        if several and record.get("revision") is not None:
            demand(record["revision"] == before.revision, "another revision")
        server = self.laid_over(before, record, several, ("name", "address"))
        if server.parent != before.parent:
            demand(self.manages(uid, server.parent), "new parent not managed")
            demand(server.parent in self.groups, "unknown parent")
        self.check(uid, server, before, 0)
        server.revision += self.differ(server, before)
        self.servers[record["id"]] = server
        self.notices[SERVER, record["id"]] = uid

    @staticmethod
    def differ(one, other):
        return (one.parent, one.fields, one.links) != (other.parent, other.fields, other.links)

    def delete(self, uid, params):
        demand("node_id" in params, "parameter missing", 101)
        ids = params["node_id"]
        for id in ids if isinstance(ids, list) else [ids]:
            demand(id is None or is_int(id), "identifier no integer", 101)
            demand(id, "root", 101)
            demand(self.manages(uid, id), "not managed", 414)
            demand(id in self.groups, "unknown group")
            gone = self.below([id])
            for node in [*self.servers.values(), *self.policies.values()]:
                if node.parent in gone:
                    node.parent = 0
                    node.revision += 1
            self.groups = {id: group for id, group in self.groups.items() if id not in gone}
            self.notices = {node: uid for node, uid in self.notices.items() if node[0] != GROUP or node[1] not in gone}

    def laid_over(self, before, record, several, members=("name", "desc", "block_inheritance")):
        """Returns a copy of the node with the record's members."""
        demand(isinstance(record, dict), "no object")
        group = dataclasses.replace(before, fields=dict(before.fields))
        for name in members:
            value = record.get(name)
            is_flag = name == "block_inheritance" and type(value) in (bool, int) and value in (0, 1)
            if value is not None:
                demand(is_flag or (name != "block_inheritance" and isinstance(value, str)), name + " of a wrong type")
                group.fields[name] = int(value) if is_flag else value
        if record.get("parent_id") is not None:
            demand(is_int(record["parent_id"]), "parent no integer")
            group.parent = record["parent_id"]
        if "linked_gpo" in record:
            links = record["linked_gpo"]
            group.links = wanted_links({"order": links} if isinstance(links, list) and not several else links)
        if "extra_info" in record:
            group.fields.pop("extra_info", None)
            if record["extra_info"] is not None:
                group.fields["extra_info"] = record["extra_info"]
        return group

    def check(self, uid, group, before, id):
        """id: 0 for a node whose siblings may have its name."""
        demand(group.name, "empty name")
        demand(group.name == before.name or group.name.strip(), "blank name")
        demand(len(group.name) <= MAX_NAME, "long name")
        demand(id == 0 or not any(other not in (0, id) and (node.parent, node.name) == (group.parent, group.name)
                                  for other, node in self.groups.items()), "name of a sibling")
        added = set(group.links) - set(before.links)
        demand(added <= self.policies.keys(), "unknown policy")
        demand(added <= self.seen_policies(uid, self.seen_groups(uid)), "policy not seen")
        demand(len(set(group.links)) == len(group.links), "policy twice")

    def check_move(self, uid, id, parent):
        demand(self.manages(uid, parent), "new parent not managed")
        demand(parent in self.groups, "unknown parent")
        demand(id != 0, "root moved")
        moved = self.below([id])
        demand(parent not in moved, "under itself")
        height = max(len(self.above(other)) for other in moved) - len(self.above(id)) + 1
        demand(len(self.above(parent)) - 1 + height <= MAX_DEPTH, "too deep")

    def delegate(self, id, entries, absent):
        if entries is None:
            self.groups[id].delegates = absent
            return
        demand(isinstance(entries, list), "delegates no array")
        uids = []
        for entry in entries:
            demand(isinstance(entry, dict) and entry.get("user_type") == 2, "delegate no account")
            demand(entry.get("ugid") in NAMES, "unknown delegate")
            demand(entry["ugid"] not in uids, "delegate twice")
            uids.append(entry["ugid"])
        self.groups[id].delegates = uids

    def link(self, uid, params):
        demand(is_int(params.get("id")), "policy no integer", 101)
        arrays = [params.get("target_add"), params.get("target_remove")]
        demand(all(isinstance(array or [], list) for array in arrays) and arrays != [None, None], "no targets", 101)
        targets = [(target, array is arrays[0]) for array in arrays for target in array or []]
        for target, _ in targets:
            demand(isinstance(target, dict) and target.get("node_type") in (GROUP, SERVER), "kind without links", 101)
            demand(is_int(target.get("node_id")), "node no integer", 101)
        for target, _ in targets:
            node = self.node_of(target)
            group = target["node_id"] if target["node_type"] == GROUP else node.parent if node else 0
            demand(self.manages(uid, group), "target not managed", 414)
        for target, adds in targets:
            seen = self.seen_policies(uid, self.seen_groups(uid))
            self.change_link(self.node_of(target), params["id"], adds, seen, 117 if uid in ADMINS else 414)
            self.notices[target["node_type"], target["node_id"]] = uid

    def node_of(self, target):
        return (self.groups if target["node_type"] == GROUP else self.servers).get(target["node_id"])

    def change_link(self, node, policy, adds, seen, code=117):
        demand(node is not None, "unknown node")
        before = node.links
        if adds and policy not in node.links:
            demand(policy in self.policies, "unknown policy", code)
            demand(policy in seen, "policy not seen", code)
            node.links = node.links + [policy]
        elif not adds:
            node.links = [id for id in node.links if id != policy]
        node.revision += node.links != before

    # What an account is answered

    def session(self, uid):
        return {"uid": uid, "name": NAMES[uid], "admin": uid in ADMINS, "token": {"label": "", "expires": 0}}

    def accounts(self, uid, wanted):
        if uid not in ADMINS and not any(uid in group.delegates for group in self.groups.values()):
            return None
        found = [(name, id) for id, name in NAMES.items() if wanted.lower() in name or str(id).startswith(wanted)]
        return {"accounts": [{"name": name, "uid": id} for name, id in sorted(found, key=lambda account: (
            str(account[1]) != wanted, account))]}

    def tree(self, uid):
        seen = self.seen_groups(uid)
        groups = {id: self.groups[id] for id in seen - {0}}
        servers = {id: node for id, node in self.servers.items() if node.parent in seen}
        policies = {id: self.policies[id] for id in self.seen_policies(uid, seen)}
        linked = {id for node in [*groups.values(), *servers.values()] for id in node.links}
        below = collections.defaultdict(list)
        for kind, nodes in ((GROUP, groups), (SERVER, servers), (POLICY, policies)):
            for id, node in sorted(nodes.items()):
                below[node.parent if node.parent in groups else None].append((kind, id, node))
        return [self.shown(*item, below, linked) for item in below[None]]

    def shown(self, kind, id, node, below, linked):
        children = [self.shown(*item, below, linked) for item in below[id]] if kind == GROUP else []
        shown = {**node.fields, "node_id": id, "node_type": kind, "parent_id": node.parent, "parent_type": GROUP,
                 "revision": node.revision, "expanded": bool(children), "children": children or None}
        if not children:
            shown["loaded"] = True
        if node.delegates:
            shown["delegate"] = [{"user_type": 2, "name": NAMES[uid], "domainType": "local", "domainName": "",
                                  "ugid": uid} for uid in node.delegates]
        if kind != POLICY:
            policies = [(id, self.policies[id].fields) for id in node.links]
            shown["linked_gpo"] = {"order": [{"gpo_id": id, "gpo_name": policy["name"], "gpo_desc": policy["desc"]}
                                             for id, policy in policies]} if policies else None
        elif id in linked:
            shown["linked"] = True
        return shown


# --- The steps

def delegates(*uids):
    return [{"ugid": uid, "user_type": 2} for uid in uids]


def links(*ids, key="id"):
    return {"order": [{key: id} for id in ids]}


def make_fleet(chance):
    def some(numbers, most):
        return chance.sample(numbers, chance.randint(0, most))
    policies = range(1, 13)
    groups = [{"id": id, "parent_id": chance.randrange(id), "name": f"group {id}", "desc": "",
               "linked_gpo": links(*some(policies, 3)), "delegate": delegates(*some([*USERS][:4], 1))}
              for id in range(1, 21)]
    return {"accounts": [{"uid": uid, "name": name, "admin": uid in ADMINS} for uid, name in NAMES.items()],
            "groups": groups,
            "policies": [{"id": id, "parent_id": chance.randrange(21), "name": f"policy {id}", "desc": f"desc {id}",
                          "setting": {"version": 99, "values": [id]}} for id in policies],
            "servers": [{"id": id, "parent_id": chance.randrange(21), "name": f"server {id}", "address": "192.0.2.1",
                         "linked_gpo": links(*some(policies, 2)), "delegate": delegates(*some([*USERS], 2))}
                        for id in range(1, 41)]}


class Requests:
    """Draws random requests: valid ones, which mostly succeed, and others that break a rule or two."""

    KINDS = {"create": 4, "chain": 0.3, "change": 3, "move": 4, "link": 4, "targets": 4, "servers": 4, "delegate": 4,
             "several": 3}

    def __init__(self, model, chance):
        self.model, self.chance, self.names = model, chance, 0

    def draw(self):
        """(kind, uid, method, parameters)"""
        chance = self.chance
        kinds = {**self.KINDS, "delete": max(len(self.model.groups) - 30, 20) / 10}
        kind = chance.choices(list(kinds), kinds.values())[0]
        is_sound = chance.random() < 0.5
        uid = chance.choice([*ADMINS, *USERS, *USERS])
        mine = [id for id in self.model.seen_groups(uid) if id != 0]
        if len(self.model.groups) < 5:
            kind, uid, mine = "create", 1000, [0]
        elif is_sound and not mine:
            uid, mine = 1000, [id for id in self.model.groups if id != 0]
        target = chance.choice(mine) if is_sound or (mine and chance.random() < 0.6) else self.any_group()
        return kind, uid, *getattr(self, kind)(uid, target, is_sound)

    def any_group(self):
        special = [0, None, 10**6, self.model.last + 1]
        return self.chance.choice(special if self.chance.random() < 0.2 else [*self.model.groups])

    def name(self):
        self.names += 1
        if self.chance.random() < 0.15:
            return self.chance.choice(["a", "A", "a ", "\u00e4", "a\u0308"])
        return f"{self.chance.choice(['n', 'é', '%_', chr(0x1F600)])} {self.names}"

    def managed(self, uid):
        return self.chance.choice([*self.model.seen_groups(uid)] or [0])

    def create(self, uid, target, is_sound):
        record = {"id": 0, "name": self.name(), "parent_id": target}
        for member in self.chance.sample(["links", "delegate", "desc"], self.chance.randint(0, 2)):
            record.update(self.sound(member, uid, None))
        if not is_sound:
            record.update(self.broken(self.chance.choice(["name", "links", "delegate", "parent"]), uid, target))
        if not is_sound and self.chance.random() < 0.1:
            del record[self.chance.choice(["id", "name", "parent_id"])]
        if self.chance.random() < 0.3:
            others = [{"name": self.name(), "parent_id": self.managed(uid)} for _ in range(self.chance.randint(0, 4))]
            return "create", {"multiple_data": others + [{**record, "id": None}]}
        return "create", record

    def chain(self, uid, target, is_sound):
        """Nests groups to the greatest depth, or one level deeper."""
        room = MAX_DEPTH + 1 - len(self.model.above(target)) if target in self.model.groups else 1
        count = max(1, room + (0 if is_sound else 1))
        ids = [target, *range(self.model.last + 1, self.model.last + count)]
        return "create", {"multiple_data": [{"name": self.name(), "parent_id": id} for id in ids]}

    def change(self, uid, target, is_sound):
        return self.set(uid, target, is_sound, self.chance.choice(["name", "desc"]), "name")

    def move(self, uid, target, is_sound):
        return self.set(uid, target, is_sound, "parent", "parent")

    def link(self, uid, target, is_sound):
        return self.set(uid, target, is_sound, "links", "links")

    def targets(self, uid, target, is_sound):
        """Links one policy to several nodes with the neighbour module's method."""
        chance, model = self.chance, self.model
        groups = model.seen_groups(uid)
        seen = sorted(model.seen_policies(uid, groups))
        nodes = [{"node_type": GROUP, "node_id": target}] + [
            {"node_type": SERVER, "node_id": id} for id, node in model.servers.items() if node.parent in groups][:9]
        params = {"id": chance.choice(seen or [1]), "target_add": chance.sample(nodes, chance.randint(0, 1)),
                  "target_remove": chance.choice([chance.sample(nodes, 1), [], None])}
        if not is_sound:
            stranger = {"node_type": SERVER, "node_id": chance.choice([10**6, *model.servers])}
            params.update(chance.choice([
                {"id": chance.choice([*model.policies, 99])}, {"id": str(params["id"])}, {"target_add": [stranger]},
                {"target_add": [*nodes[:1], stranger]}, {"target_remove": nodes + [{"node_type": POLICY, "node_id": 1}]},
                {"target_add": None, "target_remove": None}, {"target_add": [{"node_type": GROUP, "node_id": None}]}]))
        return "link", params

    def servers(self, uid, target, is_sound):
        """Changes servers with the neighbour module's method."""
        chance, servers = self.chance, self.model.servers
        mine = [id for id, node in servers.items() if self.model.manages(uid, node.parent)]
        ids = chance.sample(mine, min(len(mine), chance.randint(0, 3)))
        member = chance.choice(["name", "links", "parent"])
        record = {"address": "192.0.2.7", **self.sound(member, uid, target)}
        if not is_sound:
            record.update(self.broken(member, uid, target))
            ids += chance.choice([[], [10**6], [None], ["1"], [chance.choice([*servers])]])
        if chance.random() < 0.5:
            return "set_servers", {**record, "node_id": ids[0] if len(ids) == 1 else ids}
        records = [{**record, "id": id, "revision": None if ids.count(id) > 1 or id not in servers else
                    servers[id].revision + (not is_sound and chance.random() < 0.2)} for id in ids]
        return "set_servers", {"multiple_data": records}

    def delegate(self, uid, target, is_sound):
        return self.set(uid, target, is_sound, "delegate", "delegate")

    def set(self, uid, target, is_sound, sound, broken):
        record = self.sound(sound, uid, target) if is_sound else self.broken(broken, uid, target)
        odd = not is_sound and self.chance.random() < 0.1
        return "set", {**record, **(self.chance.choice([{}, {"node_id": None}, {"node_id": str(target)}]) if odd
                                    else {"node_id": target})}

    def several(self, uid, target, is_sound):
        """Returns two to four records, of which the last may be invalid."""
        sound = ["name", "desc", "links", "delegate", "parent"]
        ids = [self.managed(uid) for _ in range(self.chance.randint(1, 3))]
        records = [{"id": id, **self.sound(self.chance.choice(sound), uid, id)} for id in ids] + [{"id": target}]
        if is_sound:
            records[-1].update(self.sound(self.chance.choice(sound), uid, target))
            revision = self.model.groups[target].revision + ids.count(target)
            records[-1]["revision"] = self.chance.choice([revision, None])
        else:
            member = self.chance.choice(["revision", "revision", "name", "links", "delegate", "parent"])
            records[-1].update(self.broken(member, uid, target))
        if self.chance.random() < 0.02:
            return "set", {"multiple_data": self.chance.choice([{}, 1, "[]", [5], [{}], []])}
        return "set", {"multiple_data": records}

    def delete(self, uid, target, is_sound):
        if is_sound:  # rather small ones, so that something is left
            pick = min if len(self.model.groups) < 100 else max
            target = pick(self.chance.choices([*self.model.seen_groups(uid) - {0}], k=3),
                          key=lambda id: len(self.model.below([id])))
            return "delete", {"node_id": self.chance.choice([target, [target]])}
        if len(self.model.below([target])) > 20:
            target = 0
        ids = [target, self.chance.choice([0, None, 10**6, "1", target])]
        return "delete", self.chance.choice([{}, {"node_id": 0}, {"node_id": ids}, {"node_id": 10**6},
                                             {"node_id": target}, {"node_id": ids[::-1]}])

    def sound(self, member, uid, target):
        """Returns members that the caller may set on the group."""
        chance = self.chance
        if member == "name":
            return {"name": chance.choice([self.name(), "\u20ac" * 248 + f"{self.names:07}"])}
        if member == "desc":
            return chance.choice([{}, {"desc": "a\n\"\u0431" * 3}, {"block_inheritance": chance.choice([0, 1, True])},
                                  {"extra_info": chance.choice([None, {"a": [1, {}]}, [], "text"])}, {"desc": None}])
        if member == "links":
            seen = sorted(self.model.seen_policies(uid, self.model.seen_groups(uid)))
            ids = chance.sample(seen, min(len(seen), chance.randint(0, 4)))
            return {"linked_gpo": chance.choice([links(*ids), links(*ids, key="gpo_id"), None])}
        if member == "parent":
            own = self.model.below([target])
            return {"parent_id": chance.choice([*self.model.seen_groups(uid) - own] or [None])}
        # Administrators mostly delegate anew what is not the root's; the others give and take among themselves. Who gives
        # a group away changes its links in the same record, of which the servers must still hear.
        keeps = uid in USERS and chance.random() < 0.8
        uids = chance.sample([*USERS][:4], chance.choice([0, 1, 1, 2])) + ([uid] if keeps else [])
        return {**({} if keeps else self.sound("links", uid, target)),
                "delegate": delegates(*dict.fromkeys(uids)) if target != 0 or chance.random() < 0.1 else []}

    def broken(self, member, uid, target):
        """Returns members of which mostly at least one is refused."""
        chance, model = self.chance, self.model
        if member == "name":
            places = {target, model.groups[target].parent if target in model.groups else 0}
            taken = [{"name": node.name} for id, node in model.groups.items() if id != target and node.parent in places]
            return chance.choice([*chance.choices(taken or [{}], k=4), {"name": ""}, {"name": " \u2003"},
                                  {"name": "\u20ac" * 256}, {"name": 5}, {"desc": []}, {"block_inheritance": 2}])
        if member == "parent":
            inner = [*model.below([target])] if target in model.groups else [0]
            deep = max(model.groups, key=lambda id: len(model.above(id)))
            return {"parent_id": chance.choice([target, chance.choice(inner), 10**6, "1", deep, deep,
                                                chance.choice([*model.groups]), chance.choice([*model.groups])])}
        if member == "links":
            ids = chance.sample([*model.policies], 3)
            return {"linked_gpo": chance.choice([links(*ids), links(*ids), links(*ids)["order"], links(ids[0], 99),
                                                 links(*ids, ids[0]), links("1"), links(None), {"order": [1]}, 7])}
        if member == "delegate":
            one = chance.choice([*USERS])
            return {**self.sound(chance.choice(["desc", "links"]), uid, target),
                    "delegate": chance.choice([delegates(one, one), delegates(one, 4000), {"ugid": one}, "all",
                                               [{"ugid": one, "user_type": 8}], [{"user_type": 2}], [one], None])}
        revision = model.groups[target].revision if target in model.groups else 1
        return {"revision": revision + chance.choice([-1, 1, 2**40]), **self.sound("desc", uid, target)}


def api_of(method):
    return {"link": "GPO link", "set_servers": "KX set"}.get(method, "KXGroup " + method)


def strip(nodes):
    """Removes the times, which the model cannot predict."""
    for node in nodes:
        if not is_int(node.pop("mtime", None)):
            node["mtime"] = "none"
        strip(node["children"] or [])
    return nodes


def text(value):
    return json.dumps(value, sort_keys=True)


def brief(value):
    if isinstance(value, list) and value and "node_id" in value[0]:
        return " ".join(f"{node['node_type']}:{node['node_id']}" for node in value)
    return text(value)[:1000]


def difference(expected, got, path="tree"):
    """Returns the first difference between two values."""
    if isinstance(expected, dict) and isinstance(got, dict):
        pairs = [(f".{key}", expected.get(key, "nothing"), got.get(key, "nothing"))
                 for key in sorted({*expected, *got})]
        path += f"<{got.get('node_type', '')}:{got.get('node_id', '')}>"
    elif isinstance(expected, list) and isinstance(got, list) and len(expected) == len(got):
        pairs = [(f"[{i}]", *pair) for i, pair in enumerate(zip(expected, got))]
    else:
        return f"{path}: expected {brief(expected)}\ngot {brief(got)}"
    return next((difference(*pair, path + key) for key, *pair in pairs if text(pair[0]) != text(pair[1])), path)


class Divergence(Exception):
    pass


class Steps:
    def __init__(self, store, server, fleet, chance):
        self.store, self.chance, self.model = store, chance, Model(fleet)
        self.requests = Requests(self.model, chance)
        self.connection = server.connect()
        self.tokens = {uid: store.token(NAMES[uid]) for uid in NAMES}
        self.known = {}  # by account: the tag and text of the last tree
        self.void = ["", "0" * 64]  # tokens that never existed or were revoked
        self.outcomes = collections.defaultdict(collections.Counter)
        self.reasons = collections.Counter()
        self.latest = ""  # request or command that may have changed something, and what the model says of it

    def step(self):
        kind = self.chance.choices(["request", "query", "history", "void token", "token", "node link"],
                                   [92, 2, 4, 2, 1, 2])[0]
        {"request": self.request, "query": self.query, "history": self.read_history,
         "void token": self.use_void_token, "token": self.change_token, "node link": self.link_node}[kind]()
        if self.chance.random() < 0.5:
            self.compare(self.chance.choice([*NAMES]))

    def request(self):
        kind, uid, method, params = self.requests.draw()
        outcome = why = "done"
        try:
            expected = {"success": True, "data": getattr(self.model, method)(uid, params), **ignored(method, params)}
        except Refusal as refusal:
            expected, outcome, why = {"success": False, "code": refusal.code}, refusal.code, refusal.why
            self.reasons[why] += 1
        self.outcomes[kind][outcome] += 1
        self.latest = f"{NAMES[uid]}: {method} {text(params)}: {why}"
        status, answer = call(self.connection, self.tokens[uid], api_of(method), params)
        got = answer if answer["success"] else {"success": False, "code": answer["error"]["code"]}
        if status != 200 or got != expected:
            raise Divergence(f"expected {expected}\ngot {status} {answer}")

    def query(self):
        """Asks who the sender is, or for accounts."""
        uid, wanted = self.chance.choice([*NAMES]), self.chance.choice(["", "A", "200", "2001", "%", "servers only"])
        path, expected = self.chance.choice([("session", self.model.session(uid)), (
            "accounts?q=" + urllib.parse.quote(wanted), self.model.accounts(uid, wanted))])
        send(self.connection, "/" + path, self.tokens[uid], None, "GET")
        response = self.connection.getresponse()
        got = json.loads(response.read())
        got.pop("version", None)
        self.outcomes["query"][response.status if expected is None else "done"] += 1
        if (response.status, got) != (200, expected) and (response.status, expected) != (403, None):
            raise Divergence(f"{path} of {NAMES[uid]}: expected {expected}\ngot {response.status} {got}")

    def get_tree(self, uid):
        """The answer, which is the last one when the server says that the tree has not changed since."""
        tag, known = self.known.get(uid) or ("", None)
        send(self.connection, "/webapi/VELQ.ZEM.Tree/1/get", self.tokens[uid], None, "GET", {"If-None-Match": tag})
        response = self.connection.getresponse()
        body = response.read()
        if response.status == 304:
            self.outcomes["tree"][304] += 1
            return 200, json.loads(known)
        self.known[uid] = response.headers["ETag"] or "", body
        return response.status, json.loads(body)

    def compare(self, uid):
        status, answer = self.get_tree(uid)
        if status != 200 or not answer["success"]:
            raise Divergence(f"the tree of {NAMES[uid]}: {status} {answer}")
        expected, got = self.model.tree(uid), strip(answer["data"])
        self.outcomes["tree"]["done"] += 1
        if text(expected) != text(got):
            raise Divergence(f"the tree of {NAMES[uid]}: {difference(expected, got)}")
        if self.chance.random() < 0.05:
            self.compare_notices()

    def compare_notices(self):
        notices = {tuple(row) for row in self.store.rows("SELECT node_type, node_id, uid FROM gpo_fetch")}
        expected = {(*node, uid) for node, uid in self.model.notices.items()}
        if notices != expected:
            raise Divergence(f"notices missing: {sorted(expected - notices)}, too many: {sorted(notices - expected)}")

    def use_void_token(self):
        _, uid, method, params = self.requests.draw()
        api_method = self.chance.choice([api_of(method), "Tree get"])
        status, answer = call(self.connection, self.chance.choice(self.void), api_method, params)
        self.outcomes["token"][status] += 1
        if (status, answer["success"]) != (401, False):
            raise Divergence(f"a token that nobody has: {api_method} {text(params)}\ngot {status} {answer}")

    def change_token(self):
        uid = self.chance.choice([*USERS])
        self.latest = f"revoke {NAMES[uid]}"
        self.void.append(self.tokens[uid])
        self.store.run("revoke", NAMES[uid])
        status, _ = call(self.connection, self.tokens[uid], "Tree get", {})
        if status != 401:
            raise Divergence(f"a revoked token of {NAMES[uid]} is answered {status}")
        self.tokens[uid] = self.store.token(NAMES[uid])
        self.compare(uid)
        self.outcomes["token"]["done"] += 1

    def read_history(self):
        """Reads the history of a record, whose newest change must show the name that the record has now."""
        uid, model = self.chance.choice([*NAMES]), self.model
        kind, nodes = self.chance.choice([("group", model.groups), ("server", model.servers),
                                          ("policy", model.policies), ("account", {})])
        id = self.chance.choice([*nodes, 10**6])
        group = id if kind == "group" else nodes[id].parent if id in nodes else None
        self.latest = f"{NAMES[uid]}: history of {kind} {id}"
        send(self.connection, f"/history?node={kind}:{id}", self.tokens[uid], None, "GET")
        status, answer = receive(self.connection)
        expected = 200 if uid in ADMINS or (group is not None and model.manages(uid, group)) else 403
        self.outcomes["history"]["done" if status == 200 else "refused"] += 1
        names = [change["name"] for change in answer.get("changes", [])][:1]
        if status != expected or (status == 200 and id in nodes and id != 0 and names != [nodes[id].name]):
            raise Divergence(f"{self.latest}: expected {expected}, got {status} {answer}")

    def link_node(self):
        """Links a policy to a group or server with the command, or unlinks it."""
        kind = self.chance.choice(["group", "server"])
        nodes = self.model.groups if kind == "group" else self.model.servers
        id = self.chance.choice([*nodes]) if self.chance.random() < 0.7 else 10**6
        policy = self.chance.choice([*self.model.policies, 99, 99, 99, 99])
        adds = self.chance.random() < 0.6
        command = ["link", "add" if adds else "remove", kind, str(id), str(policy)]
        outcome = "done"
        try:
            self.model.change_link(nodes.get(id), policy, adds, self.model.policies)
        except Refusal as refusal:
            outcome = "refused"
            self.reasons[refusal.why] += 1
        self.outcomes["node link"][outcome] += 1
        self.latest = f"{' '.join(command)}: {outcome}"
        try:
            self.store.run(*command, status=0 if outcome == "done" else 1)
        except RuntimeError as e:
            raise Divergence(f"expected {outcome}: {e}") from e

    def report(self):
        """Prints the requests by kind. Returns the kinds that never succeeded or were never refused."""
        columns = ["done", 101, 117, 414, 401, 403, "refused"]
        print(f"{'':10}" + "".join(f"{column:>9}" for column in columns))
        for kind, counts in self.outcomes.items():
            print(f"{kind:10}" + "".join(f"{counts[column] or '-':>9}" for column in columns))
        print(f"{len(self.model.groups)} groups in the end; refused for:",
              ", ".join(f"{why} {count}" for why, count in self.reasons.most_common()))
        return [kind for kind, counts in self.outcomes.items()
                if not counts["done"] or (kind != "tree" and len(counts) == 1)]


# --- The races

def use_until_gone(server, token, method, make_params, gone):
    """Uses a right until it is said to be gone, and a few times more. Returns the requests done, those under way when it
    went and refused, and the answers of those that were sent later and done all the same."""
    connection = server.connect()
    done, cut, late = 0, 0, []
    for _ in range(3):
        is_late = False
        while not is_late:
            is_late = gone.is_set()
            _, answer = call(connection, token, "KXGroup " + method, make_params())
            done += answer["success"]
            cut += not is_late and gone.is_set() and not answer["success"]
            late += [answer] if is_late and answer["success"] else []
    connection.close()
    return done, cut, late


def find_group(connection, token, id):
    _, answer = call(connection, token, "Tree get", {})
    return next(node for node in strip(answer["data"]) if (node["node_type"], node["node_id"]) == (GROUP, id))


def race_withdrawal(server, tokens, number, chance, totals):
    """An administrator withdraws a delegation while its owner keeps renewing it and creating groups with it."""
    connection, admin, own = server.connect(), tokens[1000], delegates(RACER)
    _, answer = call(connection, admin, "KXGroup create",
                     {"id": 0, "name": f"race {number}", "parent_id": 0, "delegate": own})
    id = answer["data"]["ids"]
    gone = threading.Event()

    def renewal():
        return {"node_id": id, "delegate": own}

    def creation():
        return {"multiple_data": [{"name": f"{chance.getrandbits(64):x}", "parent_id": id} for _ in range(20)]}
    with concurrent.futures.ThreadPoolExecutor() as pool:
        racers = [pool.submit(use_until_gone, server, tokens[RACER], *use, gone)
                  for use in [("set", renewal), ("set", renewal), ("create", creation), ("create", creation)]]
        try:
            time.sleep(chance.uniform(0, 0.05))
            while not call(connection, admin, "KXGroup set", {"node_id": id, "delegate": []})[1]["success"]:
                totals["withdrawals that met another change"] += 1
        finally:
            gone.set()
        before = find_group(connection, admin, id)
        done, cut, late = zip(*(racer.result() for racer in racers))
    after = find_group(connection, admin, id)
    call(connection, admin, "KXGroup delete", {"node_id": id})
    connection.close()
    totals["requests done"] += sum(done)
    totals["requests cut by the withdrawal"] += sum(cut)
    if any(late) or text(before) != text(after) or "delegate" in after:
        totals["rounds won by who lost the right"] += 1
        return [f"done after the withdrawal: {late}\n{difference(before, after)}"]
    return []


def race_revocation(server, store, number, chance, totals):
    """A token is revoked while the body of a request with it arrives: before its end, or at about the same time.
    Returns what went wrong and the groups made."""
    token, name = store.token("deputy"), f"late {number}"
    body = json.dumps({"id": 0, "name": name, "parent_id": 0}).encode()
    is_sure = number % 2 == 0
    with (socket.create_connection(("127.0.0.1", server.port), timeout=30) as stream,
          concurrent.futures.ThreadPoolExecutor() as pool):
        stream.sendall(f"POST /webapi/VELQ.ZEM.KXGroup/1/create HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer"
                       f" {token}\r\nContent-Length: {len(body)}\r\n\r\n".encode() + body[:10])
        revocation = pool.submit(store.run, "revoke", "deputy")
        if is_sure:
            revocation.result()
        time.sleep(chance.uniform(0, 0.2))
        stream.sendall(body[10:])
        response = http.client.HTTPResponse(stream)
        response.begin()
        answer = json.loads(response.read())
        revocation.result()
    # A handler that has begun is refused at its next change, before or after it has made the group.
    error = answer.get("error", {})
    is_cut = not is_sure and error.get("reason") == "cancelled"
    is_made = answer["success"] or (is_cut and error["message"].startswith("stopped after 1 change:"))
    totals["carried out before" if is_made else "refused"] += 1
    is_right = response.status == 401 or is_cut or (not is_sure and response.status == 200 and answer["success"])
    return [] if is_right else [f"{name}: {response.status} {answer}"], {name} if is_made else set()


def race_long_request(server, store, tokens, number, chance, totals):
    """A token is revoked while a request with it makes many changes. None follows, and the answer counts those made."""
    token, connection = store.token("deputy"), server.connect()
    parent = call(connection, tokens[1000], "KXGroup create", {"id": 0, "name": f"cut {number}", "parent_id": 0})
    id = parent[1]["data"]["ids"]
    count = f"SELECT COUNT(*) AS made FROM ou WHERE parent_id = {id}"
    records = [{"name": str(i), "parent_id": id} for i in range(3000)]
    with concurrent.futures.ThreadPoolExecutor() as pool:
        request = pool.submit(call, server.connect(), token, "KXGroup create", {"multiple_data": records})
        while not store.rows(count)[0][0] and not request.done():
            time.sleep(chance.uniform(0, 0.05))
        store.run("revoke", "deputy")
        at_revocation = store.rows(count)[0][0]
        status, answer = request.result()
    made = store.rows(count)[0][0]
    call(connection, tokens[1000], "KXGroup delete", {"node_id": id})
    connection.close()
    if answer["success"]:
        return [] if made == len(records) == at_revocation else [f"{made} of {len(records)} groups, answered {answer}"]
    totals["long requests cut"] += 1
    message = f"stopped after {made} changes: the token was revoked or has expired"
    is_right = status == 200 and made == at_revocation and answer["error"]["message"] == message
    return [] if is_right else [f"{at_revocation} groups at the revocation, {made} in the end: {status} {answer}"]


def race(rounds, store, server, tokens, chance):
    """Returns what went wrong."""
    faults, totals, made = [], collections.Counter({"rounds won by who lost the right": 0}), set()
    for number in range(rounds):
        faults += race_withdrawal(server, tokens, number, chance, totals)
    for number in range(rounds):
        fault, names = race_revocation(server, store, number, chance, totals)
        faults += fault
        made |= names
    for number in range(min(rounds, 10)):
        faults += race_long_request(server, store, tokens, number, chance, totals)
    if rounds and not totals["long requests cut"]:
        faults.append("no long request was at work when its token was revoked")
    _, answer = call(server.connect(), tokens[1000], "Tree get", {})
    there = {node["name"] for node in answer["data"] if node["name"].startswith("late ")}
    if there != made:
        faults.append(f"groups answered {sorted(made)}, there {sorted(there)}")
    if rounds and not totals["requests cut by the withdrawal"]:
        faults.append("no request was under way at a withdrawal: the race was none")
    print(f"{rounds} rounds of each race:", ", ".join(f"{what} {count}" for what, count in totals.items()))
    return faults


# --- The whole

def play(options, store, chance):
    """Returns what went wrong."""
    fleet = make_fleet(chance)
    path = store.folder / "fleet.json"
    path.write_text(json.dumps(fleet), encoding="utf-8")
    store.run("apply", str(path))
    server = Server(store)
    steps = Steps(store, server, fleet, chance)
    start, number = time.monotonic(), 0
    try:
        for number in range(1, options.steps + 1):
            steps.step()
        for uid in NAMES:
            steps.compare(uid)
        steps.compare_notices()
    except Divergence as divergence:
        return [f"seed {options.seed}, step {number}, {steps.latest}\n{divergence}"]
    trees = steps.outcomes["tree"]
    print(f"{options.steps} steps, {trees['done']} trees, {trees[304]} of them known, no divergence;"
          f" {time.monotonic() - start:.0f} s")
    faults = [f"never done, or never refused: {kind}" for kind in steps.report() if options.steps >= 2000]
    faults += race(options.races, store, server, steps.tokens, chance)
    server.stop()
    return faults


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--steps", type=int, default=2000)
    parser.add_argument("--races", type=int, default=100, help="rounds of each race")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(10**6))
    parser.add_argument("--database", choices=["sqlite", "postgresql"], default="sqlite")
    options = parser.parse_args()
    print(f"seed {options.seed}")
    with tempfile.TemporaryDirectory() as folder, database(options.database) as url:
        faults = play(options, Store(options.build, folder, url), random.Random(options.seed))
    for fault in faults[:5]:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())

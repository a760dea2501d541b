// Tests what the page computes from a tree answer: effective policies, what a change does to them, filter hits, counts,
// order, selection, files and its own changes.
import { test } from "node:test";
import assert from "node:assert/strict";
import { csvOf } from "../../console/download.js";
import { effectsOf, ifBlocked, ifDeleted, ifLinked, ifMoved, serversWith } from "../../console/effects.js";
import { Fleet, GROUP, keyOf, POLICY, SERVER } from "../../console/fleet.js";
import { withGroup, withMembers, withoutGroups } from "../../console/patch.js";
import { mistakeIn } from "../../console/query.js";
import { Selection } from "../../console/selection.js";

function node(type, id, name, members = {}, children = null) {
    return { node_type: type, node_id: id, parent_id: 0, name, expanded: children !== null, children, ...members };
}

function linking(...ids) {
    return { linked_gpo: { order: ids.map((id) => ({ gpo_id: id, gpo_name: `p${id}`, gpo_desc: "" })) } };
}

const FLEET = new Fleet([
    node(GROUP, 1, "Site", linking(1, 2), [
        node(GROUP, 2, "Closed", { block_inheritance: 1, ...linking(3) }, [
            node(GROUP, 3, "Room", linking(4, 3), [node(SERVER, 1, "host", { address: "192.0.2.1", ...linking(5) })]),
        ]),
        node(SERVER, 2, "door", linking(2, 6)),
    ]),
    node(SERVER, 3, "stray", { parent_id: 9, linked_gpo: null, delegate: [{ ugid: 7, name: "" }] }),
    node(POLICY, 1, "p1", { linked: true }),
    node(POLICY, 1, "the same after 53 bits"),
]);

// Each row: a node, its effective policies with the nodes that link them, the blocking group, isPartial.
const EFFECTIVE = [
    [[SERVER, 1], ["p5 host", "p4 Room", "p3 Room Closed"], "Closed", false],
    [[SERVER, 2], ["p2 door Site", "p6 door", "p1 Site"], undefined, false],
    [[GROUP, 2], ["p3 Closed"], "Closed", false],
    [[SERVER, 3], [], undefined, true],
];

test("policies come down the tree, the nearest first, up to a group that blocks them", () => {
    for (const [key, expected, blockedBy, isPartial] of EFFECTIVE) {
        const effective = FLEET.effectivePolicies(FLEET.find(keyOf(...key)));
        const lines = effective.policies.map(({ name, from }) => [name, ...from.map((at) => at.name)].join(" "));
        assert.deepEqual([lines, effective.blockedBy?.name, effective.isPartial], [expected, blockedBy, isPartial]);
    }
});

// Each row: a text, the number of hits and the shown nodes as "level position/siblings name".
const FILTERS = [
    [" HOST ", 1, ["1 1/1 Site", "2 1/1 Closed", "3 1/1 Room", "4 1/1 host"]],
    ["192.0", 1, ["1 1/1 Site", "2 1/1 Closed", "3 1/1 Room", "4 1/1 host"]],
    ["r", 4, ["1 1/3 Site", "2 1/2 Closed", "3 1/1 Room", "2 2/2 door", "1 2/3 stray", "1 3/3 the same after 53 bits"]],
    ["p2", 0, []],
    ["policy:p2 kind:server", 1, ["1 1/1 Site", "2 1/1 door"]],
    ["policy:\"p5\" HOST", 1, ["1 1/1 Site", "2 1/1 Closed", "3 1/1 Room", "4 1/1 host"]],
    ["delegate:7 door", 0, []],
];

test("a filter leaves the hits and those above them, and counts them", () => {
    for (const [text, hits, expected] of FILTERS) {
        assert.equal(FLEET.filter(text), hits);
        const shown = FLEET.nodes.filter((other) => other.isShown);
        assert.deepEqual(shown.map(({ level, position, parent, name }) =>
            `${level} ${position}/${parent.shownChildren} ${name}`), expected);
    }
    assert.equal(FLEET.filter(""), 0);
    assert.ok(FLEET.nodes.every((other) => other.isShown && !other.isHit));
});

test("words and kinds that do not exist are named, other colons are not", () => {
    const mistakes = { "foo:bar": "“foo”", "a POLICY:p1 Foo:bar": "“foo”", "kind:\"box\"": "“box”", "kind:ser": "",
        "policy:\"a b:c\"": "", "fe80::1": "", "fe::1": "", "Firewall: internal": "" };
    for (const [text, named] of Object.entries(mistakes)) {
        assert.equal(mistakeIn(text).match(/“.*?”/)?.[0] ?? "", named, text);
    }
});

test("counts, links and paths are computed from the whole answer", () => {
    assert.deepEqual(FLEET.counts(FLEET.find(keyOf(GROUP, 1))), { group: 2, server: 2, policy: 0 });
    assert.deepEqual(FLEET.total, { group: 3, server: 3, policy: 2 });
    assert.deepEqual(FLEET.linkedBy(3).map(({ name }) => name), ["Closed", "Room"]);
    assert.deepEqual(FLEET.accounts, [{ id: 7, name: "uid 7" }]);
    assert.equal(FLEET.isPartial, true);
    const delegated = new Fleet([node(GROUP, 1, "a", { delegate: [{ ugid: 7, name: "x" }, { ugid: 8, name: "y" }] },
        [node(GROUP, 2, "b", { delegate: [{ ugid: 8, name: "y" }] })])]);
    assert.deepEqual(delegated.effectiveDelegates(delegated.find(keyOf(GROUP, 2))).map(({ name, from }) =>
        [name, ...from.map((at) => at.name)].join(" ")), ["y b a", "x a"]);
    assert.equal(FLEET.find(keyOf(SERVER, 1)).path, "Site / Closed / Room / host");
});

test("a record that was damaged in the store is shown as far as it can be read", () => {
    const lists = [{ linked_gpo: { order: [null, 5, { gpo_id: 4 }] }, delegate: [null, "x", { ugid: 7 }] },
        { linked_gpo: { order: "x" }, delegate: {} }, { linked_gpo: [], delegate: 5 }];
    const damaged = new Fleet(lists.map((members, i) => node(GROUP, i + 1, "g", members))).nodes;
    const names = (items) => items.map(({ name }) => name);
    assert.deepEqual(damaged.map(({ links, delegates }) => [...names(links), ...names(delegates)]),
        [["policy 4", "uid 7"], [], []]);
});

const at = (...keys) => FLEET.sortedNodes(keys.map((key) => keyOf(...key)));
const [SITE, CLOSED, ROOM, DOOR] = at([GROUP, 1], [GROUP, 2], [GROUP, 3], [SERVER, 2]);

// Each row: the nodes that change, the plan, and its effects as "servers -lost +gained".
const EFFECTS = [
    [[ROOM], ifMoved([ROOM], SITE), ["host - +1,2"]],
    [[DOOR], ifMoved([DOOR], CLOSED), ["door -1 +3"]],
    [[CLOSED], ifDeleted([CLOSED], FLEET.root), ["host -3,4 +"]],
    [[CLOSED], ifBlocked(CLOSED, false), ["host - +1,2"]],
    [[SITE], ifLinked([SITE], () => [2, 9]), ["door -1 +9"]],
    [[SITE], ifLinked([SITE], () => [2, 1]), []],
];

test("a plan says which servers lose and gain which policies", () => {
    for (const [nodes, plan, expected] of EFFECTS) {
        const lines = effectsOf(FLEET, nodes, plan).map(({ servers, lost, gained }) =>
            `${servers.map(({ name }) => name)} -${lost.sort()} +${gained.sort()}`);
        assert.deepEqual(lines, expected);
    }
    assert.deepEqual(serversWith(FLEET, 3).map(({ name }) => name), ["host"]);
    assert.deepEqual(FLEET.topmost([SITE, ROOM, DOOR]), [SITE]);
    assert.equal(FLEET.canMoveAll([ROOM, DOOR], SITE), true);
    assert.equal(FLEET.canMoveAll([CLOSED, DOOR], ROOM), false);
});

test("rows are sorted, selected as a range, and saved as text that no spreadsheet computes", () => {
    const named = ["b10", "b9", "a"].map((name, i) => node(SERVER, i + 1, name, { address: `10.0.0.${2 + 9 * i}` }));
    const order = (by) => new Fleet([...named, node(GROUP, 9, "z")], by).nodes.map(({ name }) => name).join();
    assert.deepEqual([order("name"), order("address")], ["z,a,b9,b10", "z,b10,b9,a"]);
    const selection = new Selection();
    selection.only("c");
    selection.extend(["a", "b", "c", "d"], "a");
    ["d", "b", "d", "d"].forEach((key) => selection.toggle(key));
    assert.deepEqual([...selection.keys], ["a", "c", "d"]);
    const [, line] = csvOf(new Fleet([node(SERVER, 1, "=1+1,\"x\"", { address: "a" })]).nodes).split("\r\n");
    assert.ok(line.startsWith("server,1,\"'=1+1,\"\"x\"\"\",\"'=1+1"), line);
});

const KNOWN = { revision: 1 };
const B = node(GROUP, 3, "b", KNOWN, [node(SERVER, 1, "host", KNOWN)]);
const TREE = [node(GROUP, 1, "a", KNOWN, [B, node(POLICY, 1, "p", KNOWN)]), node(GROUP, 4, "c", KNOWN)];
const changeB = (members) => (records) => withMembers(records, [{ node: { type: GROUP, id: 3 }, members }]);
const moveToC = [[GROUP, 3], [POLICY, 1]].map(([type, id]) => ({ node: { type, id }, members: { parent_id: 4 } }));

// Each row: a change and the nodes after it, with * for an unknown revision.
const PATCHED = [
    [changeB({ name: "new" }), "a(new*(host) p) c"],
    [changeB({ parent_id: 0 }), "a(p) b*(host) c"],
    [(records) => changeB({ parent_id: 4 })(changeB({ parent_id: 4 })(records)), "a(p) c(b*(host))"],
    [(records) => withGroup(records, 5, "new", 3), "a(b(new* host) p) c"],
    [(records) => withGroup(records, 3, "b", 1), "a(b(host) p) c"],
    [(records) => withMembers(records, moveToC), "a c(b*(host) p*)"],
    [(records) => withoutGroups(records, [1, 4], false), "host* p*"],
    [(records) => withoutGroups(records, [3], true), "a(p) c"],
];

test("a change of the page's own is applied to a copy of the records", () => {
    const outline = (records) => records.map(({ name, revision, children, expanded }) =>
        `${name}${revision ? "" : "*"}${expanded || children ? `(${outline(children)})` : ""}`).join(" ");
    const before = JSON.stringify(TREE);
    assert.deepEqual(PATCHED.map(([change]) => outline(change(TREE))), PATCHED.map(([, expected]) => expected));
    assert.equal(JSON.stringify(TREE), before);
});

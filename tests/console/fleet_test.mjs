// Tests what the page computes from a tree answer: effective policies, filter hits, counts, kept links, own changes.
import { test } from "node:test";
import assert from "node:assert/strict";
import { Fleet, GROUP, keptLinks, keyOf, POLICY, SERVER } from "../../console/fleet.js";
import { withGroup, withMembers, withoutGroup } from "../../console/patch.js";

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

test("counts, links and paths are computed from the whole answer", () => {
    assert.deepEqual(FLEET.counts(FLEET.find(keyOf(GROUP, 1))), { group: 2, server: 2, policy: 0 });
    assert.deepEqual(FLEET.counts(FLEET.root), { group: 3, server: 3, policy: 2 });
    assert.deepEqual(FLEET.linkedBy(3).map(({ name }) => name), ["Closed", "Room"]);
    assert.deepEqual(FLEET.accounts, [{ id: 7, name: "uid 7" }]);
    assert.equal(FLEET.isPartial, true);
    assert.equal(FLEET.find(keyOf(SERVER, 1)).path, "Site / Closed / Room / host");
});

// Each row: links before, links wanted, links that are kept.
const KEPT = [
    [[1, 2, 3], [1, 2, 3], [1, 2, 3]],
    [[1, 2, 3, 4], [1, 3, 2, 4], [1, 3]],
    [[1, 2, 3], [3, 1, 2], [3]],
    [[1, 2], [2, 5], [2]],
    [[], [1], []],
];

test("links that are already in the wanted order are kept", () => {
    for (const [before, wanted, kept] of KEPT) {
        assert.deepEqual([...keptLinks(before, wanted)], kept);
    }
});

const KNOWN = { revision: 1 };
const B = node(GROUP, 3, "b", KNOWN, [node(SERVER, 1, "host", KNOWN)]);
const TREE = [node(GROUP, 1, "a", KNOWN, [B, node(POLICY, 1, "p", KNOWN)]), node(GROUP, 4, "c", KNOWN)];
const changeB = (members) => (records) => withMembers(records, { type: GROUP, id: 3 }, members);

// Each row: a change and the nodes after it, with * for an unknown revision.
const PATCHED = [
    [changeB({ name: "new" }), "a(new*(host) p) c"],
    [changeB({ parent_id: 0 }), "a(p) b*(host) c"],
    [(records) => changeB({ parent_id: 4 })(changeB({ parent_id: 4 })(records)), "a(p) c(b*(host))"],
    [(records) => withGroup(records, 5, "new", 3), "a(b(new* host) p) c"],
    [(records) => withGroup(records, 3, "b", 1), "a(b(host) p) c"],
    [(records) => withoutGroup(records, 1, false), "c host* p*"],
    [(records) => withoutGroup(records, 3, true), "a(p) c"],
];

test("a change of the page's own is applied to a copy of the records", () => {
    const outline = (records) => records.map(({ name, revision, children, expanded }) =>
        `${name}${revision ? "" : "*"}${expanded || children ? `(${outline(children)})` : ""}`).join(" ");
    const before = JSON.stringify(TREE);
    assert.deepEqual(PATCHED.map(([change]) => outline(change(TREE))), PATCHED.map(([, expected]) => expected));
    assert.equal(JSON.stringify(TREE), before);
});

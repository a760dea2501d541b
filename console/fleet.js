// Holds the nodes of a tree answer and computes counts, effective policies, allowed moves and filter hits.
import { inOrder, sortedByName } from "./order.js";
import { parseQuery } from "./query.js";

export const GROUP = 2;
export const SERVER = 3;
export const POLICY = 4;

const KINDS = { [GROUP]: "group", [SERVER]: "server", [POLICY]: "policy" };

const NO_CHILDREN = Object.freeze([]); // shared: most nodes are servers and have none

class Node {
    #searchText = null;

    // parent: null for the root, which is the top level and not part of the answer. index: in Fleet.nodes; -1 for the
    // root.
    constructor(record, parent, index) {
        this.record = record;
        this.parent = parent;
        this.index = index;
        this.suffix = ""; // makes the key unique in the fleet
        this.level = parent === null ? 0 : parent.level + 1;
        this.children = NO_CHILDREN;
        this.end = 0; // index after the last descendant
        this.isHit = false; // the filter matches this node
        this.isShown = true; // there is no filter, or it matches this node or a descendant
        this.position = 0; // among the shown siblings, from 1
        this.shownChildren = 0;
        this.serversBelow = 0;
    }

    // Names the node in the fleet. Not kept: to make a text for each of 100,000 nodes takes some hundredths of a
    // second.
    get key() {
        return keyOf(this.type, this.id) + this.suffix;
    }

    get name() {
        return this.record.name;
    }

    get type() {
        return this.record.node_type;
    }

    get id() {
        return this.record.node_id;
    }

    get kind() {
        return KINDS[this.type];
    }

    get address() {
        return this.record.address ?? "";
    }

    get isGroup() {
        return this.type === GROUP;
    }

    get isServer() {
        return this.type === SERVER;
    }

    get isPolicy() {
        return this.type === POLICY;
    }

    // Time of the last change in seconds since 1970; in the future for a change that the server has not confirmed.
    get changed() {
        return this.record.mtime ?? Number.MAX_SAFE_INTEGER;
    }

    get blocksInheritance() {
        return Boolean(this.record.block_inheritance);
    }

    // The linked policies in order. A policy that the server could not read gets its number as its name.
    get links() {
        return objectsIn(this.record.linked_gpo?.order).map((link) => ({
            id: link.gpo_id,
            name: link.gpo_name ?? `policy ${link.gpo_id}`,
            description: link.gpo_desc ?? "",
        }));
    }

    get delegates() {
        return objectsIn(this.record.delegate).map(({ ugid, name }) => ({
            id: ugid,
            name: name || `uid ${ugid}`,
        }));
    }

    // Whether the revision is that of the server. Nodes that show a change of the page's own have none.
    get isConfirmed() {
        return this.record.revision !== undefined;
    }

    // All of a group or server that a change can alter, as one text, for comparing it when no revision is known.
    get content() {
        const { name, desc = "", parent_id: parent, extra_info: extra = null } = this.record;
        const links = this.links.map(({ id }) => id);
        const delegates = this.delegates.map(({ id }) => id).sort((a, b) => a - b);
        return JSON.stringify([name, desc, parent, this.address, this.blocksInheritance, links, delegates, extra]);
    }

    // The groups above, from the top down, without the root.
    get ancestors() {
        const above = [];
        for (let at = this; at.level > 1; at = at.parent) {
            above.push(at.parent);
        }
        return above.reverse();
    }

    // The node itself if it is a group, else its parent: where new and moved groups go when this node is the target.
    get nearestGroup() {
        return this.isGroup ? this : this.parent;
    }

    get path() {
        return [...this.ancestors, this].map((node) => node.name).join(" / ");
    }

    // Name and address in lower case.
    get searchText() {
        this.#searchText ??= `${this.name}\n${this.address}`.toLowerCase();
        return this.#searchText;
    }

    // Whether both stand for the same record, in fleets of different times.
    isSameAs(other) {
        return this.id === other.id && this.type === other.type && this.suffix === other.suffix;
    }

    // Whether this is the other node or a descendant of it.
    isBelow(other) {
        return this === other || (this.parent !== null && this.parent.isBelow(other));
    }
}

// Returns the objects of a list. A damaged record may have other values in it, or something else in its place.
function objectsIn(list) {
    return Array.isArray(list) ? list.filter((item) => typeof item === "object" && item !== null) : [];
}

export function keyOf(type, id) {
    return `${type}-${id}`;
}

export class Fleet {
    #byType = new Map(Object.keys(KINDS).map((type) => [Number(type), new Map()])); // each from identifiers to nodes
    #accounts = null;
    #isFiltered = false;
    #doubles = new Map(); // from keys with a suffix to nodes

    // records: the answer of the tree method, an array of the top-level nodes with their children. order: one of
    // ORDERS.
    constructor(records, order = "stored") {
        this.order = order;
        this.root = new Node({ name: "the top level", node_type: GROUP, node_id: 0 }, null, -1);
        this.nodes = []; // each parent before its children
        this.total = { group: 0, server: 0, policy: 0 };
        this.#add(records, this.root, inOrder(order));
        this.root.end = this.nodes.length;
    }

    find(key) {
        const [type, id] = key.split("-");
        const found = key.endsWith("-") ? this.#doubles.get(key) : this.#byType.get(Number(type))?.get(Number(id));
        return found ?? null;
    }

    // Returns the node of this fleet for the record of a node of another fleet; that other node when there is none.
    sameAs(node) {
        const found = node.suffix === "" ? this.#byType.get(node.type)?.get(node.id) : this.#doubles.get(node.key);
        return found ?? node;
    }

    findPolicy(id) {
        return this.find(keyOf(POLICY, id));
    }

    nameOfPolicy(id) {
        return this.findPolicy(id)?.name ?? `policy ${id}`;
    }

    // Whether the account sees only a part of the fleet. It may then not change the top level.
    get isPartial() {
        return this.root.children.some((node) => node.record.parent_id !== 0);
    }

    get groups() {
        return this.nodes.filter((node) => node.isGroup);
    }

    // The policies, sorted by name.
    get policies() {
        const policies = this.nodes.filter((node) => node.isPolicy);
        return sortedByName(policies.map(({ id, name, record }) => ({ id, name, description: record.desc ?? "" })));
    }

    // The accounts that are delegates of any node, sorted by name.
    get accounts() {
        this.#accounts ??= accountsOf(this.nodes);
        return this.#accounts;
    }

    // Returns the number of descendants of each kind.
    counts(node) {
        const counts = { group: 0, server: 0, policy: 0 };
        for (let i = node.index + 1; i < node.end; ++i) {
            ++counts[this.nodes[i].kind];
        }
        return counts;
    }

    // Returns the groups among which the user selects the parent of a new group, the nearest last. node: the selected
    // one, or null.
    parentsFor(node) {
        const groups = node === null ? [] : [...node.nearestGroup.ancestors, node.nearestGroup];
        return [...(this.isPartial ? [] : [this.root]), ...groups.filter((group) => group !== this.root)];
    }

    // Whether the page offers to move the node to the parent.
    canMove(node, parent) {
        const isTop = parent === this.root;
        return !node.isPolicy && node.parent !== parent && !parent.isBelow(node) && !(isTop && this.isPartial);
    }

    // Whether the page offers to move the nodes to the parent. Some of them may be there already.
    canMoveAll(nodes, parent) {
        return nodes.some((node) => node.parent !== parent) &&
            nodes.every((node) => node.parent === parent || this.canMove(node, parent));
    }

    // Returns the nodes of the keys in the order of the rows.
    sortedNodes(keys) {
        const found = [...keys].map((key) => this.find(key)).filter((node) => node !== null);
        return found.sort((a, b) => a.index - b.index);
    }

    // Returns the nodes without those below others of them. nodes: in the order of the rows.
    topmost(nodes) {
        let end = -1;
        return nodes.filter((node) => {
            const isBelow = node.index < end;
            end = Math.max(end, node.end);
            return !isBelow;
        });
    }

    // Returns the nodes that link the policy.
    linkedBy(policyId) {
        return this.nodes.filter((node) => node.links.some((link) => link.id === policyId));
    }

    // Returns the policies that apply to the node: its own, then those of the groups above, the nearest first, up to a
    // group that blocks inheritance (blockedBy, or null). Each policy occurs once, with the nodes that link it (from).
    // isPartial: groups that the account does not see may add others.
    effectivePolicies(node) {
        const found = new Map();
        let at = node;
        for (; at !== this.root; at = at.parent) {
            for (const link of at.links) {
                const policy = found.get(link.id) ?? { ...link, from: [] };
                policy.from.push(at);
                found.set(link.id, policy);
            }
            if (at.blocksInheritance) {
                return { policies: [...found.values()], blockedBy: at, isPartial: false };
            }
        }
        return { policies: [...found.values()], blockedBy: null, isPartial: this.#topOf(node).record.parent_id !== 0 };
    }

    // Returns the delegates of the node and of the groups above: its own first, then those of the nearest group. Each
    // occurs once, with the nodes that name it (from).
    effectiveDelegates(node) {
        const found = new Map();
        for (let at = node; at !== this.root; at = at.parent) {
            for (const delegate of at.delegates) {
                found.set(delegate.id, found.get(delegate.id) ?? { ...delegate, from: [] });
                found.get(delegate.id).from.push(at);
            }
        }
        return [...found.values()];
    }

    // Marks the nodes that match the query as hits, and them and their ancestors as shown. Returns the number of hits.
    // An empty text shows all nodes and marks no hit. text: see query.js. kept: keys of nodes that count as hits
    // whether they match or not.
    filter(text, kept = new Set()) {
        const matches = parseQuery(text);
        if (matches === null && !this.#isFiltered) {
            return 0;
        }
        this.#isFiltered = matches !== null;
        let hits = 0;
        for (const node of this.nodes) {
            node.isHit = matches !== null && (matches(node) || kept.has(node.key));
            node.isShown = matches === null || node.isHit;
            node.shownChildren = 0;
            hits += node.isHit ? 1 : 0;
        }
        this.#countShown();
        return hits;
    }

    #countShown() {
        for (let i = this.nodes.length - 1; i >= 0; --i) { // children before their parent
            this.nodes[i].parent.isShown ||= this.nodes[i].isShown;
        }
        this.root.shownChildren = 0;
        for (const node of this.nodes) {
            if (node.isShown) {
                node.position = ++node.parent.shownChildren;
            }
        }
    }

    #topOf(node) {
        return node.level > 1 ? this.#topOf(node.parent) : node;
    }

    // sorted(records): returns them in the order of the rows.
    #add(records, parent, sorted) {
        parent.children = sorted(records).map((record, i) => {
            const node = new Node(record, parent, this.nodes.length);
            this.#index(node);
            this.nodes.push(node);
            ++this.total[node.kind];
            if (record.children) {
                this.#add(record.children, node, sorted);
            }
            node.end = this.nodes.length;
            node.position = i + 1;
            parent.serversBelow += node.isServer ? 1 : node.serversBelow;
            return node;
        });
        parent.shownChildren = parent.children.length;
    }

    // Identifiers of more than 53 bits are rounded in a browser, so that two nodes may get the same key.
    #index(node) {
        const known = this.#byType.get(node.type);
        if (known?.has(node.id) === false) {
            known.set(node.id, node);
            return;
        }
        do {
            node.suffix += "-";
        } while (this.#doubles.has(node.key));
        this.#doubles.set(node.key, node);
    }
}

function accountsOf(nodes) {
    const names = new Map(nodes.flatMap((node) => node.delegates.map(({ id, name }) => [id, name])));
    return sortedByName([...names].map(([id, name]) => ({ id, name })));
}

// The fleet as the caller sees it: the nodes of a tree answer, each with its place, and what follows from the whole.

export const GROUP = 2;
export const SERVER = 3;
export const POLICY = 4;

const KINDS = { [GROUP]: "group", [SERVER]: "server", [POLICY]: "policy" };

const NONE = Object.freeze([]); // of most nodes, as most are servers

class Node {
    #searched = null;

    // parent: null for the root, which stands for the top level and is no node of the answer. index: in Fleet.nodes.
    constructor(record, parent, index, key) {
        this.record = record;
        this.parent = parent;
        this.index = index;
        this.key = key;
        this.level = parent === null ? 0 : parent.level + 1;
        this.children = NONE;
        this.end = 0; // the index after that of the last node below this one
        this.isHit = false; // of the filter
        this.isShown = true; // it or one below it is a hit, or there is no filter
        this.position = 0; // among those shown beside it, from 1
        this.shownChildren = 0;
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

    get blocksInheritance() {
        return Boolean(this.record.block_inheritance);
    }

    // The policies linked here, in order. One that could not be read has no name.
    get links() {
        const order = this.record.linked_gpo?.order;
        return (Array.isArray(order) ? order : []).map((link) => ({
            id: link.gpo_id,
            name: link.gpo_name ?? `policy ${link.gpo_id}`,
            description: link.gpo_desc ?? "",
        }));
    }

    get delegates() {
        const { delegate } = this.record;
        return (Array.isArray(delegate) ? delegate : []).map(({ ugid, name }) => ({
            id: ugid,
            name: name || `uid ${ugid}`,
        }));
    }

    // The groups above, the topmost first.
    get ancestors() {
        const above = [];
        for (let at = this; at.level > 1; at = at.parent) {
            above.push(at.parent);
        }
        return above.reverse();
    }

    get path() {
        return [...this.ancestors, this].map((node) => node.name).join(" / ");
    }

    isBelow(other) {
        return this === other || (this.parent !== null && this.parent.isBelow(other));
    }

    contains(text) {
        this.#searched ??= `${this.name}\n${this.address}`.toLowerCase();
        return this.#searched.includes(text);
    }
}

export function keyOf(type, id) {
    return `${type}-${id}`;
}

export class Fleet {
    // records: the tree method's answer, an array of top-level nodes.
    constructor(records) {
        this.root = new Node({ name: "the top level", node_type: GROUP, node_id: 0 }, null, -1, keyOf(GROUP, 0));
        this.nodes = []; // each before those below it
        this.byKey = new Map();
        this.#add(records, this.root);
        this.root.end = this.nodes.length;
        this.filter("");
    }

    find(key) {
        return this.byKey.get(key) ?? null;
    }

    findPolicy(id) {
        return this.find(keyOf(POLICY, id));
    }

    // Whether groups are there that the caller does not see. Then the top level is not its to change.
    get isPart() {
        return this.root.children.some((node) => node.record.parent_id !== 0);
    }

    get groups() {
        return this.nodes.filter((node) => node.isGroup);
    }

    get policies() {
        return this.nodes.filter((node) => node.type === POLICY).map(({ id, name }) => ({ id, name }));
    }

    // The accounts that are delegates of something.
    get accounts() {
        const names = new Map(this.nodes.flatMap((node) => node.delegates.map(({ id, name }) => [id, name])));
        return [...names].map(([id, name]) => ({ id, name })).sort((a, b) => a.name.localeCompare(b.name));
    }

    // How many nodes of each kind are below the node.
    counts(node) {
        const counts = { group: 0, server: 0, policy: 0 };
        for (let i = node.index + 1; i < node.end; ++i) {
            ++counts[this.nodes[i].kind];
        }
        return counts;
    }

    linkedBy(policyId) {
        return this.nodes.filter((node) => node.links.some((link) => link.id === policyId));
    }

    // What applies to the node: its own policies, then those of the groups above it, the nearest first, up to a group
    // that blocks inheritance. Each comes once, with the nodes that link it.
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
                return { policies: [...found.values()], blockedBy: at, isPart: false };
            }
        }
        return { policies: [...found.values()], blockedBy: null, isPart: this.#topOf(node).record.parent_id !== 0 };
    }

    // Marks the nodes whose name or address contains the text, and those above them. Gives the number of hits; without
    // a text all are shown and none is a hit.
    filter(text) {
        const wanted = text.trim().toLowerCase();
        let hits = 0;
        for (const node of this.nodes) {
            node.isHit = wanted !== "" && node.contains(wanted);
            node.isShown = wanted === "" || node.isHit;
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

    #add(records, parent) {
        parent.children = records.map((record) => {
            const key = this.#freeKey(keyOf(record.node_type, record.node_id));
            const node = new Node(record, parent, this.nodes.length, key);
            this.byKey.set(key, node);
            this.nodes.push(node);
            if (record.children) {
                this.#add(record.children, node);
            }
            node.end = this.nodes.length;
            return node;
        });
    }

    // Identifiers beyond 53 bits lose their last digits in a browser and may become equal.
    #freeKey(key) {
        return this.byKey.has(key) ? this.#freeKey(`${key}-`) : key;
    }
}

// What of the links can stay when others are taken out and added at the end: the longest beginning of what is wanted
// that is there in its order.
export function keptLinks(before, wanted) {
    const kept = new Set();
    for (const id of before) {
        if (id === wanted[kept.size]) {
            kept.add(id);
        }
    }
    return kept;
}

// Sends changes to the server and shows them in the tree; remembers how to undo them.
import { Refusal } from "./api.js";
import { withGroup, withMembers, withoutGroups } from "./patch.js";

const DELEGATE_USER_TYPE = 2;

// The members of a record that a change can alter: their values in a request (sent) and in the tree (shown).
const MEMBERS = {
    name: plain("name"),
    desc: plain("desc", ""),
    address: plain("address", ""),
    parent_id: plain("parent_id"),
    block_inheritance: { sent: (node) => node.blocksInheritance, shown: (node) => node.record.block_inheritance ?? 0 },
    linked_gpo: {
        sent: (node) => ({ order: node.links.map(({ id }) => ({ id })) }),
        shown: (node) => node.record.linked_gpo,
    },
    delegate: {
        sent: (node) => node.delegates.map(({ id }) => ({ ugid: id, user_type: DELEGATE_USER_TYPE })),
        shown: (node) => node.record.delegate,
    },
};

function plain(member, otherwise = undefined) {
    const value = (node) => node.record[member] ?? otherwise;
    return { sent: value, shown: value };
}

export class Edits {
    #api;
    #loader;
    #undo;

    constructor(api, loader, undo) {
        this.#api = api;
        this.#loader = loader;
        this.#undo = undo;
    }

    // Every method throws Refusal when the change is refused. text: says what was done, for the notice.

    // Changes members of groups and servers, of each kind in one request. changes: array of {node, members, shown};
    // shown: the members as the tree has them, unless they are the same. They show before the server has accepted them,
    // as the page can put them back. isShownFirst: false for policies and delegates, as nobody should rely on a right
    // or a policy that is not in force.
    async set(changes, text, { isShownFirst = true, isUndoing = false } = {}) {
        const inverse = changes.map(({ node, members }) => inverseOf(node, Object.keys(members)));
        const patch = changes.map(({ node, members, shown = members }) => ({ node, members: shown }));
        await this.#loader.commit({
            nodes: changes.map(({ node }) => node),
            send: (nodes) => this.#sendByKind(changes.map(({ members }, i) => ({ node: nodes[i], members }))),
            patch: (records) => withMembers(records, patch),
            isShownFirst,
        });
        this.#undo.note(text, isUndoing ? null : this.#undoing(inverse, text, isShownFirst));
    }

    // Adds or removes a link of the nodes in one request. list: "link" or "unlink".
    async link(list, policy, nodes, text) {
        const changed = nodes.filter((node) => hasLink(node, policy.id) === (list === "unlink"));
        const inverse = changed.map((node) => inverseOf(node, ["linked_gpo"]));
        const patch = changed.map((node) => ({ node, members: linksWith(node, list, policy) }));
        await this.#loader.commit({
            nodes: changed,
            send: () => this.#api[list](policy.id, nodes),
            patch: (records) => withMembers(records, patch),
        });
        this.#undo.note(text, this.#undoing(inverse, text, false));
    }

    // Shows the group when the server has accepted it, as only the server knows its identifier. Returns that.
    async create(name, parentId, text) {
        const id = await this.#loader.commit({
            send: () => this.#api.createGroup(name, parentId),
            patch: (records, made) => withGroup(records, made, name, parentId),
        });
        this.#undo.note(text, null);
        return id;
    }

    // Shows the groups until the server has accepted this: a group that is no longer shown must be gone.
    async delete(nodes, text) {
        const { isPartial } = this.#loader.fleet;
        const ids = nodes.map(({ id }) => id);
        await this.#loader.commit({
            nodes,
            send: () => this.#api.deleteGroups(nodes),
            patch: (records) => withoutGroups(records, ids, isPartial),
        });
        this.#undo.note(text, null);
    }

    async #sendByKind(changes) {
        for (const isGroup of [true, false]) {
            const some = changes.filter(({ node }) => node.isGroup === isGroup);
            if (some.length > 0) {
                await this.#api.change(some);
            }
        }
    }

    // Returns a function that undoes a change. It keeps the revisions that the change left, so that the server refuses
    // to undo it when someone else has changed a node in between.
    #undoing(inverse, text, isShownFirst) {
        const left = this.#loader.fleet;
        const contents = new Map(inverse.map(({ key }) => [key, left.find(key)?.content]));
        const revisionIn = (fleet, key) => unchangedRevision(fleet.find(key), contents.get(key));
        const revisions = this.#loader.settled()
            .then((fleet) => new Map(inverse.map(({ key }) => [key, revisionIn(fleet, key)])));
        return async () => {
            const known = await revisions;
            const fleet = await this.#loader.settled();
            const changes = inverse.map(({ key, ...members }) => ({ node: fleet.find(key), ...members }));
            const changed = changes.find(({ node }, i) => node === null ||
                node.record.revision !== known.get(inverse[i].key));
            if (changed !== undefined) {
                const name = changed.node?.name ?? "A node";
                throw new Refusal("refused", `${name} was changed since by someone else, so that nothing was undone.`);
            }
            await this.set(changes, `Undone: ${text}`, { isShownFirst, isUndoing: true });
        };
    }
}

// Returns the values that the members have before a change.
function inverseOf(node, members) {
    const values = (form) => Object.fromEntries(members.map((member) => [member, MEMBERS[member][form](node)]));
    return { key: node.key, members: values("sent"), shown: values("shown") };
}

// Returns the revision of the node if it is as the change left it, else undefined.
function unchangedRevision(node, content) {
    return node?.content === content ? node?.record.revision : undefined;
}

function hasLink(node, policyId) {
    return node.links.some(({ id }) => id === policyId);
}

function linksWith(node, list, { id, name, description = "" }) {
    const others = (node.record.linked_gpo?.order ?? []).filter((link) => link.gpo_id !== id);
    const added = list === "link" ? [{ gpo_id: id, gpo_name: name, gpo_desc: description }] : [];
    return { linked_gpo: { order: [...others, ...added] } };
}

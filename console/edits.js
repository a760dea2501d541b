// Sends changes to the server and shows them in the tree; remembers how to undo and redo them.
import { Refusal } from "./api.js";
import { GROUP, keyOf } from "./fleet.js";
import { linkMember, withGroup, withMembers, withoutGroups } from "./patch.js";

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

    // Every method throws Refusal when the change is refused. text: says what was done, for the notice. state: a state
    // of undo.js; it is not "done" when the change undoes or redoes another one.

    // Changes members of groups and servers, of each kind in one request. changes: array of {node, members, shown};
    // shown: the members as the tree has them, unless they are the same. They show before the server has accepted them,
    // as the page can put them back. isShownFirst: false for policies and delegates, as nobody should rely on a right
    // or a policy that is not in force.
    async set(changes, text, { isShownFirst = true, state = "done" } = {}) {
        const inverse = changes.map(({ node, members }) => inverseOf(node, Object.keys(members)));
        const patch = changes.map(({ node, members, shown = members }) => ({ node, members: shown }));
        await this.#loader.commit({
            nodes: changes.map(({ node }) => node),
            send: (nodes) => this.#sendByKind(changes.map(({ members }, i) => ({ node: nodes[i], members }))),
            patch: (records) => withMembers(records, patch),
            isShownFirst,
        });
        this.#undo.note(text, state, this.#reversing(inverse, isShownFirst));
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
        this.#undo.note(text, "done", this.#reversing(inverse, false));
    }

    // Shows the group when the server has accepted it, as only the server knows its identifier. Returns that.
    async create(name, parentId, text) {
        const id = await this.#loader.commit({
            send: () => this.#api.createGroup(name, parentId),
            patch: (records, made) => withGroup(records, made, name, parentId),
        });
        const key = keyOf(GROUP, id);
        const made = { key, name, content: contentsOf(this.#loader.fleet, [key]).get(key) };
        const again = () => this.create(name, parentId, text); // as a new group: steps for the old one no longer fit
        this.#undo.note(text, "done", (state) => this.#deleteMade(made, text, state, again));
        return id;
    }

    async delete(nodes, text) {
        await this.#delete(nodes);
        this.#undo.note(text, "done", null);
    }

    // Deletes a group that the page created, unless it has changed since or something is in it.
    async #deleteMade(made, text, state, again) {
        const group = await this.#loader.latest(made);
        if (group.content !== made.content || group.children.length > 0) {
            throw new Refusal("refused", `${group.name} was changed since it was created, so it was not deleted.`);
        }
        await this.#delete([group]);
        this.#undo.note(text, state, again);
    }

    // Shows the groups until the server has accepted this: a group that is no longer shown must be gone.
    async #delete(nodes) {
        const { isPartial } = this.#loader.fleet;
        const ids = nodes.map(({ id }) => id);
        await this.#loader.commit({
            nodes,
            send: () => this.#api.deleteGroups(nodes),
            patch: (records) => withoutGroups(records, ids, isPartial),
        });
    }

    async #sendByKind(changes) {
        for (const isGroup of [true, false]) {
            const some = changes.filter(({ node }) => node.isGroup === isGroup);
            if (some.length > 0) {
                await this.#api.change(some);
            }
        }
    }

    // Returns a function that takes a change back, as Undo wants it. It compares the nodes with what the change left, and
    // the server compares their revisions, so that nothing is lost when someone else has changed a node in between.
    #reversing(inverse, isShownFirst) {
        const contents = contentsOf(this.#loader.fleet, inverse.map(({ key }) => key));
        return async (state, text) => {
            const fleet = await this.#loader.settled();
            const changes = inverse.map(({ key, ...members }) => ({ node: fleet.find(key), ...members }));
            const changed = changes.find(({ node }, i) => node?.content !== contents.get(inverse[i].key));
            if (changed !== undefined) {
                const name = changed.node?.name ?? "A node";
                throw new Refusal("refused", `${name} was changed since by someone else, so nothing was ${state}.`);
            }
            await this.set(changes, text, { isShownFirst, state });
        };
    }
}

// Returns the values that the members have before a change.
function inverseOf(node, members) {
    const values = (form) => Object.fromEntries(members.map((member) => [member, MEMBERS[member][form](node)]));
    return { key: node.key, members: values("sent"), shown: values("shown") };
}

// Returns the contents of the nodes by their keys. Steps to undo keep the contents only: a node would keep its fleet in
// memory.
function contentsOf(fleet, keys) {
    return new Map(keys.map((key) => [key, fleet.find(key)?.content]));
}

function hasLink(node, policyId) {
    return node.links.some(({ id }) => id === policyId);
}

function linksWith(node, list, policy) {
    const others = node.links.filter(({ id }) => id !== policy.id);
    return { linked_gpo: linkMember(list === "link" ? [...others, policy] : others) };
}

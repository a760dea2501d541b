// The changes that the page offers: what each asks the user, and what it then asks the server.
import { element } from "./dom.js";
import { ask, choice, listEditor, picker, textField } from "./dialogs.js";
import { inWords } from "./details.js";
import { keptLinks } from "./fleet.js";
import { groupOf } from "./tree.js";

const NAME = { required: true }; // its length is the server's to judge: a browser counts other units
const DELEGATE_USER_TYPE = 2;

export class Changes {
    #api;
    #page;

    // page: fleet, what is shown; commit(work, node) does work on the node as shown, asks for the tree again and tells
    // why not; say(text) when it is done; reveal(key).
    constructor(api, page) {
        this.#api = api;
        this.#page = page;
    }

    // The groups that a new group can be in when the node, or null, is chosen; the nearest last.
    parentsFor(node) {
        const { fleet } = this.#page;
        const groups = node === null ? [] : [...groupOf(node).ancestors, groupOf(node)];
        return [...(fleet.isPart ? [] : [fleet.root]), ...groups.filter((group) => group !== fleet.root)];
    }

    // place: the node chosen, or null.
    async create(place) {
        const options = this.parentsFor(place).map((group) => ({ value: group.id, text: this.#placeOf(group) }));
        const fields = [textField("Name", "name", "", NAME), choice("In", "parent", options)];
        const id = await ask("New group", "Create", fields,
            (data) => this.#page.commit(() => this.#api.createGroup(data.get("name"), Number(data.get("parent")))));
        if (id !== undefined) {
            this.#page.reveal(id);
            this.#page.say(`Group ${id} was created.`);
        }
    }

    async rename(node) {
        await this.#change(node, "Rename", "Rename", [textField("Name", "name", node.name, NAME)],
            (data) => ({ name: data.get("name") }));
    }

    async describe(node) {
        const field = textField("Description", "desc", node.record.desc ?? "", { tag: "textarea", rows: 4 });
        await this.#change(node, `Describe ${node.name}`, "Save", [field], (data) => ({ desc: data.get("desc") }));
    }

    async block(node) {
        const isBlocked = !node.blocksInheritance;
        await this.#page.commit(() => this.#api.changeGroup(node, { block_inheritance: isBlocked }), node);
        this.#page.say(isBlocked ? `${node.name} blocks inheritance.` : `${node.name} inherits again.`);
    }

    async move(node) {
        const { fleet } = this.#page;
        const options = [fleet.root, ...fleet.groups].filter((group) => this.canMove(node, group))
            .map((group) => ({ value: group.key, text: this.#placeOf(group) }));
        const parent = await ask(`Move ${node.name}`, "Move", [picker("To group", "parent", options)],
            (data) => this.#place(node, fleet.find(data.get("parent")) ?? fleet.root));
        this.#tellMoved(node, parent);
    }

    async moveTo(node, parent) {
        this.#tellMoved(node, await this.#place(node, parent));
    }

    canMove(node, parent) {
        const isTop = parent === this.#page.fleet.root;
        return node.isGroup && node.parent !== parent && !parent.isBelow(node) && !(isTop && this.#page.fleet.isPart);
    }

    async delete(shown) {
        const node = await this.#page.latest(shown); // the question is about what is there now
        const done = await ask(`Delete ${node.name}?`, "Delete", whatFollows(this.#page.fleet, node),
            () => this.#page.commit(() => this.#api.deleteGroup(node), node).then(() => true));
        if (done) {
            this.#page.reveal(node.parent.id);
            this.#page.say(`${node.name} was deleted.`);
        }
    }

    async policies(node) {
        const editor = listEditor("Policies in order", node.links, this.#page.fleet.policies,
            { isOrdered: true, add: "Add a policy" });
        await ask(`Policies of ${node.name}`, "Save", editor.contents, () => this.#page.commit(
            () => (node.isGroup ? this.#linkGroup(node, editor.ids()) : this.#linkServer(node, editor.ids())), node)
            .then(() => this.#page.say(`The policies of ${node.name} were changed.`)));
    }

    async delegates(node) {
        const more = (text) => (/^\d{1,10}$/.test(text) ? { value: text, text: `uid ${text}` } : null);
        const editor = listEditor("Delegates", node.delegates, this.#page.fleet.accounts,
            { isOrdered: false, add: "Add an account, by name or uid", more });
        await this.#change(node, `Delegates of ${node.name}`, "Save", editor.contents,
            () => ({ delegate: editor.ids().map((ugid) => ({ ugid, user_type: DELEGATE_USER_TYPE })) }));
    }

    #placeOf(group) {
        return group === this.#page.fleet.root ? "Top level" : group.path;
    }

    async #place(node, parent) {
        await this.#page.commit(() => this.#api.changeGroup(node, { parent_id: parent.id }), node);
        return parent;
    }

    #tellMoved(node, parent) {
        if (parent !== undefined) {
            this.#page.reveal(node.id);
            this.#page.say(`${node.name} was moved to ${parent.name}.`);
        }
    }

    async #change(node, title, confirm, contents, membersOf) {
        const done = await ask(title, confirm, contents, (data) => this.#page.commit(
            () => this.#api.changeGroup(node, membersOf(data)), node).then(() => true));
        if (done) {
            this.#page.say(`${node.name} was changed.`);
        }
    }

    async #linkGroup(node, ids) {
        await this.#api.changeGroup(node, { linked_gpo: { order: ids.map((id) => ({ id })) } });
    }

    // A server's links change one by one, and a new one comes last: those that are to stand behind are linked anew.
    async #linkServer(node, ids) {
        const before = node.links.map(({ id }) => id);
        const kept = keptLinks(before, ids);
        await this.#page.requireUnchanged(node);
        for (const id of before.filter((id) => !kept.has(id))) {
            await this.#api.unlink(id, node);
        }
        for (const id of ids.filter((id) => !kept.has(id))) {
            await this.#api.link(id, node);
        }
    }
}

// What the deletion of the group means for those below it.
function whatFollows(fleet, node) {
    const counts = fleet.counts(node);
    const { group, server, policy } = counts;
    const place = fleet.isPart ? "the top level, where this account does not see them" : "the top level";
    return [
        element("p", {}, `Below it: ${inWords(counts)}.`),
        group > 0 && element("p", {}, `Deleted with it: ${inWords({ group })}.`),
        server + policy > 0 && element("p", {}, `Moved to ${place}: ${inWords({ server, policy })}.`),
    ].filter(Boolean);
}

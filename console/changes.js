// Carries out each change that the page offers: asks the user for the values, then sends the request.
import { element } from "./dom.js";
import { ask, choice, listEditor, picker, textField } from "./dialogs.js";
import { inWords } from "./details.js";
import { GROUP, keptLinks, keyOf } from "./fleet.js";
import { withGroup, withMembers, withoutGroup } from "./patch.js";

const NAME = { required: true }; // no maxlength: the browser counts UTF-16 units, the server characters
const DELEGATE_USER_TYPE = 2;

export class Changes {
    #api;
    #loader;
    #view;
    #notice;

    constructor(api, loader, view, notice) {
        this.#api = api;
        this.#loader = loader;
        this.#view = view;
        this.#notice = notice;
    }

    // Every change throws Refusal when it is refused and no dialog shows why.

    // selected: the node near which the group is created, or null.
    async create(selected) {
        const parents = this.#loader.fleet.parentsFor(selected);
        const options = parents.map((group) => ({ value: group.id, text: this.#pathOf(group) }));
        const fields = [textField("Name", "name", "", NAME), choice("In", "parent", options)];
        const id = await ask("New group", "Create", fields,
            (data) => this.#createGroup(data.get("name"), Number(data.get("parent"))));
        if (id !== undefined) {
            this.#reveal(id, `Group ${id} was created.`);
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

    // Switches whether the group blocks inheritance.
    async block(node) {
        const isBlocked = !node.blocksInheritance;
        await this.#set(node, { block_inheritance: isBlocked });
        this.#notice.say(isBlocked ? `${node.name} blocks inheritance.` : `${node.name} inherits again.`);
    }

    async move(node) {
        const { fleet } = this.#loader;
        const options = [fleet.root, ...fleet.groups].filter((group) => fleet.canMove(node, group))
            .map((group) => ({ value: group.key, text: this.#pathOf(group) }));
        const parent = await ask(`Move ${node.name}`, "Move", [picker("To group", "parent", options)],
            (data) => this.#setParent(node, fleet.find(data.get("parent")) ?? fleet.root));
        if (parent !== undefined) {
            this.#revealMoved(node, parent);
        }
    }

    // Moves without asking.
    async moveTo(node, parent) {
        await this.#setParent(node, parent);
        this.#revealMoved(node, parent);
    }

    async delete(shown) {
        const node = await this.#loader.latest(shown); // the dialog counts the nodes below as they are now
        const done = await ask(`Delete ${node.name}?`, "Delete", consequences(this.#loader.fleet, node),
            () => this.#deleteGroup(node).then(() => true));
        if (done) {
            this.#reveal(node.parent.id, `${node.name} was deleted.`);
        }
    }

    async policies(node) {
        const editor = listEditor("Policies in order", node.links, this.#loader.fleet.policies,
            { isOrdered: true, add: "Add a policy" });
        await ask(`Policies of ${node.name}`, "Save", editor.contents, () => this.#link(node, editor.ids())
            .then(() => this.#notice.say(`The policies of ${node.name} were changed.`)));
    }

    async delegates(node) {
        const more = (text) => (/^\d{1,10}$/.test(text) ? { value: text, text: `uid ${text}` } : null);
        const editor = listEditor("Delegates", node.delegates, this.#loader.fleet.accounts,
            { isOrdered: false, add: "Add an account, by name or uid", more });
        const names = new Map([...this.#loader.fleet.accounts, ...node.delegates].map(({ id, name }) => [id, name]));
        await this.#change(node, `Delegates of ${node.name}`, "Save", editor.contents,
            () => ({ delegate: editor.ids().map((ugid) => ({ ugid, user_type: DELEGATE_USER_TYPE })) }),
            ({ delegate }) => ({ delegate: delegate.map(({ ugid }) => ({ ugid, name: names.get(ugid) })) }));
    }

    #pathOf(group) {
        return group === this.#loader.fleet.root ? "Top level" : group.path;
    }

    // Changes members of the group's record. They show before the server has accepted them: the page knows all that
    // they change and can put it back. shownOf(members): returns them in the form of the tree. Policies and delegates
    // have it; they show only after the answer, as nobody should rely on a right or a policy that is not in force.
    #set(node, members, shownOf = null) {
        const shown = shownOf === null ? members : shownOf(members);
        return this.#loader.commit({
            node,
            send: (confirmed) => this.#api.changeGroup(confirmed, members),
            patch: (records) => withMembers(records, node, shown),
            isShownFirst: shownOf === null,
        });
    }

    // Shows the group when the server has accepted it, as only the server knows its identifier.
    #createGroup(name, parentId) {
        return this.#loader.commit({
            send: () => this.#api.createGroup(name, parentId),
            patch: (records, id) => withGroup(records, id, name, parentId),
        });
    }

    // Shows the group until the server has accepted this: a group that is no longer shown must be gone.
    #deleteGroup(node) {
        const { isPartial } = this.#loader.fleet;
        return this.#loader.commit({
            node,
            send: () => this.#api.deleteGroup(node),
            patch: (records) => withoutGroup(records, node.id, isPartial),
        });
    }

    async #setParent(node, parent) {
        await this.#set(node, { parent_id: parent.id });
        return parent;
    }

    #revealMoved(node, parent) {
        this.#reveal(node.id, `${node.name} was moved to ${parent.name}.`);
    }

    #reveal(groupId, message) {
        this.#view.reveal(keyOf(GROUP, groupId));
        this.#notice.say(message);
    }

    // shownOf: for #set.
    async #change(node, title, confirm, contents, membersOf, shownOf) {
        const done = await ask(title, confirm, contents,
            (data) => this.#set(node, membersOf(data), shownOf).then(() => true));
        if (done) {
            this.#notice.say(`${node.name} was changed.`);
        }
    }

    // ids: of all policies that the node is to link, in order.
    #link(node, ids) {
        const { fleet } = this.#loader;
        const known = new Map([...fleet.policies, ...node.links].map((policy) => [policy.id, policy]));
        const order = ids.map((id) => known.get(id))
            .map(({ id, name, description }) => ({ gpo_id: id, gpo_name: name, gpo_desc: description }));
        const shown = { linked_gpo: { order } };
        if (node.isGroup) {
            return this.#set(node, { linked_gpo: { order: ids.map((id) => ({ id })) } }, () => shown);
        }
        return this.#loader.commit({
            node,
            send: (confirmed) => this.#linkServer(confirmed, ids),
            patch: (records) => withMembers(records, node, shown),
        });
    }

    // The server links and unlinks one policy at a time and puts a new link last, so that the policies after a changed
    // position are unlinked and linked again in the wanted order.
    async #linkServer(node, ids) {
        const before = node.links.map(({ id }) => id);
        const kept = keptLinks(before, ids);
        await this.#loader.requireUnchanged(node);
        for (const id of before.filter((id) => !kept.has(id))) {
            await this.#api.unlink(id, node);
        }
        for (const id of ids.filter((id) => !kept.has(id))) {
            await this.#api.link(id, node);
        }
    }
}

// Returns paragraphs that say what happens to the nodes below the group when it is deleted.
function consequences(fleet, node) {
    const counts = fleet.counts(node);
    const { group, server, policy } = counts;
    const place = fleet.isPartial ? "the top level, where this account does not see them" : "the top level";
    return [
        element("p", {}, `Below it: ${inWords(counts)}.`),
        group > 0 && element("p", {}, `Deleted with it: ${inWords({ group })}.`),
        server + policy > 0 && element("p", {}, `Moved to ${place}: ${inWords({ server, policy })}.`),
    ].filter(Boolean);
}

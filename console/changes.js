// Carries out each change of one node that the page offers: asks the user for the values, then sends the request.
import { ask } from "./dialogs.js";
import { ifBlocked, ifLinked } from "./effects.js";
import { effectsBox } from "./effects_view.js";
import { choice, textField } from "./fields.js";
import { GROUP, keyOf } from "./fleet.js";
import { listEditor } from "./list_editor.js";
import { linkMember } from "./patch.js";

const NAME = { required: true }; // no maxlength: the browser counts UTF-16 units, the server characters
const DELEGATE_USER_TYPE = 2;

export class Changes {
    #api;
    #edits;
    #loader;
    #view;

    constructor(api, edits, loader, view) {
        this.#api = api;
        this.#edits = edits;
        this.#loader = loader;
        this.#view = view;
    }

    // Every change throws Refusal when it is refused and no dialog shows why.

    // selected: the node near which the group is created, or null.
    async create(selected) {
        const parents = this.#loader.fleet.parentsFor(selected);
        const options = parents.map((group) => ({ value: group.id, text: group.path || "Top level" }));
        const id = await ask({
            title: "New group",
            confirm: "Create",
            contents: [textField("Name", "name", "", NAME), choice("In", "parent", options)],
            act: (data) => this.#edits.create(data.get("name"), Number(data.get("parent")),
                `${data.get("name")} was created.`),
        });
        if (id !== undefined) {
            this.#view.reveal(keyOf(GROUP, id));
        }
    }

    // typed: the name to begin with. refusal: why it was refused before, or null.
    async rename(node, typed = node.name, refusal = null) {
        const asked = (keep) => ask({
            title: "Rename",
            confirm: "Rename",
            contents: [textField("Name", "name", typed, NAME)],
            refusal,
            act: (data) => this.#rename(node, keep(data.get("name"))),
        });
        await this.#askAgain(node, asked, (now, name, error) => this.rename(now, name, error));
    }

    // Renames in the row, or in a dialog when the row is not in view. A refused name is shown in the dialog.
    renameInRow(node) {
        const send = (name) => this.#rename(node, name).catch((error) => {
            if (error.isFinal || error.reason !== "refused") {
                throw error;
            }
            return this.rename(node, name, error);
        });
        const done = (name) => name !== null && this.#view.attempt(() => send(name));
        return this.#view.edit(node, done) ? undefined : this.rename(node);
    }

    // typed, refusal: as for rename.
    async describe(node, typed = node.record.desc ?? "", refusal = null) {
        const asked = (keep) => ask({
            title: `Describe ${node.name}`,
            confirm: "Save",
            contents: [textField("Description", "desc", typed, { tag: "textarea", rows: 4 })],
            refusal,
            act: (data) => this.#set(node, { desc: keep(data.get("desc")) }),
        });
        await this.#askAgain(node, asked, (now, text, error) => this.describe(now, text, error));
    }

    // Switches whether the group blocks inheritance; asks when that changes the policies of servers.
    async block(node) {
        const isBlocked = !node.blocksInheritance;
        const { fleet } = this.#loader;
        const effects = effectsBox(fleet, [node], ifBlocked(node, isBlocked));
        const text = `${node.name} ${isBlocked ? "blocks inheritance" : "inherits again"}.`;
        const act = () => this.#set(node, { block_inheritance: isBlocked }, text).then(() => true);
        if (!effects.hasEffects) {
            await act();
            return;
        }
        const title = `${isBlocked ? "Block" : "Allow"} inheritance in ${node.name}?`;
        const done = await ask({ title, confirm: isBlocked ? "Block" : "Allow", contents: [effects.box], act });
        if (done === undefined) {
            this.#view.showSelected(); // resets the checkbox
        }
    }

    async policies(node) {
        const { fleet } = this.#loader;
        const editor = listEditor("Policies in order", node.links, fleet.policies,
            { isOrdered: true, add: "Add a policy" });
        await ask({
            title: `Policies of ${node.name}`,
            confirm: "Save",
            contents: editor.contents,
            isReady: editor.isReady,
            preview: () => editor.isChanged() && effectsBox(fleet, [node], ifLinked([node], editor.ids)).box,
            act: () => this.#setLinks(node, editor.ids()),
        });
    }

    async delegates(node) {
        const names = new Map(node.delegates.map(({ id, name }) => [id, name]));
        const search = async (text) => {
            const found = await this.#api.accounts(text);
            found.forEach(({ uid, name }) => names.set(uid, name));
            return found.map(({ uid, name }) => ({ value: uid, text: name }));
        };
        const editor = listEditor("Delegates", node.delegates, [],
            { isOrdered: false, add: "Add an account by name or uid", search });
        await ask({
            title: `Delegates of ${node.name}`,
            confirm: "Save",
            contents: editor.contents,
            isReady: editor.isReady,
            act: () => {
                const delegate = editor.ids().map((ugid) => ({ ugid, user_type: DELEGATE_USER_TYPE }));
                const shown = { delegate: delegate.map(({ ugid }) => ({ ugid, name: names.get(ugid) })) };
                return this.#edits.set([{ node, members: { delegate }, shown }], `${node.name} was changed.`,
                    { isShownFirst: false });
            },
        });
    }

    // Asks for a text. When someone else has changed the node meanwhile, asks again about the node as it is now.
    // asked(keep): shows the dialog and keeps the text that it sends. again(node, text, error): shows it again.
    async #askAgain(node, asked, again) {
        let sent = "";
        const keep = (text) => (sent = text);
        try {
            await asked(keep);
        } catch (error) {
            const now = this.#loader.fleet.find(node.key);
            if (error.reason !== "stale" || now === null) {
                throw error;
            }
            await again(now, sent, error);
        }
    }

    async #rename(node, name) {
        await this.#set(node, { name }, `${node.name} was renamed to ${name}.`);
    }

    #set(node, members, text = `${node.name} was changed.`) {
        this.#view.keep([node]); // the filter may not match it any more
        return this.#edits.set([{ node, members }], text);
    }

    // ids: of all policies that the node is to link, in order.
    #setLinks(node, ids) {
        const { fleet } = this.#loader;
        this.#view.keep([node]);
        const known = new Map([...fleet.policies, ...node.links].map((policy) => [policy.id, policy]));
        const members = { linked_gpo: { order: ids.map((id) => ({ id })) } };
        const change = { node, members, shown: { linked_gpo: linkMember(ids.map((id) => known.get(id))) } };
        return this.#edits.set([change], `The policies of ${node.name} were changed.`, { isShownFirst: false });
    }
}

// Runs the commands of the buttons, the details and the keyboard, and holds the nodes that are cut.
import { copy } from "./copy.js";
import { byId } from "./dom.js";
import { showKeys } from "./keys.js";
import { nameOf } from "./words.js";

const ONE_GROUP = ["rename", "describe", "block", "delegates"]; // methods of Changes
const MANY = ["addPolicy", "removePolicy"]; // methods of Many

export class Commands {
    #changes;
    #many;
    #undo;
    #loader;
    #view;
    #notice;
    #signIn;
    #cutKeys = [];

    constructor({ changes, many, undo, loader, view, notice, signIn }) {
        this.#changes = changes;
        this.#many = many;
        this.#undo = undo;
        this.#loader = loader;
        this.#view = view;
        this.#notice = notice;
        this.#signIn = signIn;
        for (const id of ["top", "bar", "notice", "place", "account-menu", "status-line"]) {
            byId(id).addEventListener("click", ({ target }) => this.#press(target.closest("button")));
        }
    }

    // Runs a command for the selected nodes. name: a command that is not known is ignored. key: of another node that
    // the command is about.
    run(name, key = null) {
        const nodes = this.#view.selection;
        const command = this.#always(name, nodes) ?? this.#forOne(name, nodes, key) ?? this.#forSome(name, nodes);
        if (command) {
            this.#view.attempt(command).then(() => this.#view.restoreFocus(name));
        } else if (nodes.length > 0) {
            this.#notice.say(hintFor(name, nodes));
        }
    }

    // Moves dragged nodes to the parent on which they were dropped.
    move(nodes, parent) {
        this.#view.attempt(() => this.#many.moveTo(nodes, parent));
    }

    copy(text) {
        return this.#view.attempt(async () => {
            await copy(text);
            this.#notice.say("Copied.");
        });
    }

    #always(name, nodes) {
        return {
            create: () => this.#changes.create(nodes[0] ?? null),
            cancel: () => this.#cancel(),
            undo: () => this.#undo.undo(),
            redo: () => this.#undo.redo(),
            keys: () => showKeys(),
            search: () => this.#view.search(),
            back: () => this.#view.back(),
            again: () => this.#loader.refresh(),
            dismiss: () => this.#dismiss(),
            open: () => this.#view.openDetails(),
        }[name];
    }

    #forOne(name, nodes, key) {
        const [node] = nodes;
        if (nodes.length !== 1) {
            return undefined;
        }
        const commands = {
            edit: node.isGroup && (() => this.#changes.renameInRow(node)),
            policies: !node.isPolicy && (() => this.#changes.policies(node)),
            linkTo: node.isPolicy && (() => this.#many.linkTo(node)),
            unlink: node.isPolicy && (() => this.#many.unlink(node, this.#loader.fleet.find(key))),
        };
        const isForGroup = node.isGroup && ONE_GROUP.includes(name);
        return commands[name] || (isForGroup ? () => this.#changes[name](node) : undefined);
    }

    #forSome(name, nodes) {
        const canMove = nodes.length > 0 && nodes.some((node) => !node.isPolicy);
        const commands = {
            policies: nodes.length > 1 && canMove && (() => this.#many.addPolicy(nodes)),
            copy: nodes.length > 0 && (() => this.copy(nodes.map((node) => node.name).join("\n"))),
            cut: canMove && (() => this.#setCut(nodes.filter((node) => !node.isPolicy))),
            paste: nodes.length === 1 && (() => this.#paste(nodes[0])),
            move: canMove && (() => this.#many.move(nodes)),
            delete: nodes.some((node) => node.isGroup) && (() => this.#many.delete(nodes)),
        };
        return commands[name] || (canMove && MANY.includes(name) ? () => this.#many[name](nodes) : undefined);
    }

    // button: null when the click was beside the buttons.
    #press(button) {
        const actions = {
            "sign-out": () => this.#signIn.signOut(),
            "open-all": () => this.#view.setAllOpen(true),
            "close-all": () => this.#view.setAllOpen(false),
            "clear-filter": () => this.#view.clearFilter(),
        };
        if (button !== null && !button.hasAttribute("popovertarget")) {
            (actions[button.id] ?? (() => this.run(button.id)))();
        }
    }

    #dismiss() {
        this.#notice.hide();
        this.#view.focus();
    }

    // nodes: none when nothing is cut any more.
    #setCut(nodes) {
        this.#cutKeys = nodes.map(({ key }) => key);
        this.#view.markCut(nodes);
        this.#notice.say(nodes.length === 0 ? "" :
            `${nameOf(nodes)} cut. Choose a group and press Ctrl+V; Escape undoes the cut.`);
    }

    async #paste(target) {
        const { fleet } = this.#loader;
        const nodes = fleet.sortedNodes(this.#cutKeys);
        if (nodes.length === 0) {
            return;
        }
        const parent = target.nearestGroup;
        if (!fleet.canMoveAll(nodes, parent)) {
            this.#notice.say(`${nameOf(nodes)} cannot be moved to ${parent.name}.`);
            return;
        }
        this.#setCut([]);
        await this.#many.moveTo(nodes, parent);
    }

    #cancel() {
        if (this.#cutKeys.length > 0) {
            this.#setCut([]);
        } else {
            this.#view.clearFilter();
        }
    }
}

function hintFor(name, nodes) {
    const what = { policies: "Policies have no policies.", move: "Policies cannot be moved here." }[name];
    const forOne = "Only groups can be renamed, deleted or delegated here.";
    return what ?? (nodes.length > 1 ? "Select one group for that." : forOne);
}

// Runs the commands of the toolbar, the notice bar, the details and the keyboard, and holds the node that is cut.
import { byId } from "./dom.js";

const GROUP_COMMANDS = ["rename", "describe", "move", "delete", "block", "delegates"]; // methods of Changes

export class Commands {
    #changes;
    #loader;
    #view;
    #notice;
    #signIn;
    #cutKey = null;

    constructor({ changes, loader, view, notice, signIn }) {
        this.#changes = changes;
        this.#loader = loader;
        this.#view = view;
        this.#notice = notice;
        this.#signIn = signIn;
        for (const id of ["toolbar", "notice"]) {
            byId(id).addEventListener("click", ({ target }) => this.#press(target.closest("button")));
        }
    }

    // Runs a command for the selected node, or null.
    run(name, node) {
        const commands = {
            create: () => this.#changes.create(node),
            cancel: () => this.#cancel(),
            paste: () => this.#paste(node),
            cut: node?.isGroup && (() => this.#setCut(node)),
            policies: node && (() => this.#changes.policies(node)),
        };
        const groupCommand = node?.isGroup && GROUP_COMMANDS.includes(name) && (() => this.#changes[name](node));
        const command = commands[name] || groupCommand;
        if (command) {
            this.#view.attempt(command).then(() => this.#view.restoreFocus(name));
        } else if (node !== null) {
            this.#notice.say("Only groups can be renamed, moved or deleted here.");
        }
    }

    // Moves a dragged node to the parent on which it was dropped.
    move(node, parent) {
        this.#view.attempt(() => this.#changes.moveTo(node, parent));
    }

    // button: null when the click was beside the buttons.
    #press(button) {
        const actions = {
            "sign-out": () => this.#signIn.signOut(),
            "open-all": () => this.#view.setAllOpen(true),
            "close-all": () => this.#view.setAllOpen(false),
            "again": () => this.#loader.refresh(),
            "dismiss": () => this.#dismiss(),
        };
        if (button !== null) {
            (actions[button.id] ?? (() => this.run(button.id, this.#view.selected)))();
        }
    }

    #dismiss() {
        this.#notice.hide();
        this.#view.focus();
    }

    // node: null when no node is cut any more.
    #setCut(node) {
        this.#cutKey = node?.key ?? null;
        this.#view.markCut(node);
        const text = node && `${node.name} is cut. Choose a group and press Ctrl+V; Escape leaves it where it is.`;
        this.#notice.say(text ?? "");
    }

    async #paste(target) {
        const { fleet } = this.#loader;
        const node = fleet.find(this.#cutKey ?? "");
        if (node === null || target === null) {
            return;
        }
        const parent = target.nearestGroup;
        if (!fleet.canMove(node, parent)) {
            this.#notice.say(`${node.name} cannot be moved to ${parent.name}.`);
            return;
        }
        this.#setCut(null);
        await this.#changes.moveTo(node, parent);
    }

    #cancel() {
        if (this.#cutKey !== null) {
            this.#setCut(null);
        } else {
            this.#view.clearFilter();
        }
    }
}

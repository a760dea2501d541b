// Shows the fleet: the tree and its filter, the details of the selected node and the counts below.
import { Details, inWords } from "./details.js";
import { byId, plural } from "./dom.js";
import { Fleet } from "./fleet.js";
import { keepTreeState, keptTreeState } from "./session.js";
import { FleetTree } from "./tree.js";

const NO_GROUPS = "This fleet has no groups yet. Create the first one with “New group”.";
const NO_RIGHTS = "No group is delegated to this account, so that there is nothing to show. Ask an administrator to " +
    "make it a delegate of a group, or sign in with another token.";

const TO_TOP = ", or on the header for the top level";

export class FleetView {
    #notice;
    #listener;
    #tree;
    #details;
    #fleet = new Fleet([]);

    // listener: command(name, node or null) for a key in the tree or a button of the details; move(node, parent) for a
    // node that was dragged; mayManageAll() returns a promise of whether the account manages the top level.
    constructor(notice, listener) {
        this.#notice = notice;
        this.#listener = listener;
        this.#tree = new FleetTree(byId("tree"), {
            select: () => this.#showSelected(),
            command: listener.command,
            move: listener.move,
            drag: (node) => this.#explainDrag(node),
        }, keptTreeState());
        this.#details = new Details(byId("details"), {
            goTo: (key) => this.reveal(key),
            change: (name) => listener.command(name, this.selected),
        });
        byId("filter").addEventListener("input", ({ target }) =>
            this.#filter(() => this.#tree.showFiltered(target.value)));
        byId("filter").addEventListener("keydown", (event) => this.#leaveFilter(event));
        addEventListener("pagehide", () => keepTreeState(this.#tree.state));
    }

    // The selected node, or null.
    get selected() {
        return this.#fleet.find(this.#tree.selected ?? "");
    }

    // Shows the fleet in place of the one before.
    show(fleet) {
        this.#fleet = fleet;
        byId("counts").textContent = inWords(fleet.counts(fleet.root));
        this.#filter(() => this.#tree.show(fleet, byId("filter").value));
        this.#showSelected();
        this.#explainEmpty();
    }

    // Runs work, which may throw Refusal, and reports the refusal.
    async attempt(work) {
        try {
            await work();
        } catch (error) {
            this.#notice.report(error);
            this.#showSelected(); // resets the checkbox that the user changed
        }
    }

    // Selects the node of the key and brings it into view, without the filter if that hides it.
    reveal(key) {
        if (this.#fleet.find(key)?.isShown === false) {
            this.clearFilter();
        }
        this.#tree.reveal(key);
        this.#tree.focus();
    }

    clearFilter() {
        byId("filter").value = "";
        this.#filter(() => this.#tree.showFiltered(""));
    }

    setAllOpen(isOpen) {
        this.#tree.setAllOpen(isOpen);
    }

    // Marks the row of a node that is cut; null removes the mark.
    markCut(node) {
        this.#tree.markCut(node);
    }

    focus() {
        this.#tree.focus();
    }

    // Focuses the button of the command, or the tree, when the focused element was removed by a redraw.
    restoreFocus(command) {
        if (document.activeElement === document.body && !this.#details.focus(command)) {
            this.#tree.focus();
        }
    }

    #showSelected() {
        const node = this.selected;
        this.#details.show(this.#fleet, node);
        for (const name of ["rename", "move", "delete"]) {
            byId(name).disabled = node === null || !node.isGroup;
        }
        byId("create").disabled = this.#fleet.parentsFor(node).length === 0;
    }

    async #explainEmpty() {
        const isEmpty = this.#fleet.nodes.length === 0;
        byId("empty").hidden = !isEmpty;
        byId("tree").hidden = isEmpty;
        if (isEmpty) {
            byId("empty").textContent = "";
            await this.attempt(async () => {
                const mayCreate = await this.#listener.mayManageAll();
                byId("create").disabled = !mayCreate;
                byId("empty").textContent = mayCreate ? NO_GROUPS : NO_RIGHTS;
            });
        }
    }

    // Says in the status line where the dragged node can be dropped; clears the line when node is null.
    #explainDrag(node) {
        const text = node && `Drop ${node.name} on a group${this.#fleet.isPartial ? "" : TO_TOP}.`;
        this.#notice.say(text ?? "");
    }

    // Filters the fleet by the text in the field, then calls display, which draws the tree.
    #filter(display) {
        const text = byId("filter").value;
        const hits = this.#fleet.filter(text);
        byId("hits").textContent = text.trim() === "" ? "" : plural(hits, "hit");
        display();
    }

    #leaveFilter(event) {
        if (event.key === "ArrowDown" || event.key === "Enter") {
            event.preventDefault();
            this.#tree.enter();
        } else if (event.key === "Escape") {
            event.preventDefault();
            this.clearFilter();
        }
    }
}

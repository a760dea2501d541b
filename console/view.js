// Shows the fleet: the tree and its filter, the details of the selected nodes and the counts below.
import { Details } from "./details.js";
import { byId, element, icon, plural } from "./dom.js";
import { download } from "./download.js";
import { Fleet } from "./fleet.js";
import { Layout } from "./layout.js";
import { keyInAddress, Links } from "./links.js";
import { Path } from "./path.js";
import { Proposals } from "./proposals.js";
import { mistakeIn } from "./query.js";
import { FleetTree } from "./tree.js";
import { inWords, nameOf } from "./words.js";

const NO_GROUPS = ["No groups yet", "Create the first one with “New group” above, then " +
    "move servers into it and link policies to it."];
const NO_RIGHTS = ["Nothing to show", "No group is delegated to this account. Ask an administrator to make it a " +
    "delegate of a group, or sign in with another token."];
const NO_HITS = "No hits";
const NOTHING = "Nothing in this fleet matches the filter.";

const TO_TOP = ", or on the header for the top level";

export class FleetView {
    #notice;
    #listener;
    #tree;
    #details;
    #path;
    #links;
    #proposals;
    #layout = new Layout();
    #fleet = new Fleet([]);
    #kept = new Set(); // keys of nodes that the filter shows whether they match or not
    #isFirst = true;

    // history: a History. listener: command(name, key) for a key in the tree or a button of the details, key being that
    // of another node or undefined; move(nodes, parent) for nodes that were dragged; copy(text); mayManageAll() returns
    // a promise of whether the account manages the top level.
    constructor(notice, history, listener) {
        this.#notice = notice;
        this.#listener = listener;
        const goTo = (key) => this.reveal(key);
        this.#tree = new FleetTree(byId("tree"), {
            select: () => this.showSelected(),
            command: (name) => listener.command(name),
            press: () => this.#layout.showSheet(true),
            move: listener.move,
            drag: (nodes) => this.#explainDrag(nodes),
        });
        this.#details = new Details(byId("details"), history, { goTo, change: listener.command, copy: listener.copy });
        this.#path = new Path({ goTo });
        this.#links = new Links(goTo);
        this.#proposals = new Proposals(() => this.#fleet);
        byId("filter").addEventListener("input", () => this.#applyFilter());
        byId("filter").addEventListener("keydown", (event) => this.#leaveFilter(event));
        byId("details").addEventListener("keydown", ({ key }) => key === "Escape" && this.back());
        byId("skeleton").append(...Array.from({ length: 24 }, () => element("i")));
    }

    // The selected nodes in the order of the rows.
    get selection() {
        return this.#fleet.sortedNodes(this.#tree.selected);
    }

    // Shows the fleet in place of the one before.
    show(fleet) {
        this.#fleet = fleet;
        byId("skeleton").hidden = true;
        byId("counts").textContent = inWords(fleet.total);
        this.#filter(() => this.#tree.show(fleet, byId("filter").value));
        if (this.#isFirst && fleet.nodes.length > 0) {
            this.#isFirst = false;
            requestAnimationFrame(() => setTimeout(() => this.#showLinked()));
        }
        this.showSelected();
        this.#explainEmpty();
    }

    // Runs work, which may throw Refusal, and reports the refusal.
    async attempt(work) {
        try {
            await work();
        } catch (error) {
            this.#notice.report(error);
            this.showSelected(); // resets the checkbox that the user changed
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

    select(nodes) {
        this.#tree.select(nodes.map(({ key }) => key));
    }

    // Lets the filter show the nodes until its text changes, whether they match or not.
    keep(nodes) {
        nodes.forEach(({ key }) => this.#kept.add(key));
    }

    // Lets the user edit the name of the node in its row; see FleetTree.
    edit(node, done) {
        return this.#tree.edit(node, done);
    }

    clearFilter() {
        byId("filter").value = "";
        this.#applyFilter();
        this.#proposals.hide();
    }

    search() {
        byId("filter").focus();
        byId("filter").select();
    }

    // Brings the details to the user: over the tree in a narrow window.
    openDetails() {
        this.#layout.showSheet(true);
        byId("details").focus();
    }

    // Leaves the details for the tree.
    back() {
        this.#layout.showSheet(false);
        this.#tree.focus();
    }

    setAllOpen(isOpen) {
        this.#tree.setAllOpen(isOpen);
    }

    fitColumns() {
        this.#tree.fitColumns();
    }

    // Saves the rows that the filter shows; format: see download.js.
    download(format) {
        const isFiltered = byId("filter").value.trim() !== "";
        download(this.#fleet.nodes.filter((node) => (isFiltered ? node.isHit : true)), format);
    }

    // Marks the rows of nodes that are cut; an empty array removes the marks.
    markCut(nodes) {
        this.#tree.markCut(nodes);
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

    // Shows the selected nodes in the details, the path and the toolbar.
    showSelected() {
        const nodes = this.selection;
        const only = nodes.length === 1 ? nodes[0] : null;
        this.#details.show(this.#fleet, nodes);
        this.#path.show(only);
        if (!this.#isFirst) {
            this.#links.note(only);
        }
        byId("rename").disabled = only === null || !only.isGroup;
        byId("move").disabled = !nodes.some((node) => !node.isPolicy);
        byId("delete").disabled = !nodes.some((node) => node.isGroup);
        byId("create").disabled = this.#fleet.parentsFor(nodes[0] ?? null).length === 0;
    }

    // Selects the node that the address names.
    #showLinked() {
        const key = keyInAddress();
        if (key !== null && this.#tree.selected.size === 0 && this.#fleet.find(key) !== null) {
            this.reveal(key);
        }
    }

    async #explainEmpty() {
        if (this.#fleet.nodes.length > 0) {
            return;
        }
        this.#sayEmpty(null);
        await this.attempt(async () => {
            const mayCreate = await this.#listener.mayManageAll();
            byId("create").disabled = !mayCreate;
            this.#sayEmpty(mayCreate ? NO_GROUPS : NO_RIGHTS);
        });
    }

    // texts: a title and what to do; null shows nothing in place of the rows.
    #sayEmpty(texts, ...more) {
        const [title, advice] = texts ?? [];
        const isFilled = this.#fleet.root.shownChildren > 0;
        byId("empty").hidden = isFilled;
        byId("tree").hidden = !isFilled;
        byId("empty").replaceChildren(...(texts === null ? [] :
            [icon("group"), element("h2", {}, title), element("p", {}, advice), ...more]));
    }

    // Says in the status line where dragged nodes can be dropped; clears the line when there are none.
    #explainDrag(nodes) {
        const top = this.#fleet.isPartial ? "" : TO_TOP;
        this.#notice.say(nodes.length === 0 ? "" : `Drop ${nameOf(nodes)} on a group${top}.`);
    }

    #applyFilter() {
        this.#kept.clear();
        this.#filter(() => this.#tree.showFiltered(byId("filter").value));
    }

    // Filters the fleet by the text in the field, then calls display, which draws the tree.
    #filter(display) {
        const text = byId("filter").value;
        const hits = this.#fleet.filter(text, this.#kept);
        byId("hits").textContent = text.trim() === "" ? "" : plural(hits, "hit");
        this.#sayEmpty([NO_HITS, mistakeIn(text) || NOTHING],
            element("button", { type: "button", id: "clear-filter" }, "Clear filter"));
        display();
    }

    #leaveFilter(event) {
        if (event.key === "ArrowDown" || event.key === "Enter") {
            event.preventDefault();
            this.#proposals.hide();
            this.#tree.enter();
        } else if (event.key === "Escape") {
            event.preventDefault();
            this.clearFilter();
        }
    }
}

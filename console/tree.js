// Shows the fleet as a tree: keeps its open groups and the selected row, and handles keys and dragging.
import { columnsFor, keepWidths, remOfPage } from "./columns.js";
import { OpenGroups } from "./open_groups.js";
import { searchedIn } from "./query.js";
import { renameInPlace } from "./rename_in_place.js";
import { fitRows, nodeOf } from "./row_sync.js";
import { describeRow, describeTree, fillRow, ICONS, TYPES } from "./rows.js";
import { Selection } from "./selection.js";
import { rowIndex, setActiveRow } from "./widget.js";
import { Wunderbaum } from "./wunderbaum.esm.min.js";

const FIRST_ROWS = 300; // of a large fleet, drawn first; drawing all takes some tenths of a second
const ROW_REM = 2.143; // as --row of the style
const MOST_PRINTED = 1000; // rows

const KEYS = {
    "F2": "edit",
    "Enter": "open",
    "Delete": "delete",
    "Control+x": "cut",
    "Control+v": "paste",
    "Control+c": "copy",
    "Escape": "cancel",
    "Shift+P": "policies",
    "Shift+D": "delegates",
    "Shift+M": "move",
    "Shift+N": "create",
};

const MOVES = { Home: "first", End: "last", ArrowUp: "up", ArrowDown: "down", PageUp: "pageUp", PageDown: "pageDown" };

export class FleetTree {
    #tree;
    #element;
    #fleet = null;
    #orderDrawn = null; // the order of the rows when all are there
    #listener;
    #groups = new OpenGroups();
    #selection = new Selection();
    #active = null; // the key of the row that has the focus
    #cut = new Set();
    #text = "";
    #dragged = [];

    // listener: select() when the selection changes; command(name) for a key; press() when a row is
    // clicked; drag(nodes) when a drag begins, drag([]) when it ends; move(nodes, parent) when they are dropped.
    constructor(element, listener) {
        this.#element = element;
        this.#listener = listener;
        this.#tree = this.#makeWidget();
        new ResizeObserver(() => this.fitColumns()).observe(element);
        element.addEventListener("drop", (event) => this.#dropBeside(event));
        element.addEventListener("focus", () => this.#pointToFirst());
        addEventListener("beforeprint", () => this.#showAllRows(true));
        addEventListener("afterprint", () => this.#showAllRows(false));
        element.addEventListener("pointerup", () => requestAnimationFrame(() => keepWidths(this.#tree.columns)));
    }

    // The set of the keys of the selected rows.
    get selected() {
        return this.#selection.keys;
    }

    // Shows the fleet, which is filtered by the text, in place of the one before. Keeps the open groups, the selection
    // and the scroll position.
    show(fleet, text) {
        const position = this.#scrollPosition();
        this.#fleet = fleet;
        this.#text = text;
        this.#groups.fit(fleet);
        this.#selection.set([...this.#selection.keys].filter((key) => fleet.find(key) !== null));
        const drawAll = () => {
            this.#draw(Infinity);
            this.#restoreScroll(position);
        };
        if (position !== null || fleet.nodes.length <= FIRST_ROWS) {
            drawAll();
            return;
        }
        this.#draw(FIRST_ROWS);
        requestAnimationFrame(() => setTimeout(() => this.#fleet === fleet && drawAll()));
    }

    // Shows the rows that the fleet's filter left, with all groups open. An empty text shows all rows again, open or
    // closed as before.
    showFiltered(text) {
        this.#text = text;
        this.#updateRowStates();
        this.#tree.update("structure", { immediate: true });
        this.#element.toggleAttribute("data-filtered", this.#isFiltered);
        if (!this.#isFiltered && this.#active !== null) {
            this.#tree.findKey(this.#active)?.makeVisible();
        }
    }

    // Selects the row and no other, opens the groups above it and scrolls to it.
    reveal(key) {
        const row = this.#tree.findKey(key);
        row?.makeVisible();
        this.#point(row);
        this.#select((selection) => selection.only(key));
    }

    // Selects the rows of the keys.
    select(keys) {
        this.#select((selection) => selection.set(keys));
    }

    // Selects what the filter shows: its hits, or without a filter all rows that are not in closed groups.
    selectAll() {
        const isHit = (key) => !this.#isFiltered || this.#fleet.find(key).isHit;
        this.select(this.#visibleKeys().filter(isHit));
    }

    setAllOpen(isOpen) {
        this.#fleet.groups.forEach((node) => this.#groups.note(node.key, isOpen));
        this.#updateRowStates();
        this.#tree.update("structure", { immediate: true });
    }

    // Marks the rows of nodes that are cut, in place of those marked before.
    markCut(nodes) {
        this.#cut = new Set(nodes.map(({ key }) => key));
        this.#tree.update("structure", { immediate: true });
    }

    // Lets the user edit the name in the row. done(name): see renameInPlace. Returns false when the row is not in view.
    edit(node, done) {
        const row = this.#tree.findKey(node.key);
        row?.scrollIntoView();
        this.#tree.updatePendingModifications();
        const title = row?.getColElem(0)?.querySelector(".wb-title");
        if (!title) { // closed groups and filtered rows have no elements
            return false;
        }
        renameInPlace(title, this.#element, node.name, (name) => {
            this.focus();
            done(name);
        });
        return true;
    }

    focus() {
        this.#element.focus();
    }

    // Selects the first hit of the filter and focuses the tree.
    enter() {
        const hit = this.#fleet?.nodes.find((node) => (this.#isFiltered ? node.isHit : node.isShown));
        if (hit !== undefined) {
            this.reveal(hit.key);
        }
        this.focus();
    }

    // Shows the columns that fit and that the user has chosen.
    fitColumns() {
        const columns = columnsFor(this.#element.clientWidth);
        const ids = (some) => some.map(({ id }) => id).join();
        if (ids(columns) !== ids(this.#tree.columns)) {
            this.#tree.columns = columns;
            this.#tree.update("colStructure", { immediate: true });
        }
    }

    // Makes the tree as high as its rows, because rows out of view have no elements that could be printed.
    #showAllRows(areShown) {
        const rows = Math.min(MOST_PRINTED, this.#tree.count(true)) + 2; // with the header
        this.#element.style.height = areShown ? `${rows * this.#tree.options.rowHeightPx}px` : "";
        this.#tree.update("structure", { immediate: true });
    }

    get #isFiltered() {
        return this.#text.trim() !== "";
    }

    #makeWidget() {
        return new Wunderbaum({
            element: this.#element,
            id: "fleet",
            debugLevel: 1,
            header: true,
            columns: columnsFor(this.#element.clientWidth),
            types: TYPES,
            iconMap: ICONS,
            columnsResizable: true,
            rowHeightPx: Math.round(ROW_REM * remOfPage()),
            navigationModeOption: "row",
            scrollIntoViewOnExpandClick: false,
            edit: { trigger: [] },
            dnd: this.#dragOptions(),
            render: (event) => this.#renderRow(event),
            update: ({ tree }) => describeTree(tree, this.#selection.keys, this.#active),
            click: (event) => this.#click(event),
            activate: ({ node }) => this.#activate(node),
            expand: ({ node, flag }) => this.#noteOpen(node, flag),
            beforeSelect: () => false, // the page has a selection of its own
            keydown: (event) => this.#keydown(event),
        });
    }

    #dragOptions() {
        return {
            effectAllowed: "move",
            guessDropEffect: false,
            serializeClipboardData: false,
            autoExpandMS: 800,
            dragStart: ({ node }) => this.#startDrag(this.#nodeOf(node)),
            dragEnter: ({ node }) => this.#canDrop(this.#nodeOf(node).nearestGroup) && "over",
            dragEnd: () => this.#endDrag(),
            drop: ({ node }) => this.#drop(this.#nodeOf(node).nearestGroup),
        };
    }

    // Drags the selected rows when the row is one of them, else only this one.
    #startDrag(node) {
        const nodes = this.#selection.keys.has(node.key) ? this.#fleet.sortedNodes(this.#selection.keys) : [node];
        if (nodes.some(({ isPolicy }) => isPolicy)) {
            return false;
        }
        this.#dragged = nodes;
        this.#element.toggleAttribute("data-dragging", true);
        this.#listener.drag(nodes);
        return true;
    }

    #endDrag() {
        this.#dragged = [];
        this.#element.toggleAttribute("data-dragging", false);
        this.#listener.drag([]);
    }

    #canDrop(parent) {
        return this.#dragged.length > 0 && this.#fleet.canMoveAll(this.#dragged, parent);
    }

    #drop(parent) {
        const nodes = this.#dragged;
        const canDrop = this.#canDrop(parent);
        this.#endDrag(); // no dragEnd event comes when the row was scrolled out of view
        if (canDrop) {
            this.#listener.move(nodes, parent);
        }
    }

    // A drop on the header or below the last row means the top level.
    #dropBeside(event) {
        if (event.target.closest(".wb-node-list .wb-row") === null && this.#fleet !== null) {
            this.#drop(this.#fleet.root);
        }
    }

    #activate(row) {
        row.setFocus(); // the arrow keys start from the focused row
        this.#active = row.key;
        this.#select((selection) => selection.only(row.key));
    }

    // Makes the row the active one without selecting it. row: null for none.
    #point(row) {
        const before = this.#tree.getActiveNode();
        setActiveRow(this.#tree, row);
        this.#active = row?.key ?? null;
        before?.update("status");
        row?.update("status");
        row?.scrollIntoView();
    }

    // The tree itself shows no focus, so that one row has it.
    #pointToFirst() {
        const isGone = this.#tree.getActiveNode() === null;
        if (isGone && this.#fleet !== null && this.#fleet.root.shownChildren > 0) {
            this.#point(this.#tree.getFirstChild());
        }
    }

    // change(selection): changes the Selection.
    #select(change) {
        change(this.#selection);
        describeTree(this.#tree, this.#selection.keys, this.#active);
        this.#listener.select();
    }

    // Clicks on a row; the widget opens and closes groups.
    #click({ event, node: row, info }) {
        if (event.target.closest("input") !== null) {
            return false;
        }
        if (row === null || info.region === "expander") {
            return true;
        }
        this.#point(row);
        if (event.shiftKey) {
            this.#extend();
        } else if (event.ctrlKey || event.metaKey) {
            this.#select((selection) => selection.toggle(row.key));
        } else {
            this.#select((selection) => selection.only(row.key));
            this.#listener.press();
        }
        return false;
    }

    // Selects the rows from the anchor to the active one.
    #extend() {
        this.#select((selection) => selection.extend(this.#visibleKeys(), this.#active));
    }

    #visibleKeys() {
        const keys = [];
        this.#tree.visitRows((row) => { keys.push(row.key); });
        return keys;
    }

    #noteOpen(row, isOpen) {
        if (this.#isFiltered) {
            return; // the rows get back their state when the filter is removed
        }
        this.#groups.note(row.key, isOpen);
    }

    #keydown({ event, eventName, node: row }) {
        const name = eventName.replace("Meta+", "Control+");
        if (KEYS[name] !== undefined) {
            event.preventDefault();
            this.#listener.command(KEYS[name]);
            return false;
        }
        if (this.#fleet === null || this.#fleet.root.shownChildren === 0) {
            return false; // the widget throws on keys when it has no rows
        }
        const own = this.#ownKey(name, row ?? this.#tree.getFirstChild());
        if (own !== null) {
            event.preventDefault();
            own();
        }
        return own === null;
    }

    // Returns what a key does that the widget does not handle, or null.
    #ownKey(name, row) {
        const [, modifier, key] = /^(Shift\+|Control\+)?(.+)$/.exec(name);
        if (name === "Control+a") {
            return () => this.selectAll();
        }
        if (name === " " || name === "Control+ ") {
            return () => this.#select((selection) => selection.toggle(row.key));
        }
        if (modifier === undefined) { // the widget handles these two only with Ctrl
            return key === "Home" || key === "End" ? () => row.navigate(MOVES[key]) : null;
        }
        const goTo = () => this.#goTo(row.findRelatedNode(MOVES[key]), modifier === "Shift+");
        return MOVES[key] === undefined ? null : goTo;
    }

    #goTo(row, isExtending) {
        if (row) {
            this.#point(row);
            if (isExtending) {
                this.#extend();
            }
        }
    }

    // Makes the rows those of the fleet's nodes with an index below end.
    #draw(end) {
        const isComplete = end === Infinity;
        const { order } = this.#fleet;
        const keepsSame = isComplete && order === this.#orderDrawn && !this.#isFiltered;
        const isOpen = (node) => node.shownChildren > 0 && this.#groups.has(node);
        this.#orderDrawn = isComplete ? order : null;
        setActiveRow(this.#tree, null);
        const redraw = fitRows(this.#tree, this.#fleet, { end, isOpen, keepsSame });
        if (this.#isFiltered) {
            this.#updateRowStates();
        }
        setActiveRow(this.#tree, this.#tree.findKey(this.#active ?? ""));
        redraw();
    }

    // Sets for each row whether it is open and whether the filter shows it.
    #updateRowStates() {
        this.#tree.visit((row) => {
            const node = this.#nodeOf(row);
            row.match = node.isHit ? 1 : 0;
            row.subMatchCount = node.shownChildren;
            row.expanded = node.shownChildren > 0 && (this.#isFiltered || this.#groups.has(node));
        });
        this.#tree.filterMode = this.#isFiltered ? "hide" : null;
    }

    // Returns the node of the row in the fleet that is shown.
    #nodeOf(row) {
        return this.#fleet.sameAs(nodeOf(row));
    }

    #renderRow({ node: row, nodeElem, renderColInfosById }) {
        const node = this.#nodeOf(row);
        fillRow(nodeElem, renderColInfosById, node, searchedIn(this.#text));
        describeRow(nodeElem.closest(".wb-row"), row, node,
            { isSelected: this.#selection.keys.has(row.key), isCut: this.#cut.has(row.key) });
    }

    // Returns the key of the topmost row in view and the pixels that the tree is scrolled past it; null without rows.
    #scrollPosition() {
        const row = this.#tree.getTopmostVpNode();
        const top = this.#element.scrollTop;
        return row === null ? null : { key: row.key, offset: top - rowIndex(row) * this.#tree.options.rowHeightPx };
    }

    // Scrolls to a position that #scrollPosition returned; null scrolls to the selected row.
    #restoreScroll(position) {
        const row = this.#tree.findKey(position?.key ?? this.#active ?? "");
        if (!row?.isVisible()) {
            return;
        }
        if (position === null) {
            row.scrollIntoView();
        } else {
            this.#element.scrollTop = rowIndex(row) * this.#tree.options.rowHeightPx + position.offset;
        }
        this.#tree.update("scroll", { immediate: true });
    }
}


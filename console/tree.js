// Shows the fleet as a tree: keeps its open groups and the selected row, and handles keys and dragging.
import { columnsFor, describeRow, describeTree, fillRow, ICONS, remOfPage, TYPES } from "./rows.js";
import { rowIndex, setActiveRow } from "./widget.js";
import { Wunderbaum } from "./wunderbaum.esm.min.js";

const FIRST_ROWS = 300; // of a large fleet, drawn first; drawing all takes some tenths of a second

const KEYS = {
    "F2": "rename",
    "Delete": "delete",
    "Control+x": "cut",
    "Meta+x": "cut",
    "Control+v": "paste",
    "Meta+v": "paste",
    "Escape": "cancel",
};

const END_KEYS = { Home: "first", End: "last" };

export class FleetTree {
    #tree;
    #element;
    #fleet = null;
    #listener;
    #closed;
    #selected;
    #cut = null;
    #searched = "";
    #dragged = null;

    // listener: select() when a row is selected; command(name, node or null) for a key; drag(node) when a drag begins,
    // drag(null) when it ends; move(node, parent) when the node is dropped. state: a value of the property state.
    constructor(element, listener, state) {
        this.#element = element;
        this.#listener = listener;
        this.#closed = new Set(state.closed);
        this.#selected = state.selected;
        this.#tree = this.#makeWidget();
        new ResizeObserver(() => this.#fitColumns()).observe(element);
        element.addEventListener("drop", (event) => this.#dropBeside(event));
    }

    // The key of the selected row, or null.
    get selected() {
        return this.#selected;
    }

    // The keys of the closed groups (an array) and of the selected row (or null).
    get state() {
        return { closed: [...this.#closed], selected: this.#selected };
    }

    // Shows the fleet, which is filtered by the text, in place of the one before. Keeps the open groups, the selection
    // and the scroll position.
    show(fleet, text) {
        const position = this.#scrollPosition();
        this.#fleet = fleet;
        this.#searched = text.trim().toLowerCase();
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
        this.#searched = text.trim().toLowerCase();
        this.#updateRowStates();
        this.#tree.update("structure", { immediate: true });
        this.#element.toggleAttribute("data-filtered", this.#isFiltered);
        if (!this.#isFiltered && this.#selected !== null) {
            this.reveal(this.#selected);
        }
    }

    // Selects the row, opens the groups above it and scrolls to it.
    reveal(key) {
        this.#tree.findKey(key)?.setActive(true);
    }

    setAllOpen(isOpen) {
        this.#closed = new Set(isOpen ? [] : this.#fleet.groups.map((node) => node.key));
        this.#updateRowStates();
        this.#tree.update("structure", { immediate: true });
    }

    // Marks the row of a node that is cut; null removes the mark.
    markCut(node) {
        this.#cut = node?.key ?? null;
        this.#tree.update("structure", { immediate: true });
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

    get #isFiltered() {
        return this.#searched !== "";
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
            rowHeightPx: Math.round(1.625 * remOfPage()),
            navigationModeOption: "row",
            scrollIntoViewOnExpandClick: false,
            edit: { trigger: [] },
            dnd: this.#dragOptions(),
            render: (event) => this.#renderRow(event),
            update: ({ tree }) => describeTree(tree, this.#selected),
            activate: ({ node }) => this.#activate(node),
            expand: ({ node, flag }) => this.#noteOpen(node, flag),
            beforeSelect: () => false, // no multiple selection: the active row is the selected one
            keydown: (event) => this.#keydown(event),
        });
    }

    #dragOptions() {
        return {
            effectAllowed: "move",
            guessDropEffect: false,
            serializeClipboardData: false,
            autoExpandMS: 800,
            dragStart: ({ node }) => this.#startDrag(nodeOf(node)),
            dragEnter: ({ node }) => this.#canDrop(nodeOf(node).nearestGroup) && "over",
            dragEnd: () => this.#endDrag(),
            drop: ({ node }) => this.#drop(nodeOf(node).nearestGroup),
        };
    }

    #startDrag(node) {
        if (node.isGroup) {
            this.#dragged = node;
            this.#element.toggleAttribute("data-dragging", true);
            this.#listener.drag(node);
        }
        return node.isGroup;
    }

    #endDrag() {
        this.#dragged = null;
        this.#element.toggleAttribute("data-dragging", false);
        this.#listener.drag(null);
    }

    #canDrop(parent) {
        return this.#dragged !== null && this.#fleet.canMove(this.#dragged, parent);
    }

    #drop(parent) {
        const node = this.#dragged;
        const canDrop = this.#canDrop(parent);
        this.#endDrag(); // no dragEnd event comes when the row was scrolled out of view
        if (canDrop) {
            this.#listener.move(node, parent);
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
        this.#selected = row.key;
        describeTree(this.#tree, this.#selected);
        this.#listener.select();
    }

    #noteOpen(row, isOpen) {
        if (this.#isFiltered) {
            return; // the rows get back their state when the filter is removed
        }
        if (isOpen) {
            this.#closed.delete(row.key);
        } else {
            this.#closed.add(row.key);
        }
    }

    #keydown({ event, eventName, node }) {
        const command = KEYS[eventName];
        if (command !== undefined) {
            event.preventDefault();
            this.#listener.command(command, node ? nodeOf(node) : null);
            return false;
        }
        if (this.#fleet === null || this.#fleet.root.shownChildren === 0) {
            return false; // the widget throws on keys when it has no rows
        }
        if (END_KEYS[eventName] !== undefined) { // the widget handles them only with Ctrl
            event.preventDefault();
            (node ?? this.#tree.getFirstChild()).navigate(END_KEYS[eventName]);
            return false;
        }
        return true;
    }

    // Makes the rows those of the fleet's nodes with an index below end.
    #draw(end) {
        setActiveRow(this.#tree, null);
        this.#tree.enableUpdate(false);
        removeChanged(this.#tree.root, this.#fleet.root, end);
        addMissing(this.#tree.root, this.#fleet.root, end); // after that, as a key may occur only once in the widget
        this.#updateRowStates();
        setActiveRow(this.#tree, this.#tree.findKey(this.#selected ?? ""));
        this.#tree.enableUpdate(true);
    }

    // Sets for each row whether it is open and whether the filter shows it.
    #updateRowStates() {
        this.#tree.visit((row) => {
            const node = nodeOf(row);
            row.match = node.isHit ? 1 : 0;
            row.subMatchCount = node.shownChildren;
            row.expanded = node.shownChildren > 0 &&
                (this.#isFiltered || (node.record.expanded === true && !this.#closed.has(row.key)));
        });
        this.#tree.filterMode = this.#isFiltered ? "hide" : null;
    }

    #renderRow({ node: row, nodeElem, renderColInfosById }) {
        const node = nodeOf(row);
        fillRow(nodeElem, renderColInfosById, node, this.#searched);
        describeRow(nodeElem.closest(".wb-row"), row, node,
            { isSelected: row.key === this.#selected, isCut: row.key === this.#cut });
    }

    #fitColumns() {
        const columns = columnsFor(this.#element.clientWidth);
        if (columns.length !== this.#tree.columns.length) {
            this.#tree.columns = columns;
            this.#tree.update("colStructure", { immediate: true });
        }
    }

    // Returns the key of the topmost row in view and the pixels that the tree is scrolled past it; null without rows.
    #scrollPosition() {
        const row = this.#tree.getTopmostVpNode();
        const top = this.#element.scrollTop;
        return row === null ? null : { key: row.key, offset: top - rowIndex(row) * this.#tree.options.rowHeightPx };
    }

    // Scrolls to a position that #scrollPosition returned; null scrolls to the selected row.
    #restoreScroll(position) {
        const row = this.#tree.findKey(position?.key ?? this.#selected ?? "");
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

function nodeOf(row) {
    return row.data.node;
}

// Removes the rows below each group whose children are no longer the same. The others are kept: to make all rows of a
// large fleet again takes some tenths of a second.
function removeChanged(row, parent, end) {
    const rows = row.children ?? [];
    const nodes = childrenOf(parent, end);
    if (rows.length !== nodes.length || rows.some((child, i) => child.key !== nodes[i].key)) {
        row.removeChildren();
    } else {
        rows.forEach((child, i) => removeChanged(child, nodes[i], end));
    }
}

// Adds the rows that are missing, and gives the others the node as it is now.
function addMissing(row, parent, end) {
    const nodes = childrenOf(parent, end);
    if (row.children === null && nodes.length > 0) {
        row.addChildren(sourcesOf(parent, end));
        return;
    }
    nodes.forEach((node, i) => {
        const child = row.children[i];
        child.title = node.name;
        child.data.node = node;
        addMissing(child, node, end);
    });
}

function childrenOf(parent, end) {
    return parent.end <= end ? parent.children : parent.children.filter((node) => node.index < end);
}

// Returns the descendants with an index below end in the form in which the widget takes rows.
function sourcesOf(parent, end) {
    return childrenOf(parent, end).map((node) => {
        const children = node.children.length > 0 ? sourcesOf(node, end) : undefined;
        return { key: node.key, title: node.name, type: node.type, node, children };
    });
}

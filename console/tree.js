// The tree on the page: the widget, what is open and chosen in it, and what keyboard and mouse do there.
import { columnsFor, describeRow, describeTree, fillRow, ICONS, remOfPage, TYPES } from "./rows.js";
import { rowIndex, setActiveRow } from "./widget.js";
import { Wunderbaum } from "./wunderbaum.esm.min.js";

const FIRST_ROWS = 300; // drawn before the others of a large fleet, which take some tenths of a second

const KEYS = {
    "F2": "rename",
    "Delete": "delete",
    "Control+x": "cut",
    "Meta+x": "cut",
    "Control+v": "paste",
    "Meta+v": "paste",
    "Escape": "cancel",
};

const ENDS = { Home: "first", End: "last" };

export class FleetTree {
    #tree;
    #element;
    #fleet = null;
    #listener;
    #closed;
    #selected;
    #cut = null;
    #wanted = "";
    #dragged = null;

    // listener: select() when a row is chosen, command(name, node or null) for a key, canMove(node, parent) and
    // move(node, parent) for what is dragged, drag(node or null) when that begins and ends. view: as the one below.
    constructor(element, listener, view) {
        this.#element = element;
        this.#listener = listener;
        this.#closed = new Set(view.closed);
        this.#selected = view.selected;
        this.#tree = this.#makeWidget();
        new ResizeObserver(() => this.#fitColumns()).observe(element);
        element.addEventListener("drop", (event) => this.#dropBeside(event));
    }

    // The key of the row that is chosen, or null.
    get selected() {
        return this.#selected;
    }

    // Which groups are closed and which row is chosen, by their keys.
    get view() {
        return { closed: [...this.#closed], selected: this.#selected };
    }

    // Puts the fleet, filtered by the text, in place of the one before; what was open, chosen and in view stays so.
    show(fleet, text) {
        const place = this.#place();
        this.#fleet = fleet;
        this.#wanted = text.trim().toLowerCase();
        const drawAll = () => {
            this.#draw(Infinity);
            this.#scrollTo(place);
        };
        if (place !== null || fleet.nodes.length <= FIRST_ROWS) {
            drawAll();
            return;
        }
        this.#draw(FIRST_ROWS);
        requestAnimationFrame(() => setTimeout(() => this.#fleet === fleet && drawAll()));
    }

    // Shows what the fleet's filter left, with all groups open; without a text, what was open before.
    showFiltered(text) {
        this.#wanted = text.trim().toLowerCase();
        this.#layOpen();
        this.#tree.update("structure", { immediate: true });
        this.#element.toggleAttribute("data-filtered", this.#isFiltered);
        if (!this.#isFiltered && this.#selected !== null) {
            this.reveal(this.#selected);
        }
    }

    // Chooses the row, opens the groups above it and brings it into view.
    reveal(key) {
        this.#tree.findKey(key)?.setActive(true);
    }

    setAllOpen(isOpen) {
        this.#closed = new Set(isOpen ? [] : this.#fleet.groups.map((node) => node.key));
        this.#layOpen();
        this.#tree.update("structure", { immediate: true });
    }

    // The row of a group that is about to be moved. node: or null.
    markCut(node) {
        this.#cut = node?.key ?? null;
        this.#tree.update("structure", { immediate: true });
    }

    focus() {
        this.#element.focus();
    }

    // Goes to the first hit of the filter.
    enter() {
        const hit = this.#fleet?.nodes.find((node) => (this.#isFiltered ? node.isHit : node.isShown));
        if (hit !== undefined) {
            this.reveal(hit.key);
        }
        this.focus();
    }

    get #isFiltered() {
        return this.#wanted !== "";
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
            dnd: this.#dragging(),
            render: (event) => this.#renderRow(event),
            update: ({ tree }) => describeTree(tree, this.#selected),
            activate: ({ node }) => this.#activate(node),
            expand: ({ node, flag }) => this.#keepOpen(node, flag),
            beforeSelect: () => false, // one row is chosen at a time, and that is the active one
            keydown: (event) => this.#keydown(event),
        });
    }

    #dragging() {
        return {
            effectAllowed: "move",
            guessDropEffect: false,
            serializeClipboardData: false,
            autoExpandMS: 800,
            dragStart: ({ node }) => this.#startDrag(nodeOf(node)),
            dragEnter: ({ node }) => this.#canDrop(groupOf(nodeOf(node))) && "over",
            dragEnd: () => this.#endDrag(),
            drop: ({ node }) => this.#drop(groupOf(nodeOf(node))),
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
        return this.#dragged !== null && this.#listener.canMove(this.#dragged, parent);
    }

    #drop(parent) {
        const node = this.#dragged;
        const canDrop = this.#canDrop(parent);
        this.#endDrag(); // which no event tells when the row was scrolled out of view
        if (canDrop) {
            this.#listener.move(node, parent);
        }
    }

    // What is dropped on the header or below the last row goes to the top level.
    #dropBeside(event) {
        if (event.target.closest(".wb-node-list .wb-row") === null && this.#fleet !== null) {
            this.#drop(this.#fleet.root);
        }
    }

    #activate(row) {
        row.setFocus(); // where the arrow keys go on from
        this.#selected = row.key;
        describeTree(this.#tree, this.#selected);
        this.#listener.select();
    }

    #keepOpen(row, isOpen) {
        if (this.#isFiltered) {
            return; // open for the time of the filter only
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
            return false; // the widget fails on keys without rows
        }
        if (ENDS[eventName] !== undefined) { // which it knows with Ctrl only
            event.preventDefault();
            (node ?? this.#tree.getFirstChild()).navigate(ENDS[eventName]);
            return false;
        }
        return true;
    }

    // Makes rows of the fleet's nodes up to the index.
    #draw(end) {
        setActiveRow(this.#tree, null);
        this.#tree.enableUpdate(false);
        this.#tree.clear();
        this.#tree.root.addChildren(sourcesOf(this.#fleet.root, end));
        this.#layOpen();
        setActiveRow(this.#tree, this.#tree.findKey(this.#selected ?? ""));
        this.#tree.enableUpdate(true);
    }

    // Sets of every row whether it is open and whether the filter leaves it.
    #layOpen() {
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
        fillRow(nodeElem, renderColInfosById, node, this.#wanted);
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

    // The topmost row in view and how far it is scrolled.
    #place() {
        const row = this.#tree.getTopmostVpNode();
        const top = this.#element.scrollTop;
        return row === null ? null : { key: row.key, offset: top - rowIndex(row) * this.#tree.options.rowHeightPx };
    }

    // place: null to go to the row that is chosen.
    #scrollTo(place) {
        const row = this.#tree.findKey(place?.key ?? this.#selected ?? "");
        if (!row?.isVisible()) {
            return;
        }
        if (place === null) {
            row.scrollIntoView();
        } else {
            this.#element.scrollTop = rowIndex(row) * this.#tree.options.rowHeightPx + place.offset;
        }
        this.#tree.update("scroll", { immediate: true });
    }
}

// The group that a row stands for when something is put there: a server or policy means the one that it is in.
export function groupOf(node) {
    return node.isGroup ? node : node.parent;
}

function nodeOf(row) {
    return row.data.node;
}

function sourcesOf(parent, end) {
    return parent.children.filter((node) => node.index < end).map((node) => {
        const children = node.children.length > 0 ? sourcesOf(node, end) : undefined;
        return { key: node.key, title: node.name, type: node.type, node, children };
    });
}

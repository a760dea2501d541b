// The tree on the page: the widget's rows, with what it lacks for keyboard and screen reader.
import { element, marked } from "./dom.js";
import { GROUP, POLICY, SERVER } from "./fleet.js";
import { Wunderbaum } from "./wunderbaum.esm.min.js";

const SHOWN_NAMES = 20; // of the policies or delegates in a cell; the panel has all
const FIRST_ROWS = 300; // drawn before the others of a large fleet, which take some tenths of a second

const COLUMNS = [
    { id: "*", title: "Name", width: 6, room: 0 },
    { id: "address", title: "Address", width: 4, room: 34 },
    { id: "policies", title: "Policies", width: 5, room: 46 },
    { id: "delegates", title: "Delegates", width: 2, room: 60 }, // room: rem of the tree's width from which it is shown
];

const CELLS = { address: addressOf, policies: policiesOf, delegates: (node) => names(node.delegates) };

const KEYS = {
    "F2": "rename",
    "Delete": "delete",
    "Control+x": "cut",
    "Meta+x": "cut",
    "Control+v": "paste",
    "Meta+v": "paste",
    "Escape": "cancel",
};

const ENDS = { Home: "first", End: "last" }; // the widget has these for cells only

const ICONS = {
    expanderExpanded: '<i class="wb-expander"><svg class="icon" aria-hidden="true"><use href="#icon-open"/></svg></i>',
    expanderCollapsed: '<i class="wb-expander"><svg class="icon" aria-hidden="true"><use href="#icon-closed"/></svg></i>',
};

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

    // listener: select(node) when another row is chosen, command(name, node) for a key, canMove(node, parent) and
    // move(node, parent) for what is dragged, drag(node or null) when that begins and ends. view: as view() gave it.
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
        const rem = parseFloat(getComputedStyle(document.documentElement).fontSize);
        const type = (kind, label) => ({
            icon: `<i class="wb-icon"><svg class="icon" role="img" aria-label="${label}"><use href="#icon-${kind}"/></svg></i>`,
        });
        return new Wunderbaum({
            element: this.#element,
            id: "fleet",
            debugLevel: 1,
            header: true,
            columns: columnsFor(this.#element),
            types: { [GROUP]: type("group", "Group"), [SERVER]: type("server", "Server"), [POLICY]: type("policy", "Policy") },
            iconMap: ICONS,
            rowHeightPx: Math.round(1.625 * rem),
            navigationModeOption: "row",
            scrollIntoViewOnExpandClick: false,
            edit: { trigger: [] },
            dnd: this.#dragging(),
            render: (event) => this.#renderRow(event),
            update: ({ tree }) => this.#describeView(tree),
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
        this.#describeView(this.#tree);
        this.#listener.select(nodeOf(row));
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
        if (ENDS[eventName] !== undefined && node) {
            event.preventDefault();
            node.navigate(ENDS[eventName]);
            return false;
        }
        return this.#fleet !== null && this.#fleet.nodes.length > 0; // the widget fails on keys without rows
    }

    // Makes rows of the fleet's nodes up to the index.
    #draw(end) {
        this.#tree._setActiveNode(null); // of the rows that go
        this.#tree._setFocusNode(null);
        this.#tree.enableUpdate(false);
        this.#tree.clear();
        this.#tree.root.addChildren(sourcesOf(this.#fleet.root, end));
        this.#layOpen();
        const row = this.#tree.findKey(this.#selected ?? "");
        this.#tree._setActiveNode(row); // setActive would open the groups above and scroll there
        this.#tree._setFocusNode(row);
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
        const title = nodeElem.querySelector(".wb-title");
        title.replaceChildren(...marked(node.name, this.#wanted));
        title.title = node.name;
        for (const { id, elem } of Object.values(renderColInfosById)) {
            elem.replaceChildren(...CELLS[id](node, this.#wanted));
            elem.title = elem.textContent;
        }
        this.#describeRow(row, node);
    }

    #describeRow(row, node) {
        const states = {
            "role": "row",
            "id": `row-${row.key}`,
            "aria-level": node.level,
            "aria-posinset": node.position,
            "aria-setsize": node.parent.shownChildren,
            "aria-rowindex": row._rowIdx + 2, // the header is the first
            "aria-selected": row.key === this.#selected,
        };
        setAll(row._rowElem, states);
        row._rowElem.toggleAttribute("data-leaf", node.shownChildren === 0);
        row._rowElem.toggleAttribute("data-cut", row.key === this.#cut);
        if (node.shownChildren > 0) {
            row._rowElem.setAttribute("aria-expanded", row.expanded);
        } else {
            row._rowElem.removeAttribute("aria-expanded");
        }
        setEach(row._rowElem.children, "gridcell");
    }

    // After the widget has changed what is in view.
    #describeView(tree) {
        setAll(this.#element, {
            "role": "treegrid",
            "aria-rowcount": tree.treeRowCount + 1,
            "aria-colcount": tree.columns.length,
        });
        setAll(tree.headerElement, { role: "rowgroup" });
        setAll(tree.headerElement.firstElementChild, { "role": "row", "aria-rowindex": 1 });
        setEach(tree.headerElement.firstElementChild.children, "columnheader");
        setAll(tree.listContainerElement, { role: "presentation" });
        setAll(tree.nodeListElement, { role: "rowgroup" });
        const active = `row-${this.#selected}`;
        for (const row of tree.nodeListElement.children) {
            row.setAttribute("aria-selected", row.id === active);
        }
        if (tree.nodeListElement.querySelector("[aria-selected=true]") !== null) {
            this.#element.setAttribute("aria-activedescendant", active);
        } else {
            this.#element.removeAttribute("aria-activedescendant"); // it is not in view, and has no element
        }
    }

    #fitColumns() {
        const columns = columnsFor(this.#element);
        if (columns.length !== this.#tree.columns.length) {
            this.#tree.columns = columns;
            this.#tree.update("colStructure", { immediate: true });
        }
    }

    // The topmost row in view and how far it is scrolled.
    #place() {
        const row = this.#tree.getTopmostVpNode();
        const top = this.#element.scrollTop;
        return row === null ? null : { key: row.key, offset: top - row._rowIdx * this.#tree.options.rowHeightPx };
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
            this.#element.scrollTop = row._rowIdx * this.#tree.options.rowHeightPx + place.offset;
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

function columnsFor(tree) {
    const rem = parseFloat(getComputedStyle(document.documentElement).fontSize);
    return COLUMNS.filter(({ room }) => tree.clientWidth >= room * rem).map(({ id, title, width }) => ({ id, title, width }));
}

function addressOf(node, wanted) {
    return marked(node.address, wanted);
}

function policiesOf(node) {
    if (node.type === POLICY) {
        return node.record.linked ? [] : [element("span", { class: "quiet" }, "linked nowhere")];
    }
    const blocks = node.blocksInheritance ? [element("span", { class: "tag" }, "blocks inheritance")] : [];
    return [...blocks, ...names(node.links)];
}

function names(named) {
    const more = named.length > SHOWN_NAMES ? ` and ${named.length - SHOWN_NAMES} more` : "";
    return named.length > 0 ? [named.slice(0, SHOWN_NAMES).map(({ name }) => name).join(", ") + more] : [];
}

function setAll(target, attributes) {
    for (const [name, value] of Object.entries(attributes)) {
        target.setAttribute(name, value);
    }
}

function setEach(cells, role) {
    let column = 0;
    for (const cell of cells) {
        setAll(cell, { role, "aria-colindex": ++column });
    }
}

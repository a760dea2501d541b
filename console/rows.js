// What the rows of the tree show and what they tell a screen reader, as roles and states of a treegrid.
import { element, marked } from "./dom.js";
import { GROUP, POLICY, SERVER } from "./fleet.js";
import { rowIndex } from "./widget.js";

const SHOWN_NAMES = 20; // of the policies or delegates in a cell; the panel has all

// room: rem of the tree's width from which the column is shown.
const COLUMNS = [
    { id: "*", title: "Name", width: 6, room: 0 },
    { id: "address", title: "Address", width: 4, room: 34 },
    { id: "policies", title: "Policies", width: 5, room: 46 },
    { id: "delegates", title: "Delegates", width: 2, room: 60 },
];

const CELLS = {
    address: (node, wanted) => marked(node.address, wanted),
    policies: policiesOf,
    delegates: (node) => names(node.delegates),
};

// In the widget's words; all of it is ours, so that it may be markup.
export const TYPES = {
    [GROUP]: { icon: iconOf("group", "Group") },
    [SERVER]: { icon: iconOf("server", "Server") },
    [POLICY]: { icon: iconOf("policy", "Policy") },
};

export const ICONS = { expanderExpanded: expanderOf("open"), expanderCollapsed: expanderOf("closed") };

export function remOfPage() {
    return parseFloat(getComputedStyle(document.documentElement).fontSize);
}

// The columns for which a tree of that many pixels has room.
export function columnsFor(width) {
    const rem = remOfPage();
    return COLUMNS.filter(({ room }) => width >= room * rem).map((column) => ({ ...column })); // the widget adds to it
}

// Fills the cells of a row that the widget has made. wanted: what the filter looks for, in lower case. columns: of the
// widget, by identifier.
export function fillRow(nodeElem, columns, node, wanted) {
    const title = nodeElem.querySelector(".wb-title");
    title.replaceChildren(...marked(node.name, wanted));
    title.title = node.name;
    for (const { id, elem } of Object.values(columns)) {
        elem.replaceChildren(...CELLS[id](node, wanted));
        elem.title = elem.textContent;
    }
}

// Sets the role and states of a row. rowElement and row: the widget's.
export function describeRow(rowElement, row, node, { isSelected, isCut }) {
    setAll(rowElement, {
        "role": "row",
        "id": idOf(row.key),
        "aria-level": node.level,
        "aria-posinset": node.position,
        "aria-setsize": node.parent.shownChildren,
        "aria-rowindex": rowIndex(row) + 2, // the header is the first
        "aria-selected": isSelected,
        "aria-expanded": node.shownChildren > 0 ? row.expanded : null,
    });
    rowElement.toggleAttribute("data-leaf", node.shownChildren === 0);
    rowElement.toggleAttribute("data-cut", isCut);
    setEach(rowElement.children, "gridcell");
}

// What is around the rows, once the widget has changed what is in view. selected: the key of a row, or null.
export function describeTree(tree, selected) {
    const header = tree.headerElement.firstElementChild;
    setAll(tree.headerElement, { role: "rowgroup" });
    setAll(header, { "role": "row", "aria-rowindex": 1 });
    setEach(header.children, "columnheader");
    setAll(tree.listContainerElement, { role: "presentation" });
    setAll(tree.nodeListElement, { role: "rowgroup" });
    let active = null;
    for (const row of tree.nodeListElement.children) {
        const isSelected = row.id === idOf(selected);
        row.setAttribute("aria-selected", isSelected);
        active = isSelected ? row.id : active;
    }
    setAll(tree.element, {
        "role": "treegrid",
        "aria-rowcount": tree.count(true) + 1,
        "aria-colcount": tree.columns.length,
        "aria-activedescendant": active, // none while the row is not in view and has no element
    });
}

function idOf(key) {
    return `row-${key}`;
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

function iconOf(symbol, label) {
    const use = `<use href="#icon-${symbol}"/>`;
    return `<i class="wb-icon"><svg class="icon" role="img" aria-label="${label}">${use}</svg></i>`;
}

function expanderOf(symbol) {
    return `<i class="wb-expander"><svg class="icon" aria-hidden="true"><use href="#icon-${symbol}"/></svg></i>`;
}

// null takes an attribute away.
function setAll(target, attributes) {
    for (const [name, value] of Object.entries(attributes)) {
        if (value === null) {
            target.removeAttribute(name);
        } else {
            target.setAttribute(name, value);
        }
    }
}

function setEach(cells, role) {
    let column = 0;
    for (const cell of cells) {
        setAll(cell, { role, "aria-colindex": ++column });
    }
}

// Fills the rows of the tree, and sets the ARIA roles and states from which screen readers recognise a treegrid.
import { element, marked } from "./dom.js";
import { GROUP, POLICY, SERVER } from "./fleet.js";
import { rowIndex } from "./widget.js";

const MAX_NAMES = 20; // of policies or delegates in a cell; the details show more

// width: in the widget's unit. minTreeWidth: in rem; a narrower tree does not show the column.
const COLUMNS = [
    { id: "*", title: "Name", width: 6, minTreeWidth: 0 },
    { id: "address", title: "Address", width: 4, minTreeWidth: 34 },
    { id: "policies", title: "Policies", width: 5, minTreeWidth: 46 },
    { id: "delegates", title: "Delegates", width: 2, minTreeWidth: 60 },
];

const CELLS = {
    address: (node, searched) => marked(node.address, searched),
    policies: policiesOf,
    delegates: (node) => names(node.delegates),
};

// Options of the widget, which takes icons as markup.
export const TYPES = {
    [GROUP]: { icon: iconOf("group", "Group") },
    [SERVER]: { icon: iconOf("server", "Server") },
    [POLICY]: { icon: iconOf("policy", "Policy") },
};

export const ICONS = { expanderExpanded: expanderOf("open"), expanderCollapsed: expanderOf("closed") };

// Returns the size of one rem in pixels.
export function remOfPage() {
    return parseFloat(getComputedStyle(document.documentElement).fontSize);
}

// Returns the columns that a tree of the width, in pixels, shows.
export function columnsFor(width) {
    const rem = remOfPage();
    const shown = COLUMNS.filter(({ minTreeWidth }) => width >= minTreeWidth * rem);
    return shown.map((column) => ({ ...column })); // copies, as the widget adds members to them
}

// Fills the cells of a row. nodeElem: the widget's element of the first cell. columns: the widget's other cells, by
// identifier. searched: text of the filter, in lower case.
export function fillRow(nodeElem, columns, node, searched) {
    const title = nodeElem.querySelector(".wb-title");
    title.replaceChildren(...marked(node.name, searched));
    title.title = node.name;
    for (const { id, elem } of Object.values(columns)) {
        elem.replaceChildren(...CELLS[id](node, searched));
        elem.title = elem.textContent;
    }
}

// Sets the role and states of a row. rowElement and row: the widget's element and object for it.
export function describeRow(rowElement, row, node, { isSelected, isCut }) {
    setAttributes(rowElement, {
        "role": "row",
        "id": idOf(row.key),
        "aria-level": node.level,
        "aria-posinset": node.position,
        "aria-setsize": node.parent.shownChildren,
        "aria-rowindex": rowIndex(row) + 2, // counted from 1; the header is row 1
        "aria-selected": isSelected,
        "aria-expanded": node.shownChildren > 0 ? row.expanded : null,
    });
    rowElement.toggleAttribute("data-leaf", node.shownChildren === 0);
    rowElement.toggleAttribute("data-cut", isCut);
    setCellRoles(rowElement.children, "gridcell");
}

// Sets the roles and states of the tree and its header, and marks the selected row. Call it after each change of the
// rows in view. selected: the key of a row, or null.
export function describeTree(tree, selected) {
    const header = tree.headerElement.firstElementChild;
    setAttributes(tree.headerElement, { role: "rowgroup" });
    setAttributes(header, { "role": "row", "aria-rowindex": 1 });
    setCellRoles(header.children, "columnheader");
    setAttributes(tree.listContainerElement, { role: "presentation" });
    setAttributes(tree.nodeListElement, { role: "rowgroup" });
    let active = null;
    for (const row of tree.nodeListElement.children) {
        const isSelected = row.id === idOf(selected);
        row.setAttribute("aria-selected", isSelected);
        active = isSelected ? row.id : active;
    }
    setAttributes(tree.element, {
        "role": "treegrid",
        "aria-rowcount": tree.count(true) + 1,
        "aria-colcount": tree.columns.length,
        "aria-activedescendant": active, // null while the selected row is out of view: it then has no element
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
    const more = named.length > MAX_NAMES ? ` and ${named.length - MAX_NAMES} more` : "";
    return named.length > 0 ? [named.slice(0, MAX_NAMES).map(({ name }) => name).join(", ") + more] : [];
}

function iconOf(symbol, label) {
    const use = `<use href="#icon-${symbol}"/>`;
    return `<i class="wb-icon"><svg class="icon" role="img" aria-label="${label}">${use}</svg></i>`;
}

function expanderOf(symbol) {
    return `<i class="wb-expander"><svg class="icon" aria-hidden="true"><use href="#icon-${symbol}"/></svg></i>`;
}

// Sets the attributes of an element; a null value removes one.
function setAttributes(target, attributes) {
    for (const [name, value] of Object.entries(attributes)) {
        if (value === null) {
            target.removeAttribute(name);
        } else {
            target.setAttribute(name, value);
        }
    }
}

function setCellRoles(cells, role) {
    let column = 0;
    for (const cell of cells) {
        setAttributes(cell, { role, "aria-colindex": ++column });
    }
}

// Fills the rows of the tree, and sets the ARIA roles and states from which screen readers recognise a treegrid.
import { CELLS } from "./columns.js";
import { element, marked } from "./dom.js";
import { GROUP, POLICY, SERVER } from "./fleet.js";
import { rowIndex } from "./widget.js";

const ID_PREFIX = "row-";

// Options of the widget, which takes icons as markup.
export const TYPES = {
    [GROUP]: { icon: iconOf("group", "Group") },
    [SERVER]: { icon: iconOf("server", "Server") },
    [POLICY]: { icon: iconOf("policy", "Policy") },
};

export const ICONS = { expanderExpanded: expanderOf("open"), expanderCollapsed: expanderOf("closed") };

// Fills the cells of a row. nodeElem: the widget's element of the first cell. columns: the widget's other cells, by
// identifier. searched: text of the filter, in lower case.
export function fillRow(nodeElem, columns, node, searched) {
    const title = nodeElem.querySelector(".wb-title");
    title.replaceChildren(element("span", { class: "name", title: node.path }, ...marked(node.name, searched)));
    title.toggleAttribute("data-count", node.serversBelow > 0);
    if (node.serversBelow > 0) {
        title.dataset.count = node.serversBelow.toLocaleString("en");
    }
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
    rowElement.dataset.kind = node.kind;
    rowElement.toggleAttribute("data-leaf", node.shownChildren === 0);
    rowElement.toggleAttribute("data-cut", isCut);
    setCellRoles(rowElement.children, "gridcell");
}

// Sets the roles and states of the tree and its header, and marks the selected rows. Call it after each change of the
// rows in view. selected: the set of their keys. active: the key of the active row, or null.
export function describeTree(tree, selected, active) {
    const header = tree.headerElement.firstElementChild;
    setAttributes(tree.headerElement, { role: "rowgroup" });
    setAttributes(header, { "role": "row", "aria-rowindex": 1 });
    setCellRoles(header.children, "columnheader");
    setAttributes(tree.listContainerElement, { role: "presentation" });
    setAttributes(tree.nodeListElement, { role: "rowgroup" });
    const ids = new Set();
    for (const row of tree.nodeListElement.children) {
        row.setAttribute("aria-selected", selected.has(row.id.slice(ID_PREFIX.length)));
        ids.add(row.id);
    }
    const activeId = idOf(active);
    setAttributes(tree.element, {
        "role": "treegrid",
        "aria-multiselectable": true,
        "aria-rowcount": tree.count(true) + 1,
        "aria-colcount": tree.columns.length,
        "aria-activedescendant": ids.has(activeId) ? activeId : null, // a row out of view has no element
    });
}

function idOf(key) {
    return ID_PREFIX + key;
}

function iconOf(symbol, label) {
    const use = `<use href="#icon-${symbol}"/>`;
    return `<i class="wb-icon"><svg class="icon kind" role="img" aria-label="${label}">${use}</svg></i>`;
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

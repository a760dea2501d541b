// Knows the columns of the tree: which ones are shown, how wide they are and what their cells contain.
import { element, marked } from "./dom.js";
import { pref, setPref } from "./prefs.js";

const MAX_NAMES = 20; // of policies or delegates in a cell; the details show more
const MIN_WIDTH_PX = 60;
const DAY = new Intl.DateTimeFormat(undefined, { dateStyle: "medium" });

// width: in the widget's unit. minTreeWidth: in rem; a narrower tree does not show the column.
const COLUMNS = [
    { id: "*", title: "Name", width: 7, minTreeWidth: 0 },
    { id: "address", title: "Address", width: 3, minTreeWidth: 34 },
    { id: "policies", title: "Policies", width: 5, minTreeWidth: 46 },
    { id: "delegates", title: "Delegates", width: 3, minTreeWidth: 58 },
    { id: "changed", title: "Changed", width: 3, minTreeWidth: 58, isOptional: true },
];

export const CELLS = {
    address: (node, searched) => marked(node.address, searched),
    policies: policiesOf,
    delegates: (node) => names(node.delegates),
    changed: (node) => [node.isConfirmed ? DAY.format(new Date(node.changed * 1000)) : "just now"],
};

// The columns that the user can hide: array of {id, title, isChosen}.
export function chosenColumns() {
    const chosen = pref("columns", {});
    return COLUMNS.slice(1).map(({ id, title, isOptional }) => ({ id, title, isChosen: chosen[id] ?? !isOptional }));
}

export function chooseColumn(id, isChosen) {
    setPref("columns", { ...pref("columns", {}), [id]: isChosen });
}

// Returns the size of one rem in pixels.
export function remOfPage() {
    return parseFloat(getComputedStyle(document.documentElement).fontSize);
}

// Returns the columns that a tree of the width, in pixels, shows, in the form of the widget.
export function columnsFor(width) {
    const rem = remOfPage();
    const hidden = new Set(chosenColumns().filter(({ isChosen }) => !isChosen).map(({ id }) => id));
    const shown = COLUMNS.filter(({ id, minTreeWidth }) => width >= minTreeWidth * rem && !hidden.has(id));
    const widths = pref("widths", {});
    const fits = shown.reduce((sum, { id }) => sum + (widths[id] ?? MIN_WIDTH_PX), 0) <= width;
    return shown.map(({ id, title, width: share }) => (
        { id, title, width: share, minWidth: MIN_WIDTH_PX, customWidthPx: fits ? widths[id] : undefined }));
}

// Remembers the widths that the user gave to columns. columns: of the widget.
export function keepWidths(columns) {
    const given = columns.filter(({ customWidthPx }) => customWidthPx !== undefined);
    const widths = Object.fromEntries(given.map(({ id, customWidthPx }) => [id, customWidthPx]));
    setPref("widths", { ...pref("widths", {}), ...widths });
}

function policiesOf(node) {
    if (node.isPolicy) {
        return node.record.linked ? [] : [element("span", { class: "tag" }, "linked nowhere")];
    }
    const blocks = node.blocksInheritance ? [element("span", { class: "tag stop" }, "blocks inheritance")] : [];
    return [...blocks, ...names(node.links)];
}

function names(named) {
    const more = named.length > MAX_NAMES ? ` and ${named.length - MAX_NAMES} more` : "";
    return named.length > 0 ? [named.slice(0, MAX_NAMES).map(({ name }) => name).join(", ") + more] : [];
}

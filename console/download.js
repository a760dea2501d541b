// Makes files of the rows that the filter shows.
import { element } from "./dom.js";

const COLUMNS = {
    kind: (node) => node.kind,
    id: (node) => node.id,
    name: (node) => node.name,
    path: (node) => node.path,
    address: (node) => node.address,
    description: (node) => node.record.desc ?? "",
    policies: (node) => node.links.map(({ name }) => name),
    delegates: (node) => node.delegates.map(({ name }) => name),
    changed: (node) => (node.isConfirmed ? new Date(node.changed * 1000).toISOString() : ""),
};

const FORMATS = {
    csv: { type: "text/csv", make: csvOf },
    json: { type: "application/json", make: (nodes) => `${JSON.stringify(nodes.map(rowOf), null, 2)}\n` },
};

// Lets the browser save a file with the nodes. format: csv or json.
export function download(nodes, format) {
    const { type, make } = FORMATS[format];
    const url = URL.createObjectURL(new Blob([make(nodes)], { type: `${type};charset=utf-8` }));
    element("a", { href: url, download: `fleet.${format}` }).click();
    setTimeout(() => URL.revokeObjectURL(url));
}

function rowOf(node) {
    return Object.fromEntries(Object.entries(COLUMNS).map(([name, valueOf]) => [name, valueOf(node)]));
}

export function csvOf(nodes) {
    const lines = [Object.keys(COLUMNS), ...nodes.map((node) => Object.values(rowOf(node)))];
    return lines.map((cells) => `${cells.map(cellOf).join(",")}\r\n`).join("");
}

// A text that begins like a formula gets a quote in front, as spreadsheets would compute it.
function cellOf(value) {
    const text = Array.isArray(value) ? value.join("; ") : String(value);
    const harmless = /^[=+\-@\t\r]/.test(text) ? `'${text}` : text;
    return /[",\r\n]/.test(harmless) ? `"${harmless.replaceAll("\"", "\"\"")}"` : harmless;
}

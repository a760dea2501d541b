// Sorts the records of siblings: groups first, then servers, then policies.
const NATURAL = new Intl.Collator(undefined, { numeric: true });
const byName = (a, b) => NATURAL.compare(a.name, b.name);

const COMPARE = {
    name: byName,
    address: (a, b) => NATURAL.compare(a.address ?? "", b.address ?? "") || byName(a, b),
    changed: (a, b) => (b.mtime ?? Infinity) - (a.mtime ?? Infinity) || byName(a, b),
};

export const ORDERS = { name: "Name", address: "Address", changed: "Last change first" };

// For each order, the sorted siblings of each array of records. The page's own changes keep the arrays that they do not
// alter, so that these need not be sorted again.
const sortedBefore = new Map(Object.keys(COMPARE).map((order) => [order, new WeakMap()]));

// Returns a function that returns records in the order: a key of ORDERS, or "stored" for the order of the server.
export function inOrder(order) {
    const within = COMPARE[order];
    if (within === undefined) {
        return (records) => records;
    }
    const compare = (a, b) => a.node_type - b.node_type || within(a, b) || 0;
    const known = sortedBefore.get(order);
    return (records) => {
        const sorted = known.get(records) ?? records.toSorted(compare);
        known.set(records, sorted);
        return sorted;
    };
}

// Returns the items, which have names, sorted by name.
export function sortedByName(items) {
    return items.toSorted(byName);
}

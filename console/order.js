// Sorts the records of siblings: groups first, then servers, then policies.
const NATURAL = new Intl.Collator(undefined, { numeric: true });
const byName = (a, b) => NATURAL.compare(a.name, b.name);

const COMPARE = {
    name: byName,
    address: (a, b) => NATURAL.compare(a.address ?? "", b.address ?? "") || byName(a, b),
    changed: (a, b) => (b.mtime ?? Infinity) - (a.mtime ?? Infinity) || byName(a, b),
};

export const ORDERS = { name: "Name", address: "Address", changed: "Last change first" };

// Returns a function that returns records in the order: a key of ORDERS, or "stored" for the order of the server. It
// returns the array itself when that is in order.
export function inOrder(order) {
    const within = COMPARE[order];
    if (within === undefined) {
        return (records) => records;
    }
    const compare = (a, b) => a.node_type - b.node_type || within(a, b) || 0;
    const isSorted = (records) => records.every((record, i) => i === 0 || compare(records[i - 1], record) <= 0);
    return (records) => (isSorted(records) ? records : records.toSorted(compare));
}

// Returns the items, which have names, sorted by name.
export function sortedByName(items) {
    return items.toSorted(byName);
}

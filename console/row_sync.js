// Makes the rows of the tree widget those of a fleet. Rows that are there already are kept: to make those of a large
// fleet again takes some tenths of a second.

const MOST_REMOVED = 50; // one by one; the widget removes more of them faster with all their siblings

// Makes the rows those of the fleet's nodes with an index below end. isOpen(node): whether a new or changed group is
// open. keepsSame: whether the rows of unchanged records, and all rows below them, are right already. They are then left
// as they are, with nodes of an earlier fleet. Returns a function that draws the rows.
export function fitRows(tree, fleet, options) {
    const additions = [];
    removeGone(tree.root, fleet.root, options);
    fit(tree.root, fleet.root, options, additions); // after that, as a key may occur only once in the widget
    if (additions.length === 0) {
        return () => tree.update("structure", { immediate: true });
    }
    tree.enableUpdate(false); // else the widget draws after each addition
    additions.forEach((add) => add());
    return () => tree.enableUpdate(true);
}

// Returns the node that the row was made for.
export function nodeOf(row) {
    return row.data.node;
}

function removeGone(row, parent, options) {
    const nodes = childrenOf(parent, options);
    const rows = row.children ?? [];
    const wanted = isInStep(rows, nodes) ? null : byKey(nodes);
    const gone = wanted === null ? [] : rows.filter(({ key }) => !wanted.has(key));
    if (gone.length > MOST_REMOVED) {
        row.removeChildren();
        return;
    }
    gone.forEach((child) => child.remove());
    (row.children ?? []).forEach((child, i) => {
        const node = wanted === null ? nodes[i] : wanted.get(child.key);
        if (!isKept(child, node, options)) {
            removeGone(child, node, options);
        }
    });
}

// Gives the rows below a row their nodes. additions: gets a function that adds the missing ones.
function fit(row, parent, options, additions) {
    const nodes = childrenOf(parent, options);
    const rows = row.children ?? [];
    if (isInStep(rows, nodes)) {
        rows.forEach((child, i) => update(child, nodes[i], options, additions));
        return;
    }
    const known = byKey(rows);
    const missing = nodes.filter((node) => !known.has(node.key));
    nodes.filter((node) => known.has(node.key))
        .forEach((node) => update(known.get(node.key), node, options, additions));
    if (missing.length === 0) {
        sort(row, nodes);
    } else {
        additions.push(() => {
            row.addChildren(missing.map((node) => sourceOf(node, options)));
            sort(row, nodes);
        });
    }
}

function update(row, node, options, additions) {
    const isRight = isKept(row, node, options);
    row.title = node.name;
    row.data.node = node;
    if (!isRight) {
        row.expanded = options.isOpen(node);
        fit(row, node, options, additions);
    }
}

function isKept(row, node, { keepsSame }) {
    return keepsSame && nodeOf(row).record === node.record;
}

// Whether the rows are those of the nodes, in their order.
function isInStep(rows, nodes) {
    return rows.length === nodes.length && rows.every((row, i) => nodeOf(row).isSameAs(nodes[i]));
}

function sort(row, nodes) {
    const rows = byKey(row.children);
    row.children = nodes.map(({ key }) => rows.get(key));
}

function byKey(items) {
    return new Map(items.map((item) => [item.key, item]));
}

function childrenOf(parent, { end }) {
    return parent.end <= end ? parent.children : parent.children.filter((node) => node.index < end);
}

// Returns the node and those below it in the form in which the widget takes rows.
function sourceOf(node, options) {
    const below = childrenOf(node, options);
    const children = below.length > 0 ? below.map((child) => sourceOf(child, options)) : undefined;
    return { key: node.key, title: node.name, type: node.type, expanded: options.isOpen(node), node, children };
}

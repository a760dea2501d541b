// Wraps the private members of the tree widget that the page needs; no other file may use one. All were checked with
// version 0.14.1 of the widget: check them again when package.json names another.

// Makes the row the active and the focused one; with null, no row is active or focused.
// tree._setActiveNode (0.14.1): row.setActive() opens the groups above and scrolls to the row, and row.setActive(false)
// leaves the row active.
// tree._setFocusNode (0.14.1): row.setFocus() can only set the focus, not remove it.
export function setActiveRow(tree, row) {
    tree._setActiveNode(row);
    tree._setFocusNode(row);
}

// Returns the position of a row among all that are not in closed groups or filtered out, from 0.
// row._rowIdx (0.14.1): the public way is to count with tree.visitRows(), which takes too long for each row drawn.
export function rowIndex(row) {
    return row._rowIdx;
}

// Applies the page's own changes to the records of a tree answer, until a fetched tree contains them. The functions do
// not alter the records: they return an array with copies of the changed ones and of those above them. A changed copy
// has no revision and no mtime, as only the server knows them.
import { GROUP } from "./fleet.js";

// Returns the records with the members in the record of the node. A parent_id among the members also moves the node.
export function withMembers(records, { type, id }, members) {
    let moved = null;
    const rest = replaced(records, type, id, (record) => {
        const changed = unconfirmed({ ...record, ...members });
        moved = members.parent_id === undefined ? null : changed;
        return moved === null ? [changed] : [];
    });
    return moved === null ? rest : withRecord(rest, moved);
}

// Returns the records with a new group.
export function withGroup(records, id, name, parentId) {
    const members = { node_type: GROUP, node_id: id, parent_type: GROUP, parent_id: parentId, name, desc: "" };
    return withRecord(records, withChildren(unconfirmed({ ...members, linked_gpo: null }), []));
}

// Returns the records without the group and the groups below it. Servers and policies below it move to the top level,
// where an account that sees only a part of the fleet does not see them.
export function withoutGroup(records, id, isPartial) {
    let orphans = [];
    const rest = replaced(records, GROUP, id, (group) => {
        orphans = isPartial ? [] : leavesOf(group);
        return [];
    });
    return sorted([...rest, ...orphans.map((record) => unconfirmed({ ...record, parent_id: 0 }))]);
}

function unconfirmed(record) {
    return { ...record, revision: undefined, mtime: undefined };
}

function withRecord(records, record) {
    const isSame = (other) => other.node_type === record.node_type && other.node_id === record.node_id;
    const added = (siblings) => (siblings.some(isSame) ? siblings : sorted([...siblings, record]));
    return record.parent_id === 0 ? added(records) :
        replaced(records, GROUP, record.parent_id, (parent) => [withChildren(parent, added(parent.children ?? []))]);
}

// Returns the records with the one of this type and identifier replaced by those that replace returns for it.
function replaced(records, type, id, replace) {
    for (const [i, record] of records.entries()) {
        if (record.node_type === type && record.node_id === id) {
            return records.toSpliced(i, 1, ...replace(record));
        }
        const children = record.children && replaced(record.children, type, id, replace);
        if (children !== record.children) {
            return records.with(i, withChildren(record, children));
        }
    }
    return records;
}

function withChildren(record, children) {
    const isEmpty = children.length === 0;
    return { ...record, children: isEmpty ? null : children, expanded: !isEmpty };
}

function leavesOf(group) {
    return (group.children ?? []).flatMap((child) => (child.node_type === GROUP ? leavesOf(child) : [child]));
}

// In the order of a tree answer.
function sorted(records) {
    return records.sort((a, b) => a.node_type - b.node_type || a.node_id - b.node_id);
}

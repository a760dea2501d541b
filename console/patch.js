// Applies the page's own changes to the records of a tree answer, until a fetched tree contains them. The functions do
// not alter the records: they return an array with copies of the changed ones and of those above them. A changed copy
// has no revision and no mtime, as only the server knows them.
import { GROUP } from "./fleet.js";

// Returns the records with the members of several nodes. changes: array of {node, members}. A parent_id among the
// members also moves the node.
export function withMembers(records, changes) {
    const membersOf = lookUp(changes);
    const moved = [];
    const lastType = Math.max(...changes.map(({ node }) => node.type));
    const rest = replaced(records, lastType, (record) => {
        const members = membersOf(record);
        if (members === undefined) {
            return null;
        }
        const changed = unconfirmed({ ...record, ...members });
        const stays = members.parent_id === undefined;
        moved.push(...(stays ? [] : [changed]));
        return stays ? [changed] : [];
    });
    return withRecords(rest, moved);
}

// Returns the member of a record that contains the links, an array of {id, name, description}.
export function linkMember(links) {
    return { order: links.map(({ id, name, description = "" }) => (
        { gpo_id: id, gpo_name: name, gpo_desc: description })) };
}

// Returns the records with a new group.
export function withGroup(records, id, name, parentId) {
    const members = { node_type: GROUP, node_id: id, parent_type: GROUP, parent_id: parentId, name, desc: "" };
    return withRecords(records, [withChildren(unconfirmed({ ...members, linked_gpo: null }), [])]);
}

// Returns the records without the groups and the groups below them. Servers and policies below them move to the top
// level, where an account that sees only a part of the fleet does not see them.
export function withoutGroups(records, ids, isPartial) {
    const deleted = new Set(ids);
    const orphans = [];
    const rest = replaced(records, GROUP, (record) => {
        const isDeleted = record.node_type === GROUP && deleted.has(record.node_id);
        orphans.push(...(isDeleted && !isPartial ? leavesOf(record) : []));
        return isDeleted ? [] : null;
    });
    return sorted([...rest, ...orphans.map((record) => unconfirmed({ ...record, parent_id: 0 }))]);
}

function unconfirmed(record) {
    return { ...record, revision: undefined, mtime: undefined };
}

// Returns a function that returns the members that change in a record, or undefined.
function lookUp(changes) {
    const byType = new Map(changes.map(({ node }) => [node.type, new Map()]));
    changes.forEach(({ node, members }) => byType.get(node.type).set(node.id, members));
    return (record) => byType.get(record.node_type)?.get(record.node_id);
}

// Returns the records with further ones, each below its parent unless it is there already.
function withRecords(records, added) {
    const isIn = (siblings, { node_type: type, node_id: id }) =>
        siblings.some((other) => other.node_type === type && other.node_id === id);
    const joined = (siblings, parentId) => {
        const missing = added.filter((record) => record.parent_id === parentId && !isIn(siblings, record));
        return missing.length === 0 ? siblings : sorted([...siblings, ...missing]);
    };
    const parents = new Set(added.map((record) => record.parent_id));
    const isParent = (record) => record.node_type === GROUP && parents.has(record.node_id);
    const below = parents.size === 0 ? records : replaced(records, GROUP, (record) =>
        (isParent(record) ? [withChildren(record, joined(record.children ?? [], record.node_id))] : null));
    return joined(below, 0);
}

// Returns the records with each one replaced by those that replace returns for it; null keeps it. The children of a
// record are replaced before it. lastType: of those that may be replaced. Siblings are ordered by type, and to look at
// all servers of a large fleet takes some hundredths of a second.
function replaced(records, lastType, replace) {
    const found = records.findIndex((record) => record.node_type > lastType);
    const end = found < 0 ? records.length : found;
    let isSame = true;
    const result = records.slice(0, end).flatMap((record) => {
        const children = record.children && replaced(record.children, lastType, replace);
        const current = children === record.children ? record : withChildren(record, children);
        const others = replace(current);
        isSame &&= others === null && current === record;
        return others ?? [current];
    });
    return isSame ? records : [...result, ...records.slice(end)];
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
    return records.toSorted((a, b) => a.node_type - b.node_type || a.node_id - b.node_id);
}

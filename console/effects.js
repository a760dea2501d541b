// Computes which servers lose and gain which policies by a change that is not yet made.

const AS_IS = {
    parentOf: (node) => node.parent,
    linksOf: (node) => node.links.map(({ id }) => id),
    blocks: (node) => node.blocksInheritance,
};

const NONE = new Set();

// Plans: what the fleet would be like after a change.

export function ifMoved(nodes, parent) {
    const moved = new Set(nodes);
    return { ...AS_IS, parentOf: (node) => (moved.has(node) ? parent : node.parent) };
}

// The servers of deleted groups move to the top level.
export function ifDeleted(groups, root) {
    const isDeleted = (node) => groups.some((group) => node.index > group.index && node.index < group.end);
    return { ...AS_IS, parentOf: (node) => (node.isServer && isDeleted(node) ? root : node.parent) };
}

export function ifBlocked(group, isBlocked) {
    return { ...AS_IS, blocks: (node) => (node === group ? isBlocked : node.blocksInheritance) };
}

// idsOf(node): the policies that one of the nodes would link.
export function ifLinked(nodes, idsOf) {
    const changed = new Set(nodes);
    return { ...AS_IS, linksOf: (node) => (changed.has(node) ? idsOf(node) : AS_IS.linksOf(node)) };
}

// Returns a function that returns the set of the policies that apply to a node. plan: a plan, or null for the fleet as
// it is.
export function policiesIn(fleet, plan = null) {
    const { parentOf, linksOf, blocks } = plan ?? AS_IS;
    const known = new Map([[fleet.root, NONE]]);
    const at = (node) => {
        let found = known.get(node);
        if (found === undefined) {
            const above = blocks(node) ? NONE : at(parentOf(node));
            const own = linksOf(node);
            found = own.length === 0 ? above : new Set([...own, ...above]);
            known.set(node, found);
        }
        return found;
    };
    return at;
}

// Returns the effects of the plan on the servers at or below the nodes, the largest first: array of {servers: nodes,
// lost: identifiers of policies, gained}. Servers for which nothing changes are left out.
export function effectsOf(fleet, nodes, plan) {
    const [before, after] = [policiesIn(fleet), policiesIn(fleet, plan)];
    const effects = new Map();
    for (const server of serversOf(fleet, nodes)) {
        const [had, has] = [before(server), after(server)];
        const lost = had === has ? [] : [...had].filter((id) => !has.has(id));
        const gained = had === has ? [] : [...has].filter((id) => !had.has(id));
        const key = `${[...lost].sort()}/${[...gained].sort()}`;
        if (key !== "/") {
            effects.set(key, effects.get(key) ?? { servers: [], lost, gained });
            effects.get(key).servers.push(server);
        }
    }
    return [...effects.values()].sort((a, b) => b.servers.length - a.servers.length);
}

// Returns the servers at or below the nodes. nodes: in the order of the rows.
export function serversOf(fleet, nodes) {
    return fleet.topmost(nodes)
        .flatMap((node) => fleet.nodes.slice(node.index, node.end).filter((below) => below.isServer));
}

// Returns the servers to which the policy applies.
export function serversWith(fleet, policyId) {
    const applied = policiesIn(fleet);
    return fleet.nodes.filter((node) => node.isServer && applied(node).has(policyId));
}

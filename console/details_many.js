// Shows in the panel what several selected nodes have in common, and what can be done with them.
import { changeButton, goTo, list, section } from "./details_parts.js";
import { element } from "./dom.js";
import { capital, inWords, kindsOf } from "./words.js";

// nodes: at least two, in the order of the rows.
export function manyContents(fleet, nodes) {
    const targets = nodes.filter((node) => !node.isPolicy);
    const linked = linkCounts(targets);
    return [
        element("h2", {}, `${nodes.length.toLocaleString("en")} selected`),
        element("p", { class: "quiet" }, `${capital(inWords(kindsOf(nodes)))}. `, buttonsFor(nodes)),
        targets.length > 0 && section("Policies", null,
            element("div", { class: "actions" }, changeButton("addPolicy", "Add policy"),
                linked.length > 0 && changeButton("removePolicy", "Remove policy")),
            linked.length > 0 && list("ul", linked, ({ name, count }) => [element("span", {}, name),
                element("span", { class: "from" }, `linked by ${count} of ${targets.length}`)])),
        section("Selected", changeButton("copy", "Copy names"), list("ul", nodes, (node) => [goTo(node),
            element("span", { class: "from" }, node.isServer ? node.address : node.kind)])),
    ].filter(Boolean);
}

// Names the buttons of the toolbar that are of use for the nodes.
function buttonsFor(nodes) {
    if (nodes.some((node) => node.isGroup)) {
        return "Move and Delete above act on them together.";
    }
    return nodes.every((node) => node.isPolicy) ? "" : "Move above acts on them together.";
}

// Returns how many of the nodes link each policy: array of {id, name, count}, the most frequent first.
export function linkCounts(nodes) {
    const counts = new Map();
    for (const { id, name } of nodes.flatMap((node) => node.links)) {
        counts.set(id, { id, name, count: (counts.get(id)?.count ?? 0) + 1 });
    }
    return [...counts.values()].sort((a, b) => b.count - a.count);
}

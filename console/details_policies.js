// Shows in the panel which policies apply to a group or server, and where a policy is linked.
import { changeButton, goTo, list, origin, section } from "./details_parts.js";
import { element, plural } from "./dom.js";
import { policiesIn, serversOf, serversWith } from "./effects.js";

// Returns one list of the policies that apply, the node's own first.
export function policyList(fleet, node) {
    const { policies, blockedBy, isPartial } = fleet.effectivePolicies(node);
    return section("Policies", changeButton("policies", "Change policies"),
        list("ol", policies, (policy) => policyItem(fleet, node, policy)),
        node.isGroup && blockSwitch(node),
        blockedBy !== null && blockedBy !== node &&
            element("p", { class: "quiet" }, goTo(blockedBy), " blocks what is linked above it."),
        isPartial && element("p", { class: "quiet" }, "Groups above that are not yours to see may add others."));
}

function policyItem(fleet, node, { id, name, description, from }) {
    const isOwn = from.includes(node);
    const target = fleet.findPolicy(id);
    return [
        element("span", { "data-own": isOwn }, target === null ? name : goTo(target)),
        element("span", { class: "from" }, origin(node, from, element("span", { class: "tag own" }, "own"))),
        description !== "" && element("span", { class: "note" }, description),
    ];
}

function blockSwitch(node) {
    const checked = node.blocksInheritance;
    const box = element("input", { type: "checkbox", id: "block", "data-change": "block", checked });
    return element("p", {}, element("label", {}, box, "Block inheritance from the groups above"));
}

// Returns where the policy is linked and how many servers that concerns.
export function linkedAt(fleet, policy) {
    const applied = policiesIn(fleet);
    const servers = (at) => serversOf(fleet, [at]).filter((server) => applied(server).has(policy.id)).length;
    return section("Linked at", changeButton("linkTo", "Link to …"),
        element("p", { class: "quiet" }, `Applies to ${plural(serversWith(fleet, policy.id).length, "server")}.`),
        list("ul", fleet.linkedBy(policy.id), (at) => [
            goTo(at, at.path),
            element("span", { class: "from" }, at.isGroup && `${plural(servers(at), "server")} `,
                changeButton("unlink", "Unlink", { key: at.key, name: `Unlink from ${at.path}`, kind: "link" })),
        ]));
}

// Says in a dialog which servers lose and gain which policies.
import { element, plural } from "./dom.js";
import { effectsOf } from "./effects.js";

const MAX_NAMES = 4; // of policies in a line
const MAX_LINES = 8;

// Returns an element that says what the plan changes for the servers at or below the nodes (box), how many servers that
// are (servers), and whether there are any (hasEffects). plan: see effects.js.
export function effectsBox(fleet, nodes, plan) {
    const effects = effectsOf(fleet, nodes, plan);
    const rest = effects.length - MAX_LINES;
    const box = element("div", { class: "consequences" },
        element("h3", {}, "What will happen"),
        effects.length === 0 ? element("p", {}, "No server loses or gains a policy.") :
            element("ul", {}, effects.slice(0, MAX_LINES).map((effect) => element("li", {}, line(fleet, effect)))),
        rest > 0 && element("p", { class: "quiet" }, `and ${plural(rest, "other combination")}`),
        fleet.isPartial && element("p", { class: "hint" }, "Groups that are not yours to see may add others."));
    const servers = effects.reduce((sum, effect) => sum + effect.servers.length, 0);
    return { box, servers, hasEffects: servers > 0 };
}

// Returns the parts of a sentence such as "4 servers lose Base security, gain Firewall".
function line(fleet, { servers, lost, gained }) {
    const isOne = servers.length === 1;
    const verbs = isOne ? ["loses", "gains"] : ["lose", "gain"];
    return [
        isOne ? servers[0].name : plural(servers.length, "server"),
        lost.length > 0 && [` ${verbs[0]} `, element("span", { class: "lost" }, names(fleet, lost))],
        lost.length > 0 && gained.length > 0 && ",",
        gained.length > 0 && [` ${verbs[1]} `, element("span", { class: "gained" }, names(fleet, gained))],
    ];
}

function names(fleet, ids) {
    const more = ids.length > MAX_NAMES ? ` and ${ids.length - MAX_NAMES} more` : "";
    return ids.slice(0, MAX_NAMES).map((id) => fleet.nameOfPolicy(id)).join(", ") + more;
}

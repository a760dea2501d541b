// Puts counts, kinds and refusals into words for people.
import { plural } from "./dom.js";

const LIST = new Intl.ListFormat("en-GB");

// Why the server refused, by its reason. Each function gets the part of the record that was refused, or an empty text.
const REASONS = {
    missing: (member) => `Enter ${nounOf(member)}.`,
    malformed: (member) => `The server does not accept ${nounOf(member)} in this form.`,
    not_permitted: () => "This account may not do that here. An administrator can make it a delegate of the group.",
    unknown_node: () => "The group or server is no longer there, or not yours to see.",
    unknown_policy: () => "The policy is no longer there, or not yours to see.",
    unknown_account: () => "There is no such account.",
    duplicate: (member) => (member === "name" ? "A group of that name is already there. Choose another name." :
        `The same value occurs twice in ${nounOf(member)}.`),
    too_deep: () => "Groups can be nested up to 128 levels deep. Choose a group further up.",
    cycle: () => "A group cannot be inside itself or inside a group below it.",
    too_long: (member) => `Choose a shorter text for ${nounOf(member)}.`,
    too_many: (member) => `There are too many entries in ${nounOf(member)}.`,
    quota: () => "This account may not manage more than it does already. An administrator can raise the quota.",
    busy: () => "The server is too busy. Try again in a moment.",
    away: () => "The server's database does not answer. Try again in a moment.",
    cancelled: () => "The server cancelled the request. Try again.",
};

const NOUNS = {
    name: "a name",
    desc: "the description",
    parent_id: "the group to move to",
    address: "the address",
    linked_gpo: "the policies",
    delegate: "the delegates",
};

function nounOf(member) {
    return NOUNS[member] ?? "a value";
}

// Returns a text for the user, or null when the reason needs the server's own words.
export function explainReason(reason, member = "") {
    return REASONS[reason]?.(member) ?? null;
}

// Returns counts of nodes in words, such as "2 groups and 1 server"; a count of 0 is left out.
export function inWords({ group = 0, server = 0, policy = 0 }) {
    const parts = [
        group > 0 && plural(group, "group"),
        server > 0 && plural(server, "server"),
        policy > 0 && plural(policy, "policy", "policies"),
    ];
    return LIST.format(parts.filter(Boolean)) || "nothing";
}

// Returns the number of nodes of each kind, for inWords.
export function kindsOf(nodes) {
    const counts = {};
    for (const { kind } of nodes) {
        counts[kind] = (counts[kind] ?? 0) + 1;
    }
    return counts;
}

// Returns the name of the only node, or how many there are.
export function nameOf(nodes) {
    return nodes.length === 1 ? nodes[0].name : inWords(kindsOf(nodes));
}

// Returns "was" or "were".
export function wereOf(nodes) {
    return nodes.length === 1 ? "was" : "were";
}

export function listed(texts) {
    return LIST.format(texts);
}

export function capital(text) {
    return text[0].toUpperCase() + text.slice(1);
}

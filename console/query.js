// Reads the text of the filter field: words in the form kind:value restrict the nodes, the rest is searched for in
// names and addresses. A value with spaces stands in quotes: policy:"Base security".
import { listed } from "./words.js";

// The words with what they look at. textOf(node): the searched text; values(fleet): what the page proposes.
export const WORDS = {
    policy: {
        help: "links a policy with this in its name",
        textOf: (node) => node.links.map(({ name }) => name).join("\n"),
        values: (fleet) => fleet.policies.map(({ name }) => name),
    },
    delegate: {
        help: "is delegated to this account",
        textOf: (node) => node.delegates.map(({ name }) => name).join("\n"),
        values: (fleet) => fleet.accounts.map(({ name }) => name),
    },
    kind: {
        help: "is a group, server or policy",
        textOf: (node) => node.kind,
        values: () => ["group", "server", "policy"],
    },
    desc: {
        help: "has this in its description",
        textOf: (node) => node.record.desc ?? "",
        values: () => [],
    },
};

const TERM = new RegExp(`(?<!\\S)(${Object.keys(WORDS).join("|")}):("[^"]*"?|\\S*)`, "gi");
const UNKNOWN = /(?<!\S)([a-z]+):(?=[^\s:])/; // not the colons of an address

// Returns a function that returns whether a node matches the text; null when the text is empty.
export function parseQuery(text) {
    const terms = [...text.matchAll(TERM)].map(([, word, value]) => contains(WORDS[word.toLowerCase()].textOf, value));
    const searched = searchedIn(text);
    const all = searched === "" ? terms : [...terms, (node) => node.searchText.includes(searched)];
    return text.trim() === "" ? null : (node) => all.every((matches) => matches(node));
}

// Returns the part of the text that is searched for in names and addresses, in lower case.
export function searchedIn(text) {
    return text.replace(TERM, " ").replace(/\s+/g, " ").trim().toLowerCase();
}

// Returns what the text has of words and kinds that do not exist, as a sentence; an empty text when there is nothing.
export function mistakeIn(text) {
    const [, word] = searchedIn(text).match(UNKNOWN) ?? [];
    if (word !== undefined) {
        return `There is no filter word “${word}”; the words are ${listed(Object.keys(WORDS))}.`;
    }
    const kinds = WORDS.kind.values();
    const isKind = (value) => kinds.some((kind) => contains(() => kind, value)());
    const wrong = [...text.matchAll(TERM)].find(([, name, value]) => name.toLowerCase() === "kind" && !isKind(value));
    const value = wrong?.[2].replaceAll("\"", "");
    return wrong === undefined ? "" : `There is no kind “${value}”; the kinds are ${listed(kinds)}.`;
}

function contains(textOf, value) {
    const searched = value.replaceAll("\"", "").toLowerCase();
    return (node) => textOf(node).toLowerCase().includes(searched);
}

// Makes the parts from which the panel is put together.
import { element } from "./dom.js";

const MAX_LISTED = 200; // items shown of a long list

export function section(title, button, ...contents) {
    return element("section", {}, element("div", { class: "title" }, element("h3", {}, title), button), ...contents);
}

export function list(tag, items, contents) {
    if (items.length === 0) {
        return element("p", {}, none());
    }
    const rest = items.length - MAX_LISTED;
    return [
        element(tag, {}, items.slice(0, MAX_LISTED).map((item) => element("li", {}, contents(item)))),
        rest > 0 && element("p", { class: "quiet" }, `and ${rest.toLocaleString("en")} more`),
    ];
}

// text: the name of the node, unless another one is given.
export function goTo(node, text = node.name) {
    return element("button", { type: "button", class: "link", "data-key": node.key }, text);
}

// Says from where the node has a policy or delegate. from: the nodes that name it. own: shown when one of them is the
// node itself.
export function origin(node, from, own) {
    const isOwn = from.includes(node);
    const groups = from.filter((at) => at !== node).flatMap((at, i) => [i > 0 && ", ", goTo(at)]);
    return [isOwn && own, groups.length > 0 && [isOwn ? " and from " : "from ", groups]];
}

// key: of the node that the button is about, when it is not the selected one.
export function changeButton(change, label, { key = null, name = null, kind = "" } = {}) {
    return element("button", { "type": "button", "class": kind, "data-change": change, "data-key": key,
        "aria-label": name }, label);
}

export function none() {
    return element("span", { class: "quiet" }, "none");
}

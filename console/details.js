// Shows the panel beside the tree: the details of the selected node and the buttons that change it.
import { element, icon, plural } from "./dom.js";
import { POLICY } from "./fleet.js";

const MAX_LISTED = 200; // items shown of a long list
const WHEN = new Intl.DateTimeFormat(undefined, { dateStyle: "medium", timeStyle: "short" });

export class Details {
    #element;

    // listener: goTo(key) for a link to another node; change(name) for a button or the checkbox; the names are
    // describe, policies, delegates and block.
    constructor(region, listener) {
        this.#element = region;
        region.addEventListener("click", ({ target }) => {
            const { key, change } = target.closest("button")?.dataset ?? {};
            if (key !== undefined) {
                listener.goTo(key);
            } else if (change !== undefined) {
                listener.change(change);
            }
        });
        region.addEventListener("change", ({ target }) => listener.change(target.dataset.change));
    }

    // Shows the details of the selected node, or a list of keys when node is null.
    show(fleet, node) {
        const { activeElement } = document;
        const focused = this.#element.contains(activeElement) ? activeElement.dataset.change : undefined;
        this.#element.replaceChildren(...(node === null ? nothingSelected() : contentsOf(fleet, node)));
        this.focus(focused);
    }

    // Focuses the button of the change. Returns false when the panel has none.
    focus(change) {
        const button = this.#element.querySelector(`[data-change="${change}"]`);
        button?.focus();
        return button !== null;
    }
}

function nothingSelected() {
    const keys = [
        ["↑ ↓", "another row"],
        ["→ ←", "open, close"],
        ["F2", "rename"],
        ["Ctrl+X, Ctrl+V", "move"],
        ["Del", "delete"],
    ];
    return [
        element("p", { class: "quiet" }, "Choose a row of the tree to see what is known of it."),
        element("dl", { class: "keys" }, keys.map(([key, does]) => [
            element("dt", {}, element("kbd", {}, key)), element("dd", {}, does),
        ])),
    ];
}

function contentsOf(fleet, node) {
    const sections = node.type === POLICY ? policySections(fleet, node) : linkSections(fleet, node);
    return [heading(fleet, node), facts(fleet, node), ...sections].filter(Boolean);
}

function heading(fleet, node) {
    const above = node.ancestors.flatMap((group) => [goTo(group), " / "]);
    return element("header", {},
        element("h2", {}, icon(node.kind), node.name),
        element("p", { class: "quiet" }, `${capital(node.kind)} ${node.id} `,
            above.length > 0 ? ["in ", above.slice(0, -1)] : placeOfTop(node)));
}

function placeOfTop(node) {
    const { parent_id: parent } = node.record;
    return parent === 0 ? "at the top level" : `in group ${parent}, which is not yours to see`;
}

function facts(fleet, node) {
    const { desc, mtime, revision, extra_info: extra } = node.record;
    const rows = [
        node.type !== POLICY && !node.isGroup && ["Address", node.address || none()],
        desc !== undefined && ["Description", element("span", { class: "text" }, desc || none()),
            node.isGroup && changeButton("describe", "Describe")],
        node.isGroup && ["Below", inWords(fleet.counts(node))],
        ["Changed", node.isConfirmed ? WHEN.format(new Date(mtime * 1000)) : "just now"],
        ["Revision", node.isConfirmed ? String(revision) : "…"],
        extra != null && ["More", element("pre", {}, JSON.stringify(extra, null, 2))],
    ];
    return element("dl", { class: "facts" }, rows.filter(Boolean).map(([term, ...values]) => [
        element("dt", {}, term), element("dd", {}, ...values),
    ]));
}

// Returns counts of nodes in words, such as "2 groups and 1 server"; a count of 0 is left out.
export function inWords({ group = 0, server = 0, policy = 0 }) {
    const parts = [
        group > 0 && plural(group, "group"),
        server > 0 && plural(server, "server"),
        policy > 0 && plural(policy, "policy", "policies"),
    ];
    return new Intl.ListFormat("en-GB").format(parts.filter(Boolean)) || "nothing";
}

function linkSections(fleet, node) {
    return [
        section("Policies", changeButton("policies", "Change policies"),
            list("ol", node.links, (link) => [goToPolicy(fleet, link), quiet(link.description)])),
        effective(fleet, node),
        section("Delegates", node.isGroup && changeButton("delegates", "Change delegates"),
            list("ul", node.delegates, ({ id, name }) => pair(name, `uid ${id}`))),
    ];
}

function effective(fleet, node) {
    const { policies, blockedBy, isPartial } = fleet.effectivePolicies(node);
    const from = (at) => (at === node ? "this " + node.kind : goTo(at));
    return section("Effective policies", null,
        node.isGroup && blockSwitch(node),
        list("ol", policies, (policy) => pair(goToPolicy(fleet, policy),
            ["from ", policy.from.flatMap((at, i) => [i > 0 && ", ", from(at)])])),
        blockedBy !== null && blockedBy !== node &&
            element("p", { class: "quiet" }, goTo(blockedBy), " blocks what is linked above it."),
        isPartial && element("p", { class: "quiet" }, "Groups above that are not yours to see may add others."));
}

function blockSwitch(node) {
    const checked = node.blocksInheritance;
    const box = element("input", { type: "checkbox", id: "block", "data-change": "block", checked });
    return element("p", {}, box, element("label", { for: "block" }, "Block inheritance from the groups above"));
}

function policySections(fleet, node) {
    return [
        section("Linked by", null, list("ul", fleet.linkedBy(node.id), (at) => pair(goTo(at), at.kind))),
        node.record.setting != null &&
            section("Settings", null, element("pre", {}, JSON.stringify(node.record.setting, null, 2))),
    ];
}

function section(title, button, ...contents) {
    return element("section", {}, element("div", { class: "title" }, element("h3", {}, title), button), ...contents);
}

function list(tag, items, contents) {
    if (items.length === 0) {
        return element("p", {}, none());
    }
    const rest = items.length - MAX_LISTED;
    return [
        element(tag, {}, items.slice(0, MAX_LISTED).map((item) => element("li", {}, contents(item)))),
        rest > 0 && element("p", { class: "quiet" }, `and ${rest.toLocaleString("en")} more`),
    ];
}

function pair(first, second) {
    return element("div", { class: "pair" }, element("span", {}, first), element("span", { class: "quiet" }, second));
}

function goTo(node) {
    return element("button", { type: "button", class: "link", "data-key": node.key }, node.name);
}

function goToPolicy(fleet, { id, name }) {
    const node = fleet.findPolicy(id);
    return node === null ? name : goTo(node);
}

function changeButton(change, label) {
    return element("button", { type: "button", "data-change": change }, label);
}

function quiet(text) {
    return text !== "" && element("span", { class: "quiet" }, text);
}

function none() {
    return element("span", { class: "quiet" }, "none");
}

function capital(text) {
    return text[0].toUpperCase() + text.slice(1);
}

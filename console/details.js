// Shows the panel beside the tree: the details of the selected node and the buttons that change it.
import { copyButton } from "./copy.js";
import { breakable, element, icon } from "./dom.js";
import { GROUP } from "./fleet.js";
import { addressOf } from "./links.js";
import { KEYS } from "./keys.js";
import { manyContents } from "./details_many.js";
import { linkedAt, policyList } from "./details_policies.js";
import { goTo, changeButton, list, none, origin, section } from "./details_parts.js";
import { capital, inWords } from "./words.js";

const WHEN = new Intl.DateTimeFormat(undefined, { dateStyle: "medium", timeStyle: "short" });

export class Details {
    #element;
    #history;
    #keys = ""; // of the nodes shown last

    // history: a History. listener: goTo(key) for a link to another node; change(name, key) for a button or the
    // checkbox, key being that of another node or undefined; copy(text) for a button that copies.
    constructor(region, history, listener) {
        this.#element = region;
        this.#history = history;
        region.addEventListener("click", ({ target }) => {
            const { key, change, copy } = target.closest("button")?.dataset ?? {};
            if (change !== undefined) {
                listener.change(change, key);
            } else if (copy !== undefined) {
                listener.copy(copy);
            } else if (key !== undefined) {
                listener.goTo(key);
            }
        });
        region.addEventListener("change", ({ target }) => listener.change(target.dataset.change));
    }

    // Shows the details of the selected nodes, or a list of keys when there are none.
    show(fleet, nodes) {
        const keys = nodes.map(({ key }) => key).join();
        const { activeElement } = document;
        const focused = this.#element.contains(activeElement) ? activeElement.dataset.change : undefined;
        const contents = [nothingSelected, () => this.#one(fleet, nodes[0]), () => manyContents(fleet, nodes)];
        this.#element.replaceChildren(backButton(), ...contents[Math.min(2, nodes.length)]());
        if (keys !== this.#keys) {
            this.#element.scrollTop = 0;
            this.#keys = keys;
        }
        this.focus(focused);
    }

    #one(fleet, node) {
        return [...contentsOf(fleet, node), this.#history.section(fleet, node)];
    }

    // Focuses the button of the change. Returns false when the panel has none.
    focus(change) {
        const button = this.#element.querySelector(`[data-change="${change}"]`);
        button?.focus();
        return button !== null;
    }
}

function backButton() {
    return element("button", { "type": "button", "class": "plain", "id": "back", "data-change": "back" },
        icon("back"), "Back to the tree");
}

function nothingSelected() {
    return [
        element("h2", {}, "Nothing selected"),
        element("p", { class: "quiet" }, "Choose a row of the tree to see what is known of it. Choose several with ",
            element("kbd", {}, "Shift"), " or ", element("kbd", {}, "Ctrl"), " to change them together."),
        element("dl", { class: "keys" }, KEYS.filter(({ isFirst }) => isFirst).map(({ keys, does }) => [
            element("dt", {}, element("kbd", {}, keys)), element("dd", {}, does),
        ])),
    ];
}

function contentsOf(fleet, node) {
    const sections = node.isPolicy ? policySections(fleet, node) : linkSections(fleet, node);
    return [heading(node), facts(fleet, node), ...sections].filter(Boolean);
}

function heading(node) {
    const badge = icon(node.kind);
    badge.classList.add("kind");
    return element("header", { "data-kind": node.kind },
        element("span", { class: "badge" }, badge),
        element("div", {},
            element("h2", {}, breakable(node.name)),
            element("p", { class: "quiet" }, `${capital(node.kind)} ${node.id} `, placeOf(node),
                copyButton("link", addressOf(node), "link"), copyButton("name", node.name))));
}

function placeOf(node) {
    if (node.level > 1) {
        return ["in ", goTo(node.parent)];
    }
    const { parent_id: parent } = node.record;
    return parent === 0 ? "at the top level" : `in group ${parent}, which is not yours to see`;
}

function facts(fleet, node) {
    const { desc, mtime, revision, extra_info: extra } = node.record;
    const rows = [
        node.isServer && ["Address", ...(node.address ?
            [element("span", {}, node.address), copyButton("address", node.address)] : [none()])],
        desc !== undefined && ["Description", element("span", { class: "text" }, desc || none()),
            node.isGroup && changeButton("describe", "Describe")],
        node.isGroup && ["Below", inWords(fleet.counts(node))],
        ["Identifier", element("span", {}, String(node.id)), copyButton("identifier", String(node.id))],
        ["Changed", node.isConfirmed ? WHEN.format(new Date(mtime * 1000)) : "just now"],
        ["Revision", node.isConfirmed ? String(revision) : "…"],
        extra != null && ["More", element("pre", {}, JSON.stringify(extra, null, 2))],
    ];
    return element("dl", { class: "facts" }, rows.filter(Boolean).map(([term, ...values]) => [
        element("dt", { class: "quiet" }, term), element("dd", {}, ...values),
    ]));
}

function linkSections(fleet, node) {
    return [
        policyList(fleet, node),
        section("Delegates", node.type === GROUP && changeButton("delegates", "Change delegates"),
            list("ul", fleet.effectiveDelegates(node), ({ id, name, from }) => [element("span", {}, name),
                element("span", { class: "from" }, origin(node, from, `uid ${id}`))])),
    ];
}

function policySections(fleet, node) {
    const { setting } = node.record;
    return [
        linkedAt(fleet, node),
        setting != null && section("Settings", null,
            element("pre", { tabindex: 0, "aria-label": "Settings" }, JSON.stringify(setting, null, 2))),
    ];
}

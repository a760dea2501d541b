// Shows in the panel who changed a node, when, and from what to what.
import { Refusal } from "./api.js";
import { element } from "./dom.js";
import { GROUP, keyOf } from "./fleet.js";
import { list, none } from "./details_parts.js";

const WHEN = new Intl.DateTimeFormat(undefined, { dateStyle: "medium", timeStyle: "short" });

const TITLES = {
    name: "Name",
    desc: "Description",
    parent_id: "Group",
    address: "Address",
    block_inheritance: "Blocks inheritance",
    linked_gpo: "Policies",
    delegate: "Delegates",
    extra_info: "More",
    setting: "Settings",
};

export class History {
    #api;
    #isOpen = false;
    #held = null; // of the node shown last: its key and revision, what has come, and the promise of the latest page

    constructor(api) {
        this.#api = api;
    }

    // Returns a section that fetches the history of the node when the user opens it.
    section(fleet, node) {
        const box = element("div", { "aria-live": "polite" });
        const section = element("details", { class: "history", open: this.#isOpen },
            element("summary", {}, element("h3", {}, "History")), box);
        section.addEventListener("toggle", () => {
            this.#isOpen = section.open;
            if (section.open) {
                this.#fill(box, fleet, node);
            }
        });
        return section;
    }

    async #fill(box, fleet, node) {
        const { key } = node;
        const { revision } = node.record;
        if (this.#held?.key !== key || this.#held.revision !== revision || revision === undefined) {
            this.#held = { key, revision, changes: [], next: "" };
            this.#fetch(this.#held, node);
        }
        if (this.#held.changes.length === 0) {
            box.replaceChildren(element("p", { class: "quiet" }, "Asking for the history …"));
        }
        await this.#show(this.#held, box, fleet, node);
    }

    // Begins to fetch the next page.
    #fetch(held, node) {
        held.page = this.#api.history(node, held.next).then(({ changes, next }) => {
            held.changes.push(...changes);
            held.next = next;
        });
    }

    // Shows what is held once the latest page is there: the panel may be drawn again before that.
    async #show(held, box, fleet, node) {
        try {
            await held.page;
        } catch (error) {
            this.#refuse(held, box, error);
            return;
        }
        const items = list("ul", held.changes, (change) => contentsOf(fleet, change));
        box.replaceChildren(...[items].flat().filter(Boolean));
        if (held.next !== null) {
            const button = element("button", { type: "button" }, "Show older changes");
            button.addEventListener("click", () => {
                this.#fetch(held, node);
                this.#show(held, box, fleet, node);
            }, { once: true });
            box.append(button);
        }
    }

    #refuse(held, box, error) {
        if (!(error instanceof Refusal)) {
            throw error;
        }
        this.#held = this.#held === held ? null : this.#held;
        box.replaceChildren(element("p", { class: "reason" }, error.message));
    }
}

// Returns the elements of one change.
function contentsOf(fleet, { time, account, uid, command, action, members = [] }) {
    const who = command === undefined ? account ?? `uid ${uid}` : `command ${command}`;
    const when = new Date(time * 1000);
    return [
        element("span", {}, element("strong", {}, who), ` ${action} this`),
        element("time", { class: "from", datetime: when.toISOString() }, WHEN.format(when)),
        members.length > 0 && element("dl", { class: "note" }, members.map((member) => [
            element("dt", {}, TITLES[member.member] ?? member.member), element("dd", {}, valuesOf(fleet, member)),
        ])),
    ];
}

function valuesOf(fleet, { member, before, after }) {
    const value = (one) => shown(fleet, member, one);
    if (before === undefined) {
        return value(after);
    }
    if (member === "linked_gpo" || member === "delegate") {
        return differences(value, idsIn(before), idsIn(after));
    }
    return [element("del", {}, value(before)), " → ", element("ins", {}, value(after))];
}

// Returns what was added to a list and removed from it, or its new order.
function differences(value, before, after) {
    const added = after.filter((id) => !before.includes(id));
    const removed = before.filter((id) => !after.includes(id));
    if (added.length + removed.length === 0) {
        return ["new order: ", value(after.join())];
    }
    return [
        added.length > 0 && element("div", {}, "added ", element("ins", {}, value(added.join()))),
        removed.length > 0 && element("div", {}, "removed ", element("del", {}, value(removed.join()))),
    ];
}

function idsIn(text) {
    return String(text ?? "").split(",").filter(Boolean);
}

// Returns a value for people. Identifiers come as texts, separated by commas.
function shown(fleet, member, value) {
    const names = {
        parent_id: (id) => (id === "0" ? "Top level" : fleet.find(keyOf(GROUP, Number(id)))?.path ?? `group ${id}`),
        linked_gpo: (id) => fleet.nameOfPolicy(Number(id)),
        delegate: (id) => fleet.accounts.find((account) => account.id === Number(id))?.name ?? `uid ${id}`,
    };
    if (value === undefined || value === null || value === "") {
        return none();
    }
    if (typeof value === "boolean" || member === "block_inheritance") {
        return Number(value) ? "yes" : "no";
    }
    return names[member] === undefined ? String(value) : String(value).split(",").map(names[member]).join(", ");
}

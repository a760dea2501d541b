// Shows who is signed in: the name in the header, and role and token in the menu there.
import { byId, element } from "./dom.js";
import { keepAccount } from "./session.js";

const WHEN = new Intl.DateTimeFormat(undefined, { dateStyle: "long", timeStyle: "short" });

export class Account {
    #api;
    #notice;
    #uid = null;
    #session = null; // the latest request

    constructor(api, notice) {
        this.#api = api;
        this.#notice = notice;
    }

    // Returns whether the account manages the top level. Throws Refusal when the server does not say so.
    async mayManageAll() {
        return (await this.#session).admin;
    }

    // Asks whose token it is and shows that. Returns whether it is the account of before; null when the server refuses,
    // which this reports.
    async refresh() {
        try {
            this.#session = this.#api.session();
            const session = await this.#session;
            const isSame = this.#uid === null || this.#uid === session.uid;
            this.#uid = session.uid;
            keepAccount(session.uid);
            show(session);
            return isSame;
        } catch (error) {
            this.#notice.report(error);
            return null;
        }
    }
}

function show({ name, uid, admin, token }) {
    byId("account").replaceChildren(element("span", { class: "unseen" }, `Account ${name}`),
        element("span", { "class": "avatar", "aria-hidden": "true" }, initialsOf(name)),
        element("span", { "class": "name", "aria-hidden": "true" }, name));
    const rows = [
        ["Account", name],
        ["Identifier", String(uid)],
        ["Role", admin ? "administrator" : "delegate: manages the groups that are delegated to it"],
        token?.label && ["Token", token.label],
        ["Token ends", token?.expires ? WHEN.format(new Date(token.expires * 1000)) : "never"],
    ];
    const list = element("dl", {}, rows.filter(Boolean).map(([term, value]) => [
        element("dt", {}, term), element("dd", {}, value),
    ]));
    byId("account-menu").querySelector("dl")?.remove();
    byId("account-menu").prepend(list);
}

function initialsOf(name) {
    const [first = "", second = ""] = name.split(/[\s._-]+/).filter(Boolean);
    return ((first[0] ?? "?") + (second[0] ?? "")).toUpperCase();
}

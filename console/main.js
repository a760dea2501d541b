// The page: signing in, and what goes between tree, panel, toolbar and server.
import { Api, Refusal, STALE } from "./api.js";
import { Changes } from "./changes.js";
import { Details, inWords } from "./details.js";
import { byId, plural } from "./dom.js";
import { Fleet, GROUP, keyOf } from "./fleet.js";
import { forgetToken, keepToken, keepView, keptView, takeToken } from "./session.js";
import { FleetTree, groupOf } from "./tree.js";

const NO_GROUPS = "This fleet has no groups yet. Create the first one with “New group”.";
const NO_RIGHTS = "No group is delegated to this account, so that there is nothing to show. Ask an administrator to " +
    "make it a delegate of a group, or sign in with another token.";

const TO_TOP = ", or on the header for the top level";

const OF_GROUPS = ["rename", "describe", "move", "delete", "block", "delegates"]; // changes that only groups know

class Page {
    #api = new Api();
    #changes = new Changes(this.#api, this);
    #tree;
    #details;
    #fleet = new Fleet([]);
    #shown = null; // the answer that the fleet was made of
    #asked = 0;
    #asking = null;
    #isComingBack = false;
    #cut = null;

    constructor() {
        this.#tree = new FleetTree(byId("tree"), {
            select: () => this.#showChosen(),
            command: (name, node) => this.#run(name, node),
            canMove: (node, parent) => this.#changes.canMove(node, parent),
            move: (node, parent) => this.#try(() => this.#changes.moveTo(node, parent)),
            drag: (node) => this.say(node && `Drop ${node.name} on a group${this.#fleet.isPart ? "" : TO_TOP}.`),
        }, keptView());
        this.#details = new Details(byId("details"), {
            goTo: (key) => this.#goTo(key),
            change: (name) => this.#run(name, this.#chosen),
        });
        this.#listen();
    }

    get fleet() {
        return this.#fleet;
    }

    // Signs in with the token that the address carries, or the one kept; asks for one when there is none.
    start() {
        const token = takeToken();
        if (token === null) {
            this.askForToken("");
        } else {
            this.open(token);
        }
    }

    // Shows what the token's account sees; the form again, when there is no such token.
    async open(token) {
        keepToken(token);
        this.#api.token = token;
        byId("console").hidden = !byId("sign-in").hidden;
        this.say("Asking for the tree …");
        if (await this.refresh()) {
            this.#tree.focus();
        }
        this.say("");
    }

    // Asks for the tree again. Gives whether an answer came; says so itself, if not.
    async refresh() {
        try {
            await this.#fetch();
            return true;
        } catch (error) {
            this.#report(error);
            return false;
        }
    }

    // The node as it is now. Throws Refusal when it is gone, or nobody tells.
    async latest(node) {
        await this.#fetch();
        const found = this.#fleet.find(node.key);
        if (found === null) {
            throw gone(node);
        }
        return found;
    }

    // For changes of which the server has no way to see that they are out of date. Throws Refusal.
    async requireUnchanged(node) {
        if ((await this.latest(node)).record.revision !== node.record.revision) {
            throw new Refusal("stale", STALE);
        }
    }

    // Does the work, a change of the node as it was shown, and then shows the tree as it is. Gives what the work gave.
    // Throws Refusal; one that isFinal when trying the same again is in vain.
    async commit(work, node = null) {
        byId("console").setAttribute("aria-busy", true);
        try {
            const result = await work();
            byId("notice").hidden = true;
            await this.refresh();
            return result;
        } catch (error) {
            await this.refresh();
            throw this.#explained(error, node);
        } finally {
            byId("console").removeAttribute("aria-busy");
        }
    }

    reveal(groupId) {
        this.#goTo(keyOf(GROUP, groupId));
    }

    say(text) {
        byId("status").textContent = text ?? "";
    }

    get #chosen() {
        return this.#fleet.find(this.#tree.selected ?? "");
    }

    #fetch() {
        this.#asking = this.#ask(++this.#asked);
        return this.#asking;
    }

    async #ask(asked) {
        const answer = await this.#api.tree();
        if (asked !== this.#asked) {
            return this.#asking; // which shows what this one would have shown, and more
        }
        this.#show(answer);
        return undefined;
    }

    #show(answer) {
        byId("sign-in").hidden = true;
        byId("console").hidden = false;
        byId("notice").hidden ||= !byId("again").hidden; // the server is back
        if (answer.text === this.#shown) {
            return;
        }
        this.#fleet = new Fleet(answer.nodes());
        this.#shown = answer.text;
        byId("counts").textContent = inWords(this.#fleet.counts(this.#fleet.root));
        this.#filter(() => this.#tree.show(this.#fleet, byId("filter").value));
        this.#showChosen();
        this.#explainEmpty();
    }

    async #explainEmpty() {
        const isEmpty = this.#fleet.nodes.length === 0;
        byId("empty").hidden = !isEmpty;
        byId("tree").hidden = isEmpty;
        if (isEmpty) {
            byId("empty").textContent = "";
            await this.#try(async () => {
                const mayCreate = await this.#api.mayManageAll();
                byId("create").disabled = !mayCreate;
                byId("empty").textContent = mayCreate ? NO_GROUPS : NO_RIGHTS;
            });
        }
    }

    // display: draws the tree once the fleet is filtered.
    #filter(display) {
        const text = byId("filter").value;
        const hits = this.#fleet.filter(text);
        byId("hits").textContent = text.trim() === "" ? "" : plural(hits, "hit");
        display();
    }

    #showChosen() {
        const node = this.#chosen;
        this.#details.show(this.#fleet, node);
        for (const name of ["rename", "move", "delete"]) {
            byId(name).disabled = node === null || !node.isGroup;
        }
        byId("create").disabled = this.#changes.parentsFor(node).length === 0;
    }

    #goTo(key) {
        if (this.#fleet.find(key)?.isShown === false) {
            this.#clearFilter();
        }
        this.#tree.reveal(key);
        this.#tree.focus();
    }

    #clearFilter() {
        byId("filter").value = "";
        this.#filter(() => this.#tree.showFiltered(""));
    }

    // A command of toolbar, panel or keyboard. node: the one chosen, or null.
    #run(name, node) {
        const commands = {
            create: () => this.#changes.create(node),
            cancel: () => this.#cancel(),
            paste: () => this.#paste(node),
            cut: node?.isGroup && (() => this.#setCut(node)),
            policies: node && (() => this.#changes.policies(node)),
        };
        const ofGroup = node?.isGroup && OF_GROUPS.includes(name) && (() => this.#changes[name](node));
        const command = commands[name] || ofGroup;
        if (command) {
            this.#try(command).then(() => this.#keepFocus(name));
        } else if (node !== null) {
            this.say("Only groups can be renamed, moved or deleted here.");
        }
    }

    // After a dialog for which the panel was drawn anew, or a row that is gone.
    #keepFocus(name) {
        if (document.activeElement === document.body && !this.#details.focus(name)) {
            this.#tree.focus();
        }
    }

    #setCut(node) {
        this.#cut = node?.key ?? null;
        this.#tree.markCut(node);
        this.say(node && `${node.name} is cut. Choose a group and press Ctrl+V; Escape leaves it where it is.`);
    }

    async #paste(target) {
        const node = this.#fleet.find(this.#cut ?? "");
        if (node === null || target === null) {
            return;
        }
        const parent = groupOf(target);
        if (!this.#changes.canMove(node, parent)) {
            this.say(`${node.name} cannot be moved to ${parent.name}.`);
            return;
        }
        this.#setCut(null);
        await this.#changes.moveTo(node, parent);
    }

    #cancel() {
        if (this.#cut !== null) {
            this.#setCut(null);
        } else {
            this.#clearFilter();
        }
    }

    async #try(work) {
        try {
            await work();
        } catch (error) {
            this.#report(error);
            this.#showChosen(); // with what it was, whatever was ticked
        }
    }

    // Why the change of the node was refused; final, when the node is no longer as the user saw it.
    #explained(error, node) {
        const isAnswer = error instanceof Refusal && ["refused", "stale"].includes(error.reason);
        if (!isAnswer || error.isFinal || node === null) {
            return error;
        }
        const now = this.#fleet.find(node.key);
        if (now === null) {
            return gone(node);
        }
        if (error.reason === "stale") {
            return stale(node, error.message);
        }
        return now.record.revision === node.record.revision ? error : final(error.message); // done in part
    }

    #report(error) {
        if (!(error instanceof Refusal)) {
            throw error;
        }
        if (error.reason === "token") {
            this.askForToken(error.message);
            return;
        }
        byId("sign-in").hidden = true;
        byId("console").hidden = false;
        byId("again").hidden = error.reason !== "away";
        byId("reason").textContent = error.message;
        this.say(""); // of an earlier change, which was done
        byId("notice").hidden = false;
    }

    // Shows the form for a token. reason: why it is needed again; empty at first.
    askForToken(reason) {
        forgetToken();
        for (const dialog of document.querySelectorAll("dialog")) {
            dialog.remove();
        }
        byId("console").hidden = true;
        byId("sign-in").hidden = false;
        byId("sign-in-reason").textContent = reason;
        byId("sign-in-reason").hidden = reason === "";
        byId("token").value = "";
        byId("token").focus();
    }

    #listen() {
        byId("sign-in").addEventListener("submit", (event) => {
            event.preventDefault();
            this.open(byId("token").value.trim());
        });
        for (const id of ["toolbar", "notice"]) {
            byId(id).addEventListener("click", ({ target }) => this.#press(target.closest("button")));
        }
        byId("filter").addEventListener("input", ({ target }) =>
            this.#filter(() => this.#tree.showFiltered(target.value)));
        byId("filter").addEventListener("keydown", (event) => this.#leaveFilter(event));
        document.addEventListener("visibilitychange", () => this.#comeBack());
        addEventListener("focus", () => this.#comeBack());
        addEventListener("pagehide", () => keepView(this.#tree.view));
        addEventListener("hashchange", () => this.start());
    }

    // button: null when the click was beside one.
    #press(button) {
        const actions = {
            "sign-out": () => { forgetToken(); location.reload(); },
            "open-all": () => this.#tree.setAllOpen(true),
            "close-all": () => this.#tree.setAllOpen(false),
            "again": () => this.refresh(),
            "dismiss": () => { byId("notice").hidden = true; this.#tree.focus(); },
        };
        if (button !== null) {
            (actions[button.id] ?? (() => this.#run(button.id, this.#chosen)))();
        }
    }

    #leaveFilter(event) {
        if (event.key === "ArrowDown" || event.key === "Enter") {
            event.preventDefault();
            this.#tree.enter();
        } else if (event.key === "Escape") {
            event.preventDefault();
            this.#clearFilter();
        }
    }

    // What others changed while the page was behind is fetched when it comes to the front, of which several events
    // may tell.
    async #comeBack() {
        if (this.#isComingBack || document.visibilityState !== "visible" || byId("console").hidden) {
            return;
        }
        this.#isComingBack = true;
        try {
            await this.refresh();
        } finally {
            this.#isComingBack = false;
        }
    }
}

function gone(node) {
    return final(`${node.name} is no longer there: it was deleted elsewhere.`);
}

function stale(node, why) {
    return final(`${node.name} was not changed: ${why}. It is now shown as it is; look, and try again.`);
}

function final(message) {
    const refusal = new Refusal("refused", message);
    refusal.isFinal = true;
    return refusal;
}

new Page().start();

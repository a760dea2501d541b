// Holds the fleet that the page shows: the server's tree, with the page's own changes that are not in it yet. Fetches
// the tree at sign-in, behind each change and when the page comes to the front.
import { Refusal, STALE } from "./api.js";
import { byId } from "./dom.js";
import { Fleet } from "./fleet.js";
import { explain, gone } from "./refusals.js";

const LONG_MS = 1000; // of a transfer; a longer one shows its progress

export class FleetLoader {
    #api;
    #notice;
    #listener;
    #tree = null; // of the latest answer
    #fetched = new Fleet([]); // the fleet of #tree
    #fleet = this.#fetched; // with the page's own changes
    #changes = []; // that #tree may not contain, each with a patch for its records, in the order of the user
    #running = Promise.resolve(); // the latest fetch that has begun
    #queued = null; // the fetch that begins after it
    #isComingToFront = false;

    // listener: answered() for each answer, then show(fleet) when the fleet differs from the one shown before.
    constructor(api, notice, listener) {
        this.#api = api;
        this.#notice = notice;
        this.#listener = listener;
        document.addEventListener("visibilitychange", () => this.#comeToFront());
        addEventListener("focus", () => this.#comeToFront());
    }

    // The fleet as it is shown; empty before the first answer.
    get fleet() {
        return this.#fleet;
    }

    // Fetches the fleet. Returns whether that succeeded; reports a refusal itself.
    async refresh() {
        try {
            await this.#fetch();
            return true;
        } catch (error) {
            this.#notice.report(error);
            return false;
        }
    }

    // Fetches the fleet and returns the node as it is now. Throws Refusal when the node was deleted or the fetch fails.
    async latest(node) {
        await this.#fetch();
        return find(this.#fleet, node);
    }

    // Throws Refusal when the node changed since it was read. For requests in which the server cannot check this.
    async requireUnchanged(node) {
        await this.#fetch();
        if (find(this.#fetched, node).record.revision !== node.record.revision) {
            throw new Refusal("stale", STALE);
        }
    }

    // Carries out a change, shows it and fetches the fleet behind it. Returns what send returns, without waiting for
    // that fetch. Throws Refusal, with isFinal set when a second try cannot succeed; the change is then not shown.
    // node: as the user saw it; null when no node exists yet. send(node): sends the change; the node has a revision
    // that the server can check. patch(records, result): returns the records of a tree with the change; result: what
    // send returned. isShownFirst: the change shows before the server has accepted it, when there is no result.
    commit({ node = null, send, patch, isShownFirst = false }) {
        const change = { key: node?.key ?? null, patch, result: undefined, isShown: isShownFirst, isAccepted: false };
        const earlier = this.#changes.filter(({ key }) => key !== null && key === change.key);
        this.#changes.push(change);
        const carriedOut = this.#carryOut(change, node, earlier, send);
        change.ended = carriedOut.catch(() => {});
        return carriedOut;
    }

    async #carryOut(change, shown, earlier, send) {
        let node = shown;
        byId("console").setAttribute("aria-busy", true);
        try {
            if (change.isShown) {
                this.#show();
            }
            node = await this.#confirmed(shown, earlier);
            change.result = await send(node);
            change.isAccepted = true;
            if (!change.isShown) {
                change.isShown = true;
                this.#show();
            }
            this.#notice.hide();
            this.refresh();
            return change.result;
        } catch (error) {
            this.#withdraw(change);
            await this.refresh();
            throw explain(error, node, this.#fetched);
        } finally {
            byId("console").removeAttribute("aria-busy");
        }
    }

    #withdraw(change) {
        this.#changes = this.#changes.filter((other) => other !== change);
        if (change.isShown) {
            this.#show();
        }
    }

    // Returns the node with its revision. The revision of a node that the page itself has changed is known when these
    // changes have ended and a tree with them has come. It counts only if the node is otherwise as the user saw it, as
    // someone else may have changed it in between: throws Refusal when it is not.
    async #confirmed(node, earlier) {
        if (node === null || (node.isConfirmed && earlier.length === 0)) {
            return node;
        }
        await Promise.all(earlier.map(({ ended }) => ended));
        await this.#fetch();
        const found = find(this.#fetched, node);
        if (found.content !== node.content) {
            throw new Refusal("stale", STALE);
        }
        return found;
    }

    // Fetches one tree after the other, so that none replaces a newer one. All calls during a fetch share the next one.
    #fetch() {
        this.#queued ??= this.#running.then(() => {
            this.#queued = null;
            const request = this.#request();
            this.#running = request.catch(() => {});
            return request;
        });
        return this.#queued;
    }

    async #request() {
        const contained = this.#changes.filter(({ isAccepted }) => isAccepted);
        const tree = await this.#receive();
        const isNew = tree !== this.#tree;
        this.#listener.answered();
        this.#changes = this.#changes.filter((change) => !contained.includes(change));
        if (isNew) {
            this.#tree = tree;
            this.#fetched = new Fleet(tree.records);
        }
        if (isNew || contained.length > 0) {
            this.#show();
        }
    }

    async #receive() {
        const start = performance.now();
        const received = (bytes) => performance.now() - start > LONG_MS && this.#notice.progress(bytes);
        try {
            return await this.#api.tree(this.#tree, received);
        } finally {
            this.#notice.progress(null);
        }
    }

    #show() {
        const shown = this.#changes.filter(({ isShown }) => isShown);
        const apply = (records, { patch, result }) => patch(records, result);
        this.#fleet = shown.length === 0 ? this.#fetched : new Fleet(shown.reduce(apply, this.#tree?.records ?? []));
        this.#listener.show(this.#fleet);
    }

    // Other users may have changed the fleet in the meantime. Browsers send one or several events, so that one refresh
    // serves all that arrive while it runs.
    async #comeToFront() {
        if (this.#isComingToFront || document.visibilityState !== "visible" || byId("console").hidden) {
            return;
        }
        this.#isComingToFront = true;
        try {
            await this.refresh();
        } finally {
            this.#isComingToFront = false;
        }
    }
}

// Returns the node as it is in the fleet. Throws Refusal when it is not there.
function find(fleet, node) {
    const found = fleet.find(node.key);
    if (found === null) {
        throw gone(node);
    }
    return found;
}

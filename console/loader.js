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
    #behind = null; // the fetch behind the latest accepted change
    #running = Promise.resolve(); // the latest fetch that has begun
    #queued = null; // the fetch that begins after it
    #isComingToFront = false;
    #order;

    // listener: answered() for each answer, then show(fleet) when the fleet differs from the one shown before.
    // order(): returns the order of the rows, one of ORDERS.
    constructor(api, notice, listener, order) {
        this.#order = order;
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

    // Waits for the tree that contains the changes that the server has accepted, and returns its fleet.
    async settled() {
        await this.#behind;
        return this.#fetched;
    }

    // Sorts the rows again.
    reorder() {
        this.#fetched = this.#fleetOf(this.#tree?.records ?? []);
        this.#show();
    }

    // Carries out a change, shows it and fetches the fleet behind it. Returns what send returns, without waiting for
    // that fetch. Throws Refusal, with isFinal set when a second try cannot succeed; the change is then not shown.
    // nodes: as the user saw them; none when the node does not exist yet. send(nodes): sends the change; the nodes have
    // revisions that the server can check. patch(records, result): returns the records of a tree with the change;
    // result: what send returned. isShownFirst: the change shows before the server has accepted it, when there is no
    // result.
    commit({ nodes = [], send, patch, isShownFirst = false }) {
        const keys = new Set(nodes.map(({ key }) => key));
        const change = { keys, patch, result: undefined, isShown: isShownFirst, isAccepted: false };
        const earlier = this.#changes.filter((other) => nodes.some(({ key }) => other.keys.has(key)));
        this.#changes.push(change);
        const carriedOut = this.#carryOut(change, nodes, earlier, send);
        change.ended = carriedOut.catch(() => {});
        return carriedOut;
    }

    async #carryOut(change, shown, earlier, send) {
        let nodes = shown;
        byId("console").setAttribute("aria-busy", true);
        try {
            if (change.isShown) {
                this.#show();
            }
            nodes = await this.#confirmed(shown, earlier);
            change.result = await send(nodes);
            change.isAccepted = true;
            if (!change.isShown) {
                change.isShown = true;
                this.#show();
            }
            this.#notice.hide();
            this.#behind = this.refresh();
            return change.result;
        } catch (error) {
            this.#withdraw(change);
            await this.refresh();
            throw explain(error, nodes, this.#fetched);
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

    // Returns the nodes with their revisions. The revision of a node that the page itself has changed is known when
    // these changes have ended and a tree with them has come. It counts only if the node is otherwise as the user saw
    // it, as someone else may have changed it in between: throws Refusal when it is not.
    async #confirmed(nodes, earlier) {
        if (nodes.every((node) => node.isConfirmed) && earlier.length === 0) {
            return nodes;
        }
        await Promise.all(earlier.map(({ ended }) => ended));
        await this.#fetch();
        return nodes.map((node) => {
            const found = find(this.#fetched, node);
            if (found.content !== node.content) {
                throw new Refusal("stale", STALE);
            }
            return found;
        });
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
            this.#fetched = this.#fleetOf(tree.records);
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
        this.#fleet = shown.length === 0 ? this.#fetched :
            this.#fleetOf(shown.reduce(apply, this.#tree?.records ?? []));
        this.#listener.show(this.#fleet);
    }

    #fleetOf(records) {
        return new Fleet(records, this.#order());
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

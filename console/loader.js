// Fetches the fleet from the server: at sign-in, around each change and when the page comes to the front.
import { Refusal, STALE } from "./api.js";
import { byId } from "./dom.js";
import { Fleet } from "./fleet.js";
import { explain, gone } from "./refusals.js";

export class FleetLoader {
    #api;
    #notice;
    #listener;
    #fleet = new Fleet([]);
    #fleetText = null; // the answer that the fleet was made from
    #requestCount = 0;
    #latestRequest = null;
    #isComingToFront = false;

    // listener: answered() for each answer that is used, then show(fleet) when the fleet differs from the one before.
    constructor(api, notice, listener) {
        this.#api = api;
        this.#notice = notice;
        this.#listener = listener;
        document.addEventListener("visibilitychange", () => this.#comeToFront());
        addEventListener("focus", () => this.#comeToFront());
    }

    // The fleet of the latest answer; empty before the first.
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
        const found = this.#fleet.find(node.key);
        if (found === null) {
            throw gone(node);
        }
        return found;
    }

    // Throws Refusal when the node changed since it was shown. For requests in which the server cannot check this.
    async requireUnchanged(node) {
        if ((await this.latest(node)).record.revision !== node.record.revision) {
            throw new Refusal("stale", STALE);
        }
    }

    // Runs work, which changes the node as it was shown, then fetches the fleet. Returns what work returns. Throws
    // Refusal, with isFinal set when a second try cannot succeed. node: null when no node exists yet.
    async commit(work, node = null) {
        byId("console").setAttribute("aria-busy", true);
        try {
            const result = await work();
            this.#notice.hide();
            await this.refresh();
            return result;
        } catch (error) {
            await this.refresh();
            throw explain(error, node, this.#fleet);
        } finally {
            byId("console").removeAttribute("aria-busy");
        }
    }

    #fetch() {
        this.#latestRequest = this.#request(++this.#requestCount);
        return this.#latestRequest;
    }

    async #request(number) {
        const answer = await this.#api.tree();
        if (number !== this.#requestCount) {
            return this.#latestRequest; // its answer is newer than this one
        }
        this.#use(answer);
        return undefined;
    }

    #use(answer) {
        this.#listener.answered();
        if (answer.text !== this.#fleetText) {
            this.#fleet = new Fleet(answer.nodes());
            this.#fleetText = answer.text;
            this.#listener.show(this.#fleet);
        }
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

// Keeps the address and the title of the page in step with the selected node, so that Back and links lead to it.
import { GROUP, keyOf, POLICY, SERVER } from "./fleet.js";

const TYPES = { group: GROUP, server: SERVER, policy: POLICY };
const STEP_MS = 1000; // a node that was selected for a shorter time gets no entry of its own in the history

// Returns the address that opens the page at the node.
export function addressOf(node) {
    return `${location.origin}${location.pathname}#${node.kind}-${node.id}`;
}

// Returns the key of the node that the address names, or null.
export function keyInAddress() {
    const [, kind, id] = /^#(group|server|policy)-(\d{1,16})$/.exec(location.hash) ?? [];
    return kind === undefined ? null : keyOf(TYPES[kind], Number(id));
}

export class Links {
    #shown = null;
    #since = 0;

    // goTo(key): called when the user goes back or forward, or enters another address.
    constructor(goTo) {
        addEventListener("popstate", () => {
            const key = keyInAddress();
            if (key !== null && key !== this.#shown) {
                this.#shown = key; // the address is right already
                goTo(key);
            }
        });
    }

    // Notes the selected node, or null when there is none or more than one.
    note(node) {
        document.title = node === null ? "Fleet" : `${node.name} – Fleet`;
        if (node === null || node.key === this.#shown) {
            return;
        }
        const isBrief = performance.now() - this.#since < STEP_MS || this.#shown === null;
        history[isBrief ? "replaceState" : "pushState"](null, "", `#${node.kind}-${node.id}`);
        this.#shown = node.key;
        this.#since = performance.now();
    }
}

// Remembers which groups are open. In a large fleet, only those of the first level are open at first.
import { pref, setPref } from "./prefs.js";

const LARGE = 500; // nodes

export class OpenGroups {
    #open;
    #closed;
    #isLarge = null; // not known yet

    constructor() {
        const { open = [], closed = [] } = pref("groups", {});
        this.#open = new Set(open);
        this.#closed = new Set(closed);
        addEventListener("pagehide", () => setPref("groups", { open: [...this.#open], closed: [...this.#closed] }));
    }

    // fleet: the size of the first one that is not empty decides what is open at first.
    fit(fleet) {
        if (fleet.nodes.length > 0) {
            this.#isLarge ??= fleet.nodes.length > LARGE;
        }
    }

    has(node) {
        const isOpenAtFirst = !this.#isLarge || node.level < 2;
        return !this.#closed.has(node.key) && (isOpenAtFirst || this.#open.has(node.key));
    }

    note(key, isOpen) {
        (isOpen ? this.#open : this.#closed).add(key);
        (isOpen ? this.#closed : this.#open).delete(key);
    }
}

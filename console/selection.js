// Holds the keys of the selected rows and the row from which a range extends.
export class Selection {
    #keys = new Set();
    #anchor = null;

    // The keys, a set that must not be altered.
    get keys() {
        return this.#keys;
    }

    // The row from which the next range extends: its key, or null.
    get anchor() {
        return this.#anchor;
    }

    // Selects these rows and no others.
    set(keys, anchor = null) {
        this.#keys = new Set(keys);
        this.#anchor = anchor ?? this.#anchor;
    }

    only(key) {
        this.set(key === null ? [] : [key], key);
    }

    toggle(key) {
        const keys = new Set(this.#keys);
        if (!keys.delete(key)) {
            keys.add(key);
        }
        this.set(keys, key);
    }

    // Selects the rows from the anchor to the row of the key. order: all keys that can be selected, from top to bottom.
    extend(order, key) {
        const ends = [order.indexOf(this.#anchor ?? key), order.indexOf(key)].map((at) => Math.max(0, at));
        this.set(order.slice(Math.min(...ends), Math.max(...ends) + 1));
    }
}

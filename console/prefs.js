// Remembers in this browser how the user arranged the page: columns, widths, order and open groups. It keeps no name
// and no other content of the fleet.
const KEY = "arrangement";

// Returns the value kept under the name, or the other value when there is none.
export function pref(name, otherwise) {
    return read()[name] ?? otherwise;
}

export function setPref(name, value) {
    try {
        localStorage.setItem(KEY, JSON.stringify({ ...read(), [name]: value }));
    } catch {
        // no storage, or it is full: what was kept before stays
    }
}

function read() {
    try {
        return JSON.parse(localStorage.getItem(KEY)) ?? {};
    } catch {
        return {};
    }
}

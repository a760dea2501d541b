// Keeps the token and the state of the tree for this browser tab until it is closed.
const TOKEN = "token";
const TREE_STATE = "view";

// Returns the token in the fragment of the page's address, else the kept one, else null. Removes it from the address,
// where others could see it; a browser sends no fragment to a server.
export function takeToken() {
    const given = new URLSearchParams(location.hash.slice(1)).get(TOKEN);
    if (given !== null) {
        history.replaceState(null, "", location.pathname + location.search);
        keepToken(given);
    }
    return sessionStorage.getItem(TOKEN);
}

export function keepToken(token) {
    sessionStorage.setItem(TOKEN, token);
}

export function forgetToken() {
    sessionStorage.removeItem(TOKEN);
}

// Keeps the state of the tree, a value of FleetTree.state.
export function keepTreeState(state) {
    try {
        sessionStorage.setItem(TREE_STATE, JSON.stringify(state));
    } catch {
        // the storage is full: the state kept before stays
    }
}

// Returns the state that was kept last, or the state of a first visit.
export function keptTreeState() {
    return JSON.parse(sessionStorage.getItem(TREE_STATE)) ?? { closed: [], selected: null };
}

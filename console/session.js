// What the page remembers in this tab: the token, and what was open and chosen. Other tabs and later visits see nothing
// of it.
const TOKEN = "token";
const VIEW = "view";

// The token of the address's fragment, which no server sees and which is then taken off the address; else the one kept.
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

// view: as of the tree.
export function keepView(view) {
    try {
        sessionStorage.setItem(VIEW, JSON.stringify(view));
    } catch {
        // there is no room for it
    }
}

export function keptView() {
    return JSON.parse(sessionStorage.getItem(VIEW)) ?? { closed: [], selected: null };
}

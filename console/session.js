// Keeps the token for this browser tab until it is closed.
const TOKEN = "token";

// Whether the page's address has a token.
export function hasToken() {
    return new URLSearchParams(location.hash.slice(1)).has(TOKEN);
}

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

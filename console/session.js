// Keeps the token for this browser tab until it is closed, and for the other tabs whose it is.
const TOKEN = "token";
const ACCOUNT = "account"; // the uid of the latest sign-in
const STORAGES = [sessionStorage, localStorage]; // of this tab, and of the browser

// Whether the page's address has a token.
export function hasToken() {
    return new URLSearchParams(location.hash.slice(1)).has(TOKEN);
}

// Returns the token in the fragment of the page's address, or null. Removes it from the address, where others could see
// it; a browser sends no fragment to a server.
export function takeToken() {
    const given = new URLSearchParams(location.hash.slice(1)).get(TOKEN);
    if (given !== null) {
        history.replaceState(null, "", location.pathname + location.search);
    }
    return given;
}

// Returns the token of this tab, or null.
export function keptToken() {
    return sessionStorage.getItem(TOKEN);
}

export function keepToken(token) {
    sessionStorage.setItem(TOKEN, token);
}

export function forgetToken() {
    sessionStorage.removeItem(TOKEN);
    STORAGES.forEach((storage) => storage.removeItem(ACCOUNT));
}

// Notes who has signed in.
export function keepAccount(uid) {
    STORAGES.forEach((storage) => storage.setItem(ACCOUNT, uid));
}

// Whether this tab or the browser signed in as another account last, and did not sign out.
export function isOther(uid) {
    return STORAGES.map((storage) => storage.getItem(ACCOUNT)).some((kept) => kept !== null && kept !== String(uid));
}

// Whether a page of another site led to this one. The server says what the browser told it, because a link can keep the
// browser from telling the page.
export function isFromElsewhere() {
    const [navigation] = performance.getEntriesByType("navigation");
    const site = navigation?.serverTiming?.find(({ name }) => name === "site")?.description;
    const isForeign = document.referrer !== "" && new URL(document.referrer).origin !== location.origin;
    return isForeign || (site !== undefined && site !== "none" && site !== "same-origin");
}

// Signs the user in with a token from the page's address, from this tab's session or from the sign-in form.
import { Api } from "./api.js";
import { ask } from "./dialogs.js";
import { byId, element } from "./dom.js";
import { forgetToken, hasToken, isFromElsewhere, isOther, keepToken, keptToken, takeToken } from "./session.js";

export class SignIn {
    #open;
    #close;

    // open(token): called with each token that is to be tried; the server has not checked it yet. close(): called when
    // the form takes the place of the console.
    constructor(open, close) {
        this.#open = open;
        this.#close = close;
        byId("sign-in").addEventListener("submit", (event) => {
            event.preventDefault();
            this.#signIn(byId("token").value.trim());
        });
        // Other fragments name a node. A page of another site may have changed the address of this window.
        addEventListener("hashchange", () => hasToken() && this.start(true));
    }

    // Signs in with the token of the address or of the session; shows the form when there is none.
    async start(isDoubtful = isFromElsewhere()) {
        const given = takeToken();
        const kept = keptToken();
        const isTaken = given !== null && (given === kept || await isWanted(given, isDoubtful, kept));
        const token = isTaken ? given : kept;
        if (token === null) {
            this.showForm("");
        } else {
            this.#signIn(token);
        }
    }

    // Forgets the token and shows the form. reason: why a token is needed again; empty at the first sign-in.
    showForm(reason) {
        forgetToken();
        this.#close();
        byId("console").hidden = true;
        byId("sign-in").hidden = false;
        byId("sign-in-reason").textContent = reason;
        byId("sign-in-reason").hidden = reason === "";
        byId("token").value = "";
        byId("token").focus();
    }

    // Shows the console in place of the form.
    showConsole() {
        byId("sign-in").hidden = true;
        byId("console").hidden = false;
    }

    signOut() {
        forgetToken();
        location.reload();
    }

    #signIn(token) {
        keepToken(token);
        byId("console").hidden = !byId("sign-in").hidden; // a visible form stays until the server accepts the token
        this.#open(token);
    }
}

// Returns whether to sign in with the token of a link. Asks the user when another account is signed in or the link is
// doubtful, because it could make the user act as somebody else unawares. kept: the token of this tab, or null.
async function isWanted(token, isDoubtful, kept) {
    const api = new Api();
    api.token = token;
    let session = null;
    try {
        session = await api.session();
    } catch {
        return !isDoubtful && kept === null; // the reason shows at sign-in
    }
    if (!isDoubtful && !isOther(session.uid)) {
        return true;
    }
    const why = "A link opened this page with a token of this account. If the link is not yours, what you enter here " +
        "may be for somebody else.";
    const answer = await ask({ title: `Sign in as ${session.name}?`, confirm: "Sign in",
        contents: element("p", {}, why), act: () => true });
    return answer === true;
}

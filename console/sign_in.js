// Signs the user in with a token from the page's address, from this tab's session or from the sign-in form.
import { byId } from "./dom.js";
import { forgetToken, hasToken, keepToken, takeToken } from "./session.js";

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
        addEventListener("hashchange", () => hasToken() && this.start()); // other fragments name a node
    }

    // Signs in with the token of the address or of the session; shows the form when there is none.
    start() {
        const token = takeToken();
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

// Shows messages to the user: refusals in the notice bar, results and hints in the status line.
import { Refusal } from "./api.js";
import { reasonOf } from "./dialogs.js";
import { byId } from "./dom.js";

export class Notice {
    #signIn;

    constructor(signIn) {
        this.#signIn = signIn;
    }

    // Puts the text into the status line; an empty text clears it.
    say(text) {
        this.done(text, null);
    }

    // Puts the text into the status line and leaves the button beside it as it is.
    reply(text) {
        byId("status").textContent = text;
    }

    // Says what was done. offered: the button to take it back, "undo" or "redo"; null for none.
    done(text, offered) {
        this.reply(text);
        for (const id of ["undo", "redo"]) {
            byId(id).hidden = id !== offered;
        }
    }

    // Shows in the status line how much of a long answer has come; null clears it. Screen readers do not announce it.
    progress(bytes) {
        byId("progress").textContent = bytes === null ? "" : `Receiving the tree: ${(bytes / 1e6).toFixed(1)} MB …`;
    }

    // Shows a Refusal: in the sign-in form when it is about the token, else in the notice bar. Throws any other error.
    report(error) {
        if (!(error instanceof Refusal)) {
            throw error;
        }
        if (error.reason === "token") {
            this.#signIn.showForm(error.message);
            return;
        }
        this.#signIn.showConsole();
        byId("again").hidden = error.reason !== "away";
        byId("reason").replaceChildren(...reasonOf(error));
        this.say(""); // it may still report the success of an earlier change
        byId("notice").hidden = false;
    }

    hide() {
        byId("notice").hidden = true;
    }

    // Hides the bar when it says that the server does not answer; other refusals stay until the user dismisses them.
    hideOutage() {
        byId("notice").hidden ||= !byId("again").hidden;
    }
}

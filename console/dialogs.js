// Shows the dialogs in which the user enters the values of a change.
import { byId, element } from "./dom.js";

const open = new Set(); // the dialogs that wait for the user

// Shows a dialog until the user confirms or cancels it. contents: elements with the fields; the first one is focused.
// act(data): runs at confirmation with the FormData; when it throws, the dialog shows the message and stays open,
// unless the error has isFinal set. isDanger: the change cannot be undone. isReady(data): whether the user can confirm.
// refusal: the error of an attempt before, which the dialog shows at first. preview(data): returns an element that says
// what will happen, made again after each input. Returns a promise of the result of act, or of undefined when the user
// cancels; it is rejected with a final error, and with any error of act after the user closed the dialog.
export function ask({ title, confirm, contents, act, isDanger = false, isReady = () => true, preview = null,
    refusal = null }) {
    return new Promise((resolve, reject) => {
        new Dialog({ title, confirm, contents, act, isDanger, isReady, preview, refusal, resolve, reject }).show();
    });
}

// Hides the dialogs while the user has to sign in again. They keep what was typed.
export function suspendDialogs() {
    open.forEach((dialog) => dialog.suspend());
}

// Shows the hidden dialogs again. isSame: whether the same account signed in; for another one they are cancelled.
export function resumeDialogs(isSame) {
    open.forEach((dialog) => (isSame ? dialog.show() : dialog.leave()));
}

class Dialog {
    #options;
    #form;
    #reason;
    #submit;
    #preview = element("div", { "aria-live": "polite" });
    #element;
    #isRunning = false; // instead of disabling the button, which would take the focus from it
    #isSuspended = false;

    constructor(options) {
        this.#options = options;
        this.#reason = element("div", { role: "alert", class: "reason", id: "dialog-reason", hidden: true });
        this.#submit = element("button", { type: "submit", class: options.isDanger ? "main danger" : "main" },
            options.confirm);
        const cancel = element("button", { type: "button" }, "Cancel");
        this.#form = element("form", { method: "dialog" }, element("h2", { id: "dialog-title" }, options.title),
            options.contents, options.preview !== null && this.#preview, this.#reason,
            element("div", { class: "buttons" }, cancel, this.#submit));
        this.#element = element("dialog", { "aria-labelledby": "dialog-title" }, this.#form);
        cancel.addEventListener("click", () => this.leave());
        this.#element.addEventListener("cancel", (event) => this.#cancel(event));
        this.#form.addEventListener("submit", (event) => this.#confirm(event));
        this.#form.addEventListener("keydown", (event) => this.#submitAt(event));
        for (const type of ["input", "change"]) {
            this.#form.addEventListener(type, () => this.#update());
        }
    }

    show() {
        if (this.#element.open) {
            return;
        }
        this.#isSuspended = false;
        open.add(this);
        byId("dialogs").append(this.#element);
        this.#element.showModal();
        this.#focusFirst();
        this.#update();
        if (this.#options.refusal !== null) {
            this.#explain(this.#options.refusal);
        }
    }

    // Focuses the first item or field; without one the button that confirms, unless that cannot be undone.
    #focusFirst() {
        const field = this.#form.querySelector("[data-first], input, select, textarea");
        const first = field ?? (this.#options.isDanger ? null : this.#submit);
        first?.focus();
        first?.select?.();
    }

    suspend() {
        this.#isSuspended = true;
        this.#element.close();
    }

    leave() {
        if (this.#isRunning && !this.#isSuspended) {
            this.#element.close(); // the running act settles the promise
        } else {
            this.#end(this.#options.resolve);
        }
    }

    #end(settle, value) {
        open.delete(this);
        this.#element.close();
        this.#element.remove();
        settle(value);
    }

    #cancel(event) {
        event.preventDefault();
        this.leave();
    }

    #submitAt(event) {
        if (event.key === "Enter" && (event.ctrlKey || event.metaKey)) {
            event.preventDefault();
            this.#form.requestSubmit(this.#submit);
        }
    }

    #update() {
        const data = new FormData(this.#form);
        this.#submit.disabled = !this.#isRunning && !this.#options.isReady(data);
        const effects = this.#options.preview?.(data);
        this.#preview.replaceChildren(...(effects ? [effects] : []));
    }

    async #confirm(event) {
        event.preventDefault();
        if (this.#isRunning) {
            return;
        }
        this.#isRunning = true;
        try {
            this.#end(this.#options.resolve, await this.#options.act(new FormData(this.#form)));
        } catch (error) {
            this.#refuse(error);
        }
        this.#isRunning = false;
    }

    #refuse(error) {
        if (!this.#isSuspended && (error.isFinal || !this.#element.open)) {
            this.#end(this.#options.reject, error);
            return;
        }
        this.#explain(error);
    }

    #explain(error) {
        this.#reason.replaceChildren(...reasonOf(error));
        this.#reason.hidden = false;
        for (const field of this.#form.elements) {
            const isRefused = field.name !== "" && field.name === error.member;
            setInvalid(field, isRefused);
        }
    }
}

function setInvalid(field, isRefused) {
    field.toggleAttribute("aria-invalid", isRefused);
    if (isRefused) {
        field.setAttribute("aria-invalid", true);
        field.setAttribute("aria-describedby", "dialog-reason");
        field.focus();
    }
}

// Returns the elements that show why a change was refused. error: with the server's own text in the member detail.
export function reasonOf({ message, detail = "" }) {
    const details = element("details", {}, element("summary", {}, "Details"), element("code", {}, detail));
    return [element("p", {}, message), ...(detail === "" || detail === message ? [] : [details])];
}

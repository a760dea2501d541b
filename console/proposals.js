// Proposes words for the filter while the user types one.
import { byId, element } from "./dom.js";
import { sortedByName } from "./order.js";
import { WORDS } from "./query.js";

const MOST = 8;

export class Proposals {
    #element = byId("proposals");
    #field = byId("filter");
    #fleetOf;

    // fleetOf(): returns the fleet whose policies and accounts are proposed.
    constructor(fleetOf) {
        this.#fleetOf = fleetOf;
        this.#field.addEventListener("input", () => this.#show());
        this.#field.parentElement.addEventListener("focusout", ({ relatedTarget }) => {
            this.#element.hidden ||= !this.#field.parentElement.contains(relatedTarget);
        });
        this.#element.addEventListener("mousedown", (event) => event.preventDefault()); // the field keeps the focus
        this.#element.addEventListener("click", ({ target }) => this.#take(target.closest("button")));
    }

    hide() {
        this.#element.hidden = true;
    }

    #show() {
        const typed = this.#typed;
        const found = typed === "" ? [] : proposalsFor(typed, this.#fleetOf());
        this.#element.replaceChildren(...found.map(({ text, help }) => element("button",
            { "type": "button", "class": "plain", "data-text": text, "tabindex": -1 },
            element("strong", {}, text), element("span", { class: "quiet" }, help))));
        this.#element.hidden = found.length === 0;
    }

    // The word before the cursor.
    get #typed() {
        return /(\w+:"[^"]*|\S*)$/.exec(this.#field.value.slice(0, this.#field.selectionStart))[0];
    }

    #take(button) {
        if (button === null) {
            return;
        }
        const { text } = button.dataset;
        const end = this.#field.selectionStart;
        const space = text.endsWith(":") ? "" : " ";
        this.#field.setRangeText(text + space, end - this.#typed.length, end, "end");
        this.#field.focus();
        this.#field.dispatchEvent(new Event("input", { bubbles: true }));
    }
}

// Returns what can stand in place of the typed word: array of {text, help}.
export function proposalsFor(typed, fleet) {
    const [word, value] = typed.toLowerCase().split(":");
    if (value === undefined) {
        return Object.entries(WORDS).filter(([name]) => name.startsWith(word))
            .map(([name, { help }]) => ({ text: `${name}:`, help }));
    }
    const wanted = value.replaceAll("\"", "");
    const names = sortedByName((WORDS[word]?.values(fleet) ?? []).map((name) => ({ name })));
    return names.filter(({ name }) => name.toLowerCase().includes(wanted)).slice(0, MOST)
        .map(({ name }) => ({ text: `${word}:${/\s/.test(name) ? `"${name}"` : name}`, help: "" }));
}

// Makes the fields of the dialogs.
import { element } from "./dom.js";

const MAX_OPTIONS = 100; // that a picker shows; a searched text narrows them

// Returns a labelled text field. attributes: of the field; its member tag names another element than input.
export function textField(label, name, value, attributes = {}) {
    const { tag = "input", ...others } = attributes;
    const field = element(tag, { id: `field-${name}`, name, autocomplete: "off", ...others });
    field.value = value;
    return element("p", { class: "field" }, element("label", { for: field.id }, label), field);
}

// Returns a drop-down list. options: array of {value, text}; the last one is selected.
export function choice(label, name, options) {
    const select = element("select", { id: `field-${name}`, name }, options.map(optionOf));
    select.selectedIndex = options.length - 1;
    return element("p", { class: "field" }, element("label", { for: select.id }, label), select);
}

// Returns a list in which the user selects one option, with a search field that narrows the list. options: array of
// {value, text}, in the order in which they are shown. ask(text): returns a promise of further options for a text, or
// null.
export function picker(label, name, options, ask = null) {
    const search = element("input", { type: "search", id: `search-${name}`, autocomplete: "off" });
    const select = element("select", { id: `field-${name}`, name, size: 8, required: true, "aria-label": label });
    const hint = element("p", { class: "hint", role: "status" });
    const show = (found) => {
        const kept = select.value;
        select.replaceChildren(...found.slice(0, MAX_OPTIONS).map(optionOf));
        select.selectedIndex = search.value.trim() !== "" && select.length > 0 ? 0 : -1;
        if (kept !== "" && search.value.trim() === "") {
            select.value = kept;
        }
        hint.textContent = hintOf(found.length);
        select.dispatchEvent(new Event("change", { bubbles: true }));
    };
    const fill = async () => {
        const wanted = search.value.trim();
        if (ask === null) {
            show(options.filter(({ text }) => text.toLowerCase().includes(wanted.toLowerCase())));
            return;
        }
        try {
            const found = await ask(wanted);
            if (search.value.trim() === wanted) { // else a later answer is on its way
                show(found);
            }
        } catch (error) {
            hint.textContent = error.message;
        }
    };
    search.addEventListener("input", fill);
    search.addEventListener("keydown", (event) => {
        if (event.key === "ArrowDown") {
            event.preventDefault();
            select.selectedIndex = Math.max(0, select.selectedIndex);
            select.dispatchEvent(new Event("change", { bubbles: true }));
            select.focus();
        }
    });
    fill();
    return element("div", { class: "field" }, element("label", { for: search.id }, label), search, select, hint);
}

function hintOf(count) {
    if (count === 0) {
        return "Nothing has this in its name.";
    }
    return count > MAX_OPTIONS ? `${MAX_OPTIONS} of ${count.toLocaleString("en")}: type to narrow the list.` : "";
}

function optionOf({ value, text }) {
    return element("option", { value }, text);
}

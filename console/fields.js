// Makes the fields of the dialogs.
import { element } from "./dom.js";

const MAX_OPTIONS = 100; // that a picker shows; a searched text narrows them
const CHOOSE = "Choose an entry from the list below, or clear this field.";

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

// Returns a list in which the user selects one option, with a search field that narrows the list. A searched text
// selects an option only when that is the only one with it or has this name; with several, the form is not sent until
// the user chooses. options: array of {value, text}, in the order in which they are shown. ask(text): returns a promise
// of further options for a text, or null.
export function picker(label, name, options, ask = null) {
    const search = element("input", { type: "search", id: `search-${name}`, autocomplete: "off" });
    const select = element("select", { id: `field-${name}`, name, size: 8, required: true, "aria-label": label });
    const hint = element("p", { class: "hint", role: "status" });
    const mark = (index) => {
        select.selectedIndex = index;
        select.dispatchEvent(new Event("change", { bubbles: true }));
    };
    const show = (found) => {
        select.replaceChildren(...found.slice(0, MAX_OPTIONS).map(optionOf));
        hint.textContent = hintOf(found.length);
        mark(meantIn(found, search.value.trim()));
    };
    const fill = async () => {
        const wanted = search.value.trim();
        if (ask === null) {
            show(options.filter(({ text }) => text.toLowerCase().includes(wanted.toLowerCase())));
            return;
        }
        mark(-1); // the options are still those of another text
        try {
            const found = await ask(wanted);
            if (search.value.trim() === wanted) { // else a later answer is on its way
                show(found);
            }
        } catch (error) {
            hint.textContent = error.message;
        }
    };
    select.addEventListener("change", () => {
        search.setCustomValidity(search.value.trim() !== "" && select.selectedIndex < 0 ? CHOOSE : "");
    });
    search.addEventListener("input", fill);
    search.addEventListener("keydown", (event) => {
        if (event.key === "ArrowDown") {
            event.preventDefault();
            mark(Math.max(0, select.selectedIndex));
            select.focus();
        }
    });
    fill();
    return element("div", { class: "field" }, element("label", { for: search.id }, label), search, select, hint);
}

// Returns the index of the option that the text means, or -1 when the user has to choose.
function meantIn(options, text) {
    const exact = options.filter((option) => option.text.toLowerCase() === text.toLowerCase());
    const meant = exact.length > 0 ? exact : options;
    return text !== "" && meant.length === 1 ? options.indexOf(meant[0]) : -1;
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

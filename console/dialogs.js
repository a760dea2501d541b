// Makes the dialogs in which the user enters the values of a change, and the fields in them.
import { byId, element } from "./dom.js";

const MAX_OPTIONS = 100; // that a picker shows; a searched text narrows them

// Shows a dialog until the user confirms or cancels it. contents: elements with the fields; the first one is focused.
// act(data): runs at confirmation with the FormData; when it throws, the dialog shows the message and stays open,
// unless the error has isFinal set. Returns a promise of the result of act, or of undefined when the user cancels; it
// is rejected with a final error, and with any error of act after the user closed the dialog.
export function ask(title, confirm, contents, act) {
    const reason = element("p", { role: "alert", class: "reason", hidden: true });
    const submit = element("button", { type: "submit", class: "main" }, confirm);
    const cancel = element("button", { type: "button" }, "Cancel");
    const form = element("form", { method: "dialog" }, element("h2", { id: "dialog-title" }, title), contents, reason,
        element("div", { class: "buttons" }, cancel, submit));
    const dialog = element("dialog", { "aria-labelledby": "dialog-title" }, form);
    byId("dialogs").append(dialog);
    dialog.showModal();
    form.querySelector("input, select, textarea")?.select?.();
    let isRunning = false; // instead of disabling the button, which would take the focus from it
    return new Promise((resolve, reject) => {
        const end = (settle, value) => {
            dialog.close();
            dialog.remove();
            settle(value);
        };
        const leave = () => (isRunning ? dialog.close() : end(resolve)); // a running act still settles the promise
        cancel.addEventListener("click", leave);
        dialog.addEventListener("cancel", (event) => {
            event.preventDefault();
            leave();
        });
        form.addEventListener("submit", async (event) => {
            event.preventDefault();
            if (isRunning) {
                return;
            }
            isRunning = true;
            try {
                end(resolve, await act(new FormData(form)));
            } catch (error) {
                if (error.isFinal || !dialog.open) {
                    end(reject, error);
                    return;
                }
                reason.textContent = error.message;
                reason.hidden = false;
            }
            isRunning = false;
        });
    });
}

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
// {value, text}. more(text): returns an option made from the searched text itself, or null.
export function picker(label, name, options, more = () => null) {
    const search = element("input", { type: "search", id: `search-${name}`, autocomplete: "off" });
    const select = element("select", { id: `field-${name}`, name, size: 8, required: true, "aria-label": label });
    const fill = () => {
        const wanted = search.value.trim().toLowerCase();
        const found = options.filter(({ text }) => text.toLowerCase().includes(wanted)).slice(0, MAX_OPTIONS);
        select.replaceChildren(...[more(search.value.trim()), ...found].filter(Boolean).map(optionOf));
        select.selectedIndex = wanted !== "" && select.length > 0 ? 0 : -1;
    };
    search.addEventListener("input", fill);
    search.addEventListener("keydown", (event) => {
        if (event.key === "ArrowDown") {
            event.preventDefault();
            select.selectedIndex = Math.max(0, select.selectedIndex);
            select.focus();
        }
    });
    fill();
    return element("div", { class: "field" }, element("label", { for: search.id }, label), search, select);
}

// Returns a list that the user edits before it is sent: its elements (contents) and a function that returns the
// identifiers in order (ids). items: array of {id, name}. offered: the items that can be added, in the same form.
// more: as for picker. isOrdered: whether items can be moved up and down. add: label of the search field.
export function listEditor(label, items, offered, { isOrdered, add, more = () => null }) {
    const list = element(isOrdered ? "ol" : "ul", { class: "editor", "aria-label": label });
    const row = (item) => element("li", { "data-id": item.id }, element("span", {}, item.name),
        isOrdered && rowButton("up", "↑", `Move ${item.name} up`),
        isOrdered && rowButton("down", "↓", `Move ${item.name} down`),
        rowButton("remove", "✕", `Remove ${item.name}`));
    const ids = () => [...list.children].map((child) => Number(child.dataset.id));
    const chooser = picker(add, "added", offered.map(({ id, name }) => ({ value: id, text: name })), more);
    const select = chooser.querySelector("select");
    select.required = false;
    const addChosen = () => {
        const chosen = select.selectedOptions[0];
        if (chosen !== undefined && !ids().includes(Number(chosen.value))) {
            list.append(row({ id: chosen.value, name: chosen.textContent }));
            list.lastChild.scrollIntoView({ block: "nearest" });
        }
    };
    const button = element("button", { type: "button" }, "Add");
    button.addEventListener("click", addChosen);
    select.addEventListener("dblclick", addChosen);
    chooser.addEventListener("keydown", (event) => {
        if (event.key === "Enter" && event.target !== button) {
            event.preventDefault(); // Enter adds the item instead of submitting the form
            addChosen();
        }
    });
    list.append(...items.map(row));
    list.addEventListener("click", ({ target }) => rearrange(target.closest("button")));
    return { contents: [list, chooser, button], ids };
}

function rowButton(does, sign, label) {
    return element("button", { type: "button", "data-does": does, "aria-label": label, title: label }, sign);
}

function rearrange(button) {
    const row = button?.closest("li");
    const does = button?.dataset.does;
    if (does === "remove") {
        const next = row.nextElementSibling ?? row.previousElementSibling ?? row.parentElement.nextElementSibling;
        row.remove();
        next.querySelector("[data-does=remove], input").focus();
        return;
    }
    if (does === "up") {
        row.previousElementSibling?.before(row);
    } else if (does === "down") {
        row.nextElementSibling?.after(row);
    }
    button?.focus(); // a moved element loses the focus
}

function optionOf({ value, text }) {
    return element("option", { value }, text);
}

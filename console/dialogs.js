// Questions to the user. Each is a dialog that stays open, with the reason, when what it is for is refused.
import { byId, element } from "./dom.js";

const OFFERED = 100; // of a list that is filtered as one types

// Asks, and does what was asked for. contents: elements with the fields; the first is focused. act(data): takes the
// form's data; when it throws, its message is shown and the dialog goes on, unless the error says isFinal.
// Gives what act gave; undefined when the user thought better of it. Throws what is final.
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
    let isSent = false; // the button stays enabled: it would lose the focus
    return new Promise((resolve, reject) => {
        const end = (settle, value) => {
            dialog.close();
            dialog.remove();
            settle(value);
        };
        const leave = () => (isSent ? dialog.close() : end(resolve)); // what is on its way is waited for
        cancel.addEventListener("click", leave);
        dialog.addEventListener("cancel", (event) => {
            event.preventDefault();
            leave();
        });
        form.addEventListener("submit", async (event) => {
            event.preventDefault();
            if (isSent) {
                return;
            }
            isSent = true;
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
            isSent = false;
        });
    });
}

export function textField(label, name, value, attributes = {}) {
    const { tag = "input", ...others } = attributes;
    const field = element(tag, { id: `field-${name}`, name, autocomplete: "off", ...others });
    field.value = value;
    return element("p", { class: "field" }, element("label", { for: field.id }, label), field);
}

// options: of {value, text}. The last is chosen.
export function choice(label, name, options) {
    const select = element("select", { id: `field-${name}`, name }, options.map(optionOf));
    select.selectedIndex = options.length - 1;
    return element("p", { class: "field" }, element("label", { for: select.id }, label), select);
}

// A list to choose one of, which a text above it narrows. options: of {value, text}. more(text): an option that the
// text itself makes, or null.
export function picker(label, name, options, more = () => null) {
    const search = element("input", { type: "search", id: `search-${name}`, autocomplete: "off" });
    const select = element("select", { id: `field-${name}`, name, size: 8, required: true, "aria-label": label });
    const fill = () => {
        const wanted = search.value.trim().toLowerCase();
        const found = options.filter(({ text }) => text.toLowerCase().includes(wanted)).slice(0, OFFERED);
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

// A list that is put together before it is sent. items: of {id, name}. offered: what can be added, likewise. more: as
// for a picker. isOrdered: with buttons to move an item. Gives the element and a function that tells the identifiers.
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
            event.preventDefault(); // adds, and does not send the form
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
    button?.focus(); // moving took it away
}

function optionOf({ value, text }) {
    return element("option", { value }, text);
}

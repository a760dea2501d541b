// Makes a list that the user edits before it is sent: adds, removes and orders items.
import { element } from "./dom.js";
import { picker } from "./fields.js";

// Returns the elements of the editor (contents) and functions: ids returns the identifiers in order, with an item that
// is marked but not yet added; isChanged whether they differ from those at first; isReady whether there is something to
// save, or a searched text for which the user has to choose first. items: array of {id, name}. offered: the items that
// can be added, in the same form. isOrdered: whether items can be moved up and down. add: label of the search field.
// search: as ask of picker.
export function listEditor(label, items, offered, { isOrdered, add, search = null }) {
    const list = element(isOrdered ? "ol" : "ul", { class: "editor", "aria-label": label });
    list.append(...items.map((item) => rowOf(item, isOrdered)));
    const chooser = picker(add, "added", offered.map(({ id, name }) => ({ value: id, text: name })), search);
    const [field, select] = [chooser.querySelector("input"), chooser.querySelector("select")];
    select.required = false;
    const hint = element("p", { class: "hint", role: "status" });
    const listed = () => [...list.children].map((child) => Number(child.dataset.id));
    const marked = () => select.selectedOptions[0] ?? null;
    const isListed = (option) => listed().includes(Number(option.value));
    const ids = () => (marked() === null || isListed(marked()) ? listed() : [...listed(), Number(marked().value)]);
    const changed = () => list.dispatchEvent(new Event("change", { bubbles: true }));
    const addMarked = () => {
        const option = marked();
        if (option !== null && !isListed(option)) {
            list.append(rowOf({ id: option.value, name: option.textContent }, isOrdered));
            list.lastChild.scrollIntoView({ block: "nearest" });
            field.value = "";
            field.dispatchEvent(new Event("input", { bubbles: true })); // shows all options again, with none marked
            field.focus();
            changed();
        }
    };
    const button = element("button", { type: "button" }, "Add");
    button.addEventListener("click", () => field.reportValidity() && addMarked());
    select.addEventListener("dblclick", addMarked);
    select.addEventListener("change", () => { hint.textContent = hintOf(marked(), isListed); });
    chooser.addEventListener("keydown", (event) => addAtEnter(event, marked, addMarked));
    list.addEventListener("click", ({ target }) => rearrange(target.closest("button"), changed));
    list.addEventListener("keydown", (event) => rearrangeByKey(event, isOrdered, field, changed));
    const before = listed().join();
    const isChanged = () => ids().join() !== before;
    return { contents: [list, chooser, button, hint], ids, isChanged,
        isReady: () => isChanged() || !field.validity.valid };
}

function hintOf(option, isListed) {
    if (option === null) {
        return "";
    }
    const name = option.textContent;
    return isListed(option) ? `“${name}” is in the list already.` : `Save also adds “${name}”.`;
}

function rowOf(item, isOrdered) {
    return element("li", { "data-id": item.id, "tabindex": 0, "data-first": true }, element("span", {}, item.name),
        isOrdered && rowButton("up", "↑", `Move ${item.name} up`),
        isOrdered && rowButton("down", "↓", `Move ${item.name} down`),
        rowButton("remove", "✕", `Remove ${item.name}`));
}

function rowButton(does, sign, label) {
    return element("button", { type: "button", "data-does": does, "aria-label": label, title: label }, sign);
}

// Enter adds the marked item instead of submitting the form; without one it submits.
function addAtEnter(event, marked, addMarked) {
    if (event.key === "Enter" && !event.ctrlKey && !event.metaKey && marked() !== null) {
        event.preventDefault();
        addMarked();
    }
}

// changed(): called after each change of the list.
function rearrange(button, changed) {
    const row = button?.closest("li");
    if (!row) {
        return;
    }
    if (button.dataset.does === "remove") {
        remove(row);
    } else {
        shift(row, button.dataset.does);
        button.focus(); // a moved element loses the focus
    }
    changed();
}

function remove(row) {
    const next = row.nextElementSibling ?? row.previousElementSibling;
    const below = row.parentElement.parentElement.querySelector("input");
    row.remove();
    (next ?? below).focus();
}

// where: up, down, first or last.
function shift(row, where) {
    const places = {
        up: () => row.previousElementSibling?.before(row),
        down: () => row.nextElementSibling?.after(row),
        first: () => row.parentElement.prepend(row),
        last: () => row.parentElement.append(row),
    };
    places[where]();
}

// Arrows go to another item; with Alt they move the item. Delete removes it. Letters go to the search field.
function rearrangeByKey(event, isOrdered, field, changed) {
    const row = event.target;
    if (row.tagName !== "LI" || event.ctrlKey || event.metaKey) {
        return;
    }
    const where = { ArrowUp: "up", ArrowDown: "down", Home: "first", End: "last" }[event.key];
    const neighbours = { up: row.previousElementSibling, down: row.nextElementSibling,
        first: row.parentElement.firstElementChild, last: row.parentElement.lastElementChild };
    if (event.key.length === 1 && event.key !== " ") {
        field.focus(); // and the letter goes into it
    } else if (where !== undefined) {
        event.preventDefault();
        if (event.altKey && isOrdered) {
            shift(row, where);
            changed();
        }
        (event.altKey ? row : neighbours[where])?.focus();
    } else if (event.key === "Delete") {
        remove(row);
        changed();
    }
}

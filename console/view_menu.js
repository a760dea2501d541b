// Shows the menu that arranges the view: columns, order and downloads.
import { chooseColumn, chosenColumns } from "./columns.js";
import { byId, element } from "./dom.js";
import { ORDERS } from "./order.js";
import { pref, setPref } from "./prefs.js";

export const orderOfRows = () => pref("order", "name");

// listener: columns() and order() after a choice; download(format) with "csv" or "json".
export function makeViewMenu(listener) {
    const menu = byId("view-menu");
    menu.append(
        fieldset("Columns", chosenColumns().map(({ id, title, isChosen }) =>
            box("checkbox", "column", id, title, isChosen))),
        fieldset("Order", Object.entries(ORDERS).map(([id, title]) =>
            box("radio", "order", id, title, id === orderOfRows()))),
        element("div", {}, element("h3", {}, "Rows that are shown"),
            element("button", { "type": "button", "class": "plain", "data-format": "csv" }, "Download as CSV"),
            element("button", { "type": "button", "class": "plain", "data-format": "json" }, "Download as JSON")));
    menu.addEventListener("change", ({ target }) => choose(target, listener));
    menu.addEventListener("click", ({ target }) => {
        const format = target.closest("button")?.dataset.format;
        if (format !== undefined) {
            listener.download(format);
        }
    });
}

function choose({ name, value, checked }, listener) {
    if (name === "column") {
        chooseColumn(value, checked);
        listener.columns();
    } else {
        setPref("order", value);
        listener.order();
    }
}

function fieldset(title, boxes) {
    return element("fieldset", {}, element("legend", {}, title), boxes);
}

function box(type, name, value, title, checked) {
    return element("label", {}, element("input", { type, name, value, checked }), title);
}

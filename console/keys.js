// Lists the keys of the page and handles those that work everywhere.
import { byId, element } from "./dom.js";

export const KEYS = [
    { keys: "↑ ↓", does: "another row", isFirst: true },
    { keys: "→ ←", does: "open, close a group", isFirst: true },
    { keys: "Shift+↑ ↓", does: "select several rows", isFirst: true },
    { keys: "Space", does: "select one more row, or one less" },
    { keys: "Ctrl+↑ ↓", does: "go to a row without selecting it" },
    { keys: "Ctrl+A", does: "select all that is shown" },
    { keys: "Enter", does: "open the details" },
    { keys: "/", does: "search", isFirst: true },
    { keys: "F2", does: "rename in the row", isFirst: true },
    { keys: "Shift+P", does: "change the policies", isFirst: true },
    { keys: "Shift+D", does: "change the delegates", isFirst: true },
    { keys: "Shift+M", does: "move to another group" },
    { keys: "Shift+N", does: "new group" },
    { keys: "Ctrl+X, Ctrl+V", does: "cut, then move into the chosen group" },
    { keys: "Ctrl+C", does: "copy names" },
    { keys: "Del", does: "delete groups" },
    { keys: "Ctrl+Z", does: "undo the last change" },
    { keys: "Ctrl+Y", does: "redo it" },
    { keys: "letters", does: "go to the row that begins with them" },
    { keys: "Alt+↑ ↓", does: "in a list of policies: move the policy" },
    { keys: "Ctrl+Enter", does: "confirm a dialog" },
    { keys: "Escape", does: "cancel the cut, clear the filter, go back" },
    { keys: "?", does: "this list", isFirst: true },
];

// The keys that work wherever the focus is, with their commands.
const COMMANDS = { "/": "search", "?": "keys", "Ctrl+z": "undo", "Ctrl+y": "redo", "Ctrl+Shift+z": "redo" };

// Shows all keys in a dialog.
export function showKeys() {
    const dialog = element("dialog", { "aria-labelledby": "keys-title" },
        element("form", { method: "dialog" }, element("h2", { id: "keys-title" }, "Keys"),
            element("dl", { class: "keys" }, KEYS.map(({ keys, does }) => element("div", {},
                element("dt", {}, element("kbd", {}, keys)), element("dd", {}, does)))),
            element("div", { class: "buttons" }, element("button", {}, "Close"))));
    dialog.addEventListener("close", () => dialog.remove());
    byId("dialogs").append(dialog);
    dialog.showModal();
}

// Handles the keys of COMMANDS. run(command): runs a command of the page.
export function listenForKeys(run) {
    document.addEventListener("keydown", (event) => {
        const isTyping = event.target.closest("input, textarea, select, dialog") !== null;
        const command = COMMANDS[nameOf(event)];
        if (command !== undefined && !isTyping && !byId("console").hidden) {
            event.preventDefault();
            run(command);
        }
    });
}

function nameOf({ key, ctrlKey, metaKey, shiftKey }) {
    return ctrlKey || metaKey ? `Ctrl+${shiftKey ? "Shift+" : ""}${key.toLowerCase()}` : key;
}

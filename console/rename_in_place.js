// Edits the name of a row in the tree itself.
import { element } from "./dom.js";

// Puts a field in place of the title of a row until the user presses Enter, leaves the field or presses Escape. title: the
// widget's element. done(name): called once with the new name, or null when the name stays.
export function renameInPlace(title, name, done) {
    const field = element("input", { "type": "text", "aria-label": "Name", "autocomplete": "off", "spellcheck": "false" });
    field.value = name;
    const row = title.closest(".wb-node");
    let isOpen = true;
    const end = (wanted) => {
        if (isOpen) {
            isOpen = false;
            row.draggable = true;
            row.removeAttribute("data-edited");
            field.remove();
            done(wanted === null || wanted.trim() === "" || wanted === name ? null : wanted);
        }
    };
    const keys = { Enter: () => end(field.value), Escape: () => end(null) };
    field.addEventListener("keydown", (event) => {
        event.stopPropagation();
        keys[event.key]?.();
    });
    field.addEventListener("blur", () => end(field.value));
    row.draggable = false; // else a drag in the field would drag the row
    row.toggleAttribute("data-edited", true);
    title.after(field); // beside the title, which the widget fills again whenever it draws the row
    field.focus();
    field.select();
}

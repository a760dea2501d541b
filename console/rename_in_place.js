// Edits the name of a row in the tree itself.
import { element } from "./dom.js";

// Puts a field over the title of a row until the user presses Enter, leaves the field or presses Escape. It is not in
// the row, which the tree may draw again meanwhile. title: the element of the title. tree: the one that scrolls.
// done(name): called once with the new name, or null when the name stays.
export function renameInPlace(title, tree, name, done) {
    const field = element("input", { "type": "text", "id": "in-place", "aria-label": "Name", "autocomplete": "off",
        "spellcheck": "false" });
    field.value = name;
    let isOpen = true;
    const end = (wanted) => {
        if (isOpen) {
            isOpen = false;
            tree.removeEventListener("scroll", leave);
            field.remove();
            done(wanted === null || wanted.trim() === "" || wanted === name ? null : wanted);
        }
    };
    const leave = () => end(field.value);
    const keys = { Enter: leave, Escape: () => end(null) };
    field.addEventListener("keydown", ({ key }) => keys[key]?.());
    field.addEventListener("blur", leave);
    tree.addEventListener("scroll", leave);
    const { left, top, width, height } = title.getBoundingClientRect();
    const place = tree.parentElement.getBoundingClientRect();
    Object.assign(field.style, { left: `${left - place.left}px`, top: `${top - place.top}px`, width: `${width}px`,
        height: `${height}px` });
    tree.parentElement.append(field);
    field.focus();
    field.select();
}

// Copies texts to the clipboard.
import { element, icon } from "./dom.js";

export async function copy(text) {
    try {
        await navigator.clipboard.writeText(text);
    } catch {
        copyWithoutPermission(text); // the browser offers the clipboard only to pages over HTTPS and of this machine
    }
}

function copyWithoutPermission(text) {
    const focused = document.activeElement;
    const field = element("textarea", { class: "unseen" });
    field.value = text;
    document.body.append(field);
    field.select();
    document.execCommand("copy");
    field.remove();
    focused?.focus();
}

// Returns a button that copies the text; the panel handles it. what: of the text, such as "address".
export function copyButton(what, text, symbol = "copy") {
    return element("button", { "type": "button", "class": "plain copy", "data-copy": text, "aria-label": `Copy ${what}`,
        "title": `Copy ${what}` }, icon(symbol));
}

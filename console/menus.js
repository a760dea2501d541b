// Places the menus below the buttons that open them, and turns the toolbar into a menu when the window is narrow.
import { byId } from "./dom.js";

export const NARROW = matchMedia("(max-width: 48rem)");

const GAP_PX = 6;

export function connectMenus() {
    const fit = () => fitToolbar(NARROW.matches);
    NARROW.addEventListener("change", fit);
    fit();
    for (const button of document.querySelectorAll("[popovertarget]")) {
        const menu = byId(button.getAttribute("popovertarget"));
        button.setAttribute("aria-expanded", false);
        menu.addEventListener("toggle", ({ newState }) => {
            button.setAttribute("aria-expanded", newState === "open");
            if (newState === "open") {
                place(menu, button.getBoundingClientRect());
                menu.querySelector("button, input")?.focus();
            }
        });
        menu.addEventListener("click", ({ target }) => target.closest("button:not([popovertarget])") &&
            menu.matches(":popover-open") && menu.hidePopover());
    }
}

function fitToolbar(isNarrow) {
    const toolbar = byId("toolbar");
    toolbar.classList.toggle("menu", isNarrow);
    if (isNarrow) {
        toolbar.setAttribute("popover", "auto");
    } else {
        toolbar.removeAttribute("popover");
        toolbar.removeAttribute("style");
    }
}

function place(menu, { bottom, right }) {
    menu.style.top = `${bottom + GAP_PX}px`;
    menu.style.left = `${Math.max(GAP_PX, Math.min(right, innerWidth - GAP_PX) - menu.offsetWidth)}px`;
}

// Arranges tree and details: the user sets the width of the details, and in a narrow window they are a sheet over the
// tree.
import { byId } from "./dom.js";
import { NARROW } from "./menus.js";
import { pref, setPref } from "./prefs.js";

const STEP_PX = 24;
const [MIN_PX, MAX_PX] = [220, 900];

export class Layout {
    constructor() {
        const splitter = byId("splitter");
        this.#setWidth(pref("panel", null));
        splitter.addEventListener("pointerdown", (event) => splitter.setPointerCapture(event.pointerId));
        splitter.addEventListener("pointermove", (event) => splitter.hasPointerCapture(event.pointerId) &&
            this.#setWidth(innerWidth - event.clientX));
        splitter.addEventListener("pointerup", () => this.#keep());
        splitter.addEventListener("keydown", (event) => this.#resize(event));
        splitter.addEventListener("dblclick", () => this.#setWidth(null));
        NARROW.addEventListener("change", () => this.showSheet(false));
    }

    // Shows the details over the tree, or the tree again; in a wide window both are there anyway.
    showSheet(isShown) {
        byId("console").toggleAttribute("data-sheet", isShown && NARROW.matches);
    }

    get #width() {
        return byId("details").offsetWidth;
    }

    // px: null for the width that the style gives.
    #setWidth(px) {
        const main = byId("splitter").parentElement;
        if (px === null) {
            main.style.removeProperty("--panel");
        } else {
            main.style.setProperty("--panel", `${Math.min(MAX_PX, Math.max(MIN_PX, px))}px`);
        }
        byId("splitter").setAttribute("aria-valuenow", Math.round(this.#width));
    }

    #keep() {
        setPref("panel", this.#width);
    }

    #resize(event) {
        const by = { ArrowLeft: STEP_PX, ArrowRight: -STEP_PX }[event.key];
        if (by !== undefined) {
            event.preventDefault();
            this.#setWidth(this.#width + by);
            this.#keep();
        }
    }
}

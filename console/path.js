// Shows above the tree where the selected node is.
import { byId, element } from "./dom.js";
import { goTo } from "./details_parts.js";

export class Path {
    // listener: goTo(key) when the user chooses a group of the path.
    constructor(listener) {
        byId("path").addEventListener("click", ({ target }) => {
            const { key } = target.closest("button")?.dataset ?? {};
            if (key !== undefined) {
                listener.goTo(key);
            }
        });
    }

    // node: null when none or more than one is selected.
    show(node) {
        const above = node === null ? [] : node.ancestors.map((group) => goTo(group));
        const last = element("span", node === null ? {} : { "aria-current": "location" }, node?.name ?? "All nodes");
        byId("path").replaceChildren(element("ol", {}, [...above, last].map((part) => element("li", {}, part))));
    }
}

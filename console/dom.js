// Elements made by script. Texts are set as text: nothing that the server answers is ever read as markup.
const SVG = "http://www.w3.org/2000/svg";

// attributes: true sets an empty one; false, null and undefined set none. children: elements, texts, nothing, or arrays
// of these.
export function element(tag, attributes = {}, ...children) {
    const made = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (value !== false && value != null) {
            made.setAttribute(name, value === true ? "" : value);
        }
    }
    made.append(...children.flat(Infinity).filter((child) => child !== false && child != null));
    return made;
}

export function byId(id) {
    return document.getElementById(id);
}

// name: of a symbol in the page. label: what it says to those who do not see it; none when the text beside it does.
export function icon(name, label = null) {
    const svg = document.createElementNS(SVG, "svg");
    svg.setAttribute("class", "icon");
    svg.setAttribute(label === null ? "aria-hidden" : "aria-label", label ?? "true");
    if (label !== null) {
        svg.setAttribute("role", "img");
    }
    const use = document.createElementNS(SVG, "use");
    use.setAttribute("href", `#icon-${name}`);
    svg.append(use);
    return svg;
}

// The text as nodes, with what was looked for marked. wanted: in lower case, or empty.
export function marked(text, wanted) {
    const lower = text.toLowerCase();
    if (wanted === "" || lower.length !== text.length) { // some letters become two
        return [text];
    }
    const parts = [];
    let from = 0;
    for (let at = lower.indexOf(wanted); at >= 0; at = lower.indexOf(wanted, from)) {
        parts.push(text.slice(from, at), element("mark", {}, text.slice(at, at + wanted.length)));
        from = at + wanted.length;
    }
    return [...parts, text.slice(from)];
}

export function plural(count, singular, many = `${singular}s`) {
    return `${count.toLocaleString("en")} ${count === 1 ? singular : many}`;
}

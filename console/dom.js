// Makes the elements of the page. Text is always set as text, so that no answer of the server is parsed as markup.
const SVG = "http://www.w3.org/2000/svg";

// Returns a new element. attributes: true sets an empty attribute; false, null and undefined set none. children:
// elements, texts, arrays of these; false, null and undefined are skipped.
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

// Returns an icon. name: of the symbol in index.html, without "icon-". label: for screen readers; null when the text
// beside the icon says the same.
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

// Returns the text as strings and mark elements around each hit. searched: in lower case; empty marks nothing.
export function marked(text, searched) {
    const lower = text.toLowerCase();
    if (searched === "" || lower.length !== text.length) { // some letters become two in lower case: positions differ
        return [text];
    }
    const parts = [];
    let from = 0;
    for (let at = lower.indexOf(searched); at >= 0; at = lower.indexOf(searched, from)) {
        parts.push(text.slice(from, at), element("mark", {}, text.slice(at, at + searched.length)));
        from = at + searched.length;
    }
    return [...parts, text.slice(from)];
}

// Returns the text as strings with places between them where a long name may be broken.
export function breakable(text) {
    return text.split(/(?<=[._/-])/).flatMap((part, i) => (i === 0 ? [part] : [element("wbr"), part]));
}

// Returns the count and the noun, such as "1,204 servers".
export function plural(count, singular, many = `${singular}s`) {
    return `${count.toLocaleString("en")} ${count === 1 ? singular : many}`;
}

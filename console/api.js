// Calls the server's methods; no other file sends requests.
import { explainReason } from "./words.js";

const SILENCE_MS = 60000; // without a byte of the answer; one that keeps coming may take as long as it needs
const UNREACHABLE = "The server does not answer: it is stopped or out of reach. What is shown may be out of date. " +
    "Start it with “zemhost serve”, then try again.";
const BUSY = "The server is too busy, or its store does not answer. Try again in a moment.";
export const STALE = "changed by someone else since it was read";

// Why a call or a change failed; the message is for the user. reason is one of:
// "token": the server does not accept the token;
// "away": no server answers, or it is too busy;
// "refused": the server refused the request, or the page did not send it;
// "stale": the record has changed since the page read it.
// code: of the server's answer; 0 without one. member: the part of the record that was refused, or an empty text.
// detail: the server's own text.
export class Refusal extends Error {
    constructor(reason, message, { code = 0, member = "", detail = "" } = {}) {
        super(message);
        this.reason = reason;
        this.code = code;
        this.member = member;
        this.detail = detail;
    }
}

export class Api {
    token = "";

    // Every method throws Refusal when the call fails.

    // Fetches the tree. held: what the latest call returned, or null. received(bytes): called for each part of the
    // answer with its size so far, after decompression. Returns the tree: records is the array of top-level nodes, the
    // other members are for the next call. Returns held when the server answers that the tree is still the same.
    async tree(held, received) {
        const { token } = this;
        const isComparable = held !== null && held.tag !== null && held.token === token;
        const headers = isComparable ? { "If-None-Match": held.tag } : {};
        const { answer, text } = await this.#fetch("VELQ.ZEM.Tree", "get", { headers, cache: "no-store" }, received);
        if (isComparable && answer.status === 304) {
            return held;
        }
        return { records: expected(dataOf(text), isNodes), tag: answer.headers.get("ETag"), token };
    }

    // Returns the new group's identifier.
    async createGroup(name, parentId) {
        const parameters = { id: 0, name, parent_id: requireExact(parentId) };
        return expected(await this.#call("VELQ.ZEM.KXGroup", "create", parameters), isObject).ids;
    }

    // Changes groups or servers. changes: array of {node, members}, all of one kind; members: of a record. Throws a
    // "stale" Refusal when a node has changed since it was read.
    async change(changes) {
        if (changes.some(({ node }) => !node.isConfirmed)) {
            throw new Error("a change without a revision, which the server would not check");
        }
        const records = changes.map(({ node, members }) => (
            { id: requireExact(node.id), revision: node.record.revision, ...members }));
        const api = changes[0].node.isGroup ? "VELQ.ZEM.KXGroup" : "VELQ.ZEM.KX";
        await this.#call(api, "set", { multiple_data: records });
    }

    async deleteGroups(nodes) {
        const ids = nodes.map(({ id }) => requireExact(id));
        await this.#call("VELQ.ZEM.KXGroup", "delete", { node_id: ids.length === 1 ? ids[0] : ids });
    }

    // Adds the policy at the end of each node's list. nodes: groups and servers.
    async link(policyId, nodes) {
        await this.#link(policyId, "target_add", nodes);
    }

    async unlink(policyId, nodes) {
        await this.#link(policyId, "target_remove", nodes);
    }

    // Returns {uid, name, admin, token: {label, expires}} of the account.
    async session() {
        return this.#get("session");
    }

    // Returns the first accounts whose name contains the text or whose uid begins with it: array of {uid, name}.
    async accounts(text) {
        return expected((await this.#get(`accounts?q=${encodeURIComponent(text)}`)).accounts, Array.isArray);
    }

    // Returns a page of the changes of the node, the newest first: {changes, next}. before: next of the page before;
    // empty for the first one.
    async history(node, before) {
        return this.#get(`history?node=${node.kind}:${requireExact(node.id)}` +
            (before === "" ? "" : `&before=${encodeURIComponent(before)}`));
    }

    async #link(policyId, list, nodes) {
        const targets = nodes.map(({ type, id }) => ({ node_type: type, node_id: requireExact(id) }));
        await this.#call("VELQ.ZEM.GPO", "link", { id: requireExact(policyId), [list]: targets });
    }

    // Fetches what is not a method. Returns the object of the answer.
    async #get(path) {
        const { answer, text } = await this.#send(path, { cache: "no-store" });
        const object = parsed(text);
        if (answer.status !== 200) {
            throw refusalOf(object);
        }
        return object;
    }

    async #call(api, method, parameters) {
        return dataOf(await this.#post(api, method, parameters));
    }

    async #post(api, method, parameters) {
        return (await this.#fetch(api, method, { method: "POST", body: JSON.stringify(parameters) })).text;
    }

    #fetch(api, method, request, received) {
        return this.#send(`webapi/${api}/1/${method}`, request, received);
    }

    async #send(path, { headers = {}, ...request }, received = () => {}) {
        if (!/^[\x21-\x7e]+$/.test(this.token)) { // not allowed in a header
            throw new Refusal("token", "The server does not know this token.");
        }
        const Authorization = `Bearer ${this.token}`;
        const { answer, text } = await read(path, { ...request, headers: { Authorization, ...headers } }, received);
        if (answer.status === 401) {
            throw new Refusal("token", "The server does not know this token, or it has expired.");
        }
        if (answer.status === 503 || answer.status === 502 || answer.status === 504) {
            throw new Refusal("away", BUSY);
        }
        return { answer, text };
    }
}

// Sends a request. Returns the answer and its whole text. Throws Refusal when no server answers or it falls silent.
async function read(url, request, received) {
    const abort = new AbortController();
    const giveUpLater = () => setTimeout(() => abort.abort(), SILENCE_MS);
    let timer = giveUpLater();
    const heard = (bytes) => {
        clearTimeout(timer);
        timer = giveUpLater();
        received(bytes);
    };
    try {
        const answer = await fetch(url, { ...request, signal: abort.signal });
        const copy = answer.clone(); // Chromium may report an answer as cancelled that is read only in parts
        const [text] = await Promise.all([answer.text(), readParts(copy, heard)]);
        return { answer, text };
    } catch {
        throw new Refusal("away", UNREACHABLE);
    } finally {
        clearTimeout(timer);
    }
}

// Reads the answer; calls heard with the bytes so far for each part.
async function readParts(answer, heard) {
    const reader = answer.body?.getReader(); // null when there is no body
    let bytes = 0;
    for (let part = await reader?.read(); part?.done === false; part = await reader.read()) {
        bytes += part.value.length;
        heard(bytes);
    }
}

function dataOf(text) {
    const answer = parsed(text);
    if (answer.success !== true) {
        throw refusalOf(answer);
    }
    return answer.data;
}

// Returns the object of the answer.
function parsed(text) {
    let value = null;
    try {
        value = JSON.parse(text);
    } catch { // refused below
    }
    return expected(value, isObject);
}

// Returns the value. Throws Refusal when it does not have the form that the server's answers have.
function expected(value, hasForm) {
    if (!hasForm(value)) {
        throw new Refusal("away", "What answers here is not the server.");
    }
    return value;
}

function isObject(value) {
    return typeof value === "object" && value !== null && !Array.isArray(value);
}

function isNodes(value) {
    return Array.isArray(value) && value.every((node) => isObject(node) && typeof node.name === "string" &&
        Number.isInteger(node.node_type) && isNodes(node.children ?? []));
}

function refusalOf({ error }) {
    const { code = 0, message = "The server refused without a reason.", reason = "", member = "" } = error ?? {};
    const kind = reason === "stale" || message === STALE ? "stale" : "refused";
    const text = kind === "stale" ? message : explainReason(reason, member) ?? message;
    return new Refusal(kind, text, { code, member, detail: message });
}

// Returns the identifier. Throws Refusal when it has more than 53 bits: a browser rounds it, and the change would hit
// another node.
function requireExact(id) {
    if (!Number.isSafeInteger(id)) {
        throw new Refusal("refused", `The identifier ${id} is too large for a browser.`);
    }
    return id;
}

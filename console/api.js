// The server's methods as calls: the one place that talks to it.
const PATIENCE_MS = 60000;
const NO_PERMISSION = 414;
const GONE = "The server does not answer: it is stopped or out of reach. What is shown may be out of date. " +
    "Start it with “zemhost serve”, then try again.";
const BUSY = "The server is too busy, or its store does not answer. Try again in a moment.";
export const STALE = "changed by someone else since it was read";

// What a call that failed throws, and a change that is in vain. reason: "token": the server does not know the token;
// "away": no server answers, or it is too busy; "refused": it answered no, and the message is its own; "stale":
// likewise, as the change was out of date.
export class Refusal extends Error {
    constructor(reason, message, code = 0) {
        super(message);
        this.reason = reason;
        this.code = code;
    }
}

export class Api {
    token = "";

    // The tree: its text, equal when nothing changed, and a function that gives its array of top-level nodes.
    async tree() {
        const text = await this.#post("VELQ.ZEM.Tree", "get", {});
        return { text, nodes: () => dataOf(text) };
    }

    async createGroup(name, parentId) {
        return (await this.#call("VELQ.ZEM.KXGroup", "create", { id: 0, name, parent_id: exact(parentId) })).ids;
    }

    // changes: members of a group record. The server refuses them when the group is no longer as the node shows it.
    async changeGroup(node, changes) {
        const record = { id: exact(node.id), revision: node.record.revision, ...changes };
        await this.#call("VELQ.ZEM.KXGroup", "set", { multiple_data: [record] });
    }

    async deleteGroup(node) {
        await this.#call("VELQ.ZEM.KXGroup", "delete", { node_id: exact(node.id) });
    }

    async link(policyId, node) {
        await this.#link(policyId, "target_add", node);
    }

    async unlink(policyId, node) {
        await this.#link(policyId, "target_remove", node);
    }

    // Asks for a change of the root group that is out of date, so that it is refused to everyone, but not for lack of
    // rights to an administrator.
    async mayManageAll() {
        try {
            await this.#call("VELQ.ZEM.KXGroup", "set", { multiple_data: [{ id: 0, revision: -1 }] });
        } catch (error) {
            if (error.code === NO_PERMISSION) {
                return false;
            }
            if (error.reason !== "stale") {
                throw error;
            }
        }
        return true;
    }

    async #link(policyId, list, node) {
        const target = { node_type: node.type, node_id: exact(node.id) };
        await this.#call("VELQ.ZEM.GPO", "link", { id: exact(policyId), [list]: [target] });
    }

    async #call(api, method, parameters) {
        return dataOf(await this.#post(api, method, parameters));
    }

    async #post(api, method, parameters) {
        if (!/^[\x21-\x7e]+$/.test(this.token)) { // no header may hold it
            throw new Refusal("token", "The server does not know this token.");
        }
        let answer;
        let text;
        try {
            answer = await fetch(`webapi/${api}/1/${method}`, {
                method: "POST",
                headers: { Authorization: `Bearer ${this.token}` },
                body: JSON.stringify(parameters),
                signal: AbortSignal.timeout(PATIENCE_MS),
            });
            text = await answer.text();
        } catch {
            throw new Refusal("away", GONE);
        }
        if (answer.status === 401) {
            throw new Refusal("token", "The server does not know this token, or it has expired.");
        }
        if (answer.status === 503 || answer.status === 502 || answer.status === 504) {
            throw new Refusal("away", BUSY);
        }
        return text;
    }
}

function dataOf(text) {
    let answer;
    try {
        answer = JSON.parse(text);
    } catch {
        throw new Refusal("away", "What answers here is not the server.");
    }
    if (answer.success !== true) {
        const { code = 0, message = "The server refused without a reason." } = answer.error ?? {};
        throw new Refusal(message === STALE ? "stale" : "refused", message, code);
    }
    return answer.data;
}

// A browser's numbers are exact up to 53 bits: a change must not meet another node than the one shown.
function exact(id) {
    if (!Number.isSafeInteger(id)) {
        throw new Refusal("refused", `The identifier ${id} is too large for a browser.`);
    }
    return id;
}

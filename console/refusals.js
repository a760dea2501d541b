// Explains to the user why the server refused a change.
import { Refusal } from "./api.js";

// Returns the error to show for a change that failed. A refusal gets a new text and becomes final (isFinal, so that a
// dialog closes) when a node is no longer as the user saw it. error: thrown by the change. nodes: as the user saw them.
// fleet: fetched after the change failed.
export function explain(error, nodes, fleet) {
    const isAnswer = error instanceof Refusal && ["refused", "stale"].includes(error.reason);
    if (!isAnswer || error.isFinal || nodes.length === 0) {
        return error;
    }
    const missing = nodes.find((node) => fleet.find(node.key) === null);
    if (missing !== undefined) {
        return gone(missing);
    }
    const changed = nodes.find((node) => fleet.find(node.key).record.revision !== node.record.revision);
    if (error.reason === "stale") {
        const { name } = changed ?? nodes[0];
        return final(`${name} was not changed: ${error.message}. It is now shown as it is; look, and try again.`,
            "stale");
    }
    return changed === undefined ? error : final(error.message); // a part of the change was done
}

// Returns the final refusal for a node that was deleted meanwhile, or that the account may no longer see.
export function gone(node) {
    return final(`${node.name} is no longer there, or you may no longer see it.`);
}

function final(message, reason = "refused") {
    const refusal = new Refusal(reason, message);
    refusal.isFinal = true;
    return refusal;
}

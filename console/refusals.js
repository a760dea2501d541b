// Explains to the user why the server refused a change.
import { Refusal } from "./api.js";

// Returns the error to show for a change that failed. A refusal gets a new text and becomes final (isFinal, so that a
// dialog closes) when the node is no longer as the user saw it. error: thrown by the change. node: as the user saw it;
// null when the change is about no node. fleet: fetched after the change failed.
export function explain(error, node, fleet) {
    const isAnswer = error instanceof Refusal && ["refused", "stale"].includes(error.reason);
    if (!isAnswer || error.isFinal || node === null) {
        return error;
    }
    const current = fleet.find(node.key);
    if (current === null) {
        return gone(node);
    }
    if (error.reason === "stale") {
        return final(`${node.name} was not changed: ${error.message}. It is now shown as it is; look, and try again.`);
    }
    const isUnchanged = current.record.revision === node.record.revision;
    return isUnchanged ? error : final(error.message); // a part of the change was done
}

// Returns the final refusal for a node that was deleted meanwhile.
export function gone(node) {
    return final(`${node.name} is no longer there: it was deleted elsewhere.`);
}

function final(message) {
    const refusal = new Refusal("refused", message);
    refusal.isFinal = true;
    return refusal;
}

// Changes several nodes together: moves, deletes and links, each in one request.
import { Refusal } from "./api.js";
import { ask } from "./dialogs.js";
import { element } from "./dom.js";
import { ifDeleted, ifLinked, ifMoved } from "./effects.js";
import { effectsBox } from "./effects_view.js";
import { linkCounts } from "./details_many.js";
import { picker } from "./fields.js";
import { inWords, kindsOf, nameOf, wereOf } from "./words.js";

export class Many {
    #edits;
    #loader;
    #view;

    constructor(edits, loader, view) {
        this.#edits = edits;
        this.#loader = loader;
        this.#view = view;
    }

    // Every change throws Refusal when it is refused and no dialog shows why. nodes: in the order of the rows.

    async move(nodes) {
        const { fleet } = this.#loader;
        const movable = fleet.topmost(nodes.filter((node) => !node.isPolicy));
        const options = [fleet.root, ...fleet.groups].filter((group) => fleet.canMoveAll(movable, group))
            .map((group) => ({ value: group.key, text: group.path || "Top level" }));
        const parentOf = (data) => (data.get("parent") === null ? null : fleet.find(data.get("parent")) ?? fleet.root);
        await ask({
            title: `Move ${nameOf(movable)}`,
            confirm: "Move",
            contents: [picker("To group", "parent", options)],
            preview: (data) => parentOf(data) &&
                effectsBox(fleet, movable, ifMoved(movable, parentOf(data))).box,
            act: (data) => this.#setParent(movable, parentOf(data)).then(() => true),
        });
    }

    // Moves without asking for the parent; asks whether to do it when more than one server is affected.
    async moveTo(nodes, parent) {
        const { fleet } = this.#loader;
        const movable = fleet.topmost(nodes).filter((node) => node.parent !== parent);
        const effects = effectsBox(fleet, movable, ifMoved(movable, parent));
        if (effects.servers <= 1) {
            await this.#setParent(movable, parent);
            return;
        }
        await ask({
            title: `Move ${nameOf(movable)} to ${parent.name}?`,
            confirm: "Move",
            contents: [effects.box],
            act: () => this.#setParent(movable, parent).then(() => true),
        });
    }

    // Deletes the groups among the nodes.
    async delete(shown) {
        const { fleet, nodes } = await this.#latest(shown); // the dialog counts the nodes below as they are now
        const groups = fleet.topmost(nodes.filter((node) => node.isGroup));
        const [{ parent }] = groups;
        const others = nodes.filter((node) => !node.isGroup);
        const done = await ask({
            title: `Delete ${nameOf(groups)}?`,
            confirm: "Delete",
            isDanger: true,
            contents: [...consequences(fleet, groups, others),
                effectsBox(fleet, groups, ifDeleted(groups, fleet.root)).box],
            act: () => this.#attempt(groups, (node, now) => now.find(node.key) === null, "deleted",
                () => this.#edits.delete(groups, `${nameOf(groups)} ${wereOf(groups)} deleted.`)).then(() => true),
        });
        if (done && parent !== fleet.root) {
            this.#view.reveal(parent.key);
        }
    }

    async addPolicy(nodes) {
        const { fleet } = this.#loader;
        await this.#link("link", "Add a policy to", "Add", nodes, fleet.policies);
    }

    async removePolicy(nodes) {
        await this.#link("unlink", "Remove a policy from", "Remove", nodes, linkCounts(nodes));
    }

    // Removes the link of the node to the policy.
    async unlink(policy, node) {
        const { fleet } = this.#loader;
        await ask({
            title: `Unlink ${policy.name} from ${node.name}?`,
            confirm: "Unlink",
            contents: [effectsBox(fleet, [node], withoutLink([node], policy.id)).box],
            act: () => this.#sendLink("unlink", policy, [node]).then(() => true),
        });
    }

    // Links the policy to a group or server that the user chooses.
    async linkTo(policy) {
        const { fleet } = this.#loader;
        const linked = new Set(fleet.linkedBy(policy.id));
        const options = fleet.nodes.filter((node) => !node.isPolicy && !linked.has(node))
            .map((node) => ({ value: node.key, text: node.path }));
        const target = (data) => [fleet.find(data.get("target"))];
        await ask({
            title: `Link ${policy.name} to …`,
            confirm: "Link",
            contents: [picker("Group or server", "target", options)],
            preview: (data) => data.get("target") !== null &&
                effectsBox(fleet, target(data), withLink(target(data), policy.id)).box,
            act: (data) => this.#sendLink("link", asLink(policy), target(data)).then(() => true),
        });
    }

    async #link(list, verb, confirm, nodes, policies) {
        const { fleet } = this.#loader;
        const targets = nodes.filter((node) => !node.isPolicy);
        const plan = list === "link" ? withLink : withoutLink;
        const options = policies.map(({ id, name }) => ({ value: id, text: name }));
        const policyOf = (data) => policies.find(({ id }) => id === Number(data.get("policy")));
        await ask({
            title: `${verb} ${nameOf(targets)}`,
            confirm,
            contents: [picker("Policy", "policy", options)],
            preview: (data) => data.get("policy") !== null &&
                effectsBox(fleet, targets, plan(targets, Number(data.get("policy")))).box,
            act: (data) => this.#sendLink(list, policyOf(data), targets).then(() => true),
        });
    }

    #sendLink(list, policy, nodes) {
        const isWanted = list === "link";
        const isLinked = (node, now) => now.find(node.key)?.links.some(({ id }) => id === policy.id) === isWanted;
        const text = `${policy.name} was ${list}ed ${isWanted ? "to" : "from"} ${nameOf(nodes)}.`;
        return this.#attempt(nodes, isLinked, `${list}ed`, () => this.#edits.link(list, policy, nodes, text));
    }

    async #setParent(nodes, parent) {
        const changes = nodes.map((node) => ({ node, members: { parent_id: parent.id } }));
        const text = `${nameOf(nodes)} ${wereOf(nodes)} moved to ${parent.name}.`;
        await this.#attempt(nodes, (node, now) => now.find(node.key)?.record.parent_id === parent.id, "moved",
            () => this.#edits.set(changes, text));
        this.#view.reveal(nodes[0].key);
        this.#view.select(nodes);
    }

    // Does the work. When a part of it fails, selects what failed and says what was done. isDone(node, fleet): whether
    // the fleet shows the change of the node. done: what happened to a node, such as "moved".
    async #attempt(nodes, isDone, done, work) {
        try {
            await work();
        } catch (error) {
            const left = nodes.filter((node) => !isDone(node, this.#loader.fleet));
            if (!(error instanceof Refusal) || nodes.length === 1 || !["refused", "stale"].includes(error.reason)) {
                throw error;
            }
            this.#view.select(left);
            throw partlyDone(error, nodes.length - left.length, left, done);
        }
    }

    async #latest(shown) {
        const nodes = await Promise.all(shown.map((node) => this.#loader.latest(node)));
        return { fleet: this.#loader.fleet, nodes };
    }
}

// Returns the refusal that also says what was done. left: the nodes that were not changed; the request ended at the
// first of them.
function partlyDone(error, count, left, done) {
    const rest = left.length > 1 ? ` The other ${left.length - 1} were not tried; they are still selected.` : "";
    const first = left.length > 0 ? `${left[0].name} was not ${done}: ${error.message}` : error.message;
    const message = `${count} of ${count + left.length} were ${done}. ${first}${rest}`;
    const refusal = new Refusal("refused", message, error);
    refusal.isFinal = true;
    return refusal;
}

function withLink(nodes, policyId) {
    return ifLinked(nodes, (node) => [...node.links.map(({ id }) => id).filter((id) => id !== policyId), policyId]);
}

function withoutLink(nodes, policyId) {
    return ifLinked(nodes, (node) => node.links.map(({ id }) => id).filter((id) => id !== policyId));
}

function asLink({ id, name, record }) {
    return { id, name, description: record.desc ?? "" };
}

// Returns paragraphs that say what happens to the nodes below the groups when they are deleted.
function consequences(fleet, groups, others) {
    const counts = groups.map((node) => fleet.counts(node));
    const sum = (kind) => counts.reduce((total, count) => total + count[kind], 0);
    const [group, server, policy] = ["group", "server", "policy"].map(sum);
    const place = fleet.isPartial ? "the top level, where this account does not see them" : "the top level";
    return [
        element("p", {}, `Below: ${inWords({ group, server, policy })}.`),
        group > 0 && element("p", {}, `Deleted too: ${inWords({ group })}.`),
        server + policy > 0 && element("p", {}, `Moved to ${place}: ${inWords({ server, policy })}.`),
        others.length > 0 && element("p", {}, `Only groups can be deleted here: ${inWords(kindsOf(others))} stay.`),
    ].filter(Boolean);
}

// Remembers the changes of this session that can be undone or redone, the latest last.
const MOST = 50;

// The states of a change, with the text before what it did.
const STATES = { done: "", undone: "Undone: ", redone: "Redone: " };

export class Undo {
    #toUndo = [];
    #toRedo = [];
    #notice;

    constructor(notice) {
        this.#notice = notice;
    }

    // Notes a change and says that it was done. state: of STATES. reverse(state, text): takes the change back, notes that
    // with the state and the text, and throws Refusal when it fails; null when the change cannot be taken back.
    note(text, state, reverse) {
        if (state === "done") {
            this.#toRedo = [];
        }
        const steps = state === "undone" ? this.#toRedo : this.#toUndo;
        if (reverse !== null) {
            steps.push({ text, reverse });
            steps.splice(0, steps.length - MOST);
        }
        const offered = { undone: "redo" }[state] ?? "undo";
        this.#notice.done(STATES[state] + text, reverse === null ? null : offered);
    }

    // undo() and redo() reverse the latest change in their list. When they throw Refusal, the change is forgotten.
    async undo() {
        await this.#take(this.#toUndo, "undone", "There is nothing to undo.");
    }

    async redo() {
        await this.#take(this.#toRedo, "redone", "There is nothing to redo.");
    }

    forget() {
        this.#toUndo = [];
        this.#toRedo = [];
    }

    async #take(steps, state, otherwise) {
        const step = steps.pop();
        if (step === undefined) {
            this.#notice.reply(otherwise);
            return;
        }
        await step.reverse(state, step.text);
    }
}

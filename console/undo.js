// Remembers the changes of this session that can be undone, the latest last.
const MOST = 50;

export class Undo {
    #steps = [];
    #notice;

    constructor(notice) {
        this.#notice = notice;
    }

    // Notes a change and says that it was done. undo: undoes it and throws Refusal; null when it cannot be undone.
    note(text, undo) {
        this.#steps = undo === null ? this.#steps : [...this.#steps, { text, undo }].slice(-MOST);
        this.#notice.done(text, undo !== null);
    }

    // Undoes the latest change that can be undone. Throws Refusal; the change is then forgotten.
    async run() {
        const step = this.#steps.pop();
        if (step === undefined) {
            this.#notice.say("There is nothing to undo.");
            return;
        }
        await step.undo();
    }

    forget() {
        this.#steps = [];
    }
}

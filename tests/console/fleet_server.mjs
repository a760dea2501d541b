// Starts a server with a store in a temporary folder and sends it requests for the journeys.
import { spawn, execFileSync } from "node:child_process";
import { createInterface } from "node:readline";
import { mkdtempSync, openSync, closeSync, readFileSync, rmSync } from "node:fs";
import { once } from "node:events";
import { tmpdir } from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";

const ROOT = fileURLToPath(new URL("../..", import.meta.url));
const TIMEOUT_MS = 20000;
const NAMES = new Intl.Collator(undefined, { numeric: true });
const inOrder = (a, b) => a.node_type - b.node_type || NAMES.compare(a.name, b.name);

export class FleetServer {
    // build: the folder that contains zemhost.
    constructor(build) {
        this.program = path.join(build, "zemhost");
        this.folder = mkdtempSync(path.join(tmpdir(), "zem-"));
        this.store = ["--store", `sqlite:${this.folder}/zem.db`];
        this.tokens = {};
        this.address = "127.0.0.1:0";
        this.options = []; // further ones of the server
    }

    run(...command) {
        return execFileSync(this.program, [...command, ...this.store], { encoding: "utf8", timeout: TIMEOUT_MS });
    }

    fill(file = path.join(ROOT, "fleets/sample.json")) {
        this.run("apply", file);
    }

    // Returns a token of the account, the same one on each call.
    token(account) {
        return this.tokens[account] ??= this.run("token", account).trim();
    }

    // Returns the address that opens the page and signs the account in.
    link(account) {
        return `${this.url}/#token=${this.token(account)}`;
    }

    async start() {
        const log = openSync(path.join(this.folder, "log"), "a");
        this.process = spawn("setpriv", ["--pdeathsig", "KILL", this.program, "serve", "--listen", this.address,
            ...this.store, ...this.options], { stdio: ["ignore", "pipe", log] });
        closeSync(log);
        const lines = createInterface({ input: this.process.stdout });
        const [line] = await once(lines, "line", { signal: AbortSignal.timeout(TIMEOUT_MS) });
        this.url = line.replace("listening on ", "");
        this.address = this.url.replace("http://", ""); // a second start listens on the same port
    }

    async stop() {
        const ended = once(this.process, "exit", { signal: AbortSignal.timeout(TIMEOUT_MS) });
        this.process.kill("SIGTERM");
        const [status] = await ended;
        if (status !== 0) {
            throw new Error(`the server ended with status ${status}: ${this.log()}`);
        }
    }

    log() {
        return readFileSync(path.join(this.folder, "log"), "utf8");
    }

    // Calls a method as the account. Returns the data of the answer; undefined when it is refused.
    async call(account, api, method, parameters) {
        const answer = await fetch(`${this.url}/webapi/VELQ.ZEM.${api}/1/${method}`, {
            method: "POST",
            headers: { Authorization: `Bearer ${this.token(account)}` },
            body: JSON.stringify(parameters),
        });
        return (await answer.json()).data;
    }

    // Returns the nodes that the account sees, with their levels, in the order of the rows.
    async nodes(account) {
        const flat = (nodes, level) =>
            nodes.toSorted(inOrder).flatMap((node) => [{ ...node, level }, ...flat(node.children ?? [], level + 1)]);
        return flat(await this.call(account, "Tree", "get", {}), 1);
    }

    // Returns the group with this name, its parent being a name; undefined without such a group.
    async group(name) {
        const groups = (await this.nodes("admin")).filter((node) => node.node_type === 2);
        const group = groups.find((node) => node.name === name);
        return group && { ...group, parent: groups.find(({ node_id }) => node_id === group.parent_id)?.name };
    }

    async remove() {
        if (this.process !== undefined && this.process.exitCode === null) {
            this.process.kill("SIGKILL");
            await once(this.process, "exit");
        }
        rmSync(this.folder, { recursive: true });
    }
}

// A server of its own for a journey: the sample fleet in a temporary folder, and what a test asks it directly.
import { spawn, execFileSync } from "node:child_process";
import { createInterface } from "node:readline";
import { mkdtempSync, openSync, closeSync, readFileSync, rmSync } from "node:fs";
import { once } from "node:events";
import { tmpdir } from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";

const ROOT = fileURLToPath(new URL("../..", import.meta.url));
const PATIENCE_MS = 20000;

export class FleetServer {
    // build: the folder of the program.
    constructor(build) {
        this.program = path.join(build, "zemhost");
        this.folder = mkdtempSync(path.join(tmpdir(), "zem-"));
        this.store = ["--store", `sqlite:${this.folder}/zem.db`];
        this.tokens = {};
        this.address = "127.0.0.1:0";
    }

    run(...command) {
        return execFileSync(this.program, [...command, ...this.store], { encoding: "utf8", timeout: PATIENCE_MS });
    }

    fill(file = path.join(ROOT, "fleets/sample.json")) {
        this.run("apply", file);
    }

    // A token of the account, the same each time.
    token(account) {
        return this.tokens[account] ??= this.run("token", account).trim();
    }

    // The address of the page that signs the account in.
    link(account) {
        return `${this.url}/#token=${this.token(account)}`;
    }

    async start() {
        const log = openSync(path.join(this.folder, "log"), "a");
        this.process = spawn("setpriv", ["--pdeathsig", "KILL", this.program, "serve", "--listen", this.address,
            ...this.store], { stdio: ["ignore", "pipe", log] });
        closeSync(log);
        const lines = createInterface({ input: this.process.stdout });
        const [line] = await once(lines, "line", { signal: AbortSignal.timeout(PATIENCE_MS) });
        this.url = line.replace("listening on ", "");
        this.address = this.url.replace("http://", ""); // the same when it starts again
    }

    async stop() {
        const ended = once(this.process, "exit", { signal: AbortSignal.timeout(PATIENCE_MS) });
        this.process.kill("SIGTERM");
        const [status] = await ended;
        if (status !== 0) {
            throw new Error(`the server ended with status ${status}: ${this.log()}`);
        }
    }

    log() {
        return readFileSync(path.join(this.folder, "log"), "utf8");
    }

    // What a method of the module answers the account.
    async call(account, api, method, parameters) {
        const answer = await fetch(`${this.url}/webapi/VELQ.ZEM.${api}/1/${method}`, {
            method: "POST",
            headers: { Authorization: `Bearer ${this.token(account)}` },
            body: JSON.stringify(parameters),
        });
        return (await answer.json()).data;
    }

    // The nodes that the account sees, each with its level, those below it right after it.
    async nodes(account) {
        const flat = (nodes, level) =>
            nodes.flatMap((node) => [{ ...node, level }, ...flat(node.children ?? [], level + 1)]);
        return flat(await this.call(account, "Tree", "get", {}), 1);
    }

    // The group of that name, with the name of the one that it is in.
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

// A browser for the journeys, and its page as a user finds things on it: by role and name.
import { createRequire } from "node:module";
import { fileURLToPath } from "node:url";
import assert from "node:assert/strict";

const require = createRequire(fileURLToPath(new URL("../../build/npm/", import.meta.url)));
const { chromium } = require("playwright-core");
const axe = require("axe-core");

const PATIENCE_MS = 20000;

// Debian's browser, which asks for nothing by itself.
export function launch() {
    const quiet = ["--disable-background-networking", "--disable-component-update", "--disable-quic", "--disable-sync"];
    const asRoot = process.getuid() === 0 ? ["--no-sandbox"] : [];
    return chromium.launch({ executablePath: "/usr/bin/chromium", args: [...quiet, ...asRoot] });
}

// A window, and all that went wrong in it.
export class Window {
    #server;
    #faults = [];

    static async open(context, server, account) {
        const window = new Window(await context.newPage(), server);
        await window.page.goto(account === null ? `${server.url}/` : server.link(account));
        return window;
    }

    constructor(page, server) {
        this.#server = server;
        this.page = page;
        page.setDefaultTimeout(PATIENCE_MS);
        page.on("console", (message) => message.type() === "error" && this.#faults.push(message.text()));
        page.on("pageerror", (error) => this.#faults.push(error.stack));
        page.on("dialog", (dialog) => this.#faults.push(`an alert: ${dialog.message()}`) && dialog.dismiss());
        page.on("request", (request) => this.#check(request.url()));
        this.tree = page.getByRole("treegrid", { name: "Fleet" });
        this.details = page.getByRole("region", { name: "Details" });
        this.filter = page.getByRole("searchbox", { name: "Filter", exact: true });
        this.dialog = page.getByRole("dialog");
        this.alert = page.getByRole("alert");
    }

    #check(url) {
        if (!url.startsWith(`${this.#server.url}/`) || url.includes("token")) {
            this.#faults.push(`asked for ${url}`);
        }
    }

    // Nothing went wrong but what is expected: a list of patterns, one for each message in order.
    assertNoFaults(expected = []) {
        assert.equal(this.#faults.length, expected.length, this.#faults.join("\n"));
        expected.forEach((pattern, i) => assert.match(this.#faults[i], pattern));
    }

    button(name, place = this.page) {
        return place.getByRole("button", { name, exact: true });
    }

    // The row of the node of that name.
    row(name) {
        const title = this.page.getByRole("gridcell").first().getByText(name, { exact: true });
        return this.tree.getByRole("row").filter({ has: title });
    }

    name(name) {
        return this.row(name).first().getByText(name, { exact: true });
    }

    async drag(name, target) {
        await this.name(name).dragTo(this.name(target));
    }

    async choose(name) {
        await this.name(name).click();
        await this.details.getByRole("heading", { name }).waitFor();
    }

    // What the rows say, as those hear them who do not see them: level and name.
    rows() {
        const withCells = this.tree.getByRole("row").filter({ has: this.page.getByRole("gridcell") });
        return withCells.evaluateAll((rows) => rows.map((row) =>
            `${row.getAttribute("aria-level")} ${row.querySelector("[role=gridcell]").innerText.trim()}`));
    }

    // Waits until what work gives is as expected, and fails with the difference when it does not become so.
    async becomes(work, expected) {
        const end = Date.now() + PATIENCE_MS;
        for (;;) {
            const value = await work();
            try {
                return assert.deepEqual(value, expected);
            } catch (error) {
                if (Date.now() > end) {
                    throw error;
                }
            }
            await this.page.waitForTimeout(20);
        }
    }

    // What axe finds on the page as it is, each with its elements.
    async violations() {
        await this.page.evaluate(axe.source);
        const { violations } = await this.page.evaluate(() => axe.run());
        return violations.map(({ id, nodes }) => [id, nodes.map(({ html, failureSummary }) => html + failureSummary)]);
    }
}

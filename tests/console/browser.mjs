// Starts the browser for the journeys and finds elements of the page by role and name, as users do.
import { createRequire } from "node:module";
import { fileURLToPath } from "node:url";
import assert from "node:assert/strict";

const require = createRequire(fileURLToPath(new URL("../../build/npm/", import.meta.url)));
const { chromium } = require("playwright-core");
const axe = require("axe-core");

const TIMEOUT_MS = 20000;

// Starts Debian's Chromium without its own background requests.
export function launch() {
    const quiet = ["--disable-background-networking", "--disable-component-update", "--disable-quic", "--disable-sync"];
    const asRoot = process.getuid() === 0 ? ["--no-sandbox"] : [];
    return chromium.launch({ executablePath: "/usr/bin/chromium", args: [...quiet, ...asRoot] });
}

// A browser window with the page; collects errors, alerts and requests that the page must not send.
export class Window {
    #server;
    #faults = [];

    // account: whose link is opened; null opens the page without a token.
    static async open(context, server, account) {
        const window = new Window(await context.newPage(), server);
        await window.page.goto(account === null ? `${server.url}/` : server.link(account));
        return window;
    }

    constructor(page, server) {
        this.#server = server;
        this.page = page;
        page.setDefaultTimeout(TIMEOUT_MS);
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

    // Checks that only the expected faults occurred: one pattern for each message, in order.
    assertNoFaults(expected = []) {
        assert.equal(this.#faults.length, expected.length, this.#faults.join("\n"));
        expected.forEach((pattern, i) => assert.match(this.#faults[i], pattern));
    }

    // Holds back the requests whose address ends with the text. Returns a function that lets them go to the server.
    async hold(text) {
        let release;
        const released = new Promise((resolve) => { release = resolve; });
        await this.page.route(`**/${text}`, (route) => released.then(() => route.continue()));
        return release;
    }

    button(name, place = this.page) {
        return place.getByRole("button", { name, exact: true });
    }

    // Returns the row of the node with this name.
    row(name) {
        const title = this.page.getByRole("gridcell").first().getByText(name, { exact: true });
        return this.tree.getByRole("row").filter({ has: title });
    }

    name(name) {
        return this.row(name).first().getByText(name, { exact: true });
    }

    // Presses a button that opens a dialog, fills in the field of the dialog and presses a button of the dialog.
    async submit(opener, field, text, button = opener) {
        await this.button(opener).click();
        await this.dialog.getByLabel(field).fill(text);
        await this.button(button, this.dialog).click();
    }

    async drag(name, target) {
        await this.name(name).dragTo(this.name(target));
    }

    async choose(name) {
        await this.name(name).click();
        await this.details.getByRole("heading", { name }).waitFor();
    }

    // Returns level and name of each row, as a screen reader announces them.
    rows() {
        const withCells = this.tree.getByRole("row").filter({ has: this.page.getByRole("gridcell") });
        return withCells.evaluateAll((rows) => rows.map((row) =>
            `${row.getAttribute("aria-level")} ${row.querySelector("[role=gridcell]").innerText.trim()}`));
    }

    // Waits until work returns the expected value; throws with the difference after the timeout.
    async becomes(work, expected) {
        const end = Date.now() + TIMEOUT_MS;
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

    // Returns the accessibility violations that axe finds on the page, each with its elements.
    async violations() {
        await this.page.evaluate(axe.source);
        const rules = { "target-size": { enabled: true } }; // the one rule of WCAG 2.2 AA; it is off by default
        const { violations } = await this.page.evaluate((on) => axe.run({ rules: on }), rules);
        return violations.map(({ id, nodes }) => [id, nodes.map(({ html, failureSummary }) => html + failureSummary)]);
    }
}

// Tests the page in a browser, as users work with it, against a server with the sample fleet.
//
// usage: node tests/console/journeys.mjs BUILD_DIR
import { after, afterEach, before, beforeEach, test } from "node:test";
import assert from "node:assert/strict";
import { writeFileSync } from "node:fs";
import path from "node:path";
import { launch, Window } from "./browser.mjs";
import { FleetServer } from "./fleet_server.mjs";

const BUILD = path.resolve(process.argv[2]);
const HOSTILE = "<img src=x onerror=alert(1)>";
const WIDE = { viewport: { width: 1400, height: 1600 } };
const OPTIONS = { timeout: 60000 };

let browser;
let server;
let contexts;

before(async () => {
    browser = await launch();
});

after(() => browser.close());

beforeEach(async () => {
    contexts = [];
    server = new FleetServer(BUILD);
    server.fill();
    await server.start();
});

afterEach(async () => {
    await Promise.all(contexts.map((context) => context.close()));
    await server.remove();
});

// Opens a window with a session of its own. account: signed in by a link; null: none. options: of the browser context.
async function open(account, options = {}) {
    const context = await browser.newContext({ ...WIDE, ...options });
    contexts.push(context);
    return Window.open(context, server, account);
}

// Returns the texts that the rows of the nodes must have.
function rowTexts(nodes) {
    return nodes.map(({ level, name }) => `${level} ${name}`);
}

test("a link signs in and shows the tree that the server returns", OPTIONS, async () => {
    const admin = await open("admin");
    await admin.becomes(() => admin.rows(), rowTexts(await server.nodes("admin")));
    assert.equal(admin.page.url(), `${server.url}/`);
    const delegate = await open("m.okafor");
    await delegate.becomes(() => delegate.rows(), rowTexts(await server.nodes("m.okafor")));

    await admin.choose("Web");
    await admin.choose("Plants");
    await admin.page.keyboard.press("ArrowLeft");
    const closed = (await admin.rows()).length;
    assert.ok(closed < (await server.nodes("admin")).length);
    await admin.page.reload();
    await admin.details.getByRole("heading", { name: "Plants" }).waitFor();
    await admin.becomes(async () => (await admin.rows()).length, closed);

    await admin.button("Account admin").click();
    await admin.button("Sign out").click();
    await admin.page.evaluate(() => { location.hash = "elsewhere"; });
    await admin.page.getByLabel("Token").fill("0".repeat(64));
    await admin.button("Sign in").click();
    await admin.alert.getByText("does not know this token").waitFor();
    await admin.page.getByLabel("Token").fill(server.token("m.okafor"));
    await admin.page.keyboard.press("Enter");
    await admin.becomes(() => admin.rows(), rowTexts(await server.nodes("m.okafor")));
    admin.assertNoFaults([/401/, /401/]);
    delegate.assertNoFaults();
    assert.ok(!server.log().includes(server.token("admin")));
});

test("a link signs in only after a question when another account or another site is involved", OPTIONS, async () => {
    const [context, clean] = await Promise.all([WIDE, WIDE].map((options) => browser.newContext(options)));
    contexts.push(context, clean);
    const opened = await Window.open(context, server, "admin");
    await opened.row("Headquarters").waitFor();
    const other = await Window.open(context, server, "m.okafor");
    await other.dialog.getByRole("heading", { name: "Sign in as m.okafor?" }).waitFor();
    await other.button("Cancel").click();
    await other.page.getByLabel("Token").waitFor();
    await opened.page.evaluate((link) => { location.href = link; }, server.link("m.okafor"));
    await opened.button("Sign in", opened.dialog).click();
    await opened.button("Account m.okafor").waitFor();

    const clicked = new Window(await clean.newPage(), server);
    await clicked.page.setContent(`<a href="${server.link("admin")}" rel="noreferrer">Fleet</a>`);
    await clicked.page.getByRole("link").click();
    await clicked.button("Sign in", clicked.dialog).click();
    await clicked.row("Headquarters").waitFor();
    for (const window of [opened, other, clicked]) {
        window.assertNoFaults();
    }
});

test("an answer that is not the server's becomes a notice", OPTIONS, async () => {
    for (const body of ["", "null", "5", "[]", "{}", '{"error":5}', '{"success":true}', '{"success":true,"data":{}}',
        '{"success":true,"data":[null]}', '{"success":true,"data":[{"name":5,"node_type":2}]}',
        '{"success":true,"data":[{"name":"a","node_type":2,"children":5}]}']) {
        const context = await browser.newContext();
        contexts.push(context);
        const window = new Window(await context.newPage(), server);
        await window.page.route("**/webapi/VELQ.ZEM.Tree/1/get", (route) => route.fulfill({ body }));
        await window.page.goto(server.link("admin"));
        await window.page.locator("#notice").getByText(/./).first().waitFor();
        assert.equal(await window.page.locator("#status").innerText(), "");
        window.assertNoFaults();
    }
});

test("a filter leaves the hits and the groups above them", OPTIONS, async () => {
    const window = await open("admin");
    const nodes = await server.nodes("admin");
    const hits = nodes.filter(({ name, address = "" }) => `${name}\n${address}`.includes("10.20.2"));
    await window.choose("Plant South");
    await window.page.keyboard.press("ArrowLeft");
    await window.filter.fill("10.20.2");
    await window.page.getByRole("status").getByText(`${hits.length} hits`, { exact: true }).waitFor();
    const above = ["Plants", "Plant North", "North line control", "Plant South", "South laboratory"];
    const left = nodes.filter((node) => hits.includes(node) || above.includes(node.name));
    await window.becomes(() => window.rows(), rowTexts(left));
    await window.filter.press("Enter");
    await window.page.keyboard.press("Control+a");
    await window.details.getByRole("heading", { name: `${hits.length} selected` }).waitFor();
    await window.filter.fill("no such:thing");
    await window.page.getByText("There is no filter word “such”").waitFor();
    await window.becomes(() => window.rows(), []);
    await window.filter.press("Escape");
    await window.row("South laboratory").waitFor({ state: "hidden" }); // closed again, as before the filter
    await window.becomes(async () => (await window.rows()).length, nodes.length - 6);
    window.assertNoFaults();
});

test("groups are created, renamed, described, dragged and deleted", OPTIONS, async () => {
    const window = await open("admin");
    await window.choose("Web");
    await window.submit("New group", "Name", "Lab", "Create");
    await window.details.getByRole("heading", { name: "Lab" }).waitFor();
    assert.equal((await server.group("Lab")).parent, "Web");

    await window.submit("Rename", "Name", "Laboratory");
    await window.row("Laboratory").waitFor();
    await window.submit("Describe", "Description", "opens in spring", "Save");
    await window.details.getByText("opens in spring").waitFor();

    await window.drag("Laboratory", "Plant North");
    await window.becomes(async () => (await server.group("Laboratory")).parent, "Plant North");
    await window.becomes(() => window.rows(), rowTexts(await server.nodes("admin")));
    await window.button("Move").click();
    await window.dialog.getByRole("searchbox").fill("south lab");
    await window.button("Move", window.dialog).click();
    await window.becomes(async () => (await server.group("Laboratory")).parent, "South laboratory");

    await window.choose("Plant South");
    await window.button("Delete").click();
    await window.dialog.getByText("2 groups").first().waitFor();
    await window.dialog.getByText("5 servers").first().waitFor();
    await window.button("Delete", window.dialog).click();
    await window.row("Laboratory").waitFor({ state: "detached" });
    assert.equal(await server.group("Plant South"), undefined);
    await window.becomes(() => window.rows(), rowTexts(await server.nodes("admin")));
    window.assertNoFaults();
});

test("policies are ordered, inherited and blocked, delegates set", OPTIONS, async () => {
    const window = await open("admin");
    for (const [name, expected, effect] of [["Web", [4, 5, 3], "6 servers gain Firewall: internal"],
        ["hq-web2.brackwater.example", [5, 8], "No server loses or gains a policy"]]) {
        await window.choose(name);
        await window.button("Change policies", window.details).click();
        await window.dialog.getByRole("searchbox").fill("internal");
        await window.button("Add", window.dialog).click();
        await window.button("Move Firewall: internal up", window.dialog).click();
        await window.dialog.getByText(effect).waitFor();
        await window.button("Save", window.dialog).click();
        await window.dialog.waitFor({ state: "detached" });
        const node = (await server.nodes("admin")).find((other) => other.name === name);
        assert.deepEqual(node.linked_gpo.order.map(({ gpo_id }) => gpo_id), expected);
    }
    const effective = async () => {
        const items = await window.details.getByRole("list").first().getByRole("listitem").allInnerTexts();
        return items.map((text) => text.split("\n").slice(0, 2).join(" ").replace(/\s+/g, " ").trim());
    };
    const own = ["Firewall: internal own and from Web", "Early updates own",
        "Firewall: public services from Web", "Nightly backup from Web"];
    const above = ["Base security from Headquarters", "Time and names from Headquarters"];
    await window.becomes(effective, [...own, ...above]);
    await window.choose("Web");
    await window.details.getByRole("checkbox", { name: "Block inheritance" }).click();
    await window.dialog.getByText("6 servers lose Base security, Time and names").waitFor();
    await window.button("Block", window.dialog).click();
    await window.becomes(async () => Boolean((await server.group("Web")).block_inheritance), true);
    await window.choose("hq-web2.brackwater.example");
    await window.becomes(effective, own);

    await window.choose("Plants");
    await window.button("Change delegates", window.details).click();
    await window.button("Remove j.lindgren", window.dialog).click();
    const search = window.dialog.getByRole("searchbox");
    await search.fill("d"); // several accounts
    await window.dialog.getByRole("option", { name: "m.okafor" }).waitFor({ state: "detached" });
    await window.button("Save", window.dialog).click();
    await window.becomes(() => search.evaluate((field) => field === document.activeElement), true);
    assert.match(await search.evaluate((field) => field.validationMessage), /^Choose an entry/);
    await search.fill("okafor");
    await window.dialog.getByText("Save also adds “m.okafor”").waitFor();
    await search.press("Enter");
    await window.dialog.getByText("Save also adds").waitFor({ state: "detached" });
    await window.button("Save", window.dialog).click();
    await window.becomes(async () => (await server.group("Plants")).delegate.map(({ name }) => name), ["m.okafor"]);
    await window.choose("Plant North");
    const delegates = window.details.getByRole("listitem").filter({ hasText: "okafor" });
    await window.becomes(async () => (await delegates.allInnerTexts()).map((text) => text.replace(/\s+/g, " ").trim()),
        ["m.okafor from Plants"]);

    const linkedAt = async () => (await server.nodes("admin"))
        .filter(({ linked_gpo: links }) => links?.order?.some(({ gpo_id }) => gpo_id === 6)).map(({ name }) => name);
    await window.choose("Database tuning");
    await window.button("Unlink from Headquarters / Databases", window.details).click();
    await window.dialog.getByText("2 servers lose Database tuning").waitFor();
    await window.button("Unlink", window.dialog).click();
    await window.becomes(linkedAt, ["hq-db3.brackwater.example"]);
    await window.button("Link to …", window.details).click();
    await window.dialog.getByRole("searchbox").fill("web staging");
    await window.dialog.getByRole("searchbox").press("ArrowDown"); // its servers match too
    await window.dialog.getByText("2 servers gain Database tuning").waitFor();
    await window.button("Link", window.dialog).click();
    await window.becomes(linkedAt, ["hq-db3.brackwater.example", "Web staging"]);
    window.assertNoFaults();
});

test("a refused change shows the reason and leaves the tree as it is", OPTIONS, async () => {
    const window = await open("admin");
    await server.call("admin", "KXGroup", "create", { id: 0, name: "Web", parent_id: 6 });
    const nodes = await server.nodes("admin");
    const release = await window.hold("set");
    await window.drag("Web", "Plants");
    await window.dialog.getByText("6 servers gain Firewall: internal").waitFor();
    await window.button("Move", window.dialog).click();
    await window.becomes(async () => (await window.rows()).join().includes("2 Plant South,3 South laboratory,"), true);
    release();
    await window.alert.getByText("is already there").waitFor();
    await window.becomes(() => window.rows(), rowTexts(nodes));
    await window.button("Cancel", window.dialog).click();

    await window.choose("Retired");
    await window.submit("Rename", "Name", "Plants");
    await window.dialog.getByRole("alert").getByText("is already there").waitFor();
    await window.page.keyboard.press("Escape");
    await window.dialog.waitFor({ state: "detached" });
    await window.choose("Retired");
    await window.page.keyboard.press("F2");
    await window.page.keyboard.type("Plants");
    await window.page.keyboard.press("Enter");
    await window.dialog.getByRole("alert").getByText("is already there").waitFor();
    const field = window.dialog.getByLabel("Name");
    assert.deepEqual([await field.inputValue(), await field.getAttribute("aria-invalid")], ["Plants", "true"]);
    await window.page.keyboard.press("Escape");

    await server.stop();
    await window.button("Delete").click();
    await window.alert.getByText("does not answer").waitFor();
    assert.equal(await window.dialog.count(), 0); // the page asks only after it fetched the current tree
    await window.submit("New group", "Name", "Lab", "Create");
    await window.dialog.getByRole("alert").getByText("does not answer").waitFor();
    assert.ok(await window.button("Create", window.dialog).evaluate((button) => button === document.activeElement));
    await server.start();
    await window.button("Create", window.dialog).click();
    await window.row("Lab").waitFor();
    await window.becomes(() => window.rows(), rowTexts(await server.nodes("admin")));
    window.assertNoFaults(Array(3).fill(/ERR_CONNECTION_REFUSED/));
});

test("an account without rights and an empty fleet show what to do", OPTIONS, async () => {
    const guest = await open("p.duarte");
    await guest.page.getByRole("status").getByText("Ask an administrator").waitFor();
    assert.ok(await guest.button("New group").isDisabled());
    guest.assertNoFaults();

    await server.remove();
    server = new FleetServer(BUILD);
    const fleet = path.join(server.folder, "fleet.json");
    const accounts = [{ uid: 1000, name: "admin", admin: true }];
    writeFileSync(fleet, JSON.stringify({ accounts, groups: [], policies: [], servers: [] }));
    server.fill(fleet);
    await server.start();
    const admin = await open("admin");
    await admin.page.getByRole("status").getByText("Create the first one").waitFor();
    await admin.button("New group").click();
    await admin.dialog.getByLabel("Name").fill("First");
    await admin.page.keyboard.press("Enter");
    await admin.becomes(() => admin.rows(), ["1 First"]);
    admin.assertNoFaults();
});

test("everything works by keyboard", OPTIONS, async () => {
    const window = await open(null);
    const keys = async (...pressed) => {
        for (const key of pressed) {
            await window.page.keyboard.press(key);
        }
    };
    const active = () => window.page.evaluate(() => {
        const id = document.activeElement.getAttribute("aria-activedescendant");
        return document.getElementById(id)?.querySelector("[role=gridcell]").innerText.trim();
    });
    await window.page.keyboard.type(server.token("admin"));
    await keys("Enter");
    await window.row("Headquarters").waitFor();
    await window.filter.focus();
    await window.page.keyboard.type("plant n");
    await window.row("Web").waitFor({ state: "detached" });
    await keys("Enter");
    await window.becomes(active, "Plant North");
    await keys("Escape", "ArrowLeft");
    assert.equal(await window.row("Plant North").getAttribute("aria-expanded"), "false");
    await keys("ArrowRight", "ArrowDown");
    await window.becomes(active, "North line control");
    assert.equal(await window.row("North line control").getAttribute("aria-selected"), "true");

    await keys("F2", "End");
    await window.page.keyboard.type(" room");
    await keys("Enter");
    await window.row("North line control room").waitFor();
    await window.becomes(active, "North line control room");
    await keys("Control+x", "End");
    await window.becomes(active, "Time and names");
    await keys("Home");
    await window.becomes(active, "Headquarters");
    await keys("Control+v");
    await window.dialog.getByText("4 servers lose").waitFor();
    await keys("Enter");
    await window.becomes(async () => (await server.group("North line control room")).parent, "Headquarters");
    await window.becomes(active, "North line control room");
    await keys("Delete");
    await window.dialog.getByText("4 servers lose").waitFor();
    await window.button("Delete", window.dialog).press("Enter");
    await window.becomes(() => server.group("North line control room"), undefined);
    await window.becomes(() => window.tree.evaluate((tree) => tree === document.activeElement), true);
    window.assertNoFaults();
});

test("two windows do not undo one another's changes", OPTIONS, async () => {
    const [first, second] = [await open("admin"), await open("admin")];
    await second.choose("Plant North");
    await second.page.keyboard.press("ArrowLeft");
    await second.choose("Web");
    await second.button("Rename").click();
    await first.choose("Web");
    await first.submit("Rename", "Name", "Web and mail");
    await first.dialog.waitFor({ state: "detached" }); // the row shows the name before the server accepts it

    await second.dialog.getByLabel("Name").fill("Public");
    await second.button("Rename", second.dialog).click();
    await second.alert.getByText("Web was not changed").waitFor();
    await second.row("Web and mail").waitFor();
    assert.equal((await server.group("Web and mail")).revision, 2);
    await second.page.keyboard.press("Escape");

    await server.call("admin", "KXGroup", "delete", { node_id: 12 });
    const answers = [];
    second.page.on("response", (answer) => answers.push(answer.status()));
    await second.page.evaluate(() => { // as when the window comes to the front
        document.dispatchEvent(new Event("visibilitychange"));
        dispatchEvent(new Event("focus"));
    });
    await second.row("Retired").waitFor({ state: "detached" });
    assert.equal(await second.row("Plant North").getAttribute("aria-expanded"), "false");
    await second.details.getByRole("heading", { name: "Web and mail" }).waitFor();
    await second.page.evaluate(() => {
        const observer = new MutationObserver(() => { globalThis.isRedrawn = true; });
        observer.observe(document.querySelector("#console main"), { subtree: true, childList: true, attributes: true });
        dispatchEvent(new Event("focus"));
    });
    await second.becomes(() => answers, [200, 304]);
    await second.page.waitForTimeout(200);
    assert.equal(await second.page.evaluate(() => globalThis.isRedrawn), undefined);

    const delegate = await open("m.okafor");
    await delegate.choose("Web and mail");
    await delegate.button("Describe").click();
    const { node_id: id } = await server.group("Web and mail");
    await server.call("admin", "KXGroup", "set", { multiple_data: [{ id, delegate: [] }] });
    await delegate.dialog.getByLabel("Description").fill("mine");
    await delegate.button("Save", delegate.dialog).click();
    await delegate.alert.getByText("Web and mail is no longer there, or you may no longer see it").waitFor();
    delegate.assertNoFaults();
    first.assertNoFaults();
    second.assertNoFaults();
});

test("a change shows at once, and the next one of the node still notices those of others", OPTIONS, async () => {
    const window = await open("admin");
    const rename = async (name) => {
        await window.button("Rename", window.page.getByRole("group", { name: "Groups" })).click();
        await window.dialog.getByLabel("Name").fill(name);
        await window.page.keyboard.press("Enter");
        await window.row(name).waitFor();
    };
    await window.choose("Web");
    for (const [own, others, ended] of [["first", {}, () => window.dialog.waitFor({ state: "detached" })],
        ["second", { desc: "theirs" }, () => window.alert.getByText("second was not changed").waitFor()]]) {
        const release = await window.hold("get");
        await rename(own);
        await rename(`${own} again`);
        const { node_id: id } = await server.group(own); // the second change waits for the tree that is held back
        await server.call("admin", "KXGroup", "set", { multiple_data: [{ id, ...others }] });
        release();
        await ended();
    }
    await window.row("second").waitFor();
    assert.equal((await server.group("second")).desc, "theirs");
    window.assertNoFaults();
});

test("a name is text wherever it stands", OPTIONS, async () => {
    const record = { name: HOSTILE, desc: HOSTILE, parent_id: 0, linked_gpo: { order: [{ id: 1 }] } };
    await server.call("admin", "KXGroup", "create", { multiple_data: [record] });
    const { node_id: id } = await server.group(HOSTILE);
    await server.call("admin", "KXGroup", "create", { id: 0, name: `${HOSTILE} below`, parent_id: id });
    const window = await open("admin");
    await window.choose(HOSTILE);
    await window.details.getByText(HOSTILE).nth(1).waitFor(); // the description
    for (const name of ["Rename", "Move", "Delete", "New group"]) {
        await window.button(name).click();
        await window.dialog.waitFor();
        await window.page.keyboard.press("Escape");
    }
    for (const name of ["Describe", "Change policies", "Change delegates"]) {
        await window.button(name, window.details).click();
        await window.dialog.getByText(HOSTILE).first().waitFor();
        await window.page.keyboard.press("Escape");
    }
    await window.choose(`${HOSTILE} below`);
    await window.button(HOSTILE, window.details).first().waitFor(); // links to the group above
    await window.filter.fill("<IMG SRC");
    await window.page.getByRole("status").getByText("2 hits").waitFor();
    await window.filter.fill("");
    await window.drag(HOSTILE, "Retired");
    await window.becomes(async () => (await server.group(HOSTILE)).parent, "Retired");
    assert.equal(await window.page.locator("img:not([src='icon.svg'])").count(), 0);
    window.assertNoFaults();
});

test("roles and names are true, in light and dark", OPTIONS, async () => {
    const colors = new Set();
    for (const colorScheme of ["light", "dark"]) {
        const window = await open(null, { colorScheme, viewport: { width: 1200, height: 600 } });
        assert.deepEqual(await window.violations(), []);
        await window.page.goto(server.link("admin")); // asks, as the page is open already
        await window.dialog.waitFor();
        assert.deepEqual(await window.violations(), []);
        await window.button("Sign in", window.dialog).click();
        await window.choose("Web");
        colors.add(await window.page.evaluate(() => getComputedStyle(document.body).color));
        const all = (await server.nodes("admin")).length;
        assert.ok((await window.rows()).length < all);
        await window.page.evaluate(() => dispatchEvent(new Event("beforeprint")));
        await window.becomes(async () => (await window.rows()).length, all);
        await window.page.evaluate(() => dispatchEvent(new Event("afterprint")));
        assert.deepEqual(await window.violations(), []);
        await window.button("Change policies", window.details).click();
        await window.dialog.waitFor();
        assert.deepEqual(await window.violations(), []);
        await window.page.keyboard.press("Escape");
        await window.filter.fill("web");
        await window.row("Plants").waitFor({ state: "detached" });
        await window.drag("Web staging", "Headquarters");
        assert.deepEqual(await window.violations(), []);
        window.assertNoFaults();
    }
    assert.equal(colors.size, 2);
    const window = await open("admin");
    await window.choose("Plants");
    await window.page.keyboard.press("ArrowLeft");
    for (const name of ["New group", "Rename", "Move", "Delete"]) {
        await window.button(name).waitFor();
    }
    const row = window.tree.getByRole("row", { name: /^Group Plants / });
    const states = { level: "1", expanded: "false", selected: "true", posinset: "2", setsize: "9" };
    for (const [name, value] of Object.entries(states)) {
        assert.equal(await row.getAttribute(`aria-${name}`), value, name);
    }
    assert.equal(await window.tree.getAttribute("aria-rowcount"), String((await window.rows()).length + 1));
    window.assertNoFaults();
});

test("several nodes are moved, linked and deleted together, and what failed stays selected", OPTIONS, async () => {
    const window = await open("admin");
    const calls = [];
    window.page.on("request", (request) => request.method() === "POST" && calls.push(request.url().split("/").pop()));
    const servers = ["hq-web1.brackwater.example", "hq-web2.brackwater.example"];
    await window.choose(servers[0]);
    await window.page.keyboard.press("Shift+ArrowDown");
    await window.details.getByText("Move above acts on them").waitFor();
    await window.name("Retired").click({ modifiers: ["Control"] });
    await window.details.getByText("1 group and 2 servers").waitFor();
    await window.button("Move").click();
    await window.dialog.getByRole("searchbox").fill("line control");
    await window.dialog.getByText("servers lose").first().waitFor();
    await window.button("Move", window.dialog).click();
    await window.dialog.waitFor({ state: "detached" });
    const parentsOf = async () => (await server.nodes("admin"))
        .filter(({ name }) => [...servers, "Retired"].includes(name)).map((node) => node.parent_id);
    const { node_id: to } = await server.group("North line control");
    await window.becomes(parentsOf, [to, to, to]);
    assert.deepEqual(calls, ["set", "set"]); // groups, then servers
    await window.button("Undo").click();
    await window.becomes(async () => (await parentsOf()).includes(to), false);

    await window.button("Add policy", window.details).click();
    await window.dialog.getByRole("searchbox").fill("backup");
    await window.button("Add", window.dialog).click();
    await window.details.getByText("linked by 3 of 3").waitFor();
    assert.deepEqual(calls.slice(4), ["link"]);
    await window.page.keyboard.press("Control+z");
    await window.details.getByText("linked by 3 of 3").waitFor({ state: "detached" });
    await window.button("Remove policy", window.details).click();
    await window.dialog.getByRole("option", { name: "Early updates" }).click();
    await window.dialog.getByText("loses Early updates").waitFor();
    await window.button("Remove", window.dialog).click();
    await window.details.getByText("linked by").waitFor({ state: "detached" });

    await window.drag(servers[0], "Plants");
    await window.dialog.getByText("2 servers lose").waitFor();
    await window.button("Move", window.dialog).click();
    const { node_id: plants } = await server.group("Plants");
    await window.becomes(parentsOf, [plants, plants, plants]);

    const { node_id: web } = await server.group("Web");
    await server.call("admin", "KXGroup", "create", { id: 0, name: "Retired", parent_id: web });
    await window.choose("Directory and mail");
    await window.name("Retired").last().click({ modifiers: ["Control"] });
    await window.button("Move").click();
    await window.dialog.getByRole("searchbox").fill("Headquarters / Web");
    await window.dialog.getByRole("option", { name: "Headquarters / Web", exact: true }).click();
    await window.button("Move", window.dialog).click();
    await window.alert.getByText("1 of 2 were moved. Retired was not moved").waitFor();
    await window.details.getByRole("heading", { name: "Retired" }).waitFor();
    window.assertNoFaults();
});

test("a rename is undone unless someone came between, and stays in sight under a filter", OPTIONS, async () => {
    const window = await open("admin");
    const rename = async (name) => {
        await window.page.keyboard.press("F2");
        await window.page.keyboard.type(name);
        await window.page.keyboard.press("Enter");
        await window.page.getByRole("status").getByText(new RegExp(`^\\w+ was renamed to ${name}`)).waitFor();
    };
    await window.filter.fill("kind:group web");
    await window.row("Plants").waitFor({ state: "detached" });
    await window.choose("Web");
    await rename("Internet");
    await window.row("Internet").waitFor();
    await rename("Net");
    for (const [key, name, does] of [["Control+z", "Internet", "Undone: Internet"], ["Control+z", "Web", "Undone: Web"],
        ["Control+y", "Internet", "Redone: Web"]]) {
        await window.page.keyboard.press(key);
        await window.page.getByRole("status").getByText(does).waitFor();
        await window.becomes(async () => (await server.group(name)) !== undefined, true);
        await window.row(name).first().waitFor();
    }
    assert.equal((await server.group("Internet")).revision, 6);
    const { node_id: id } = await server.group("Internet");
    await window.becomes(() => window.details.getByText("just now").count(), 0);
    await window.page.keyboard.press("Control+y"); // back to “Net”, where the last redo leads
    await window.row("Net").waitFor();
    await window.page.keyboard.press("Control+z");
    await window.row("Internet").waitFor();
    await rename("Intranet");
    await window.page.keyboard.press("Control+y");
    await window.page.getByRole("status").getByText("There is nothing to redo").waitFor();
    await window.button("Undo").waitFor();
    await window.becomes(() => window.details.getByText("just now").count(), 0);
    await server.call("admin", "KXGroup", "set", { multiple_data: [{ id, desc: "theirs" }] });
    await window.page.evaluate(() => dispatchEvent(new Event("focus")));
    await window.details.getByText("theirs").waitFor();
    await window.page.keyboard.press("Control+z");
    await window.alert.getByText("Intranet was changed since by someone else").waitFor();
    assert.equal((await server.group("Intranet")).desc, "theirs");
    window.assertNoFaults();
});

test("the history says who changed what, and follows the page's own changes", OPTIONS, async () => {
    const { node_id: id } = await server.group("Web");
    const names = Array.from({ length: 50 }, (_, i) => `Web ${i + 1}`);
    for (const members of [...names.map((name) => ({ name })), { linked_gpo: { order: [{ id: 4 }, { id: 5 }] } }]) {
        await server.call("admin", "KXGroup", "set", { multiple_data: [{ id, ...members }] });
    }
    const window = await open("admin");
    await window.choose("Web 50");
    await window.details.getByText("History").click();
    const items = window.details.locator(".history li");
    const texts = async () => (await items.allInnerTexts()).map((text) => text.replace(/\s+/g, " "));
    await window.becomes(async () => (await texts()).length, 50);
    const [links, rename] = await texts();
    assert.match(links, /^admin changed this .* added Firewall: internal removed Nightly backup$/);
    assert.match(rename, /^admin changed this .* Web 49 → Web 50$/);
    await window.button("Show older changes").click();
    await window.becomes(async () => (await texts()).length, 52);
    assert.match((await texts())[51], /^command apply created this/);
    assert.equal(await window.button("Show older changes").count(), 0);
    await window.submit("Rename", "Name", "Portal");
    await window.becomes(async () => /Web 50 → Portal$/.test((await texts())[0]), true);

    await window.dialog.waitFor({ state: "detached" });
    await server.call("admin", "KXGroup", "set", { multiple_data: [{ id, desc: "theirs" }] });
    await window.submit("Describe", "Description", "mine", "Save");
    await window.dialog.getByText("Portal was not changed").waitFor();
    await window.becomes(async () => /→ theirs$/.test((await texts())[0]), true);
    assert.equal(await window.dialog.getByLabel("Description").inputValue(), "mine");
    await window.button("Save", window.dialog).click();
    await window.becomes(async () => /theirs → mine$/.test((await texts())[0]), true);
    await window.dialog.waitFor({ state: "detached" });
    await window.button("Show older changes").click();
    await window.becomes(async () => (await texts()).length, 55);
    await window.details.evaluate((panel) => { panel.scrollTop = 500; });
    const release = await window.hold("history*");
    await window.choose("Plants");
    assert.equal(await window.details.evaluate((panel) => panel.scrollTop), 0);
    await window.name("Plants").click(); // draws the panel again before the history is there
    release();
    await window.becomes(async () => (await texts()).length, 1);
    window.assertNoFaults();
});

test("a new group is taken back while nothing is in it", OPTIONS, async () => {
    const window = await open("admin");
    await window.choose("Web");
    await window.submit("New group", "Name", "Lab", "Create");
    await window.details.getByRole("heading", { name: "Lab" }).waitFor();
    await window.page.keyboard.press("Control+z");
    await window.row("Lab").waitFor({ state: "detached" });
    assert.equal(await server.group("Lab"), undefined);
    await window.page.keyboard.press("Control+Shift+z");
    await window.row("Lab").waitFor();
    const { node_id: id, parent } = await server.group("Lab");
    assert.equal(parent, "Web");
    await server.call("admin", "KXGroup", "create", { id: 0, name: "theirs", parent_id: id });
    await window.button("Undo").click();
    await window.alert.getByText("so it was not deleted").waitFor();
    await window.row("theirs").waitFor();
    window.assertNoFaults();
});

test("links lead to nodes, and typed text outlives the end of a token", OPTIONS, async () => {
    const window = await open("admin");
    await window.choose("Web");
    await window.becomes(() => window.page.title(), "Web – Fleet");
    await window.page.waitForTimeout(1100); // a shorter stay gets no entry in the history
    await window.choose("Plants");
    await window.page.goBack();
    await window.details.getByRole("heading", { name: "Web" }).waitFor();
    await window.page.keyboard.press("/");
    await window.page.keyboard.type("policy:fire");
    await window.button('policy:"Firewall: internal"').click();
    await window.page.getByRole("status").getByText("2 hits").waitFor();
    await window.filter.press("Enter");
    await window.button("View").click();
    const saved = window.page.waitForEvent("download");
    await window.button("Download as CSV").click();
    assert.equal((await saved).suggestedFilename(), "fleet.csv");

    await window.filter.fill("");
    await window.choose("Web");
    await window.button("Describe").click();
    await window.dialog.getByLabel("Description").fill("a long text");
    server.run("revoke", "admin");
    delete server.tokens.admin;
    await window.button("Save", window.dialog).click();
    await window.page.getByLabel("Token").fill(server.token("admin"));
    await window.button("Sign in").click();
    await window.becomes(() => window.dialog.getByLabel("Description").inputValue(), "a long text");
    await window.button("Save", window.dialog).click();
    await window.becomes(async () => (await server.group("Web")).desc, "a long text");
    window.assertNoFaults([/401/, /401/]);
});

test("a narrow window shows the details over the tree, and names however deep they are", OPTIONS, async () => {
    let parent = 0;
    for (let level = 1; level < 25; ++level) {
        const group = { id: 0, name: `deep ${level}`, parent_id: parent };
        parent = (await server.call("admin", "KXGroup", "create", group)).ids;
    }
    const window = await open("admin", { viewport: { width: 320, height: 640 } });
    await window.filter.fill("deep 24");
    await window.row("deep 24").waitFor();
    const { x, width } = await window.name("deep 24").boundingBox();
    assert.ok(x + width < 320 && width > 20, `${x} ${width}`);
    assert.ok((await window.tree.boundingBox()).height >= 640 * 2 / 3);
    await window.name("deep 24").click();
    await window.details.getByRole("heading", { name: "deep 24" }).waitFor();
    assert.deepEqual(await window.violations(), []);
    await window.button("Back to the tree").click();
    await window.button("Actions").click();
    await window.submit("Rename", "Name", "deepest");
    await window.becomes(async () => (await server.group("deepest"))?.node_id, parent);
    window.assertNoFaults();
});

// Creates the parts of the page, connects them and starts the sign-in.
import { Account } from "./account.js";
import { Api } from "./api.js";
import { Changes } from "./changes.js";
import { Commands } from "./commands.js";
import { resumeDialogs, suspendDialogs } from "./dialogs.js";
import { Edits } from "./edits.js";
import { History } from "./history.js";
import { listenForKeys } from "./keys.js";
import { FleetLoader } from "./loader.js";
import { Many } from "./many.js";
import { connectMenus } from "./menus.js";
import { Notice } from "./notice.js";
import { SignIn } from "./sign_in.js";
import { Undo } from "./undo.js";
import { FleetView } from "./view.js";
import { makeViewMenu, orderOfRows } from "./view_menu.js";

const api = new Api();
const signIn = new SignIn(openFleet, closeFleet);
const notice = new Notice(signIn);
const account = new Account(api, notice);
const undo = new Undo(notice);
const view = new FleetView(notice, new History(api), {
    command: (name, key) => commands.run(name, key),
    move: (nodes, parent) => commands.move(nodes, parent),
    copy: (text) => commands.copy(text),
    mayManageAll: () => account.mayManageAll(),
});
const loader = new FleetLoader(api, notice, {
    answered: () => {
        signIn.showConsole();
        notice.hideOutage();
    },
    show: (fleet) => view.show(fleet),
}, orderOfRows);
const edits = new Edits(api, loader, undo);
const changes = new Changes(api, edits, loader, view);
const many = new Many(edits, loader, view);
const commands = new Commands({ changes, many, undo, loader, view, notice, signIn });

async function openFleet(token) {
    api.token = token;
    notice.say("Asking for the tree …");
    const [isSame, hasTree] = await Promise.all([account.refresh(), loader.refresh()]);
    if (hasTree) {
        view.focus();
    }
    if (isSame !== null) {
        resumeDialogs(isSame);
    }
    if (isSame === false) {
        undo.forget();
    }
    notice.say("");
}

// Hides what belongs to the account. Its dialogs come back when the same account signs in again.
function closeFleet() {
    suspendDialogs();
    notice.hide();
    notice.say("");
    document.title = "Fleet";
}

makeViewMenu({
    columns: () => view.fitColumns(),
    order: () => loader.reorder(),
    download: (format) => view.download(format),
});
connectMenus();
listenForKeys((command) => commands.run(command));
signIn.start();

// Creates the parts of the page, connects them and starts the sign-in.
import { Api } from "./api.js";
import { Changes } from "./changes.js";
import { Commands } from "./commands.js";
import { FleetLoader } from "./loader.js";
import { Notice } from "./notice.js";
import { SignIn } from "./sign_in.js";
import { FleetView } from "./view.js";

const api = new Api();
const signIn = new SignIn(openFleet);
const notice = new Notice(signIn);
const view = new FleetView(notice, {
    command: (name, node) => commands.run(name, node),
    move: (node, parent) => commands.move(node, parent),
    mayManageAll: () => api.mayManageAll(),
});
const loader = new FleetLoader(api, notice, {
    answered: () => {
        signIn.showConsole();
        notice.hideOutage();
    },
    show: (fleet) => view.show(fleet),
});
const changes = new Changes(api, loader, view, notice);
const commands = new Commands({ changes, loader, view, notice, signIn });

async function openFleet(token) {
    api.token = token;
    notice.say("Asking for the tree …");
    if (await loader.refresh()) {
        view.focus();
    }
    notice.say("");
}

signIn.start();

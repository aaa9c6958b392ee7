// A viewer for one endpoint of the gateway, which the part of the address behind # names.

import RFB from "./novnc/core/rfb.js";

const state = document.getElementById("state");
const again = document.getElementById("connect");
const ctrlAltDelete = document.getElementById("ctrl-alt-delete");
let rfb = null;

// The gateway gives a key with the address that can be opened once. Other programs of this machine
// may see the cookie of that address, but not what the browser keeps for the page.
if (location.hash.startsWith("#key=")) {
    localStorage.setItem("key", location.hash.slice("#key=".length));
    history.replaceState(null, "", "/");
}

function say(text) {
    state.textContent = text;
}

function connect(name) {
    if (rfb !== null) rfb.disconnect();
    again.hidden = true;
    say(`Connecting to ${name}.`);
    const address = new URL(`viewers/${name}`, location.href);
    address.protocol = location.protocol === "https:" ? "wss:" : "ws:";
    address.hash = "";
    address.search = `key=${encodeURIComponent(localStorage.getItem("key") ?? "")}`;
    const viewer = new RFB(document.getElementById("screen"), address.href, { shared: true });
    rfb = viewer;
    viewer.scaleViewport = true;
    viewer.showDotCursor = true;  // the gateway sends no shape of a pointer
    viewer.addEventListener("connect", () => {
        say(`Connected to ${name}.`);
        ctrlAltDelete.disabled = false;
        viewer.focus();
    });
    viewer.addEventListener("disconnect", (event) => {
        if (rfb !== viewer) return;
        rfb = null;
        say(event.detail.clean ? "The gateway closed the connection."
                               : "The connection was lost.");
        ctrlAltDelete.disabled = true;
        again.hidden = false;
    });
    viewer.addEventListener("securityfailure", (event) => {
        say(`The gateway refused the viewer: ${event.detail.reason ?? "it gave no reason"}.`);
    });
}

// Names have no letters that an address writes in another way.
function show(names) {
    const chosen = location.hash.slice(1);
    const name = names.includes(chosen) ? chosen : names[0];
    document.title = `${name} – Quillon`;
    document.getElementById("endpoints").replaceChildren(...names.map((each) => {
        const link = document.createElement("a");
        link.href = `#${each}`;
        link.textContent = each;
        if (each === name) link.setAttribute("aria-current", "page");
        return link;
    }));
    again.onclick = () => connect(name);
    connect(name);
}

ctrlAltDelete.addEventListener("click", () => {
    if (rfb !== null) rfb.sendCtrlAltDel();
});

const answer = await fetch("endpoints.json");
if (answer.ok) {
    const names = await answer.json();
    show(names);
    window.addEventListener("hashchange", () => show(names));
} else {
    say("Open the address that the gateway printed.");
}

// Shows the simulated panel as the server sends it, and presses its keys.

const shortestStay = 60; // ms that a key stays pressed or released: applications look only now and then
const tapTime = 100; // ms
const quietTime = 1000; // ms without a change until the display is read out
const retryTime = 500; // ms
const longestSilence = 5000; // ms; the server sends something every second
const keptLines = 1000;

const byId = (id) => document.getElementById(id);
const pause = (time) => new Promise((resolve) => setTimeout(resolve, time));

/** Leaves text alone that is right already, so that nothing is read out or redrawn twice. */
function setText(node, text) {
  if (node.textContent !== text) {
    node.textContent = text;
  }
}

function setItems(list, texts) {
  while (list.children.length > texts.length) {
    list.lastElementChild.remove();
  }
  texts.forEach((text, i) => setText(list.children[i] ?? list.appendChild(document.createElement("li")), text));
}

function make(tag, className, text) {
  const node = document.createElement(tag);
  node.className = className;
  node.textContent = text;
  return node;
}

// ---- The connection ----

let client; // the server's number for this page, while they are connected
let source; // of the server's events, while they are connected or to be so soon
let nextTry; // timer
let run; // of panelsim: another one counts its lines from 0 on again
let command = "";
let gone = ""; // why there is no connection
let complaint = ""; // of the server about the last request
let app = {running: true, text: "connecting"};

function connect() {
  source = new EventSource("events");
  const on = (name, action) => source.addEventListener(name, (event) => {
    tryAgainIn(longestSilence);
    action(JSON.parse(event.data));
  });
  on("hello", begin);
  on("state", showState);
  on("log", showLog);
  on("alive", () => {});
  source.addEventListener("error", ({target}) => {
    const refused = target.readyState === EventSource.CLOSED;
    lose(refused ? "panelsim does not accept this page" : undefined);
    tryAgainIn(retryTime);
  });
  tryAgainIn(longestSilence);
}

function tryAgainIn(time) {
  clearTimeout(nextTry);
  nextTry = setTimeout(() => {
    lose();
    connect();
  }, time);
}

/** The server then releases the keys. */
function disconnect() {
  clearTimeout(nextTry);
  source?.close();
  source = undefined;
  client = undefined;
  held.clear();
  showApp();
}

function lose(reason = "Connection to panelsim is gone") {
  gone = reason;
  disconnect();
}

/** A browser has few connections to one server: pages that nobody sees must not take them up. */
function followVisibility() {
  if (document.hidden) {
    disconnect();
  } else if (!source) {
    connect();
  }
}

function begin(hello) {
  ({client, command} = hello);
  gone = "";
  complaint = "";
  setText(byId("command"), command);
  byId("command").title = command; // where there is no room for all of it
  setText(byId("panel-kind"), hello.panel);
  setText(byId("version"), `panelsim ${hello.version}`);
  shownFrom = hello.run === run ? shownFrom : 0;
  run = hello.run;
  clearLog();
  makeKeys(hello.keys);
}

async function post(path, content) {
  const answer = await fetch(path, {
    method: "POST",
    headers: {"Content-Type": "application/json"},
    body: JSON.stringify(content),
    keepalive: true,
    signal: AbortSignal.timeout(longestSilence),
  });
  complaint = answer.ok ? "" : (await answer.text()).trim();
  showApp();
  return answer.ok;
}

// ---- The keys ----

const held = new Map(); // what holds keys on this page, a pointer or a key of the keyboard, say: which key
const changedAt = []; // by key: when the server last took a change of it
let focused; // number of the key that had the focus when the keys were last disabled
let posts = Promise.resolve();

const keyButtons = () => [...document.querySelectorAll(".key")];

function makeKeys(names) {
  byId("keys").replaceChildren(byId("keys").firstElementChild, ...names.map(makeKey));
  byId("keys").hidden = byId("keys-help").hidden = names.length === 0;
  const digits = names.length > 1 ? `digit keys 0 to ${Math.min(names.length, 10) - 1}` : "digit key 0";
  setText(byId("digits-help"), `, with the ${digits}, or with Space on a key that has the focus`);
}

function makeKey(name, number) {
  const key = make("button", "key", name);
  key.append(make("span", "key-state", ""));
  key.lastElementChild.ariaHidden = "true"; // aria-pressed says it
  key.addEventListener("pointerdown", (event) => {
    if (event.button === 0) {
      key.setPointerCapture(event.pointerId);
      hold(number, `pointer ${event.pointerId}`);
    }
  });
  for (const end of ["pointerup", "pointercancel", "lostpointercapture"]) {
    key.addEventListener(end, (event) => letGo(`pointer ${event.pointerId}`));
  }
  key.addEventListener("contextmenu", (event) => event.preventDefault());
  key.addEventListener("click", (event) => {
    if (event.detail === 0) { // of no pointer: a screen reader, say
      hold(number, "tap");
      setTimeout(letGo, tapTime, "tap");
    }
  });
  return key;
}

/** Without the application, keys do nothing and look so. */
function enableKeys() {
  const keys = byId("keys");
  const enabled = client !== undefined && app.running;
  if (!enabled && !keys.disabled) {
    focused = keyButtons().indexOf(document.activeElement);
    letAllGo();
  }
  keys.disabled = !enabled;
  if (enabled && document.activeElement === document.body) {
    keyButtons()[focused]?.focus();
  }
}

const isHeld = (key) => [...held.values()].includes(key);

function hold(key, hand) {
  if (byId("keys").disabled || held.has(hand)) {
    return;
  }
  if (!isHeld(key)) {
    change(key, true);
  }
  held.set(hand, key);
}

function letGo(hand) {
  const key = held.get(hand);
  if (held.delete(hand) && !isHeld(key)) {
    change(key, false);
  }
}

function letAllGo() {
  [...held.keys()].forEach(letGo);
}

/** Sends the server a key's change, in the order of what happened, however long the answers take. */
function change(key, pressed) {
  const to = client;
  posts = posts.then(async () => {
    const left = (changedAt[key] ?? -shortestStay) + shortestStay - performance.now();
    if (left > 0) { // else at once: of a page that is being left, no timer ends
      await pause(left);
    }
    if (to === client) {
      await post("keys", {client: to, key, pressed});
      changedAt[key] = performance.now();
    }
  }).catch(() => {
    if (to === client) { // the server may not know of it: only a new connection makes sure that the key is released
      lose();
      connect();
    }
  });
}

/** The panel's key that a key of the keyboard stands for, if any. */
function keyFor(event) {
  const keys = keyButtons();
  const number = [" ", "Enter"].includes(event.key) ? keys.indexOf(event.target) : Number.parseInt(event.key, 10);
  return number in keys ? number : undefined;
}

addEventListener("keydown", (event) => {
  if (event.ctrlKey || event.altKey || event.metaKey) {
    return;
  }
  const key = keyFor(event);
  if (key !== undefined || (/^(Arrow.*|[0-9])$/.test(event.key) && event.target !== byId("log-lines"))) {
    event.preventDefault(); // no click besides, and the display stays in sight
  }
  if (key !== undefined && !event.repeat) {
    hold(key, event.code);
  }
});
addEventListener("keyup", (event) => {
  if (keyFor(event) !== undefined) {
    event.preventDefault();
  }
  letGo(event.code);
});
addEventListener("blur", letAllGo);
addEventListener("pagehide", letAllGo);
document.addEventListener("visibilitychange", () => {
  letAllGo();
  posts.then(followVisibility);
});

// ---- The state ----

let drawing = "";
let readOut = []; // what was read out last
let newsTimer;

function showState(state) {
  app = state.app;
  showApp();
  showDrawing(state.svg);
  keyButtons().forEach((key, number) => {
    key.ariaPressed = String(state.keys[number]);
    setText(key.lastElementChild, state.keys[number] ? "pressed" : "");
  });
  setText(byId("controller"), state.controller);
  byId("bus-title").hidden = byId("bus").hidden = state.bus.length === 0;
  byId("bus").className = state.hasBusFaults ? "bad" : "good";
  setItems(byId("bus"), state.bus);
}

/** Shows how the application and the connection to it are doing. */
function showApp() {
  const ended = app.running ? "" : `the application ${app.text}`;
  const text = gone ? `${gone}; trying again${ended && ` (${ended})`}` : complaint || (ended && `T${ended.slice(1)}.`);
  const bad = Boolean(gone || complaint || app.failed);
  setText(byId("banner-text"), text);
  byId("banner").hidden = text === "";
  byId("banner").className = `banner ${bad ? "bad" : ""}`;
  byId("restart").hidden = gone !== "" || !app.restart;
  const state = gone ? "no connection" : app.running ? app.text : "ended";
  setText(byId("app-state"), state);
  byId("app-state").className = `badge ${bad ? "bad" : app.running ? "good" : ""}`;
  setText(byId("app-text"), app.text + (app.hint ?? ""));
  document.body.classList.toggle("stale", gone !== "");
  const how = document.hidden ? "in the background" : gone ? "no connection" : app.text;
  document.title = [how, command, "panelsim"].filter(Boolean).join(" \u2013 ");
  enableKeys();
}

function showDrawing(svg) {
  if (svg === drawing) {
    return;
  }
  drawing = svg;
  const face = document.importNode(new DOMParser().parseFromString(svg, "image/svg+xml").documentElement, true);
  const words = face.querySelector("desc"); // which the list below has line by line
  setItems(byId("words"), words.textContent.split("\n"));
  words.remove();
  byId("face").replaceChildren(face);
  byId("face").style.aspectRatio = `${face.viewBox.baseVal.width} / ${face.viewBox.baseVal.height}`;
  clearTimeout(newsTimer);
  newsTimer = setTimeout(() => {
    const texts = [...byId("words").children].map((item) => item.textContent);
    setText(byId("news"), texts.filter((text) => !readOut.includes(text)).join("; "));
    readOut = texts;
  }, quietTime);
}

byId("restart").addEventListener("click", async ({target}) => {
  target.disabled = true;
  if (await post("restart", {}).catch(() => false)) {
    focused = Math.max(focused, 0);
    target.blur();
  }
  target.disabled = false;
});

// ---- The log ----

const rows = new Map(); // by number of the line
let shownFrom = 0; // number of the first line since the log was cleared
let following = true; // its end, until the user scrolls up

function makeRow({time, source, text}) {
  const row = make("div", `line ${source}`, "");
  const clock = new Date(time).toTimeString().slice(0, 8);
  row.append(make("time", "", `${clock}.${String(time % 1000).padStart(3, "0")}`));
  row.append(...(source ? [make("span", "source", source)] : []), make("span", "text", text));
  return row;
}

function showLog({first, lines}) {
  const from = Math.max(shownFrom, first + lines.length - keptLines);
  lines.forEach((line, i) => {
    if (rows.has(first + i)) {
      const row = makeRow(line); // lines that are not complete change their number
      rows.get(first + i).replaceWith(row);
      rows.set(first + i, row);
    } else if (first + i >= from) {
      rows.set(first + i, byId("log-lines").appendChild(makeRow(line)));
    }
  });
  [...rows.keys()].slice(0, Math.max(rows.size - keptLines, 0)).forEach(removeRow);
  followLog();
}

function removeRow(number) {
  rows.get(number).remove();
  rows.delete(number);
}

function clearLog() {
  [...rows.keys()].forEach(removeRow);
}

function followLog() {
  if (following) {
    byId("log-lines").scrollTop = byId("log-lines").scrollHeight;
  }
}

byId("clear").addEventListener("click", () => {
  shownFrom = Math.max(shownFrom, ...[...rows.keys()].map((number) => number + 1));
  clearLog();
});
byId("log-lines").addEventListener("scroll", ({target}) => {
  following = target.scrollHeight - target.scrollTop - target.clientHeight < 30;
});
new ResizeObserver(followLog).observe(byId("log-lines"));
followVisibility();

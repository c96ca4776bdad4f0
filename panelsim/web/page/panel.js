// Shows the simulated panel as the server tells it, and presses its keys.

const shortestStay = 60; // ms that a key stays pressed or released: applications look only now and then
const tapTime = 100; // ms
const quietTime = 1000; // ms without a change until the display is read out
const retryTime = 500; // ms
const answerTime = 5000; // ms
const longestSilence = 5000; // ms; the server says something every second
const keptLines = 1000;
const sourceNames = {output: "stdout", error: "stderr", simulator: "panelsim"};

const byId = (id) => document.getElementById(id);

/** Leaves text alone that is right already, so that nothing is read out or redrawn twice. */
function setText(node, text) {
  if (node.textContent !== text) {
    node.textContent = text;
  }
}

function make(tag, className, text) {
  const node = document.createElement(tag);
  node.className = className;
  node.textContent = text;
  return node;
}

const pause = (time) => new Promise((resolve) => setTimeout(resolve, time));

// ---- The connection ----

let client; // the server's number for this page, while they are connected
let source; // of the server's events, while they are connected or to be so soon
let nextTry; // timer
let command = "";
let app = {};
let keyWithFocus; // when the keys were last disabled

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
    showGone(refused ? "panelsim does not accept this page" : undefined);
    tryAgainIn(retryTime);
  });
  tryAgainIn(longestSilence);
}

function tryAgainIn(time) {
  clearTimeout(nextTry);
  nextTry = setTimeout(() => {
    showGone();
    connect();
  }, time);
}

/** Whereupon the server lets go of the keys. */
function disconnect() {
  clearTimeout(nextTry);
  source?.close();
  source = undefined;
  client = undefined;
  hands.forEach((held) => held.clear());
  keyWithFocus = document.activeElement?.closest(".key") ?? keyWithFocus;
  byId("keys").disabled = true;
  showTitle();
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
  client = hello.client;
  command = hello.command;
  setText(byId("command"), command);
  setText(byId("panel-kind"), hello.panel);
  setText(byId("version"), `panelsim ${hello.version}`);
  byId("gone").hidden = true;
  byId("complaint").hidden = true;
  document.body.classList.remove("stale");
  makeKeys(hello.keyCount);
  if (document.activeElement === document.body) {
    keyWithFocus?.focus();
  }
  keyWithFocus = undefined;
  clearLog();
}

function showGone(reason = "Connection to panelsim is gone") {
  disconnect();
  setText(byId("gone"), `${reason}; trying again${hasEnded() ? ` (the application ${app.text})` : ""}`);
  byId("gone").hidden = false;
  byId("restart").hidden = true;
  byId("app-state").className = "badge bad";
  setText(byId("app-state"), "no connection");
  document.body.classList.add("stale");
}

async function post(path, content) {
  const answer = await fetch(path, {
    method: "POST",
    headers: {"Content-Type": "application/json"},
    body: JSON.stringify(content),
    keepalive: true,
    signal: AbortSignal.timeout(answerTime),
  });
  byId("complaint").hidden = answer.ok;
  if (!answer.ok) {
    setText(byId("complaint"), (await answer.text()).trim() || `panelsim answered with ${answer.status}`);
  }
  return answer.ok;
}

// ---- The keys ----

const hands = []; // by key: what holds it on this page, a pointer or a key of the keyboard, say
const changedAt = []; // by key: when the server last took a change of it
let posts = Promise.resolve();

function makeKeys(count) {
  const keys = byId("keys");
  if (hands.length !== count) {
    hands.splice(0, hands.length, ...Array.from({length: count}, () => new Set()));
    const numbers = [...hands.keys()];
    keys.replaceChildren(keys.firstElementChild, ...numbers.map(makeKey));
    const digits = count > 1 ? `digit keys 0 to ${Math.min(count, 10) - 1}` : "digit key 0";
    setText(byId("keys-help"), count === 0 ? "This panel has no keys."
      : `Press and hold with mouse or finger, with the ${digits}, or with Space on a key that has the focus.`);
  }
  keys.disabled = false;
}

function makeKey(number) {
  const key = make("button", "key", "");
  key.type = "button";
  key.dataset.key = number;
  key.append(make("span", "key-name", `Key ${number}`), make("span", "key-state", ""));
  key.lastElementChild.ariaHidden = "true"; // aria-pressed says it
  key.addEventListener("pointerdown", (event) => {
    if (event.button === 0) {
      key.setPointerCapture(event.pointerId);
      hold(number, `pointer ${event.pointerId}`);
    }
  });
  key.addEventListener("pointermove", (event) => {
    if (!(event.buttons & 1)) { // another button, still pressed, keeps pointerup from coming
      letGo(`pointer ${event.pointerId}`);
    }
  });
  for (const end of ["pointerup", "pointercancel", "lostpointercapture"]) {
    key.addEventListener(end, (event) => letGo(`pointer ${event.pointerId}`));
  }
  key.addEventListener("contextmenu", (event) => event.preventDefault());
  key.addEventListener("click", (event) => {
    if (event.detail === 0 && hands[number].size === 0) { // of no pointer: a screen reader, say
      hold(number, "tap");
      setTimeout(letGo, tapTime, "tap");
    }
  });
  return key;
}

function hold(key, hand) {
  if (client !== undefined && !hands[key].has(hand)) {
    hands[key].add(hand);
    if (hands[key].size === 1) {
      change(key, true);
    }
  }
}

function letGo(hand) {
  hands.forEach((held, key) => {
    if (held.delete(hand) && held.size === 0) {
      change(key, false);
    }
  });
}

function letAllGo() {
  hands.flatMap((held) => [...held]).forEach(letGo);
}

/** Tells the server about a key, in the order of what happened, however long the answers take. */
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
      showGone();
      connect();
    }
  });
}

/** The panel's key that a key of the keyboard stands for, if any. */
function keyFor(event) {
  if (event.ctrlKey || event.altKey || event.metaKey) {
    return undefined;
  }
  const focused = event.target.closest?.(".key");
  if (focused && [" ", "Enter"].includes(event.key)) {
    return Number(focused.dataset.key);
  }
  const digit = /^[0-9]$/.test(event.key) ? Number(event.key) : hands.length;
  return digit < hands.length ? digit : undefined;
}

function listenToKeyboard() {
  addEventListener("keydown", (event) => {
    const key = keyFor(event);
    if (key !== undefined) {
      event.preventDefault(); // no click besides
      if (!event.repeat) {
        hold(key, event.code);
      }
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
}

function showKeys(keys) {
  for (const key of document.querySelectorAll(".key")) {
    const pressed = keys[key.dataset.key] === true;
    key.ariaPressed = String(pressed);
    setText(key.lastElementChild, pressed ? "pressed" : "");
  }
}

// ---- The state ----

let drawing = "";

function showState(state) {
  app = state.app;
  showApp();
  showDrawing(state.svg);
  showText(state);
  showKeys(state.keys);
  showBusFaults(state.busFaults);
  byId("bus-row").hidden = state.lcd === null;
  byId("untouched").hidden = state.pinOperations || state.app.phase !== "running";
}

const hasEnded = () => app.phase === "exited" || app.phase === "killed";

function showApp() {
  const ended = hasEnded();
  const failed = ended && !app.succeeded;
  setText(byId("app-state"), ended ? "ended" : app.text);
  setText(byId("app-text"), app.text);
  setText(byId("ended-text"), ended ? `The application ${app.text}.` : "");
  byId("app-state").className = `badge ${failed ? "bad" : app.phase}`;
  byId("ended").className = `banner ${failed ? "bad" : ""}`;
  byId("ended").hidden = !ended;
  byId("restart").hidden = !app.restart;
  byId("restart").disabled = false;
  showTitle();
}

function showTitle() {
  const lost = document.hidden ? "in the background" : "no connection";
  const states = client === undefined ? [lost, ...(hasEnded() ? [app.text] : [])] : [app.text];
  document.title = [states.join(", "), command, "panelsim"].filter(Boolean).join(" \u2013 ");
}

function showDrawing(svg) {
  if (svg !== drawing) {
    drawing = svg;
    const parsed = new DOMParser().parseFromString(svg, "image/svg+xml");
    byId("face").replaceChildren(document.importNode(parsed.documentElement, true));
  }
}

function showBusFaults({count, first}) {
  const some = `\u26A0 ${count} bus fault${count === 1 ? "" : "s"}`;
  byId("bus").className = count === 0 ? "good" : "bad";
  setText(byId("bus-text"), count === 0 ? "\u2713 no bus faults" : some);
  setItems(byId("bus-faults"), count > first.length ? [...first, `and ${count - first.length} more`] : first);
}

function setItems(list, texts) {
  while (list.children.length > texts.length) {
    list.lastElementChild.remove();
  }
  texts.forEach((text, i) => setText(list.children[i] ?? list.appendChild(document.createElement("li")), text));
}

// ---- The same in words ----

/** "1 to 25" for the columns that are inverted, "" for none. */
function invertedColumns(flags) {
  const runs = [...flags.matchAll(/1+/g)].map(({0: run, index}) => [index + 1, index + run.length]);
  return runs.map(([from, to]) => (from === to ? `${from}` : `${from} to ${to}`)).join(", ");
}

function describeLine(text, flags) {
  const inverted = invertedColumns(flags);
  return (text.trimEnd() || "blank") + (inverted ? ` (inverted: ${inverted})` : "");
}

function describeDisplay({displayOn, backlight, contrast}) {
  const states = [`Display ${displayOn ? "on" : "off"}`, `backlight ${backlight ? "on" : "off"}`];
  return (contrast === null ? states : [...states, `contrast ${contrast} of 31`]).join(", ");
}

function describeLeds(leds) {
  const lit = [...leds.keys()].filter((led) => leds[led]);
  return lit.length === 0 ? "No LED is lit." : `Lit LEDs: ${lit.join(", ")}`;
}

function showText({lcd, leds}) {
  const identified = lcd?.identified ? "identified by the application" : "not identified yet";
  setText(byId("controller"), lcd ? `${lcd.chip} (${identified})` : "none: this panel has no display");
  setText(byId("display-state"), lcd ? describeDisplay(lcd) : "This panel has no display.");
  const lines = lcd?.displayOn ? lcd.lines : [];
  setItems(byId("display-lines"), lines.map((line, i) => describeLine(line, lcd.inverted[i])));
  setText(byId("led-state"), describeLeds(leds));
  planNews();
}

let told = []; // what was read out last
let newsTimer;

function planNews() {
  clearTimeout(newsTimer);
  newsTimer = setTimeout(() => {
    const parts = [byId("display-state"), ...byId("display-lines").children, byId("led-state")];
    const texts = parts.map((part) => part.textContent);
    setText(byId("news"), texts.filter((text) => !told.includes(text)).join("; "));
    told = texts;
  }, quietTime);
}

// ---- The log ----

let firstLine = 0; // number of the first row
let rows = [];

function clearLog() {
  firstLine = 0;
  rows = [];
  byId("log-lines").replaceChildren();
}

function makeRow({source, text}) {
  const row = make("div", `line ${source}`, "");
  row.append(make("span", "source", sourceNames[source]), make("span", "text", text));
  return row;
}

function showLog({first, lines}) {
  if (first > firstLine + rows.length) { // what lies between is not kept
    clearLog();
    firstLine = first;
  }
  const known = lines.slice(0, firstLine + rows.length - first);
  known.forEach((line, i) => rows[first + i - firstLine]?.lastElementChild.replaceChildren(line.text));
  const added = lines.slice(known.length);
  const surplus = Math.max(rows.length + added.length - keptLines, 0);
  rows.splice(0, surplus).forEach((row) => row.remove());
  firstLine += surplus;
  const newRows = added.slice(-keptLines).map(makeRow);
  byId("log-lines").append(...newRows);
  rows.push(...newRows);
  followLog();
}

let following = true; // until the user scrolls up

function followLog() {
  if (following) {
    byId("log-lines").scrollTop = byId("log-lines").scrollHeight;
  }
}

function watchLog() {
  const log = byId("log-lines");
  log.addEventListener("scroll", () => {
    following = log.scrollHeight - log.scrollTop - log.clientHeight < 30;
  });
  new ResizeObserver(followLog).observe(log);
}

byId("restart").addEventListener("click", async ({target}) => {
  target.disabled = true;
  const restarted = await post("restart", {}).catch(() => false);
  target.disabled = false;
  ((restarted && document.querySelector(".key")) || target).focus();
});
listenToKeyboard();
watchLog();
followVisibility();

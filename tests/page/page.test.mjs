// Drives the page of the real simulator, with the tool's demo as its application, in a browser.
// PANELSIM and FRONTPANEL are the paths of the two programs, CHROMIUM that of the browser.
import assert from "node:assert/strict";
import {execFileSync, spawn} from "node:child_process";
import {once} from "node:events";
import {createInterface} from "node:readline";
import {after, before, test} from "node:test";
import {chromium} from "playwright-core";

const {PANELSIM, FRONTPANEL, CHROMIUM = "/usr/bin/chromium"} = process.env;
const patience = 60_000;
const started = [];
let browser;
let shared;

async function startPanelsim(address = "127.0.0.1:0") {
  const options = ["--http", address, "--stay", "--", FRONTPANEL, "demo", "--lamp-seconds", "1"];
  const child = spawn(PANELSIM, options, {stdio: ["ignore", "ignore", "pipe"]});
  const ended = once(child, "exit");
  const stop = async () => {
    child.kill();
    child.kill("SIGCONT");
    await ended;
  };
  started.push(stop);
  for await (const line of createInterface({input: child.stderr})) {
    const [, url] = /the panel is at (http:\S+)/.exec(line) ?? [];
    if (url) {
      child.stderr.resume();
      return {pid: child.pid, stop, url};
    }
  }
  return assert.fail("panelsim ended before it served the page");
}

/** Opens the page as a user of their own would, and waits until it shows the demo or the end of the given events. */
async function open(t, url, {events, losesConnection = events !== undefined, ...options} = {}) {
  const context = await browser.newContext(options);
  const page = await context.newPage();
  page.setDefaultTimeout(patience);
  const complaints = [];
  const posts = [];
  page.on("pageerror", (error) => complaints.push(String(error)));
  page.on("console", (message) => message.type() === "error" && complaints.push(message.text()));
  page.on("request", (request) => {
    if (new URL(request.url()).origin !== new URL(url).origin) {
      complaints.push(`request to ${request.url()}`);
    } else if (request.method() === "POST") {
      posts.push(request.postDataJSON());
    }
  });
  t.after(async () => {
    await context.close();
    const unexpected = complaints.filter((text) => !(losesConnection && text.startsWith("Failed to load resource")));
    assert.deepEqual(unexpected, []);
  });
  const shows = (selector, text) => page.locator(selector).filter({hasText: text}).first().waitFor({state: "attached"});
  const key = (number, more = {}) => page.getByRole("button", {name: `Key ${number}`, exact: true, ...more});
  if (events) {
    const body = events.map(([name, data]) => `event: ${name}\ndata: ${JSON.stringify(data)}\n\n`).join("");
    await page.route("**/events", () => {}); // another answer would begin again
    await page.route("**/events", (route) => route.fulfill({contentType: "text/event-stream", body}), {times: 1});
  }
  await page.goto(url);
  await shows(...(events ? ["#app-text", "running"] : ["#words", "Front panel"]));
  return {page, posts, shows, key};
}

/** Smallest contrast between the text of elements and the background behind it, as WCAG defines it. */
const smallestContrast = (page, selectors) => page.evaluate((wanted) => {
  const numbers = (colour) => colour.match(/[\d.]+/g).map(Number);
  const linear = (value) => (value <= 0.04045 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4);
  const luminance = (colour) =>
    numbers(colour).slice(0, 3).reduce((sum, value, i) => sum + [0.2126, 0.7152, 0.0722][i] * linear(value / 255), 0);
  const behind = (node, colour = getComputedStyle(node).backgroundColor) =>
    (numbers(colour)[3] === 0 ? behind(node.parentElement) : colour);
  return Math.min(...wanted.map((selector) => document.querySelector(selector)).map((node) => {
    const [light, dark] = [getComputedStyle(node).color, behind(node)].map(luminance).sort((a, b) => b - a);
    return (light + 0.05) / (dark + 0.05);
  }));
}, selectors);

before(async () => {
  assert.ok(PANELSIM && FRONTPANEL, "PANELSIM and FRONTPANEL must be the paths of the two programs");
  shared = await startPanelsim();
  const options = "--headless --no-sandbox --disable-gpu --disable-quic --no-first-run " +
    "--disable-background-networking --disable-component-update --disable-sync";
  browser = await chromium.launch({executablePath: CHROMIUM, args: options.split(" ")});
});

after(async () => {
  await browser?.close();
  await Promise.all(started.map((stop) => stop()));
});

test("a key held with the mouse reaches the application, which answers on display, LEDs and log", async (t) => {
  const {page, shows, key} = await open(t, shared.url);
  await shows("#words li", /Front panel \(inverted: 1 to 25\)/);
  await shows("#controller", "RA8806 (identified by the application)");
  await shows("#digits-help", "digit keys 0 to 2");
  assert.equal(await page.getByRole("img", {name: "Front panel"}).count(), 1);
  await key(0).hover();
  await page.mouse.down();
  await key(0, {pressed: true}).waitFor();
  await Promise.all([shows("#words", "Lit LEDs: 0"), shows("#face text", /^on$/), shows("#words", /Key 0 held \(\d+/)]);
  await page.mouse.move(0, 0);
  await page.mouse.up();
  await Promise.all([shows("#words", "Lit LEDs: none"), shows(".line", /^\d\d:\d\d:\d\d\.\d{3}key 0 released/)]);
  await key(0, {pressed: false}).waitFor();
});

test("the keyboard presses keys: digits anywhere, Space and Enter on a key that has the focus", async (t) => {
  const {page, posts, shows, key} = await open(t, shared.url);
  const happens = (name) => () => page.evaluate((type) => dispatchEvent(new Event(type)), name);
  const ways = [["1", 1, happens("blur")], ["Space", 2], ["Enter", 2], ["0", 0, happens("pagehide")]];
  for (const [name, number, end = () => page.keyboard.up(name)] of ways) {
    await key(number).focus();
    await page.keyboard.down(name);
    await shows("#words", new RegExp(`Key ${number} (pressed|held)`));
    await page.keyboard.down(name); // as auto-repeat does
    await end();
    await shows("#words", `Key ${number} released`);
    await page.keyboard.up(name);
  }
  await page.keyboard.press("Control+0");
  await page.keyboard.press("1"); // so briefly that it has to be held until the application has seen it
  await shows("#words", "Key 1 released");
  await key(2).evaluate((button) => button.click()); // as a screen reader does
  await shows("#words", "Key 2 released");
  assert.deepEqual(posts.map((post) => [post.key, post.pressed]),
    [1, 2, 2, 0, 1, 2].flatMap((number) => [[number, true], [number, false]]));
});

test("on a phone a finger holds a key, and nothing is wider than the screen or speaks of digit keys", async (t) => {
  const options = {viewport: {width: 360, height: 740}, hasTouch: true, isMobile: true};
  const {page, shows, key} = await open(t, shared.url, options);
  assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 360);
  assert.doesNotMatch(await page.locator("#keys-help").innerText(), /digit/);
  const {x, y} = await key(1).boundingBox();
  const devtools = await page.context().newCDPSession(page);
  const touch = (type, touchPoints) => devtools.send("Input.dispatchTouchEvent", {type, touchPoints});
  await touch("touchStart", [{x: x + 10, y: y + 10}]);
  await shows("#words", /Key 1 (pressed|held)/);
  await touch("touchEnd", []);
  await shows("#words", "Key 1 released");
});

test("display and keys are in sight together, and stay there when keys are pressed", async (t) => {
  const {page} = await open(t, shared.url);
  for (const [width, height] of [[1280, 800], [1366, 768], [853, 533], [844, 390]]) {
    await page.setViewportSize({width, height});
    for (const key of ["ArrowDown", "9", "0"]) {
      await page.keyboard.press(key);
    }
    const face = await page.locator("#face").boundingBox();
    const keys = await page.locator("#keys").boundingBox();
    const size = `${width} x ${height}: ${JSON.stringify([face, keys])}`;
    assert.ok(face.y >= 0 && face.height >= 300 && face.width >= 500 && keys.y + keys.height <= height, size);
    assert.ok(keys.y >= face.y + face.height || keys.x >= face.x + face.width, size);
  }
});

test("a key is released when the server does not hear of it, when nobody sees the page, and when it closes", async (t) => {
  const {page, shows, key} = await open(t, shared.url, {losesConnection: true});
  const other = await open(t, shared.url);
  const beSeen = (seen) => page.evaluate((hidden) => {
    Object.defineProperty(document, "hidden", {value: hidden, configurable: true});
    document.dispatchEvent(new Event("visibilitychange"));
  }, !seen);
  const ends = [async () => {
    await page.route("**/keys", (route) => route.abort());
    await page.keyboard.up("Space");
    await shows("#words", "Key 1 released");
    await page.unroute("**/keys");
  }, async () => {
    await beSeen(false);
    await page.keyboard.up("Space");
    await key(1, {disabled: true}).waitFor();
    await beSeen(true);
    await shows("#words", "Key 1 released");
  }, () => page.close()];
  await key(1).focus();
  for (const end of ends) {
    await key(1, {disabled: false}).and(page.locator(":focus")).waitFor();
    await page.keyboard.down("Space");
    await other.key(1, {pressed: true}).waitFor();
    await end();
    await other.key(1, {pressed: false}).waitFor();
  }
});

test("a page says how the application ended, and starts it again; all text is legible in both schemes", async (t) => {
  const panelsim = await startPanelsim();
  const {page, shows, key} = await open(t, panelsim.url);
  execFileSync("pkill", ["-KILL", "-P", String(panelsim.pid)]);
  await shows("#banner-text", "The application ended by signal 9");
  await shows("#app-state", "ended");
  assert.ok(await key(0).isDisabled());
  for (const colorScheme of ["light", "dark"]) {
    await page.emulateMedia({colorScheme});
    assert.ok(await smallestContrast(page, ["h1", "#command", "#app-state", "#banner-text", "#restart", ".key", "dt",
      "#keys-help", "#controller", "#bus", ".line time", ".line .source:not(:empty)", ".line .text", "#clear"]) >= 4.5);
  }
  await page.getByRole("button", {name: "Start again"}).click();
  await shows("#words", "Events: 0");
  await page.locator("#banner").waitFor({state: "hidden"});
  await key(0).and(page.locator(":focus")).waitFor();
});

test("a page says that the connection is gone, and recovers by itself", async (t) => {
  const panelsim = await startPanelsim();
  const {page, shows, key} = await open(t, panelsim.url, {losesConnection: true});
  await page.keyboard.down("0");
  await key(0, {pressed: true}).waitFor();
  await page.getByRole("button", {name: "Clear"}).click();
  process.kill(panelsim.pid, "SIGSTOP");
  await page.getByText("Connection to panelsim is gone; trying again").waitFor();
  process.kill(panelsim.pid, "SIGCONT");
  await key(0, {pressed: false, disabled: false}).waitFor();
  await page.locator(".line").filter({hasText: "key 0 released"}).waitFor();
  assert.equal(await page.locator(".line").filter({hasText: "detected"}).count(), 0, "what was cleared stays so");
  await page.route("**/events", (route) => route.fulfill({status: 503})); // browsers give up after that
  await panelsim.stop();
  await page.getByText("panelsim does not accept this page; trying again").waitFor();
  await page.unroute("**/events");
  assert.ok(await key(0).isDisabled());
  await startPanelsim(new URL(panelsim.url).host);
  await page.locator("#banner").waitFor({state: "hidden"});
  await shows("#words", "Events: 0");
});

test("what the demo never does is shown too: names, bus faults, unused pins, a long log that is cleared", async (t) => {
  const line = (text, source = "") => ({time: 1, source, text});
  const many = Array.from({length: 1010}, (_, i) => line(`line ${i}`));
  const {page} = await open(t, shared.url, {events: [
    ["hello", {client: 1, version: "1", panel: "indoor", command: "./app", keys: ["Up"]}],
    ["log", {first: 7, lines: many}],
    ["log", {first: 1015, lines: [line("begi"), line("<b>next</b>", "stderr")]}],
    ["log", {first: 1015, lines: [line("begun"), line("<b>last</b>", "stderr")]}],
    ["state", {app: {running: true, text: "running", hint: ": not used any pin yet"}, keys: [true], controller: "none",
      svg: "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 2 1'><desc/></svg>",
      bus: ["9 bus faults", "strobe too short"], hasBusFaults: true}],
  ]});
  assert.match(await page.locator("dl").innerText(), /not used any pin yet[^]*9 bus faults\s+strobe too short/);
  await page.getByRole("button", {name: "Up", pressed: true}).waitFor();
  assert.match(await page.locator("#log-lines").innerText(), /line 1007\D[^]*begun[^]*stderr\s+<b>last<\/b>$/);
  assert.equal(await page.locator(".line").count(), 1000);
  assert.ok(await page.locator(".line").last().evaluate((last) => last.getBoundingClientRect().bottom <=
    document.querySelector("#log-lines").getBoundingClientRect().bottom), "the end of the log is in sight");
  await page.getByRole("button", {name: "Clear"}).click();
  assert.equal(await page.locator(".line").count(), 0);
});

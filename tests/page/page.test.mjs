// Drives the page of the real simulator, with the tool's demo as its application, in a browser.
// PANELSIM and FRONTPANEL are the paths of the two programs, CHROMIUM that of the browser.
import assert from "node:assert/strict";
import {spawn} from "node:child_process";
import {once} from "node:events";
import {readFileSync, readdirSync} from "node:fs";
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
  const lines = createInterface({input: child.stderr});
  const url = new Promise((resolve) => lines.on("line", (line) => {
    const found = /the panel is at (http:\/\/\S+)/.exec(line);
    return found && resolve(found[1]);
  }));
  const died = ended.then(([status]) => assert.fail(`panelsim ended with ${status} before it served the page`));
  return {pid: child.pid, stop, url: await Promise.race([url, died])};
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
    let answered = false; // once: another answer would begin anew
    await page.route("**/events", (route) => {
      const answer = answered ? undefined : route.fulfill({contentType: "text/event-stream", body});
      answered = true;
      return answer;
    });
  }
  await page.goto(url);
  await shows(...(events ? ["#app-text", "running"] : ["#display-lines", "Front panel"]));
  return {page, posts, shows, key};
}

/** Smallest contrast between the text of elements and the background behind it, as WCAG defines it. */
function smallestContrast(page, selectors) {
  return page.evaluate((wanted) => {
    const numbers = (colour) => colour.match(/[\d.]+/g).map(Number);
    const linear = (value) => (value <= 0.04045 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4);
    const luminance = (colour) => {
      const [r, g, b] = numbers(colour).map((value) => linear(value / 255));
      return 0.2126 * r + 0.7152 * g + 0.0722 * b;
    };
    const backgroundOf = (node) => {
      const colour = getComputedStyle(node).backgroundColor;
      return numbers(colour)[3] === 0 ? backgroundOf(node.parentElement) : colour;
    };
    return Math.min(...wanted.map((selector) => {
      const node = document.querySelector(selector);
      const [light, dark] = [getComputedStyle(node).color, backgroundOf(node)].map(luminance).sort((a, b) => b - a);
      return (light + 0.05) / (dark + 0.05);
    }));
  }, selectors);
}

function killApplication(panelsimPid) {
  const tasks = readdirSync(`/proc/${panelsimPid}/task`);
  const childrenOf = (task) => readFileSync(`/proc/${panelsimPid}/task/${task}/children`, "utf8").split(" ");
  const isApplication = (pid) => pid && readFileSync(`/proc/${pid}/cmdline`, "utf8").includes("frontpanel");
  process.kill(Number(tasks.flatMap(childrenOf).find(isApplication)), "SIGKILL");
}

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
  await shows("#app-text", "running");
  await shows("#display-lines li", /Front panel \(inverted: 1 to 25\)/);
  await shows("#controller", "RA8806 (identified by the application)");
  await shows("#bus-text", "no bus faults");
  assert.equal(await page.getByRole("img", {name: "Front panel"}).count(), 1);
  await key(0).hover();
  await page.mouse.down();
  await key(0, {pressed: true}).getByText("pressed").waitFor();
  await shows("#led-state", "Lit LEDs: 0");
  await shows("#face text", /^on$/);
  await shows("#display-lines", /Key 0 held \(([2-9]|\d\d+) repeats\)/);
  await page.mouse.move(0, 0);
  await page.mouse.up();
  await shows("#display-lines", "Key 0 released");
  await shows("#led-state", "No LED is lit.");
  await shows(".line", /^stdout.*key.* 0/);
  await key(0, {pressed: false}).waitFor();
});

test("the keyboard presses keys: digits anywhere, Space and Enter on a key that has the focus", async (t) => {
  const {page, posts, shows, key} = await open(t, shared.url);
  await page.keyboard.down("1");
  await shows("#display-lines", /Key 1 (pressed|held)/);
  await page.keyboard.down("1"); // as auto-repeat does
  await page.evaluate(() => dispatchEvent(new Event("blur")));
  await shows("#display-lines", "Key 1 released");
  await page.keyboard.up("1");
  for (const name of ["Space", "Enter"]) {
    await key(2).focus();
    await page.keyboard.down(name);
    await shows("#display-lines", /Key 2 (pressed|held)/);
    await page.keyboard.up(name);
    await shows("#display-lines", "Key 2 released");
  }
  await page.keyboard.press("Control+0");
  await page.keyboard.press("0");
  await key(1).evaluate((button) => button.click()); // as a screen reader does
  while (posts.length < 10) {
    await page.waitForRequest("**/keys");
  }
  assert.deepEqual(posts.map((post) => [post.key, post.pressed]),
    [1, 2, 2, 0, 1].flatMap((number) => [[number, true], [number, false]]));
});

test("a key touched ever so briefly stays pressed until the application has seen it", async (t) => {
  const {page, posts, shows, key} = await open(t, shared.url);
  await page.clock.install();
  await page.reload(); // without timers of before
  await page.clock.pauseAt(Date.now() + 600_000);
  await key(1, {disabled: false}).waitFor(); // so much time without a word, and the page has connected again
  await page.keyboard.press("1");
  await shows("#display-lines", /Key 1 (pressed|held)/);
  await page.clock.runFor(40);
  assert.equal(posts.length, 1);
  await page.clock.runFor(40);
  await shows("#display-lines", "Key 1 released");
  await page.clock.runFor(100);
  await page.keyboard.down("1");
  await shows("#display-lines", /Key 1 (pressed|held)/);
  await page.clock.runFor(100);
  await page.evaluate(() => dispatchEvent(new Event("pagehide"))); // no timer runs any more
  await shows("#display-lines", "Key 1 released");
});

test("on a phone a finger holds a key, and nothing is wider than the screen", async (t) => {
  const options = {viewport: {width: 360, height: 740}, hasTouch: true, isMobile: true};
  const {page, shows, key} = await open(t, shared.url, options);
  assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 360);
  await key(1).scrollIntoViewIfNeeded();
  const {x, y} = await key(1).boundingBox();
  const devtools = await page.context().newCDPSession(page);
  const touch = (type, touchPoints) => devtools.send("Input.dispatchTouchEvent", {type, touchPoints});
  await touch("touchStart", [{x: x + 10, y: y + 10}]);
  await shows("#display-lines", /Key 1 (pressed|held)/);
  await touch("touchEnd", []);
  await shows("#display-lines", "Key 1 released");
});

test("a key is released even when the server does not hear of it, and when nobody sees the page", async (t) => {
  const {page, shows, key} = await open(t, shared.url, {losesConnection: true});
  await key(1).focus();
  await page.keyboard.down("Space");
  await shows("#display-lines", /Key 1 (pressed|held)/);
  await page.route("**/keys", (route) => route.abort());
  await page.keyboard.up("Space");
  await shows("#display-lines", "Key 1 released");
  await page.unroute("**/keys");
  await key(1, {disabled: false}).and(page.locator(":focus")).waitFor();
  const beSeen = (seen) => page.evaluate((hidden) => {
    Object.defineProperty(document, "hidden", {value: hidden, configurable: true});
    document.dispatchEvent(new Event("visibilitychange"));
  }, !seen);
  await page.keyboard.down("2");
  await shows("#display-lines", /Key 2 (pressed|held)/);
  await beSeen(false);
  await key(1, {disabled: true}).waitFor();
  await beSeen(true);
  await shows("#display-lines", "Key 2 released");
  await key(1, {disabled: false}).and(page.locator(":focus")).waitFor();
});

test("a second page shows the same, and a page that closes lets go of its keys", async (t) => {
  const first = await open(t, shared.url);
  const second = await open(t, shared.url);
  await first.page.keyboard.down("0");
  await second.key(0, {pressed: true}).waitFor();
  await second.shows("#led-state", "Lit LEDs: 0");
  await first.page.close();
  await second.key(0, {pressed: false}).waitFor();
  await second.shows("#display-lines", "Key 0 released");
});

test("a page says how the application ended, and starts it again; all text is legible in both schemes", async (t) => {
  const panelsim = await startPanelsim();
  const pages = [];
  for (const colorScheme of ["light", "dark"]) {
    pages.push(await open(t, panelsim.url, {colorScheme}));
  }
  killApplication(panelsim.pid);
  for (const {page, shows} of pages) {
    await shows("#ended:not([hidden])", "The application ended by signal 9");
    await shows("#app-state", "ended");
    const texts = ["h1", "#command", "#app-state", "#ended-text", "#restart", ".key-name", "#keys-help", "dt",
      "#controller", "#bus-text", ".line .source", ".line .text", "#version"];
    assert.ok(await smallestContrast(page, texts) >= 4.5);
  }
  await pages[0].page.getByRole("button", {name: "Start again"}).click();
  await pages[0].shows("#app-state", "running");
  await pages[0].shows("#display-lines", "Events: 0");
  await pages[0].page.locator("#ended").waitFor({state: "hidden"});
  await pages[0].key(0).and(pages[0].page.locator(":focus")).waitFor();
});

test("a page says that the connection is gone, and recovers by itself", async (t) => {
  const panelsim = await startPanelsim();
  const {page, shows, key} = await open(t, panelsim.url, {losesConnection: true});
  await page.keyboard.down("0");
  await key(0, {pressed: true}).waitFor();
  process.kill(panelsim.pid, "SIGSTOP");
  await page.getByText("Connection to panelsim is gone; trying again").waitFor();
  process.kill(panelsim.pid, "SIGCONT");
  await key(0, {pressed: false, disabled: false}).waitFor();
  await page.route("**/events", (route) => route.fulfill({status: 503})); // browsers give up after that
  await panelsim.stop();
  await page.getByText("panelsim does not accept this page; trying again").waitFor();
  await page.unroute("**/events");
  await page.getByText("Connection to panelsim is gone; trying again").waitFor();
  assert.ok(await key(0).isDisabled());
  await startPanelsim(new URL(panelsim.url).host);
  await page.locator("#gone").waitFor({state: "hidden"});
  await key(0, {pressed: false, disabled: false}).waitFor();
  await shows("#display-lines", "Events: 0");
});

test("what the demo never does is shown too: bus faults, no display, unused pins, a long log", async (t) => {
  const line = (text) => ({source: "error", text});
  const app = {phase: "running", text: "running", restart: false};
  const openWith = (lines, lcd, busFaults) => open(t, shared.url, {events: [
    ["hello", {client: "1", version: "1", panel: "outdoor", command: "./app", keyCount: 0}],
    ["log", {first: 7, lines: [line("begi"), line("<b>next</b>")]}],
    ["log", {first: 7, lines: [line("begin")]}],
    ["log", {first: 9, lines}],
    ["state", {app, leds: [], keys: [], lcd, svg: "<svg/>", busFaults, pinOperations: false}],
  ]});
  const outdoor = await openWith([line("last")], null, {count: 0, first: []});
  assert.deepEqual(await outdoor.page.locator(".line .text").allTextContents(), ["begin", "<b>next</b>", "last"]);
  assert.match(await outdoor.page.locator("dl").innerText(), /has not used any pin yet[^]*no display(?![^]*bus)/);

  const lcd = {chip: "RA8803", displayOn: false, backlight: true, contrast: 7, lines: [], inverted: []};
  const many = Array.from({length: 1010}, (_, i) => line(`line ${i}`));
  const faulty = await openWith(many, {...lcd, identified: false}, {count: 9, first: ["strobe too short"]});
  const details = await faulty.page.locator("dl").innerText();
  assert.match(details, /RA8803 \(not identified yet\)[^]*9 bus faults\s+strobe too short\s+and 8 more/);
  assert.equal(await faulty.page.locator(".line").count(), 1000);
  assert.ok(await faulty.page.getByText("line 1009").evaluate((last) => last.getBoundingClientRect().bottom <=
    document.querySelector("#log-lines").getBoundingClientRect().bottom), "the end of the log is in sight");
});

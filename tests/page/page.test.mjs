// Drives the page of the real simulator, with the tool's demo as its application, in a browser.
// PANELSIM and FRONTPANEL are the paths of the two programs, CHROMIUM that of the browser.
import assert from "node:assert/strict";
import {execFileSync, spawn} from "node:child_process";
import {once} from "node:events";
import {after, before, test} from "node:test";
import {chromium} from "playwright-core";

const {PANELSIM, FRONTPANEL, CHROMIUM = "/usr/bin/chromium"} = process.env;
const started = [];
let browser;
let shared;

async function startPanelsim(address = "127.0.0.1:0") {
  const options = ["--http", address, "--stay", "--", FRONTPANEL, "demo", "--lamp-seconds", "1"];
  const child = spawn(PANELSIM, options, {stdio: ["ignore", "ignore", "pipe"]});
  started.push(child);
  const place = /the panel is at (http:\S+)\n/;
  let said = "";
  while (!place.test(said)) {
    said += await once(child.stderr, "data");
  }
  child.stderr.resume();
  return {child, url: place.exec(said)[1]};
}

/** Opens the page as a user of their own would, and waits until it shows what is expected. */
async function open(t, url) {
  const context = await browser.newContext();
  const page = await context.newPage();
  page.setDefaultTimeout(60_000);
  const complaints = [];
  const posts = [];
  page.on("pageerror", (error) => complaints.push(String(error)));
  page.on("console", (message) => message.type() === "error" && complaints.push(message.text()));
  page.on("request", (request) => request.method() === "POST" && posts.push(request.postDataJSON()));
  t.after(async () => {
    await context.close();
    assert.deepEqual(complaints.filter((each) => !each.startsWith("Failed to load resource")), []); // of a lost connection
  });
  await page.goto(url);
  const shows = (wanted, where = "#words") =>
    page.locator(where).filter({hasText: wanted}).first().waitFor({state: "attached"});
  const key = (number, more = {}) => page.getByRole("button", {name: `Key ${number}`, exact: true, ...more});
  await shows("Front panel");
  return {page, posts, shows, key};
}

before(async () => {
  shared = await startPanelsim();
  browser = await chromium.launch({executablePath: CHROMIUM, args: ["--no-sandbox", "--disable-gpu"]});
});

after(async () => {
  await browser?.close();
  started.forEach((child) => child.kill());
});

test("keys reach the application by mouse and keyboard, and it answers on display, LEDs and log", async (t) => {
  const {page, posts, shows, key} = await open(t, shared.url);
  await shows(/Front panel \(inverted: 1 to 25\)/);
  await shows(/digit keys 0 to 2[^]*RA8806 \(identified by the application\)/, "main");
  assert.equal(await page.getByRole("img", {name: "Front panel"}).count(), 1);
  const happens = (name) => () => page.evaluate((type) => dispatchEvent(new Event(type)), name);
  await key(0).hover();
  await page.mouse.down();
  await shows(/Key 0 (pressed|held)[^]*Lit LEDs: 0/);
  await page.mouse.move(0, 0);
  await page.mouse.up();
  await shows(/Key 0 released[^]*Lit LEDs: none/);
  await shows(/^\d\d:\d\d:\d\d\.\d{3}key 0 released/, ".line");
  const ways = [["1", 1, happens("blur")], ["Space", 2], ["0", 0, happens("pagehide")]];
  for (const [name, number, end = () => page.keyboard.up(name)] of ways) {
    await key(number).focus();
    await page.keyboard.down(name);
    await shows(new RegExp(`Key ${number} (pressed|held)`));
    await key(number, {pressed: true}).waitFor();
    await page.keyboard.down(name); // as auto-repeat does
    await end();
    await shows(`Key ${number} released`);
    await page.keyboard.up(name);
  }
  await page.keyboard.press("1"); // so briefly that it has to be held until the application has seen it
  await shows("Key 1 released");
  assert.deepEqual(posts.map((post) => [post.key, post.pressed]),
    [0, 1, 2, 0, 1].flatMap((number) => [[number, true], [number, false]]));
});

test("display and keys are in sight together, and stay there when keys are pressed", async (t) => {
  const {page} = await open(t, shared.url);
  await page.setViewportSize({width: 360, height: 740});
  assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 360);
  for (const [width, height] of [[1280, 800], [1366, 768], [853, 533], [844, 390]]) {
    await page.setViewportSize({width, height});
    for (const key of ["ArrowDown", "9", "0"]) {
      await page.keyboard.press(key);
    }
    const [face, keys] = await Promise.all(["#face", "#keys"].map((part) => page.locator(part).boundingBox()));
    const size = `${width} x ${height}: ${JSON.stringify([face, keys])}`;
    assert.ok(face.y >= 0 && face.height >= 300 && face.width >= 500 && keys.y + keys.height <= height, size);
    assert.ok(keys.y >= face.y + face.height || keys.x >= face.x + face.width, size);
  }
});

test("a page says how the application ended, and starts it again; it says that the connection is gone, and recovers", async (t) => {
  const {child, url} = await startPanelsim();
  const {page, shows, key} = await open(t, url);
  execFileSync("pkill", ["-KILL", "-P", String(child.pid)]);
  await shows(/ended[^]*The application ended by signal 9/, "body");
  await shows(/./, ".line.panelsim");
  await key(0, {disabled: true}).waitFor();
  await page.getByRole("button", {name: "Start again"}).click();
  await shows("Events: 0");
  await page.locator("#banner").waitFor({state: "hidden"});
  await key(0).and(page.locator(":focus")).waitFor();
  await page.keyboard.down("0");
  await shows(/Key 0 (pressed|held)/);
  await page.getByRole("button", {name: "Clear"}).click();
  child.kill("SIGSTOP");
  await shows("Connection to panelsim is gone; trying again", "#banner");
  child.kill("SIGCONT");
  await key(0, {pressed: false, disabled: false}).waitFor();
  await shows("key 0 released", ".line");
  assert.equal(await page.locator(".line").filter({hasText: "detected"}).count(), 0, "what was cleared stays so");
  child.kill();
  await once(child, "exit");
  await key(0, {disabled: true}).waitFor();
  await startPanelsim(new URL(url).host);
  await page.locator("#banner").waitFor({state: "hidden"});
  await shows("Events: 0");
});

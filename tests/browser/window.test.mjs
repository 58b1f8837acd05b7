// Drives the status window page in the system's Chromium against a running service over a
// fresh installation tree: counters and lists after a pass, ticking "Accept External Query"
// and the next external status query, and the double-click dialog of the domain list.
//
// Usage: node window.test.mjs SERVICE_COMMAND... (the program and its arguments: `quellor -debug`).
// The screenshot goes to $QUELLOR_SCREENSHOT (default: none).
//
// An external peer is simulated with a connection from 127.0.0.2: it is on this machine, but it
// does not read exactly "127.0.0.1", so the service treats it as any other host.

import { spawn } from "node:child_process";
import fs from "node:fs";
import net from "node:net";
import os from "node:os";
import path from "node:path";
import { chromium } from "playwright-core";

const command = process.argv.slice(2);
if (command.length === 0) {
  console.error("usage: node window.test.mjs SERVICE_COMMAND...");
  process.exit(2);
}

let passed = 0;
let failed = 0;
function check(what, ok, detail = "") {
  if (ok) {
    passed++;
    console.log(`ok - ${what}`);
  } else {
    failed++;
    console.log(`not ok - ${what}${detail ? ": " + detail : ""}`);
  }
}

function freePort() {
  return new Promise((resolve, reject) => {
    const server = net.createServer();
    server.on("error", reject);
    server.listen(0, "127.0.0.1", () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

// One status query from `localAddress`; resolves with every byte received until the close.
function statusQuery(port, localAddress) {
  return new Promise((resolve, reject) => {
    const chunks = [];
    const socket = net.connect({ host: "127.0.0.1", port, localAddress });
    socket.setTimeout(5000, () => socket.destroy(new Error("status query timed out")));
    socket.on("data", (d) => chunks.push(d));
    socket.on("end", () => resolve(Buffer.concat(chunks).toString("latin1")));
    socket.on("error", reject);
  });
}

async function statusQueryRetrying(port, localAddress) {
  for (let i = 0; ; i++) {
    try {
      return await statusQuery(port, localAddress);
    } catch (e) {
      // Nothing listens while another reply is in flight: clients retry.
      if (i >= 50) throw e;
      await new Promise((r) => setTimeout(r, 50));
    }
  }
}

function makeTree(root) {
  for (const dir of ["IN", "LOCAL", "OUT", "WAIT", "DEBUG", "Users", "SYSTEM", "LOG", "LOG/quellor"])
    fs.mkdirSync(path.join(root, dir), { recursive: true });
  const crlf = (lines) => lines.map((l) => l + "\r\n").join("");
  fs.writeFileSync(path.join(root, "quellor.ini"), crlf(["DEBUG=ON", "POSTMASTERS=postmaster@example.org"]));
  fs.writeFileSync(path.join(root, "DOMAIN.LST"), crlf(["example.org"]));
  // Mail for a user without configuration is forwarded and counted under its domain; the Start
  // command passes it at start-up. The envelope is written first and the message last, as the
  // host server does.
  fs.writeFileSync(path.join(root, "IN", "M0001.WAI"), crlf(["alice@remote.example", "bob@example.org"]));
  fs.writeFileSync(
    path.join(root, "IN", "M0001.EML"),
    crlf(["From: alice@remote.example", "To: bob@example.org", "Subject: <b>Hello</b>", "", "Hi"]),
  );
}

const work = fs.mkdtempSync(path.join(os.tmpdir(), "quellor-browser-"));
const root = path.join(work, "root") + "/";
makeTree(root);
const statusPort = await freePort();
const windowPort = await freePort();
const env = {
  ...process.env,
  QUELLOR_ROOT: root,
  QUELLOR_STATUS_PORT: String(statusPort),
  QUELLOR_WINDOW_PORT: String(windowPort),
};

const service = spawn(command[0], command.slice(1), { env, stdio: ["ignore", "pipe", "inherit"] });
service.stdout.on("data", () => {});
let browser;
try {
  const base = `http://127.0.0.1:${windowPort}`;
  // The page is there once the service has started.
  for (let i = 0; ; i++) {
    try {
      const r = await fetch(base + "/");
      if (r.ok) break;
    } catch (e) {
      if (i >= 100) throw new Error("the window page did not come up");
    }
    await new Promise((r) => setTimeout(r, 100));
  }

  browser = await chromium.launchPersistentContext(path.join(work, "profile"), {
    executablePath: "/usr/bin/chromium",
    headless: true,
    args: [
      "--headless",
      "--no-sandbox",
      "--disable-gpu",
      "--disable-quic",
      "--no-first-run",
      "--disable-background-networking",
      "--disable-component-update",
      "--disable-sync",
    ],
    viewport: { width: 1100, height: 640 },
  });
  const page = browser.pages()[0] ?? (await browser.newPage());
  const pageErrors = [];
  page.on("pageerror", (e) => pageErrors.push(String(e)));
  page.on("console", (m) => {
    if (m.type() === "error") pageErrors.push(m.text());
  });
  await page.goto(base + "/");

  // The pass forwards the message; the page refreshes itself until it shows it.
  await page.waitForFunction(() => document.getElementById("Forward").textContent === "1", null, {
    timeout: 15000,
  });
  const title = await page.title();
  check("title carries the start-up time", / - Running since \d\d [A-Z][a-z]{2} \d{4} \d\d:\d\d:\d\d$/.test(title), title);
  const text = (sel) => page.locator(sel).textContent();
  check("Forward total", (await text("#Forward")) === "1");
  check("Forward today", (await text("#todayforward")) === "1");
  check("queue counted down", (await text("#total")) === "0");
  for (const label of ["Forward:", "Learn:", "Quellor:", "Validations:", "Purged:", "Invalid Val:", "In Queue:", "Header:"])
    check(`label ${label}`, (await page.locator("#counters th", { hasText: label }).count()) === 1);
  for (const caption of ["Start Up Time", "Config", "Incoming Mails", "Local Mails", "Validations", "Warnings", "Purged Emails", "Local postmasters", "In Queue"])
    check(`frame ${caption}`, (await page.locator("legend", { hasText: new RegExp(`^${caption}$`) }).count()) === 1);
  check("postmasters list", (await page.locator("#List1 option").allTextContents()).join() === "postmaster@example.org");
  const domains = await page.locator("#domainlist option").allTextContents();
  check("incoming domain counted", domains.join() === "example.org:1", domains.join());
  check("Start button disabled", await page.locator("#Command1").isDisabled());
  check("check box unticked", !(await page.locator("#Check1").isChecked()));

  // An external query is refused until the box is ticked.
  const refused = await statusQueryRetrying(statusPort, "127.0.0.2");
  check("external query refused with CR LF alone", refused === "\r\n", JSON.stringify(refused));
  const posted = page.waitForResponse((r) => r.url().endsWith("/check1") && r.request().method() === "POST");
  await page.locator("#Check1").check();
  check("tick accepted by the service", (await posted).status() === 200);
  const answered = await statusQueryRetrying(statusPort, "127.0.0.2");
  const lines = answered.split("\r\n");
  check(
    "external query answered after ticking",
    answered.endsWith("\r\n") && lines[0] === `START UP TIME=${title.split(" - Running since ")[1]}` && lines[1] === "FORWARD=1" &&
      lines.length === 13 && lines[11] === "DOMAIN=example.org:1",
    JSON.stringify(answered),
  );
  // Survives a refresh: the box shows the service's state.
  await page.reload();
  check("ticked box kept after reload", await page.locator("#Check1").isChecked());

  if (process.env.QUELLOR_SCREENSHOT) await page.screenshot({ path: process.env.QUELLOR_SCREENSHOT });

  // A double-click on a line of the domain list shows it in a dialog.
  await page.locator("#domainlist option").first().dblclick();
  const dialog = page.locator("#msgbox");
  await dialog.waitFor({ state: "visible", timeout: 5000 });
  check("dialog shows the double-clicked line", (await page.locator("#msgtext").textContent()) === "example.org:1");
  await page.locator("#msgok").click();
  check("dialog closes with OK", !(await dialog.isVisible()));
  // The postmasters list has no double-click action.
  await page.locator("#List1 option").first().dblclick();
  check("no dialog for the postmasters list", !(await dialog.isVisible()));
  check("no script errors", pageErrors.length === 0, pageErrors.join("; "));
} catch (e) {
  check("browser test ran to its end", false, e.stack || String(e));
} finally {
  if (browser) await browser.close().catch(() => {});
  service.kill("SIGTERM");
  await new Promise((r) => (service.exitCode !== null ? r() : service.on("exit", r)));
  fs.rmSync(work, { recursive: true, force: true });
}
console.log(`browser: ${passed} passed, ${failed} failed`);
process.exit(failed === 0 ? 0 : 1);

// Drives Debian's chromium (headless, through playwright-core) through the
// dashboard: served by the gateway and opened from file://. The browser is
// started through browser-launcher.sh, which writes its PID to a file at
// once, so the caller can stop it whatever happens here.
//   node dashboard_test.mjs <gateway url> <page file> <screenshot dir> <launcher>
import { chromium } from "playwright-core";
import { join } from "node:path";
import { pathToFileURL } from "node:url";

const [gatewayUrl, pageFile, shotDir, launcher] = process.argv.slice(2);
// Bounds for a loaded machine; the jobs of the simulator take 3 s.
const STEP_TIMEOUT_MS = 30000;

// No traffic may leave the machine: every name but 127.0.0.1 fails to
// resolve, and the browser's own background requests are off.
const FLAGS = [
  "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
  "--disable-background-networking", "--disable-component-update", "--disable-sync",
  "--disable-default-apps", "--disable-extensions", "--no-default-browser-check",
  "--disable-client-side-phishing-detection", "--metrics-recording-only",
  "--host-resolver-rules=MAP * ~NOTFOUND , EXCLUDE 127.0.0.1",
];

const failures = [];
function check(ok, what) {
  if (!ok) failures.push(what);
  console.log((ok ? "ok   " : "FAIL ") + what);
}

// The browser gets a new, empty profile of its own. The launcher starts it
// only while this process lives (it compares its parent with this PID).
process.env.XMLRPCS_DRIVER_PID = String(process.pid);
const server = await chromium.launchServer({
  executablePath: launcher, headless: true, args: FLAGS, env: process.env,
});
console.log("browser-pid " + server.process().pid);
const browser = await chromium.connect(server.wsEndpoint());
const context = await browser.newContext({ viewport: { width: 1280, height: 1100 } });

const consoleErrors = [];
function watch(page, where) {
  page.on("console", m => { if (m.type() === "error") consoleErrors.push(where + ": " + m.text()); });
  page.on("pageerror", e => consoleErrors.push(where + ": " + e.message));
  page.setDefaultTimeout(STEP_TIMEOUT_MS);
}

const row = (page, table, id) => page.locator(`#${table} tr[data-id="${id}"]`);
const cellText = (page, table, id, n) => row(page, table, id).locator("td").nth(n).innerText();

async function submit(page, name) {
  await page.fill("#submit-name", name);
  await page.click("#submit-button");
  await page.waitForFunction(() => /^submitted wf-\d+$/.test(
    document.getElementById("submit-result").textContent));
  return (await page.innerText("#submit-result")).split(" ")[1];
}

async function waitForState(page, table, id, state) {
  await page.waitForFunction(([t, i, s]) => {
    const r = document.querySelector(`#${t} tr[data-id="${i}"] .state`);
    return r && r.textContent.startsWith(s);
  }, [table, id, state]);
}

try {
  // --- served by the gateway ---
  const page = await context.newPage();
  watch(page, "gateway page");
  const response = await page.goto(gatewayUrl);
  check(response.status() === 200, "GET / answers the page");
  await page.waitForFunction(() => document.getElementById("version").textContent.includes("7.0.0.0"));
  check((await page.innerText("#version")).includes("Corvane Client Proxy 7.0.0.0"), "the version is shown");

  // A workflow submitted from the form runs to 100 %.
  const done = await submit(page, "browser-test");
  await waitForState(page, "workflows", done, "finished");
  const bar = row(page, "workflows", done).locator("[role=progressbar]");
  check(await bar.getAttribute("aria-valuenow") === "100", "its progress bar reached 100 %");
  check((await bar.innerText()).trim() === "100 %", "the bar says 100 %");

  // Pause and resume a job with its buttons.
  const paused = await submit(page, "to-pause");
  const jobId = (await cellText(page, "workflows", paused, 4)).trim();
  await row(page, "jobs", jobId).getByRole("button", { name: "Pause" }).click();
  await waitForState(page, "jobs", jobId, "paused");
  check(true, "Pause paused the job");
  await row(page, "jobs", jobId).getByRole("button", { name: "Resume" }).click();
  await waitForState(page, "jobs", jobId, "finished");
  check(true, "Resume let it finish");

  // Cancel another workflow.
  const cancelled = await submit(page, "to-cancel");
  await row(page, "workflows", cancelled).getByRole("button", { name: "Cancel" }).click();
  await waitForState(page, "workflows", cancelled, "cancelled");
  check(true, "Cancel cancelled the workflow");

  // The method explorer: help text, a call and its reply.
  await page.waitForFunction(() => document.querySelectorAll("#explorer-method option").length >= 44);
  await page.selectOption("#explorer-method", "statusWorkflows2");
  await page.waitForFunction(() => document.getElementById("explorer-help").textContent
    .includes("proxy.node.status.workflows2"));
  check(true, "the explorer shows the method's help");
  await page.fill("#explorer-params", JSON.stringify({ "workflow-ids": [done] }));
  await page.click("#explorer-call");
  await page.waitForFunction(() => document.getElementById("explorer-reply").textContent.includes('"state"'));
  const reply = JSON.parse(await page.innerText("#explorer-reply"));
  check(reply.workflows?.[0]?.["workflow-id"] === done && reply.workflows[0].state === "finished",
        "the explorer's call answered the workflow's status");
  // A refusal shows in the page.
  await page.selectOption("#explorer-method", "jobPause");
  await page.fill("#explorer-params", JSON.stringify({ "job-id": "job-999" }));
  await page.click("#explorer-call");
  await page.waitForFunction(() => document.getElementById("explorer-reply").textContent.includes("unknown job"));
  check(true, "the explorer shows a refusal's error member");
  check((await page.innerText("#errors")) === "", "no error shown in the page");
  await page.screenshot({ path: join(shotDir, "dashboard-gateway.png"), fullPage: true });

  // --- opened from disk: posts text/plain to the gateway ---
  const local = await context.newPage();
  watch(local, "file page");
  const fileUrl = pathToFileURL(pageFile).href + "?server=" + encodeURIComponent(gatewayUrl);
  await local.goto(fileUrl);
  await local.waitForFunction(() => document.getElementById("version").textContent.includes("7.0.0.0"));
  check(true, "from file:// the version is shown");
  await local.waitForSelector(`#workflows tr[data-id="${done}"]`);
  check(true, "from file:// the workflows are listed");
  const fromDisk = await submit(local, "from-disk");
  await waitForState(local, "workflows", fromDisk, "finished");
  check(true, "from file:// a submitted workflow finishes");
  await local.screenshot({ path: join(shotDir, "dashboard-file.png"), fullPage: true });

  // A server that is not there: the error shows in the page, within the time-out.
  const errorsBefore = consoleErrors.length;
  await local.fill("#server", "http://127.0.0.1:40499/");  // nothing listens there
  await local.dispatchEvent("#server", "change");
  await local.waitForFunction(() => document.getElementById("errors").textContent.includes("not reachable"));
  check(true, "an unreachable server is reported in the page");
  // That failure is expected to be logged by the browser; nothing else may be.
  const unexpected = consoleErrors.filter(
    (e, i) => i < errorsBefore || !/ERR_CONNECTION_REFUSED/.test(e));
  check(unexpected.length === 0, "no console errors: " + JSON.stringify(unexpected));
} catch (e) {
  failures.push(String(e && e.stack || e));
  console.log("FAIL " + e);
} finally {
  await browser.close().catch(() => {});
  await server.close().catch(() => {});
}
console.log(failures.length ? "dashboard test: " + failures.length + " failed" : "dashboard test: all passed");
process.exit(failures.length ? 1 : 0);

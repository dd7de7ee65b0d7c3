// A private world for the station's end-to-end tests and benchmarks: nats-server with JetStream
// and its WebSocket listener on free loopback ports, the worker service, the alarms process when
// it is built, a publisher, and headless Chromium through playwright-core. Everything started
// here is stopped by stop(), and every wait is bounded.
import { spawn, spawnSync } from "node:child_process";
import { existsSync, mkdtempSync, rmSync, writeFileSync, mkdirSync } from "node:fs";
import { createServer } from "node:net";
import { tmpdir } from "node:os";
import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";

const here = dirname(fileURLToPath(import.meta.url));
export const WEB = resolve(here, "..");
export const ROOT = resolve(WEB, "..");
export const BUILD = resolve(process.env.RTM_BUILD_DIR ?? join(ROOT, "build"));
export const CHROMIUM = process.env.RTM_CHROMIUM ?? "/usr/bin/chromium";
export const bin = (name) => join(BUILD, name);

export const sleep = (ms) => new Promise((r) => setTimeout(r, ms));

// What is missing for the end-to-end run, or null.
export function missing() {
  const which = (c) => spawnSync("sh", ["-c", `command -v ${c}`]).status === 0;
  if (!which("nats-server")) return "nats-server is not installed (apt-get install nats-server)";
  if (!existsSync(CHROMIUM)) return `${CHROMIUM} is missing (apt-get install chromium)`;
  if (!existsSync(join(WEB, "node_modules", "playwright-core"))) return "web/node_modules is missing (run npm ci in web/)";
  for (const b of ["rtmonitor", "rtmonitor-serve"])
    if (!existsSync(bin(b))) return `${bin(b)} is not built`;
  return null;
}

export async function freePort() {
  return new Promise((res, rej) => {
    const s = createServer();
    s.once("error", rej);
    s.listen(0, "127.0.0.1", () => {
      const { port } = s.address();
      s.close(() => res(port));
    });
  });
}

export async function waitFor(what, fn, timeoutMs, everyMs = 100) {
  const end = Date.now() + timeoutMs;
  let last;
  while (Date.now() < end) {
    try {
      last = await fn();
      if (last) return last;
    } catch (e) {
      last = e;
    }
    await sleep(everyMs);
  }
  throw new Error(`timed out after ${timeoutMs} ms waiting for ${what} (last: ${last})`);
}

export class World {
  constructor({ partitions = 8 } = {}) {
    this.partitions = partitions;
    this.procs = [];
    this.dir = mkdtempSync(join(tmpdir(), "rtm-station-"));
    this.browser = null;
  }

  spawn(name, cmd, args, opts = {}) {
    const p = spawn(cmd, args, { stdio: ["ignore", "pipe", "pipe"], ...opts });
    p.logName = name;
    p.out = "";
    p.stdout.on("data", (d) => (p.out += d));
    p.stderr.on("data", (d) => (p.out += d));
    p.exited = new Promise((r) => p.on("exit", (code, sig) => r({ code, sig })));
    this.procs.push(p);
    return p;
  }

  async startServer() {
    this.natsPort = await freePort();
    this.wsPort = await freePort();
    this.natsUrl = `nats://127.0.0.1:${this.natsPort}`;
    this.wsUrl = `ws://127.0.0.1:${this.wsPort}`;
    const conf = join(this.dir, "nats.conf");
    writeFileSync(conf, `listen: 127.0.0.1:${this.natsPort}
jetstream { store_dir: "${join(this.dir, "store")}" }
websocket { listen: "127.0.0.1:${this.wsPort}", no_tls: true }
mappings: {
  "rtm.frames.*": "rtm.part.{{partition(${this.partitions},1)}}.{{wildcard(1)}}"
}
`);
    this.nats = this.spawn("nats-server", "nats-server", ["-c", conf]);
    await waitFor("nats-server to listen", () => /Server is ready/.test(this.nats.out), 20000);
  }

  async run(name, cmd, args, timeoutMs = 20000) {
    const p = this.spawn(name, cmd, args);
    const t = setTimeout(() => p.kill("SIGKILL"), timeoutMs);
    const { code } = await p.exited;
    clearTimeout(t);
    if (code !== 0) throw new Error(`${name} exited ${code}: ${p.out}`);
    return p.out;
  }

  async startWorkers(n = 1) {
    await this.run("serve --setup", bin("rtmonitor-serve"), ["--setup", "--server", this.natsUrl, "--partitions", String(this.partitions)]);
    for (let i = 0; i < n; i++)
      this.spawn(`worker ${i}`, bin("rtmonitor-serve"), ["--server", this.natsUrl, "--name", `w${i}`, "--log-every", "5"]);
  }

  // The alarms process, when built; returns false when it is not.
  async startAlarms() {
    const b = bin("rtmonitor-alarms");
    if (!existsSync(b)) return false;
    await this.run("alarms --setup", b, ["--setup", "--server", this.natsUrl]);
    this.alarms = this.spawn("alarms", b, ["--server", this.natsUrl, "--name", "alarms-test"]);
    return true;
  }

  publish(file, rate = "real") {
    return this.spawn("publish", bin("rtmonitor"), ["publish", file, "--rate", rate, "--server", this.natsUrl]);
  }

  // `rtmonitor subscribe` as a second reader of the results: calls onLine(fields, arrivalMs).
  subscribe(onLine) {
    // Line-buffered, so each line arrives when the result does.
    const p = this.spawn("subscribe", "stdbuf", ["-oL", bin("rtmonitor"), "subscribe", "--server", this.natsUrl]);
    let buf = "";
    p.stdout.on("data", (d) => {
      buf += d;
      let i;
      while ((i = buf.indexOf("\n")) >= 0) {
        const line = buf.slice(0, i);
        buf = buf.slice(i + 1);
        const f = line.split(",");
        if (f.length >= 7 && /^-?\d+$/.test(f[0]))
          onLine({ device: +f[0], seq: +f[1], hr: +f[2], quality: +f[3], br: +f[4], brState: +f[5], posture: +f[6] }, Date.now());
      }
    });
    return p;
  }

  async browser_() {
    if (this.browser) return this.browser;
    const { chromium } = await import("playwright-core");
    this.profile = mkdtempSync(join(tmpdir(), "rtm-chromium-"));
    // A persistent context is the only way to give Chromium its own user-data-dir.
    this.browser = await chromium.launchPersistentContext(this.profile, {
      executablePath: CHROMIUM,
      headless: true,
      viewport: { width: 1600, height: 1000 },
      args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
        "--disable-component-update", "--disable-sync", "--autoplay-policy=no-user-gesture-required"],
    });
    return this.browser;
  }

  async openPage(query = "") {
    const ctx = await this.browser_();
    const page = await ctx.newPage();
    page.on("pageerror", (e) => (this.pageErrors ??= []).push(String(e)));
    const url = `file://${join(BUILD, "station", "index.html")}?server=${encodeURIComponent(this.wsUrl)}${query}`;
    await page.goto(url);
    return page;
  }

  shotDir() {
    const d = join(BUILD, "station-shots");
    mkdirSync(d, { recursive: true });
    return d;
  }

  log() {
    return this.procs.map((p) => `--- ${p.logName}\n${p.out.slice(-3000)}`).join("\n");
  }

  async stop() {
    if (this.browser) await Promise.race([this.browser.close().catch(() => {}), sleep(5000)]);
    // Readers and the publisher have nothing to finish; the server and workers stop cleanly.
    for (const p of this.procs) if (/^(publish|subscribe)/.test(p.logName) && p.exitCode === null) p.kill("SIGKILL");
    for (const p of [...this.procs].reverse()) if (p.exitCode === null && p.signalCode === null) p.kill("SIGTERM");
    await Promise.race([Promise.all(this.procs.map((p) => p.exited)), sleep(5000)]);
    for (const p of this.procs) if (p.exitCode === null && p.signalCode === null) p.kill("SIGKILL");
    if (!process.env.RTM_STATION_KEEP) {
      rmSync(this.dir, { recursive: true, force: true });
      if (this.profile) rmSync(this.profile, { recursive: true, force: true });
    } else console.log(`kept ${this.dir}`);
  }
}

export async function buildPage() {
  const p = spawn(process.execPath, [join(WEB, "build.mjs"), join(BUILD, "station")], { stdio: ["ignore", "ignore", "pipe"] });
  let err = "";
  p.stderr.on("data", (d) => (err += d));
  const code = await new Promise((r) => p.on("exit", r));
  if (code !== 0) throw new Error(`page build failed: ${err}`);
}

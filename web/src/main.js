// The station page: a tile per device with its sweeping ECG and numbers, the alarm bar, sound,
// the alarm log and the device view. Everything it shows comes from the server; alarms come
// from the alarms process, except the page's own alarm for a lost connection.
import { AlarmBoard, CONNECTION_DEVICE, FLASH_MS, isAcknowledged, shortLabel } from "./alarmmodel.js";
import { AlarmSound } from "./audio.js";
import { Station } from "./conn.js";
import { DeviceView } from "./device.js";
import { breathStateName, postureName } from "./record.js";
import { Sweep } from "./sweep.js";

const STALE_MS = 3000;
const PER_PAGE = 64;
const PAUSE_S = 120;

const params = new URLSearchParams(location.search);
const serverUrl = params.get("server") ?? "ws://127.0.0.1:9222";
const userInput = document.getElementById("user");
userInput.value = params.get("user") ?? localStorage.getItem("rtm.user") ?? "station";
userInput.addEventListener("change", () => localStorage.setItem("rtm.user", userInput.value));
const user = () => userInput.value.trim() || "station";

const board = new AlarmBoard();
const sound = new AlarmSound();
const tiles = new Map(); // device -> tile
const pinned = parseDevices(params.get("devices"));
let page = Number(params.get("page") ?? 0);
let localPauseUntil = 0;
let connState = "connecting";
const limits = { default: null, byDevice: new Map(), entries: new Map() };

const station = new Station(serverUrl, {
  status(state, detail) {
    connState = state;
    const el = document.getElementById("conn");
    el.dataset.state = state;
    el.textContent =
      state === "connected" ? `Connected: ${detail}` : state === "connecting" ? `Connecting to ${detail}…` : `NO CONNECTION to ${serverUrl}`;
    el.title = String(detail ?? "");
    // A page that has never connected, or has lost its connection, is not monitoring anyone.
    if (state !== "connecting") board.setConnectionLost(state !== "connected", Date.now());
    renderAlarms();
  },
  result(device, rec, meta) {
    const t = tileFor(device);
    if (!t) return;
    const now = performance.now();
    t.rec = rec;
    t.meta = meta;
    t.lastAt = now;
    t.lastWall = Date.now();
    t.count++;
    // When each recent frame's result arrived, for tests and benchmarks.
    t.arrivals.set(meta.seq, t.lastWall);
    if (t.arrivals.size > 120) t.arrivals.delete(t.arrivals.keys().next().value);
    if (meta.frameTimeMs) latencies.push(t.lastWall - meta.frameTimeMs);
    if (latencies.length > 20000) latencies.splice(0, 10000);
    t.sweep?.push(rec.wave, now);
    updateNumbers(t);
    deviceView.liveResult(device, rec, meta);
  },
  alarmState(device, state) {
    if (!Number.isFinite(device)) return;
    board.setState(device, state);
    if (state?.alarms?.length) tileFor(device);
    renderAlarms();
  },
  alarmEvent(ev) {
    board.applyEvent(ev);
    if (typeof ev.device === "number") tileFor(ev.device);
    renderAlarms();
    renderLog();
  },
  limits(key, value, entry) {
    if (key === "default") limits.default = value;
    else if (key.startsWith("dev.")) {
      if (value) limits.byDevice.set(Number(key.slice(4)), value);
      else limits.byDevice.delete(Number(key.slice(4)));
    }
    limits.entries.set(key, { value, revision: entry?.revision, op: entry?.operation });
    deviceView.limitsChanged();
  },
});

const deviceView = new DeviceView(document.getElementById("device"), { station, board, limits, user });

function parseDevices(s) {
  if (!s) return null;
  const out = [];
  for (const part of s.split(",")) {
    const m = part.match(/^(-?\d+)(?:-(-?\d+))?$/);
    if (!m) continue;
    const a = Number(m[1]);
    const b = m[2] !== undefined ? Number(m[2]) : a;
    for (let d = a; d <= b && out.length < 100000; d++) out.push(d);
  }
  return out;
}

// Devices are learnt from their results and alarms; ?devices=1-16 fixes the list (and shows
// devices that have not sent anything yet as "no data").
const known = new Set(pinned ?? []);
function tileFor(device) {
  if (!known.has(device)) {
    if (pinned) return null;
    known.add(device);
    layout();
  }
  return tiles.get(device) ?? null;
}

function sortedDevices() {
  return [...known].sort((a, b) => a - b);
}

function layout() {
  const all = sortedDevices();
  const pages = Math.max(1, Math.ceil(all.length / PER_PAGE));
  page = Math.min(Math.max(0, page), pages - 1);
  const shown = all.slice(page * PER_PAGE, (page + 1) * PER_PAGE);
  const grid = document.getElementById("grid");
  const n = Math.max(1, shown.length);
  const cols = Math.ceil(Math.sqrt(n * 1.5 * (grid.clientHeight ? grid.clientWidth / grid.clientHeight / 1.9 : 1)));
  const c = Math.max(1, Math.min(n, cols));
  grid.style.gridTemplateColumns = `repeat(${c}, minmax(0, 1fr))`;
  grid.style.gridTemplateRows = `repeat(${Math.ceil(n / c)}, minmax(0, 1fr))`;
  const keep = new Set(shown);
  for (const [d, t] of tiles) if (!keep.has(d)) (t.el.remove(), tiles.delete(d));
  shown.forEach((d, i) => {
    let t = tiles.get(d);
    if (!t) tiles.set(d, (t = makeTile(d)));
    if (grid.children[i] !== t.el) grid.insertBefore(t.el, grid.children[i] ?? null);
  });
  for (const t of tiles.values()) t.sweep.resize();
  const pg = document.getElementById("pages");
  pg.replaceChildren();
  if (pages > 1)
    for (let i = 0; i < pages; i++) {
      const b = document.createElement("button");
      b.className = "pagebtn" + (i === page ? " current" : "");
      const first = all[i * PER_PAGE];
      const last = all[Math.min(all.length, (i + 1) * PER_PAGE) - 1];
      b.textContent = `${first}–${last}`;
      b.onclick = () => ((page = i), layout(), renderAlarms());
      pg.append(b);
    }
}

function makeTile(device) {
  const el = document.createElement("div");
  el.className = "tile stale";
  el.dataset.device = device;
  el.innerHTML = `<div class="head"><span class="id">Device ${device}</span><span class="atext"></span></div>
<canvas></canvas>
<div class="nums"><div class="hr" title="heart rate, beats per minute">--<small>/min</small></div><div class="q"></div>
<div class="br" title="breathing rate, breaths per minute">--<small>br/min</small></div><div class="bs"></div></div>
<div class="foot"><span class="posture"></span><span title="movement">mov <span class="move"><i style="width:0"></i></span></span><span class="age">no data</span></div>`;
  el.addEventListener("click", () => deviceView.open(device));
  const t = {
    device,
    el,
    rec: null,
    meta: null,
    lastAt: -Infinity,
    lastWall: 0,
    count: 0,
    arrivals: new Map(),
    stale: true,
    q: (s) => el.querySelector(s),
  };
  document.getElementById("grid").append(el);
  t.sweep = new Sweep(el.querySelector("canvas"));
  return t;
}

function updateNumbers(t) {
  const r = t.rec;
  const hr = t.q(".hr");
  hr.firstChild.textContent = r.heartRate > 0 ? String(r.heartRate) : "--";
  t.el.dataset.hr = r.heartRate;
  t.el.dataset.br = r.breathRate;
  t.el.dataset.seq = t.meta.seq ?? "";
  t.el.dataset.lastAt = t.lastWall;
  t.el.dataset.quality = r.heartStatus;
  t.el.dataset.posture = r.posture;
  const q = t.q(".q");
  // The quality flag is per second and noisy by nature (see the reference); it is shown, not judged.
  q.textContent = r.heartStatus ? "✓ signal good" : "? signal poor";
  q.className = r.heartStatus ? "q" : "q poor";
  t.q(".br").firstChild.textContent = r.breathRate > 0 ? String(r.breathRate) : "--";
  t.q(".bs").textContent = breathStateName(r.breathState);
  t.q(".posture").textContent = postureName(r.posture);
  t.q(".move i").style.width = `${Math.min(100, (Math.log2(Math.max(1, r.movement)) / 10) * 100).toFixed(0)}%`;
}

function ageText(ms) {
  if (!Number.isFinite(ms)) return "no data";
  const s = Math.floor(ms / 1000);
  if (s < 3) return "live";
  if (s < 120) return `no data ${s} s`;
  if (s < 7200) return `no data ${Math.floor(s / 60)} min`;
  return `no data ${Math.floor(s / 3600)} h`;
}

// One animation loop for every tile: sweeps, ages, greying and the alarm flash.
let lastFrame = performance.now();
let sweepDt = 0;
export const frameTimes = [];
export const frameWork = []; // ms of script per animation frame
export const latencies = []; // ms from the frame stored to its result reaching this page
function frame(now) {
  const began = performance.now();
  const dt = Math.min(250, now - lastFrame);
  frameTimes.push(now - lastFrame);
  if (frameTimes.length > 4000) frameTimes.splice(0, 2000);
  lastFrame = now;
  const wall = Date.now();
  // With many tiles the traces advance 30 times a second instead of every frame: the pen moves
  // 3 px a step, and the browser repaints half as many canvases.
  sweepDt += dt;
  const drawSweeps = tiles.size <= 16 || sweepDt >= 30;
  for (const t of tiles.values()) {
    if (drawSweeps && (!t.stale || t.sweep.queue.length)) t.sweep.step(sweepDt, now);
    const age = now - t.lastAt;
    const stale = age > STALE_MS;
    if (stale !== t.stale) {
      t.stale = stale;
      t.el.classList.toggle("stale", stale);
      t.el.dataset.staleAt = stale ? wall : "";
    }
    const a = t.q(".age");
    const txt = ageText(age);
    if (a.textContent !== txt) a.textContent = txt;
  }
  if (drawSweeps) sweepDt = 0;
  updatePauseButton(wall);
  frameWork.push(performance.now() - began);
  if (frameWork.length > 4000) frameWork.splice(0, 2000);
  requestAnimationFrame(frame);
}

function updatePauseButton(wall) {
  const until = Math.max(localPauseUntil, ...[...board.pausedUntil.values()]);
  const left = Math.max(0, Math.ceil((until - wall) / 1000));
  const b = document.getElementById("pause");
  const txt = left ? `Audio paused ${Math.floor(left / 60)}:${String(left % 60).padStart(2, "0")}` : "Audio pause 2:00";
  if (b.textContent !== txt) {
    b.textContent = txt;
    b.classList.toggle("active", left > 0);
    if (!left && b.dataset.wasPaused) renderAlarms();
    b.dataset.wasPaused = left ? "1" : "";
  }
  const s = board.sounding(wall, localPauseUntil);
  sound.play(s?.priority ?? null);
}

// High and medium alarms flash by a CSS animation with the priority's period; the negative
// delay puts every indicator of a priority in step, whenever it was drawn.
function flash(el, priority, wall) {
  const p = FLASH_MS[priority];
  if (!p) {
    el.style.animationDuration = "";
    return;
  }
  el.classList.add("flash");
  el.style.animationDuration = `${p}ms`;
  el.style.animationDelay = `-${wall % p}ms`;
}

function renderAlarms() {
  const wall = Date.now();
  const bar = document.getElementById("alarmbar");
  const all = board.all();
  bar.replaceChildren();
  bar.dataset.priority = all[0]?.priority ?? "none";
  if (!all.length) {
    const s = document.createElement("span");
    s.className = "none";
    s.textContent = "No alarms";
    bar.append(s);
  }
  for (const a of all.slice(0, 12)) {
    const el = document.createElement("span");
    const acked = isAcknowledged(a);
    el.className = `alarm p-${a.priority}${acked ? " acked" : ""}`;
    flash(el, a.priority, wall);
    el.dataset.priority = a.priority;
    el.dataset.device = a.device;
    el.dataset.alarm = a.alarm;
    el.dataset.acked = acked ? "1" : "0";
    const who = a.device === CONNECTION_DEVICE ? "Station" : `Device ${a.device}`;
    el.textContent = `${who}: ${shortLabel(a)}${acked ? " (ack.)" : ""}`;
    el.title = `${a.text ?? a.alarm}\n${a.priority} priority, ${a.kind ?? ""}, since ${new Date(a.raised_ms ?? wall).toLocaleTimeString()}`;
    if (a.device !== CONNECTION_DEVICE) {
      el.onclick = () => deviceView.open(a.device);
      if (!acked) {
        const b = document.createElement("button");
        b.className = "ack";
        b.textContent = "Acknowledge";
        b.onclick = (e) => {
          e.stopPropagation();
          station.acknowledge(a.device, a.alarm, user());
        };
        el.append(b);
      }
    }
    bar.append(el);
  }
  if (all.length > 12) bar.append(`+${all.length - 12} more`);
  for (const t of tiles.values()) {
    const top = board.topOf(t.device);
    t.top = top;
    t.el.classList.remove("a-high", "a-medium", "a-low", "acked", "flash");
    if (top) flash(t.el, top.priority, wall);
    t.el.dataset.alarm = top ? `${top.alarm}:${top.priority}` : "";
    if (top) t.el.classList.add(`a-${top.priority}`);
    if (top && isAcknowledged(top)) t.el.classList.add("acked");
    t.q(".atext").textContent = top ? board.alarmsOf(t.device).map((x) => x.text ?? x.alarm).join("; ") : "";
  }
  deviceView.alarmsChanged();
}

function renderLog() {
  const body = document.getElementById("logrows");
  if (document.getElementById("log").classList.contains("hidden")) return;
  body.replaceChildren();
  for (const ev of [...board.log].reverse().slice(0, 300)) {
    const tr = document.createElement("tr");
    tr.className = `ev-${ev.event}`;
    for (const v of [
      new Date(ev.at_ms ?? ev.raised_ms ?? 0).toLocaleString(),
      ev.device,
      ev.event,
      ev.priority ?? "",
      ev.text ?? ev.alarm ?? "",
      ev.by ?? "",
    ]) {
      const td = document.createElement("td");
      td.textContent = String(v ?? "");
      tr.append(td);
    }
    const td = document.createElement("td");
    if (ev.event === "raised" && typeof ev.device === "number") {
      const b = document.createElement("button");
      b.textContent = "ECG";
      b.onclick = () => deviceView.open(ev.device, { stripAt: ev.raised_ms ?? ev.at_ms, stripTitle: ev.text });
      td.append(b);
    }
    tr.append(td);
    body.append(tr);
  }
}

document.getElementById("sound").onclick = (e) => {
  sound.enable();
  setTimeout(() => {
    e.target.textContent = sound.enabled ? "Sound on" : "Sound is OFF: click to enable";
    e.target.classList.toggle("sound-off", !sound.enabled);
  }, 100);
};
document.getElementById("pause").onclick = () => {
  const wall = Date.now();
  localPauseUntil = wall + PAUSE_S * 1000;
  // The pause is sent for every device with an alarm, so other stations and the log see it.
  for (const a of board.all()) if (a.device !== CONNECTION_DEVICE) {
    try {
      station.pause(a.device, PAUSE_S, user());
    } catch {
      // No connection: the local pause still holds.
    }
    board.pausedUntil.set(a.device, Math.max(board.pausedUntil.get(a.device) ?? 0, localPauseUntil));
  }
};
document.getElementById("logbtn").onclick = () => {
  document.getElementById("log").classList.remove("hidden");
  renderLog();
};
for (const b of document.querySelectorAll("[data-close]"))
  b.onclick = () => document.getElementById(b.dataset.close).classList.add("hidden");
addEventListener("resize", () => layout());
addEventListener("keydown", (e) => {
  if (e.key === "Escape") {
    document.getElementById("log").classList.add("hidden");
    deviceView.close();
  }
});

layout();
requestAnimationFrame(frame);
station.start().then(async () => {
  const past = await station.recentAlarmEvents(Date.now() - 3600 * 1000);
  for (const ev of past) board.addLog(ev);
  board.log.sort((a, b) => (a.at_ms ?? 0) - (b.at_ms ?? 0));
  renderLog();
});

// For tests and benchmarks: read-only views of the page's state.
globalThis.rtmStation = { board, tiles, frameTimes, frameWork, latencies, connState: () => connState, sound };

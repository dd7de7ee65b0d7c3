// The device view: live numbers, its alarms, trends over 1 to 72 h, full disclosure (stored ECG
// by time), the ECG strip saved with each alarm, and its limits.
import uPlot from "uplot";
import { LIMIT_FIELDS, effectiveLimits, isAcknowledged } from "./alarmmodel.js";
import { breathStateName, postureName, POSTURES, ECG_HZ } from "./record.js";
import { drawStrip, PX_PER_MM } from "./sweep.js";

const ROWS = 6; // full-disclosure rows of ROW_S seconds each
const ROW_S = 10;
const STRIP_BEFORE_S = 8; // an alarm strip: 8 s before the alarm and 4 s after
const STRIP_S = 12;

const fmtTime = (ms) => new Date(ms).toLocaleString();
const h = (tag, attrs = {}, ...kids) => {
  const el = document.createElement(tag);
  for (const [k, v] of Object.entries(attrs)) {
    if (k.startsWith("on")) el.addEventListener(k.slice(2), v);
    else if (k === "class") el.className = v;
    else el.setAttribute(k, v);
  }
  el.append(...kids.filter((k) => k !== null && k !== undefined));
  return el;
};
const toLocalInput = (ms) => {
  const d = new Date(ms - new Date(ms).getTimezoneOffset() * 60000);
  return d.toISOString().slice(0, 19);
};

// Reads `seconds` seconds of ECG from startMs into one array with null where results are missing,
// placed by each result's frame time.
export async function readEcg(station, device, startMs, seconds) {
  const samples = new Array(seconds * ECG_HZ).fill(null);
  let got = 0;
  let prev = null; // the last result's frame number and first sample index
  await station.readResults(device, startMs - 1000, {
    endMs: startMs + seconds * 1000,
    max: seconds + 10,
    onResult(rec, meta) {
      // Each result covers the second before its frame was stored. The store times jitter with
      // the network, so a result that follows its predecessor's frame goes right after it; only
      // a gap in the frame numbers places a result by its time.
      const first =
        prev && meta.seq === prev.seq + 1
          ? prev.first + 200
          : Math.round(((meta.frameTimeMs - 1000 - startMs) / 1000) * ECG_HZ);
      prev = { seq: meta.seq, first };
      for (let i = 0; i < 200; i++) {
        const k = first + i;
        if (k >= 0 && k < samples.length) samples[k] = rec.wave[i];
      }
      got++;
    },
  });
  return { samples, got };
}

export class DeviceView {
  constructor(el, { station, board, limits, user }) {
    Object.assign(this, { el, station, board, limits, user });
    this.device = null;
    this.plots = [];
  }

  close() {
    this.el.classList.add("hidden");
    this.device = null;
    for (const p of this.plots) p.destroy();
    this.plots = [];
  }

  open(device, { stripAt, stripTitle } = {}) {
    this.close();
    this.device = device;
    this.el.classList.remove("hidden");
    this.el.dataset.device = device;
    const now = Date.now();
    this.el.replaceChildren(
      h("div", { class: "panel-head" },
        h("h2", {}, `Device ${device}`),
        (this.live = h("span", { class: "live" }, "waiting for data")),
        h("button", { class: "close", onclick: () => this.close() }, "Close")),
      (this.alarmsEl = h("div", { class: "dev-alarms" })),
      h("h3", {}, "Trends"),
      h("div", { class: "row" }, "Last ",
        ...[1, 4, 8, 24, 72].map((hrs) => h("button", { onclick: () => this.trends(hrs) }, `${hrs} h`)),
        (this.trendNote = h("span", { class: "note" }))),
      (this.trendEl = h("div", { class: "trend" })),
      h("h3", {}, "Full disclosure (stored ECG, 25 mm/s, 10 mm/mV)"),
      h("div", { class: "row" },
        h("button", { class: "back-min", onclick: () => this.disclose(this.fdStart - ROWS * ROW_S * 1000) }, "◀ 1 min"),
        h("button", { class: "back", onclick: () => this.disclose(this.fdStart - ROW_S * 1000) }, "◀ 10 s"),
        h("button", { class: "fwd", onclick: () => this.disclose(this.fdStart + ROW_S * 1000) }, "10 s ▶"),
        h("button", { class: "fwd-min", onclick: () => this.disclose(this.fdStart + ROWS * ROW_S * 1000) }, "1 min ▶"),
        h("button", { onclick: () => this.disclose(Date.now() - ROWS * ROW_S * 1000) }, "Now"),
        (this.fdInput = h("input", { type: "datetime-local", step: "1" })),
        h("button", { onclick: () => this.disclose(new Date(this.fdInput.value).getTime()) }, "Go"),
        (this.fdNote = h("span", { class: "note fd-note" }))),
      (this.fdEl = h("div", { class: "stripgrid" })),
      h("h3", {}, "ECG strips saved with alarms"),
      (this.stripsEl = h("div", { class: "strips" })),
      h("h3", {}, "Alarm limits"),
      (this.limitsEl = h("div", { class: "limits" })),
      h("p", { class: "note" },
        "Heart rate here is the rate of detected beats. A noisy asystole can keep reading about 80/min, and a true rate under 30/min reads 0. " +
          "The monitor does not analyse rhythm: beats are not classified on this station."),
    );
    this.alarmsChanged();
    this.limitsChanged();
    this.trends(1);
    this.disclose(now - ROWS * ROW_S * 1000);
    this.renderStrips(stripAt, stripTitle);
  }

  liveResult(device, rec) {
    if (device !== this.device) return;
    this.live.textContent = `HR ${rec.heartRate || "--"}/min (${rec.heartStatus ? "signal good" : "signal poor"}), ` +
      `BR ${rec.breathRate || "--"}/min (${breathStateName(rec.breathState)}), ${postureName(rec.posture)}`;
  }

  alarmsChanged() {
    if (this.device === null) return;
    const list = this.board.alarmsOf(this.device);
    this.alarmsEl.replaceChildren(
      ...list.map((a) => h("div", { class: `alarm p-${a.priority}${isAcknowledged(a) ? " acked" : ""}` },
        `${a.priority.toUpperCase()}: ${a.text ?? a.alarm} (since ${new Date(a.raised_ms).toLocaleTimeString()})`,
        isAcknowledged(a) ? ` acknowledged by ${a.acknowledged_by ?? a.ack_by ?? "?"}` :
          h("button", { onclick: () => this.station.acknowledge(this.device, a.alarm, this.user()) }, "Acknowledge"))),
    );
    if (!list.length) this.alarmsEl.textContent = "No current alarms.";
  }

  async trends(hours) {
    const device = this.device;
    const end = Date.now();
    const start = end - hours * 3600 * 1000;
    // One point per bucket: the median heart and breathing rate, the fraction of good-quality
    // seconds and the most frequent posture.
    const buckets = Math.min(hours * 3600, 1440);
    const span = (end - start) / buckets;
    const acc = Array.from({ length: buckets }, () => ({ hr: [], br: [], q: 0, n: 0, post: new Array(10).fill(0) }));
    this.trendNote.textContent = `reading ${hours} h…`;
    let n = 0;
    const t0 = performance.now();
    try {
      n = await this.station.readResults(device, start, {
        endMs: end,
        batch: 1000,
        onResult: (rec, meta) => {
          if (this.device !== device) return false;
          const b = acc[Math.min(buckets - 1, Math.max(0, Math.floor((meta.frameTimeMs - start) / span)))];
          if (rec.heartRate > 0) b.hr.push(rec.heartRate);
          if (rec.breathRate > 0) b.br.push(rec.breathRate);
          b.q += rec.heartStatus ? 1 : 0;
          b.n++;
          b.post[rec.posture] = (b.post[rec.posture] ?? 0) + 1;
        },
      });
    } catch (e) {
      this.trendNote.textContent = `could not read the results stream: ${e.message}`;
      return;
    }
    if (this.device !== device) return;
    const med = (v) => (v.length ? v.sort((a, b) => a - b)[v.length >> 1] : null);
    const xs = [], hr = [], br = [], q = [], post = [];
    acc.forEach((b, i) => {
      xs.push((start + (i + 0.5) * span) / 1000);
      hr.push(med(b.hr));
      br.push(med(b.br));
      q.push(b.n ? (100 * b.q) / b.n : null);
      post.push(b.n ? b.post.indexOf(Math.max(...b.post)) : null);
    });
    this.trendNote.textContent = `${n} results in ${((performance.now() - t0) / 1000).toFixed(1)} s`;
    for (const p of this.plots) p.destroy();
    this.plots = [];
    this.trendEl.replaceChildren();
    const width = Math.max(300, this.trendEl.clientWidth || 800);
    const mk = (title, series, opts = {}) => {
      const p = new uPlot({ title, width, height: opts.height ?? 130, series: [{}, ...series], axes: [{}, { size: 60, ...opts.axis }], scales: opts.scales ?? {}, legend: { show: true } },
        [xs, ...series.map((s) => s.data)], this.trendEl);
      this.plots.push(p);
    };
    mk("Heart rate (/min)", [{ label: "HR", stroke: "#0a0", data: hr, spanGaps: false }]);
    mk("Breathing rate (/min)", [{ label: "BR", stroke: "#b80", data: br }]);
    mk("Heart signal quality (% of seconds good)", [{ label: "quality", stroke: "#06c", data: q }], { scales: { y: { range: [0, 100] } } });
    mk("Posture", [{ label: "posture", stroke: "#666", data: post, paths: uPlot.paths.stepped({ align: 1 }) }],
      { height: 230, scales: { y: { range: [0, 9] } }, axis: { size: 140, splits: () => [1, 2, 3, 4, 5, 6, 7, 8, 9], values: (u, v) => v.map((x) => POSTURES[x]) } });
  }

  async disclose(startMs) {
    if (!Number.isFinite(startMs)) return;
    const device = this.device;
    startMs = Math.min(startMs, Date.now() - ROW_S * 1000);
    this.fdStart = startMs;
    this.fdInput.value = toLocalInput(startMs);
    this.fdNote.textContent = "reading…";
    const { samples, got } = await readEcg(this.station, device, startMs, ROWS * ROW_S);
    if (this.device !== device || this.fdStart !== startMs) return;
    this.fdEl.replaceChildren();
    this.fdEl.dataset.start = startMs;
    this.fdEl.dataset.results = got;
    for (let r = 0; r < ROWS; r++) {
      // A row is exactly its seconds long at 25 mm/s, so the rows line up in time.
      const c = h("canvas", { class: "strip", style: `width:${ROW_S * 25 * PX_PER_MM}px` });
      this.fdEl.append(h("div", { class: "label" }, fmtTime(startMs + r * ROW_S * 1000)), c);
      drawStrip(c, samples.slice(r * ROW_S * ECG_HZ, (r + 1) * ROW_S * ECG_HZ));
    }
    this.fdNote.textContent = got ? `${fmtTime(startMs)}: ${got} s stored` : `${fmtTime(startMs)}: nothing stored here`;
  }

  async renderStrips(focusAt, focusTitle) {
    const device = this.device;
    const raised = this.board.log.filter((e) => e.device === device && e.event === "raised").slice(-10);
    if (focusAt && !raised.some((e) => e.raised_ms === focusAt)) raised.push({ raised_ms: focusAt, text: focusTitle ?? "alarm" });
    this.stripsEl.replaceChildren();
    if (!raised.length) this.stripsEl.textContent = "No alarms logged for this device in the last hour.";
    for (const ev of raised.reverse()) {
      const at = ev.raised_ms ?? ev.at_ms;
      const c = h("canvas", { class: "strip", style: `width:${STRIP_S * 25 * PX_PER_MM}px` });
      const box = h("div", { class: "alarmstrip" }, h("div", { class: "label" }, `${fmtTime(at)} ${ev.priority ?? ""} ${ev.text ?? ev.alarm}`), c);
      this.stripsEl.append(box);
      const { samples, got } = await readEcg(this.station, device, at - STRIP_BEFORE_S * 1000, STRIP_S);
      if (this.device !== device) return;
      box.dataset.results = got;
      drawStrip(c, samples, { gapsAt: [STRIP_BEFORE_S * ECG_HZ] });
      if (focusAt === at) box.scrollIntoView({ block: "center" });
    }
  }

  limitsChanged() {
    if (this.device === null || !this.limitsEl) return;
    const dev = this.limits.byDevice.get(this.device) ?? null;
    const eff = effectiveLimits(this.limits.default, dev);
    const inputs = {};
    const rows = LIMIT_FIELDS.map(([k, label, unit]) =>
      h("tr", {},
        h("td", {}, label),
        h("td", {}, (inputs[k] = h("input", { type: "number", name: k, value: String(eff[k].value), min: "0", max: "400" })), ` ${unit}`),
        h("td", { class: eff[k].from === "device" ? "from-device" : "" }, eff[k].from === "device" ? "this device" : eff[k].from)));
    const who = (v, what) => (v?.by ? `${what} last changed by ${v.by}${v.at_ms ? ` at ${fmtTime(v.at_ms)}` : ""}` : `${what}: not set`);
    this.limitsEl.replaceChildren(
      h("table", {}, h("thead", {}, h("tr", {}, h("th", {}, "limit"), h("th", {}, "value"), h("th", {}, "from"))), h("tbody", {}, ...rows)),
      h("div", { class: "row" },
        h("button", { class: "save-limits", onclick: async () => {
          const obj = {};
          for (const [k] of LIMIT_FIELDS) {
            const v = Number(inputs[k].value);
            // Only fields that differ from the default are stored, so later default changes apply.
            if (Number.isFinite(v) && (dev?.[k] !== undefined || v !== eff[k].value || eff[k].from === "device")) obj[k] = v;
          }
          obj.by = this.user();
          obj.at_ms = Date.now();
          try {
            await this.station.putLimits(`dev.${this.device}`, obj);
            this.limitNote.textContent = "saved";
          } catch (e) {
            this.limitNote.textContent = `not saved: ${e.message}`;
          }
        } }, "Save for this device"),
        h("button", { onclick: async () => {
          await this.station.deleteLimits(`dev.${this.device}`).catch(() => {});
        } }, "Use defaults"),
        (this.limitNote = h("span", { class: "note" }))),
      h("div", { class: "note limit-who" }, who(dev, "This device's limits"), ". ", who(this.limits.default, "Defaults"), "."),
    );
  }
}

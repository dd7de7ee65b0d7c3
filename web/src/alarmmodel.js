// What the page knows about alarms: the current set per device (from the alarms process's state
// bucket and its events), the page's own connection alarm, which alarm sounds, and the log.
// The page never raises a physiological alarm itself; it only shows what the alarms process says.
export const RANK = { high: 3, medium: 2, low: 1 };

// Flash periods in ms: high 2 Hz, medium 0.6 Hz, low steady (IEC 60601-1-8 ranges 1.4-2.8 Hz and
// 0.4-0.8 Hz).
export const FLASH_MS = { high: 500, medium: 1667, low: 0 };

export const CONNECTION_DEVICE = "station";

export function isAcknowledged(a) {
  return Boolean(a.acknowledged || a.acked || a.ack_by || a.acked_by || a.acknowledged_by);
}

export class AlarmBoard {
  constructor() {
    this.byDevice = new Map(); // device -> Map(alarm name -> record)
    this.pausedUntil = new Map(); // device -> ms
    this.log = []; // newest last
    this.logLimit = 500;
  }

  // A state bucket entry: the whole current set of one device replaces what the page had.
  setState(device, state) {
    const m = new Map();
    for (const a of state?.alarms ?? []) m.set(a.alarm, { ...a, device });
    if (m.size) this.byDevice.set(device, m);
    else this.byDevice.delete(device);
    this.pausedUntil.set(device, state?.paused_until_ms ?? 0);
  }

  // An event from rtm.alarms.<id>: logged, and applied so the page is right between state updates.
  applyEvent(ev, { log = true } = {}) {
    if (ev == null || typeof ev !== "object" || ev.device === undefined) return;
    if (log) this.addLog(ev);
    const device = ev.device;
    if (ev.event === "paused") {
      const until = ev.paused_until_ms ?? (ev.at_ms ?? Date.now()) + (ev.seconds ?? 120) * 1000;
      this.pausedUntil.set(device, until);
      return;
    }
    if (!ev.alarm) return;
    let m = this.byDevice.get(device);
    if (ev.event === "cleared") {
      if (m) {
        m.delete(ev.alarm);
        if (!m.size) this.byDevice.delete(device);
      }
      return;
    }
    if (!m) this.byDevice.set(device, (m = new Map()));
    const prev = m.get(ev.alarm) ?? {};
    const rec = { ...prev, ...ev, device };
    delete rec.event;
    if (ev.event === "acknowledged") {
      rec.acknowledged = true;
      rec.acknowledged_by = ev.by;
      rec.acknowledged_ms = ev.at_ms;
    } else if (ev.event === "raised") {
      delete rec.acknowledged;
      delete rec.acknowledged_by;
    }
    m.set(ev.alarm, rec);
  }

  addLog(ev) {
    this.log.push(ev);
    if (this.log.length > this.logLimit) this.log.splice(0, this.log.length - this.logLimit);
  }

  // The page's own alarm for a lost server connection (device key "station").
  setConnectionLost(lost, nowMs, text) {
    if (lost && !this.byDevice.has(CONNECTION_DEVICE)) {
      const rec = {
        device: CONNECTION_DEVICE,
        alarm: "connection",
        priority: "high",
        kind: "technical",
        text: text ?? "No connection to the server: no results or alarms are being received",
        latching: false,
        raised_ms: nowMs,
        at_ms: nowMs,
        by: "this page",
      };
      this.byDevice.set(CONNECTION_DEVICE, new Map([["connection", rec]]));
      this.addLog({ ...rec, event: "raised" });
    } else if (!lost && this.byDevice.has(CONNECTION_DEVICE)) {
      this.byDevice.delete(CONNECTION_DEVICE);
      this.addLog({ device: CONNECTION_DEVICE, alarm: "connection", priority: "high", event: "cleared",
        text: "Connection to the server restored", at_ms: nowMs, by: "this page" });
    }
  }

  alarmsOf(device) {
    return [...(this.byDevice.get(device)?.values() ?? [])].sort(compare);
  }

  // Every current alarm, most urgent first: unacknowledged before acknowledged, then priority,
  // then the oldest first.
  all() {
    const out = [];
    for (const m of this.byDevice.values()) out.push(...m.values());
    return out.sort(compare);
  }

  // The highest priority among a device's alarms (null when none), for the tile's colour.
  topOf(device) {
    return this.alarmsOf(device)[0] ?? null;
  }

  isPaused(device, nowMs) {
    return (this.pausedUntil.get(device) ?? 0) > nowMs;
  }

  // The alarm whose sound plays: the most urgent unacknowledged one whose device is not paused.
  // The page's pause also silences the page's own connection alarm.
  sounding(nowMs, localPauseUntil = 0) {
    for (const a of this.all()) {
      if (isAcknowledged(a)) continue;
      if (a.device === CONNECTION_DEVICE ? localPauseUntil > nowMs : this.isPaused(a.device, nowMs)) continue;
      return a;
    }
    return null;
  }
}

function compare(a, b) {
  const ack = Number(isAcknowledged(a)) - Number(isAcknowledged(b));
  if (ack) return ack;
  const r = (RANK[b.priority] ?? 0) - (RANK[a.priority] ?? 0);
  if (r) return r;
  return (a.raised_ms ?? 0) - (b.raised_ms ?? 0);
}

// Limits: a device key overrides the default field by field; missing fields take the built-in
// defaults.
export const LIMIT_FIELDS = [
  ["hr_high", "Heart rate high", "/min"],
  ["hr_low", "Heart rate low", "/min"],
  ["br_high", "Breathing rate high", "/min"],
  ["br_low", "Breathing rate low", "/min"],
  ["apnoea_s", "Apnoea delay", "s"],
  ["quality_s", "Poor signal delay", "s"],
  ["resp_unusable_s", "Respiration unusable delay", "s"],
];
export const BUILTIN_LIMITS = { hr_high: 120, hr_low: 50, br_high: 30, br_low: 8, apnoea_s: 20, quality_s: 10, resp_unusable_s: 30 };

export function effectiveLimits(defaults, device) {
  const out = {};
  for (const [k] of LIMIT_FIELDS) {
    if (device && typeof device[k] === "number") out[k] = { value: device[k], from: "device" };
    else if (defaults && typeof defaults[k] === "number") out[k] = { value: defaults[k], from: "default" };
    else out[k] = { value: BUILTIN_LIMITS[k], from: "built-in" };
  }
  return out;
}

// A short label for the alarm bar; the alarms process's full text goes on the tile and tooltip.
export function shortLabel(a) {
  const v = a.value;
  const l = a.limit;
  switch (a.alarm) {
    case "hr_high": return `HR ${v} > ${l}`;
    case "hr_low": return `HR ${v} < ${l}`;
    case "br_high": return `BR ${v} > ${l}`;
    case "br_low": return `BR ${v} < ${l}`;
    case "apnoea": return "Apnoea";
    case "asystole": return "No heart rate (asystole?)";
    case "quality_poor": return "ECG signal poor";
    case "resp_unusable": return "Resp. signal unusable";
    case "offline": return "Device offline";
    case "connection": return "NO SERVER CONNECTION";
    default: return a.text ?? a.alarm;
  }
}

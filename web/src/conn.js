// The page's link to nats-server's WebSocket listener: live results, alarm state and events,
// acknowledgements, limits, and reads of the results stream by start time.
import { wsconnect } from "@nats-io/nats-core";
import { jetstream } from "@nats-io/jetstream";
import { Kvm } from "@nats-io/kv";
import { decodeResult, deviceOf, frameSeq, frameTimeMs } from "./record.js";

export const RESULTS_STREAM = "RTM_VITALS";
export const ALARMS_STREAM = "RTM_ALARMS";
export const STATE_BUCKET = "rtm_alarm_state";
export const LIMITS_BUCKET = "rtm_limits";

const enc = new TextEncoder();
const dec = new TextDecoder();

export function parseJson(bytes) {
  try {
    return JSON.parse(dec.decode(bytes));
  } catch {
    return null;
  }
}

// Keeps one connection up for the life of the page, reconnecting forever. `on` receives:
// status(state, detail), result(device, rec, meta), alarmState(device, state), alarmEvent(ev),
// limits(key, value, entry).
export class Station {
  constructor(url, on) {
    this.url = url;
    this.on = on;
    this.nc = null;
    this.js = null;
    this.stopped = false;
  }

  async start() {
    let wait = 500;
    while (!this.stopped) {
      try {
        this.on.status("connecting", this.url);
        this.nc = await wsconnect({
          servers: this.url,
          name: "rtmonitor station",
          maxReconnectAttempts: -1,
          reconnectTimeWait: 1000,
          pingInterval: 5000,
          maxPingOut: 2,
        });
        break;
      } catch (e) {
        this.on.status("failed", String(e?.message ?? e));
        await new Promise((r) => setTimeout(r, wait));
        wait = Math.min(wait * 2, 5000);
      }
    }
    if (this.stopped) return;
    this.on.status("connected", this.url);
    this.watchStatus();
    this.js = jetstream(this.nc);
    this.subscribeResults();
    this.subscribeAlarms();
    this.watchBuckets();
  }

  // The client resubscribes and its bucket watchers resume by themselves after a reconnection;
  // a connection closed for good is replaced by a new one.
  async watchStatus() {
    const nc = this.nc;
    for await (const s of nc.status()) {
      if (s.type === "disconnect" || s.type === "reconnecting" || s.type === "staleConnection")
        this.on.status("disconnected", this.url);
      else if (s.type === "reconnect") this.on.status("connected", this.url);
    }
    if (!this.stopped && this.nc === nc) {
      this.on.status("disconnected", this.url);
      this.start();
    }
  }

  subscribeResults() {
    this.nc.subscribe("rtm.vitals.*", {
      callback: (err, msg) => {
        if (err) return;
        const device = deviceOf(msg.subject);
        const rec = decodeResult(msg.data);
        if (device === null || !rec) return;
        this.on.result(device, rec, { seq: frameSeq(msg.headers), frameTimeMs: frameTimeMs(msg.headers) });
      },
    });
  }

  subscribeAlarms() {
    this.nc.subscribe("rtm.alarms.*", {
      callback: (err, msg) => {
        if (err) return;
        const ev = parseJson(msg.data);
        if (ev) this.on.alarmEvent(ev);
      },
    });
  }

  async watchBuckets() {
    const kvm = new Kvm(this.nc);
    for (const [bucket, handler] of [
      [STATE_BUCKET, (key, v) => this.on.alarmState(Number(key.slice(4)), v)],
      [LIMITS_BUCKET, (key, v, e) => this.on.limits(key, v, e)],
    ]) {
      this.watchBucket(kvm, bucket, handler);
    }
  }

  async watchBucket(kvm, bucket, handler) {
    // The alarms process creates its buckets; until then, look again now and then.
    for (let i = 0; !this.stopped; i++) {
      try {
        const kv = await kvm.open(bucket);
        await kv.status();
        if (bucket === LIMITS_BUCKET) this.limitsKv = kv;
        const w = await kv.watch();
        for await (const e of w) {
          const v = e.operation === "PUT" ? parseJson(e.value) : null;
          handler(e.key, v, e);
        }
        return;
      } catch {
        await new Promise((r) => setTimeout(r, Math.min(1000 * 2 ** i, 10000)));
      }
    }
  }

  // The last events of the alarm log, so a page opened later shows what happened before.
  async recentAlarmEvents(sinceMs, max = 300) {
    const out = [];
    try {
      const c = await this.js.consumers.get(ALARMS_STREAM, {
        filter_subjects: "rtm.alarms.*",
        opt_start_time: new Date(sinceMs).toISOString(),
      });
      const it = await c.fetch({ max_messages: max, expires: 2000 });
      for await (const m of it) {
        const ev = parseJson(m.data);
        if (ev) out.push(ev);
        if (m.info.pending === 0) break;
      }
    } catch {
      // No alarms stream yet: an empty log.
    }
    return out;
  }

  send(subject, obj) {
    if (!this.nc || this.nc.isClosed()) throw new Error("not connected");
    this.nc.publish(subject, enc.encode(JSON.stringify(obj)));
  }

  acknowledge(device, alarm, by) {
    this.send(`rtm.ack.${device}`, { action: "ack", alarm, by, at_ms: Date.now() });
  }

  pause(device, seconds, by) {
    this.send(`rtm.ack.${device}`, { action: "pause", seconds, by, at_ms: Date.now() });
  }

  async putLimits(key, obj) {
    if (!this.limitsKv) this.limitsKv = await new Kvm(this.nc).create(LIMITS_BUCKET);
    return this.limitsKv.put(key, enc.encode(JSON.stringify(obj)));
  }

  async deleteLimits(key) {
    if (this.limitsKv) await this.limitsKv.delete(key);
  }

  // Reads one device's results from the results stream starting at startMs, calling onResult
  // (rec, {seq, frameTimeMs, storedMs}) until endMs, max results, the stream's end, or until
  // onResult returns false. Returns the number read.
  async readResults(device, startMs, { endMs = Infinity, max = Infinity, onResult, batch = 500 } = {}) {
    const c = await this.js.consumers.get(RESULTS_STREAM, {
      filter_subjects: `rtm.vitals.${device}`,
      opt_start_time: new Date(startMs).toISOString(),
    });
    let n = 0;
    try {
      while (n < max) {
        const it = await c.fetch({ max_messages: Math.min(batch, max - n), expires: 2000 });
        let got = 0;
        let done = false;
        for await (const m of it) {
          got++;
          const storedMs = m.info.timestampNanos ? Number(BigInt(m.info.timestampNanos) / 1000000n) : Date.parse(m.info.timestamp);
          const t = frameTimeMs(m.headers) ?? storedMs;
          if (t > endMs) {
            done = true;
            break;
          }
          const rec = decodeResult(m.data);
          n++;
          if (rec && onResult(rec, { seq: frameSeq(m.headers), frameTimeMs: t, storedMs }) === false) done = true;
          if (done || m.info.pending === 0) {
            done = true;
            break;
          }
        }
        if (done || !got) break;
      }
    } finally {
      await c.delete?.().catch(() => {});
    }
    return n;
  }
}

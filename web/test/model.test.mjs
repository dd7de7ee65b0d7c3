// The page's pure parts: decoding the result record and the alarm board's ordering, sound choice,
// acknowledgement, pause and connection alarm.
import assert from "node:assert/strict";
import { test } from "node:test";
import { AlarmBoard, CONNECTION_DEVICE, effectiveLimits } from "../src/alarmmodel.js";
import { decodeResult, deviceOf, frameTimeMs } from "../src/record.js";

test("the result record is read word by word, little-endian, ignoring what follows it", () => {
  const buf = new ArrayBuffer(1124 + 36);
  const dv = new DataView(buf);
  const put = (word, v) => dv.setInt32(word * 4, v, true);
  put(0, 72);
  for (let i = 0; i < 200; i++) put(2 + i, 512 + i);
  put(252, 14);
  put(253, 2);
  for (let i = 0; i < 25; i++) put(254 + i, i === 3 ? 101 : 1);
  put(279, 5);
  put(280, 1);
  dv.setUint32(1124, 1, true); // an appended block must not disturb the record
  const r = decodeResult(new Uint8Array(buf, 0));
  assert.equal(r.heartRate, 72);
  assert.equal(r.wave[0], 512);
  assert.equal(r.wave[199], 711);
  assert.deepEqual([r.breathRate, r.breathState, r.posture, r.heartStatus, r.movementMax], [14, 2, 5, 1, 101]);
  // A view into a larger buffer at an offset, as a message payload may be.
  const big = new Uint8Array(1124 + 8);
  big.set(new Uint8Array(buf, 0, 1124), 8);
  assert.equal(decodeResult(big.subarray(8)).heartRate, 72);
  assert.equal(decodeResult(new Uint8Array(1000)), null);
  assert.equal(deviceOf("rtm.vitals.-17"), -17);
  assert.equal(deviceOf("rtm.vitals.x"), null);
  const h = new Map([["Rtm-Frame-Time", "1764070000123456789"]]);
  assert.equal(frameTimeMs(h), 1764070000123);
});

const ev = (over) => ({ device: 1, alarm: "hr_high", priority: "medium", kind: "physiological", latching: false,
  raised_ms: 1000, at_ms: 1000, event: "raised", ...over });

test("alarms: most urgent first, acknowledged last, one sounding, pauses per device", () => {
  const b = new AlarmBoard();
  b.applyEvent(ev({ device: 2, alarm: "quality_poor", priority: "low", raised_ms: 500 }));
  b.applyEvent(ev({ device: 1 }));
  b.applyEvent(ev({ device: 3, alarm: "asystole", priority: "high", latching: true, raised_ms: 2000 }));
  assert.deepEqual(b.all().map((a) => a.alarm), ["asystole", "hr_high", "quality_poor"]);
  assert.equal(b.sounding(3000).alarm, "asystole");
  b.applyEvent(ev({ device: 3, alarm: "asystole", priority: "high", event: "acknowledged", by: "a", at_ms: 3000 }));
  assert.deepEqual(b.all().map((a) => a.alarm), ["hr_high", "quality_poor", "asystole"]);
  assert.equal(b.sounding(3000).alarm, "hr_high");
  b.applyEvent({ device: 1, event: "paused", paused_until_ms: 5000, by: "a", at_ms: 3000 });
  assert.equal(b.sounding(4000).alarm, "quality_poor");
  assert.equal(b.sounding(5000).alarm, "hr_high", "the pause ends");
  // A cleared alarm goes; the state bucket replaces a device's whole set.
  b.applyEvent(ev({ device: 3, alarm: "asystole", event: "cleared" }));
  assert.equal(b.alarmsOf(3).length, 0);
  b.setState(1, { device: 1, alarms: [], paused_until_ms: 0 });
  assert.deepEqual(b.all().map((a) => a.alarm), ["quality_poor"]);
  b.setState(4, { device: 4, alarms: [{ ...ev({ device: 4, alarm: "asystole", priority: "high" }), acknowledged: true }] });
  assert.equal(b.sounding(0).alarm, "quality_poor", "an acknowledged alarm from the bucket is silent");
  assert.equal(b.log.length, 6);
});

test("the page's connection alarm is high, silenced only by the page's own pause, and logged", () => {
  const b = new AlarmBoard();
  b.setConnectionLost(true, 100);
  b.setConnectionLost(true, 200);
  assert.equal(b.all().length, 1);
  assert.equal(b.sounding(300).device, CONNECTION_DEVICE);
  assert.equal(b.sounding(300, 400), null);
  b.setConnectionLost(false, 500);
  assert.equal(b.all().length, 0);
  assert.deepEqual(b.log.map((e) => e.event), ["raised", "cleared"]);
});

test("limits: a device field overrides the default, a missing one takes the built-in value", () => {
  const e = effectiveLimits({ hr_high: 110, by: "x" }, { hr_high: 140, br_low: 6 });
  assert.deepEqual([e.hr_high, e.br_low.value, e.hr_low.value, e.hr_low.from], [{ value: 140, from: "device" }, 6, 50, "built-in"]);
  assert.equal(effectiveLimits({ hr_high: 110 }, null).hr_high.from, "default");
});

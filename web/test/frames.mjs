// Synthetic frame files for the station's tests and benchmarks: one 1320-byte input record per
// device per second (330 little-endian int32 words, the frame-file layout), with scripted faults.
import { writeFileSync } from "node:fs";

const WORDS = 330;
const HEART = 2; // first ECG word
const MODE = 202;
const BREATH1 = 204;
const BREATH0 = 229;
const ACC_X = 255;
const ACC_Y = 280;
const ACC_Z = 305;

// A deterministic generator so a failing run can be repeated exactly.
function rng(seed) {
  let s = seed >>> 0 || 1;
  return () => {
    s ^= s << 13;
    s >>>= 0;
    s ^= s >>> 17;
    s ^= s << 5;
    s >>>= 0;
    return s / 4294967296;
  };
}

const gauss = (t, mu, sigma) => Math.exp(-0.5 * ((t - mu) / sigma) ** 2);

// One beat's shape in millivolts, t in seconds from the R peak.
function beat(t) {
  return (
    0.15 * gauss(t, -0.16, 0.025) -
    0.12 * gauss(t, -0.03, 0.008) +
    1.3 * gauss(t, 0, 0.011) -
    0.25 * gauss(t, 0.03, 0.01) +
    0.3 * gauss(t, 0.25, 0.045)
  );
}

// device: {id, hr(t), br(t), flatFrom, flatUntil, stopAt, noise (mV rms), seed}
// Returns the frames of one device for `seconds` seconds (fewer when it stops sending).
export function deviceFrames(dev, seconds) {
  const rand = rng(dev.seed ?? dev.id * 7919 + 13);
  const frames = [];
  let nextBeat = 0.3 + rand() * 0.5;
  let lastBeat = -10;
  let breathPhase = rand() * 2 * Math.PI;
  const last = dev.stopAt ?? seconds;
  for (let sec = 0; sec < Math.min(seconds, last); sec++) {
    const w = new Int32Array(WORDS);
    w[0] = dev.id;
    w[1] = sec + 1;
    w[MODE] = 0;
    const flat = dev.flatFrom !== undefined && sec >= dev.flatFrom && sec < (dev.flatUntil ?? Infinity);
    for (let i = 0; i < 200; i++) {
      const t = sec + i / 200;
      if (t >= nextBeat) {
        lastBeat = nextBeat;
        nextBeat += 60 / dev.hr(t);
      }
      let mv = beat(t - lastBeat) + beat(t - nextBeat);
      if (dev.noise) mv += dev.noise * (rand() * 2 - 1) * 1.7;
      mv += 0.01 * (rand() - 0.5);
      w[HEART + i] = flat ? 512 : Math.max(0, Math.min(1023, Math.round(512 + 200 * mv)));
    }
    for (let i = 0; i < 25; i++) {
      breathPhase += (2 * Math.PI * (dev.br ? dev.br(sec) : 15)) / 60 / 25;
      const v = Math.round(512 + 120 * Math.sin(breathPhase) + 2 * (rand() - 0.5));
      w[BREATH1 + i] = v;
      w[BREATH0 + i] = v;
      // Lying on the back, still: third axis up.
      w[ACC_X + i] = 512 + Math.round(rand() - 0.5);
      w[ACC_Y + i] = 512 + Math.round(rand() - 0.5);
      w[ACC_Z + i] = 640 + Math.round(rand() - 0.5);
    }
    frames.push(w);
  }
  return frames;
}

// Interleaves the devices second by second, as a host logs them, and writes the file.
export function writeFrameFile(path, devices, seconds) {
  const per = devices.map((d) => deviceFrames(d, seconds));
  const out = [];
  for (let sec = 0; sec < seconds; sec++)
    for (const f of per) if (sec < f.length) out.push(Buffer.from(f[sec].buffer));
  writeFileSync(path, Buffer.concat(out));
  return out.length;
}

// The end-to-end scenario: 16 devices, four of them in trouble.
export const SCENARIO = {
  seconds: 38,
  limitDevice: 3, // heart rate 80, then 150 from stepAt (default upper limit 120)
  stepAt: 12,
  flatDevice: 5, // ECG flat from flatFrom to flatUntil, breathing goes on
  flatFrom: 14,
  flatUntil: 22,
  offlineDevice: 9, // sends frames 1..stopAfter, then nothing
  stopAfter: 14,
  poorDevice: 12, // heavy noise on the ECG throughout
};

export function scenarioDevices() {
  const s = SCENARIO;
  const devs = [];
  for (let id = 1; id <= 16; id++) {
    // 60..74/min: faster rates put two beats into many one-second packets, which the quality
    // flag reads as noise (see docs/reference.md), and would raise poor-signal alarms.
    const base = 60 + (id % 8) * 2;
    const d = { id, hr: () => base, br: () => 12 + (id % 6) };
    if (id === s.limitDevice) d.hr = (t) => (t < s.stepAt ? 80 : 150);
    if (id === s.flatDevice) Object.assign(d, { flatFrom: s.flatFrom, flatUntil: s.flatUntil });
    if (id === s.offlineDevice) d.stopAt = s.stopAfter;
    if (id === s.poorDevice) d.noise = 0.6;
    devs.push(d);
  }
  return devs;
}

if (import.meta.url === `file://${process.argv[1]}`) {
  const [path, seconds] = process.argv.slice(2);
  if (!path) {
    console.error("usage: node test/frames.mjs OUT.frames [SECONDS]");
    process.exit(2);
  }
  const n = writeFrameFile(path, scenarioDevices(), Number(seconds) || SCENARIO.seconds);
  console.log(`${path}: ${n} frames`);
}

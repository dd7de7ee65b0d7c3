// The worker's result record (1124 bytes, 281 little-endian int32 words) and the names of its
// class codes. A later payload may append more after the record: only the first 1124 bytes are read.
export const RECORD_BYTES = 1124;
export const WAVE_BASELINE = 512; // nHeartWave counts around 512, 200 counts per millivolt
export const COUNTS_PER_MV = 200;
export const ECG_HZ = 200;

const W = {
  heartRate: 0,
  wave: 2,
  breathDisplay1: 202,
  breathDisplay0: 227,
  breathRate: 252,
  breathState: 253,
  movement: 254,
  posture: 279,
  heartStatus: 280,
};

export const POSTURES = [
  "not classified",
  "upright",
  "on the back",
  "face down",
  "right side",
  "left side",
  "light movement",
  "moderate movement",
  "strong movement",
  "unclassified",
];
export const BREATH_STATES = ["no judgement", "regular", "no usable signal"];

export const postureName = (p) => POSTURES[p] ?? "other";
export const breathStateName = (s) => BREATH_STATES[s] ?? "other";

// Returns null for a payload too short to hold a record (a JSON result from a worker run with
// --json is not supported by the page).
export function decodeResult(bytes) {
  if (!bytes || bytes.byteLength < RECORD_BYTES) return null;
  const dv = new DataView(bytes.buffer, bytes.byteOffset, RECORD_BYTES);
  const word = (i) => dv.getInt32(i * 4, true);
  const wave = new Int16Array(200);
  for (let i = 0; i < 200; i++) wave[i] = word(W.wave + i);
  let moveSum = 0;
  let moveMax = 0;
  for (let i = 0; i < 25; i++) {
    const m = word(W.movement + i);
    moveSum += m;
    if (m > moveMax) moveMax = m;
  }
  return {
    heartRate: word(W.heartRate),
    heartStatus: word(W.heartStatus),
    wave,
    breathRate: word(W.breathRate),
    breathState: word(W.breathState),
    posture: word(W.posture),
    movement: moveSum / 25,
    movementMax: moveMax,
  };
}

// The device id is the subject's last token (rtm.vitals.<id>).
export function deviceOf(subject) {
  const tok = subject.slice(subject.lastIndexOf(".") + 1);
  return /^-?\d+$/.test(tok) ? Number(tok) : null;
}

// Rtm-Frame-Time is ns since 1970 as decimal text; milliseconds keep double precision.
export function frameTimeMs(headers) {
  const v = headers?.get("Rtm-Frame-Time");
  if (!v) return null;
  const ms = Number(BigInt(v) / 1000000n);
  return Number.isFinite(ms) ? ms : null;
}

export function frameSeq(headers) {
  const v = headers?.get("Rtm-Frame-Seq");
  return v ? Number(v) : null;
}

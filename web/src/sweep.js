// A sweeping ECG trace on a canvas at 25 mm/s with an erase bar ahead of the pen. Samples arrive
// a second at a time and play out at 200 per second from a short queue, so the trace moves
// smoothly; the queue is kept short so the trace stays within about a second of the numbers.
import { COUNTS_PER_MV, ECG_HZ, WAVE_BASELINE } from "./record.js";

export const PX_PER_MM = 96 / 25.4; // CSS pixels
const MM_PER_S = 25;
const MM_PER_MV = 10;
const START_AFTER_MS = 400; // jitter allowance before a new trace starts
const ERASE_PX = 14;
const MAX_QUEUE = 3 * ECG_HZ; // beyond this the oldest samples are dropped to catch up

export class Sweep {
  constructor(canvas, { colour = "#3f3" } = {}) {
    this.canvas = canvas;
    this.ctx = canvas.getContext("2d");
    this.colour = colour;
    this.queue = [];
    this.playing = false;
    this.firstQueuedAt = 0;
    this.x = 0; // pen position, CSS px
    this.lastY = null;
    this.carry = 0; // fractional samples due
    this.resize();
  }

  resize() {
    const r = this.canvas.getBoundingClientRect();
    const dpr = globalThis.devicePixelRatio || 1;
    this.w = Math.max(1, Math.round(r.width));
    this.h = Math.max(1, Math.round(r.height));
    this.canvas.width = Math.round(this.w * dpr);
    this.canvas.height = Math.round(this.h * dpr);
    this.ctx.setTransform(dpr, 0, 0, dpr, 0, 0);
    this.ctx.clearRect(0, 0, this.w, this.h);
    this.x = 0;
    this.lastY = null;
  }

  push(wave, nowMs) {
    if (!this.queue.length) this.firstQueuedAt = nowMs;
    for (const v of wave) this.queue.push(v);
    if (this.queue.length > MAX_QUEUE) this.queue.splice(0, this.queue.length - ECG_HZ);
  }

  y(v) {
    const px = ((v - WAVE_BASELINE) / COUNTS_PER_MV) * MM_PER_MV * PX_PER_MM;
    return Math.max(1, Math.min(this.h - 1, this.h / 2 - px));
  }

  // Advances the pen by the samples due in dtMs; returns the number drawn.
  step(dtMs, nowMs) {
    if (!this.playing) {
      if (!this.queue.length || nowMs - this.firstQueuedAt < START_AFTER_MS) return 0;
      this.playing = true;
      this.carry = 0;
    }
    this.carry += (dtMs * ECG_HZ) / 1000;
    let n = Math.floor(this.carry);
    this.carry -= n;
    n = Math.min(n, this.queue.length);
    if (!n) {
      // Queue ran dry: hold the pen and wait for the next second to arrive.
      this.playing = false;
      this.lastY = null;
      return 0;
    }
    const ctx = this.ctx;
    const dx = (MM_PER_S * PX_PER_MM) / ECG_HZ;
    ctx.strokeStyle = this.colour;
    ctx.lineWidth = 1.3;
    ctx.beginPath();
    let x = this.x;
    if (this.lastY !== null) ctx.moveTo(x, this.lastY);
    for (let i = 0; i < n; i++) {
      const y = this.y(this.queue[i]);
      if (x + dx > this.w) {
        x = 0;
        ctx.moveTo(0, y);
      } else if (this.lastY === null) {
        x += dx;
        ctx.moveTo(x, y);
      } else {
        x += dx;
        ctx.lineTo(x, y);
      }
      this.lastY = y;
    }
    ctx.stroke();
    this.queue.splice(0, n);
    // The erase bar: the band just ahead of the pen is cleared before the pen reaches it.
    const from = Math.ceil(x) + 1;
    ctx.clearRect(from, 0, ERASE_PX, this.h);
    if (from + ERASE_PX > this.w) ctx.clearRect(0, 0, from + ERASE_PX - this.w, this.h);
    this.x = x;
    return n;
  }
}

// Draws a stored stretch of ECG (full disclosure, alarm strips) at 25 mm/s with a 5-mm grid.
export function drawStrip(canvas, samples, { colour = "#111", grid = true, gapsAt = [] } = {}) {
  const dpr = globalThis.devicePixelRatio || 1;
  const r = canvas.getBoundingClientRect();
  const w = Math.max(1, Math.round(r.width));
  const h = Math.max(1, Math.round(r.height));
  canvas.width = Math.round(w * dpr);
  canvas.height = Math.round(h * dpr);
  const ctx = canvas.getContext("2d");
  ctx.setTransform(dpr, 0, 0, dpr, 0, 0);
  ctx.fillStyle = "#fff";
  ctx.fillRect(0, 0, w, h);
  const mm = PX_PER_MM;
  if (grid) {
    ctx.strokeStyle = "#f3c6c6";
    ctx.lineWidth = 1;
    ctx.beginPath();
    for (let x = 0; x < w; x += 5 * mm) (ctx.moveTo(Math.round(x) + 0.5, 0), ctx.lineTo(Math.round(x) + 0.5, h));
    for (let y = h / 2; y < h; y += 5 * mm) (ctx.moveTo(0, Math.round(y) + 0.5), ctx.lineTo(w, Math.round(y) + 0.5));
    for (let y = h / 2 - 5 * mm; y > 0; y -= 5 * mm) (ctx.moveTo(0, Math.round(y) + 0.5), ctx.lineTo(w, Math.round(y) + 0.5));
    ctx.stroke();
  }
  const dx = (MM_PER_S * mm) / ECG_HZ;
  ctx.strokeStyle = colour;
  ctx.lineWidth = 1.2;
  ctx.beginPath();
  let pen = false;
  for (let i = 0; i < samples.length && i * dx <= w; i++) {
    const v = samples[i];
    if (v === null || v === undefined) {
      pen = false;
      continue;
    }
    const y = Math.max(1, Math.min(h - 1, h / 2 - ((v - WAVE_BASELINE) / COUNTS_PER_MV) * MM_PER_MV * mm));
    if (pen) ctx.lineTo(i * dx, y);
    else ctx.moveTo(i * dx, y);
    pen = true;
  }
  ctx.stroke();
  ctx.fillStyle = "#c00";
  for (const i of gapsAt) ctx.fillRect(i * dx, 0, 1, h);
  return Math.floor(w / dx); // samples that fit
}

// Benchmark (not a test): the page's frame time with 64 sweeping tiles and the latency from a
// frame stored (Rtm-Frame-Time) to its tile updated, in headless Chromium against a private
// nats-server, one worker and 64 synthetic devices sent in real time.
//   node bench/frame_time.mjs [--seconds S] [--devices N]
import { loadavg } from "node:os";
import { join } from "node:path";
import { World, buildPage, missing, sleep } from "../test/harness.mjs";
import { writeFrameFile } from "../test/frames.mjs";

const arg = (name, def) => {
  const i = process.argv.indexOf(name);
  return i > 0 ? Number(process.argv[i + 1]) : def;
};
const seconds = arg("--seconds", 30);
const devices = arg("--devices", 64);
const why = missing();
if (why) {
  console.error(`frame_time: ${why}`);
  process.exit(1);
}
const pct = (v, p) => {
  const s = [...v].sort((a, b) => a - b);
  return s[Math.min(s.length - 1, Math.floor(p * s.length))];
};

const w = new World({ partitions: 16 });
try {
  const browser = w.browser_();
  await Promise.all([buildPage(), w.startServer()]);
  await w.startWorkers(1);
  const file = join(w.dir, "bench.frames");
  const devs = Array.from({ length: devices }, (_, i) => ({ id: i + 1, hr: () => 60 + (i % 40), br: () => 12 + (i % 8) }));
  writeFrameFile(file, devs, seconds + 12);
  await browser;
  const page = await w.openPage(`&devices=1-${devices}`);
  await sleep(1500);
  w.publish(file);
  // Warm-up: every tile sweeping.
  await sleep(10000);
  await page.evaluate(() => {
    rtmStation.frameTimes.length = 0;
    rtmStation.frameWork.length = 0;
    rtmStation.latencies.length = 0;
  });
  console.error(`measuring ${seconds} s with ${devices} tiles…`);
  await sleep(seconds * 1000);
  const { frames, work, lat, sweeping } = await page.evaluate(() => ({
    work: rtmStation.frameWork.slice(),
    frames: rtmStation.frameTimes.slice(1),
    lat: rtmStation.latencies.slice(),
    sweeping: [...rtmStation.tiles.values()].filter((t) => !t.stale).length,
  }));
  await page.screenshot({ path: join(w.shotDir(), `bench-${devices}.png`) });
  const fps = (frames.length / frames.reduce((a, b) => a + b, 0)) * 1000;
  console.log(`tiles live: ${sweeping} of ${devices}`);
  console.log(`frame time: median ${pct(frames, 0.5).toFixed(1)} ms, p95 ${pct(frames, 0.95).toFixed(1)} ms, p99 ${pct(frames, 0.99).toFixed(1)} ms (${fps.toFixed(1)} frames/s over ${frames.length} frames)`);
  console.log(`script per frame: median ${pct(work, 0.5).toFixed(2)} ms, p95 ${pct(work, 0.95).toFixed(2)} ms`);
  console.log(`load average: ${loadavg().map((x) => x.toFixed(1)).join(" ")}`);
  console.log(`frame stored -> tile updated: median ${pct(lat, 0.5).toFixed(1)} ms, p95 ${pct(lat, 0.95).toFixed(1)} ms, p99 ${pct(lat, 0.99).toFixed(1)} ms (${lat.length} results)`);
} finally {
  await w.stop();
}

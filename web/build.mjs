// Builds the station page: node build.mjs [OUTDIR] (default ../build/station).
import { build } from "esbuild";
import { copyFileSync, mkdirSync } from "node:fs";
import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";

const here = dirname(fileURLToPath(import.meta.url));
const out = resolve(process.argv[2] ?? join(here, "..", "build", "station"));
mkdirSync(out, { recursive: true });
await build({
  entryPoints: [join(here, "src", "main.js")],
  bundle: true,
  format: "iife",
  target: "es2022",
  minify: !process.env.RTM_STATION_DEBUG,
  sourcemap: true,
  outfile: join(out, "station.js"),
  logLevel: "warning",
});
// uPlot's stylesheet goes first so the page's own rules win.
await build({
  entryPoints: [join(here, "src", "bundle.css")],
  bundle: true,
  outfile: join(out, "station.css"),
  logLevel: "warning",
});
copyFileSync(join(here, "src", "index.html"), join(out, "index.html"));
console.log(join(out, "index.html"));

#!/usr/bin/env python3
"""Measures the timing and scale figures quoted in docs/reference.md, through the rtmonitor tool.

usage: /usr/bin/python3 docs/measure_contract.py [--tool build/rtmonitor] [--data ../shared/data]

Prints: warm-up times (first heart rate, first breathing rate, first respiration status 1) on
synthetic recordings and on the real recordings; the delay of the display waveforms behind the
input; and heart-rate coverage and error on MIT-BIH record 100 with its ECG gain scaled (counts
clipped to 0..1023 as an ADC would). The real-recording parts are skipped when the data is absent.
Needs numpy.
"""
import argparse
import os
import subprocess
import sys
import tempfile

import numpy as np

WORDS = 330


def replay(tool, frames_path, waves=False):
    cmd = [tool, "replay", frames_path] + (["--waves"] if waves else [])
    out = subprocess.run(cmd, check=True, capture_output=True, text=True).stdout.splitlines()
    header = out[0].split(",")
    rows = np.array([[float(v) for v in line.split(",")] for line in out[1:]])
    return {name: rows[:, i] for i, name in enumerate(header)}, rows, header


def first_second(values, predicate):
    hits = np.nonzero(predicate(values))[0]
    return int(hits[0]) if hits.size else None


def warmups(res):
    return (first_second(res["heart_rate"], lambda v: v > 0), first_second(res["breath_rate"], lambda v: v > 0),
            first_second(res["breath_state"], lambda v: v == 1))


def best_lag(x, y, max_lag):
    """The lag (samples) by which y follows x, by normalised cross-correlation."""
    x = (x - x.mean()) / (x.std() or 1.0)
    y = (y - y.mean()) / (y.std() or 1.0)
    n = len(x) - max_lag
    scores = [abs(float(np.dot(x[:n], y[lag:lag + n]))) for lag in range(max_lag)]
    return int(np.argmax(scores))


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--tool", default="build/rtmonitor")
    ap.add_argument("--data", default="../shared/data")
    args = ap.parse_args()
    if not os.access(args.tool, os.X_OK):
        sys.exit(f"{args.tool}: not found; build the tool first (make), or pass --tool PATH")
    tmp = tempfile.mkdtemp(prefix="rtm-measure-")

    print("Warm-up on synthetic recordings (rtmonitor synth, 3 min, seeds 1..10): index of the first frame with a value")
    firsts = []
    for seed in range(1, 11):
        path = os.path.join(tmp, f"s{seed}.frames")
        subprocess.run([args.tool, "synth", "--out", path, "--minutes", "3", "--seed", str(seed)], check=True,
                       capture_output=True)
        res, _, _ = replay(args.tool, path)
        firsts.append(warmups(res))
    for i, what in enumerate(["first heart rate", "first breathing rate", "first respiration status 1"]):
        vals = [f[i] for f in firsts if f[i] is not None]
        print(f"  {what:28s} min {min(vals)} s, median {int(np.median(vals))} s, max {max(vals)} s"
              f" ({len(vals)} of {len(firsts)} recordings)")

    path = os.path.join(tmp, "s1.frames")
    res, rows, header = replay(args.tool, path, waves=True)
    frames = np.fromfile(path, dtype="<i4").reshape(-1, WORDS)
    skip = 20  # past every warm-up
    ecg_in = frames[skip:, 2:202].reshape(-1).astype(float)
    ecg_out = rows[skip:, header.index("heart_wave_0"):header.index("heart_wave_0") + 200].reshape(-1).astype(float)
    br_in = frames[skip:, 204:229].reshape(-1).astype(float)
    br_out = rows[skip:, header.index("breath_display1_0"):header.index("breath_display1_0") + 25].reshape(-1)
    lag_ecg = best_lag(ecg_in, ecg_out, 200)
    lag_br = best_lag(br_in, br_out.astype(float), 250)
    print("Display delay behind the input (cross-correlation, seed 1, from second 20):")
    print(f"  nHeartWave       {lag_ecg} samples = {lag_ecg * 5} ms at 200 samples/s")
    print(f"  nBreathDisplay1  {lag_br} samples = {lag_br * 40} ms at 25 samples/s")

    if not os.path.isdir(args.data):
        print(f"{args.data}: absent; the real-recording figures are skipped")
        return
    for name in ["100", "03700181", "v102s"]:
        res, _, _ = replay(args.tool, os.path.join(args.data, name + ".frames"))
        hr, br, st = warmups(res)
        print(f"Warm-up on {name}: first heart rate {hr} s, first breathing rate {br} s, first status 1 {st} s")

    ref = np.genfromtxt(os.path.join(args.data, "100.ref.csv"), delimiter=",", names=True)["hr_ref_bpm"]
    frames = np.fromfile(os.path.join(args.data, "100.frames"), dtype="<i4").reshape(-1, WORDS)
    print("Record 100 (30 min) with its ECG gain scaled: counts = 512 + gain x (counts - 512), clipped to 0..1023;")
    print("  from second 60: seconds with a rate, mean absolute error against the reference, quality 1")
    for gain in [0.1, 0.25, 0.5, 1.0, 2.0, 3.0, 5.0, 10.0]:
        scaled = frames.copy()
        ecg = scaled[:, 2:202].astype(float)
        scaled[:, 2:202] = np.clip(np.round(512 + gain * (ecg - 512)), 0, 1023).astype("<i4")
        p2p = np.median(scaled[:, 2:202].max(axis=1) - scaled[:, 2:202].min(axis=1))
        spath = os.path.join(tmp, "scaled.frames")
        scaled.astype("<i4").tofile(spath)
        res, _, _ = replay(args.tool, spath)
        hr = res["heart_rate"][60:].astype(float)
        ok = (hr > 0) & ~np.isnan(ref[60:len(hr) + 60])
        mae = np.mean(np.abs(hr[ok] - ref[60:][ok])) if ok.any() else float("nan")
        q1 = np.mean(res["heart_status"][60:] == 1) * 100
        print(f"  gain {gain:5.2f}: median peak-to-peak {int(p2p):4d} counts, rate in {np.mean(hr > 0) * 100:5.1f} %"
              f" of seconds, MAE {mae:5.2f} beats/min, quality 1 in {q1:5.1f} %")


if __name__ == "__main__":
    main()

// The `meter` command: a heart-rate meter test set in the manner of cardiac-monitor standards,
// generated here and run through the library (one fresh device per scenario, one frame per
// second). ECG at 200 samples/s in counts = 512 + round(mV x 200). Beats are triangular QRS
// pulses of a given height and width, with a half-sine T wave and, for normal beats, a P wave.
// Check: `rtmonitor meter --json m.json`; every row states its waveform, expectation and reading.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "cli.h"
#include "evaluation/beat_scoring.h"
#include "output_file.h"
#include "rtmonitor.h"
#include "synth/test_pattern.h"

namespace rtmtool {

const char* const kMeterUsage =
    "usage: rtmonitor meter [--beats] [--json FILE]\n"
    "\n"
    "Runs the heart-rate meter test set through the library and judges each scenario against the\n"
    "tolerance max(10 %, 5 bpm). ECG only (respiration flat, sensor still), 200 samples/s,\n"
    "counts = 512 + round(mV x 200). Unless stated, beats are 1 mV triangular QRS pulses 70 ms\n"
    "wide with a 0.2 mV T wave. The reading is the median of the reported rates over the last\n"
    "10 s of each scenario (after at least 30 s). Rate steps: time from the step until the rate\n"
    "first reads within tolerance of the new rate, limit 10 s. Asystole: time from the last beat\n"
    "until the rate reads 0, limit 10 s, and time from the first beat after it until the rate is\n"
    "back within tolerance, limit 10 s. One row per scenario, then \"N of M scenarios pass\".\n"
    "\n"
    "  --beats           also score each scenario beat by beat: the beats the library confirms\n"
    "                    against the generated R peaks, matched one to one within 150 ms\n"
    "                    from 5 s to 2 s before the end (start-up and unconfirmable last beats\n"
    "                    left out): reference and detected beats, sensitivity, positive\n"
    "                    predictivity\n"
    "  --json FILE       also write the rows as JSON (with --beats, each row gains \"beats\")\n";

namespace {

using rtm_synth::Beat;

constexpr int kSamplesPerSecond = 200;
constexpr double kCountsPerMv = 200;
constexpr double kReadingWindowSeconds = 10;
constexpr double kResponseLimitSeconds = 10;
constexpr double kBeatSettleSeconds = 5;           // beats before this are not scored
constexpr double kBeatConfirmSeconds = 2;          // nor those in the last 2 s
constexpr int32_t kFirstMeterDevice = 0x4d455452;  // device ids no other tool command uses

enum class Kind { Steady, Step, Asystole };

struct Scenario {
    std::string name;
    std::string waveform;  // one line describing the parameters
    Kind kind = Kind::Steady;
    std::vector<Beat> beats;
    double expected = 0;                    // rate the meter should read at the end (0: no rate)
    double eventAt = 0;                     // step time, or asystole onset (last beat)
    double resumeAt = 0;                    // asystole: first beat after it
    rtm_synth::TestPatternOptions pattern;  // length (40 s unless set), interference, noise
};

struct Outcome {
    double reading = 0;
    double time1 = -1, time2 = -1;  // response times, -1 = not reached
    bool pass = false;
    std::string reason;  // why it failed, shown on its row
};

std::string num(double v) {
    char b[32];
    std::snprintf(b, sizeof b, "%g", v);
    return b;
}

double tolerance(double rate) { return std::max(0.1 * rate, 5.0); }

// Beats at a steady interval from `from` (first beat) up to `to`.
void addRegular(std::vector<Beat>& beats, double rate, double from, double to, Beat shape = {}) {
    for (double t = from; t < to; t += 60.0 / rate) {
        shape.time = t;
        beats.push_back(shape);
    }
}

// Beats repeating `intervals` with `shapes` (same length), from `from` to `to`.
void addPattern(std::vector<Beat>& beats, const std::vector<double>& intervals, const std::vector<Beat>& shapes,
                double from, double to) {
    size_t k = 0;
    for (double t = from; t < to; t += intervals[k % intervals.size()], ++k) {
        Beat b = shapes[k % shapes.size()];
        b.time = t;
        beats.push_back(b);
    }
}

Beat ventricular() {
    Beat b;
    b.qrsMv = -1.5;
    b.qrsWidth = 0.12;
    b.tMv = 0.4;
    b.pWave = false;
    return b;
}

struct Run {
    std::vector<int> rates;
    std::vector<DetectedBeat> beats;
};

// On a handle of its own, whose outputs are word for word those of a registered device, and which
// also reports each beat it confirms.
Run runThroughLibrary(const Scenario& s, int32_t device) {
    const std::vector<double> mv = rtm_synth::renderTestPattern(s.beats, s.pattern);
    ParamsIn in;
    std::memset(&in, 0, sizeof in);
    in.nDeviceId = device;
    for (int i = 0; i < 25; ++i) {
        in.nBreathChan1[i] = in.nBreathChan0[i] = 30000;
        in.nAccX[i] = 512;
        in.nAccY[i] = 512;
        in.nAccZ[i] = 640;
    }
    ParamsOut out;
    Run run;
    const std::unique_ptr<rtm_device, void (*)(rtm_device*)> handle(rtm_device_create(), rtm_device_destroy);
    if (!handle) return run;
    rtm_beat beats[RTM_BEATS_MAX];
    for (size_t f = 0; f * kSamplesPerSecond < mv.size(); ++f) {
        in.nFrameSeq = static_cast<int32_t>(f);
        for (int i = 0; i < kSamplesPerSecond; ++i) {
            const double v = 512 + std::round(mv[f * kSamplesPerSecond + static_cast<size_t>(i)] * kCountsPerMv);
            in.nHeartData[i] = static_cast<int32_t>(std::clamp(v, 0.0, 1023.0));
        }
        rtm_device_process(handle.get(), &in, &out);
        run.rates.push_back(out.nHeartRate);
        const size_t n = std::min<size_t>(rtm_device_beats(handle.get(), beats, RTM_BEATS_MAX), RTM_BEATS_MAX);
        for (size_t k = 0; k < n; ++k)
            run.beats.push_back(DetectedBeat{static_cast<double>(beats[k].sample) / kSamplesPerSecond,
                                             static_cast<double>(f + 1), beats[k].rr_ms});
    }
    return run;
}

// The generated R peaks are the reference: the test pattern draws each beat's QRS apex at its time.
// Scored from kBeatSettleSeconds (the detector learns its thresholds first) to kBeatConfirmSeconds
// before the end (a beat is confirmed only once the next one has been measured). A detected beat
// goes with the reference beat nearest to it, when one lies within the matching window, so that a
// beat at an edge is neither missed nor false for the side its detection happens to fall on.
BeatScore scoreScenario(const Scenario& s, const std::vector<DetectedBeat>& detected) {
    const double from = kBeatSettleSeconds, to = s.pattern.seconds - kBeatConfirmSeconds;
    auto scored = [&](double t) { return t >= from && t < to; };
    std::vector<double> reference;
    for (const Beat& b : s.beats)
        if (scored(b.time)) reference.push_back(b.time);
    std::vector<DetectedBeat> inWindow;
    for (const DetectedBeat& d : detected) {
        double nearest = d.time, distance = kBeatMatchWindow;
        for (const Beat& b : s.beats)
            if (std::fabs(b.time - d.time) <= distance) {
                distance = std::fabs(b.time - d.time);
                nearest = b.time;
            }
        if (scored(nearest)) inWindow.push_back(d);
    }
    return scoreBeats(inWindow, reference, s.pattern.seconds);
}

std::string percent(double share) {
    char b[32];
    std::snprintf(b, sizeof b, "%.1f %%", 100 * share);
    return b;
}

double medianOfLast(const std::vector<int>& rates, size_t count) {
    std::vector<int> tail(rates.end() - static_cast<long>(std::min(count, rates.size())), rates.end());
    std::sort(tail.begin(), tail.end());
    return tail.empty() ? 0 : tail[tail.size() / 2];
}

bool within(double reading, double expected) {
    return expected == 0 ? reading == 0 : std::fabs(reading - expected) <= tolerance(expected);
}

// Seconds from `from` to the end of the first second whose rate satisfies `ok` (frame s covers
// [s, s+1)); -1 if none does.
double responseTime(const std::vector<int>& rates, double from, const std::function<bool(int)>& ok) {
    for (size_t s = static_cast<size_t>(std::ceil(from)); s < rates.size(); ++s)
        if (ok(rates[s])) return static_cast<double>(s + 1) - from;
    return -1;
}

// "" when `t` is within the response limit, else what went wrong.
std::string lateness(const char* what, double t) {
    if (t < 0) return std::string(what) + " never";
    if (t > kResponseLimitSeconds)
        return std::string(what) + " " + num(t) + " s > " + num(kResponseLimitSeconds) + " s";
    return "";
}

Outcome judge(const Scenario& s, const std::vector<int>& rates) {
    Outcome o;
    o.reading = medianOfLast(rates, static_cast<size_t>(kReadingWindowSeconds));
    std::vector<std::string> wrong;
    if (!within(o.reading, s.expected)) wrong.push_back("reading " + num(o.reading) + " off " + num(s.expected));
    if (s.kind == Kind::Step) {
        o.time1 = responseTime(rates, s.eventAt, [&](int r) { return r > 0 && within(r, s.expected); });
        wrong.push_back(lateness("response", o.time1));
    } else if (s.kind == Kind::Asystole) {
        const std::vector<int> untilResume(
            rates.begin(),
            rates.begin() + static_cast<long>(std::min<size_t>(rates.size(), static_cast<size_t>(s.resumeAt))));
        o.time1 = responseTime(untilResume, s.eventAt, [](int r) { return r == 0; });
        o.time2 = responseTime(rates, s.resumeAt, [&](int r) { return r > 0 && within(r, s.expected); });
        wrong.push_back(lateness("to 0", o.time1));
        wrong.push_back(lateness("recovery", o.time2));
    }
    for (const std::string& w : wrong)
        if (!w.empty()) o.reason += (o.reason.empty() ? "" : "; ") + w;
    o.pass = o.reason.empty();
    return o;
}

std::vector<Scenario> scenarios() {
    std::vector<Scenario> list;
    auto steady = [&](const std::string& name, const std::string& waveform, double rate, Beat shape) {
        Scenario s;
        s.name = name;
        s.waveform = waveform;
        s.expected = rate;
        addRegular(s.beats, rate, 0.5, s.pattern.seconds, shape);
        list.push_back(s);
        return &list.back();
    };
    for (double rate : {30, 60, 80, 120, 180, 240, 300}) {
        Beat b;
        if (rate > 200) b.tMv = 0;  // no room for a T wave in such short cycles
        steady("rate " + num(rate), num(rate) + " bpm, 1 mV, 70 ms" + (rate > 200 ? ", no T wave" : ""), rate, b);
    }
    {
        Beat b;
        b.qrsMv = 0.15;
        b.tMv = 0.03;
        Scenario* s = steady("amplitude 0.15 mV", "80 bpm, 0.15 mV QRS: must not be counted (reads 0)", 80, b);
        s->expected = 0;
    }
    for (double a : {0.5, 1.0, 2.0, 3.0, 5.0}) {
        Beat b;
        b.qrsMv = a;
        b.tMv = 0.2 * a;
        steady("amplitude " + num(a) + " mV", "80 bpm, " + num(a) + " mV QRS, T " + num(0.2 * a) + " mV", 80, b);
    }
    for (double w : {0.04, 0.07, 0.12}) {
        Beat b;
        b.qrsWidth = w;
        steady("QRS width " + num(w * 1000) + " ms", "80 bpm, 1 mV, " + num(w * 1000) + " ms wide", 80, b);
    }
    for (double t : {0.4, 0.8, 1.2}) {
        Beat b;
        b.qrsWidth = 0.1;
        b.tMv = t;
        steady("tall T " + num(t) + " mV", "80 bpm, 1 mV 100 ms QRS, T " + num(t) + " mV: T not counted", 80, b);
    }
    for (double to : {120.0, 40.0}) {
        Scenario s;
        s.name = "step 80 to " + num(to);
        s.waveform = "80 bpm for 40 s, then " + num(to) + " bpm for 40 s; response time";
        s.kind = Kind::Step;
        s.pattern.seconds = 80;
        s.eventAt = 40;
        s.expected = to;
        addRegular(s.beats, 80, 0.5, 40);
        addRegular(s.beats, to, s.beats.back().time + 60.0 / to, s.pattern.seconds);
        list.push_back(s);
    }
    {
        auto irregular = [&](const std::string& name, const std::string& waveform, double rate,
                             const std::vector<double>& intervals, const std::vector<Beat>& shapes) {
            Scenario s;
            s.name = name;
            s.waveform = waveform;
            s.expected = rate;
            addPattern(s.beats, intervals, shapes, 0.5, s.pattern.seconds);
            list.push_back(s);
        };
        const Beat normal;
        Beat down = normal;
        down.qrsMv = -1;
        down.tMv = -0.2;
        irregular("ventricular bigeminy 80",
                  "normal and wide (120 ms, -1.5 mV) beats alternating, RR 0.6 / 0.9 s: 80 bpm", 80, {0.6, 0.9},
                  {normal, ventricular()});
        irregular("slow alternating bigeminy 60", "normal and wide beats alternating at an even RR of 1.0 s: 60 bpm",
                  60, {1.0}, {normal, ventricular()});
        irregular("rapid alternating bigeminy 120", "normal and wide beats alternating at an even RR of 0.5 s: 120 bpm",
                  120, {0.5}, {normal, ventricular()});
        irregular("bidirectional systoles 90", "upright and inverted 1 mV complexes alternating, even RR: 90 bpm", 90,
                  {60.0 / 90}, {normal, down});
    }
    for (double noise : {0.0, 0.05}) {
        Scenario s;
        s.name = noise > 0 ? "asystole, noisy baseline" : "asystole, flat line";
        s.waveform = "80 bpm for 30 s, no beats for 20 s, 80 bpm for 30 s" +
                     (noise > 0 ? std::string("; 0.05 mV rms noise throughout") : std::string());
        s.kind = Kind::Asystole;
        s.pattern.seconds = 80;
        s.pattern.noiseMv = noise;
        s.expected = 80;
        addRegular(s.beats, 80, 0.5, 30);
        s.eventAt = s.beats.back().time;
        s.resumeAt = s.eventAt + 20;
        addRegular(s.beats, 80, s.resumeAt, s.pattern.seconds);
        list.push_back(s);
    }
    for (double hz : {50.0, 60.0}) {
        Scenario s;
        s.name = "mains " + num(hz) + " Hz";
        s.waveform = "80 bpm, 1 mV, with " + num(hz) + " Hz interference of 0.2 mV amplitude";
        s.expected = 80;
        s.pattern.mainsHz = hz;
        s.pattern.mainsMv = 0.2;
        addRegular(s.beats, 80, 0.5, s.pattern.seconds);
        list.push_back(s);
    }
    {
        Scenario s;
        s.name = "baseline wander";
        s.waveform = "80 bpm, 1 mV, on a 0.25 Hz sine of 1 mV amplitude";
        s.expected = 80;
        s.pattern.wanderHz = 0.25;
        s.pattern.wanderMv = 1;
        addRegular(s.beats, 80, 0.5, s.pattern.seconds);
        list.push_back(s);
    }
    return list;
}

std::string jsonText(const std::string& s) {
    std::string r = "\"";
    for (char c : s) r += (c == '"' || c == '\\') ? std::string("\\") + c : std::string(1, c);
    return r + "\"";
}

std::vector<std::string> tableRow(const Scenario& s, const Outcome& o) {
    std::string times = "-";
    auto t = [](double v) { return v < 0 ? std::string("never") : num(v); };
    if (s.kind == Kind::Step) times = t(o.time1);
    if (s.kind == Kind::Asystole) times = t(o.time1) + "/" + t(o.time2);
    const std::string tol = s.expected == 0 ? "=0" : num(tolerance(s.expected));
    return {s.name, num(s.expected), num(o.reading), tol, times, o.pass ? "pass" : "FAIL: " + o.reason, s.waveform};
}

std::vector<std::string> beatsRow(const Scenario& s, const BeatScore& b) {
    auto share = [](double v) { return std::isnan(v) ? std::string("-") : percent(v); };
    return {s.name,
            std::to_string(b.reference),
            std::to_string(b.detected),
            std::to_string(b.missed),
            std::to_string(b.falseBeats),
            share(b.sensitivity),
            share(b.predictivity)};
}

std::string beatsJson(const BeatScore& b) {
    auto share = [](double v) { return std::isnan(v) ? std::string("null") : num(v); };
    return "{\"reference\": " + std::to_string(b.reference) + ", \"detected\": " + std::to_string(b.detected) +
           ", \"matched\": " + std::to_string(b.matched) + ", \"missed\": " + std::to_string(b.missed) +
           ", \"false\": " + std::to_string(b.falseBeats) + ", \"sensitivity\": " + share(b.sensitivity) +
           ", \"positive_predictivity\": " + share(b.predictivity) + "}";
}

// `beats`: the row's "beats" object, or "" to leave it out.
std::string jsonRow(const Scenario& s, const Outcome& o, const std::string& beats) {
    std::ostringstream json;
    json << "{\"name\": " << jsonText(s.name) << ", \"waveform\": " << jsonText(s.waveform)
         << ", \"expected_bpm\": " << num(s.expected) << ", \"reading_bpm\": " << num(o.reading)
         << ", \"tolerance_bpm\": " << (s.expected == 0 ? "0" : num(tolerance(s.expected)));
    if (s.kind == Kind::Step) json << ", \"response_s\": " << (o.time1 < 0 ? "null" : num(o.time1));
    if (s.kind == Kind::Asystole)
        json << ", \"time_to_zero_s\": " << (o.time1 < 0 ? "null" : num(o.time1))
             << ", \"time_to_recover_s\": " << (o.time2 < 0 ? "null" : num(o.time2));
    json << ", \"pass\": " << (o.pass ? "true" : "false");
    if (!o.pass) json << ", \"reason\": " << jsonText(o.reason);
    if (!beats.empty()) json << ", \"beats\": " << beats;
    json << "}";
    return json.str();
}

// Left-aligned text columns, numbers (columns 1..lastNumber) right-aligned; the last column unpadded.
void printTable(const std::vector<std::vector<std::string>>& rows, size_t lastNumber) {
    std::vector<size_t> width(rows[0].size(), 0);
    for (const auto& r : rows)
        for (size_t c = 0; c < r.size(); ++c) width[c] = std::max(width[c], r[c].size());
    for (const auto& r : rows) {
        std::string line;
        for (size_t c = 0; c < r.size(); ++c) {
            const std::string pad(width[c] - r[c].size(), ' ');
            const bool right = c >= 1 && c <= lastNumber;
            line += c + 1 == r.size() ? r[c] : (right ? pad + r[c] : r[c] + pad) + "  ";
        }
        std::printf("%s\n", line.c_str());
    }
}

}  // namespace

int runMeter(const std::vector<std::string>& args) {
    static const CommandSpec kCommand{"meter", kMeterUsage, {{"--json"}, {"--beats"}}};
    ParsedArgs p;
    int status = kExitOk;
    if (!parseCommand(kCommand, args, p, status)) return status;
    std::string error;
    if (p.help) {
        std::fputs(kMeterUsage, stdout);
        return kExitOk;
    }
    if (!p.positional.empty()) return usageError("meter", "unexpected argument '" + p.positional[0] + "'", kMeterUsage);

    if (p.values.count("--json") && !checkOutputs({}, {{"--json", p.values["--json"]}}, error)) {
        std::fprintf(stderr, "rtmonitor meter: %s\n", error.c_str());
        return kExitInput;
    }
    const std::vector<Scenario> list = scenarios();
    std::ostringstream json;
    json << "{\n  \"tolerance\": \"max(10 %, 5 bpm)\",\n  \"scenarios\": [";
    // Rows are gathered first so each column is as wide as its widest entry.
    std::vector<std::vector<std::string>> rows{
        {"scenario", "expected", "reading", "tol", "times s", "result", "waveform"}};
    const bool withBeats = p.flags.count("--beats") > 0;
    std::vector<std::vector<std::string>> beatRows{
        {"scenario", "reference", "detected", "missed", "false", "sensitivity", "+predictivity"}};
    int passed = 0;
    for (size_t i = 0; i < list.size(); ++i) {
        const Scenario& s = list[i];
        const Run run = runThroughLibrary(s, kFirstMeterDevice + static_cast<int32_t>(i));
        const Outcome o = judge(s, run.rates);
        passed += o.pass ? 1 : 0;
        rows.push_back(tableRow(s, o));
        const BeatScore b = scoreScenario(s, run.beats);
        if (withBeats) beatRows.push_back(beatsRow(s, b));
        json << (i ? "," : "") << "\n    " << jsonRow(s, o, withBeats ? beatsJson(b) : "");
    }
    printTable(rows, 4);
    std::printf("times: rate steps, seconds to the new rate; asystole, seconds to read 0 / to recover (limits %g s)\n",
                kResponseLimitSeconds);
    std::printf("%d of %zu scenarios pass\n", passed, list.size());
    if (withBeats) {
        std::printf(
            "\nbeats: confirmed beats against the generated R peaks, matched one to one within %g ms, from %g s "
            "to %g s before the end\n",
            kBeatMatchWindow * 1000, kBeatSettleSeconds, kBeatConfirmSeconds);
        printTable(beatRows, beatRows[0].size());
    }
    json << "\n  ],\n  \"passed\": " << passed << ",\n  \"total\": " << list.size() << "\n}\n";
    if (p.values.count("--json") && !writeWholeFile(p.values["--json"], json.str(), error)) {
        std::fprintf(stderr, "rtmonitor meter: %s: cannot write: %s\n", p.values["--json"].c_str(), error.c_str());
        return kExitInput;
    }
    return kExitOk;
}

}  // namespace rtmtool

// The `demo` and `synth` commands: generate the synthetic recording, then either run it through
// the library second by second (table, summary against the truth, optional CSV and report) or
// write it as a frame file.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "classes.h"
#include "cli.h"
#include "evaluation/evaluate.h"
#include "formats/frame_file.h"
#include "host.h"
#include "output_file.h"
#include "report/report.h"
#include "synth.h"

namespace rtmtool {
namespace {

constexpr long long kMaxMinutes = 240;
constexpr int kDefaultMinutes = 4;
// Seconds the analysers need before their rates are compared with the truth: the heart rate
// averages several beats after thresholds are learnt, the breathing rate looks at 40 s.
constexpr int kHeartWarmupSeconds = 20;
constexpr int kBreathWarmupSeconds = 45;

struct RecordingArgs {
    int minutes = kDefaultMinutes;
    uint32_t seed = 1;
};

// Reads --minutes and --seed; false with `error` set on a bad number.
bool recordingArgs(const ParsedArgs& p, RecordingArgs& r, std::string& error) {
    long long v = 0;
    auto it = p.values.find("--minutes");
    if (it != p.values.end()) {
        if (!parseInteger(it->second, 1, kMaxMinutes, v)) {
            error = "--minutes needs a whole number from 1 to " + std::to_string(kMaxMinutes) + ", not '" + it->second +
                    "'";
            return false;
        }
        r.minutes = static_cast<int>(v);
    }
    it = p.values.find("--seed");
    if (it != p.values.end()) {
        if (!parseInteger(it->second, 0, 4294967295LL, v)) {
            error = "--seed needs a whole number from 0 to 4294967295, not '" + it->second + "'";
            return false;
        }
        r.seed = static_cast<uint32_t>(v);
    }
    return true;
}

std::string clock(int seconds) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%d:%02d", seconds / 60, seconds % 60);
    return buf;
}

struct RateError {
    int scored = 0, reported = 0, within = 0;
    double sum = 0;
    void add(int reportedRate, double truth, double tolerance) {
        if (truth <= 0) return;
        ++scored;
        if (reportedRate <= 0) return;
        ++reported;
        const double e = std::fabs(reportedRate - truth);
        sum += e;
        within += e <= tolerance;
    }
    std::string line(const char* unit, int warmup, double tolerance) const {
        char buf[256];
        if (reported == 0) {
            std::snprintf(buf, sizeof buf, "no rate reported in the %d s after a %d s warm-up", scored, warmup);
        } else {
            std::snprintf(buf, sizeof buf,
                          "MAE %.2f %s over the %d of %d s with a rate after a %d s warm-up; within %.0f: %.1f %%",
                          sum / reported, unit, reported, scored, warmup, tolerance, 100.0 * within / reported);
        }
        return buf;
    }
};

}  // namespace

int runDemo(const std::vector<std::string>& args) {
    static const CommandSpec kCommand{"demo", kDemoUsage, {{"--minutes", "--seed", "--report", "--csv", "--at"}, {}}};
    ParsedArgs p;
    int status = kExitOk;
    if (!parseCommand(kCommand, args, p, status)) return status;
    std::string error;
    RecordingArgs r;
    int at = 60;
    if (!recordingArgs(p, r, error) || !parseAt(p, at, error)) return usageError("demo", error, kDemoUsage);
    std::vector<std::pair<std::string, std::string>> outputs;
    for (const char* option : {"--csv", "--report"})
        if (p.values.count(option)) outputs.emplace_back(option, p.values[option]);
    if (!checkOutputs({}, outputs, error)) {
        std::fprintf(stderr, "rtmonitor demo: %s; nothing was written\n", error.c_str());
        return kExitInput;
    }

    OutputFile csvFile;
    std::FILE* csv = nullptr;
    if (p.values.count("--csv")) {
        if (!csvFile.open(p.values["--csv"], error)) {
            std::fprintf(stderr, "rtmonitor demo: %s: cannot write: %s\n", p.values["--csv"].c_str(), error.c_str());
            return kExitInput;
        }
        csv = csvFile.file();
        writeCsvHeader(csv, false);
    }

    SynthOptions so;
    so.seconds = r.minutes * 60;
    so.seed = r.seed;
    const Recording rec = synthesize(so);

    Host host;
    Report report(
        "rtmonitor demo: " + std::to_string(r.minutes) + " min synthetic recording, seed " + std::to_string(r.seed),
        at);
    std::printf(
        "Synthetic recording: %d min, seed %u, device %d. One row per second; '*' marks a posture\n"
        "that differs from the generator's (turning seconds are not scored).\n\n",
        r.minutes, r.seed, so.deviceId);
    std::printf("  time   HR  true  q   BR  true  st  posture                 move\n");

    RateError heart, breath;
    int postureScored = 0, postureAgree = 0, quality1 = 0;
    int breathStates[4] = {0, 0, 0, 0};  // 0, 1, 2, other
    for (size_t s = 0; s < rec.frames.size(); ++s) {
        const ParamsIn& in = rec.frames[s];
        const SecondTruth& t = rec.truth[s];
        ParamsOut out{};
        size_t device = 0;
        host.process(in, out, device);
        report.add(device, in, out, &t);
        report.addBeats(device, host.beats(device));
        if (csv) writeCsvRow(csv, s, in, out, false);

        const int sec = static_cast<int>(s) + 1;
        if (sec > kHeartWarmupSeconds) heart.add(out.nHeartRate, t.heartRate, kHeartTolerance);
        if (sec > kBreathWarmupSeconds) breath.add(out.nBreathRate, t.breathRate, kBreathTolerance);
        const bool scored = t.posture != kPostureNotScored;
        const bool agrees = postureAgrees(t.posture, out.nPosture);
        postureScored += scored;
        postureAgree += scored && agrees;
        quality1 += out.nHeartStatus == 1;
        ++breathStates[out.nBreathState >= 0 && out.nBreathState <= 2 ? out.nBreathState : 3];

        char posture[48];
        std::snprintf(posture, sizeof posture, "%d %s%s", out.nPosture, postureName(out.nPosture),
                      scored && !agrees ? " *" : "");
        std::printf("%6s %4d %5.0f %2d %4d %5.1f %3d  %-22s %5d\n", clock(sec).c_str(), out.nHeartRate, t.heartRate,
                    out.nHeartStatus, out.nBreathRate, t.breathRate, out.nBreathState, posture, movementMax(out));
    }

    const int total = static_cast<int>(rec.frames.size());
    std::vector<std::string> summary;
    summary.push_back("Summary: " + std::to_string(total) + " s, seed " + std::to_string(r.seed));
    summary.push_back("  heart rate     " + heart.line("beats/min", kHeartWarmupSeconds, kHeartTolerance));
    summary.push_back("  breathing rate " + breath.line("breaths/min", kBreathWarmupSeconds, kBreathTolerance));
    char buf[256];
    std::snprintf(buf, sizeof buf, "  heart quality  %s (1) in %d of %d s", heartStatusName(1), quality1, total);
    summary.push_back(buf);
    std::snprintf(buf, sizeof buf, "  resp. status   %s (1): %d s, %s (0): %d s, %s (2): %d s%s", breathStateName(1),
                  breathStates[1], breathStateName(0), breathStates[0], breathStateName(2), breathStates[2],
                  breathStates[3] ? (", other: " + std::to_string(breathStates[3]) + " s").c_str() : "");
    summary.push_back(buf);
    std::snprintf(buf, sizeof buf, "  posture        agrees in %d of %d scored s (%.1f %%); %d s of turning not scored",
                  postureAgree, postureScored, postureScored ? 100.0 * postureAgree / postureScored : 0.0,
                  total - postureScored);
    summary.push_back(buf);
    std::printf("\n");
    for (const std::string& line : summary) std::printf("%s\n", line.c_str());

    status = kExitOk;
    if (!finishStandardOutput(error)) {
        std::fprintf(stderr, "rtmonitor demo: %s\n", error.c_str());
        status = kExitInput;
    }
    if (csv && !csvFile.commit(error)) {
        std::fprintf(stderr, "rtmonitor demo: %s: %s\n", p.values["--csv"].c_str(), error.c_str());
        status = kExitInput;
    }
    if (p.values.count("--report")) {
        for (const std::string& line : summary) report.addSummary(line);
        if (!report.write(p.values["--report"], error)) {
            std::fprintf(stderr, "rtmonitor demo: %s: cannot write: %s\n", p.values["--report"].c_str(), error.c_str());
            status = kExitInput;
        }
    }
    return status;
}

int runSynth(const std::vector<std::string>& args) {
    static const CommandSpec kCommand{"synth",
                                      kSynthUsage,
                                      {{"--out", "--minutes", "--seed", "--devices", "--truth"},
                                       {},
                                       0,
                                       0,
                                       "",
                                       nullptr,
                                       {{"--out", "--out FILE.frames is required"}}}};
    ParsedArgs p;
    int status = kExitOk;
    if (!parseCommand(kCommand, args, p, status)) return status;
    std::string error;
    RecordingArgs r;
    if (!recordingArgs(p, r, error)) return usageError("synth", error, kSynthUsage);
    long long devices = 1;
    if (p.values.count("--devices") && !parseInteger(p.values["--devices"], 1, 16, devices))
        return usageError("synth", "--devices needs a whole number from 1 to 16, not '" + p.values["--devices"] + "'",
                          kSynthUsage);

    std::vector<Recording> recs;
    for (long long k = 0; k < devices; ++k) {
        SynthOptions so;
        so.seconds = r.minutes * 60;
        so.seed = r.seed + static_cast<uint32_t>(k);
        so.deviceId = static_cast<int32_t>(k + 1);
        recs.push_back(synthesize(so));
    }
    // Interleaved second by second, as a host serving several devices logs them.
    std::vector<ParamsIn> frames;
    for (size_t s = 0; s < recs[0].frames.size(); ++s)
        for (const Recording& rec : recs) frames.push_back(rec.frames[s]);
    const std::string& out = p.values["--out"];
    const bool wantTruth = p.values.count("--truth") > 0;
    std::vector<std::pair<std::string, std::string>> outputs{{"--out", out}};
    if (wantTruth) outputs.emplace_back("--truth", p.values["--truth"]);
    if (!checkOutputs({}, outputs, error)) {
        std::fprintf(stderr, "rtmonitor synth: %s; nothing was written\n", error.c_str());
        return kExitInput;
    }
    // Both files are completed before either appears, so a failure leaves neither.
    OutputFile frameFile, truthFile;
    if (!frameFile.open(out, error) || !writeFrames(frameFile.file(), frames)) {
        std::fprintf(stderr, "rtmonitor synth: %s: cannot write: %s\n", out.c_str(),
                     error.empty() ? std::strerror(errno) : error.c_str());
        return kExitInput;
    }
    if (wantTruth) {
        const std::string& path = p.values["--truth"];
        if (!truthFile.open(path, error)) {
            std::fprintf(stderr, "rtmonitor synth: %s: cannot write: %s\n", path.c_str(), error.c_str());
            return kExitInput;
        }
        std::FILE* f = truthFile.file();
        std::fputs("device,second,heart_rate,breath_rate,target_heart_rate,target_breath_rate,posture,activity\n", f);
        for (size_t s = 0; s < recs[0].truth.size(); ++s)
            for (size_t k = 0; k < recs.size(); ++k) {
                const SecondTruth& t = recs[k].truth[s];
                std::fprintf(f, "%zu,%zu,%.2f,%.2f,%.2f,%.2f,%d,%s\n", k + 1, s, t.heartRate, t.breathRate,
                             t.targetHeartRate, t.targetBreathRate, t.posture, activityName(t.activity));
            }
        if (!truthFile.commit(error)) {
            std::fprintf(stderr, "rtmonitor synth: %s: %s\n", path.c_str(), error.c_str());
            return kExitInput;
        }
    }
    if (!frameFile.commit(error)) {
        std::fprintf(stderr, "rtmonitor synth: %s: %s\n", out.c_str(), error.c_str());
        return kExitInput;
    }
    std::fprintf(stderr, "rtmonitor synth: wrote %zu frames (%lld device%s, %d s) to %s\n", frames.size(), devices,
                 devices == 1 ? "" : "s", r.minutes * 60, out.c_str());
    return kExitOk;
}

}  // namespace rtmtool

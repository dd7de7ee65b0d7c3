// Synthetic recordings with their truth (see recording.h). Heart: the shared beatShape per beat
// with the T wave moving with the rate, R amplitude 150..350 counts, beat intervals from a
// smoothed rate schedule with respiratory sinus arrhythmia and jitter, respiration-linked
// baseline wander and noise.
// Respiration: per-breath cycles with a quick inspiration, slower expiration and an end-expiratory
// pause. Accelerometer: gravity in the sensor axes per posture, turns between postures and a
// walking gait. All randomness comes from independent streams of the shared Rng, so a seed gives
// the same recording on every platform.
#include "synth/recording.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "synth/random.h"
#include "synth/vitals.h"

namespace rtm_synth {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kHeartRate = 200;  // ECG samples per second
constexpr int kSlowRate = 25;    // respiration and accelerometer samples per second
constexpr double kCountsPerG = 128.0;
constexpr double kTurnSeconds = 3.0;
constexpr double kHeartTruthWindow = 10.0;   // seconds
constexpr double kBreathTruthWindow = 30.0;  // seconds

// Independent streams, so that changing how one signal uses randomness leaves the others alone.
uint32_t streamSeed(uint32_t seed, uint32_t stream) { return seed * 2654435761u + stream * 40503u + 1u; }

struct Segment {
    Activity activity;
    double weight;      // share of the recording
    double heartRate;   // beats/min the wearer settles to
    double breathRate;  // breaths/min
};

// One pass through the day's postures; the recording length scales every segment.
constexpr std::array<Segment, 6> kSchedule = {{
    {Activity::Supine, 0.25, 62, 13},
    {Activity::RightSide, 0.125, 65, 14},
    {Activity::LeftSide, 0.125, 64, 14},
    {Activity::Upright, 0.17, 74, 16},
    {Activity::Walking, 0.17, 102, 22},
    {Activity::Upright, 0.16, 82, 17},
}};

struct Vec3 {
    double x, y, z;
};

Vec3 gravityFor(Activity a) {
    Vec3 v{};
    switch (a) {
        case Activity::Supine: v = {0.18, 0.04, 0.98}; break;
        case Activity::RightSide: v = {0.12, 0.96, 0.22}; break;
        case Activity::LeftSide: v = {0.12, -0.96, 0.22}; break;
        case Activity::Upright:
        case Activity::Walking: v = {0.97, 0.04, 0.20}; break;
    }
    const double n = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
    return {v.x / n, v.y / n, v.z / n};
}

int expectedPosture(Activity a) {
    switch (a) {
        case Activity::Supine: return 2;
        case Activity::RightSide: return 4;
        case Activity::LeftSide: return 5;
        case Activity::Upright: return 1;
        case Activity::Walking: return 7;
    }
    return kPostureNotScored;
}

// R amplitude changes with the electrical axis as the wearer lies differently.
double ecgGainFor(Activity a) {
    switch (a) {
        case Activity::Supine: return 1.0;
        case Activity::RightSide: return 0.85;
        case Activity::LeftSide: return 1.1;
        case Activity::Upright:
        case Activity::Walking: return 0.92;
    }
    return 1.0;
}

// Respiration baseline shifts with posture (the belt sits differently).
double breathOffsetFor(Activity a) {
    switch (a) {
        case Activity::Supine: return 0;
        case Activity::RightSide: return 400;
        case Activity::LeftSide: return -300;
        case Activity::Upright:
        case Activity::Walking: return -500;
    }
    return 0;
}

struct BreathCycle {
    double onset, period, amplitude, inspiration;
};

// Lung volume over one cycle, 0..1: cosine rise, expiration fast at first, then a pause.
double breathShape(double u, double inspiration) {
    if (u < inspiration) return 0.5 * (1.0 - std::cos(kPi * u / inspiration));
    const double end = inspiration + 0.47;
    if (u < end) {
        const double w = std::pow((u - inspiration) / (end - inspiration), 0.7);
        return 0.5 * (1.0 + std::cos(kPi * w));
    }
    return 0.0;
}

class Timeline {
public:
    Timeline(const SynthOptions& o, Rng& rng) : seconds_(o.seconds) {
        activity_.resize(static_cast<size_t>(seconds_));
        turning_.assign(static_cast<size_t>(seconds_), false);
        std::vector<double> goalHr(static_cast<size_t>(seconds_)), goalBr(goalHr.size());
        std::array<double, kSchedule.size()> hrJitter{}, brJitter{};
        for (size_t i = 0; i < kSchedule.size(); ++i) {
            hrJitter[i] = (rng.uniform() - 0.5) * 8.0;
            brJitter[i] = (rng.uniform() - 0.5) * 3.0;
        }
        double cumulative = 0;
        int start = 0;
        for (size_t i = 0; i < kSchedule.size(); ++i) {
            cumulative += kSchedule[i].weight;
            const int end =
                (i + 1 == kSchedule.size()) ? seconds_ : static_cast<int>(std::lround(cumulative * seconds_));
            for (int s = start; s < end && s < seconds_; ++s) {
                activity_[static_cast<size_t>(s)] = kSchedule[i].activity;
                goalHr[static_cast<size_t>(s)] = kSchedule[i].heartRate + hrJitter[i];
                goalBr[static_cast<size_t>(s)] = kSchedule[i].breathRate + brJitter[i];
                const bool turns = i > 0 && s - start < kTurnSeconds &&
                                   gravityDiffers(kSchedule[i - 1].activity, kSchedule[i].activity);
                turning_[static_cast<size_t>(s)] = turns;
            }
            if (end > start) start = end;
        }
        if (o.fixedHeartRate > 0) std::fill(goalHr.begin(), goalHr.end(), o.fixedHeartRate);
        if (o.fixedBreathRate > 0) std::fill(goalBr.begin(), goalBr.end(), o.fixedBreathRate);
        // The body settles to a new rate with a lag of several seconds.
        hr_ = smooth(goalHr, o.fixedHeartRate > 0 ? 1.0 : 1.0 - std::exp(-1.0 / 8.0));
        br_ = smooth(goalBr, o.fixedBreathRate > 0 ? 1.0 : 1.0 - std::exp(-1.0 / 12.0));
    }

    Activity activityAt(double t) const { return activity_[index(t)]; }
    bool turningAt(int s) const { return turning_[static_cast<size_t>(s)]; }
    double heartRateAt(double t) const { return interpolate(hr_, t); }
    double breathRateAt(double t) const { return interpolate(br_, t); }
    // Start of the turn that contains second s, and the activity before it.
    int turnStart(int s) const {
        while (s > 0 && turning_[static_cast<size_t>(s - 1)]) --s;
        return s;
    }

private:
    static bool gravityDiffers(Activity a, Activity b) {
        const Vec3 ga = gravityFor(a), gb = gravityFor(b);
        return std::fabs(ga.x - gb.x) + std::fabs(ga.y - gb.y) + std::fabs(ga.z - gb.z) > 1e-9;
    }
    std::vector<double> smooth(const std::vector<double>& goal, double alpha) const {
        std::vector<double> v(goal.size() + 1);
        v[0] = goal.empty() ? 0 : goal[0];
        for (size_t s = 0; s < goal.size(); ++s) v[s + 1] = v[s] + (goal[s] - v[s]) * alpha;
        if (alpha >= 1.0) v[0] = v[1];
        return v;
    }
    size_t index(double t) const {
        const int s = static_cast<int>(std::floor(t));
        return static_cast<size_t>(std::clamp(s, 0, seconds_ - 1));
    }
    double interpolate(const std::vector<double>& v, double t) const {
        if (t <= 0) return v.front();
        if (t >= seconds_) return v.back();
        const size_t s = static_cast<size_t>(std::floor(t));
        const double f = t - static_cast<double>(s);
        return v[s] + (v[s + 1] - v[s]) * f;
    }

    int seconds_;
    std::vector<Activity> activity_;
    std::vector<bool> turning_;
    std::vector<double> hr_, br_;  // value at each whole second 0..seconds
};

std::vector<BreathCycle> makeBreaths(const Timeline& tl, const SynthOptions& o, Rng& rng) {
    const bool fixed = o.fixedBreathRate > 0;
    std::vector<BreathCycle> cycles;
    double period = 60.0 / tl.breathRateAt(0);
    // Start inside a cycle so that the recording does not open on a breath onset.
    double onset = -rng.uniform() * period;
    while (onset < o.seconds + 1.0) {
        const double nominal = 60.0 / tl.breathRateAt(std::max(onset, 0.0));
        period = fixed ? nominal : nominal * std::clamp(1.0 + 0.07 * rng.gauss(), 0.6, 1.5);
        BreathCycle c{onset, period, 1.0, 0.38};
        if (!fixed) {
            c.amplitude = std::clamp(1.0 + 0.1 * rng.gauss(), 0.7, 1.3);
            c.inspiration = std::clamp(0.38 + 0.03 * rng.gauss(), 0.32, 0.44);
        }
        cycles.push_back(c);
        onset += period;
    }
    return cycles;
}

// Cycle containing time t (cycles cover the whole recording).
const BreathCycle& cycleAt(const std::vector<BreathCycle>& cycles, double t) {
    auto it =
        std::upper_bound(cycles.begin(), cycles.end(), t, [](double v, const BreathCycle& c) { return v < c.onset; });
    if (it != cycles.begin()) --it;
    return *it;
}

double breathPhase(const std::vector<BreathCycle>& cycles, double t) {
    const BreathCycle& c = cycleAt(cycles, t);
    return std::clamp((t - c.onset) / c.period, 0.0, 1.0);
}

std::vector<double> makeBeats(const Timeline& tl, const std::vector<BreathCycle>& breaths, const SynthOptions& o,
                              Rng& rng) {
    const bool fixed = o.fixedHeartRate > 0;
    std::vector<double> beats;
    double t = fixed ? 0.5 : 0.3 + 0.4 * rng.uniform();
    while (t < o.seconds + 0.6) {
        beats.push_back(t);
        double rr = 60.0 / tl.heartRateAt(t);
        if (!fixed) {
            // Heart rate rises during inspiration; walking damps the variability.
            const double depth = tl.activityAt(t) == Activity::Walking ? 0.01 : 0.03;
            rr *= 1.0 - depth * std::sin(2.0 * kPi * breathPhase(breaths, t));
            rr *= 1.0 + 0.012 * rng.gauss();
            rr = std::clamp(rr, 0.3, 2.0);
        }
        t += rr;
    }
    return beats;
}

void renderEcg(const Timeline& tl, const std::vector<double>& beats, const std::vector<BreathCycle>& breaths, Rng& rng,
               std::vector<double>& ecg) {
    const double base = 220.0 + 60.0 * rng.uniform();
    const double stepHz = 1.8 + 0.1 * rng.uniform();
    const double wanderPhase = 2.0 * kPi * rng.uniform();
    for (size_t i = 0; i < beats.size(); ++i) {
        const double tr = beats[i];
        const double rr = i + 1 < beats.size() ? beats[i + 1] - tr : (i > 0 ? tr - beats[i - 1] : 1.0);
        const double u = breathPhase(breaths, tr);
        const double amp = std::clamp(
            base * ecgGainFor(tl.activityAt(tr)) * (1.0 + 0.06 * std::sin(2.0 * kPi * u)) * (1.0 + 0.03 * rng.gauss()),
            150.0, 350.0);
        // The T wave comes earlier at faster rates (QT shortens with rate).
        const double tWave = 0.30 * std::sqrt(std::clamp(rr, 0.3, 2.0));
        const long first = std::max(0L, static_cast<long>(std::ceil((tr - 0.3) * kHeartRate)));
        const long last = std::min(static_cast<long>(ecg.size()) - 1,
                                   static_cast<long>(std::floor((tr + tWave + 0.24) * kHeartRate)));
        for (long n = first; n <= last; ++n) {
            const double dt = static_cast<double>(n) / kHeartRate - tr;
            ecg[static_cast<size_t>(n)] += beatShape(dt, amp, tWave);
        }
    }
    for (size_t n = 0; n < ecg.size(); ++n) {
        const double t = static_cast<double>(n) / kHeartRate;
        double v = 18.0 * std::sin(2.0 * kPi * breathPhase(breaths, t)) +
                   12.0 * std::sin(2.0 * kPi * 0.045 * t + wanderPhase) + 1.5 * std::sin(2.0 * kPi * 50.0 * t + 0.3) +
                   2.5 * rng.gauss();
        if (tl.activityAt(t) == Activity::Walking) {
            // Electrode motion and muscle noise at every step.
            v += 30.0 * std::sin(2.0 * kPi * stepHz * t + 0.7) + 6.0 * rng.gauss();
        }
        ecg[n] += v;
    }
}

int toCounts(double v, int lo, int hi) {
    return static_cast<int>(std::clamp(std::lround(v), static_cast<long>(lo), static_cast<long>(hi)));
}

}  // namespace

Recording synthesize(const SynthOptions& o) {
    Recording rec;
    if (o.seconds <= 0) return rec;
    Rng scheduleRng(streamSeed(o.seed, 1)), breathRng(streamSeed(o.seed, 2)), beatRng(streamSeed(o.seed, 3)),
        ecgRng(streamSeed(o.seed, 4)), respNoiseRng(streamSeed(o.seed, 5)), accRng(streamSeed(o.seed, 6));
    const Timeline tl(o, scheduleRng);
    const std::vector<BreathCycle> breaths = makeBreaths(tl, o, breathRng);
    rec.beatTimes = makeBeats(tl, breaths, o, beatRng);
    for (const BreathCycle& c : breaths) rec.breathOnsets.push_back(c.onset);

    const size_t seconds = static_cast<size_t>(o.seconds);
    std::vector<double> ecg(seconds * kHeartRate, 0.0);
    renderEcg(tl, rec.beatTimes, breaths, ecgRng, ecg);

    const double stepHz = 1.8 + 0.1 * accRng.uniform();
    const double driftPhase = 2.0 * kPi * accRng.uniform();
    auto respiration = [&](double t) {
        const BreathCycle& c = cycleAt(breaths, t);
        const double u = std::clamp((t - c.onset) / c.period, 0.0, 1.0);
        return 3000.0 * c.amplitude * (breathShape(u, c.inspiration) - 0.4) +
               250.0 * std::sin(2.0 * kPi * 0.013 * t + driftPhase);
    };

    rec.frames.resize(seconds);
    rec.truth.resize(seconds);
    size_t firstBreath = 0;
    for (size_t s = 0; s < seconds; ++s) {
        ParamsIn& f = rec.frames[s];
        f = ParamsIn{};
        f.nDeviceId = o.deviceId;
        f.nFrameSeq = static_cast<int32_t>(s);
        f.nHeartMode = 0;
        for (int i = 0; i < kHeartRate; ++i)
            f.nHeartData[i] = toCounts(512.0 + ecg[s * kHeartRate + static_cast<size_t>(i)], 0, 1023);

        const int sec = static_cast<int>(s);
        const bool turning = tl.turningAt(sec);
        const int turnStart = tl.turnStart(sec);
        const Activity now = tl.activityAt(sec);
        const Activity before = turning ? tl.activityAt(turnStart - 1) : now;
        for (int i = 0; i < kSlowRate; ++i) {
            const double t = sec + static_cast<double>(i) / kSlowRate;
            // Turning moves the gravity vector smoothly from the old posture to the new one.
            double w = 1.0;
            if (turning) {
                const double x = std::clamp((t - turnStart) / kTurnSeconds, 0.0, 1.0);
                w = x * x * (3.0 - 2.0 * x);
            }
            const Vec3 ga = gravityFor(before), gb = gravityFor(now);
            Vec3 g{ga.x + (gb.x - ga.x) * w, ga.y + (gb.y - ga.y) * w, ga.z + (gb.z - ga.z) * w};
            const double n = std::sqrt(g.x * g.x + g.y * g.y + g.z * g.z);
            g = {g.x / n, g.y / n, g.z / n};

            const double lung = breathShape(breathPhase(breaths, t), 0.38);
            double offset = breathOffsetFor(now);
            if (turning) offset = breathOffsetFor(before) + (offset - breathOffsetFor(before)) * w;
            double r1 = 30000.0 + offset + respiration(t) + 12.0 * respNoiseRng.gauss();
            double r0 = 30000.0 + 0.75 * (offset + respiration(t + 0.08)) + 12.0 * respNoiseRng.gauss();
            g.z += 0.008 * lung;  // the chest wall rises with each breath
            double jitter = 0.0;
            if (now == Activity::Walking) {
                const double p = 2.0 * kPi * stepHz * t;
                g.x += 0.28 * std::sin(p) + 0.08 * std::sin(2.0 * p + 0.5);
                g.y += 0.07 * std::sin(0.5 * p);
                g.z += 0.10 * std::sin(p + 1.2);
                jitter = 0.02;
                const double artefact = 250.0 * std::sin(p + 0.4);
                r1 += artefact + 80.0 * respNoiseRng.gauss();
                r0 += 0.75 * artefact + 80.0 * respNoiseRng.gauss();
            } else if (turning) {
                jitter = 0.05;
            }
            const double quiet = 0.5 / kCountsPerG;  // sensor noise, half a count
            const double sd = std::max(jitter, quiet);
            f.nAccX[i] = toCounts(512.0 + kCountsPerG * (g.x + sd * accRng.gauss()), 0, 1023);
            f.nAccY[i] = toCounts(512.0 + kCountsPerG * (g.y + sd * accRng.gauss()), 0, 1023);
            f.nAccZ[i] = toCounts(512.0 + kCountsPerG * (g.z + sd * accRng.gauss()), 0, 1023);
            f.nBreathChan1[i] = toCounts(r1, 1, 65534);
            f.nBreathChan0[i] = toCounts(r0, 1, 65534);
        }

        SecondTruth& tr = rec.truth[s];
        const double end = static_cast<double>(s + 1);
        tr.activity = now;
        tr.posture = turning ? kPostureNotScored : expectedPosture(now);
        tr.targetHeartRate = tl.heartRateAt(end);
        tr.targetBreathRate = tl.breathRateAt(end);
        // Beats and cycles are ascending, so each window is one contiguous run.
        const auto& bt = rec.beatTimes;
        size_t b = static_cast<size_t>(std::upper_bound(bt.begin(), bt.end(), end - kHeartTruthWindow) - bt.begin());
        if (b == 0) b = 1;
        double rrSum = 0;
        int rrCount = 0;
        for (; b < bt.size() && bt[b] <= end; ++b) {
            rrSum += bt[b] - bt[b - 1];
            ++rrCount;
        }
        tr.heartRate = rrCount > 0 ? 60.0 * rrCount / rrSum : 0.0;
        double periodSum = 0;
        int periodCount = 0;
        for (size_t c = firstBreath; c < breaths.size(); ++c) {
            const double finish = breaths[c].onset + breaths[c].period;
            if (finish <= end - kBreathTruthWindow) {
                firstBreath = c + 1;
                continue;
            }
            if (finish > end) break;
            periodSum += breaths[c].period;
            ++periodCount;
        }
        tr.breathRate = periodCount > 0 ? 60.0 * periodCount / periodSum : 0.0;
    }
    return rec;
}

}  // namespace rtm_synth

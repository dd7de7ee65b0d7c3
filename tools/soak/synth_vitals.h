// Synthetic vital-signs recordings for robustness work (stress test, fuzz seeds, soak run).
// ECG: 200 samples/s around 512 counts, P-QRS-T beats with an R wave of 150..350 counts (packet
// peak-to-peak stays under 950). Respiration: 25 samples/s, 30000 +- 1500 counts, 12..20 breaths
// per minute. Accelerometer: 25 samples/s, 512 = 0 g, 128 counts per g.
// Everything is deterministic for a given seed (own PRNG, own Gaussian), so two runs of the same
// recording are bit-identical on every platform. Header-only: fuzz targets and the soak program
// build it without the test library.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#include "rtmonitor.h"

namespace rtm_synth {

constexpr int kHeartSamplesPerFrame = 200;
constexpr int kBreathSamplesPerFrame = 25;
constexpr double kHeartSampleSeconds = 1.0 / 200.0;
constexpr double kBreathSampleSeconds = 1.0 / 25.0;
constexpr double kTwoPi = 6.283185307179586;

// splitmix64: small, fast and identical everywhere.
class Rng {
public:
    explicit Rng(uint64_t seed = 1) : s_(seed) {}
    uint64_t next() {
        uint64_t z = (s_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    // Uniform in [0, 1).
    double uniform() { return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0); }
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    // Standard normal (Box-Muller, one value per call).
    double gauss() {
        double u = uniform();
        if (u < 1e-300) u = 1e-300;
        return std::sqrt(-2.0 * std::log(u)) * std::cos(kTwoPi * uniform());
    }

private:
    uint64_t s_;
};

// How a stretch of recording looks. Disturbances are what a worn sensor really produces.
enum class Segment {
    Clean,      // good contact, patient at rest
    Noisy,      // muscle noise, baseline wander, mains pick-up, a restless patient
    Flat,       // amplifier saturated to a constant: zero peak-to-peak on every channel
    OverRange,  // electrode pop / motion: swings far beyond the normal ECG range
    Dead,       // sensor disconnected: every channel reads 0
};

inline const char* segmentName(Segment s) {
    switch (s) {
        case Segment::Clean: return "clean";
        case Segment::Noisy: return "noisy";
        case Segment::Flat: return "flat";
        case Segment::OverRange: return "over-range";
        case Segment::Dead: return "dead";
    }
    return "?";
}

// ECG at 200 samples/s: a sum of Gaussian P, Q, R, S and T waves per beat, with a little beat to
// beat variability of the RR interval and of the amplitude.
class EcgSynth {
public:
    EcgSynth(uint64_t seed, double beatsPerMinute, double rAmplitude)
        : rng_(seed), bpm_(beatsPerMinute), rAmp_(rAmplitude) {
        for (double& b : beats_) b = -100.0;
        nextBeat_ = 0.35 + 0.3 * rng_.uniform();
    }

    void setRate(double beatsPerMinute) { bpm_ = beatsPerMinute; }
    void setAmplitude(double rAmplitude) { rAmp_ = rAmplitude; }
    double rate() const { return bpm_; }

    // One sample of clean ECG in counts (baseline 512), without noise.
    double cleanSample() {
        const double t = t_;
        t_ += kHeartSampleSeconds;
        // Schedule beats 0.3 s ahead so the P wave starts before the R peak.
        while (nextBeat_ < t + 0.3) {
            for (int i = kBeats - 1; i > 0; --i) {
                beats_[i] = beats_[i - 1];
                beatAmp_[i] = beatAmp_[i - 1];
            }
            beats_[0] = nextBeat_;
            beatAmp_[0] = rAmp_ * (1.0 + 0.03 * rng_.gauss());
            const double rr = 60.0 / bpm_ * (1.0 + 0.02 * rng_.gauss());
            nextBeat_ += rr < 0.18 ? 0.18 : rr;
        }
        double v = 512.0;
        for (int i = 0; i < kBeats; ++i) v += beatShape(t - beats_[i], beatAmp_[i]);
        return v;
    }

    Rng& rng() { return rng_; }
    double time() const { return t_; }

private:
    static double g(double x, double centre, double width) {
        const double d = (x - centre) / width;
        return std::exp(-0.5 * d * d);
    }
    static double beatShape(double dt, double r) {
        if (dt < -0.3 || dt > 0.5) return 0.0;
        return r * (0.12 * g(dt, -0.18, 0.025) - 0.12 * g(dt, -0.03, 0.010) + 1.0 * g(dt, 0.0, 0.011) -
                    0.22 * g(dt, 0.03, 0.011) + 0.28 * g(dt, 0.26, 0.045));
    }

    static constexpr int kBeats = 6;
    Rng rng_;
    double bpm_;
    double rAmp_;
    double t_ = 0.0;
    double nextBeat_;
    double beats_[kBeats];
    double beatAmp_[kBeats] = {};
};

// Respiration at 25 samples/s: a slightly asymmetric breathing cycle around 30000 counts.
class RespSynth {
public:
    RespSynth(uint64_t seed, double breathsPerMinute, double amplitude)
        : rng_(seed), bpm_(breathsPerMinute), amp_(amplitude) {
        phase_ = rng_.uniform() * kTwoPi;
    }
    void setRate(double breathsPerMinute) { bpm_ = breathsPerMinute; }
    double rate() const { return bpm_; }

    // Returns the sample of the analysed channel; *other receives the display-only channel.
    double sample(double* other) {
        phase_ += kTwoPi * (bpm_ / 60.0) * kBreathSampleSeconds;
        if (phase_ > kTwoPi) phase_ -= kTwoPi;
        const double s = std::sin(phase_) + 0.15 * std::sin(2.0 * phase_ + 0.7);
        *other = 30000.0 + 0.8 * amp_ * std::sin(phase_ - 0.4);
        return 30000.0 + amp_ / 1.15 * s;
    }
    Rng& rng() { return rng_; }

private:
    Rng rng_;
    double bpm_;
    double amp_;
    double phase_;
};

inline int32_t clampCount(double v, double lo, double hi) {
    if (!(v >= lo)) v = lo;
    if (v > hi) v = hi;
    return static_cast<int32_t>(std::lround(v));
}

// One device's recording: fills whole frames for a chosen kind of segment. The sequence number
// advances by one per frame, as a host does.
class DeviceRecording {
public:
    DeviceRecording(int deviceId, uint64_t seed, double heartBpm, double breathBpm)
        : id_(deviceId),
          rng_(seed ^ 0x5DEECE66Dull),
          ecg_(seed * 3 + 1, heartBpm, 150.0 + 200.0 * Rng(seed + 7).uniform()),
          resp_(seed * 5 + 2, breathBpm, 1500.0) {}

    EcgSynth& ecg() { return ecg_; }
    RespSynth& resp() { return resp_; }
    int id() const { return id_; }
    int32_t nextSeq() const { return seq_; }

    void fill(ParamsIn& f, Segment kind) {
        std::memset(&f, 0, sizeof f);
        f.nDeviceId = id_;
        f.nFrameSeq = seq_++;
        f.nHeartMode = 0;
        for (int i = 0; i < kHeartSamplesPerFrame; ++i) {
            double v = ecg_.cleanSample();
            hpos_ += 1;
            const double t = hpos_ * kHeartSampleSeconds;
            switch (kind) {
                case Segment::Clean:
                    v += 2.0 * rng_.gauss();
                    break;
                case Segment::Noisy:
                    v += 14.0 * rng_.gauss() + 35.0 * std::sin(kTwoPi * 0.27 * t) +
                         9.0 * std::sin(kTwoPi * 50.0 * t);
                    break;
                case Segment::Flat: v = 1023.0; break;
                case Segment::OverRange: v = (static_cast<int>(t * 3.0) & 1) ? 1023.0 + 600.0 * rng_.uniform() : -600.0 * rng_.uniform(); break;
                case Segment::Dead: v = 0.0; break;
            }
            f.nHeartData[i] = clampCount(v, -4096.0, 4096.0);
        }
        for (int i = 0; i < kBreathSamplesPerFrame; ++i) {
            double other = 0.0;
            double v = resp_.sample(&other);
            switch (kind) {
                case Segment::Clean: break;
                case Segment::Noisy:
                    v += 120.0 * rng_.gauss();
                    other += 120.0 * rng_.gauss();
                    break;
                case Segment::Flat: v = other = 65000.0; break;
                case Segment::OverRange: v = other = (rng_.next() & 1) ? 65535.0 : 1.0; break;
                case Segment::Dead: v = other = 0.0; break;
            }
            f.nBreathChan1[i] = clampCount(v, 0.0, 65535.0);
            f.nBreathChan0[i] = clampCount(other, 0.0, 65535.0);
            // Lying on the back: gravity along +z. Noise and motion add body movement.
            double ax = 512.0, ay = 512.0, az = 640.0;
            if (kind == Segment::Noisy || kind == Segment::OverRange) {
                ax += 40.0 * rng_.gauss();
                ay += 40.0 * rng_.gauss();
                az += 40.0 * rng_.gauss();
            } else if (kind == Segment::Dead) {
                ax = ay = az = 0.0;
            } else {
                ax += rng_.gauss();
                ay += rng_.gauss();
                az += rng_.gauss();
            }
            f.nAccX[i] = clampCount(ax, 0.0, 1023.0);
            f.nAccY[i] = clampCount(ay, 0.0, 1023.0);
            f.nAccZ[i] = clampCount(az, 0.0, 1023.0);
        }
    }

private:
    int id_;
    Rng rng_;
    EcgSynth ecg_;
    RespSynth resp_;
    int32_t seq_ = 0;
    int64_t hpos_ = 0;
};

// FNV-1a over an output record: a compact fingerprint to compare two runs frame by frame.
inline uint64_t fingerprint(const ParamsOut& out) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(&out);
    uint64_t h = 0xCBF29CE484222325ull;
    for (std::size_t i = 0; i < sizeof out; ++i) {
        h ^= p[i];
        h *= 0x100000001B3ull;
    }
    return h;
}

}  // namespace rtm_synth

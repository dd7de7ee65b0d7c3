// The synthetic vital-signs generator shared by the tests, the benchmarks, the fuzz seeds, the
// soak run and the tool, with the truth each signal was made from.
// ECG: 200 samples/s around 512 counts, P-QRS-T beats with an R wave of 150..350 counts (packet
// peak-to-peak stays under 950). Respiration: 25 samples/s, 30000 +- 1500 counts, 12..20 breaths
// per minute. Accelerometer: 25 samples/s, 512 = 0 g, 128 counts per g.
// Everything is deterministic for a given seed (own PRNG, own Gaussian), so two runs of the same
// recording are bit-identical on every platform.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#include "rtmonitor.h"
#include "synth/random.h"

namespace rtm_synth {

constexpr int kHeartSamplesPerFrame = 200;
constexpr int kBreathSamplesPerFrame = 25;
constexpr double kHeartSampleSeconds = 1.0 / 200.0;
constexpr double kBreathSampleSeconds = 1.0 / 25.0;

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

// One beat of ECG: Gaussian P, Q, R, S and T waves at dt seconds from the R peak (counts above
// the baseline, R amplitude r), the T wave centred tWave seconds after R; 0 outside
// -0.3 s .. tWave + 0.24 s.
double beatShape(double dt, double r, double tWave);
constexpr double kRestingTWave = 0.26;  // s after R, the T wave of a resting rate

// ECG at 200 samples/s: beatShape per beat (T at kRestingTWave), with a little beat to
// beat variability of the RR interval (2 %) and of the amplitude (3 %). The truth: the schedule's
// rate and the time of every R peak, as they are made.
class EcgSynth {
public:
    EcgSynth(uint64_t seed, double beatsPerMinute, double rAmplitude);

    void setRate(double beatsPerMinute) { bpm_ = beatsPerMinute; }
    void setAmplitude(double rAmplitude) { rAmp_ = rAmplitude; }
    // Relative spread of the RR interval and of the R amplitude; 0, 0 gives a metronome.
    void setVariability(double rrSpread, double amplitudeSpread) {
        rrSpread_ = rrSpread;
        ampSpread_ = amplitudeSpread;
    }
    double rate() const { return bpm_; }

    // One sample of clean ECG in counts (baseline 512), without noise.
    double cleanSample();

    // Truth: R peaks at or before the last sample made, and the time of the newest (s; < 0 while
    // there is none).
    int64_t rPeaksSoFar() const;
    double lastRPeak() const;

    Rng& rng() { return rng_; }
    double time() const { return t_; }

private:
    static constexpr int kBeats = 6;
    Rng rng_;
    double bpm_;
    double rAmp_;
    double rrSpread_ = 0.02;
    double ampSpread_ = 0.03;
    double t_ = 0.0;
    double nextBeat_;
    int64_t scheduled_ = 0;  // beats scheduled so far (the newest kBeats are in beats_)
    double beats_[kBeats];
    double beatAmp_[kBeats] = {};
};

// Respiration at 25 samples/s: a slightly asymmetric breathing cycle around 30000 counts.
class RespSynth {
public:
    RespSynth(uint64_t seed, double breathsPerMinute, double amplitude);
    void setRate(double breathsPerMinute) { bpm_ = breathsPerMinute; }
    double rate() const { return bpm_; }

    // Returns the sample of the analysed channel; *other receives the display-only channel.
    double sample(double* other);
    // Truth: whole breathing cycles completed so far.
    int64_t cyclesSoFar() const { return cycles_; }
    Rng& rng() { return rng_; }

private:
    Rng rng_;
    double bpm_;
    double amp_;
    double phase_;
    int64_t cycles_ = 0;
};

// Respiration as a plain sine: 30000 + 1500 sin(2 pi f t) counts at 25 samples/s, phase 0 at
// the first sample, plus uniform noise of +-20 counts; f is the rate in breaths per minute / 60.
// The truth is the rate itself: a whole cycle every 60 / rate seconds.
class SineBreath {
public:
    explicit SineBreath(double breathsPerMinute, uint64_t seed = 12345) : rng_(seed), bpm_(breathsPerMinute) {}
    int next() {
        const double t = static_cast<double>(sample_++) / kBreathSamplesPerFrame;
        return static_cast<int>(std::lround(30000.0 + 1500.0 * std::sin(kTwoPi * bpm_ / 60.0 * t))) +
               static_cast<int>(rng_.next() % 41u) - 20;
    }
    double rate() const { return bpm_; }

private:
    Rng rng_;
    double bpm_;
    int64_t sample_ = 0;
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

    // The next frame of this device as `kind` makes it.
    void fill(ParamsIn& f, Segment kind);

private:
    int id_;
    Rng rng_;
    EcgSynth ecg_;
    RespSynth resp_;
    int32_t seq_ = 0;
    int64_t hpos_ = 0;
};

// FNV-1a over an output record: a compact fingerprint to compare two runs frame by frame.
uint64_t fingerprint(const ParamsOut& out);

}  // namespace rtm_synth

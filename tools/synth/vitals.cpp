// The synthetic vital-signs generator (see vitals.h): the ECG and respiration models and the
// frames of one device, with the disturbances a worn sensor produces.
#include "synth/vitals.h"

#include <cmath>
#include <cstring>

namespace rtm_synth {
namespace {

double g(double x, double centre, double width) {
    const double d = (x - centre) / width;
    return std::exp(-0.5 * d * d);
}

}  // namespace

double beatShape(double dt, double r, double tWave) {
    if (dt < -0.3 || dt > tWave + 0.24) return 0.0;
    return r * (0.12 * g(dt, -0.18, 0.025) - 0.12 * g(dt, -0.03, 0.010) + 1.0 * g(dt, 0.0, 0.011) -
                0.22 * g(dt, 0.03, 0.011) + 0.28 * g(dt, tWave, 0.045));
}

EcgSynth::EcgSynth(uint64_t seed, double beatsPerMinute, double rAmplitude)
    : rng_(seed), bpm_(beatsPerMinute), rAmp_(rAmplitude) {
    for (double& b : beats_) b = -100.0;
    nextBeat_ = 0.35 + 0.3 * rng_.uniform();
}

double EcgSynth::cleanSample() {
    const double t = t_;
    t_ += kHeartSampleSeconds;
    // Schedule beats 0.3 s ahead so the P wave starts before the R peak.
    while (nextBeat_ < t + 0.3) {
        for (int i = kBeats - 1; i > 0; --i) {
            beats_[i] = beats_[i - 1];
            beatAmp_[i] = beatAmp_[i - 1];
        }
        beats_[0] = nextBeat_;
        ++scheduled_;
        beatAmp_[0] = rAmp_ * (1.0 + ampSpread_ * rng_.gauss());
        const double rr = 60.0 / bpm_ * (1.0 + rrSpread_ * rng_.gauss());
        nextBeat_ += rr < 0.18 ? 0.18 : rr;
    }
    double v = 512.0;
    for (int i = 0; i < kBeats; ++i) v += beatShape(t - beats_[i], beatAmp_[i], kRestingTWave);
    return v;
}

int64_t EcgSynth::rPeaksSoFar() const {
    const double last = t_ - kHeartSampleSeconds;
    int64_t ahead = 0;
    for (int i = 0; i < kBeats && i < scheduled_; ++i) {
        if (beats_[i] > last) ++ahead;
    }
    return scheduled_ - ahead;
}

double EcgSynth::lastRPeak() const {
    const double last = t_ - kHeartSampleSeconds;
    for (int i = 0; i < kBeats && i < scheduled_; ++i) {
        if (beats_[i] <= last) return beats_[i];
    }
    return -1.0;
}

RespSynth::RespSynth(uint64_t seed, double breathsPerMinute, double amplitude)
    : rng_(seed), bpm_(breathsPerMinute), amp_(amplitude) {
    phase_ = rng_.uniform() * kTwoPi;
}

double RespSynth::sample(double* other) {
    phase_ += kTwoPi * (bpm_ / 60.0) * kBreathSampleSeconds;
    if (phase_ > kTwoPi) {
        phase_ -= kTwoPi;
        ++cycles_;
    }
    const double s = std::sin(phase_) + 0.15 * std::sin(2.0 * phase_ + 0.7);
    *other = 30000.0 + 0.8 * amp_ * std::sin(phase_ - 0.4);
    return 30000.0 + amp_ / 1.15 * s;
}

void DeviceRecording::fill(ParamsIn& f, Segment kind) {
    std::memset(&f, 0, sizeof f);
    f.nDeviceId = id_;
    f.nFrameSeq = seq_++;
    f.nHeartMode = 0;
    for (int i = 0; i < kHeartSamplesPerFrame; ++i) {
        double v = ecg_.cleanSample();
        hpos_ += 1;
        const double t = hpos_ * kHeartSampleSeconds;
        switch (kind) {
            case Segment::Clean: v += 2.0 * rng_.gauss(); break;
            case Segment::Noisy:
                v += 14.0 * rng_.gauss() + 35.0 * std::sin(kTwoPi * 0.27 * t) + 9.0 * std::sin(kTwoPi * 50.0 * t);
                break;
            case Segment::Flat: v = 1023.0; break;
            case Segment::OverRange:
                v = (static_cast<int>(t * 3.0) & 1) ? 1023.0 + 600.0 * rng_.uniform() : -600.0 * rng_.uniform();
                break;
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

uint64_t fingerprint(const ParamsOut& out) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(&out);
    uint64_t h = 0xCBF29CE484222325ull;
    for (std::size_t i = 0; i < sizeof out; ++i) {
        h ^= p[i];
        h *= 0x100000001B3ull;
    }
    return h;
}

}  // namespace rtm_synth

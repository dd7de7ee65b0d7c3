// Turns fuzzer bytes into sensor data. Raw random bytes alone would almost never get an analyser
// past its start-up (thresholds need seconds of plausible signal), so each block of samples is
// made by a "recipe" chosen by the bytes: synthetic physiology with fuzzed parameters, constants,
// extremes, short repeated byte patterns, or samples given verbatim (how seed recordings enter).
// Compiler-independent (no libFuzzer headers), so the corpus replay test builds it with g++ too.
#pragma once

#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "synth/vitals.h"

namespace rtm_fuzz {

// Reads the input front to back; past the end every read yields 0, so decoding never fails.
class ByteReader {
public:
    ByteReader(const uint8_t* data, size_t size) : p_(data), n_(size) {}
    bool empty() const { return i_ >= n_; }
    size_t remaining() const { return i_ < n_ ? n_ - i_ : 0; }
    uint8_t u8() { return i_ < n_ ? p_[i_++] : 0; }
    uint16_t u16() { return static_cast<uint16_t>(u8() | (u8() << 8)); }
    int16_t s16() { return static_cast<int16_t>(u16()); }
    uint32_t u32() { return u16() | (static_cast<uint32_t>(u16()) << 16); }
    int32_t s32() { return static_cast<int32_t>(u32()); }
    const uint8_t* take(size_t n, size_t* got) {
        const size_t k = n < remaining() ? n : remaining();
        const uint8_t* q = p_ + i_;
        i_ += k;
        *got = k;
        return q;
    }

private:
    const uint8_t* p_;
    size_t n_;
    size_t i_ = 0;
};

// Recipe kinds, the low 3 bits of the recipe byte.
enum RecipeKind : uint8_t {
    kSynth = 0,   // physiological signal with fuzzed rate and amplitude
    kSynthNoisy,  // the same with fuzzed noise, wander and scale
    kConstant,    // one fuzzed 32-bit value
    kPattern8,    // a short byte pattern as signed deltas, repeated
    kExtremes,    // words drawn from {INT_MIN, INT_MAX, 0, -1, 65535, 1023, ...}
    kVerbatim16,  // every sample given as a 16-bit value (seed recordings)
    kPattern32,   // a short pattern of full 32-bit words, repeated
    kSquare,      // a square wave of fuzzed level, amplitude and period (over-range)
};

// One channel's source of samples across frames. Keeps its synthetic generator running so the
// signal stays continuous from one frame to the next, as a real sensor's does.
class ChannelSource {
public:
    // heart: 200 samples/s ECG around 512; otherwise 25 samples/s respiration around 30000.
    ChannelSource(bool heart, uint64_t seed)
        : heart_(heart), ecg_(seed, 70.0, 250.0), resp_(seed + 1, 15.0, 1500.0), rng_(seed + 2) {}

    // Reads a recipe from the input. Verbatim recipes read their samples later, in fill().
    void readRecipe(ByteReader& in) {
        const uint8_t r = in.u8();
        kind_ = static_cast<RecipeKind>(r & 7);
        switch (kind_) {
            case kSynth:
            case kSynthNoisy: {
                const uint8_t a = in.u8(), b = in.u8();
                if (heart_) {
                    ecg_.setRate(20.0 + a * 1.2);       // 20..326 beats per minute
                    ecg_.setAmplitude(20.0 + b * 2.0);  // R wave 20..530 counts
                } else {
                    resp_.setRate(2.0 + a * 0.3);  // 2..78 breaths per minute
                    scale_ = 0.05 + b / 32.0;      // amplitude x0.05..x8
                }
                if (kind_ == kSynthNoisy) {
                    noise_ = in.u8();
                    wander_ = in.u8();
                    offset_ = in.s16();
                } else {
                    noise_ = wander_ = 0;
                    offset_ = 0;
                }
                break;
            }
            case kConstant: constant_ = in.s32(); break;
            case kPattern8:
            case kPattern32: {
                const size_t want = 1 + (in.u8() & 31);
                patternLen_ = 0;
                for (size_t i = 0; i < want && !in.empty(); ++i) {
                    pattern_[patternLen_++] = kind_ == kPattern8 ? static_cast<int8_t>(in.u8()) : in.s32();
                }
                if (patternLen_ == 0) pattern_[patternLen_++] = 0;
                level_ = heart_ ? 512 : 30000;
                patternPos_ = 0;
                break;
            }
            case kExtremes: extremeBits_ = in.u32() | (static_cast<uint64_t>(in.u32()) << 32); break;
            case kVerbatim16: break;
            case kSquare:
                constant_ = in.s16() * 4;
                amplitude_ = static_cast<int32_t>(in.u16()) * 2;
                period_ = 1 + in.u8();
                break;
        }
    }

    // Writes n samples of the current recipe into out.
    void fill(ByteReader& in, int32_t* out, int n) {
        for (int i = 0; i < n; ++i) out[i] = next(in);
    }

private:
    int32_t next(ByteReader& in) {
        switch (kind_) {
            case kSynth:
            case kSynthNoisy: {
                double v;
                if (heart_) {
                    v = ecg_.cleanSample();
                } else {
                    double other;
                    v = 30000.0 + (resp_.sample(&other) - 30000.0) * scale_;
                }
                if (kind_ == kSynthNoisy) {
                    t_ += 1;
                    v += noise_ * 0.5 * rng_.gauss() + wander_ * std::sin(t_ * 0.01) + offset_;
                }
                if (!(v > -2.0e9)) v = -2.0e9;
                if (v > 2.0e9) v = 2.0e9;
                return static_cast<int32_t>(std::lround(v));
            }
            case kConstant: return constant_;
            case kPattern8: {
                // Deltas accumulate so patterns can build slopes; kept within int32 by wrapping.
                level_ = static_cast<int32_t>(static_cast<uint32_t>(level_) +
                                              static_cast<uint32_t>(pattern_[patternPos_] * (heart_ ? 4 : 64)));
                patternPos_ = patternPos_ + 1 == patternLen_ ? 0 : patternPos_ + 1;
                return level_;
            }
            case kPattern32: {
                const int32_t v = pattern_[patternPos_];
                patternPos_ = patternPos_ + 1 == patternLen_ ? 0 : patternPos_ + 1;
                return v;
            }
            case kExtremes: {
                static const int32_t kValues[8] = {INT_MIN, INT_MAX, 0, -1, 65535, 1023, 65536, -65536};
                const int32_t v = kValues[extremeBits_ & 7];
                extremeBits_ = (extremeBits_ >> 3) | (extremeBits_ << 61);
                return v;
            }
            case kVerbatim16: return in.s16();
            case kSquare: {
                const int32_t v = ((tick_ / period_) & 1) ? constant_ + amplitude_ : constant_ - amplitude_;
                ++tick_;
                return v;
            }
        }
        return 0;
    }

    bool heart_;
    RecipeKind kind_ = kSynth;
    rtm_synth::EcgSynth ecg_;
    rtm_synth::RespSynth resp_;
    rtm_synth::Rng rng_;
    double scale_ = 1.0;
    double t_ = 0.0;
    int noise_ = 0;
    int wander_ = 0;
    int offset_ = 0;
    int32_t constant_ = 0;
    int32_t amplitude_ = 0;
    int32_t level_ = 0;
    int period_ = 1;
    uint32_t tick_ = 0;
    uint64_t extremeBits_ = 0;
    int32_t pattern_[32] = {};
    size_t patternLen_ = 1;
    size_t patternPos_ = 0;
};

// The accelerometer: three axes from one recipe byte (still, moving, extremes or verbatim).
class MotionSource {
public:
    explicit MotionSource(uint64_t seed) : rng_(seed) {}
    void readRecipe(ByteReader& in) {
        kind_ = in.u8() & 3;
        gx_ = 512 + in.s16() % 1024;
        gy_ = 512 + in.s16() % 1024;
        gz_ = 640 + in.s16() % 1024;
        shake_ = in.u8();
    }
    void fill(ByteReader& in, int32_t* x, int32_t* y, int32_t* z, int n) {
        for (int i = 0; i < n; ++i) {
            switch (kind_) {
                case 0:  // posture held, a little tremor
                    x[i] = gx_ + static_cast<int32_t>(rng_.next() % 3) - 1;
                    y[i] = gy_ + static_cast<int32_t>(rng_.next() % 3) - 1;
                    z[i] = gz_ + static_cast<int32_t>(rng_.next() % 3) - 1;
                    break;
                case 1:  // walking or shaking
                    x[i] = gx_ + static_cast<int32_t>(shake_ * rng_.gauss());
                    y[i] = gy_ + static_cast<int32_t>(shake_ * rng_.gauss());
                    z[i] = gz_ + static_cast<int32_t>(shake_ * rng_.gauss());
                    break;
                case 2:
                    x[i] = in.s32();
                    y[i] = in.s32();
                    z[i] = in.s32();
                    break;
                default:
                    x[i] = in.s16();
                    y[i] = in.s16();
                    z[i] = in.s16();
                    break;
            }
        }
    }

private:
    rtm_synth::Rng rng_;
    int kind_ = 0;
    int32_t gx_ = 512, gy_ = 512, gz_ = 640;
    int shake_ = 0;
};

}  // namespace rtm_fuzz

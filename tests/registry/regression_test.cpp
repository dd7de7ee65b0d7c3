// Long-run regression: a checksum of every output word over a few thousand frames of varied
// synthetic input (clean, noisy, flat, over-range, dead respiration, sequence gaps, restarts,
// walking, arbitrary words) for three interleaved devices. Any change to the recorded value
// changes what hosts see and must be explained in the commit that makes it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>

#include "rtmonitor.h"
#include "support/frames.h"

namespace {

constexpr double kTwoPi = 6.283185307179586;

struct Lcg {
    uint32_t s;
    uint32_t next() { return s = s * 1664525u + 1013904223u; }
    int uniform(int lo, int hi) { return lo + static_cast<int>((next() >> 8) % static_cast<uint32_t>(hi - lo + 1)); }
};

// One second of a device whose behaviour changes every minute of the recording.
ParamsIn syntheticFrame(int id, int second, Lcg& rng) {
    ParamsIn in = rtm_test::quietFrame(id, second);
    const int minute = (second / 60 + id) % 8;
    const double hr = 55.0 + 10.0 * id + 15.0 * std::sin(second / 97.0);
    const double br = 10.0 + 3.0 * id + 2.0 * std::sin(second / 53.0);
    for (int i = 0; i < 200; ++i) {
        const double t = second + i / 200.0;
        const double phase = std::fmod(t * hr / 60.0, 1.0);
        const double qrs = 260.0 * std::exp(-std::pow((phase - 0.3) / 0.012, 2.0)) -
                           40.0 * std::exp(-std::pow((phase - 0.33) / 0.015, 2.0)) +
                           50.0 * std::exp(-std::pow((phase - 0.6) / 0.05, 2.0));
        const int noise = (minute == 2) ? rng.uniform(-60, 60) : rng.uniform(-3, 3);
        in.nHeartData[i] = static_cast<int>(470.0 + qrs + 20.0 * std::sin(kTwoPi * t / 7.0)) + noise;
    }
    if (minute == 3 && second % 60 < 10) {
        for (int& v : in.nHeartData) v = 505;  // electrodes off
    }
    if (minute == 4 && second % 60 == 5) {
        for (int i = 0; i < 200; i += 2) in.nHeartData[i] = (i % 4 == 0) ? 0 : 1023;  // over range
    }
    for (int i = 0; i < 25; ++i) {
        const double t = second + i / 25.0;
        in.nBreathChan1[i] = static_cast<int>(30000.0 + 1500.0 * std::sin(kTwoPi * br / 60.0 * t)) + rng.uniform(-20, 20);
        in.nBreathChan0[i] = static_cast<int>(30000.0 + 900.0 * std::sin(kTwoPi * br / 60.0 * t + 0.4));
        if (minute == 5 && second % 60 < 8) in.nBreathChan1[i] = (second % 2) ? 0 : 65535;  // dead channel
        if (minute == 6) {  // walking
            in.nAccX[i] = 640 + static_cast<int>(60.0 * std::sin(kTwoPi * 2.0 * t)) + rng.uniform(-30, 30);
            in.nAccY[i] = 512 + rng.uniform(-40, 40);
            in.nAccZ[i] = 512 + static_cast<int>(80.0 * std::sin(kTwoPi * 4.0 * t));
        }
    }
    if (minute == 7 && second % 60 == 30) in.nFrameSeq += 5;  // a gap in the numbering
    if (second % 60 == 0 && minute == 1) in.nHeartMode = 1;     // host restarts the heart analysis
    if (minute == 0 && second % 60 == 45) {  // a corrupted frame from the radio link
        std::mt19937 words(static_cast<unsigned>(second));
        in = rtm_test::randomFrame(id, words);
    }
    return in;
}

uint64_t fnv1a(uint64_t h, const void* data, std::size_t n) {
    const unsigned char* p = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
    return h;
}

TEST(Regression, OutputChecksumOverALongVariedRun) {
    const int ids[3] = {501, 502, 503};
    Lcg rng{42};
    uint64_t h = 1469598103934665603ull;
    for (int id : ids) initDevice(id);
    for (int second = 0; second < 1200; ++second) {
        for (int id : ids) {
            ParamsIn in = syntheticFrame(id, second, rng);
            ParamsOut out{};
            processSignal(in, &out);
            h = fnv1a(h, &out, sizeof out);
        }
    }
    for (int id : ids) freeDevice(id);
    std::printf("output checksum %016llx\n", static_cast<unsigned long long>(h));
    EXPECT_EQ(h, 0x4796923cb28c218dull);
}

}  // namespace

// Activity filter and movement trace, checked against a slow, obvious re-statement of the filter
// (explicit histories instead of rings and running sums), plus the logistic mapping's anchors.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <deque>
#include <random>
#include <vector>

#include "rtmonitor/GeneralRealTime.h"

namespace {

// Straightforward model of one axis: mean of up to the last 100 inputs, then 12 taps over the
// last 12 baseline outputs (zeros before the start).
struct SlowAxis {
    std::deque<int64_t> raw;
    std::deque<int32_t> base = std::deque<int32_t>(12, 0);
    int32_t feed(int32_t x) {
        raw.push_back(x);
        if (raw.size() > 100) raw.pop_front();
        int64_t sum = 0;
        for (int64_t v : raw) sum += v;
        const int32_t b = static_cast<int32_t>(static_cast<uint32_t>(x - sum / static_cast<int64_t>(raw.size())));
        base.push_back(b);
        base.pop_front();  // base[11] is the newest
        static const int64_t coef[12] = {192, 787, 1888, 3412, 4915, 5866, 5866, 4915, 3412, 1888, 787, 192};
        int64_t acc = 0;
        // Symmetric pairs are summed in 32 bits first (they wrap on extreme input).
        for (int k = 0; k < 6; ++k) {
            const uint32_t pair = static_cast<uint32_t>(base[11 - k]) + static_cast<uint32_t>(base[k]);
            acc += coef[k] * static_cast<int64_t>(static_cast<int32_t>(pair));
        }
        return static_cast<int32_t>(static_cast<uint32_t>(acc >> 15));
    }
};

struct SlowActivity {
    SlowAxis axis[3];
    int magnitude(int x, int y, int z) {
        int32_t f[3] = {};
        for (int pass = 0; pass < 2; ++pass) {
            f[0] = axis[0].feed(x);
            f[1] = axis[1].feed(y);
            f[2] = axis[2].feed(z);
        }
        uint64_t s = 0;
        for (int32_t v : f)
            s += v < 0 ? 0ull - static_cast<uint64_t>(static_cast<int64_t>(v)) : static_cast<uint64_t>(v);
        return static_cast<int>(s / 3);
    }
};

TEST(Activity, MatchesTheObviousFilterOnWalkingAndExtremeInput) {
    std::mt19937 rng(5);
    std::normal_distribution<double> jitter(0.0, 30.0);
    const int extremes[] = {INT32_MIN, INT32_MAX, 0, INT32_MIN, -1, INT32_MAX, INT32_MAX};
    for (bool extreme : {false, true}) {
        CPedometerPro fast;
        fast.PedometerProInit();
        SlowActivity slow;
        for (int i = 0; i < (extreme ? 400 : 3000); ++i) {
            const double phase = i * 2.0 * M_PI / 12.5;  // two steps per second at 25 samples/s
            const int x = extreme ? extremes[i % 7] : static_cast<int>(512 + 60 * std::sin(phase) + jitter(rng));
            const int y = extreme ? extremes[(i + 3) % 7] : static_cast<int>(512 + 30 * std::cos(phase) + jitter(rng));
            const int z =
                extreme ? extremes[(i + 5) % 7] : static_cast<int>(640 + 90 * std::sin(2 * phase) + jitter(rng));
            int m = -1;
            const int steps = fast.nCountStepNum(x, y, z, m);
            EXPECT_TRUE(extreme || steps == 0);
            ASSERT_EQ(m, slow.magnitude(x, y, z)) << (extreme ? "extreme" : "walking") << " sample " << i;
        }
    }
}

TEST(Movement, LogisticSquashAnchors) {
    GeneralTimeTime reg;
    int v[4] = {0, 300, 1000000, -1000000};
    int out[4] = {};
    EXPECT_TRUE(reg.DataSugnal(v, out, 4, 300.0, 2000.0));
    EXPECT_EQ(out[0], 1000);
    EXPECT_EQ(out[1], 1462);  // -> movement 462
    EXPECT_EQ(out[2], 1999);  // t clamped to 15: the first output never exceeds 999
    EXPECT_EQ(out[3], 0);
    int keep[1] = {77};
    EXPECT_FALSE(reg.DataSugnal(v, keep, 1, 300.0, 0.0));
    EXPECT_EQ(keep[0], 77);
    EXPECT_FALSE(reg.DataSugnal(v, keep, 0, 300.0, 2000.0));
    EXPECT_FALSE(reg.DataSugnal(nullptr, keep, 1, 300.0, 2000.0));
}

// Expected trace from raw magnitudes: only the first is squashed, the rest show magnitude - 1000.
int expectedLevel(int magnitude, bool first) {
    double value = magnitude;
    if (first) {
        double t = magnitude / 300.0;
        t = std::fmax(-15.0, std::fmin(15.0, t));
        value = static_cast<int>(2000.0 / (1.0 + std::exp(-t)));
    }
    const float v = static_cast<float>(static_cast<int>(value)) - 1000.0f;
    if (v < 1.0f) return 1;
    if (v > 1023.0f) return 1023;
    return static_cast<int>(v);
}

TEST(Movement, TraceFollowsTheActivityMagnitudes) {
    GeneralTimeTime reg;
    SlowActivity slow;
    std::mt19937 rng(9);
    std::uniform_int_distribution<int> burst(-900, 900);
    bool sawMiddle = false;
    for (int frame = 0; frame < 80; ++frame) {
        int x[25], y[25], z[25], movement[25];
        for (int i = 0; i < 25; ++i) {
            const bool active = (frame / 10) % 2 == 1;
            x[i] = 512 + (active ? burst(rng) : 0);
            y[i] = 512 + (active ? burst(rng) : 0);
            z[i] = 640 + (active ? 4 * burst(rng) : 0);
        }
        ASSERT_TRUE(reg.GetMovementData(3, frame, x, y, z, movement, 25));
        for (int i = 0; i < 25; ++i) {
            const int level = expectedLevel(slow.magnitude(x[i], y[i], z[i]), i == 0);
            ASSERT_EQ(movement[i], level) << "frame " << frame << " sample " << i;
            if (i > 0 && level > 1 && level < 1023) sawMiddle = true;
        }
        if ((frame / 10) % 2 == 0 && frame % 10 > 5) {
            for (int i = 0; i < 25; ++i) EXPECT_EQ(movement[i], 1);  // settled rest
        }
    }
    EXPECT_TRUE(sawMiddle);
    int untouched[25];
    for (int& u : untouched) u = -5;
    int dummy[25] = {};
    EXPECT_FALSE(reg.GetMovementData(3, 0, dummy, dummy, dummy, untouched, 0));
    EXPECT_EQ(untouched[0], -5);
}

}  // namespace

// Array statistics: the 4.0 floor and single-precision sum of the float mean, run detection,
// trailing means with truncation and 32-bit wrap, the integer standard deviation that divides
// before the root, and the energy that turns into NaN once the 32-bit sum of squares wraps.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>

#include "breath/window_stats.h"
#include "rtmonitor/CBreathPro.h"

namespace {
CBreathPro b;  // the helpers read no member
}

TEST(BreathArrays, FloatMeanFloorAndSinglePrecisionSum) {
    float a[] = {0, 0, 4, 5, 12}, c[] = {0, 0, 0, 3.9999998f, 12};
    EXPECT_EQ(b.DataMeanfloat(a, 1, 4), 4.5f);
    EXPECT_EQ(b.DataMeanfloat(c, 1, 4), 0.0f);
    // 16777216 + 5 rounds to 16777220 in float, + 5 to 16777224; / 3 = 5592408 (double: .5).
    float big[] = {16777216.0f, 5.0f, 5.0f};
    EXPECT_EQ(b.DataMeanfloat(big, 0, 3), 5592408.0f);
}

TEST(BreathArrays, ZeroRunSearchMatchesTheSampleBySampleCount) {
    // The run search skips ahead; it must agree with counting every sample, on every range.
    const auto counted = [](const int* a, int start, int end, int value, int runLength) {
        int run = 0;
        for (int i = start; i < end; ++i) {
            if (a[i] != value) {
                run = 0;
            } else if (run == 0) {
                run = 1;
            } else if (++run >= runLength) {
                return false;
            }
        }
        return true;
    };
    uint32_t seed = 12345;
    int a[40];
    for (int trial = 0; trial < 300; ++trial) {
        for (int& v : a) {
            seed = seed * 1664525u + 1013904223u;
            v = (seed >> 28) < 11 ? 0 : 3;  // long runs of zeros are common
        }
        for (int runLength = -1; runLength <= 7; ++runLength)
            for (int start = 0; start < 40; start += 7)
                for (int end = start; end <= 40; end += 5)
                    ASSERT_EQ(b.judgezeros(a, start, end, 0, runLength), counted(a, start, end, 0, runLength))
                        << "trial " << trial << " range " << start << ".." << end << " run " << runLength;
    }
}

TEST(BreathArrays, WindowStatisticsBeforeAStoreMatchThoseAfterIt) {
    // Every slot of small windows, new values inside, at and beyond the extremes, repeated
    // extremes and values that wrap the sums: the statistics read before the store must be those
    // of the window after it.
    uint32_t seed = 99;
    const int32_t extremes[] = {INT32_MIN, -7, 0, 3, INT32_MAX};
    for (int trial = 0; trial < 200; ++trial) {
        const int n = 2 + trial % 9;
        int32_t ring[10];
        for (int i = 0; i < n; ++i) {
            seed = seed * 1664525u + 1013904223u;
            ring[i] = trial % 3 == 0 ? extremes[seed >> 29 & 3] : static_cast<int32_t>(seed >> 26) - 32;
        }
        for (int slot = 0; slot < n; ++slot) {
            for (const int32_t v : {ring[slot], ring[(slot + 1) % n], extremes[trial % 5], int32_t{5}}) {
                const rtm::kernels::RangeStats got = rtm::breath::statsWithSlotReplaced(ring, n, slot, v);
                int32_t after[10];
                std::copy(ring, ring + n, after);
                after[slot] = v;
                const rtm::kernels::RangeStats want = rtm::kernels::rangeStats(after, n);
                ASSERT_TRUE(got.mx == want.mx && got.mn == want.mn && got.sum == want.sum &&
                            got.squares == want.squares)
                    << "trial " << trial << " slot " << slot << " value " << v;
            }
        }
    }
}

TEST(BreathArrays, ZeroRunsAndTrailingMeans) {
    int single[] = {1, 0, 1}, pair[] = {1, 0, 0};
    EXPECT_TRUE(b.judgezeros(single, 0, 3, 0, 1));  // a run length of 1 behaves like 2
    EXPECT_FALSE(b.judgezeros(pair, 0, 3, 0, 2));
    int a[12] = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 7}, out[12];
    b.moving_average_smooth(a, 12, 10, out);
    EXPECT_TRUE(out[0] == 10 && out[4] == 30 && out[11] == 63);  // 30..110 and 7: 637 / 10
    int w[] = {-1, 0, INT_MAX, INT_MAX};
    b.moving_average_smooth(w, 4, 2, out);
    EXPECT_TRUE(out[1] == 0 && out[3] == -1);  // -1 / 2 truncates toward 0; the sum wraps to -2
}

TEST(BreathArrays, IntegerStatisticsAndWrappedEnergy) {
    int mx, mn, mean, sd, a[] = {-3, 0}, coarse[] = {0, 0, 0, 1}, e[50];
    b.DataMax_Min_Mean_std(a, 0, 2, &mx, &mn, &mean, &sd);
    EXPECT_TRUE(mx == 0 && mn == -3 && mean == -1 && sd == 2);  // sqrt((4 + 1) / 1)
    EXPECT_EQ(b.Datastd(coarse, 0, 4), 0);                      // 1 / 3 divides to 0 before the root
    for (int& v : e) v = 7100;  // 2520500000 wraps negative: NaN, "not zero and not above 50"
    EXPECT_TRUE(std::isnan(b.energysum(e, 50)));
    for (int& v : e) v = 6000;
    EXPECT_EQ(b.energysum(e, 50), static_cast<float>(std::sqrt(1800.0)));
}

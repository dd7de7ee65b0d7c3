// Spectral peak: only the newest 250 of 1000 samples count, bin 0 is excluded, ties keep the
// lower bin, and short buffers give 0 without a transform.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "rtmonitor/CBreathPro.h"

namespace {

CBreathPro b;

std::vector<int> breathing(double hz, double amplitude, int offset) {
    std::vector<int> a(1000);
    for (int i = 0; i < 1000; ++i)
        a[i] = offset + static_cast<int>(std::lround(amplitude * std::sin(2.0 * M_PI * hz * i / 25.0)));
    return a;
}

}  // namespace

TEST(BreathSpectrum, ZeroBufferAndShortBuffer) {
    std::vector<int> zeros(1000, 0);
    EXPECT_EQ(b.FFT_Max_loc(zeros.data(), 1000), 1);
    EXPECT_EQ(b.FFT_Max_loc(zeros.data(), 999), 0);
}

TEST(BreathSpectrum, QuarterHertzPeaksNearBinTen) {
    auto a = breathing(0.25, 1500.0, 0);
    const int bin = b.FFT_Max_loc(a.data(), 1000);
    EXPECT_TRUE(bin == 10 || bin == 11) << bin;
}

TEST(BreathSpectrum, MeanIsNotRemovedAndOnlyTheNewestTenSecondsCount) {
    // An exact-bin tone at bin 20. A small offset leaves it the peak; a large one is not
    // removed, and its leakage through the 250-sample window peaks at bin 1 and wins.
    auto a = breathing(20.0 * 25.0 / 1024.0, 1500.0, 300);
    for (int i = 0; i < 750; ++i) a[i] = (i % 2) ? 2000000 : -2000000;
    EXPECT_EQ(b.FFT_Max_loc(a.data(), 1000), 20);
    auto high = breathing(20.0 * 25.0 / 1024.0, 1500.0, 3000);
    EXPECT_EQ(b.FFT_Max_loc(high.data(), 1000), 1);
}

TEST(BreathSpectrum, ShiftSwapsHalves) {
    float in[5] = {0, 1, 2, 3, 4};
    float out[5];
    b.fftshift_abs(in, out, 4);
    EXPECT_EQ(out[0], 2);
    EXPECT_EQ(out[1], 3);
    EXPECT_EQ(out[2], 0);
    EXPECT_EQ(out[3], 1);
    b.fftshift_abs(in, out, 5);  // h = 2
    const float expect[5] = {2, 3, 0, 1, 2};
    for (int k = 0; k < 5; ++k) EXPECT_EQ(out[k], expect[k]) << k;
}

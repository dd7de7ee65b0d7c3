// Input conditioning: the low-pass gain and its 32-bit accumulator, the running-mean remover's
// two regimes, the fixed-index median and the per-sample chain's delay and display offset.
#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

#include "heart/heart_run.h"

using HeartConditioning = heart_run::BeatTest;

TEST_F(HeartConditioning, LowPassSettlesToTheTruncatedGainAndWrapsAt32Bits) {
    for (int c : {-777, 123457, 2000000}) {
        b.EcgAnalysisInit(0);
        int out = 0;
        for (int k = 0; k < 29; ++k) out = b.LowFilterHeart(c);
        // 2000000 x 10615 overflows the accumulator, which wraps; the quotient truncates toward 0.
        EXPECT_EQ(out, static_cast<int32_t>(static_cast<uint32_t>(int64_t{c} * 10615)) / 10000) << c;
    }
}

TEST_F(HeartConditioning, BaseFilterPlainMeanThenLeakyIntegrator) {
    EXPECT_EQ(b.BaseFilter(2147483647), 0) << "x - x / 1";
    EXPECT_EQ(b.BaseFilter(10), 1073741829) << "the sum wraps: 10 - (INT32_MIN + 9) / 2";
    for (int k = 2; k < 200; ++k) b.BaseFilter(0);
    b.nBaseSum = 0;
    // From the 201st sample the estimate moves by 1/200 of the error, read after the update.
    EXPECT_EQ(b.BaseFilter(200), 199);
    EXPECT_EQ(b.BaseFilter(200), 199);
    EXPECT_EQ(b.nBaseSum, 399);
}

TEST_F(HeartConditioning, MedianAtIndex25AndTheDelayedChain) {
    std::vector<int> v(51);
    std::iota(v.rbegin(), v.rend(), -20);  // 30 down to -20
    EXPECT_EQ(b.medfilt1(v.data(), 51, 51), 5);
    EXPECT_EQ(b.medfilt1(v.data(), 30, 30), 26) << "1..30: the 26th smallest, not the median";

    // Display flat for 50 samples; the baseline-free value is delayed by 25.
    int out[60], display[60];
    for (int k = 0; k < 60; ++k) out[k] = b.Processingheartdata(0, k % 30 ? 0 : 1000, &display[k]);
    for (int k = 0; k < 50; ++k) ASSERT_EQ(display[k], 512) << k;
    // Impulses at 0 and 30 reach the centre of the median window 25 samples later (the second
    // after the ring has wrapped); the median ignores them, the running mean does not.
    EXPECT_EQ(out[25], 1000 - 1000 / 26);
    EXPECT_EQ(out[55], 1000 - 2000 / 56);
    EXPECT_EQ(display[50], (out[48] + out[49] + out[50]) / 3 + 512);
}

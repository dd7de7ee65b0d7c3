// Input conditioning: the low-pass gain and its 32-bit accumulator, the running-mean remover's
// two regimes, the fixed-index median and the per-sample chain's delay and display offset.
#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

#include "heart/beat_fixture.h"

using heart_test::makeAnalyser;

TEST(HeartConditioning, LowPassSettlesToTheTruncatedGainAndWrapsAt32Bits) {
    for (int c : {-777, 123457, 2000000}) {
        auto h = makeAnalyser();
        int out = 0;
        for (int k = 0; k < 29; ++k) out = h->beat.LowFilterHeart(c);
        // 2000000 x 10615 overflows the accumulator, which wraps; the quotient truncates toward 0.
        EXPECT_EQ(out, static_cast<int32_t>(static_cast<uint32_t>(int64_t{c} * 10615)) / 10000) << c;
    }
}

TEST(HeartConditioning, BaseFilterPlainMeanThenLeakyIntegrator) {
    auto h = makeAnalyser();
    EXPECT_EQ(h->beat.BaseFilter(2147483647), 0) << "x - x / 1";
    EXPECT_EQ(h->beat.BaseFilter(10), 1073741829) << "the sum wraps: 10 - (INT32_MIN + 9) / 2";
    auto g = makeAnalyser();
    for (int k = 0; k < 200; ++k) g->beat.BaseFilter(0);
    // From the 201st sample the estimate moves by 1/200 of the error, read after the update.
    EXPECT_EQ(g->beat.BaseFilter(200), 199);
    EXPECT_EQ(g->beat.BaseFilter(200), 199);
    EXPECT_EQ(g->beat.nBaseSum, 399);
}

TEST(HeartConditioning, MedianIndexIsFixedAt25) {
    auto h = makeAnalyser();
    std::vector<int> v(51);
    std::iota(v.rbegin(), v.rend(), -20);  // 30 down to -20
    EXPECT_EQ(h->beat.medfilt1(v.data(), 51, 51), 5);
    EXPECT_EQ(h->beat.medfilt1(v.data(), 30, 30), 26) << "1..30: the 26th smallest, not the median";
}

TEST(HeartConditioning, DisplayFlatFor50SamplesAndBaselineDelayedBy25) {
    auto h = makeAnalyser();
    std::vector<int> out, display;
    for (int k = 0; k < 60; ++k) {
        int w = -1;
        out.push_back(h->beat.Processingheartdata(0, k == 0 ? 1000 : 0, &w));
        display.push_back(w);
    }
    for (int k = 0; k < 50; ++k) ASSERT_EQ(display[k], 512) << k;
    // The impulse reaches the centre of the median window 25 samples later; the median ignores
    // it and the running mean then holds 1000 / 26.
    EXPECT_EQ(out[24], 0);
    EXPECT_EQ(out[25], 1000 - 1000 / 26);
    EXPECT_EQ(out[26], -(1000 / 27));
    EXPECT_EQ(display[50], (out[48] + out[49] + out[50]) / 3 + 512);
    EXPECT_EQ(h->beat.nWarmupCount, 400);
}

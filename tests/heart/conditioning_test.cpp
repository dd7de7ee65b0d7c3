// Input conditioning: the low-pass gain and taps, the running-mean remover's two regimes, the
// fixed-index median and the per-sample chain's delay and display offset.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <random>
#include <vector>

#include "heart/beat_fixture.h"

using heart_test::makeAnalyser;

TEST(HeartLowPass, ConstantSettlesToGainTruncatedAfterTheDelayLine) {
    for (int c : {1000, -777, 3, 123457}) {
        auto h = makeAnalyser();
        int out = 0;
        for (int k = 0; k < 29; ++k) out = h->beat.LowFilterHeart(c);
        const int64_t expected = static_cast<int64_t>(c) * 10615 / 10000;  // truncates toward zero
        EXPECT_EQ(out, expected) << "c=" << c;
        EXPECT_EQ(h->beat.LowFilterHeart(c), expected) << "stays settled, c=" << c;
    }
}

TEST(HeartLowPass, ImpulseResponseIsTheSymmetricTapTable) {
    auto h = makeAnalyser();
    std::vector<int> taps;
    taps.push_back(h->beat.LowFilterHeart(10000));
    for (int k = 1; k < 29; ++k) taps.push_back(h->beat.LowFilterHeart(0));
    EXPECT_EQ(std::accumulate(taps.begin(), taps.end(), 0), 10615);
    for (int l = 0; l < 29; ++l) EXPECT_EQ(taps[l], taps[28 - l]) << "lag " << l;
    EXPECT_EQ(taps[0], -112);
    EXPECT_EQ(taps[13], 2613);
    EXPECT_EQ(taps[14], 6919);
    EXPECT_EQ(h->beat.LowFilterHeart(0), 0) << "the impulse has left the 29-sample line";
}

TEST(HeartLowPass, LargeInputWrapsLikeThe32BitAccumulator) {
    auto h = makeAnalyser();
    const int c = 2000000;
    int out = 0;
    for (int k = 0; k < 29; ++k) out = h->beat.LowFilterHeart(c);
    const int32_t wrapped = static_cast<int32_t>(static_cast<uint32_t>(int64_t{c} * 10615));
    EXPECT_EQ(out, wrapped / 10000);
}

TEST(HeartLowPass, HistorySurvivesTheConditioningResetButNotInit) {
    auto h = makeAnalyser();
    for (int k = 0; k < 29; ++k) h->beat.LowFilterHeart(1000);
    h->beat.HeartProInit();
    EXPECT_EQ(h->beat.LowFilterHeart(1000), 1061);
    h->beat.EcgAnalysisInit(0);
    EXPECT_NE(h->beat.LowFilterHeart(1000), 1061);
}

TEST(HeartBaseFilter, FirstOutputIsZeroAndConstantInputStaysZero) {
    for (int x : {5, -40000, 2147483647}) {
        auto h = makeAnalyser();
        EXPECT_EQ(h->beat.BaseFilter(x), 0) << x;
    }
    auto h = makeAnalyser();
    for (int k = 0; k < 600; ++k) ASSERT_EQ(h->beat.BaseFilter(321), 0) << "sample " << k;
}

TEST(HeartBaseFilter, PlainMeanDuringWarmupThenLeakyIntegrator) {
    auto h = makeAnalyser();
    EXPECT_EQ(h->beat.BaseFilter(10), 0);
    EXPECT_EQ(h->beat.BaseFilter(20), 5);  // 20 - 30 / 2
    EXPECT_EQ(h->beat.BaseFilter(-9), -16);  // -9 - 21 / 3 (truncated toward zero)

    auto g = makeAnalyser();
    for (int k = 0; k < 200; ++k) g->beat.BaseFilter(0);
    EXPECT_EQ(g->beat.nBaseCount, 200);
    // The estimate follows a step by 1/200 of the error per sample, read after the update.
    EXPECT_EQ(g->beat.BaseFilter(200), 199);
    EXPECT_EQ(g->beat.BaseFilter(200), 199);
    EXPECT_EQ(g->beat.nBaseSum, 399);
    EXPECT_EQ(g->beat.nBaseCount, 200);
}

TEST(HeartMedian, FixedIndexIsTheMedianOf51AndNotOf30) {
    auto h = makeAnalyser();
    std::mt19937 rng(7);
    std::vector<int> v51(51);
    std::iota(v51.begin(), v51.end(), -20);
    std::shuffle(v51.begin(), v51.end(), rng);
    EXPECT_EQ(h->beat.medfilt1(v51.data(), 51, 51), 5);  // -20..30: median 5

    std::vector<int> v30(30);
    std::iota(v30.begin(), v30.end(), 1);
    std::shuffle(v30.begin(), v30.end(), rng);
    EXPECT_EQ(h->beat.medfilt1(v30.data(), 30, 30), 26);  // the 26th smallest
    EXPECT_EQ(v30.size(), 30u);
}

TEST(HeartWavePeak, RangeOfThePacket) {
    auto h = makeAnalyser();
    int one[] = {42};
    EXPECT_EQ(h->beat.GetWavePeak(one, 1), 0);
    EXPECT_EQ(h->beat.GetWavePeak(one, 0), 0);
    int pk[] = {5, -3, 9, 0};
    EXPECT_EQ(h->beat.GetWavePeak(pk, 4), 12);
    int extremes[] = {INT32_MIN, INT32_MAX};
    EXPECT_EQ(h->beat.GetWavePeak(extremes, 2), -1) << "the difference wraps at 32 bits";
}

TEST(HeartConditioning, DisplayFlatFor50SamplesAndBaselineDelayedBy25) {
    auto h = makeAnalyser();
    std::vector<int> out, display;
    for (int k = 0; k < 80; ++k) {
        int w = -1;
        out.push_back(h->beat.Processingheartdata(0, k == 0 ? 1000 : 0, &w));
        display.push_back(w);
    }
    for (int k = 0; k < 50; ++k) EXPECT_EQ(display[k], 512) << k;
    // The impulse reaches the centre of the median window 25 samples later; the median of the
    // window ignores it, and the running mean then holds 1000 / 26.
    for (int k = 0; k < 25; ++k) EXPECT_EQ(out[k], 0) << k;
    EXPECT_EQ(out[25], 1000 - 1000 / 26);
    EXPECT_EQ(out[26], 0 - 1000 / 27);
    EXPECT_EQ(h->beat.nWarmupCount, 400);
    EXPECT_EQ(display[51], (out[49] + out[50] + out[51]) / 3 + 512);

    h->beat.HeartProInit();
    int w = 0;
    for (int k = 0; k < 50; ++k) {
        h->beat.Processingheartdata(0, k * 37, &w);
        EXPECT_EQ(w, 512) << "after a conditioning reset, sample " << k;
    }
}

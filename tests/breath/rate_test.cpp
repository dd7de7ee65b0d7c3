// Breathing rate on clean synthetic breathing (30000 + 1500 sin, +-20 counts of noise, 25
// samples/s) from 6 to 40 breaths per minute: the start-up holds, the warm-up until the rate
// shows, and that it then stays at the true rate.
//
// Warm-up: the first conditioned samples are exactly 0, so the first three updates (1 to 3 s)
// are the no-signal hold (rate 0, status 2) and the fourth analyses. Peak counting then needs
// three boundaries of one kind (two whole breaths) in the window, and the output, the middle
// three of the last five rounded rates, needs two updates with the rate. So the rate shows after
// about two breath periods plus 4 s (5 s at 40/min, 24 s at 6/min); the bound checked here is
// two breath periods plus 6 s.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "support/breath_signal.h"

namespace {

class BreathRateTest : public ::testing::TestWithParam<int> {};

}  // namespace

TEST_P(BreathRateTest, ReachesAndKeepsTheTrueRate) {
    const int bpm = GetParam();
    const int warmup = static_cast<int>(std::ceil(2.0 * 60.0 / bpm)) + 6;
    auto a = std::make_unique<CBreathPro>();
    rtm_test::resetBreath(*a);
    rtm_test::BreathSignal sig(bpm);
    int block[rtm_test::kBreathBlock];
    int firstSecondAtRate = 0;
    for (int second = 1; second <= 60; ++second) {
        sig.nextBlock(block);
        const rtm_test::BreathBlockOut out = rtm_test::feedBreathBlock(*a, block);
        if (second <= 3) {
            EXPECT_EQ(out.status, 2) << "second " << second;
            EXPECT_EQ(out.rate, 0) << "second " << second;
        } else {
            EXPECT_NE(out.status, 2) << "second " << second;
        }
        if (out.rate == bpm && firstSecondAtRate == 0) firstSecondAtRate = second;
        if (second >= warmup) {
            EXPECT_EQ(out.rate, bpm) << "second " << second;
        }
    }
    EXPECT_GT(firstSecondAtRate, 4);  // never before the hold is over and two updates agree
    EXPECT_LE(firstSecondAtRate, warmup);
    // The spectral rate is the single-precision product with the rounded bin width.
    EXPECT_EQ(a->fSpectralRateHistory[9],
              static_cast<float>(a->nSpectralBinHistory[9] * 60) * 0.0244f);
}

INSTANTIATE_TEST_SUITE_P(SixToForty, BreathRateTest,
                         ::testing::Values(6, 10, 15, 18, 25, 33, 40));

TEST(BreathRate, FlatChannelReportsNoSignal) {
    auto a = std::make_unique<CBreathPro>();
    rtm_test::resetBreath(*a);
    int block[rtm_test::kBreathBlock];
    for (int& v : block) v = 30000;
    for (int second = 1; second <= 45; ++second) {
        const rtm_test::BreathBlockOut out = rtm_test::feedBreathBlock(*a, block);
        EXPECT_EQ(out.rate, 0);
        EXPECT_EQ(out.status, 2);
    }
}

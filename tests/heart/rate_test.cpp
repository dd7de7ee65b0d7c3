// Heart rate from synthetic ECG: the reported rate settles on the true rate after the start-up
// warm-up (thresholds from the 3-s maxima after 2 s, then the start-up median of five rates or
// eleven counted intervals for the trimmed mean; 40/min is the slowest, settled by packet 25),
// and the quality flag's crossing budget. The frame pipeline's heart fields are pinned by the
// recording test and the golden record.
#include <gtest/gtest.h>

#include "heart/heart_run.h"

class SettledRate : public ::testing::TestWithParam<int> {};

TEST_P(SettledRate, StaysWithinTwoBeatsPerMinuteAfterWarmup) {
    const int rate = GetParam();
    heart_run::Feeder feeder;
    heart_run::Ecg ecg(rate, rate == 40 ? 350 : 150 + rate);
    const std::vector<int> rates = feeder.run(ecg, 80);
    for (int k = 24; k < 80; ++k) EXPECT_NEAR(rates[k], rate, 2) << "packet " << k + 1;
    // Each beat crosses the half energy threshold twice; 2 x floor(rate / 60) + 1 crossings are
    // allowed. 170/min reads 171, so three beats in the packet (6 crossings) exceed the 5 allowed;
    // 180/min reads 181 and is allowed 7.
    if (rate >= 120) {
        EXPECT_EQ(feeder.feed(ecg.packet()).quality, rate == 170 ? 0 : 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, SettledRate, ::testing::Values(40, 60, 75, 120, 170, 180));

// Heart rate from synthetic ECG: the reported rate settles on the true rate after the start-up
// warm-up (thresholds from the 3-s maxima after 2 s, then the start-up median of five rates or
// eleven counted intervals for the trimmed mean; 40/min is the slowest, settled by packet 25),
// the quality flag's crossing budget, and the heart fields of the frame pipeline.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "heart/heart_run.h"
#include "rtmonitor.h"

namespace {

constexpr int kWarmupPackets = 25;

class SettledRate : public ::testing::TestWithParam<int> {};

TEST_P(SettledRate, StaysWithinTwoBeatsPerMinuteAfterWarmup) {
    heart_run::Feeder feeder;
    heart_run::Ecg ecg(GetParam(), GetParam() == 40 ? 350 : 150 + GetParam());
    const std::vector<int> rates = feeder.run(ecg, 80);
    EXPECT_EQ(rates[1], 0);  // no thresholds before 2 s
    for (int k = kWarmupPackets - 1; k < 80; ++k) EXPECT_NEAR(rates[k], GetParam(), 2) << "packet " << k + 1;
}

INSTANTIATE_TEST_SUITE_P(Rates, SettledRate, ::testing::Values(40, 60, 75, 120, 180));

// Each beat crosses the half energy threshold twice and the flag allows 2 x floor(rate / 60) + 1
// crossings: 120/min is clean; 180/min reads 179 (intervals of 66 and 67 samples), so 6 > 5.
TEST(QualityFlag, FollowsTheCrossingBudgetOfTheLastRate) {
    for (int rate : {120, 180}) {
        heart_run::Feeder feeder;
        heart_run::Ecg ecg(rate);
        feeder.run(ecg, 30);
        for (int k = 0; k < 10; ++k) EXPECT_EQ(feeder.feed(ecg.packet()).quality, rate == 120 ? 1 : 0);
    }
}

TEST(FramePipeline, FillsEveryHeartField) {
    ParamsIn in;
    ParamsOut out;
    std::memset(&in, 0, sizeof in);
    in.nDeviceId = 7301;
    initDevice(in.nDeviceId);
    heart_run::Ecg ecg(75);
    for (in.nFrameSeq = 0; in.nFrameSeq < 30; ++in.nFrameSeq) {
        const heart_run::Packet p = ecg.packet();
        std::memcpy(in.nHeartData, p.data(), sizeof in.nHeartData);
        std::memset(&out, 0x5a, sizeof out);
        ASSERT_EQ(processSignal(in, &out), 1);
    }
    EXPECT_NEAR(out.nHeartRate, 75, 2);
    EXPECT_EQ(out.nHeartReserved, 0);
    EXPECT_EQ(out.nHeartStatus, 1);
    const auto range = std::minmax_element(out.nHeartWave, out.nHeartWave + 200);
    EXPECT_LT(*range.first, 512);  // the conditioned ECG on an offset of 512
    EXPECT_GT(*range.second, 512 + 150);
    in.nHeartMode = 5;  // any other mode skips the analysis and reports the default rate
    processSignal(in, &out);
    EXPECT_EQ(out.nHeartRate, 200);
    freeDevice(in.nDeviceId);
}

}  // namespace

// Heart rate from synthetic ECG: the reported rate settles on the true rate after the start-up
// warm-up (thresholds from the 3-s maxima after 2 s, then either eleven counted RR intervals for
// the trimmed mean or four of five non-zero start-up rates for the median), and the frame
// pipeline fills every heart field of the output record.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "heart/heart_run.h"
#include "rtmonitor.h"

namespace {

using heart_run::Feeder;
using heart_run::signalAt;

// Packets after the mode-1 start by which every tested rate has settled. The slowest case is
// 40/min: eleven intervals of 1.5 s are needed before the mean replaces the start-up median.
constexpr int kWarmupPackets = 25;

struct RateCase {
    double rate;
    double amplitude;
};

class SettledRate : public ::testing::TestWithParam<RateCase> {};

TEST_P(SettledRate, StaysWithinTwoBeatsPerMinuteAfterWarmup) {
    const RateCase c = GetParam();
    Feeder feeder;
    auto signal = signalAt(c.rate, c.amplitude);
    const std::vector<int> rates = feeder.run(signal, 90);
    for (int k = kWarmupPackets - 1; k < 90; ++k) {
        EXPECT_NEAR(rates[k], c.rate, 2.0) << "packet " << k + 1;
    }
    // Nothing is reported before the thresholds exist (2 s) and a few beats are counted.
    EXPECT_EQ(rates[0], 0);
    EXPECT_EQ(rates[1], 0);
}

INSTANTIATE_TEST_SUITE_P(Rates, SettledRate,
                         ::testing::Values(RateCase{40, 250}, RateCase{60, 250}, RateCase{75, 250},
                                           RateCase{120, 250}, RateCase{180, 250},
                                           RateCase{75, 150}, RateCase{75, 350},
                                           RateCase{180, 150}, RateCase{40, 350}),
                         [](const ::testing::TestParamInfo<RateCase>& info) {
                             return "rate" + std::to_string(static_cast<int>(info.param.rate)) +
                                    "_r" + std::to_string(static_cast<int>(info.param.amplitude));
                         });

// At 40/min packets alternate between one beat and none; the start-up median needs four of
// its five rates non-zero, so the first reports flicker before the mean takes over.
TEST(StartupMedian, SlowRateFlickersUntilTheMeanTakesOver) {
    Feeder feeder;
    auto signal = signalAt(40);
    const std::vector<int> rates = feeder.run(signal, 25);
    int firstNonZero = -1;
    int zerosAfterFirst = 0;
    for (int k = 0; k < 25; ++k) {
        if (rates[k] != 0 && firstNonZero < 0) firstNonZero = k;
        if (firstNonZero >= 0 && rates[k] == 0) ++zerosAfterFirst;
    }
    ASSERT_GE(firstNonZero, 0);
    EXPECT_GT(zerosAfterFirst, 0);
    EXPECT_EQ(feeder.beat().nRateValid, 1);
    EXPECT_EQ(rates[24], 40);
}

// The beat records carry the true interval; every beat is typed as an artefact because the
// artefact limit is restored on every packet (hosts depend on that typing).
TEST(BeatHistory, RecordsTheTrueIntervalAndArtefactType) {
    Feeder feeder;
    auto signal = signalAt(75);  // 160 samples per beat
    feeder.run(signal, 40);
    for (const BeatMeasure& b : feeder.beat().stBeatRing) {
        EXPECT_NEAR(b.nRRInterval, 160, 1);
        EXPECT_EQ(b.nHeartRate, 12000 / b.nRRInterval);
        EXPECT_EQ(b.nBeatType, 4);
        EXPECT_GT(b.nQrsWidth, 0);
    }
}

// Each beat crosses the half energy threshold twice, so the flag allows 2 * floor(rate / 60) + 1
// crossings: 120/min (4 crossings of 5 allowed) is clean, 180/min (6 of 5) is judged noisy.
TEST(QualityFlag, FollowsTheCrossingBudgetOfTheLastRate) {
    for (const auto& [rate, expected] : {std::pair<double, int>{120, 1}, {180, 0}}) {
        Feeder feeder;
        auto signal = signalAt(rate);
        feeder.run(signal, 30);
        for (int k = 0; k < 20; ++k) {
            EXPECT_EQ(feeder.feed(signal.packet()).quality, expected) << rate << "/min packet " << k;
        }
    }
}

TEST(FramePipeline, FillsEveryHeartField) {
    const int id = 7301;
    initDevice(id);
    auto signal = signalAt(75);
    ParamsIn in;
    std::memset(&in, 0, sizeof in);
    in.nDeviceId = id;
    for (int k = 0; k < 25; ++k) in.nAccZ[k] = 640;
    ParamsOut out;
    for (int seq = 0; seq < 30; ++seq) {
        in.nFrameSeq = seq;
        in.nHeartMode = 0;
        signal.fill(in.nHeartData, 200);
        std::memset(&out, 0x5a, sizeof out);
        ASSERT_EQ(processSignal(in, &out), 1);
        EXPECT_EQ(out.nHeartReserved, 0);
        EXPECT_TRUE(out.nHeartStatus == 0 || out.nHeartStatus == 1);
    }
    EXPECT_NEAR(out.nHeartRate, 75, 2);
    // The display waveform is the conditioned ECG on an offset of 512.
    int lo = out.nHeartWave[0];
    int hi = out.nHeartWave[0];
    for (int v : out.nHeartWave) {
        lo = std::min(lo, v);
        hi = std::max(hi, v);
    }
    EXPECT_LT(lo, 512);
    EXPECT_GT(hi, 512 + 150);

    // Any mode other than 0 and 1 skips the analysis and reports the default rate (200).
    in.nHeartMode = 5;
    in.nFrameSeq = 30;
    processSignal(in, &out);
    EXPECT_EQ(out.nHeartRate, 200);
    freeDevice(id);
}

}  // namespace

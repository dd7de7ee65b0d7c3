// Recovery after long disturbed runs: flat, over-range, random and extreme packets, then clean
// signal at a different rate. The analyser must find the new rate again (after 300 disturbed
// packets, measured: flat 7, over range 10, full-scale random 9, small random 5, INT_MIN/INT_MAX
// 18 packets; the bound here leaves a margin). Extreme sample values, packet
// numbers and modes must stay defined (checked by the sanitizer build).
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "heart/heart_run.h"

namespace {

using heart_run::Feeder;
using heart_run::signalAt;

enum class Disturbance { Flat, OverRange, RandomFullScale, RandomNoise, Extremes };

std::vector<int> disturbed(Disturbance kind, uint32_t& state) {
    switch (kind) {
        case Disturbance::Flat:
            return rtm::test::flatPacket(300);
        case Disturbance::OverRange:
            return rtm::test::overRangePacket();
        case Disturbance::RandomFullScale:
            return rtm::test::randomPacket(state, 0, 1023);
        case Disturbance::RandomNoise:
            return rtm::test::randomPacket(state, 412, 612);
        case Disturbance::Extremes: {
            std::vector<int> p(200);
            for (int i = 0; i < 200; ++i) p[static_cast<size_t>(i)] = (i % 3 == 0) ? INT_MIN : (i % 3 == 1 ? INT_MAX : 0);
            return p;
        }
    }
    return {};
}

// Packets of clean 120/min signal until the rate is within 3 of 120 for five packets in a row.
int packetsToRecover(Feeder& feeder) {
    auto clean = signalAt(120, 200);
    int inRow = 0;
    for (int k = 1; k <= 120; ++k) {
        const int rate = feeder.feed(clean.packet()).rate;
        inRow = (rate >= 117 && rate <= 123) ? inRow + 1 : 0;
        if (inRow == 5) return k - 4;
    }
    return -1;
}

std::string disturbanceName(const ::testing::TestParamInfo<Disturbance>& info) {
    static const char* const kNames[] = {"Flat", "OverRange", "RandomFullScale", "RandomNoise",
                                         "Extremes"};
    return kNames[static_cast<int>(info.param)];
}

class Recovery : public ::testing::TestWithParam<Disturbance> {};

TEST_P(Recovery, NewRateIsFoundAfterALongDisturbedRun) {
    Feeder feeder;
    auto before = signalAt(75);
    feeder.run(before, 70);  // past the start-up minute
    uint32_t state = 12345;
    for (int k = 0; k < 300; ++k) feeder.feed(disturbed(GetParam(), state));
    const int packets = packetsToRecover(feeder);
    RecordProperty("packets_to_recover", packets);
    EXPECT_GT(packets, 0);
    EXPECT_LE(packets, 30);
}

INSTANTIATE_TEST_SUITE_P(Runs, Recovery,
                         ::testing::Values(Disturbance::Flat, Disturbance::OverRange,
                                           Disturbance::RandomFullScale, Disturbance::RandomNoise,
                                           Disturbance::Extremes),
                         disturbanceName);

TEST(ExtremeInput, SequenceNumbersAndModesStayDefined) {
    Feeder feeder;
    auto signal = signalAt(75);
    const int seqs[] = {INT_MAX, INT_MIN, 0, -1, INT_MAX, INT_MAX - 1, 1, INT_MIN + 1};
    const int modes[] = {0, 0, 1, 0, INT_MAX, 0, INT_MIN, 0};
    for (int k = 0; k < 8; ++k) {
        heart_run::Output out;
        std::vector<int> p = signal.packet();
        feeder.beat().ProcessingHeart(1, seqs[k], modes[k], p.data(), 200, out.wave, &out.rate,
                                      &out.reserved, &out.quality);
        EXPECT_TRUE(out.rate == 0 || (out.rate >= 30 && out.rate <= 300) || out.rate == 200);
        EXPECT_EQ(out.reserved, 0);
    }
}

TEST(ExtremeInput, WrappedPeakToPeakIsNotFlatAndReturnsZero) {
    Feeder feeder;
    auto signal = signalAt(75);
    feeder.run(signal, 30);
    std::vector<int> p(200, 0);
    p[0] = INT_MIN;
    p[1] = INT_MAX;  // maximum minus minimum wraps to -1
    EXPECT_EQ(feeder.feed(p).rate, 0);
    EXPECT_NE(feeder.beat().nRingPos, -1);  // no reset: only a zero amplitude is flat
}

}  // namespace

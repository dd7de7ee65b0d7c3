// Heart driver: packet modes and numbering, over-range, flat and large packets, bad input, and
// recovery after long disturbed runs (INT_MIN/INT_MAX packets among them: their peak-to-peak
// wraps to -1, which is not flat).
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <vector>

#include "heart/heart_run.h"

namespace {

using namespace heart_run;

constexpr int kSentinel = 99;  // a rate the 75/min signal never produces

TEST(PacketNumbering, OnlyAJumpReportsThePreviousRate) {
    Feeder f;
    Ecg ecg(75);
    f.run(ecg, 30);
    auto reported = [&](int seq, int mode = 0) {
        f.beat().nLastHeartRate = kSentinel;
        return f.send(seq, mode, ecg.packet());
    };
    const Output jump = reported(f.seq + 10);
    EXPECT_EQ(jump.rate, kSentinel);
    EXPECT_EQ(f.beat().nLastHeartRate, kSentinel);
    EXPECT_EQ(f.beat().nCallCount, 31);  // still analysed, after the input conditioning restarted
    EXPECT_EQ(jump.wave[49], 512);       // the first 50 display samples of a restart
    for (int seq : {f.seq + 11, f.seq + 10, 0}) EXPECT_NEAR(reported(seq).rate, 75, 2) << seq;
    reported(INT_MAX);
    EXPECT_EQ(reported(INT_MIN).rate, kSentinel);  // the difference is not taken in 32 bits
    EXPECT_EQ(reported(1, INT_MIN).rate, 200);     // other modes: the default rate
}

// Over range: that packet is the first held one, the hold releases on the fifth normal packet
// after it, and the sixth is analysed again. A flat packet then re-initialises the analyser (the
// hold mode it sets is undone by the reset in the same call) and the rate returns after warm-up.
TEST(DisturbedPacket, OverRangeHoldsForItselfAndFiveMoreFlatResets) {
    Feeder f;
    Ecg ecg(75);
    f.run(ecg, 40);
    f.beat().nLastHeartRate = kSentinel;
    EXPECT_EQ(f.feed(spiky(951)).rate, kSentinel);
    for (int k = 1; k <= 5; ++k) EXPECT_EQ(f.feed(ecg.packet()).rate, kSentinel) << k;
    EXPECT_NEAR(f.feed(ecg.packet()).rate, 75, 2);
    EXPECT_EQ(f.feed(Packet(200, 600)).rate, 0);
    EXPECT_EQ(f.beat().nRingPos, -1);
    EXPECT_EQ(f.beat().nAnalysisMode, 1);
    EXPECT_NEAR(f.run(ecg, 12)[11], 75, 2);
}

// Large packets enter the amplitude ring too, so only a rising run stays large; the sixth in a
// row becomes the new normal. 220 is exactly 2.2 x 100 in single precision but not in double.
TEST(LargePacket, SixthOfARisingRunBecomesTheNewNormal) {
    Feeder f;
    for (int height : {100, 100, 100, 100, 100, 100, 100, 100, 100, 100, 220}) f.feed(spiky(height));
    EXPECT_EQ(f.beat().nLargeWaveFlag, 0);
    const int run[6] = {221, 221, 300, 400, 400, 500};
    for (int k = 0; k < 6; ++k) {
        f.feed(spiky(run[k]));
        EXPECT_EQ(f.beat().nLargeWaveCount, k + 1);
        EXPECT_EQ(f.beat().nLargeWaveFlag + f.beat().nOverRangeFlag, k < 5 ? 2 : 0);
    }
    EXPECT_EQ(f.beat().nWavePeakRing[3], 0);
}

TEST(BadInput, NullSamplesAndCountsOutsideTheRangeGiveZero) {
    Feeder f;
    std::vector<int> big(3951, 0), wave(3951);
    int quality = -7;
    for (int n : {0, 3951, INT_MIN, INT_MAX})
        EXPECT_EQ(f.beat().GetHeartRate(0, 0, big.data(), n, wave.data(), &quality), 0);
    EXPECT_EQ(f.beat().GetHeartRate(0, 0, nullptr, 200, wave.data(), &quality), 0);
    EXPECT_EQ(quality, -7);  // left unwritten
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = i < 200 ? 500 + 100 * (i % 2) : i % 3 == 0 ? INT_MIN : i % 3 == 1 ? INT_MAX : 0;
    // The longest packet, mostly INT_MIN and INT_MAX: defined under the sanitizers.
    EXPECT_GE(f.beat().GetHeartRate(0, 0, big.data(), 3950, wave.data(), &quality), 0);
}

// 300 disturbed packets past the start-up minute at 75/min, then clean 120/min. Measured packets
// until five in a row are within 3 of 120: flat 7, over range 10, full-scale random 9, small
// random 5, INT_MIN/INT_MAX 18; the bound leaves a margin.
class Recovery : public ::testing::TestWithParam<int> {};

TEST_P(Recovery, NewRateIsFoundAfterALongDisturbedRun) {
    Feeder f;
    Ecg before(75), after(120, 200);
    f.run(before, 70);
    // Kinds: 0 flat at 300, 1 over range (1000-count spikes on 0), 2 random 0..1023,
    // 3 random 412..612, 4 INT_MIN, INT_MAX, 0 repeated.
    const int kind = GetParam(), lo[4] = {300, 0, 0, 412}, span[4] = {1, 1, 1024, 201};
    rtm_synth::Rng rng(12345);
    for (int k = 0; k < 300; ++k) {
        Packet p(200);
        for (size_t i = 0; i < p.size(); ++i) {
            const uint64_t draw = rng.next();
            p[i] = kind == 4   ? (i % 3 == 0   ? INT_MIN
                                  : i % 3 == 1 ? INT_MAX
                                               : 0)
                   : kind == 1 ? (i % 40 == 0 ? 1000 : 0)
                               : lo[kind] + static_cast<int>(draw % static_cast<uint64_t>(span[kind]));
        }
        f.feed(p);
    }
    int inRow = 0, packets = 1;
    for (; packets <= 120 && inRow < 5; ++packets)
        inRow = std::abs(f.feed(after.packet()).rate - 120) <= 3 ? inRow + 1 : 0;
    RecordProperty("packets_to_recover", packets - 5);
    EXPECT_LE(packets - 5, 30);
}

INSTANTIATE_TEST_SUITE_P(FlatOverRangeRandomNoiseExtremes, Recovery, ::testing::Range(0, 5));

}  // namespace

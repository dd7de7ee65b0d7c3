// Heart driver: packet modes and numbering, flat, over-range and large packets, bad input, and
// the trimmed mean of the beat history.
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "heart/heart_run.h"

namespace {

using heart_run::Ecg;
using heart_run::Feeder;
using heart_run::spiky;

constexpr int kSentinel = 99;  // a rate the 75/min signal never produces

TEST(PacketNumbering, OnlyAJumpReportsThePreviousRate) {
    Feeder f;
    Ecg ecg(75);
    f.run(ecg, 30);
    auto reported = [&](int seq) {
        f.beat().nLastHeartRate = kSentinel;
        return f.send(seq, 0, ecg.packet());
    };
    const int calls = f.beat().nCallCount;
    const heart_run::Output jump = reported(f.seq + 10);
    EXPECT_EQ(jump.rate, kSentinel);
    EXPECT_EQ(f.beat().nLastHeartRate, kSentinel);
    EXPECT_EQ(f.beat().nCallCount, calls + 1);  // still analysed
    EXPECT_EQ(jump.wave[49], 512);              // the input conditioning restarted
    EXPECT_NE(jump.wave[60], 512);
    for (int seq : {f.seq + 11, f.seq + 10, 0}) EXPECT_NEAR(reported(seq).rate, 75, 2) << seq;
    reported(INT_MAX);
    EXPECT_EQ(reported(INT_MIN).rate, kSentinel);  // the difference is not taken in 32 bits
    // Any mode but 0 and 1 analyses nothing and reports the default rate.
    EXPECT_EQ(f.send(5, INT_MIN, ecg.packet()).rate, 200);
    EXPECT_EQ(f.beat().nCallCount, calls + 6);
}

TEST(FlatPacket, ReinitialisesTheAnalyser) {
    Feeder f;
    Ecg ecg(75);
    f.run(ecg, 40);
    EXPECT_EQ(f.feed(heart_run::Packet(200, 600)).rate, 0);
    EXPECT_EQ(f.beat().nRingPos, -1);
    EXPECT_EQ(f.beat().nCallCount, 0);
    EXPECT_EQ(f.beat().nAnalysisMode, 1);  // the hold mode is undone by the reset in the same call
    EXPECT_EQ(f.beat().nFlatCount, 0);
    EXPECT_NEAR(f.run(ecg, 12)[11], 75, 2);
}

// The over-range packet is the first held packet; the hold releases on the fifth normal one
// after it, and the sixth normal packet is analysed again.
TEST(OverRange, HoldsTheLastRateForItselfAndFiveNormalPackets) {
    Feeder f;
    Ecg ecg(75);
    f.run(ecg, 40);
    f.beat().nLastHeartRate = kSentinel;
    EXPECT_EQ(f.feed(spiky(951)).rate, kSentinel);
    for (int k = 1; k <= 5; ++k) EXPECT_EQ(f.feed(ecg.packet()).rate, kSentinel) << k;
    EXPECT_NEAR(f.feed(ecg.packet()).rate, 75, 2);
}

// Large packets enter the amplitude ring too, so only a rising run stays large; the sixth in a
// row becomes the new normal. 220 is exactly 2.2 x 100 in single precision but not in double.
TEST(LargePacket, SixthOfARisingRunBecomesTheNewNormal) {
    Feeder f;
    for (int k = 0; k < 10; ++k) f.feed(spiky(100));
    f.feed(spiky(220));
    EXPECT_EQ(f.beat().nLargeWaveFlag, 0);
    const int run[6] = {221, 221, 300, 400, 400, 500};
    for (int k = 0; k < 6; ++k) {
        f.feed(spiky(run[k]));
        EXPECT_EQ(f.beat().nLargeWaveCount, k + 1);
        EXPECT_EQ(f.beat().nLargeWaveFlag, k < 5 ? 1 : 0);
    }
    EXPECT_EQ(f.beat().nOverRangeFlag, 0);
    EXPECT_EQ(f.beat().nSettleCount, 0);
    EXPECT_EQ(f.beat().nWavePeakRing[3], 0);
}

TEST(BadInput, NullSamplesAndCountsOutsideTheRangeGiveZero) {
    Feeder f;
    Ecg ecg(75);
    f.run(ecg, 30);
    std::vector<int> big(3951, 0), wave(3951);
    int quality = -7;
    for (int n : {0, 3951, INT_MIN, INT_MAX})
        EXPECT_EQ(f.beat().GetHeartRate(0, 0, big.data(), n, wave.data(), &quality), 0) << n;
    EXPECT_EQ(f.beat().GetHeartRate(0, 0, nullptr, 200, wave.data(), &quality), 0);
    EXPECT_EQ(quality, -7);  // left unwritten
    for (int i = 0; i < 3951; ++i)
        big[static_cast<size_t>(i)] = i < 200 ? 500 + 100 * (i % 2) : i % 3 == 0 ? INT_MIN : i % 3 == 1 ? INT_MAX : 0;
    f.beat().GetHeartRate(0, 0, big.data(), 3950, wave.data(), &quality);  // defined under the sanitizers
    // Peak-to-peak of INT_MIN and INT_MAX wraps to -1: a rate of 0, but not a flat packet (no reset).
    EXPECT_EQ(f.feed(heart_run::Packet(big.begin() + 200, big.begin() + 400)).rate, 0);
    EXPECT_NE(f.beat().nRingPos, -1);
}

// With 11 to 15 counted intervals the lowest four go, from 16 on the lowest six (and the highest
// four always); the ten newest (19 back to 10) hold fewer than eight, so they do not override.
TEST(CountMeanHR, TrimsFourOrSixLowIntervals) {
    Feeder f;
    CBeatMeasure& b = f.beat();
    for (int s = 0; s < 10; ++s) b.stBeatRing[s].nRRInterval = 100 + 10 * s;
    b.stBeatRing[10].nRRInterval = 39;  // below 40: not counted
    EXPECT_EQ(b.CountMeanHR(), 0);
    for (int s = 10; s < 15; ++s) b.stBeatRing[s].nRRInterval = 100 + 10 * s;
    EXPECT_EQ(b.CountMeanHR(), 12000 / 170);  // 140..200 kept
    b.stBeatRing[15].nRRInterval = 40;
    EXPECT_EQ(b.CountMeanHR(), 12000 / 175);  // 150..200 kept
}

}  // namespace

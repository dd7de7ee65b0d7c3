// Heart driver: the packet entry (modes, packet numbering), disturbed packets (flat, over range,
// much larger than usual), the bad-input guards, and the rate from the beat history.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <vector>

#include "heart/heart_run.h"

namespace {

using heart_run::Feeder;
using heart_run::Output;
using heart_run::signalAt;

constexpr int kSentinelRate = 99;  // a rate the 75/min signal never produces

TEST(PacketEntry, ModeOneRestartsAndReportsZero) {
    Feeder feeder;
    auto signal = signalAt(75);
    feeder.run(signal, 30);
    Output out;
    std::vector<int> samples = signal.packet();
    feeder.beat().ProcessingHeart(1, 31, 1, samples.data(), 200, out.wave, &out.rate,
                                  &out.reserved, &out.quality);
    EXPECT_EQ(out.rate, 0);
    EXPECT_EQ(out.quality, 0);
    EXPECT_EQ(out.reserved, 0);
    EXPECT_EQ(feeder.beat().nRingPos, -1);
    EXPECT_EQ(feeder.beat().nCallCount, 0);
    EXPECT_EQ(feeder.beat().nLastPacketNo, 31);
}

TEST(PacketEntry, OtherModesReportTheDefaultRateWithoutAnalysis) {
    Feeder feeder;
    auto signal = signalAt(75);
    feeder.run(signal, 5);
    const int calls = feeder.beat().nCallCount;
    for (int mode : {2, -1, INT_MIN, INT_MAX}) {
        Output out;
        std::vector<int> samples = signal.packet();
        feeder.beat().ProcessingHeart(1, 77, mode, samples.data(), 200, out.wave, &out.rate,
                                      &out.reserved, &out.quality);
        EXPECT_EQ(out.rate, 200);
        EXPECT_EQ(out.reserved, 0);
        EXPECT_EQ(out.quality, -1);  // untouched
        EXPECT_EQ(feeder.beat().nLastPacketNo, 77);
    }
    EXPECT_EQ(feeder.beat().nCallCount, calls);
}

TEST(PacketNumbering, AJumpReportsThePreviousRateButStillAnalyses) {
    Feeder feeder;
    auto signal = signalAt(75);
    feeder.run(signal, 30);
    feeder.beat().nLastHeartRate = kSentinelRate;
    const int calls = feeder.beat().nCallCount;
    feeder.seq() += 10;
    const Output out = feeder.feed(signal.packet());
    EXPECT_EQ(out.rate, kSentinelRate);
    EXPECT_EQ(feeder.beat().nLastHeartRate, kSentinelRate);  // not updated by the jump packet
    EXPECT_EQ(feeder.beat().nCallCount, calls + 1);
    // The input conditioning restarted: its first 50 display samples are the bare offset.
    for (int i = 0; i < 50; ++i) ASSERT_EQ(out.wave[i], 512) << i;
    EXPECT_NE(out.wave[60], 512);
    // The next consecutive packet is analysed normally again.
    EXPECT_NEAR(feeder.feed(signal.packet()).rate, 75, 2);
}

TEST(PacketNumbering, StepsOfOneEitherWayAndZeroAreNotGaps) {
    Feeder feeder;
    auto signal = signalAt(75);
    feeder.run(signal, 30);
    for (int seq : {29, 30, 0}) {
        feeder.beat().nLastHeartRate = kSentinelRate;
        feeder.seq() = seq - 1;
        const Output out = feeder.feed(signal.packet());
        EXPECT_NE(out.rate, kSentinelRate) << seq;
        EXPECT_EQ(feeder.beat().nLastHeartRate, out.rate);
    }
}

// The difference is taken in 64 bits: INT_MAX -> INT_MIN is a jump, not a step of one.
TEST(PacketNumbering, WrapOfTheCounterIsAGap) {
    Feeder feeder;
    auto signal = signalAt(75);
    feeder.run(signal, 30);
    feeder.seq() = INT_MAX - 1;
    feeder.feed(signal.packet());  // jump to INT_MAX
    feeder.beat().nLastHeartRate = kSentinelRate;
    Output out;
    std::vector<int> samples = signal.packet();
    feeder.beat().ProcessingHeart(1, INT_MIN, 0, samples.data(), 200, out.wave, &out.rate,
                                  &out.reserved, &out.quality);
    EXPECT_EQ(out.rate, kSentinelRate);
    EXPECT_EQ(feeder.beat().nLastPacketNo, INT_MIN);
}

TEST(FlatPacket, ReinitialisesTheAnalyser) {
    Feeder feeder;
    auto signal = signalAt(75);
    feeder.run(signal, 40);
    ASSERT_NEAR(feeder.beat().nLastHeartRate, 75, 2);
    const Output out = feeder.feed(rtm::test::flatPacket(600));
    EXPECT_EQ(out.rate, 0);
    const CBeatMeasure& b = feeder.beat();
    EXPECT_EQ(b.nRingPos, -1);
    EXPECT_EQ(b.nCallCount, 0);
    EXPECT_EQ(b.nRateValid, 0);
    EXPECT_EQ(b.nThresholdReady, 0);
    EXPECT_EQ(b.nBeatRingStarted, 0);
    EXPECT_EQ(b.nAnalysisMode, 1);  // the hold mode is undone by the reset in the same call
    EXPECT_EQ(b.nFlatCount, 0);
    EXPECT_EQ(b.nLastHeartRate, 0);
    EXPECT_EQ(b.stBeatRing[3].nRRInterval, 0);
    // Analysis starts over: the rate comes back after the start-up warm-up.
    const std::vector<int> rates = feeder.run(signal, 12);
    EXPECT_EQ(rates[0], 0);
    EXPECT_NEAR(rates[11], 75, 2);
}

// Over range: that packet and the following normal packets report the held rate until the hold
// count passes 5 (the over-range packet counts as the first); the sixth normal packet is analysed.
TEST(OverRange, HoldsTheLastRateForItselfAndFiveNormalPackets) {
    Feeder feeder;
    auto signal = signalAt(75);
    feeder.run(signal, 40);
    feeder.beat().nLastHeartRate = kSentinelRate;
    EXPECT_EQ(feeder.feed(rtm::test::overRangePacket()).rate, kSentinelRate);
    EXPECT_EQ(feeder.beat().nLargeWaveFlag, 1);
    for (int k = 1; k <= 5; ++k) {
        EXPECT_EQ(feeder.feed(signal.packet()).rate, kSentinelRate) << "normal packet " << k;
        EXPECT_EQ(feeder.beat().nLargeWaveFlag, 1);
    }
    EXPECT_EQ(feeder.beat().nOverRangeFlag, 0);
    const Output released = feeder.feed(signal.packet());
    EXPECT_EQ(feeder.beat().nLargeWaveFlag, 0);
    EXPECT_NEAR(released.rate, 75, 2);  // from the beat history again
}

// A packet 2.2 times the typical amplitude (mean of the 3rd..8th smallest of the last ten)
// holds the rate like an over-range one. Large packets are stored too, so the typical amplitude
// follows them: a run of them stops counting as large after a few packets.
std::vector<int> louder(std::vector<int> p, int factor) {
    for (int& v : p) v = 512 + (v - 512) * factor;
    return p;
}

TEST(LargePacket, HoldsTheRateAndRestartsLearning) {
    Feeder feeder;
    auto signal = signalAt(75, 100);
    feeder.run(signal, 40);
    feeder.beat().nLastHeartRate = kSentinelRate;
    EXPECT_EQ(feeder.feed(louder(signal.packet(), 3)).rate, kSentinelRate);
    const CBeatMeasure& b = feeder.beat();
    EXPECT_EQ(b.nLargeWaveCount, 1);
    EXPECT_EQ(b.nLargeWaveFlag, 1);
    EXPECT_EQ(b.nOverRangeFlag, 1);
    EXPECT_EQ(b.nSettleCount, 2);
    EXPECT_EQ(b.nThresholdReady, 0);
    EXPECT_EQ(b.nPeakPosRingPos, 0);
}

TEST(LargePacket, ARunIsAbsorbedByTheTypicalAmplitude) {
    Feeder feeder;
    auto signal = signalAt(75, 100);
    feeder.run(signal, 40);
    int longestRun = 0;
    for (int k = 0; k < 8; ++k) {
        feeder.feed(louder(signal.packet(), 4));
        longestRun = std::max(longestRun, feeder.beat().nLargeWaveCount);
    }
    EXPECT_GE(longestRun, 3);
    EXPECT_LT(longestRun, 6);
    EXPECT_EQ(feeder.beat().nLargeWaveCount, 0);
}

TEST(LargePacket, TheSixthInARowBecomesTheNewNormal) {
    Feeder feeder;
    auto signal = signalAt(75, 100);
    feeder.run(signal, 40);
    feeder.beat().nLargeWaveCount = 5;  // five large packets already counted
    feeder.feed(louder(signal.packet(), 3));
    const CBeatMeasure& b = feeder.beat();
    EXPECT_EQ(b.nLargeWaveCount, 6);
    EXPECT_EQ(b.nLargeWaveFlag, 0);
    EXPECT_EQ(b.nOverRangeFlag, 0);
    EXPECT_EQ(b.nSettleCount, 0);
    EXPECT_EQ(b.nNoNewBeatCount, 0);
    for (int k = 0; k < 10; ++k) EXPECT_EQ(b.nWavePeakRing[k], 0);
    // The packet itself was analysed, so detection continues on the new amplitude.
    EXPECT_EQ(b.nThresholdReady, 1);
}

TEST(BadInput, NullSamplesOrCountOutsideTheRangeGiveZero) {
    Feeder feeder;
    auto signal = signalAt(75);
    feeder.run(signal, 30);
    CBeatMeasure& b = feeder.beat();
    std::vector<int> big(3951, 512);
    int wave[3951];
    int quality = -7;
    const int calls = b.nCallCount;
    EXPECT_EQ(b.GetHeartRate(0, 0, nullptr, 200, wave, &quality), 0);
    EXPECT_EQ(b.GetHeartRate(0, 0, big.data(), 0, wave, &quality), 0);
    EXPECT_EQ(b.GetHeartRate(0, 0, big.data(), 3951, wave, &quality), 0);
    EXPECT_EQ(b.GetHeartRate(0, 0, big.data(), INT_MIN, wave, &quality), 0);
    EXPECT_EQ(quality, -7);  // the flag is left unwritten
    EXPECT_EQ(b.nCallCount, calls + 4);

    // Through the entry a null packet reports 0 and keeps 0 as the last rate.
    Output out;
    b.ProcessingHeart(1, feeder.seq() + 1, 0, nullptr, 200, out.wave, &out.rate, &out.reserved,
                      &out.quality);
    EXPECT_EQ(out.rate, 0);
    EXPECT_EQ(b.nLastHeartRate, 0);
}

// Rate from the beat history (CountMeanHR) on hand-written intervals.
TEST(CountMeanHR, NeedsElevenCountedIntervals) {
    auto holder = std::make_unique<heart_run::Holder>();
    CBeatMeasure& b = holder->beat;
    b.EcgAnalysisInit(0);
    for (int s = 0; s < 10; ++s) b.stBeatRing[s].nRRInterval = 160;
    b.stBeatRing[10].nRRInterval = 39;  // below 40 samples: not counted
    EXPECT_EQ(b.CountMeanHR(), 0);
    b.stBeatRing[10].nRRInterval = 40;
    EXPECT_GT(b.CountMeanHR(), 0);
}

TEST(CountMeanHR, DropsFourLowUnderSixteenAndSixFromSixteen) {
    auto holder = std::make_unique<heart_run::Holder>();
    CBeatMeasure& b = holder->beat;
    b.EcgAnalysisInit(0);
    // Slots 0..14 hold 100, 110, ..., 240 (15 intervals); slots 15..19 stay 0, so the ten newest
    // (19..10) hold only five counted intervals and cannot override.
    for (int s = 0; s < 15; ++s) b.stBeatRing[s].nRRInterval = 100 + 10 * s;
    b.nBeatRingPos = 0;
    // Lowest four and highest four dropped: 140..200, mean 170 -> 12000 / 170 = 70.
    EXPECT_EQ(b.CountMeanHR(), 70);
    // A sixteenth interval: the lowest six go. Sorted 40,100..240: keep 150..200 (6), mean 175.
    b.stBeatRing[15].nRRInterval = 40;
    EXPECT_EQ(b.CountMeanHR(), 12000 / 175);
}

TEST(CountMeanHR, EightRecentIntervalsOverrideTheLongMean) {
    auto holder = std::make_unique<heart_run::Holder>();
    CBeatMeasure& b = holder->beat;
    b.EcgAnalysisInit(0);
    for (int s = 0; s < 20; ++s) b.stBeatRing[s].nRRInterval = 300;
    // The ten newest walking back from slot 4: 4..0 and 19..15.
    b.nBeatRingPos = 5;
    const int recent[10] = {100, 110, 120, 130, 140, 150, 160, 170, 180, 190};
    const int slots[10] = {4, 3, 2, 1, 0, 19, 18, 17, 16, 15};
    for (int k = 0; k < 10; ++k) b.stBeatRing[slots[k]].nRRInterval = recent[k];
    // Middle band of the sorted recent ten: 130, 140, 150, 160 -> mean 145 -> 82.
    EXPECT_EQ(b.CountMeanHR(), 12000 / 145);
}

}  // namespace

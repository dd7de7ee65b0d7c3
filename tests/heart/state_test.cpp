// Analyser state: the layout the driver relies on, and what each reset clears and keeps. Every
// member is first set to a non-default value so that a reset which touches too much or too
// little shows up as a byte difference against the expected state.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "heart/beat_fixture.h"

using heart_test::BeatHolder;
using heart_test::makeAnalyser;

namespace {

template <typename T, std::size_t N>
void fill(T (&a)[N], T v) {
    std::fill(std::begin(a), std::end(a), v);
}
template <std::size_t R, std::size_t N>
void fill(int (&a)[R][N], int v) {
    for (auto& row : a) std::fill(std::begin(row), std::end(row), v);
}

void dirty(CBeatMeasure& b) {
    const BeatMeasure odd{7, 7, 7, 7, 7, 7, 7};
    b.nLargeWaveCount = 3;
    b.nCallCount = 77;
    b.nRateValid = 1;
    b.nRateHistoryPos = 3;
    fill(b.nRateHistory, 70);
    b.nLastHeartRate = 72;
    b.nLastPacketNo = 900;
    fill(b.nUnusedWords, 5);
    fill(b.nLowPassRing, 9);
    b.nLowPassPos = 4;
    b.nLeadIndex = 0;
    b.nInitDone = 0;
    b.stBeatTemplate = odd;
    b.stReinitSetting = SettingParameter{1, 2, 3};
    b.nMeanRPeak = 800;
    fill(b.stBeatRing, odd);
    b.nBeatRingPos = 6;
    b.nBeatRingStarted = 1;
    fill(b.nFilteredRing, 11);
    fill(b.nAbsRing, 12);
    fill(b.nConvexRing, 13);
    b.nPacketEndPos = 100;
    b.nPacketStartPos = 200;
    fill(b.nPeakPosRing, 300);
    b.nPeakPosRingPos = 2;
    b.nRingPos = 99;
    b.nConvexPos = 96;
    fill(b.nRPeakThreshold, 400);
    fill(b.nRHeightThreshold, 500);
    b.nSinceLastPeak = 14;
    b.bQrsArmed = 1;
    b.bQrsPassed = 1;
    b.nQrsPeakPos = 1234;
    fill(b.nBeatPosRing, 15);
    fill(b.nMainPeakAmplitude, 16);
    b.nBeatPosRingPos = 5;
    b.nSampleInSecond = 150;
    b.nSecondsCount = 33;
    b.nThresholdReady = 1;
    b.nCandidateHead = 4;
    b.nCandidatePos = 2;
    b.nNoNewBeatCount = 8;
    fill(b.nQrsWidthRing, 17);
    fill(b.stCandidateRing, odd);
    b.nMinRRInterval = 1;
    b.nMaxRRInterval = 2;
    b.nMsPerSample = 3;
    b.fSignalGain = 4.0f;
    b.nSampleRate = 5;
    b.nArtifactLimit = -6;
    b.nRefInterval = 90;
    b.nRefAmplitude = 1100;
    fill(b.nBeatAmplitude, 18);
    b.nMeanHeartRate = 19;
    b.nFlatCount = 2;
    b.nAnalysisMode = 2;
    b.nBaseSum = 2100;
    b.nBaseCount = 200;
    fill(b.nSmoothHist, 22);
    b.nWarmupCount = 400;
    fill(b.nMedianRing, 23);
    b.nMedianRingPos = 40;
    fill(b.nWavePeakRing, 24);
    b.nWavePeakRingPos = 7;
    b.nLargeWaveFlag = 1;
    b.nHoldCount = 3;
    b.nOverRangeFlag = 1;
    b.nSettleCount = 9;
    fill(b.nEnergyRing, 25);
    fill(b.nEnergyWindow, 26);
    b.nEnergyRingPos = 3000;
    b.nEnergyWindowPos = 6;
    fill(b.nEnergyThreshold, 27);
    b.nEnergyLearnCount = 8;
    fill(b.nSpareInitA, 28);
    fill(b.nSpareInitB, 29);
    b.nSpareInitC = 30;
}

bool sameBytes(const CBeatMeasure& a, const CBeatMeasure& b) {
    return std::memcmp(static_cast<const void*>(&a), static_cast<const void*>(&b), sizeof(CBeatMeasure)) == 0;
}

}  // namespace

TEST(HeartState, DetectionRingsAreAdjacentInDriverOrder) {
    auto h = makeAnalyser();
    const int* filtered = &h->beat.nFilteredRing[0][0];
    const int* abs = &h->beat.nAbsRing[0][0];
    const int* convex = &h->beat.nConvexRing[0][0];
    EXPECT_EQ(reinterpret_cast<const char*>(abs) - reinterpret_cast<const char*>(filtered), 4000 * 4);
    EXPECT_EQ(reinterpret_cast<const char*>(convex) - reinterpret_cast<const char*>(abs), 4000 * 4);
}

TEST(HeartState, InitPresetsTheStartValues) {
    auto h = makeAnalyser();
    const auto& b = h->beat;
    EXPECT_EQ(b.nRingPos, -1) << "the first sample goes to position 0";
    EXPECT_EQ(b.nConvexPos, -1);
    EXPECT_EQ(b.nPacketEndPos, -1);
    EXPECT_EQ(b.nPacketStartPos, -1);
    EXPECT_EQ(b.nCandidateHead, 19);
    EXPECT_EQ(b.nRefInterval, 40);
    EXPECT_EQ(b.nAnalysisMode, 1);
    EXPECT_EQ(b.nInitDone, 1);
    EXPECT_EQ(b.nArtifactLimit, 24000);
    EXPECT_EQ(b.nMinRRInterval, 38);
    EXPECT_EQ(b.nMaxRRInterval, 600);
    EXPECT_EQ(b.nMsPerSample, 5);
    EXPECT_EQ(b.nSampleRate, 200);
    EXPECT_EQ(b.fSignalGain, 80.0f);
    for (const auto& beat : b.stBeatRing) {
        EXPECT_EQ(beat.nBeatType, 1);
        EXPECT_EQ(beat.nRRInterval, 0);
    }
    for (const auto& c : b.stCandidateRing) EXPECT_EQ(c.nPosition, -1);
    for (const auto& row : b.nQrsWidthRing)
        for (int v : row) EXPECT_EQ(v, -1);
}

TEST(HeartState, InitResetsEverythingButTheNeverResetWords) {
    auto fresh = makeAnalyser();
    auto h = makeAnalyser();
    dirty(h->beat);
    EXPECT_EQ(h->beat.Init(SettingParameter{-5, 0, 123456}), 1);
    EXPECT_EQ(h->beat.nLargeWaveCount, 3);
    EXPECT_EQ(h->beat.nUnusedWords[2], 5);
    EXPECT_EQ(h->beat.stReinitSetting.nSettingC, 3);
    // Apart from those, the state is that of a freshly initialised analyser.
    h->beat.nLargeWaveCount = 0;
    fill(h->beat.nUnusedWords, 0);
    h->beat.stReinitSetting = SettingParameter{0, 0, 0};
    EXPECT_TRUE(sameBytes(h->beat, fresh->beat));
}

TEST(HeartState, SettingsCarryNoBehaviour) {
    auto a = makeAnalyser();
    auto b = makeAnalyser();
    dirty(a->beat);
    dirty(b->beat);
    a->beat.Init(SettingParameter{190, 120, 50});
    b->beat.Init(SettingParameter{-1, 0, 99999});
    a->beat.Init_NOBeat(SettingParameter{190, 120, 50});
    b->beat.Init_NOBeat(SettingParameter{7, 7, 7});
    EXPECT_TRUE(sameBytes(a->beat, b->beat));
}

TEST(HeartState, NoBeatResetKeepsRingsThresholdsHistoryAndTheLastRate) {
    auto h = makeAnalyser();
    dirty(h->beat);
    auto expected = std::make_unique<BeatHolder>();
    expected->beat = h->beat;
    EXPECT_EQ(h->beat.Init_NOBeat(SettingParameter{0, 0, 0}), 1);

    auto& e = expected->beat;
    e.nThresholdReady = 0;
    fill(e.nBeatAmplitude, 0);
    e.nRateHistoryPos = 0;
    fill(e.nRateHistory, 0);
    e.bQrsArmed = 0;
    e.bQrsPassed = 0;
    e.nQrsPeakPos = 0;
    e.nSinceLastPeak = 0;
    fill(e.nPeakPosRing, 0);
    e.nPeakPosRingPos = 0;
    e.nSampleInSecond = 0;
    e.nSecondsCount = 0;
    e.nNoNewBeatCount = 0;
    e.nMeanHeartRate = 0;
    e.nFlatCount = 0;
    e.nLargeWaveFlag = 0;
    e.nHoldCount = 0;
    e.nRefInterval = 40;
    e.nAnalysisMode = 1;
    EXPECT_TRUE(sameBytes(h->beat, e));
    EXPECT_EQ(h->beat.nLastHeartRate, 72);
    EXPECT_EQ(h->beat.nRPeakThreshold[0], 400);
    EXPECT_EQ(h->beat.stBeatRing[3].nRRInterval, 7);
    EXPECT_EQ(h->beat.nRateValid, 1);
}

TEST(HeartState, ConditioningResetTouchesOnlyTheInputStage) {
    auto h = makeAnalyser();
    dirty(h->beat);
    auto expected = std::make_unique<BeatHolder>();
    expected->beat = h->beat;
    EXPECT_EQ(h->beat.HeartProInit(), 1);
    auto& e = expected->beat;
    e.nBaseSum = 0;
    e.nBaseCount = 0;
    fill(e.nSmoothHist, 0);
    e.nWarmupCount = 0;
    fill(e.nMedianRing, 0);
    e.nMedianRingPos = 0;
    EXPECT_TRUE(sameBytes(h->beat, e));
    EXPECT_EQ(h->beat.nLowPassRing[0], 9) << "the low-pass keeps its history";
}

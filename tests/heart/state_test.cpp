// Analyser state: what each reset clears and what it keeps. The analyser is filled with a byte
// pattern first, so a reset that touches one member too many or too few shows as a byte
// difference; every value a reset writes equals the value of a freshly initialised analyser.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <tuple>

#include "heart/heart_run.h"

using heart_run::makeAnalyser;
using HeartState = heart_run::BeatTest;

namespace {

struct Span {
    std::size_t off, len;
};
#define SPAN(m) \
    Span { offsetof(CBeatMeasure, m), sizeof(CBeatMeasure::m) }

// Runs `reset` on an analyser full of 0x5A. Bytes inside `spans` must then hold the pattern
// (spansKept) or the fresh value, all other bytes the other one.
void checkReset(void (*reset)(CBeatMeasure&), bool spansKept, std::initializer_list<Span> spans) {
    auto fresh = makeAnalyser(), dirty = makeAnalyser(), after = makeAnalyser();
    CBeatMeasure& d = dirty->beat;
    std::memset(static_cast<void*>(&d), 0x5A, sizeof d);
    // The padding after the two 8-bit flags keeps the zeros of value-initialisation.
    std::memset(&d.nBeatRingStarted + 1, 0,
                reinterpret_cast<unsigned char*>(d.nFilteredRing) - (&d.nBeatRingStarted + 1));
    std::memset(&d.nThresholdReady + 1, 0,
                reinterpret_cast<unsigned char*>(&d.nCandidateHead) - (&d.nThresholdReady + 1));
    std::memcpy(static_cast<void*>(&after->beat), &d, sizeof d);
    reset(after->beat);
    auto at = [](const CBeatMeasure& m, std::size_t k) { return reinterpret_cast<const unsigned char*>(&m)[k]; };
    for (std::size_t k = 0; k < sizeof d; ++k) {
        bool in = false;
        for (const Span& s : spans) in = in || (k >= s.off && k < s.off + s.len);
        ASSERT_EQ(at(after->beat, k), at(in == spansKept ? d : fresh->beat, k)) << "byte " << k;
    }
}

}  // namespace

TEST_F(HeartState, InitPresetsAndEachResetTouchesExactlyItsMembers) {
    // Ring position -1: the first sample goes to position 0.
    EXPECT_EQ(std::make_tuple(b.nRingPos, b.nCandidateHead, b.nRefInterval, b.stBeatRing[19].nBeatType,
                              b.stCandidateRing[19].nPosition, b.nQrsWidthRing[2][19]),
              std::make_tuple(-1, 19, 40, 1, -1, -1));
    // The full reset ignores its settings and keeps only the words no routine writes.
    checkReset(
        [](CBeatMeasure& a) {
            a.Init(SettingParameter{-5, 0, 123456});
        },
        true, {SPAN(nLargeWaveCount), SPAN(nUnusedWords), SPAN(stReinitSetting)});
    // The no-beat reset keeps rings, thresholds, beat history, filters and the last rate.
    checkReset(
        [](CBeatMeasure& a) {
            a.Init_NOBeat(SettingParameter{1, 2, 3});
        },
        false,
        {SPAN(nThresholdReady), SPAN(nBeatAmplitude), SPAN(nRateHistoryPos), SPAN(nRateHistory), SPAN(bQrsArmed),
         SPAN(bQrsPassed), SPAN(nQrsPeakPos), SPAN(nSinceLastPeak), SPAN(nPeakPosRing), SPAN(nPeakPosRingPos),
         SPAN(nSampleInSecond), SPAN(nSecondsCount), SPAN(nNoNewBeatCount), SPAN(nMeanHeartRate), SPAN(nFlatCount),
         SPAN(nLargeWaveFlag), SPAN(nHoldCount), SPAN(nRefInterval), SPAN(nAnalysisMode)});
    // The conditioning reset leaves the low-pass history alone.
    checkReset([](CBeatMeasure& a) { a.HeartProInit(); }, false,
               {SPAN(nBaseSum), SPAN(nBaseCount), SPAN(nSmoothHist), SPAN(nWarmupCount), SPAN(nMedianRing),
                SPAN(nMedianRingPos)});
}

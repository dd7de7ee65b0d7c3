// Analyser state: what each reset clears and what it keeps. The analyser is filled with a byte
// pattern first, so a reset that touches one member too many or too few shows as a byte
// difference; every value a reset writes equals the value of a freshly initialised analyser.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <initializer_list>

#include "heart/beat_fixture.h"

using heart_test::makeAnalyser;

namespace {

struct Span {
    std::size_t off, len;
};
#define SPAN(m) Span{offsetof(CBeatMeasure, m), sizeof(CBeatMeasure::m)}

const unsigned char* bytes(const CBeatMeasure& b) { return reinterpret_cast<const unsigned char*>(&b); }

// Every byte in `spans` must equal `inside`, every other byte `outside`.
void expectBytes(const CBeatMeasure& got, const CBeatMeasure& inside, const CBeatMeasure& outside,
                 std::initializer_list<Span> spans) {
    for (std::size_t k = 0; k < sizeof(CBeatMeasure); ++k) {
        bool in = false;
        for (const Span& s : spans) in = in || (k >= s.off && k < s.off + s.len);
        ASSERT_EQ(bytes(got)[k], bytes(in ? inside : outside)[k]) << "byte " << k;
    }
}

// Runs `reset` on an analyser full of 0x5A and checks the result against the fresh state.
void checkReset(const std::function<void(CBeatMeasure&)>& reset, bool spansAreKept,
                std::initializer_list<Span> spans) {
    auto fresh = makeAnalyser();
    auto before = makeAnalyser();
    CBeatMeasure& b = before->beat;
    std::memset(static_cast<void*>(&b), 0x5A, sizeof b);
    // Padding after the two 8-bit flags stays as value-initialisation left it.
    std::memset(&b.nBeatRingStarted + 1, 0, reinterpret_cast<unsigned char*>(b.nFilteredRing) - (&b.nBeatRingStarted + 1));
    std::memset(&b.nThresholdReady + 1, 0, reinterpret_cast<unsigned char*>(&b.nCandidateHead) - (&b.nThresholdReady + 1));
    auto after = makeAnalyser();
    std::memcpy(static_cast<void*>(&after->beat), &b, sizeof b);
    reset(after->beat);
    if (spansAreKept) expectBytes(after->beat, b, fresh->beat, spans);
    else expectBytes(after->beat, fresh->beat, b, spans);
}

}  // namespace

TEST(HeartState, InitPresetsTheStartValues) {
    auto h = makeAnalyser();
    const auto& b = h->beat;
    EXPECT_EQ(b.nRingPos, -1) << "the first sample goes to position 0";
    EXPECT_EQ(b.nCandidateHead, 19);
    EXPECT_EQ(b.nRefInterval, 40);
    EXPECT_EQ(b.nArtifactLimit, 24000);
    EXPECT_EQ(b.stBeatRing[19].nBeatType, 1);
    EXPECT_EQ(b.stCandidateRing[19].nPosition, -1);
    EXPECT_EQ(b.nQrsWidthRing[2][19], -1);
}

TEST(HeartState, EachResetTouchesExactlyItsMembers) {
    // The full reset ignores its settings and keeps only the words no routine writes.
    checkReset([](CBeatMeasure& b) { b.Init(SettingParameter{-5, 0, 123456}); }, true,
               {SPAN(nLargeWaveCount), SPAN(nUnusedWords), SPAN(stReinitSetting)});
    // The no-beat reset keeps rings, thresholds, beat history, filters and the last rate.
    checkReset([](CBeatMeasure& b) { b.Init_NOBeat(SettingParameter{1, 2, 3}); }, false,
               {SPAN(nThresholdReady), SPAN(nBeatAmplitude), SPAN(nRateHistoryPos), SPAN(nRateHistory),
                SPAN(bQrsArmed), SPAN(bQrsPassed), SPAN(nQrsPeakPos), SPAN(nSinceLastPeak),
                SPAN(nPeakPosRing), SPAN(nPeakPosRingPos), SPAN(nSampleInSecond), SPAN(nSecondsCount),
                SPAN(nNoNewBeatCount), SPAN(nMeanHeartRate), SPAN(nFlatCount), SPAN(nLargeWaveFlag),
                SPAN(nHoldCount), SPAN(nRefInterval), SPAN(nAnalysisMode)});
    // The conditioning reset leaves the low-pass history alone.
    checkReset([](CBeatMeasure& b) { b.HeartProInit(); }, false,
               {SPAN(nBaseSum), SPAN(nBaseCount), SPAN(nSmoothHist), SPAN(nWarmupCount), SPAN(nMedianRing),
                SPAN(nMedianRingPos)});
}

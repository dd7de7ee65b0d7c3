// Rhythm events and the fibrillation test on hand-written beat histories, and the stand-alone
// ECG accumulator.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "heart/heart_run.h"
#include "rtmonitor/CEcgDataFilter.h"

namespace {

class RhythmEvents : public ::testing::Test {
protected:
    void SetUp() override {
        holder = std::make_unique<heart_run::Holder>();
        b().EcgAnalysisInit(0);  // blank history: type 1, rate 0 (ignored by every list)
    }
    CBeatMeasure& b() { return holder->beat; }

    // Writes beats oldest first so that the last one lands in slot `newest`.
    void history(int newest, const std::vector<int>& types, int rr = 160, int rate = 75) {
        const int n = static_cast<int>(types.size());
        for (int k = 0; k < n; ++k) {
            BeatMeasure& beat = b().stBeatRing[((newest - (n - 1 - k)) % 20 + 20) % 20];
            beat.nBeatType = types[k];
            beat.nRRInterval = rr;
            beat.nHeartRate = rate;
        }
    }
    std::unique_ptr<heart_run::Holder> holder;
};

TEST_F(RhythmEvents, AlternatingEarlyBeatsGiveSix) {
    history(3, {2, 1, 2, 1, 2, 1, 2});  // slots 17..3, wrapping
    EXPECT_EQ(b().GetEventType(3), 6);
}

TEST_F(RhythmEvents, EarlyBeatsAfterTwoRegularOnesGiveSeven) {
    history(10, {1, 1, 2, 1, 1, 2, 1, 1, 2});
    EXPECT_EQ(b().GetEventType(10), 7);
}

TEST_F(RhythmEvents, ThreeWideBeatsInARowGiveThirteen) {
    history(12, {1, 1, 3, 3, 3});
    EXPECT_EQ(b().GetEventType(12), 13);
}

TEST_F(RhythmEvents, ThreeEarlyBeatsInARowGiveEight) {
    history(12, {1, 1, 2, 2, 2});
    EXPECT_EQ(b().GetEventType(12), 8);
}

TEST_F(RhythmEvents, AlternatingWideBeatsGiveElevenBeforeSix) {
    history(8, {3, 1, 3, 1, 3, 1, 3});
    EXPECT_EQ(b().GetEventType(8), 11);
}

// A break in a chain empties the list and keeps the oldest run. Early beats after one regular
// beat sit at offsets 0, 2 and 5 (newest first); 5 is three beats on from 2, over the limit of 2,
// so the list restarts at [5] and no run of three remains.
TEST_F(RhythmEvents, ABrokenChainIsNotAnEvent) {
    history(14, {2, 3, 1, 2, 3, 1, 2, 1, 2});
    EXPECT_EQ(b().GetEventType(14), 0);
    // Offsets 0, 2 and 4 keep within the limit: a run of three.
    history(14, {3, 1, 2, 1, 2, 1, 2});
    EXPECT_EQ(b().GetEventType(14), 6);
}

TEST_F(RhythmEvents, BeatsWithoutRateAreIgnored) {
    history(6, {4, 4, 4, 4, 4, 4}, 160, 0);
    history(12, {2, 1, 2, 1, 2, 1, 2}, 160, 0);
    EXPECT_EQ(b().GetEventType(12), 0);
}

TEST_F(RhythmEvents, FiveArtefactsSuppressTheRunsButNotFibrillation) {
    history(19, {2, 1, 2, 1, 2, 4, 4, 4, 4, 4});
    EXPECT_EQ(b().GetEventType(19), 0);
}

// RR intervals (samples) that jump by at least 40 every beat: irregular by every measure.
std::vector<int> irregularIntervals() {
    return {100, 180, 120, 200, 110, 190, 130, 210, 100, 170, 125, 205, 105, 185, 140, 220, 115, 195, 100, 180};
}

TEST_F(RhythmEvents, IrregularIntervalsAreFibrillation) {
    const std::vector<int> rr = irregularIntervals();
    for (int s = 0; s < 20; ++s) {
        b().stBeatRing[s] = {0, 0, rr[static_cast<size_t>(s)], 10, 12000 / rr[static_cast<size_t>(s)], 1, 0};
    }
    EXPECT_TRUE(b().AtrialFibrillationAnalysis(19));
    EXPECT_EQ(b().GetEventType(19), 14);
}

TEST_F(RhythmEvents, FewerThanSixteenUsableBeatsAreNeverFibrillation) {
    const std::vector<int> rr = irregularIntervals();
    for (int s = 0; s < 20; ++s) {
        b().stBeatRing[s] = {0, 0, rr[static_cast<size_t>(s)], 10, 12000 / rr[static_cast<size_t>(s)], 1, 0};
    }
    // Three of the last 18 typed wide or artefact: 15 usable.
    b().stBeatRing[19].nBeatType = 3;
    b().stBeatRing[10].nBeatType = 4;
    b().stBeatRing[4].nHeartRate = 0;
    EXPECT_FALSE(b().AtrialFibrillationAnalysis(19));
    // With 16 usable it is judged again.
    b().stBeatRing[4].nHeartRate = 50;
    EXPECT_TRUE(b().AtrialFibrillationAnalysis(19));
}

TEST_F(RhythmEvents, RegularIntervalsAreNotFibrillation) {
    for (int s = 0; s < 20; ++s) b().stBeatRing[s] = {0, 0, 160 + (s % 2), 10, 75, 1, 0};
    EXPECT_FALSE(b().AtrialFibrillationAnalysis(7));
}

TEST(EcgDataFilter, AccumulatesOnlyForTwelveLeadsAndNonNegativeFlags) {
    CEcgDataFilter filter;
    EXPECT_EQ(filter.GetDelayTime(), 26);
    EXPECT_EQ(filter.InitFilter(), 1);
    EXPECT_EQ(filter.BaseFilter(10, 0, 0, 0), 10);
    EXPECT_EQ(filter.BaseFilter(5, 0, 11, 1), 15);
    EXPECT_EQ(filter.BaseFilter(100, 0, 12, 0), 0);
    EXPECT_EQ(filter.BaseFilter(100, 0, 0, -1), 0);
    EXPECT_EQ(filter.BaseFilter(1, 0, 0, 0), 16);
    EXPECT_EQ(filter.nCount, 3);
    filter.InitFilter();
    EXPECT_EQ(filter.BaseFilter(2147483647, 0, 0, 0), 2147483647);
    EXPECT_EQ(filter.BaseFilter(1, 0, 0, 0), -2147483647 - 1);  // wraps
}

}  // namespace

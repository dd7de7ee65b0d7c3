// Rhythm events and the fibrillation test on hand-written beat histories (newest beat in slot
// 19, older slots blank: rate 0, ignored by every list), and the stand-alone ECG accumulator.
#include <gtest/gtest.h>

#include <vector>

#include "heart/heart_run.h"
#include "rtmonitor/CEcgDataFilter.h"

namespace {

int eventFor(const std::vector<int>& types) {
    heart_run::Feeder feeder;
    for (size_t k = 0; k < types.size(); ++k)
        feeder.beat().stBeatRing[20 - types.size() + k] = {0, 0, 160, 10, 75, types[k], 0};
    return feeder.beat().GetEventType(19);
}

TEST(RhythmEvents, PatternsFromTheBeatTypes) {
    EXPECT_EQ(eventFor({2, 1, 2, 1, 2, 1, 2}), 6);
    EXPECT_EQ(eventFor({1, 1, 3, 3, 3}), 13);
    EXPECT_EQ(eventFor({2, 3, 1, 2, 3, 1, 2, 1, 2}), 0);  // the chain breaks: offsets 0, 2, then 5
}

TEST(RhythmEvents, FibrillationNeedsSixteenUsableBeats) {
    heart_run::Feeder feeder;
    CBeatMeasure& b = feeder.beat();
    const int rr[20] = {100, 180, 120, 200, 110, 190, 130, 210, 100, 170,
                        125, 205, 105, 185, 140, 220, 115, 195, 100, 180};
    for (int s = 0; s < 20; ++s) b.stBeatRing[s] = {0, 0, rr[s], 10, 12000 / rr[s], 1, 0};
    EXPECT_EQ(b.GetEventType(19), 14);
    b.stBeatRing[19].nBeatType = 3;
    b.stBeatRing[10].nBeatType = 4;
    b.stBeatRing[4].nHeartRate = 0;  // 15 usable of the last 18
    EXPECT_FALSE(b.AtrialFibrillationAnalysis(19));
    b.stBeatRing[4].nHeartRate = 50;
    EXPECT_TRUE(b.AtrialFibrillationAnalysis(19));
}

// Lead 12 and negative flags give 0 and add nothing.
TEST(EcgDataFilter, SumsOnlyForLeadsBelowTwelveAndNonNegativeFlags) {
    CEcgDataFilter filter;
    EXPECT_EQ(filter.GetDelayTime() + filter.InitFilter(), 27);
    EXPECT_EQ(filter.BaseFilter(7, 0, 11, 0) + filter.BaseFilter(1, 0, 12, 0) + filter.BaseFilter(1, 0, 0, -1), 7);
    EXPECT_EQ(filter.BaseFilter(5, 0, 0, 0), 12);
}

}  // namespace

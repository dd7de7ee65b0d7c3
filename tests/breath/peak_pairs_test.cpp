// Peak-pair counting and the interval rate: the newest run of agreeing swings, the "late enough"
// boundary test, interval regularity against the whole list, the mid-level crossing flag with
// its single-precision 0.9, and the trimmed means of the interval rate.
#include <gtest/gtest.h>

#include <vector>

#include "rtmonitor/CBreathPro.h"

namespace {

CBreathPro b;  // neither routine reads a member

struct Pairs {
    float rate;
    bool valid;
    bool cross;
};

Pairs count(std::vector<int>& data, std::vector<int> peaks, std::vector<int> troughs, int minLoc,
            int cycles = 3) {
    bool valid = true;
    bool cross = true;
    const float r = b.PPConNum(data.data(), peaks.data(), troughs.data(), minLoc,
                               static_cast<int>(peaks.size()), static_cast<int>(troughs.size()),
                               cycles, &valid, &cross);
    return {r, valid, cross};
}

// Troughs (value 0) ending at `newest` with the given intervals, newest first, and a peak of
// `swing` halfway between each pair of neighbouring troughs; ascending lists.
struct Breaths {
    std::vector<int> data = std::vector<int>(1000, 0);
    std::vector<int> peaks;
    std::vector<int> troughs;
};
Breaths troughBreaths(int newest, const std::vector<int>& intervals, int swing = 1000) {
    Breaths w;
    std::vector<int> t = {newest};
    for (int iv : intervals) t.insert(t.begin(), t.front() - iv);
    w.troughs = t;
    for (size_t k = 0; k + 1 < t.size(); ++k) {
        const int p = (t[k] + t[k + 1]) / 2;
        w.peaks.push_back(p);
        w.data[static_cast<size_t>(p)] = swing;
    }
    return w;
}

}  // namespace

TEST(BreathPeakPairs, ThreeTroughsSixtyApartGiveTwentyFive) {
    Breaths w = troughBreaths(900, {60, 60});
    Pairs r = count(w.data, w.peaks, w.troughs, 750);
    EXPECT_TRUE(r.valid);
    EXPECT_EQ(r.rate, 25.0f);
    // The oldest boundary used (780) must lie strictly after nMinLoc.
    r = count(w.data, w.peaks, w.troughs, 780);
    EXPECT_FALSE(r.valid);
    EXPECT_EQ(r.rate, 0.0f);
}

TEST(BreathPeakPairs, RunStartsAtTheNewestPairOfAgreeingSwings) {
    // Troughs 950, 900, 850 (50 apart) then 790, 730 (60 apart), newest first.
    auto run = [](const std::vector<int>& swings) {
        Breaths w = troughBreaths(950, {50, 50, 60, 60, 60});
        // k-th newest peak gets the k-th swing (the troughs stay at 0).
        for (size_t k = 0; k < swings.size(); ++k)
            w.data[static_cast<size_t>(w.peaks[w.peaks.size() - 1 - k])] = swings[k];
        return count(w.data, w.peaks, w.troughs, 20);
    };
    Pairs r = run({100, 140, 100, 100, 100});
    EXPECT_TRUE(r.valid);
    EXPECT_EQ(r.rate, 30.0f);  // run at s = 0: 140 is below 1.5 x 100
    // 160 is not below 150: the run restarts at k = 2 (200 against 160), s = 2.
    r = run({100, 160, 200, 220, 220});
    EXPECT_TRUE(r.valid);
    EXPECT_EQ(r.rate, 25.0f);
    // Exactly half the previous swing does not agree either; no run of two is left.
    r = run({100, 50, 100, 200, 100});
    EXPECT_FALSE(r.valid);
}

TEST(BreathPeakPairs, EqualNewestPositionsMakeTheTroughsTheBoundaries) {
    std::vector<int> data(1000, 0);
    std::vector<int> peaks = {700, 760, 820, 880, 940};
    std::vector<int> troughs = {740, 790, 840, 890, 940};
    for (int p : peaks) data[static_cast<size_t>(p)] = 1000;
    data[940] = 500;  // the shared position: swing 0, so the run starts at s = 2
    Pairs r = count(data, peaks, troughs, 20);
    EXPECT_TRUE(r.valid);
    EXPECT_EQ(r.rate, 30.0f);  // troughs 840, 790, 740; the peaks would give 25
}

TEST(BreathPeakPairs, BoundaryPastTheListCountsAsZero) {
    // Two agreeing swings, newest extremum a peak, but only two peaks: the third boundary lies
    // past the list, reads as 0 and so is never after nMinLoc.
    std::vector<int> data(1000, 0);
    data[870] = data[950] = 1000;
    EXPECT_FALSE(count(data, {870, 950}, {840, 900}, 0).valid);
    data[800] = 1000;
    Pairs r = count(data, {800, 870, 950}, {770, 840, 900}, 0);
    EXPECT_TRUE(r.valid);
    EXPECT_EQ(r.rate, 1500.0f / 75.0f);
}

TEST(BreathPeakPairs, IrregularRunIsJudgedByTheWholeList) {
    // Newest intervals 60 and 90 differ by more than 25.
    Breaths w = troughBreaths(990, {60, 90, 75, 75, 75, 75, 75});
    Pairs r = count(w.data, w.peaks, w.troughs, 20);
    EXPECT_TRUE(r.valid);  // one second difference of six above 20
    EXPECT_EQ(r.rate, 20.0f);
    // One of five: the single-precision 0.2 lies above the double 0.2, so this fails.
    w = troughBreaths(990, {60, 90, 75, 75, 75, 75});
    EXPECT_FALSE(count(w.data, w.peaks, w.troughs, 20).valid);
    w = troughBreaths(990, {60, 90, 60, 90, 60, 90, 60});
    EXPECT_FALSE(count(w.data, w.peaks, w.troughs, 20).valid);
    // A difference of 20 (not above 25) is regular whatever the rest looks like.
    w = troughBreaths(990, {60, 80, 30, 120, 30});
    r = count(w.data, w.peaks, w.troughs, 20);
    EXPECT_TRUE(r.valid);
    EXPECT_EQ(r.rate, 1500.0f / 70.0f);
}

TEST(BreathPeakPairs, CrossingFlagCountsTwoMidLevelCrossingsPerPair) {
    // Peaks at 0 and 8; the level 500 is touched or passed at sample 2.
    std::vector<int> passes = {800, 600, 500, 400, 300, 400, 600, 800, 900, 0};
    std::vector<int> touches = {800, 600, 500, 600, 400, 300, 600, 800, 900, 0};
    Pairs r = count(passes, {0, 8}, {}, 20);
    EXPECT_FALSE(r.valid);
    EXPECT_TRUE(r.cross);  // the zero product counts because sample 3 is across the level
    r = count(touches, {0, 8}, {}, 20);
    EXPECT_TRUE(r.cross);  // a touch does not count: the pair still has exactly two
}

TEST(BreathPeakPairs, NineGoodPairsOfTenAreNotRegular) {
    // Triangle between 900 at the peaks (every 90 samples) and 100 halfway.
    std::vector<int> data(1000);
    for (int j = 0; j < 1000; ++j) {
        const int ph = j % 90;
        data[static_cast<size_t>(j)] = ph <= 45 ? 900 - 800 * ph / 45 : 100 + 800 * (ph - 45) / 45;
    }
    std::vector<int> peaks;
    for (int k = 0; k <= 10; ++k) peaks.push_back(90 * k);
    EXPECT_TRUE(count(data, peaks, {}, 20).cross);
    data[10] = data[11] = data[12] = 400;  // two extra crossings in the first pair
    EXPECT_FALSE(count(data, peaks, {}, 20).cross);
    // The troughs are asked only when the peaks fail: clean troughs make it regular again.
    std::vector<int> troughs;
    for (int k = 0; k < 10; ++k) troughs.push_back(90 * k + 45);
    EXPECT_TRUE(count(data, peaks, troughs, 20).cross);
}

TEST(BreathIntervalRate, TrimmedMeansOfBothListsClampedToSixToSeventy) {
    int peaks[] = {0, 60, 120, 5000};  // only as many entries as the shorter list has
    int troughs[] = {30, 90, 150};
    EXPECT_EQ(b.RR_result(peaks, troughs, 4, 3), 25.0f);
    int fast[] = {0, 10, 20, 30};
    EXPECT_EQ(b.RR_result(fast, fast, 4, 4), 70.0f);
    int slow[] = {0, 300, 600};
    EXPECT_EQ(b.RR_result(slow, slow, 3, 3), 6.0f);
    int same[] = {5, 5, 5};  // mean spacing 0: the quotient is infinite, clamped to 6
    EXPECT_EQ(b.RR_result(same, same, 3, 3), 6.0f);
    EXPECT_EQ(b.RR_result(peaks, troughs, 1, 3), 0.0f);  // no spacing: no rate

    // Nine spacings, sorted 10 10 40 60 70 80 90 500 500: middle five 68 -> 22.06.
    int nine[] = {0, 500, 510, 570, 660, 700, 1200, 1210, 1280, 1360};
    EXPECT_EQ(b.RR_result(nine, nine, 10, 10), 22.0f);
    // Ten, sorted 10 10 10 40 60 70 80 500 500 500: middle four 62 (truncated) -> 24.19.
    int ten[] = {0, 500, 510, 570, 1070, 1110, 1120, 1620, 1690, 1770, 1780};
    EXPECT_EQ(b.RR_result(ten, ten, 11, 11), 24.0f);
}

// Breath peak finding: candidate rules on plateaus, replacement of an unconfirmed peak, the
// first-extremum rules, the spacing tests and the adaptive swing test after five of each.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "rtmonitor/CBreathPro.h"

namespace {

CBreathPro b;  // peak finding reads no member

// Piecewise-linear signal through (position, value) corners; positions ascending from 0.
std::vector<int> corners(const std::vector<std::pair<int, int>>& pts) {
    std::vector<int> out(static_cast<size_t>(pts.back().first) + 1);
    for (size_t k = 0; k + 1 < pts.size(); ++k) {
        const auto [x0, y0] = pts[k];
        const auto [x1, y1] = pts[k + 1];
        for (int x = x0; x <= x1; ++x)
            out[static_cast<size_t>(x)] = y0 + (y1 - y0) * (x - x0) / (x1 - x0);
    }
    return out;
}

struct Extrema {
    std::vector<int> peaks;
    std::vector<int> troughs;
};

Extrema find(std::vector<int> data, int minDist) {
    std::vector<int> p(data.size() / 2 + 2, -7);
    std::vector<int> t(data.size() / 2 + 2, -7);
    int np = -1;
    int nt = -1;
    b.FindPeakMinMax(data.data(), 0, static_cast<int>(data.size()), minDist, p.data(), t.data(),
                     &np, &nt);
    p.resize(static_cast<size_t>(np));
    t.resize(static_cast<size_t>(nt));
    return {p, t};
}

}  // namespace

TEST(BreathPeaks, ShortRangeGivesNothingAndWritesNoPosition) {
    int data[] = {0, 5, 0, 5, 0, 5};
    int p[1] = {-7};
    int t[1] = {-7};
    int np = -1;
    int nt = -1;
    b.FindPeakMinMax(data, 1, 3, 10, p, t, &np, &nt);  // nEnd - 1 <= nStart + 1
    EXPECT_TRUE(np == 0 && nt == 0 && p[0] == -7 && t[0] == -7);
    b.FindPeakMinMax(data, 1, 4, 10, p, t, &np, &nt);  // one examined position: a first trough
    EXPECT_TRUE(np == 0 && nt == 1 && t[0] == 2);
}

TEST(BreathPeaks, PlateauTopCountsAtItsFirstSample) {
    // The second 3 has an equal left neighbour and is no candidate; on the flat bottom only
    // the first 0 is.
    Extrema e = find({0, 1, 3, 3, 1, 0, 0}, 2);
    ASSERT_EQ(e.peaks.size(), 1u);
    EXPECT_EQ(e.peaks[0], 2);
    ASSERT_EQ(e.troughs.size(), 1u);
    EXPECT_EQ(e.troughs[0], 5);
    // That trough is 3 after the peak: more than half of spacing 5 (2), not of spacing 6 (3).
    EXPECT_EQ(find({0, 1, 3, 3, 1, 0, 0, 1}, 5).troughs.size(), 1u);
    EXPECT_TRUE(find({0, 1, 3, 3, 1, 0, 0, 1}, 6).troughs.empty());
}

TEST(BreathPeaks, UnconfirmedPeakIsReplacedOnlyByAStrictlyHigherOne) {
    // Trough 5, peak 20 (100), dip at 23 too close to the peak to count, then a second top at 26.
    for (int second : {120, 100}) {
        Extrema e = find(corners({{0, 50}, {5, 0}, {20, 100}, {23, 90}, {26, second}, {45, 0},
                                  {60, 100}}),
                         10);
        ASSERT_EQ(e.peaks.size(), 1u) << second;
        EXPECT_EQ(e.peaks[0], second > 100 ? 26 : 20);
        ASSERT_EQ(e.troughs.size(), 2u);
        EXPECT_EQ(e.troughs[1], 45);
    }
}

TEST(BreathPeaks, RefusedFirstPeakStillCountsAsThePeakSide) {
    // Trough at 5; a bump at 8 is too close to become the first peak but flips the side, so the
    // deeper dip at 10 is judged as a new trough (too close: refused), not as a replacement.
    Extrema e = find(corners({{0, 50}, {5, 0}, {8, 10}, {10, -50}, {40, 100}, {70, 0}, {72, 5}}),
                     10);
    ASSERT_EQ(e.troughs.size(), 2u);
    EXPECT_EQ(e.troughs[0], 5);
    EXPECT_EQ(e.troughs[1], 70);  // accepted with no peak yet: only the trough spacing counts
    EXPECT_TRUE(e.peaks.empty());  // the top at 40 met the side already set to "peak"
}

TEST(BreathPeaks, SpacingBetweenLikeExtremaIsStrict) {
    // A first peak at 10; the dip at 12 is too close to become the first trough (but turns the
    // side); the next top, gap samples later, is a second peak only if gap > nMinDist.
    for (int gap : {20, 21}) {
        Extrema e = find(corners({{0, 0}, {10, 100}, {12, 90}, {10 + gap, 100}, {40, 0}}), 20);
        EXPECT_EQ(e.peaks.size(), gap > 20 ? 2u : 1u) << gap;
        EXPECT_TRUE(e.troughs.empty());
    }
    // The mirror image on the trough side.
    for (int gap : {20, 21}) {
        Extrema e = find(corners({{0, 100}, {10, 0}, {12, 10}, {10 + gap, 0}, {40, 100}}), 20);
        EXPECT_EQ(e.troughs.size(), gap > 20 ? 2u : 1u) << gap;
        EXPECT_TRUE(e.peaks.empty());
    }
}

TEST(BreathPeaks, AfterFiveOfEachSmallSwingsAreIgnoredHoweverFarApart) {
    // Five large breaths, then breaths of swing 100 and of swing 102.
    for (int swing : {100, 102}) {
        std::vector<std::pair<int, int>> pts = {{0, 500}};
        int x = 0;
        for (int k = 0; k < 6; ++k) {
            pts.push_back({x += 20, 0});
            pts.push_back({x += 20, 1000});
        }
        for (int k = 0; k < 6; ++k) {
            pts.push_back({x += 300, 1000 - swing});
            pts.push_back({x += 300, 1000});
        }
        pts.push_back({x + 5, 0});
        Extrema e = find(corners(pts), 10);
        if (swing == 100) {
            EXPECT_EQ(e.troughs.size(), 6u);  // the 100-count dips never count
        } else {
            // 102 > 100 and more than 250 samples after the last peak: every dip is accepted.
            EXPECT_EQ(e.troughs.size(), 12u);
        }
    }
}

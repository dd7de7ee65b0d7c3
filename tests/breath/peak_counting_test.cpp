// Peak finding and peak-pair counting (sample positions at 25 samples/s): the refused first peak
// that still turns the side, the strict swing floor of 100 after five of each, the "late enough"
// boundary (strict, and 0 past the list), the whole-list irregularity share and the crossing
// share (single-precision quotients against the double 0.2 and 0.9), and the interval rate.
#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>
#include <vector>

#include "rtmonitor/CBreathPro.h"

namespace {

CBreathPro b;  // none of these routines reads a member

// Peaks and troughs of a piecewise-linear signal through (position, value) corners.
std::pair<std::vector<int>, std::vector<int>> find(const std::vector<std::pair<int, int>>& pts, int minDist) {
    std::vector<int> d(static_cast<size_t>(pts.back().first) + 1), p(d.size()), t(d.size());
    for (size_t k = 0; k + 1 < pts.size(); ++k)
        for (int x = pts[k].first; x <= pts[k + 1].first; ++x)
            d[x] = pts[k].second +
                   (pts[k + 1].second - pts[k].second) * (x - pts[k].first) / (pts[k + 1].first - pts[k].first);
    int np = 0, nt = 0;
    b.FindPeakMinMax(d.data(), 0, static_cast<int>(d.size()), minDist, p.data(), t.data(), &np, &nt);
    return {std::vector<int>(p.begin(), p.begin() + np), std::vector<int>(t.begin(), t.begin() + nt)};
}

// PPConNum on a window that is 1000 at the peaks and 0 elsewhere. Returns {rate, valid}.
std::pair<float, bool> pairs(std::vector<int> peaks, std::vector<int> troughs, int minLoc) {
    std::vector<int> data(1000, 0);
    for (int p : peaks) data[p] = 1000;
    bool valid = false, cross = false;
    const float r = b.PPConNum(data.data(), peaks.data(), troughs.data(), minLoc, int(peaks.size()),
                               int(troughs.size()), 3, &valid, &cross);
    return {r, valid};
}

// Troughs ending at 900 with the given intervals, newest first, and a peak halfway between each.
std::pair<float, bool> troughRun(const std::vector<int>& intervals, int minLoc) {
    std::vector<int> peaks, troughs = {900};
    for (int iv : intervals) troughs.insert(troughs.begin(), troughs.front() - iv);
    for (size_t k = 0; k + 1 < troughs.size(); ++k) peaks.push_back((troughs[k] + troughs[k + 1]) / 2);
    return pairs(peaks, troughs, minLoc);
}

}  // namespace

TEST(BreathPeaks, RefusedFirstPeakStillTurnsTheSide) {
    // Trough at 5; the bump at 8 is too close to become the first peak but turns the side, so the
    // deeper dip at 10 is judged as a new trough (too close: refused), not as a replacement.
    auto [peaks, troughs] = find({{0, 50}, {5, 0}, {8, 10}, {10, -50}, {40, 100}, {70, 0}, {72, 5}}, 10);
    EXPECT_EQ(troughs, (std::vector<int>{5, 70}));
    EXPECT_TRUE(peaks.empty());  // the top at 40 met the side already set to "peak"
}

TEST(BreathPeaks, AfterFiveOfEachASwingOfOneHundredNeverCounts) {
    for (int swing : {100, 101}) {
        std::vector<std::pair<int, int>> pts = {{0, 500}};
        for (int k = 0, x = 0; k < 12; ++k)  // six large breaths, then six shallow ones 300 apart
            pts.insert(pts.end(), {{x += k < 6 ? 20 : 300, k < 6 ? 0 : 1000 - swing}, {x += k < 6 ? 20 : 300, 1000}});
        pts.push_back({pts.back().first + 5, 0});
        // 101 > 100 and more than 250 samples after the last peak: every dip counts.
        EXPECT_EQ(find(pts, 10).second.size(), swing == 100 ? 6u : 12u);
    }
}

TEST(BreathPeakPairs, LateEnoughIrregularAndPastTheList) {
    EXPECT_EQ(troughRun({60, 60}, 750), std::make_pair(25.0f, true));
    EXPECT_EQ(troughRun({60, 60}, 780), std::make_pair(0.0f, false));  // 780 is not after 780
    // Newest intervals 60 and 90 (differ by > 25): 1 of 6 second differences above 20 passes,
    // 1 of 5 does not (0.2f lies above the double 0.2).
    EXPECT_EQ(troughRun({60, 90, 75, 75, 75, 75, 75}, 20), std::make_pair(20.0f, true));
    EXPECT_FALSE(troughRun({60, 90, 75, 75, 75, 75}, 20).second);
    // Newest extremum a peak with only two peaks: the third boundary reads as 0.
    EXPECT_FALSE(pairs({870, 950}, {840, 900}, 0).second);
}

TEST(BreathPeakPairs, NineGoodPairsOfTenAreNotRegular) {
    std::vector<int> d(1000), peaks, troughs;  // triangle: 900 every 90 samples, 100 between
    for (int j = 0; j < 1000; ++j) d[j] = 100 + 800 * std::abs(j % 90 - 45) / 45;
    for (int k = 0; k <= 10; ++k) peaks.push_back(90 * k), troughs.push_back(90 * k + 45);
    d[10] = d[11] = d[12] = 400;  // two extra crossings in the first pair of peaks
    bool valid, cross = true;
    b.PPConNum(d.data(), peaks.data(), troughs.data(), 20, 11, 0, 3, &valid, &cross);
    EXPECT_FALSE(cross);
    b.PPConNum(d.data(), peaks.data(), troughs.data(), 20, 11, 10, 3, &valid, &cross);
    EXPECT_TRUE(cross);  // the troughs are asked only when the peaks fail
}

TEST(BreathIntervalRate, TrimmedMeansClampedToSixToSeventy) {
    int peaks[] = {0, 60, 120, 5000}, troughs[] = {30, 90, 150}, fast[] = {0, 10, 20}, slow[] = {0, 300, 600};
    EXPECT_EQ(b.RR_result(peaks, troughs, 4, 3), 25.0f);  // only the shorter list's count is used
    EXPECT_TRUE(b.RR_result(fast, fast, 3, 3) == 70.0f && b.RR_result(slow, slow, 3, 3) == 6.0f);
}

// Detection thresholds: the convex operator and ring searches across the 3999 -> 0 wrap, the
// learners (crossed pairing, five-second gate, trimming, floor of 100), and the backward
// missed-peak search with its shape, dominance and spacing tests.
#include <gtest/gtest.h>

#include "heart/heart_run.h"

using HeartThresholds = heart_run::BeatTest;

namespace {
constexpr int kRing = 4000;

// One value per whole second k = 1..n (newest first), inside the span the learners search.
void placeSecondMaxima(int* ring, int writePos, std::initializer_list<int> values) {
    int k = 1;
    for (int v : values) ring[(writePos + 3 - k++ * 200 + 77 + 2 * kRing) % kRing] = v;
}
}  // namespace

TEST_F(HeartThresholds, ConvexAndRingSearchesWrapAt3999) {
    int *f = b.nFilteredRing[0], *r = b.nAbsRing[0];
    f[3998] = 10, f[1] = 3, f[3995] = -4;
    b.nRingPos = 1;
    b.Convexpointoperator(0);
    EXPECT_EQ(b.nConvexRing[0][3998], 21);  // |2*10 - 3 - (-4)|

    r[3995] = 50, r[5] = 50, r[10] = 90;  // 10 lies just outside [3990, 10)
    int pos = -7;
    EXPECT_EQ(b.lngFindLocalMaxLocation(r, 3990, 10, kRing, pos), 50);
    EXPECT_EQ(pos, 3995) << "the first occurrence wins";
    EXPECT_EQ(b.lngFindLocalMinLocation(f, 3994, 2, kRing, pos), -4);
    EXPECT_EQ(b.lngFindLocalMaxLocation(f, 3995, 3995, kRing, pos), -4) << "empty span: its start";
}

TEST_F(HeartThresholds, SpanExtremesAcrossTheWrapKeepTheirPositions) {
    int* r = b.nAbsRing[0];
    r[3995] = 70, r[3] = 70;
    int pos = 0;
    EXPECT_EQ(b.lngFindLocalMaxLocation(r, -5, 8, kRing, pos), 70);
    EXPECT_EQ(pos, -5) << "a best value at the start leaves the start as given, unfolded";
    r[3996] = -9, r[2] = -9;
    EXPECT_EQ(b.lngFindLocalMinLocation(r, 3990, 7, kRing, pos), -9);
    EXPECT_EQ(pos, 3996);

    // The main-peak swing walks back from pos across the wrap.
    int* f = b.nFilteredRing[0];
    EXPECT_EQ(b.GetEcgMainPeak(2, 10), 0);
    f[3993] = 700, f[3992] = 900, f[1] = -600;
    EXPECT_EQ(b.GetEcgMainPeak(2, 10), 1300) << "3993..2 holds 700 and -600; 3992 lies outside";
    EXPECT_EQ(b.GetEcgMainPeak(2, 11), 1500);
    EXPECT_EQ(b.GetEcgMainPeak(2, 9000), 1500) << "a span past one turn sees the whole ring";
}

TEST_F(HeartThresholds, LearnersCrossedGatedTrimmedAndFloored) {
    b.nRingPos = 50;                                                  // the spans of every second wrap below 0
    placeSecondMaxima(b.nConvexRing[0], 50, {9000, 10, 10, 10, 1});   // mean 10 -> floor 100
    placeSecondMaxima(b.nAbsRing[0], 50, {300, 200, 250, -5, 7000});  // 300, 200, 250 remain
    b.nSecondsCount = 4;
    EXPECT_FALSE(b.GetRHeightInitValue(5) || b.GetRPeakHeightInitValue(5)) << "fewer than five seconds";
    b.nSecondsCount = 5;
    EXPECT_TRUE(b.GetRHeightInitValue(5));
    EXPECT_EQ(b.nRPeakThreshold[0], 100) << "convex ring feeds the convex-peak threshold";
    EXPECT_TRUE(b.GetRPeakHeightInitValue(5));
    EXPECT_EQ(b.nRHeightThreshold[0], 250) << "absolute ring feeds the height threshold";
    placeSecondMaxima(b.nConvexRing[0], 50, {9, 9, 9, 9, 9});
    EXPECT_FALSE(b.GetRHeightInitValue(5)) << "a mean of 9 keeps the threshold";
    // The energy learner has no five-second gate and counts only positive maxima.
    b.nEnergyRingPos = 120;
    placeSecondMaxima(b.nEnergyRing, 120, {0, 0, 3, 4, 5, 6, 7, 8, 9, 100});
    b.GetEnergyHeightInitValue(10);
    EXPECT_EQ(b.nEnergyThreshold[0], (3 + 4 + 5 + 6 + 7 + 8 + 9) / 7);
}

// Ring form (flag true): absolute ring with the filtered ring as shape; convex form (flag
// false): the convex ring as both, plus the spacing from the newest confirmed peak.
TEST_F(HeartThresholds, ReverseSearchShapeDominanceAndSpacing) {
    int *ring = b.nAbsRing[0], *shape = b.nFilteredRing[0], *c = b.nConvexRing[0];
    int pos = 0;
    bool found = true;
    auto rev = [&](int* r, int* sh, int from, int to, bool flag) {
        return b.lngFindLocalMaxLocation_reverse(r, sh, from, to, kRing, 100, pos, found, flag);
    };
    ring[10] = shape[10] = 300;
    ring[3990] = 300;  // 20 positions before 10 round the ring: not strictly dominated
    EXPECT_EQ(rev(ring, shape, 5, 10, true), 100) << "start before end: the threshold at once";
    EXPECT_EQ(rev(ring, shape, 30, 10, true), 100);
    EXPECT_EQ(pos, 10) << "the last sample at or above the threshold";
    ring[3990] = 299;
    shape[11] = 301;
    EXPECT_EQ(rev(ring, shape, 30, 10, true), 100) << "a neighbour exceeds the shape";
    shape[11] = 300;  // equal is allowed; the walk includes its end
    EXPECT_EQ(rev(ring, shape, 30, 10, true), 300);

    c[500] = 300;
    b.nPeakPosRingPos = 0;  // the newest entry is slot 4
    for (int newest : {530, 0, 531, 100}) {
        b.nPeakPosRing[4] = newest;
        const bool far = newest == 531 || newest == 100;  // 0 is empty; 100 is 3600 away
        EXPECT_EQ(rev(c, c, 520, 450, false), far ? 300 : 100) << newest;
    }
}

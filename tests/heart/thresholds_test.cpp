// Detection thresholds: the convex operator and ring searches across the 3999 -> 0 wrap, the
// three learners (crossed pairing, five-second gate, floor of 100, trimming), and the backward
// missed-peak search with its shape, dominance and spacing tests.
#include <gtest/gtest.h>

#include "heart/beat_fixture.h"

using heart_test::makeAnalyser;

namespace {
constexpr int kRing = 4000;
int wrap(int p) { return ((p % kRing) + kRing) % kRing; }

// Puts one value per whole second k = 1..n (newest first) into `ring`, inside the span that the
// learners search for write position `writePos`.
void placeSecondMaxima(int* ring, int writePos, std::initializer_list<int> values) {
    int k = 1;
    for (int v : values) {
        ring[wrap(writePos + 3 - k * 200 + 77)] = v;
        ++k;
    }
}
}  // namespace

TEST(HeartConvex, SecondDifferenceAtStepThreeAcrossTheWrap) {
    auto h = makeAnalyser();
    auto& b = h->beat;
    b.nFilteredRing[0][3998] = 10;
    b.nFilteredRing[0][1] = 3;
    b.nFilteredRing[0][3995] = -4;
    b.nRingPos = 1;
    EXPECT_EQ(b.Convexpointoperator(0), 1);
    EXPECT_EQ(b.nConvexRing[0][3998], 21);  // |2*10 - 3 - (-4)|
}

TEST(HeartRingSearch, SpanRunsPast3999AndFirstMaximumWins) {
    auto h = makeAnalyser();
    int* r = h->beat.nAbsRing[0];
    r[3995] = 50;
    r[5] = 50;
    r[12] = 90;  // just outside [3990, 10)
    int pos = -7;
    EXPECT_EQ(h->beat.lngFindLocalMaxLocation(r, 3990, 10, kRing, pos), 50);
    EXPECT_EQ(pos, 3995);
    r[9] = 51;
    EXPECT_EQ(h->beat.lngFindLocalMaxLocation(r, 3990, 10, kRing, pos), 51);
    EXPECT_EQ(pos, 9);

    int* f = h->beat.nFilteredRing[0];
    f[3999] = -8;
    f[0] = -8;
    EXPECT_EQ(h->beat.lngFindLocalMinLocation(f, 3998, 2, kRing, pos), -8);
    EXPECT_EQ(pos, 3999);
}

TEST(HeartRingSearch, EmptySpanReturnsTheStartValue) {
    auto h = makeAnalyser();
    int* r = h->beat.nAbsRing[0];
    r[100] = -3;
    r[101] = 400;
    int pos = 0;
    EXPECT_EQ(h->beat.lngFindLocalMaxLocation(r, 100, 100, kRing, pos), -3);
    EXPECT_EQ(pos, 100);
    EXPECT_EQ(h->beat.lngFindLocalMinLocation(r, 101, 101, kRing, pos), 400);
    EXPECT_EQ(pos, 101);
}

TEST(HeartLearners, FewerThanFiveSecondsChangesNothing) {
    auto h = makeAnalyser();
    auto& b = h->beat;
    b.nRingPos = 1000;
    placeSecondMaxima(b.nConvexRing[0], 1000, {500, 500, 500, 500, 500});
    placeSecondMaxima(b.nAbsRing[0], 1000, {500, 500, 500, 500, 500});
    b.nRPeakThreshold[0] = 7;
    b.nRHeightThreshold[0] = 8;
    b.nSecondsCount = 4;
    EXPECT_FALSE(b.GetRHeightInitValue(5));
    EXPECT_FALSE(b.GetRPeakHeightInitValue(5));
    EXPECT_EQ(b.nRPeakThreshold[0], 7);
    EXPECT_EQ(b.nRHeightThreshold[0], 8);
    b.nSecondsCount = 5;
    EXPECT_TRUE(b.GetRHeightInitValue(5));
    EXPECT_EQ(b.nRPeakThreshold[0], 500);
}

TEST(HeartLearners, CrossedPairingFloorOf100AndTrimmedMean) {
    auto h = makeAnalyser();
    auto& b = h->beat;
    b.nSecondsCount = 5;
    b.nRingPos = 50;  // the spans of every second wrap below 0
    // Largest (9000) and smallest (1) are dropped: the mean of 40, 60, 50 is 50 -> floor 100.
    placeSecondMaxima(b.nConvexRing[0], 50, {9000, 40, 60, 50, 1});
    // 300, 200, 250 remain.
    placeSecondMaxima(b.nAbsRing[0], 50, {300, 200, 250, -5, 7000});
    EXPECT_TRUE(b.GetRHeightInitValue(5));
    EXPECT_EQ(b.nRPeakThreshold[0], 100) << "convex ring feeds the convex-peak threshold";
    EXPECT_EQ(b.nRHeightThreshold[0], 0);
    EXPECT_TRUE(b.GetRPeakHeightInitValue(5));
    EXPECT_EQ(b.nRHeightThreshold[0], 250) << "absolute ring feeds the height threshold";
}

TEST(HeartLearners, MeanOfNineOrNoPositiveMaximaKeepsTheThreshold) {
    auto h = makeAnalyser();
    auto& b = h->beat;
    b.nSecondsCount = 9;
    b.nRingPos = 3999;
    b.nRPeakThreshold[0] = 321;
    placeSecondMaxima(b.nConvexRing[0], 3999, {9, 9, 9, 9, 9});
    EXPECT_FALSE(b.GetRHeightInitValue(5));
    placeSecondMaxima(b.nConvexRing[0], 3999, {10, 10, 10, 10, 10});
    EXPECT_TRUE(b.GetRHeightInitValue(5));
    EXPECT_EQ(b.nRPeakThreshold[0], 100);
    EXPECT_FALSE(b.GetRHeightInitValue(2)) << "fewer than three seconds";
}

TEST(HeartLearners, EnergyThresholdFromTenSecondsWithoutTheFiveSecondGate) {
    auto h = makeAnalyser();
    auto& b = h->beat;
    b.nSecondsCount = 0;
    b.nEnergyRingPos = 120;
    EXPECT_EQ(b.GetEnergyHeightInitValue(10), 1);
    EXPECT_EQ(b.nEnergyThreshold[0], 0) << "all maxima 0: no change";
    placeSecondMaxima(b.nEnergyRing, 120, {1, 2, 3, 4, 5, 6, 7, 8, 9, 100});
    EXPECT_EQ(b.GetEnergyHeightInitValue(10), 1);
    EXPECT_EQ(b.nEnergyThreshold[0], (2 + 3 + 4 + 5 + 6 + 7 + 8 + 9) / 8);
}

class HeartReverseSearch : public ::testing::Test {
protected:
    void SetUp() override {
        h = makeAnalyser();
        ring = h->beat.nAbsRing[0];
        shape = h->beat.nFilteredRing[0];
    }
    // A peak of height v at x in both rings, with a falling shape on either side.
    void peak(int x, int v) {
        ring[wrap(x)] = v;
        shape[wrap(x)] = v;
        shape[wrap(x - 1)] = v / 2;
        shape[wrap(x + 1)] = v / 2;
    }
    std::unique_ptr<heart_test::BeatHolder> h;
    int* ring = nullptr;
    int* shape = nullptr;
    int pos = 0;
    bool found = true;
};

TEST_F(HeartReverseSearch, StartBeforeEndReturnsTheThresholdAtOnce) {
    peak(500, 300);
    EXPECT_EQ(h->beat.lngFindLocalMaxLocation_reverse(ring, shape, 400, 600, kRing, 100, pos, found, true), 100);
    EXPECT_FALSE(found);
    EXPECT_EQ(pos, 400);
}

TEST_F(HeartReverseSearch, FindsTheDominantPeakAndIncludesTheEnd) {
    peak(500, 300);
    EXPECT_EQ(h->beat.lngFindLocalMaxLocation_reverse(ring, shape, 520, 450, kRing, 100, pos, found, true), 300);
    EXPECT_TRUE(found);
    EXPECT_EQ(pos, 500);
    EXPECT_EQ(h->beat.lngFindLocalMaxLocation_reverse(ring, shape, 520, 500, kRing, 100, pos, found, true), 300);
    EXPECT_TRUE(found) << "the walk includes its end position";
    EXPECT_EQ(h->beat.lngFindLocalMaxLocation_reverse(ring, shape, 520, 501, kRing, 100, pos, found, true), 100);
    EXPECT_FALSE(found);
}

TEST_F(HeartReverseSearch, DominanceIsStrictAndLooksBackAcrossTheWrap) {
    peak(10, 300);
    ring[3990] = 300;  // 20 positions before 10, round the ring: not strictly dominated
    EXPECT_EQ(h->beat.lngFindLocalMaxLocation_reverse(ring, shape, 30, 0, kRing, 100, pos, found, true), 100);
    EXPECT_FALSE(found);
    EXPECT_EQ(pos, 10) << "the last sample at or above the threshold";
    ring[3990] = 299;
    EXPECT_EQ(h->beat.lngFindLocalMaxLocation_reverse(ring, shape, 30, 0, kRing, 100, pos, found, true), 300);
    EXPECT_TRUE(found);
}

TEST_F(HeartReverseSearch, ShapeMustNotBeExceededByANeighbour) {
    peak(500, 300);
    shape[501] = 301;
    EXPECT_EQ(h->beat.lngFindLocalMaxLocation_reverse(ring, shape, 520, 450, kRing, 100, pos, found, true), 100);
    EXPECT_FALSE(found);
    shape[501] = 300;  // equal is allowed
    EXPECT_EQ(h->beat.lngFindLocalMaxLocation_reverse(ring, shape, 520, 450, kRing, 100, pos, found, true), 300);
}

TEST_F(HeartReverseSearch, WithoutFlagTheCandidateMustBeMoreThan30FromTheNewestPeak) {
    // Convex-ring form: ring and shape are the same ring.
    int* c = h->beat.nConvexRing[0];
    c[500] = 300;
    c[499] = 100;
    c[501] = 100;
    auto& b = h->beat;
    b.nPeakPosRingPos = 2;
    b.nPeakPosRing[1] = 530;  // newest entry, one slot behind the write position
    EXPECT_EQ(b.lngFindLocalMaxLocation_reverse(c, c, 520, 450, kRing, 150, pos, found, false), 150);
    EXPECT_FALSE(found);
    b.nPeakPosRing[1] = 531;
    EXPECT_EQ(b.lngFindLocalMaxLocation_reverse(c, c, 520, 450, kRing, 150, pos, found, false), 300);
    EXPECT_TRUE(found);
    b.nPeakPosRing[1] = 100;  // behind the candidate: the distance is taken round the ring
    EXPECT_EQ(b.lngFindLocalMaxLocation_reverse(c, c, 520, 450, kRing, 150, pos, found, false), 300);
    b.nPeakPosRing[1] = 0;  // an empty entry never qualifies
    EXPECT_EQ(b.lngFindLocalMaxLocation_reverse(c, c, 520, 450, kRing, 150, pos, found, false), 150);
    EXPECT_FALSE(found);
}

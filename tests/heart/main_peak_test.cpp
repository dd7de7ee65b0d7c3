// Main-peak search and QRS measurement on hand-built rings: ring distance, the single-precision
// peak test, the 31-sample spacing of confirmed peaks, onset/offset
// strictness, and the re-measured interval of a new candidate.
#include <gtest/gtest.h>

#include "heart/heart_run.h"

namespace {

class MainPeak : public ::testing::Test {
protected:
    // The state machine at the refractory test: fall already seen, previous confirmed peak given.
    void passedAt(int candidate, int previous) {
        b.nRPeakThreshold[0] = 100;
        b.bQrsPassed = 1;
        b.nQrsPeakPos = candidate;
        b.nRefInterval = 0;  // no refractory wait
        b.nPeakPosRingPos = 1;
        b.nPeakPosRing[0] = previous;
    }
    heart_run::Feeder feeder;
    CBeatMeasure& b = feeder.beat();
};

TEST_F(MainPeak, RingDistanceRunsFromTheNewPeakToTheStoredOne) {
    EXPECT_EQ(b.GetAnalysDataDistance(5, 3), 3998);
    EXPECT_EQ(b.GetAnalysDataDistance(5, -1), 5);
    EXPECT_EQ(b.GetAnalysDataDistance(4000, 3), 0);
}

// 0.5 x 33554434 is 16777217 in double but 16777216 in single precision.
TEST_F(MainPeak, PeakTestIsSinglePrecision) {
    b.nRPeakThreshold[0] = 33554434;
    b.nPacketEndPos = 3999;  // bounds the look-ahead and the absolute-ring search
    b.nConvexPos = 99;
    b.nConvexRing[0][100] = 16777216;
    b.nAbsRing[0][100] = 1;
    b.MainPeakDiscern(0);
    EXPECT_EQ(b.bQrsArmed, 1);
}

TEST_F(MainPeak, PeaksThirtySamplesApartAreDroppedThirtyOneKept) {
    for (int previous : {1000, 3990}) {
        passedAt((previous + 30) % 4000, previous);
        b.MainPeakDiscern(0);
        EXPECT_EQ(b.nPeakPosRingPos, 1);
        passedAt((previous + 31) % 4000, previous);
        b.MainPeakDiscern(0);
        EXPECT_EQ(b.nPeakPosRing[1], (previous + 31) % 4000);
    }
}

// An upward complex with flat two-sample troughs either side: the onset takes the earlier trough
// sample, the offset the later one, because their strict comparisons sit on opposite sides.
TEST_F(MainPeak, OnsetAndOffsetDifferInWhichSideIsStrict) {
    const int side[17] = {1000, 900, 800, 700, 600, 450, 300, 100, 100, 150, 180, 190, 195, 198, 199, 200, 200};
    for (int k = 0; k <= 16; ++k) b.nFilteredRing[0][2000 - k] = b.nFilteredRing[0][2000 + k] = side[k];
    EXPECT_EQ(b.LocateOnset(0, 2000), 2000 - 8);
    EXPECT_EQ(b.LocateOffset(0, 2000), 2000 + 8);
}

// A known previous candidate and an interval over 1.5 times its own: re-measured from the convex
// search's position (nothing found: its start, 15 before the peak), unless that lies more than
// 3979 back round the ring.
TEST_F(MainPeak, LongIntervalIsRemeasuredUnlessTheSearchWrapped) {
    for (int pos : {1320, 10}) {
        b.nRHeightThreshold[0] = b.nRPeakThreshold[0] = 1000;
        b.nPeakPosRing[0] = pos == 10 ? 3700 : 1000;
        b.nPeakPosRingPos = 2;
        b.stCandidateRing[5] = {0, 1, 100, 0, 0, 1, 0};
        EXPECT_EQ(b.SaveQRSWave(0, pos, 5), pos == 10 ? 1 : 0);
        EXPECT_EQ(b.stCandidateRing[6].nRRInterval, pos == 10 ? 310 : 15);
    }
}

}  // namespace

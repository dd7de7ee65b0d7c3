// Main-peak search and QRS measurement on hand-built rings: ring distance, the threshold gate,
// the refractory period and the 31-sample spacing of confirmed peaks, onset/offset strictness,
// the swing and mean-height helpers, and the missed-beat interval rules of a new candidate.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "heart/heart_run.h"

namespace {

class MainPeak : public ::testing::Test {
protected:
    void SetUp() override {
        holder = std::make_unique<heart_run::Holder>();
        b().EcgAnalysisInit(0);
    }
    CBeatMeasure& b() { return holder->beat; }

    // Brings the state machine to the refractory test with the given candidate position and
    // previous confirmed peak: a flat convex ring (no peak), the fall already seen.
    void passedAt(int candidate, int previous) {
        b().nRPeakThreshold[0] = 100;
        b().bQrsPassed = 1;
        b().nQrsPeakPos = candidate;
        b().nRefInterval = 0;
        b().nPeakPosRingPos = 1;
        b().nPeakPosRing[0] = previous;
        b().nConvexPos = 500;
    }

    std::unique_ptr<heart_run::Holder> holder;
};

TEST_F(MainPeak, RingDistanceRunsFromTheFirstPositionForward) {
    EXPECT_EQ(b().GetAnalysDataDistance(5, 3), 3998);
    EXPECT_EQ(b().GetAnalysDataDistance(3, 5), 2);
    EXPECT_EQ(b().GetAnalysDataDistance(0, 3999), 3999);
    EXPECT_EQ(b().GetAnalysDataDistance(7, 7), 0);
    EXPECT_EQ(b().GetAnalysDataDistance(5, -1), 5);    // empty candidate: the position itself
    EXPECT_EQ(b().GetAnalysDataDistance(5, -2), 0);
    EXPECT_EQ(b().GetAnalysDataDistance(4000, 3), 0);
    EXPECT_EQ(b().GetAnalysDataDistance(4000, -1), 4000);
    EXPECT_EQ(b().GetAnalysDataDistance(3, 4000), 0);
}

TEST_F(MainPeak, ThresholdBelowThirtyOnlyAdvancesThePosition) {
    b().nRPeakThreshold[0] = 29;
    b().nConvexRing[0][0] = 5000;
    b().bQrsPassed = 1;
    b().nSinceLastPeak = 17;
    EXPECT_TRUE(b().MainPeakDiscern(0).empty());
    EXPECT_EQ(b().nConvexPos, 0);
    EXPECT_EQ(b().bQrsArmed, 0);
    EXPECT_EQ(b().nSinceLastPeak, 17);
    b().nConvexPos = 3999;
    b().MainPeakDiscern(0);
    EXPECT_EQ(b().nConvexPos, 0);  // wraps
}

TEST_F(MainPeak, PeaksThirtySamplesApartAreDroppedThirtyOneKept) {
    passedAt(1030, 1000);
    EXPECT_TRUE(b().MainPeakDiscern(0).empty());
    EXPECT_EQ(b().nPeakPosRingPos, 1);
    EXPECT_EQ(b().bQrsPassed, 1);  // still waiting

    passedAt(1031, 1000);
    b().MainPeakDiscern(0);
    EXPECT_EQ(b().nPeakPosRingPos, 2);
    EXPECT_EQ(b().nPeakPosRing[1], 1031);
    EXPECT_EQ(b().nBeatPosRing[0], 1031);
    EXPECT_EQ(b().bQrsPassed, 0);
    EXPECT_EQ(b().nSinceLastPeak, 0);
}

TEST_F(MainPeak, SpacingIsMeasuredRoundTheRingEnd) {
    passedAt(20, 3990);  // 30 samples on
    EXPECT_TRUE(b().MainPeakDiscern(0).empty());
    EXPECT_EQ(b().nPeakPosRingPos, 1);
    passedAt(21, 3990);
    b().MainPeakDiscern(0);
    EXPECT_EQ(b().nPeakPosRing[1], 21);
}

TEST_F(MainPeak, SamePositionIsNeverConfirmedTwiceButAnEmptyPreviousNeedsNoSpacing) {
    passedAt(1000, 1000);
    b().MainPeakDiscern(0);
    EXPECT_EQ(b().nPeakPosRingPos, 1);
    passedAt(5, 0);  // previous entry 0: no spacing test
    b().MainPeakDiscern(0);
    EXPECT_EQ(b().nPeakPosRingPos, 2);
    EXPECT_EQ(b().nPeakPosRing[1], 5);
}

TEST_F(MainPeak, RefractoryPeriodIsSixtyPercentOfTheReferenceInterval) {
    passedAt(2000, 1000);
    b().nRefInterval = 40;   // waits while the counter is below 24
    b().nSinceLastPeak = 19; // the fall is seen 20 calls after the last confirmation
    int calls = 0;
    while (b().nPeakPosRingPos == 1 && calls < 10) {
        b().MainPeakDiscern(0);
        ++calls;
    }
    EXPECT_EQ(calls, 5);  // counter 20, 21, 22, 23 wait; 24 confirms
    EXPECT_EQ(b().nPeakPosRing[1], 2000);
}

TEST_F(MainPeak, EcgSwingStartsFromPlusMinus512) {
    EXPECT_EQ(b().GetEcgMainPeak(10, 0), -1024);
    EXPECT_EQ(b().GetEcgMainPeak(10, 400), 0);  // all zero: max 0, min 0
    std::fill(b().nFilteredRing[0], b().nFilteredRing[0] + 4000, 600);
    EXPECT_EQ(b().GetEcgMainPeak(10, 400), 600 - 512);  // the minimum never rises above 512
    b().nFilteredRing[0][3998] = 5000;
    EXPECT_EQ(b().GetEcgMainPeak(2, 4), 600 - 512);  // positions 2, 1, 0, 3999
    EXPECT_EQ(b().GetEcgMainPeak(2, 5), 5000 - 512); // ... and 3998
}

TEST_F(MainPeak, MeanRPeakUsesTheNewestTenRegularCandidates) {
    for (int s = 0; s < 20; ++s) {
        b().stCandidateRing[s].nBeatType = 1;
        b().nMainPeakAmplitude[s] = 100 * (s + 1);
    }
    // From slot 15 backwards: 15..6 -> amplitudes 1600..700, mean 1150.
    EXPECT_EQ(b().CountBaseRPeak(15), 1150);
    EXPECT_EQ(b().nMeanRPeak, 1150);
    for (int s = 0; s < 20; ++s) b().stCandidateRing[s].nBeatType = (s == 1 || s == 19) ? 1 : 4;
    EXPECT_EQ(b().CountBaseRPeak(0), (200 + 2000) / 2);  // wraps from 0 to 19
    for (auto& c : b().stCandidateRing) c.nBeatType = 4;
    EXPECT_EQ(b().CountBaseRPeak(3), 1100);  // none counted: unchanged
}

// Upward complex at 2000 with flat two-sample troughs on both sides: the onset takes the earlier
// trough sample, the offset the later one, because their strict comparisons sit on opposite sides.
TEST_F(MainPeak, OnsetAndOffsetDifferInWhichSideIsStrict) {
    int* f = b().nFilteredRing[0];
    const int pos = 2000;
    const int side[17] = {1000, 900, 800, 700, 600, 450, 300, 100, 100, 150, 180, 190, 195, 198, 199, 200, 200};
    for (int k = 0; k <= 16; ++k) {
        f[pos - k] = side[k];
        f[pos + k] = side[k];
    }
    // Onset: pos - 7 fails "lower than the sample before" (equal); pos - 8 qualifies.
    EXPECT_EQ(b().LocateOnset(0, pos), pos - 8);
    // Offset: pos + 7 fails "lower than the sample after" (equal); pos + 8 qualifies.
    EXPECT_EQ(b().LocateOffset(0, pos), pos + 8);
    b().CountQRSWave(0, pos, 4);
    EXPECT_EQ(b().nQrsWidthRing[0][4], pos);
    EXPECT_EQ(b().nQrsWidthRing[1][4], 1000 - 100);
    EXPECT_EQ(b().nQrsWidthRing[2][4], 16);
}

TEST_F(MainPeak, OnsetAndOffsetFallBackToSixteenSamplesOut) {
    // A level ring has no strict turning point: onset and offset are the 80-ms reference
    // points, wrapped round the ring.
    std::fill(b().nFilteredRing[0], b().nFilteredRing[0] + 4000, 42);
    EXPECT_EQ(b().LocateOnset(0, 5), 3989);
    EXPECT_EQ(b().LocateOffset(0, 3990), 6);
}

// Missed-beat rules of a new candidate. The previous confirmed peak is at 1000, the new one at
// 1320 (320 samples on); a missed R peak can be planted at 1160 in the absolute, filtered and
// convex rings. Thresholds: absolute height 1000, convex 1000.
class NewCandidate : public MainPeak {
protected:
    void SetUp() override {
        MainPeak::SetUp();
        b().nRHeightThreshold[0] = 1000;
        b().nRPeakThreshold[0] = 1000;
        b().nPeakPosRing[0] = 1000;  // previous confirmed peak (two behind the write index)
        b().nPeakPosRing[1] = 1320;  // the peak being confirmed now
        b().nPeakPosRingPos = 2;
        b().nCandidateHead = 5;
    }
    void plantAbs(int at, int value) {
        b().nAbsRing[0][at] = value;
        b().nFilteredRing[0][at] = value;
    }
    void plantConvex(int at, int value) { b().nConvexRing[0][at] = value; }
    void knownPrevious(int interval) {
        b().stCandidateRing[5].nPosition = 1000;
        b().stCandidateRing[5].nRRInterval = interval;
    }
    const BeatMeasure& saved() { return b().stCandidateRing[6]; }
};

TEST_F(NewCandidate, PlausibleMissedPeakAtTheSamePlaceGivesItsDistance) {
    knownPrevious(300);
    plantAbs(1160, 2999);
    plantConvex(1160, 2000);
    EXPECT_EQ(b().SaveQRSWave(0, 1320, 5), 1);
    EXPECT_EQ(saved().nRRInterval, 160);
    EXPECT_EQ(saved().nHeartRate, 75);
    EXPECT_EQ(saved().nPosition, 1320);
    EXPECT_EQ(saved().nBeatType, 1);
    EXPECT_EQ(b().nCandidateHead, 6);
}

TEST_F(NewCandidate, ThreeTimesTheThresholdIsNotPlausible) {
    knownPrevious(300);
    plantAbs(1160, 3000);
    plantConvex(1160, 2000);
    EXPECT_EQ(b().SaveQRSWave(0, 1320, 5), 1);
    EXPECT_EQ(saved().nRRInterval, 320);  // from the previous peak; 320 <= 1.5 x 300
    EXPECT_EQ(saved().nHeartRate, 12000 / 320);
}

TEST_F(NewCandidate, LongIntervalIsRemeasuredFromTheConvexPeak) {
    knownPrevious(200);  // 320 > 1.5 x 200
    plantAbs(1160, 3000);
    plantConvex(1160, 2000);
    EXPECT_EQ(b().SaveQRSWave(0, 1320, 5), 1);
    EXPECT_EQ(saved().nRRInterval, 160);
}

TEST_F(NewCandidate, NearbyPeaksGiveThePreviousDistanceFarOnesTheConvexOne) {
    knownPrevious(300);
    plantAbs(1160, 2000);
    plantConvex(1165, 2000);  // gap 5
    b().SaveQRSWave(0, 1320, 5);
    EXPECT_EQ(saved().nRRInterval, 320);

    SetUp();
    knownPrevious(300);
    plantAbs(1160, 2000);
    plantConvex(1180, 2000);  // gap 20; distances 320 and 140 differ by more than 14
    b().SaveQRSWave(0, 1320, 5);
    EXPECT_EQ(saved().nRRInterval, 140);
}

TEST_F(NewCandidate, ShortRemeasureIsStoredButNotAccepted) {
    knownPrevious(100);  // 320 > 150: re-measure; nothing found, the search stopped at 1305
    EXPECT_EQ(b().SaveQRSWave(0, 1320, 5), 0);
    EXPECT_EQ(saved().nRRInterval, 15);
    EXPECT_EQ(saved().nHeartRate, 0);
    EXPECT_EQ(b().nCandidateHead, 5);  // the slot is overwritten by the next candidate
}

TEST_F(NewCandidate, UnknownPreviousWithoutPeakKeepsTheSlotValues) {
    b().nPeakPosRing[0] = 0;
    b().stCandidateRing[6].nRRInterval = 77;
    b().stCandidateRing[6].nHeartRate = 25;  // kept, then limited: below 30 becomes 0
    EXPECT_EQ(b().SaveQRSWave(0, 1320, 5), 1);
    EXPECT_EQ(saved().nRRInterval, 77);
    EXPECT_EQ(saved().nHeartRate, 0);

    SetUp();
    b().nPeakPosRing[0] = 0;
    b().stCandidateRing[6].nRRInterval = 77;
    b().stCandidateRing[6].nHeartRate = 350;  // above 299 becomes 300
    b().SaveQRSWave(0, 1320, 5);
    EXPECT_EQ(saved().nHeartRate, 300);
}

TEST_F(NewCandidate, UnknownPreviousMeasuresFromThePreviousPeak) {
    b().stCandidateRing[6].nHeartRate = 123;
    EXPECT_EQ(b().SaveQRSWave(0, 1320, 5), 1);  // the slot before (5) is empty
    EXPECT_EQ(saved().nRRInterval, 320);
    EXPECT_EQ(saved().nHeartRate, 37);

    // An interval below 40 keeps the old rate (then limited) and is not accepted.
    SetUp();
    b().nPeakPosRing[0] = 1290;
    b().stCandidateRing[6].nHeartRate = 123;
    EXPECT_EQ(b().SaveQRSWave(0, 1320, 5), 0);
    EXPECT_EQ(saved().nRRInterval, 30);
    EXPECT_EQ(saved().nHeartRate, 123);
}

TEST_F(NewCandidate, IntervalLimitsAreFortyAndFourHundredInclusive) {
    for (const auto& [previous, accepted] : {std::pair<int, int>{1280, 1}, {1281, 0}, {920, 1}, {919, 0}}) {
        SetUp();
        b().nPeakPosRing[0] = previous;
        EXPECT_EQ(b().SaveQRSWave(0, 1320, 5), accepted) << previous;
    }
}

}  // namespace

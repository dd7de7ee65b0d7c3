// Beat classification: the artefact gate (and its deliberate default), the reference interval
// that collects every interval, the typing rules at their exact boundaries, and the amplitude
// stability mark with its reference learning. Candidate rings are built directly.
#include <gtest/gtest.h>

#include "heart/heart_run.h"

namespace {

// A regular history: every candidate typed 1 with RR 100 samples, QRS width 16 samples, rate
// 120/min, main-peak amplitude at the mean R-peak of 1000; the artefact gate opened.
class HeartBeatType : public heart_run::BeatTest {
protected:
    void SetUp() override {
        for (int s = 0; s < 20; ++s) {
            b.stCandidateRing[s] = BeatMeasure{500, 200 * s, 100, 16, 120, 1, 0};
            b.nMainPeakAmplitude[s] = 1000;
        }
        b.nMeanRPeak = 1000;
        b.nArtifactLimit = 0;
    }
    // The beat at slot 10 with interval rr, the next beat's interval rrNext and the beat's rate.
    int type(int rr, int rrNext, int rate = 120) {
        b.stCandidateRing[10].nRRInterval = rr;
        b.stCandidateRing[10].nHeartRate = rate;
        b.stCandidateRing[11].nRRInterval = rrNext;
        return b.GetBeatType(10);
    }
};

}  // namespace

TEST_F(HeartBeatType, ArtefactGateAndItsWindow) {
    b.nArtifactLimit = 24000;
    EXPECT_EQ(type(80, 120), 4) << "running operation: every beat is an artefact";
    b.nArtifactLimit = 0;
    const int p = b.stCandidateRing[10].nPosition;  // 2000
    b.nFilteredRing[0][p] = -100000;                // counted twice
    b.nFilteredRing[0][p - 300] = 99999;
    b.nFilteredRing[0][p + 300] = 5000000;  // outside the window
    EXPECT_FALSE(b.IsArtifact(0, 10)) << "sum exactly 299999";
    b.nFilteredRing[0][p - 300] = 100000;
    EXPECT_TRUE(b.IsArtifact(0, 10) && b.nArtifactLimit == 12000) << "and the limit is lowered";
}

TEST_F(HeartBeatType, RulesAtTheirBoundaries) {
    EXPECT_EQ(type(80, 120), 2) << "prem 20, comp 20, amplitude at the mean";
    EXPECT_EQ(type(81, 120), 1) << "prem 19";
    EXPECT_EQ(type(80, 120, 79), 1) << "rate 79 is not early";
    b.nMainPeakAmplitude[10] = 2000;       // deviation 100: far
    b.stCandidateRing[10].nQrsWidth = 24;  // 120 ms: wide
    EXPECT_EQ(type(80, 100), 3);
    b.nMainPeakAmplitude[10] = -500;
    EXPECT_EQ(type(80, 120, 79), 4) << "|amplitude| exactly half of R";
    b.nMainPeakAmplitude[10] = 501;
    EXPECT_EQ(type(80, 120), 2);
    b.stCandidateRing[9].nBeatType = 3;
    EXPECT_EQ(type(80, 120), 1) << "would be 2 after a type-3 beat";
}

TEST_F(HeartBeatType, ReferenceIntervalCollectsEveryIntervalIncludingEmptyRecords) {
    for (int k = 0; k < 8; ++k) b.stCandidateRing[9 - k].nRRInterval = 100 - 10 * k;  // 100..30
    EXPECT_EQ(b.CountRRInterval(10), 80);
    for (auto& c : b.stCandidateRing) c.nRRInterval = -1;  // empty records
    b.stCandidateRing[19].nRRInterval = 2000;              // far above the longest accepted interval
    b.stCandidateRing[18].nRRInterval = 5;                 // far below the shortest
    // Collected: 2000, 5 and six empty records: (5 - 1 - 1) / 3.
    EXPECT_EQ(b.CountRRInterval(0), 1);
}

TEST_F(HeartBeatType, StabilityMarkAndReferenceLearning) {
    for (auto& c : b.stCandidateRing) c.nPosition = 2000;
    b.nFilteredRing[0][2000] = 1000;  // the beat at slot 0 spans 1000 counts
    for (int s = 1; s < 20; ++s) b.nBeatAmplitude[s] = (s % 2) ? 980 : 1020;
    // Amplitudes 1000, ten of 980, nine of 1020: mean 999, sd 19, cv 1.
    EXPECT_EQ(b.xValue(0, 0), 0);
    EXPECT_EQ(b.nRefInterval, (40 + 100) / 2);
    EXPECT_EQ(b.nRefAmplitude, 999);
    b.nBeatAmplitude[7] = 5000;
    EXPECT_EQ(b.xValue(0, 0), 2) << "an amplitude above 4999";
    b.nBeatAmplitude[7] = 4999;  // unsteady now: mean 1200
    b.nBeatAmplitude[8] = 1021;
    b.nRefAmplitude = 600;
    EXPECT_EQ(b.xValue(0, 0), 1) << "twice the reference equal to the mean";
}

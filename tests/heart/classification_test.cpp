// Beat classification: the artefact gate (and its deliberate default), the reference interval
// that collects every interval, the typing rules at their exact boundaries, and the amplitude
// stability mark with its reference learning. Candidate rings are built directly.
#include <gtest/gtest.h>

#include "heart/beat_fixture.h"

using heart_test::makeAnalyser;

namespace {

// A regular history: every candidate typed 1 with RR 100 samples (120/min), QRS width 16
// samples, main-peak amplitude equal to the mean R-peak of 1000; a quiet filtered ring and the
// artefact gate opened, so the typing rules are reachable.
class HeartBeatType : public ::testing::Test {
protected:
    void SetUp() override {
        h = makeAnalyser();
        auto& b = h->beat;
        for (int s = 0; s < 20; ++s) {
            b.stCandidateRing[s] = BeatMeasure{500, 200 * s, 100, 16, 120, 1, 0};
            b.nMainPeakAmplitude[s] = 1000;
        }
        b.nMeanRPeak = 1000;
        b.nArtifactLimit = 0;
    }
    // The beat at kSlot with interval rr, the next beat's interval rrNext and the rate of the beat.
    int type(int rr, int rrNext, int rate = 120) {
        auto& b = h->beat;
        b.stCandidateRing[kSlot].nRRInterval = rr;
        b.stCandidateRing[kSlot].nHeartRate = rate;
        b.stCandidateRing[kSlot + 1].nRRInterval = rrNext;
        return b.GetBeatType(kSlot);
    }
    BeatMeasure& prev() { return h->beat.stCandidateRing[kSlot - 1]; }
    static constexpr int kSlot = 10;
    std::unique_ptr<heart_test::BeatHolder> h;
};

}  // namespace

TEST_F(HeartBeatType, EveryBeatIsAnArtefactWhileTheLimitIsPositive) {
    h->beat.nArtifactLimit = 24000;
    EXPECT_EQ(type(80, 120), 4);
    EXPECT_EQ(h->beat.nArtifactLimit, 24000);
    h->beat.nArtifactLimit = 1;
    EXPECT_EQ(type(100, 100), 4);
}

TEST_F(HeartBeatType, ArtefactSumCountsTheCentreTwiceAndStopsBeforePlus300) {
    auto& b = h->beat;
    const int p = b.stCandidateRing[kSlot].nPosition;  // 2000
    b.nFilteredRing[0][p] = -100000;
    b.nFilteredRing[0][p - 300] = 99999;
    b.nFilteredRing[0][p + 300] = 5000000;  // outside the window
    EXPECT_FALSE(b.IsArtifact(0, kSlot)) << "sum exactly 299999";
    b.nFilteredRing[0][p - 300] = 100000;
    EXPECT_TRUE(b.IsArtifact(0, kSlot));
    EXPECT_EQ(b.nArtifactLimit, 12000);
    EXPECT_TRUE(b.IsArtifact(0, kSlot)) << "a lowered limit is still positive";
}

TEST_F(HeartBeatType, ArtefactWindowWrapsRoundTheRing) {
    auto& b = h->beat;
    b.stCandidateRing[kSlot].nPosition = -3900;  // taken + 4000: position 100
    b.nFilteredRing[0][3850] = 300000;          // 250 before 100, round the ring
    EXPECT_TRUE(b.IsArtifact(0, kSlot));
}

TEST_F(HeartBeatType, PrematurityOfExactly20PercentIsEarly) {
    EXPECT_EQ(type(80, 120), 2);  // prem 20, comp 20, amplitude at the mean
    EXPECT_EQ(type(81, 120), 1);  // prem 19
}

TEST_F(HeartBeatType, CompensationThresholdFor2Is18) {
    EXPECT_EQ(type(80, 118), 2);
    EXPECT_EQ(type(80, 117), 1);
}

TEST_F(HeartBeatType, RateOf79StaysRegularUnlessTheAmplitudeIsSmall) {
    EXPECT_EQ(type(80, 120, 80), 2);
    EXPECT_EQ(type(80, 120, 79), 1);
    h->beat.nMainPeakAmplitude[kSlot] = 400;
    EXPECT_EQ(type(80, 120, 79), 4);
}

TEST_F(HeartBeatType, AmplitudeOfExactlyHalfTheMeanIsUnreadable) {
    h->beat.nMainPeakAmplitude[kSlot] = 500;
    EXPECT_EQ(type(80, 120), 4);
    h->beat.nMainPeakAmplitude[kSlot] = -500;
    EXPECT_EQ(type(80, 120), 4);
    h->beat.nMainPeakAmplitude[kSlot] = 501;
    EXPECT_EQ(type(80, 120), 2);
}

TEST_F(HeartBeatType, FarAmplitudeGivesType3ByWidthOrCompensation) {
    h->beat.nMainPeakAmplitude[kSlot] = 2000;  // (|1000 - 2000| * 100) / 1000 = 100: far
    h->beat.stCandidateRing[kSlot].nQrsWidth = 23;  // 115 ms: narrow
    EXPECT_EQ(type(80, 115), 3);                    // comp 15
    EXPECT_EQ(type(80, 114), 1);
    h->beat.stCandidateRing[kSlot].nQrsWidth = 24;  // 120 ms: wide
    EXPECT_EQ(type(80, 100), 3);
    h->beat.nMainPeakAmplitude[kSlot] = 1999;  // deviation 99: close
    EXPECT_EQ(type(80, 100), 1);
}

TEST_F(HeartBeatType, TypeOfThePreviousBeatAdjustsTheResult) {
    prev().nBeatType = 3;
    EXPECT_EQ(type(80, 120), 1) << "would be 2 after a type-3 beat";
    prev().nBeatType = 4;
    EXPECT_EQ(type(80, 120), 4);
    h->beat.nMainPeakAmplitude[kSlot] = 2000;
    h->beat.stCandidateRing[kSlot].nQrsWidth = 30;
    prev().nBeatType = 2;
    EXPECT_EQ(type(80, 100), 2) << "wide after a type-2 beat";
}

TEST_F(HeartBeatType, NoReferenceOrNoMeanPeakIsRegular) {
    h->beat.nMeanRPeak = 0;
    EXPECT_EQ(type(50, 150), 1);
    SetUp();
    for (auto& c : h->beat.stCandidateRing) c.nRRInterval = 0;
    EXPECT_EQ(type(50, 150), 1);
}

TEST_F(HeartBeatType, ReferenceIsThePreviousIntervalWhenItWasRegular) {
    prev().nRRInterval = 200;
    EXPECT_EQ(type(160, 240), 2);  // against 200: prem 20, comp 20
    prev().nBeatType = 0;          // not regular: the base reference (100) is used
    EXPECT_EQ(type(160, 240), 1);
}

TEST(HeartReferenceInterval, CollectsEveryIntervalIncludingEmptyRecords) {
    auto h = makeAnalyser();  // candidates start empty (-1)
    auto& b = h->beat;
    const int values[] = {100, 90, 80, 70, 60, 50, 40, 30};
    // Newest first behind slot 2: slots 1, 0, 19, 18, ...
    for (int k = 0; k < 8; ++k) b.stCandidateRing[((2 - 1 - k) % 20 + 20) % 20].nRRInterval = values[k];
    EXPECT_EQ(b.CountRRInterval(2), 80);

    auto g = makeAnalyser();
    g->beat.stCandidateRing[19].nRRInterval = 300;
    g->beat.stCandidateRing[18].nRRInterval = 2000;  // far above the longest accepted interval
    g->beat.stCandidateRing[17].nRRInterval = 5;     // far below the shortest
    // Collected: 300, 2000, 5 and five empty records (-1): (300 + 5 - 1) / 3.
    EXPECT_EQ(g->beat.CountRRInterval(0), 101);
}

TEST(HeartQrsWidth, NeedsMoreThanFiveRegularOrEarlyBeats) {
    auto h = makeAnalyser();
    auto& b = h->beat;
    for (int s = 1; s <= 5; ++s) b.stCandidateRing[s] = BeatMeasure{0, 0, 100, 20, 120, s % 2 ? 1 : 2, 0};
    b.stCandidateRing[7] = BeatMeasure{0, 0, 100, 90, 120, 3, 0};  // type 3 never counts
    EXPECT_EQ(b.CountBaseQRSWidth(10), 0);
    b.stCandidateRing[6] = BeatMeasure{0, 0, 100, 26, 120, 1, 0};
    EXPECT_EQ(b.CountBaseQRSWidth(10), 21);  // (5 * 20 + 26) / 6
}

TEST(HeartBeatResult, CopiesTheCandidateAndReportsANonNegativeRate) {
    auto h = makeAnalyser();
    auto& b = h->beat;
    b.stCandidateRing[4] = BeatMeasure{321, 1500, 150, 18, 80, 1, 9};
    BeatMeasure out{};
    EXPECT_TRUE(b.GetBeatResult(4, 77, out));
    EXPECT_EQ(out.nQrsHeight, 321);
    EXPECT_EQ(out.nPosition, 0) << "from the blank beat";
    EXPECT_EQ(out.nRRInterval, 150);
    EXPECT_EQ(out.nQrsWidth, 18);
    EXPECT_EQ(out.nHeartRate, 80);
    EXPECT_EQ(out.nBeatType, 4) << "the artefact limit of running operation";
    EXPECT_EQ(out.nStability, 0);
    EXPECT_FALSE(b.GetBeatResult(5, 0, out)) << "an empty candidate has rate -1";
}

class HeartStability : public ::testing::Test {
protected:
    void SetUp() override {
        h = makeAnalyser();
        auto& b = h->beat;
        for (int s = 0; s < 20; ++s) b.stCandidateRing[s] = BeatMeasure{0, 2000, 100, 16, 120, 1, 0};
        // The beat at slot 0 spans 1000 counts in the filtered ring.
        b.nFilteredRing[0][2000] = 1000;
    }
    std::unique_ptr<heart_test::BeatHolder> h;
};

TEST_F(HeartStability, AnyAmplitudeAbove4999IsUnstableAtOnce) {
    auto& b = h->beat;
    b.nBeatAmplitude[7] = 4999;
    EXPECT_EQ(b.xValue(0, 0), 1) << "merely unsteady, without a reference";
    b.nBeatAmplitude[7] = 5000;
    EXPECT_EQ(b.xValue(0, 0), 2);
    EXPECT_EQ(b.nBeatAmplitude[0], 1000) << "the beat's own amplitude is measured first";
    EXPECT_EQ(b.nRefAmplitude, 0);
}

TEST_F(HeartStability, SteadyAmplitudesTeachTheReferences) {
    auto& b = h->beat;
    for (int s = 1; s < 20; ++s) b.nBeatAmplitude[s] = (s % 2) ? 980 : 1020;
    // Amplitudes: 1000, ten of 980, nine of 1020 -> mean 999, sd 19, cv 1.
    EXPECT_EQ(b.xValue(0, 0), 0);
    EXPECT_EQ(b.nRefInterval, (40 + 100) / 2);
    EXPECT_EQ(b.nRefAmplitude, 999);
    EXPECT_EQ(b.xValue(0, 0), 0);
    EXPECT_EQ(b.nRefInterval, (70 + 100) / 2);
}

TEST_F(HeartStability, VaryingAmplitudesAreMarkedAgainstTheReference) {
    auto& b = h->beat;
    for (int s = 1; s < 20; ++s) b.nBeatAmplitude[s] = (s % 2) ? 500 : 1500;
    EXPECT_EQ(b.xValue(0, 0), 1) << "no reference yet";
    b.nRefAmplitude = 600;  // 2 * 600 > mean
    EXPECT_EQ(b.xValue(0, 0), 0);
    EXPECT_EQ(b.nRefInterval, 40) << "unsteady beats teach nothing";
}

// Beat-by-beat scoring: the 150 ms window is inclusive and one to one, so a doubled detection is
// one match and one false beat; RR errors, delays and HRV come out as worked by hand.
#include <gtest/gtest.h>

#include <cmath>

#include "evaluation/beat_scoring.h"

namespace {

using rtmtool::DetectedBeat;
using rtmtool::scoreBeats;

DetectedBeat at(double t, int rrMs = 800, double reportedAt = -1) {
    return DetectedBeat{t, reportedAt < 0 ? std::floor(t) + 2.0 : reportedAt, rrMs};
}

TEST(BeatScoring, MatchingIsOneToOneWithinTheWindow) {
    const std::vector<double> ref = {1.0, 2.0, 3.0, 4.0};
    // 1: exact and a double 40 ms later; 2: 149 ms late (in); 3: 151 ms early (out); 4: none.
    const auto s = scoreBeats({at(1.0), at(1.04), at(2.149), at(2.849)}, ref, 10.0);
    EXPECT_EQ(s.matched, 2u);
    EXPECT_EQ(s.falseBeats, 2u);
    EXPECT_EQ(s.missed, 2u);
    EXPECT_DOUBLE_EQ(s.sensitivity, 0.5);
    EXPECT_DOUBLE_EQ(s.predictivity, 0.5);
    EXPECT_DOUBLE_EQ(s.missedPerHour, 2 * 360.0);
    // A detection between two reference beats goes to the nearer; the other is then missed.
    const auto t = scoreBeats({at(1.12)}, {1.0, 1.2}, 10.0);
    EXPECT_EQ(t.matched, 1u);
    EXPECT_EQ(t.missed, 1u);
    // Reference beats after the end of the recording are not counted.
    EXPECT_EQ(scoreBeats({}, {1.0, 11.0}, 10.0).reference, 1u);
}

TEST(BeatScoring, IntervalsDelaysAndVariabilityAgainstTheReference) {
    // Ten minutes of beats alternating 780 and 820 ms, detected 10 ms late, reported at the end of
    // the next second, with the library's RR 5 ms long on every beat.
    std::vector<double> ref;
    std::vector<DetectedBeat> det;
    double t = 0.5;
    for (int k = 0; t < 600.0; ++k) {
        ref.push_back(t);
        const int rr = k % 2 ? 820 : 780;
        det.push_back(at(t + 0.010, (k % 2 ? 780 : 820) + 5, std::floor(t) + 2.0));
        t += rr / 1000.0;
    }
    const auto s = scoreBeats(det, ref, 600.0);
    EXPECT_EQ(s.matched, ref.size());
    EXPECT_EQ(s.rrPairs, ref.size() - 1);
    EXPECT_NEAR(s.rrMeanAbsErrorMs, 5.0, 1e-6);
    EXPECT_NEAR(s.rrBiasMs, 5.0, 1e-6);
    ASSERT_EQ(s.windows.size(), 2u);
    // Successive differences are all 40 ms; the intervals' SD is 20 ms (sample SD, n large).
    EXPECT_NEAR(s.meanRmssdReference, 40.0, 1e-6);
    EXPECT_NEAR(s.meanRmssdDetected, 40.0, 1e-6);
    EXPECT_NEAR(s.meanSdnnReference, 20.0, 0.1);
    EXPECT_NEAR(s.meanSdnnDetected, 20.0, 0.1);
    // Delays run from 1.5 s (peak at .5 of a second) up to just under 2 s.
    EXPECT_GT(s.delayMedian, 1.0);
    EXPECT_LT(s.delayP95, 2.0);
    EXPECT_LE(s.delayMedian, s.delayP95);
}

}  // namespace

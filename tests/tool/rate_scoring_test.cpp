// The rate scoring and evaluate's reference CSV, without the command line: the reference rate
// and its scores follow their window and tolerance rules at the edges.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "evaluation/evaluate.h"
#include "support/tool_runner.h"

namespace {

using namespace rtmtool;

class ConversionTest : public tooltest::ToolTest {
protected:
    void write(const std::string& name, const std::string& bytes) const { tooltest::writeFile(path(name), bytes); }
};

TEST(RateScoring, ReferenceWindowAndIntervalLimitsAreInclusiveWhereStated) {
    // Second s uses beats in (s+1-10, s+1]: a beat exactly at s+1 counts, one at s+1-10 does not.
    std::vector<double> beats = {0.5, 1.0, 2.0};
    auto ref = referenceHeartRate(beats, 12);
    EXPECT_DOUBLE_EQ(ref[0], 120.0);           // 0.5 -> 1.0, the second beat at the window's end
    EXPECT_DOUBLE_EQ(ref[1], 60.0 * 2 / 1.5);  // 0.5 -> 1.0 -> 2.0
    EXPECT_DOUBLE_EQ(ref[9], 60.0 * 2 / 1.5);
    EXPECT_TRUE(std::isnan(ref[10]));  // 1.0 sits at the window's open start: one beat left
    // Intervals outside 0.2..3 s are left out; 3 s itself counts.
    beats = {10.0, 10.1875, 13.1875, 16.25, 16.5};
    ref = referenceHeartRate(beats, 20);
    EXPECT_DOUBLE_EQ(ref[16], 60.0 * 2 / (3.0 + 0.25));  // 0.1875 and 3.0625 dropped
}

TEST(RateScoring, MissingRatesCountAsOutsideAndErrorsOnlyWhereBothExist) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    const std::vector<double> library = {0, 100, 110, 95, 60, 0};
    const std::vector<double> reference = {none, 100, 100, 100, 100, 100};
    const RateScore s = scoreRates(library, reference, 5);
    EXPECT_EQ(s.seconds, 5u);
    EXPECT_EQ(s.covered, 4u);
    EXPECT_DOUBLE_EQ(s.meanAbsError, (0 + 10 + 5 + 40) / 4.0);
    EXPECT_DOUBLE_EQ(s.bias, (0 + 10 - 5 - 40) / 4.0);
    EXPECT_DOUBLE_EQ(s.withinAbs, 2 / 5.0);      // 100 and 95 (5 is within 5)
    EXPECT_DOUBLE_EQ(s.withinPercent, 3 / 5.0);  // 100, 110 and 95
}

TEST_F(ConversionTest, ReferenceCsvColumnsByNameAndItsErrors) {
    write("ref.csv",
          "frame,hr_ref_bpm,br_ref_bpm,br_acf_peak,br_count_bpm,br_agree\n0,,,,,0\n1,70.5,15,0.9,15,1\n"
          "2,71,16,0.9,12,0\n9,80,18,0.9,18,1\n");
    Evaluation e;
    std::string error;
    ASSERT_TRUE(readReferenceCsv(path("ref.csv"), 5, e, error)) << error;
    EXPECT_TRUE(std::isnan(e.heartReference[0]));
    EXPECT_DOUBLE_EQ(e.heartReference[1], 70.5);
    EXPECT_DOUBLE_EQ(e.heartReference[2], 71);
    EXPECT_DOUBLE_EQ(e.breathReference[1], 15);
    EXPECT_TRUE(std::isnan(e.breathReference[2]));  // the estimators disagree
    EXPECT_EQ(e.notes.size(), 1u);                  // frame 9 lies beyond 5 seconds

    // Columns by name: a heart-rate column is a heart-rate reference, whatever its neighbours.
    write("hr.csv", "second,heart_rate\n0.5,72\n1.99,73\n");
    Evaluation t;
    ASSERT_TRUE(readReferenceCsv(path("hr.csv"), 3, t, error)) << error;
    EXPECT_TRUE(t.haveHeart);
    EXPECT_FALSE(t.haveBreath);
    EXPECT_DOUBLE_EQ(t.heartReference[0], 72);
    EXPECT_DOUBLE_EQ(t.heartReference[1], 73);
    EXPECT_NE(t.heart.reference.find("(heart_rate)"), std::string::npos) << t.heart.reference;

    write("bad.csv", "time_s,br_ref_bpm\n1,12\n2,fast\n");
    EXPECT_FALSE(readReferenceCsv(path("bad.csv"), 3, t, error));
    EXPECT_NE(error.find("bad.csv: line 3: rate 'fast' is not a number"), std::string::npos) << error;
    write("none.csv", "t,rate\n1,12\n");
    EXPECT_FALSE(readReferenceCsv(path("none.csv"), 3, t, error));
    EXPECT_NE(error.find("none.csv: the header names the columns 't', 'rate'"), std::string::npos) << error;
}

}  // namespace

// Array statistics: the 4.0 floor and single-precision sum of the float mean, run detection,
// trailing means with truncation and 32-bit wrap, the integer standard deviation, and the
// energy that turns into NaN once the 32-bit sum of squares wraps.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>

#include "rtmonitor/CBreathPro.h"

namespace {
CBreathPro b;  // the helpers read no member
}

TEST(BreathArrays, FloatMeanCountsOnlyValuesOfAtLeastFour) {
    float a[] = {0, 0, 4, 5, 12};
    EXPECT_FLOAT_EQ(b.DataMeanfloat(a, 1, 4), 4.5f);
    float c[] = {0, 0, 0, 3, 12};
    EXPECT_EQ(b.DataMeanfloat(c, 1, 4), 0.0f);
    float edge[] = {4.0f, 3.9999998f};
    EXPECT_EQ(b.DataMeanfloat(edge, 0, 2), 4.0f);
    EXPECT_EQ(b.DataMeanfloat(a, 3, 3), 0.0f);
}

TEST(BreathArrays, FloatMeanSumsInSinglePrecision) {
    // 16777216 + 5 rounds to 16777220 in float, + 5 to 16777224; / 3 = 5592408.
    // A double sum would give 5592408.5.
    float a[] = {16777216.0f, 5.0f, 5.0f};
    EXPECT_EQ(b.DataMeanfloat(a, 0, 3), 5592408.0f);
}

TEST(BreathArrays, ZeroRunNeedsTwoSamplesWhateverTheLength) {
    int single[] = {1, 0, 1};
    EXPECT_TRUE(b.judgezeros(single, 0, 3, 0, 1));
    int pair[] = {1, 0, 0};
    EXPECT_FALSE(b.judgezeros(pair, 0, 3, 0, 1));
    EXPECT_FALSE(b.judgezeros(pair, 0, 3, 0, 2));
    EXPECT_TRUE(b.judgezeros(pair, 0, 2, 0, 2));  // the range ends inside the run
    EXPECT_TRUE(b.judgezeros(pair, 2, 2, 0, 2));
}

TEST(BreathArrays, ZeroRunOfTwoHundredInTheBuffer) {
    static int buf[1000];
    for (int& v : buf) v = 3;
    for (int i = 800; i < 999; ++i) buf[i] = 0;  // 199 zeros
    EXPECT_TRUE(b.judgezeros(buf, 1, 1000, 0, 200));
    buf[999] = 0;
    EXPECT_FALSE(b.judgezeros(buf, 1, 1000, 0, 200));
    buf[900] = 1;  // split into 100 + 99: the counter restarts
    EXPECT_TRUE(b.judgezeros(buf, 1, 1000, 0, 200));
}

TEST(BreathArrays, TrailingMeanWidensThenSlides) {
    int a[12] = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 7};
    int out[12];
    b.moving_average_smooth(a, 12, 10, out);
    EXPECT_EQ(out[0], 10);
    EXPECT_EQ(out[4], 30);
    EXPECT_EQ(out[9], 55);
    EXPECT_EQ(out[10], 65);   // 20..110
    EXPECT_EQ(out[11], 63);   // 30..110 and 7: 637 / 10
}

TEST(BreathArrays, TrailingMeanTruncatesTowardZeroAndWraps) {
    int neg[] = {-1, 0};
    int out[2];
    b.moving_average_smooth(neg, 2, 2, out);
    EXPECT_EQ(out[1], 0);  // -1 / 2, not -1
    int big[] = {INT_MAX, INT_MAX};
    b.moving_average_smooth(big, 2, 2, out);
    EXPECT_EQ(out[1], -1);  // the 32-bit sum wraps to -2
}

TEST(BreathArrays, IntegerStatisticsTruncateAndWrap) {
    int mx, mn, mean, sd = -7;
    int a[] = {-3, 0};
    b.DataMax_Min_Mean_std(a, 0, 2, &mx, &mn, &mean, &sd);
    EXPECT_EQ(mean, -1);
    EXPECT_EQ(mx, 0);
    EXPECT_EQ(mn, -3);
    EXPECT_EQ(sd, 2);  // (4 + 1) / 1 = 5, sqrt 2.23
    int coarse[] = {0, 0, 0, 1};
    EXPECT_EQ(b.Datastd(coarse, 0, 4), 0);  // 1 / 3 divides to 0 before the root
    int wrap[] = {INT_MAX, 1};
    EXPECT_EQ(b.DataMean(wrap, 0, 2), INT_MIN / 2);
    EXPECT_EQ(b.DataMean(wrap, 1, 1), 0);
    sd = -7;
    b.DataMax_Min_Mean_std(a, 1, 2, &mx, &mn, &mean, &sd);
    EXPECT_EQ(sd, 0);
}

TEST(BreathArrays, EnergyOfAWrappedSumIsNaN) {
    int a[50];
    for (int& v : a) v = 7100;  // 2520500000 wraps negative
    const float e = b.energysum(a, 50);
    EXPECT_TRUE(std::isnan(e));
    EXPECT_FALSE(e > 50.0f);
    EXPECT_FALSE(e == 0.0f);
    for (int& v : a) v = 6000;
    EXPECT_EQ(b.energysum(a, 50), static_cast<float>(std::sqrt(1800.0)));
    EXPECT_EQ(b.energysum(a, 0), 0.0f);
}

TEST(BreathArrays, ShiftSortEqualityAndDifferences) {
    int h[] = {1, 2, 3};
    b.Arrayshiftint(h, 3, 9);
    EXPECT_EQ(h[0], 2);
    EXPECT_EQ(h[2], 9);
    float f[] = {3, -1, 2, 2, 0};
    b.sortfloat(f, 5);
    for (int i = 0; i < 4; ++i) EXPECT_LE(f[i], f[i + 1]);
    int eq[10] = {4, 4, 4, 4, 4, 4, 4, 4, 4, 4};
    EXPECT_TRUE(b.JudgeArrayequlity(eq, 10));
    eq[9] = 5;
    EXPECT_FALSE(b.JudgeArrayequlity(eq, 10));
    EXPECT_TRUE(b.JudgeArrayequlity(eq, 0));
    EXPECT_FALSE(b.JudgeArrayequlity(eq, -1));
    int d[3];
    int src[] = {INT_MIN, INT_MAX, 0};
    b.diff(src, 3, d);
    EXPECT_EQ(d[0], -1);  // wraps
    EXPECT_EQ(d[1], -INT_MAX);
}

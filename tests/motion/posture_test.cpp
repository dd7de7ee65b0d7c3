// Posture classes: quiet frames by gravity direction (inclusive/exclusive thresholds, the
// asymmetric third axis, absolute value on the first axis only) and moving frames by the change
// of the smoothed magnitude. Two-sample frames make the smoothed magnitude exact.
#include <gtest/gtest.h>

#include <vector>

#include "rtmonitor/CPosture.h"

namespace {

int classify(int x, int y, int z, int n = 25) {
    std::vector<int> xs(n, x), ys(n, y), zs(n, z);
    CPosture p;
    return p.getPosture(xs.data(), ys.data(), zs.data(), n);
}

// Two samples on the third axis only: with n = 2 the smoothing keeps both values, so the change
// is exactly |z1 - z0| / 128 g.
int classifyStep(int z0, int z1) {
    int x[2] = {512, 512};
    int y[2] = {512, 512};
    int z[2] = {z0, z1};
    CPosture p;
    return p.getPosture(x, y, z, 2);
}

// Each class at the edge of its threshold, inclusive or exclusive as designed.
TEST(Posture, QuietFramesFollowTheGravityAxisWithItsThresholds) {
    EXPECT_EQ(classify(512, 512, 576), 2);  // exactly 0.5 g is enough
    EXPECT_EQ(classify(512, 512, 575), 9);
    EXPECT_EQ(classify(512, 576, 512), 4);
    EXPECT_EQ(classify(512, 448, 512), 9);  // exactly -0.5 g is not below -0.5
    EXPECT_EQ(classify(512, 447, 512), 5);
    EXPECT_EQ(classify(512, 512, 422), 3);  // -0.703 g
    EXPECT_EQ(classify(512, 512, 423), 9);  // -0.695 g: the third axis is asymmetric
    EXPECT_EQ(classify(589, 512, 512), 1);  // 0.602 g
    EXPECT_EQ(classify(384, 512, 512), 1);  // first axis counts by absolute value
    EXPECT_EQ(classify(588, 512, 640), 2);  // 0.594 g falls through to the third axis
    EXPECT_EQ(classify(512, 512, 512), 9);  // every axis reads 0 g: all means 0
}

TEST(Posture, MovingFramesAreClassedByMagnitudeChange) {
    EXPECT_EQ(classifyStep(640, 768), 7);  // exactly 1.0 g of change
    EXPECT_EQ(classifyStep(640, 767), 6);
    EXPECT_EQ(classifyStep(640, 685), 6);   // 0.352 g
    EXPECT_EQ(classifyStep(640, 684), 2);   // 0.344 g: quiet, lying on the back
    EXPECT_EQ(classifyStep(512, 1280), 8);  // exactly 6.0 g
    EXPECT_EQ(classifyStep(512, 1279), 7);
}

TEST(Posture, SmoothingEndsAndZeroExclusion) {
    CPosture p;
    double in[5] = {1, 2, 3, 4, 10};
    double out[5] = {};
    p.slide_window_smooth(in, 5, out, 3);
    EXPECT_DOUBLE_EQ(out[0], 1.0);
    EXPECT_DOUBLE_EQ(out[3], (3 + 4 + 10) / 3.0);
    EXPECT_DOUBLE_EQ(out[4], 10.0);  // the last sample is its own mean
    double sparse[4] = {0.0, 2.0, 0.0, 4.0};
    EXPECT_DOUBLE_EQ(p.getMeanValue(sparse, 4), 3.0);  // zeros are left out
}

}  // namespace

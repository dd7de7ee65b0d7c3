// Nearest-mean labelling and the starting means: Euclidean distance, ties between equally near
// means, and the sample each initialisation mode picks (random picks wrap in 32 bits).
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <new>

#include "numeric/kmeans_index.h"
#include "rtmonitor/KMeans.h"

TEST(KMeansLabelling, DistanceIsEuclideanAndZeroWithoutDimensions) {
    KMeans km(2, 1);
    const double x[] = {1.0, 2.0};
    const double u[] = {4.0, 6.0};
    EXPECT_EQ(km.CalcDistance(x, u, 2), 5.0);
    EXPECT_EQ(km.CalcDistance(x, u, 0), 0.0);
    EXPECT_EQ(km.CalcDistance(x, u, -3), 0.0);
}

TEST(KMeansLabelling, EqualDistanceKeepsTheLowerCluster) {
    KMeans km(2, 3);
    const double far[] = {50.0, 50.0};
    const double left[] = {-1.0, 0.0};
    const double right[] = {1.0, 0.0};
    ASSERT_TRUE(km.SetMean(0, far));
    ASSERT_TRUE(km.SetMean(1, right));
    ASSERT_TRUE(km.SetMean(2, left));
    const double midpoint[] = {0.0, 3.0};
    int label = -7;
    EXPECT_EQ(km.GetLabel(midpoint, &label), km.CalcDistance(midpoint, right, 2));
    EXPECT_EQ(label, 1);

    // Slightly nearer to cluster 2: a non-strict comparison would be caught by the tie above,
    // a comparison the wrong way round by this one.
    const double nearLeft[] = {-0.25, 3.0};
    EXPECT_EQ(km.GetLabel(nearLeft, &label), km.CalcDistance(nearLeft, left, 2));
    EXPECT_EQ(label, 2);

    // All three equally near (every mean the same): cluster 0.
    ASSERT_TRUE(km.SetMean(0, left));
    ASSERT_TRUE(km.SetMean(1, left));
    EXPECT_EQ(km.GetLabel(midpoint, &label), km.CalcDistance(midpoint, left, 2));
    EXPECT_EQ(label, 0);
}

TEST(KMeansLabelling, WithoutClustersTheLabelIsUntouched) {
    KMeans km(2, 0);
    const double x[] = {1.0, 1.0};
    int label = 42;
    EXPECT_EQ(km.GetLabel(x, &label), -1.0);
    EXPECT_EQ(label, 42);
}

TEST(KMeansLabelling, RandomPickWrapsInThirtyTwoBits) {
    if (RAND_MAX != INT_MAX) GTEST_SKIP() << "figures assume RAND_MAX = 2^31-1";
    // r*(size-1) wraps: 2*RAND_MAX is -2 in 32 bits, so the pick stays at the slice start
    // (a widened product would give +1).
    EXPECT_EQ(rtm::kmeansRandomIndex(1, 3, RAND_MAX), 3);
    EXPECT_EQ(rtm::kmeansRandomIndex(1, 2, RAND_MAX), 3);       // RAND_MAX/RAND_MAX
    EXPECT_EQ(rtm::kmeansRandomIndex(2, 3, 1 << 30), 5);        // 2^31 wraps to INT_MIN: -1
    EXPECT_EQ(rtm::kmeansRandomIndex(0, 0, RAND_MAX), -1);      // fewer samples than clusters
    EXPECT_EQ(rtm::kmeansRandomIndex(4, 10, 0), 40);
    EXPECT_EQ(rtm::kmeansSampleOffset(3, 2), 8 + 3 * 2 * 8);
    EXPECT_LT(rtm::kmeansSampleOffset(-1, 2), 0);
}

TEST(KMeansLabelling, InitialisationModesPickTheirSamples) {
    // Ten 1-D samples 0..9: uniform picks 0, 3, 6 (i*N/K); random picks from each slice of
    // three, at most one sample off its start.
    double data[10];
    for (int i = 0; i < 10; ++i) data[i] = i;

    KMeans uniform(1, 3);
    ASSERT_TRUE(uniform.SetInitMode(KMeans::InitUniform));
    uniform.Init(data, 10);
    EXPECT_EQ(uniform.means[0][0], 0.0);
    EXPECT_EQ(uniform.means[1][0], 3.0);
    EXPECT_EQ(uniform.means[2][0], 6.0);

    KMeans random(1, 3);
    EXPECT_EQ(random.initMode, KMeans::InitRandom);
    EXPECT_FALSE(random.SetInitMode(3));
    for (int c = 0; c < 3; ++c) random.means[c][0] = -100.0;
    random.Init(data, 10);
    for (int c = 0; c < 3; ++c) {
        const double m = random.means[c][0];
        // A pick one before the data (cluster 0) leaves the mean as it was.
        if (c == 0 && m == -100.0) continue;
        EXPECT_GE(m, 3.0 * c - 1.0) << c;
        EXPECT_LE(m, 3.0 * c + 1.0) << c;
    }

    KMeans manual(1, 2);
    ASSERT_TRUE(manual.SetInitMode(KMeans::InitManual));
    const double m0[] = {7.5};
    ASSERT_TRUE(manual.SetMean(1, m0));
    manual.Init(data, 10);
    EXPECT_EQ(manual.means[0][0], 0.0);
    EXPECT_EQ(manual.means[1][0], 7.5);
}

TEST(KMeansLabelling, NegativeSizesThrowWithoutLeaking) {
    EXPECT_THROW(KMeans(2, -1), std::bad_array_new_length);
    EXPECT_THROW(KMeans(-1, 2), std::bad_array_new_length);  // after the outer array was made
}

// The memory driver: two separated groups split cleanly, and the stop rule: pass limit, or the
// third pass (counted over the whole run, not in a row) whose mean cost changed by less than
// stopRatio times the previous cost; the first pass never counts.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "rtmonitor/KMeans.h"

TEST(KMeansCluster, TwoSeparatedGroupsSplitWithUniformStart) {
    // Group A round (0, 0), group B round (10, 10), in the order A A A A B B B B A: the uniform
    // picks (samples 0 and 4) start one mean in each group, and the last A must still join A.
    const std::vector<double> a = {0, 0, 1, 0, 0, 1, 1, 1, 0.5, 0.5};
    const std::vector<double> b = {10, 10, 11, 10, 10, 11, 11, 11};
    std::vector<double> data;
    std::vector<int> group;
    for (int i = 0; i < 4; ++i) data.insert(data.end(), {a[2 * i], a[2 * i + 1]}), group.push_back(0);
    for (int i = 0; i < 4; ++i) data.insert(data.end(), {b[2 * i], b[2 * i + 1]}), group.push_back(1);
    data.insert(data.end(), {a[8], a[9]});
    group.push_back(0);

    KMeans km(2, 2);
    ASSERT_TRUE(km.SetInitMode(KMeans::InitUniform));
    std::vector<int> labels(9, -1);
    km.Cluster(data.data(), 9, labels.data());
    EXPECT_EQ(labels, group);
    EXPECT_EQ(km.means[0][0], 2.5 / 5);
    EXPECT_EQ(km.means[0][1], 2.5 / 5);
    EXPECT_EQ(km.means[1][0], 10.5);
    EXPECT_EQ(km.means[1][1], 10.5);

    // One pass is enough here, and the limit is honoured down to it.
    KMeans once(2, 2);
    once.SetInitMode(KMeans::InitUniform);
    once.SetIterLimit(1);
    std::vector<int> labelsOnce(9, -1);
    once.Cluster(data.data(), 9, labelsOnce.data());
    EXPECT_EQ(labelsOnce, group);
}

namespace {

// Twelve 1-D samples started at 0 and 10: the boundary between the two clusters creeps right
// by a sample or two per pass and settles after pass 8. Means after each pass:
//   1: 0 / 29.2727   2: 5 / 31.2    3: 9.3333 / 32.6667   4: 12 / 34.25
//   5: 15.1667 / 38.5   6: 16.4286 / 41.4   7: 17.875 / 44.75   8 on: 19.2222 / 49.6667
// With stopRatio 0.05 the passes read changed, changed, changed, unchanged, unchanged,
// changed, unchanged: the third unchanged pass is pass 7 although pass 6 changed.
const std::vector<double> kCreepingSamples = {0, 10, 18, 20, 21, 22, 24, 28, 30, 37, 54, 58};

struct Means {
    double low;
    double high;
};

Means clusterCreeping(double stopRatio, int iterLimit) {
    std::vector<double> data = kCreepingSamples;
    KMeans km(1, 2);
    km.SetInitMode(KMeans::InitManual);
    const double start0[] = {0.0};
    const double start1[] = {10.0};
    km.SetMean(0, start0);
    km.SetMean(1, start1);
    km.SetStopRatio(stopRatio);
    km.SetIterLimit(iterLimit);
    std::vector<int> labels(data.size());
    km.Cluster(data.data(), static_cast<int>(data.size()), labels.data());
    return {km.means[0][0], km.means[1][0]};
}

}  // namespace

TEST(KMeansCluster, PassLimitStopsTheIteration) {
    const Means five = clusterCreeping(-1.0, 5);  // a negative ratio never counts a pass
    EXPECT_EQ(five.low, 91.0 / 6);
    EXPECT_EQ(five.high, 38.5);
    const Means zero = clusterCreeping(-1.0, 0);  // still one pass
    EXPECT_EQ(zero.low, 0.0);
    EXPECT_EQ(zero.high, 322.0 / 11);
    const Means all = clusterCreeping(-1.0, 100);
    EXPECT_EQ(all.low, 173.0 / 9);
    EXPECT_EQ(all.high, 149.0 / 3);
}

TEST(KMeansCluster, UnchangedPassesAreCountedOverTheWholeRun) {
    // A count reset by pass 6 would run on to pass 12 and end at 19.2222 / 49.6667.
    const Means m = clusterCreeping(0.05, 100);
    EXPECT_EQ(m.low, 17.875);
    EXPECT_EQ(m.high, 44.75);
}

TEST(KMeansCluster, FirstPassNeverCountsAsUnchanged) {
    // An infinite ratio counts every pass that has a nonzero previous cost: passes 2, 3 and 4.
    const Means m = clusterCreeping(std::numeric_limits<double>::infinity(), 100);
    EXPECT_EQ(m.low, 12.0);
    EXPECT_EQ(m.high, 34.25);
}

TEST(KMeansCluster, EmptyDataLeavesMeansAndLabelsAlone) {
    KMeans km(2, 2);
    km.SetInitMode(KMeans::InitUniform);
    km.means[1][0] = 3.0;
    double data[2] = {1.0, 1.0};
    int labels[1] = {99};
    km.Cluster(data, 0, labels);
    EXPECT_EQ(labels[0], 99);
    EXPECT_EQ(km.means[1][0], 3.0);
}

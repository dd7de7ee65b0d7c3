// Both drivers and the labelling: two separated groups split cleanly, a sample equally near two
// means takes the lower cluster, the stop rule (pass limit, or the third pass over the whole run
// whose mean cost changed by less than stopRatio times the previous; never the first), and the
// sample file: a short one checks nothing and, its stream failed after the last pass, labels
// every sample as what the reads left in the buffer.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "numeric/kmeans_index.h"
#include "rtmonitor/KMeans.h"

namespace {

// CTest runs the cases as parallel processes, so each case gets its own files.
std::string scratch(const char* name) {
    return std::string(RTM_BINARY_DIR "/kmeans_test_") +
           ::testing::UnitTest::GetInstance()->current_test_info()->name() + "_" + name;
}

// Header (count, dimension) then the doubles, cut to `bytes` bytes when not negative.
std::string writeSamples(int32_t count, int32_t dim, std::vector<double> values, long bytes = -1) {
    std::string content(8 + values.size() * 8, '\0');
    const int32_t header[2] = {count, dim};
    std::memcpy(&content[0], header, 8);
    std::memcpy(&content[8], values.data(), values.size() * 8);
    content.resize(bytes >= 0 ? static_cast<size_t>(bytes) : content.size());
    std::ofstream(scratch("samples.bin"), std::ios::binary) << content;
    return scratch("samples.bin");
}

// Clusters `samples` and returns the label file as int32 words: the count, then the labels.
std::vector<int32_t> clusterFile(KMeans& km, const std::string& samples) {
    km.Cluster(samples.c_str(), scratch("labels.bin").c_str());
    std::ifstream in(scratch("labels.bin"), std::ios::binary);
    std::vector<int32_t> words;
    for (int32_t w = 0; in.read(reinterpret_cast<char*>(&w), 4);) words.push_back(w);
    return words;
}

}  // namespace

TEST(KMeansCluster, TwoSeparatedGroupsSplitWithUniformStart) {
    // A A A A B B B B A: the uniform picks (samples 0 and 4) start one mean in each group.
    std::vector<double> data = {0, 0, 1, 0, 0, 1, 1, 1, 10, 10, 11, 10, 10, 11, 11, 11, 0.5, 0.5};
    KMeans km(2, 2);
    ASSERT_TRUE(km.SetInitMode(KMeans::InitUniform));
    std::vector<int> labels(9, -1);
    km.Cluster(data.data(), 9, labels.data());
    EXPECT_EQ(labels, (std::vector<int>{0, 0, 0, 0, 1, 1, 1, 1, 0}));
}

TEST(KMeansCluster, EqualDistanceKeepsTheLowerCluster) {
    KMeans km(2, 2);  // means (1, 0) and (-1, 0)
    km.means[0][0] = 1.0;
    km.means[1][0] = -1.0;
    const double midpoint[] = {0, 3}, nearLeft[] = {-0.25, 3};
    int label = -7;
    EXPECT_EQ(km.GetLabel(midpoint, &label), km.CalcDistance(midpoint, km.means[0], 2));
    EXPECT_EQ(label, 0);  // a non-strict comparison moves on to 1
    km.GetLabel(nearLeft, &label);
    EXPECT_EQ(label, 1);  // a comparison the wrong way round keeps 0
}

TEST(KMeansCluster, StopRule) {
    // Twelve 1-D samples started at 0 and 10: the boundary creeps right and settles after pass
    // 8. With stopRatio 0.05 the passes read changed x3, unchanged x2, changed, unchanged, so
    // the third unchanged pass is pass 7; a count reset by pass 6 would run to pass 12.
    struct Case {
        double ratio;
        int limit;
        double low, high;
    };
    const Case cases[] = {
        {0.05, 100, 17.875, 44.75},
        {1e300, 100, 12.0, 34.25},   // passes 2, 3, 4 count; the first never does
        {-1.0, 5, 91.0 / 6, 38.5},   // never unchanged: the limit stops at pass 5
        {-1.0, 0, 0.0, 322.0 / 11},  // still one pass
    };
    for (const Case& c : cases) {
        double data[] = {0, 10, 18, 20, 21, 22, 24, 28, 30, 37, 54, 58};
        int labels[12];
        KMeans km(1, 2);
        km.SetInitMode(KMeans::InitManual);
        km.means[1][0] = 10.0;
        km.SetStopRatio(c.ratio);
        km.SetIterLimit(c.limit);
        km.Cluster(data, 12, labels);
        EXPECT_EQ(km.means[0][0], c.low) << c.ratio << " " << c.limit;
        EXPECT_EQ(km.means[1][0], c.high);
    }
}

TEST(KMeansCluster, RandomPickWrapsInThirtyTwoBits) {
    if (RAND_MAX != INT_MAX) GTEST_SKIP() << "figures assume RAND_MAX = 2^31-1";
    // r*(size-1) wraps: 2*RAND_MAX is -2, so the pick stays at the slice start (widened: +1);
    // 2^31 wraps to INT_MIN, one before it.
    EXPECT_EQ(rtm::kmeansRandomIndex(1, 3, RAND_MAX), 3);
    EXPECT_EQ(rtm::kmeansRandomIndex(2, 3, 1 << 30), 5);
}

TEST(KMeansCluster, SmallSampleFile) {
    // A round (0, 0), B round (8, 6), in the order A B A B A B; the header's dimension (99) is
    // not compared with the model's.
    KMeans km(2, 2);
    km.SetInitMode(KMeans::InitUniform);
    EXPECT_EQ(clusterFile(km, writeSamples(6, 99, {0, 0, 8, 6, 1, 0, 9, 6, 0, 1, 8, 7})),
              (std::vector<int32_t>{6, 0, 1, 0, 1, 0, 1}));
}

TEST(KMeansCluster, TruncatedSampleFileLabelsTheLastBufferEverywhere) {
    // Five samples announced, 2.5 present: each pass reads (0, 0), (8, 6), then only x = 1 over
    // the 6, and the last two reads deliver nothing: (1, 6) three times. Cleared before the
    // label pass, the stream would give the samples present their own labels 0 and 1.
    KMeans km(2, 2);
    km.SetInitMode(KMeans::InitManual);
    km.means[1][0] = km.means[1][1] = 10.0;
    EXPECT_EQ(clusterFile(km, writeSamples(5, 2, {0, 0, 8, 6, 1, 0}, 8 + 5 * 8)),
              (std::vector<int32_t>{5, 0, 0, 0, 0, 0}));
    EXPECT_EQ(km.means[0][1], 4.5);
}

TEST(KMeansCluster, EmptyMissingAndNegativeSampleFilesWriteOnlyTheCount) {
    KMeans km(2, 2);  // random start: slices of no samples
    EXPECT_EQ(clusterFile(km, writeSamples(0, 0, {1}, 0)), (std::vector<int32_t>{0}));
    EXPECT_EQ(clusterFile(km, scratch("missing.bin")), (std::vector<int32_t>{0}));
    EXPECT_EQ(clusterFile(km, writeSamples(-5, 2, {1, 2, 3, 4})), (std::vector<int32_t>{-5}));
}

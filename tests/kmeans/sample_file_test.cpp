// The sample-file driver: same result as the memory driver on a complete file; on a short,
// empty, missing, negatively or hugely counted file it checks nothing, yet every read past the
// end only leaves the sample buffer as it was and the label file holds the announced count.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "rtmonitor/KMeans.h"

namespace fs = std::filesystem;

namespace {

class KMeansSampleFile : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir_ = fs::temp_directory_path() /
               ("rtm_kmeans_" + std::to_string(::getpid()) + "_" + info->name());
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string path(const char* name) const { return (dir_ / name).string(); }

    // Header (count, dimension) then the given doubles, cut to `bytes` bytes when not negative.
    std::string writeSamples(int32_t count, int32_t dim, const std::vector<double>& values,
                             long bytes = -1) {
        std::string content(8 + values.size() * 8, '\0');
        std::memcpy(&content[0], &count, 4);
        std::memcpy(&content[4], &dim, 4);
        if (!values.empty()) std::memcpy(&content[8], values.data(), values.size() * 8);
        if (bytes >= 0) content.resize(static_cast<size_t>(bytes));
        const std::string name = path("samples.bin");
        std::ofstream(name, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
        return name;
    }

    // The label file as int32 words: the count first, then the labels.
    std::vector<int32_t> readLabels() const {
        std::ifstream in(path("labels.bin"), std::ios::binary);
        std::vector<int32_t> words;
        int32_t w = 0;
        while (in.read(reinterpret_cast<char*>(&w), 4)) words.push_back(w);
        return words;
    }

    fs::path dir_;
};

// Two groups in the plane, A round (0, 0) and B round (8, 6), in the order A B A B A B.
const std::vector<double> kTwoGroups = {0, 0, 8, 6, 1, 0, 9, 6, 0, 1, 8, 7};

}  // namespace

TEST_F(KMeansSampleFile, CompleteFileGivesTheMemoryDriversResult) {
    KMeans memory(2, 2);
    memory.SetInitMode(KMeans::InitUniform);
    std::vector<double> data = kTwoGroups;
    std::vector<int> labels(6, -1);
    memory.Cluster(data.data(), 6, labels.data());
    ASSERT_EQ(labels, (std::vector<int>{0, 1, 0, 1, 0, 1}));

    KMeans file(2, 2);
    file.SetInitMode(KMeans::InitUniform);
    // The header's dimension is not compared with the model's.
    const std::string samples = writeSamples(6, 99, kTwoGroups);
    file.Cluster(samples.c_str(), path("labels.bin").c_str());
    EXPECT_EQ(readLabels(), (std::vector<int32_t>{6, 0, 1, 0, 1, 0, 1}));
    for (int c = 0; c < 2; ++c)
        for (int d = 0; d < 2; ++d) EXPECT_EQ(file.means[c][d], memory.means[c][d]);
}

TEST_F(KMeansSampleFile, InitFromFileLeavesUndeliveredBytesAlone) {
    // Four samples announced, two and a half present: uniform picks samples 0 and 2, and
    // sample 2 delivers only its first coordinate.
    const std::string samples = writeSamples(4, 2, {1, 2, 3, 4, 5, 6}, 8 + 5 * 8);
    KMeans km(2, 2);
    km.SetInitMode(KMeans::InitUniform);
    km.means[1][1] = -9.0;
    std::ifstream in(samples, std::ios::binary);
    km.Init(in);
    EXPECT_EQ(km.means[0][0], 1.0);
    EXPECT_EQ(km.means[0][1], 2.0);
    EXPECT_EQ(km.means[1][0], 5.0);
    EXPECT_EQ(km.means[1][1], -9.0);
}

TEST_F(KMeansSampleFile, TruncatedFileLabelsWhatTheReadsLeft) {
    // Announced 5 samples (A B A B A) of which 2.5 are present. Each pass reads A, B, then only
    // the x of the third sample over the y of B, and the last two reads deliver nothing: the
    // memory driver on those stale samples must agree exactly.
    const std::vector<double> present = {0, 0, 8, 6, 1, 0};
    const std::string samples = writeSamples(5, 2, present, 8 + 5 * 8);
    const double start0[] = {0.0, 0.0};
    const double start1[] = {10.0, 10.0};

    KMeans file(2, 2);
    file.SetInitMode(KMeans::InitManual);
    file.SetMean(0, start0);
    file.SetMean(1, start1);
    file.Cluster(samples.c_str(), path("labels.bin").c_str());

    std::vector<double> stale = {0, 0, 8, 6, 1, 6, 1, 6, 1, 6};
    KMeans memory(2, 2);
    memory.SetInitMode(KMeans::InitManual);
    memory.SetMean(0, start0);
    memory.SetMean(1, start1);
    std::vector<int> labels(5, -1);
    memory.Cluster(stale.data(), 5, labels.data());

    const std::vector<int32_t> words = readLabels();
    ASSERT_EQ(words.size(), 6u);
    EXPECT_EQ(words[0], 5);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(words[1 + i], labels[i]) << i;
    EXPECT_EQ(words[1], 0);  // the samples present keep their own labels
    EXPECT_EQ(words[2], 1);
    for (int c = 0; c < 2; ++c)
        for (int d = 0; d < 2; ++d) EXPECT_EQ(file.means[c][d], memory.means[c][d]);
}

TEST_F(KMeansSampleFile, EmptyMissingAndNegativeFilesWriteOnlyTheCount) {
    for (int mode : {KMeans::InitRandom, KMeans::InitUniform}) {
        SCOPED_TRACE(mode);
        KMeans km(2, 2);
        km.SetInitMode(mode);
        km.SetIterLimit(3);
        km.Cluster(writeSamples(0, 0, {}, 0).c_str(), path("labels.bin").c_str());
        EXPECT_EQ(readLabels(), (std::vector<int32_t>{0}));

        km.Cluster(path("no-such-file.bin").c_str(), path("labels.bin").c_str());
        EXPECT_EQ(readLabels(), (std::vector<int32_t>{0}));

        km.Cluster(writeSamples(-5, 2, {1, 2, 3, 4}).c_str(), path("labels.bin").c_str());
        EXPECT_EQ(readLabels(), (std::vector<int32_t>{-5}));

        // A header cut inside the count: the two bytes present are all of it.
        const int32_t announced = 0x0102;
        int32_t expected = 0;
        std::memcpy(&expected, &announced, 2);
        km.Cluster(writeSamples(announced, 2, {}, 2).c_str(), path("labels.bin").c_str());
        const std::vector<int32_t> words = readLabels();
        ASSERT_EQ(words.size(), static_cast<size_t>(expected) + 1);
        EXPECT_EQ(words[0], expected);
    }
    // No names at all, or a label file that cannot be created: nothing happens.
    KMeans km(2, 2);
    km.Cluster(nullptr, nullptr);
    km.Cluster(writeSamples(3, 2, {1, 2, 3, 4, 5, 6}).c_str(), path("missing-dir/labels.bin").c_str());
}

TEST_F(KMeansSampleFile, HugeCountOnAShortFileStaysInBounds) {
    // A million samples announced, three present: every further read delivers nothing and the
    // label file still gets a million labels.
    const int32_t count = 1000000;
    const std::string samples = writeSamples(count, 2, {0, 0, 8, 6, 1, 0});
    KMeans km(2, 2);
    km.SetInitMode(KMeans::InitManual);
    km.means[1][0] = 10.0;
    km.means[1][1] = 10.0;
    km.SetIterLimit(2);
    km.Cluster(samples.c_str(), path("labels.bin").c_str());
    const std::vector<int32_t> words = readLabels();
    ASSERT_EQ(words.size(), static_cast<size_t>(count) + 1);
    EXPECT_EQ(words[0], count);
    EXPECT_EQ(words[1], words[3]);  // samples (0, 0) and (1, 0) together
    EXPECT_NE(words[1], words[2]);
}

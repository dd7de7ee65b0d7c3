// Replays the committed fuzz seeds and every recorded fuzz finding (fuzz/regressions/<target>)
// through the same harness code the fuzzers run, so a fixed fault stays fixed in the normal and
// sanitizer suites without clang. A harness check that fails aborts this program.
#include <dirent.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#define RTM_FUZZ_NO_ENTRY 1
#include "../../fuzz/fuzz_breath.cpp"
#include "../../fuzz/fuzz_device_load.cpp"
#include "../../fuzz/fuzz_heart.cpp"
#include "../../fuzz/fuzz_motion.cpp"
#include "../../fuzz/fuzz_pipeline.cpp"
#if __has_include("rtmonitor/KMeans.h")
#include "../../fuzz/fuzz_kmeans_model.cpp"
#include "../../fuzz/fuzz_kmeans_samples.cpp"
#define RTM_HAVE_KMEANS 1
#endif

namespace {

std::vector<std::vector<uint8_t>> inputs(const std::string& target) {
    std::vector<std::vector<uint8_t>> all;
    for (const char* kind : {"corpus", "regressions"}) {
        const std::string dir = std::string(RTM_SOURCE_DIR) + "/fuzz/" + kind + "/" + target;
        DIR* d = opendir(dir.c_str());
        if (!d) continue;
        while (dirent* e = readdir(d)) {
            if (e->d_name[0] == '.' || std::string(e->d_name) == "README.md") continue;
            std::FILE* f = std::fopen((dir + "/" + e->d_name).c_str(), "rb");
            if (!f) continue;
            std::vector<uint8_t> bytes;
            int c;
            while ((c = std::fgetc(f)) != EOF) bytes.push_back(static_cast<uint8_t>(c));
            std::fclose(f);
            all.push_back(bytes);
        }
        closedir(d);
    }
    return all;
}

class FuzzCorpus : public ::testing::Test {
protected:
    static void SetUpTestSuite() { rtm_fuzz::detectStandIns(); }
    template <class F>
    static size_t replay(const std::string& target, F body) {
        const auto all = inputs(target);
        for (const auto& bytes : all) body(bytes.data(), bytes.size());
        return all.size();
    }
};

TEST_F(FuzzCorpus, Pipeline) { EXPECT_GT(replay("pipeline", rtmFuzzPipeline), 0u); }
TEST_F(FuzzCorpus, Breath) { EXPECT_GT(replay("breath", rtmFuzzBreath), 0u); }
TEST_F(FuzzCorpus, Heart) { EXPECT_GT(replay("heart", rtmFuzzHeart), 0u); }
TEST_F(FuzzCorpus, Motion) { EXPECT_GT(replay("motion", rtmFuzzMotion), 0u); }
TEST_F(FuzzCorpus, DeviceLoad) { EXPECT_GT(replay("device_load", rtmFuzzDeviceLoad), 0u); }
#ifdef RTM_HAVE_KMEANS
TEST_F(FuzzCorpus, KMeansModel) { EXPECT_GT(replay("kmeans_model", rtmFuzzKMeansModel), 0u); }
TEST_F(FuzzCorpus, KMeansSamples) { EXPECT_GT(replay("kmeans_samples", rtmFuzzKMeansSamples), 0u); }
#endif

}  // namespace

// Fuzz target: the k-means binary sample-file driver, Cluster(sampleFile, labelFile), on
// arbitrary file contents. Four leading bytes choose dimension (1..4), cluster count (1..4),
// the starting mode (uniform or manual; the random mode seeds from the clock and would make
// findings irreproducible) and the pass limit; the rest is the sample file. The announced count
// is kept to at most twice what the file holds (plus one), so files shorter than announced are
// covered without making the driver write gigabytes of labels. The label file must hold the
// count and one label in 0..K-1 per sample.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_common.h"
#include "rtmonitor/KMeans.h"

namespace rtm_fuzz_kmeans_samples {
const std::string& base() {
    static const std::string p = "/tmp/rtm-fuzz-kmeans-" + std::to_string(getpid());
    return p;
}
}  // namespace rtm_fuzz_kmeans_samples

#ifndef RTM_FUZZ_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    rtm_fuzz::setupStats(250);
    return 0;
}
#endif

RTM_FUZZ_TARGET(rtmFuzzKMeansSamples) {
    using namespace rtm_fuzz;
    if (size < 4) return 0;
    const int dim = 1 + data[0] % 4, k = 1 + data[1] % 4;
    const int mode = (data[2] & 1) ? KMeans::InitManual : KMeans::InitUniform;
    const int passes = 1 + data[3] % 12;
    std::vector<uint8_t> file(data + 4, data + size);
    // A file too short for its count leaves part of the count as it was, which can announce
    // millions of samples; such files are fuzzed as empty files.
    if (file.size() < 4) file.clear();
    int32_t count = 0;
    if (file.size() >= 4) {
        std::memcpy(&count, file.data(), 4);
        const int64_t held = file.size() >= 8 ? static_cast<int64_t>((file.size() - 8) / (8u * dim)) : 0;
        const int64_t bound = 2 * held + 2;
        int64_t c = count % bound;
        if (c < 0) c += bound;
        count = static_cast<int32_t>(c);
        std::memcpy(file.data(), &count, 4);
    }
    const std::string samples = rtm_fuzz_kmeans_samples::base() + ".samples";
    const std::string labels = rtm_fuzz_kmeans_samples::base() + ".labels";
    std::remove(labels.c_str());
    {
        std::FILE* f = std::fopen(samples.c_str(), "wb");
        if (!f) return 0;
        if (!file.empty()) std::fwrite(file.data(), 1, file.size(), f);
        std::fclose(f);
    }
    KMeans km(dim, k);
    km.SetInitMode(mode);
    km.SetIterLimit(passes);
    if (mode == KMeans::InitManual)
        for (int c = 0; c < k; ++c) {
            std::vector<double> m(static_cast<size_t>(dim), static_cast<double>(c));
            km.SetMean(c, m.data());
        }
    timedFrame([&] { km.Cluster(samples.c_str(), labels.c_str()); });
    if (file.size() < 4) return 0;  // no count in the file: nothing defined to check
    std::FILE* f = std::fopen(labels.c_str(), "rb");
    if (!f) invariantFailed("no label file written", 0, 0);
    int32_t n = -1;
    if (std::fread(&n, 4, 1, f) != 1 || n != count) {
        std::fclose(f);
        invariantFailed("label file count differs from the sample file's", n, 0);
    }
    for (int32_t i = 0; i < n; ++i) {
        int32_t label = -1;
        if (std::fread(&label, 4, 1, f) != 1) {
            std::fclose(f);
            invariantFailed("label file shorter than its count", i, 0);
        }
        if (label < 0 || label >= k) {
            std::fclose(f);
            invariantFailed("label outside 0..K-1", label, 0);
        }
    }
    std::fclose(f);
    return 0;
}

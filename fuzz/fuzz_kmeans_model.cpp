// Fuzz target: the k-means text model reader. The first two bytes choose the model object's
// dimension and cluster count (1..8 each), the rest is the model text. Whatever the text, the
// reader must report an error or succeed without fault; a model it accepts must survive being
// written with operator<< (17 digits) and read back unchanged.
#include <cmath>
#include <cstring>
#include <sstream>
#include <string>

#include "fuzz_common.h"
#include "rtmonitor/KMeans.h"

#ifndef RTM_FUZZ_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    rtm_fuzz::setupStats(250);
    return 0;
}
#endif

RTM_FUZZ_TARGET(rtmFuzzKMeansModel) {
    using namespace rtm_fuzz;
    if (size < 2) return 0;
    const int dim = 1 + data[0] % 8, k = 1 + data[1] % 8;
    const std::string text(reinterpret_cast<const char*>(data + 2), size - 2);
    KMeans model(dim, k);
    std::istringstream in(text);
    std::string error;
    bool ok = false;
    timedFrame([&] { ok = model.ReadModel(in, &error); });
    if (!ok) {
        if (error.empty()) invariantFailed("a rejected model came without a message", 0, 0);
        return 0;
    }
    std::ostringstream out;
    out.precision(17);
    out << model;
    KMeans again(dim, k);
    std::istringstream back(out.str());
    if (!again.ReadModel(back, &error)) {
        std::fprintf(stderr, "rtm-fuzz: written model:\n%s\nreader said: %s\n", out.str().c_str(), error.c_str());
        invariantFailed("a model written by operator<< was not read back", 0, 0);
    }
    for (int c = 0; c < k; ++c)
        for (int d = 0; d < dim; ++d) {
            const double a = model.means[c][d], b = again.means[c][d];
            if (!(a == b || (std::isnan(a) && std::isnan(b))))
                invariantFailed("a mean changed in the round trip", c, 0);
        }
    return 0;
}

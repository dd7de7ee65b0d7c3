// The Lloyd passes shared by both k-means drivers: label every sample with its nearest mean,
// move each mean to the average of its samples, repeat until the pass limit or the third pass
// whose mean cost barely changed. Distances and means in the samples' own units.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "rtmonitor/KMeans.h"

namespace rtm {

// startPass() is called before each pass; sample(i) returns sample i (i = 0..n-1, in order)
// as dimNum doubles valid until the next call.
template <class StartPass, class Sample>
void kmeansLloydPasses(KMeans& km, int32_t n, StartPass startPass, Sample sample) {
    const int k = km.clusterNum > 0 ? km.clusterNum : 0;
    const int dim = km.dimNum > 0 ? km.dimNum : 0;
    std::vector<int> counts(static_cast<size_t>(k));
    std::vector<double> sums(static_cast<size_t>(k) * static_cast<size_t>(dim));

    int label = -1;
    int passes = 0;
    // Counts every pass that changed the cost by little, whether or not the one before did;
    // existing hosts see the stop that this gives.
    int unchanged = 0;
    double cost = 0.0;
    for (;;) {
        std::fill(counts.begin(), counts.end(), 0);
        std::fill(sums.begin(), sums.end(), 0.0);
        const double previous = cost;
        cost = 0.0;
        startPass();
        for (int32_t i = 0; i < n; ++i) {
            const double* x = sample(i);
            cost += km.GetLabel(x, &label);
            // Only without clusters does the label stay outside 0..k-1; nothing to count then.
            if (label < 0 || label >= k) continue;
            ++counts[static_cast<size_t>(label)];
            double* sum = &sums[static_cast<size_t>(label) * static_cast<size_t>(dim)];
            for (int d = 0; d < dim; ++d) sum[d] += x[d];
        }
        cost /= n;

        // A cluster that received no sample keeps its old mean.
        for (int c = 0; c < k; ++c) {
            if (counts[static_cast<size_t>(c)] <= 0) continue;
            const double* sum = &sums[static_cast<size_t>(c) * static_cast<size_t>(dim)];
            for (int d = 0; d < dim; ++d) km.means[c][d] = sum[d] / counts[static_cast<size_t>(c)];
        }

        ++passes;
        // The first pass compares against a previous cost of 0, so it counts only if the cost is 0.
        if (std::fabs(previous - cost) < km.stopRatio * previous) ++unchanged;
        if (passes >= km.iterLimit || unchanged >= 3) break;
    }
}

}  // namespace rtm

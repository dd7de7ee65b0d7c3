// Interval-based breathing rate: from two ascending lists of breath boundaries (sample indexes at
// 25 samples/s, e.g. peaks and troughs) a whole number of breaths per minute between 6 and 70,
// from trimmed means of the spacings of each list. Not used by the frame pipeline.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "breath/rate_math.h"
#include "common/exact_math.h"
#include "rtmonitor/CBreathPro.h"

namespace {

// Truncated mean of the sorted spacings with the extremes left out: none below five spacings,
// two at each end below ten, three at each end from ten on.
int32_t trimmedMeanSpacing(const std::vector<int32_t>& sorted) {
    const int n = static_cast<int>(sorted.size());
    const int drop = n >= 10 ? 3 : (n >= 5 ? 2 : 0);
    int32_t sum = 0;
    for (int k = drop; k < n - drop; ++k) sum = rtm::wrapAdd32(sum, sorted[static_cast<size_t>(k)]);
    return rtm::truncDiv32(sum, n - 2 * drop);
}

}  // namespace

float CBreathPro::RR_result(int* first, int* second, int nFirst, int nSecond) {
    const int m = min(nFirst, nSecond);
    // Fewer than two boundaries in a list give no spacing at all: report no rate.
    if (m < 2) return 0.0f;

    std::vector<int32_t> spacingA;
    std::vector<int32_t> spacingB;
    spacingA.reserve(static_cast<size_t>(m - 1));
    spacingB.reserve(static_cast<size_t>(m - 1));
    for (int k = 1; k < m; ++k) {
        spacingA.push_back(rtm::wrapSub32(first[k], first[k - 1]));
        spacingB.push_back(rtm::wrapSub32(second[k], second[k - 1]));
    }
    std::sort(spacingA.begin(), spacingA.end());
    std::sort(spacingB.begin(), spacingB.end());

    const int32_t meanSum = rtm::wrapAdd32(trimmedMeanSpacing(spacingA), trimmedMeanSpacing(spacingB));
    const float meanSpacing = static_cast<float>(meanSum) * 0.5f;
    // A zero or negative mean spacing gives an infinite or negative quotient; both clamp to 6.
    int32_t rate = rtm::floatToIntX86(rtm::breath::ieeeDivF(rtm::breath::kBreathSamplesPerMinute, meanSpacing));
    rate = std::max(rate, 6);
    rate = std::min(rate, 70);
    return static_cast<float>(rate);
}

// Detection thresholds: the learners that set the energy, convex-peak and absolute-height thresholds from the
// maxima of the last seconds of the rings conditioning.cpp fills. Rings hold 4000 samples (20 s at 200 samples/s);
// positions wrap modulo 4000. Thresholds are in the units of the ring they apply to (scaled filtered counts).
#include <algorithm>
#include <array>

#include "common/exact_math.h"
#include "heart/ring.h"
#include "rtmonitor/CBeatMeasure.h"

using rtm::truncDiv32;
using rtm::wrapAdd32;
using rtm::wrapMul32;
using rtm::wrapSub32;
using rtm::heart::kRingLength;
using rtm::heart::kSamplesPerSecond;
using rtm::heart::leadRow;

namespace {

// Lowest convex-peak and absolute-height thresholds a learner may set.
constexpr int kMinHeightThreshold = 100;
// A learnt mean must exceed this to replace a height threshold.
constexpr int kMinLearntMean = 9;
// Largest look-back the learners are asked for is 10 s; the buffer allows the whole ring.
constexpr int kMaxSeconds = kRingLength / kSamplesPerSecond;

// The maxima of the n whole seconds before write position P, newest second first. The span of
// second k starts at P + 3 - k * rate, with a single +4000 correction as the learners have always
// applied it; the search itself wraps every position.
int secondMaxima(CBeatMeasure& beat, int* ring, int writePos, int seconds, std::array<int, kMaxSeconds>& maxima) {
    const int n = std::min(seconds, kMaxSeconds);
    for (int k = 1; k <= n; ++k) {
        int start = wrapSub32(wrapAdd32(writePos, 3), wrapMul32(k, beat.nSampleRate));
        if (start < 0) start = wrapAdd32(start, kRingLength);
        int pos = 0;
        maxima[k - 1] = beat.lngFindLocalMaxLocation(ring, start, wrapAdd32(start, beat.nSampleRate), kRingLength, pos);
    }
    return n < 0 ? 0 : n;
}

// Mean of the positive values left after dropping the largest and the smallest; `positives`
// receives how many took part. Sums wrap at 32 bits like the original accumulator.
int trimmedPositiveMean(std::array<int, kMaxSeconds>& maxima, int n, int& positives) {
    std::sort(maxima.begin(), maxima.begin() + n);
    int sum = 0;
    positives = 0;
    for (int k = 1; k < n - 1; ++k) {
        if (maxima[k] > 0) {
            sum = wrapAdd32(sum, maxima[k]);
            positives += 1;
        }
    }
    return positives > 0 ? truncDiv32(sum, positives) : 0;
}

// Shared body of the two height learners: true when the mean of the trimmed second-maxima is
// large enough to become the threshold (never below 100).
bool learnHeight(CBeatMeasure& beat, int* ring, int seconds, int& threshold) {
    if (beat.nSecondsCount < 5) return false;
    std::array<int, kMaxSeconds> maxima{};
    const int n = secondMaxima(beat, ring, beat.nRingPos, seconds, maxima);
    if (n < 3) return false;
    int positives = 0;
    const int mean = trimmedPositiveMean(maxima, n, positives);
    if (mean <= kMinLearntMean) return false;
    threshold = std::max(mean, kMinHeightThreshold);
    return true;
}

}  // namespace

int CBeatMeasure::GetEnergyHeightInitValue(int seconds) {
    std::array<int, kMaxSeconds> maxima{};
    const int n = secondMaxima(*this, nEnergyRing, nEnergyRingPos, seconds, maxima);
    if (n < 3) return 1;
    int positives = 0;
    const int mean = trimmedPositiveMean(maxima, n, positives);
    if (positives > 0 && mean != 0) nEnergyThreshold[leadRow(nLeadIndex)] = mean;
    return 1;
}

// The names are crossed on purpose and hosts rely on the pairing: the "R height" learner reads
// the convex ring and sets the convex-peak threshold...
bool CBeatMeasure::GetRHeightInitValue(int seconds) {
    const int row = leadRow(nLeadIndex);
    return learnHeight(*this, nConvexRing[row], seconds, nRPeakThreshold[row]);
}

// ...and the "R-peak height" learner reads the absolute ring and sets the height threshold.
bool CBeatMeasure::GetRPeakHeightInitValue(int seconds) {
    const int row = leadRow(nLeadIndex);
    return learnHeight(*this, nAbsRing[row], seconds, nRHeightThreshold[row]);
}

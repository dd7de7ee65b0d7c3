// Peak-pair counting: from the peaks and troughs of one smoothed respiration window (sample
// indexes at 25 samples/s, ascending) the breathing rate in breaths per minute of the newest run
// of breaths whose swings and intervals agree, or 0 when the window shows no such run.
// The lists are read newest first through index arithmetic instead of reversed copies, so the
// routine keeps no work arrays and handles lists of any length without truncating them.
#include <cstdint>

#include "breath/rate_math.h"
#include "common/exact_math.h"
#include "common/kernels.h"
#include "rtmonitor/CBreathPro.h"

namespace {

constexpr int32_t kMidLevel = 500;

// One list of extremum positions seen newest first. A boundary at or past the end of the list
// reads as 0: a run that would need it then fails the "late enough" test instead of reading
// memory that is not part of the list.
struct NewestFirst {
    const int* loc;
    int count;
    int32_t at(int64_t k) const { return (k >= 0 && k < count) ? loc[static_cast<int64_t>(count) - 1 - k] : 0; }
};

// Fraction of consecutive extremum pairs between which the signal crosses the mid level exactly
// twice. Single-precision quotient over (count - 1), as the regularity flag is defined on it.
float goodPairFraction(const int* data, const int* loc, int count) {
    int good = 0;
    for (int k = 0; k + 1 < count; ++k) {
        const int64_t a = loc[k];
        const int64_t b = loc[k + 1];
        if (!(a < b - 2)) continue;
        // A sample on the level counts only if the sample after next is on the other side.
        if (rtm::kernels::countCrossings(data, a, b - 3, kMidLevel) == 2) ++good;
    }
    return rtm::breath::ieeeDivF(static_cast<float>(good), static_cast<float>(rtm::wrapSub32(count, 1)));
}

bool swingsAgree(int32_t swing, int32_t prev) {
    const double s = swing;
    const double p = prev;
    return s > 0.5 * p && 1.5 * p > s;
}

}  // namespace

float CBreathPro::PPConNum(int* data, int* pPeakLoc, int* pTroughLoc, int nMinLoc, int nPeakNum, int nTroughNum,
                           int nCycleNum, bool* bRateValid, bool* bCrossRegular) {
    *bRateValid = false;

    // 9 good pairs of 10 is not regular: 0.9f lies below the double 0.9.
    const float rP = goodPairFraction(data, pPeakLoc, nPeakNum);
    bool crossRegular = static_cast<double>(rP) >= 0.9;
    if (!crossRegular) {
        const float rT = goodPairFraction(data, pTroughLoc, nTroughNum);
        crossRegular = static_cast<double>(rT) >= 0.9;
    }
    *bCrossRegular = crossRegular;

    const NewestFirst peaks{pPeakLoc, nPeakNum};
    const NewestFirst troughs{pTroughLoc, nTroughNum};
    const int m = min(nPeakNum, nTroughNum);
    if (m < 1) return 0.0f;
    const bool newestIsPeak = peaks.at(0) > troughs.at(0);

    // Newest run of nCycleNum - 1 agreeing swings; the first swing is compared with itself.
    const int64_t runWanted = static_cast<int64_t>(nCycleNum) - 1;
    int64_t runLength = 0;
    int start = 0;
    bool inRun = false;
    bool found = false;
    int32_t prev = 0;
    for (int k = 0; k < m; ++k) {
        const int32_t swing = rtm::wrapAbs32(rtm::wrapSub32(data[peaks.at(k)], data[troughs.at(k)]));
        if (k == 0) prev = swing;
        if (swingsAgree(swing, prev)) {
            if (!inRun) {
                start = k;
                inRun = true;
            }
            if (++runLength >= runWanted) {
                found = true;
                break;
            }
        } else {
            runLength = 0;
            start = 0;
            inRun = false;
        }
        prev = swing;
    }
    if (!found) return 0.0f;

    const NewestFirst& bounds = newestIsPeak ? peaks : troughs;
    const int n = newestIsPeak ? nPeakNum : nTroughNum;
    // The third boundary is tested whatever the run length, as rates on record were made so.
    if (bounds.at(static_cast<int64_t>(start) + 2) <= nMinLoc) return 0.0f;
    if (static_cast<int64_t>(n) - start < runWanted) return 0.0f;

    // Intervals of the run, newest breath first, and the regularity of their second differences.
    auto interval = [&](int64_t j) { return rtm::wrapSub32(bounds.at(start + j), bounds.at(start + j + 1)); };
    bool runRegular = true;
    if (nCycleNum > 2) {
        for (int64_t j = 0; j + 2 < static_cast<int64_t>(nCycleNum); ++j) {
            const int32_t second = rtm::wrapSub32(interval(j + 1), interval(j));
            if (rtm::wrapAbs32(second) > 25) {
                runRegular = false;
                break;
            }
        }
    }

    if (!runRegular) {
        // Irregularity of the whole boundary list: share of second differences above 20.
        int irregular = 0;
        for (int64_t j = 0; j + 2 < n; ++j) {
            const int32_t d1 = rtm::wrapSub32(bounds.at(j + 1), bounds.at(j));
            const int32_t d2 = rtm::wrapSub32(bounds.at(j + 2), bounds.at(j + 1));
            if (rtm::wrapAbs32(rtm::wrapSub32(d2, d1)) > 20) ++irregular;
        }
        const float share =
            rtm::breath::ieeeDivF(static_cast<float>(irregular), static_cast<float>(rtm::wrapSub32(n, 2)));
        // Written as "pass only at or below 0.2" so that 0/0 (three boundaries) fails.
        if (!(static_cast<double>(share) <= 0.2)) return 0.0f;
    }

    int32_t sum = 0;
    for (int64_t j = 0; j < runWanted; ++j) sum = rtm::wrapAdd32(sum, interval(j));
    const float meanInterval =
        rtm::breath::ieeeDivF(static_cast<float>(sum), static_cast<float>(rtm::wrapSub32(nCycleNum, 1)));
    *bRateValid = true;
    return rtm::breath::ieeeDivF(rtm::breath::kBreathSamplesPerMinute, meanInterval);
}

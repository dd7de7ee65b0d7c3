// Array statistics of the respiration analyser on caller-owned arrays (ranges are [start, end)).
// Integer sums wrap at 32 bits and integer divisions truncate toward zero, as the rate decisions
// were tuned on; the float mean ignores values below 4.0 so that zeros and implausibly slow
// rates only shorten a trimmed mean and never pull it down. No member of the analyser is read.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "breath/window_stats.h"
#include "common/exact_math.h"
#include "common/kernels.h"
#include "rtmonitor/CBreathPro.h"

namespace {

// Values of a rate history below this are left out of every float mean.
constexpr float kRateMeanFloor = 4.0f;

using rtm::kernels::RangeStats;

// Largest, smallest and wrapping sum of a[start, end); needs start < end.
RangeStats rangeStats(const int* a, int start, int end) { return rtm::kernels::rangeStats(a + start, end - start); }

int32_t wrappedSum(const int* a, int start, int end) {
    return start < end ? static_cast<int32_t>(rangeStats(a, start, end).sum) : 0;
}

// Wrapping sum of (a[i] - offset)^2 over [start, end).
uint32_t wrappedSquares(const int* a, int start, int end, int32_t offset) {
    return start < end ? rtm::kernels::sumSquares(a + start, end - start, offset) : 0u;
}

// True when a[start, end) holds `value` anywhere.
bool contains(const int* a, int start, int end, int value) {
    return start < end && rtm::kernels::contains(a + start, end - start, value);
}

}  // namespace

bool CBreathPro::judgezeros(int* a, int start, int end, int value, int runLength) {
    if (start >= end) return true;
    // A run needs at least one sample of the value; most windows hold none.
    if (!contains(a, start, end, value)) return true;
    // The first sample of a run only starts it and the length test begins with the second, so a
    // run length of 1 behaves like 2: false when `need` samples in a row hold the value.
    const int64_t need = runLength > 2 ? runLength : 2;
    // Each candidate span is checked from its far end: the last sample that differs shows that
    // no run through it can start earlier, so the next span starts just after it.
    int64_t from = start;
    while (from + need <= end) {
        int64_t j = from + need - 1;
        while (j >= from && a[j] == value) --j;
        if (j < from) return false;
        from = j + 1;
    }
    return true;
}

int CBreathPro::DataMax_Min_Mean_std(int* a, int start, int end, int* pMax, int* pMin, int* pMean, int* pStd) {
    if (start >= end) {
        *pMean = 0;
        *pMax = a[start];
        *pMin = a[start];
        return 1;
    }
    const RangeStats r = rangeStats(a, start, end);
    const int32_t mean = rtm::truncDiv32(static_cast<int32_t>(r.sum), end - start);
    *pMax = r.mx;
    *pMin = r.mn;
    *pMean = mean;
    *pStd = (end - start == 1) ? 0 : rtm::breath::integerStd(r, end - start, mean);
    return 1;
}

int CBreathPro::DataMax(int* a, int start, int end) { return start < end ? rangeStats(a, start, end).mx : a[start]; }

int CBreathPro::DataMin(int* a, int start, int end) { return start < end ? rangeStats(a, start, end).mn : a[start]; }

int CBreathPro::DataMean(int* a, int start, int end) {
    if (start >= end) return 0;
    return rtm::truncDiv32(wrappedSum(a, start, end), end - start);
}

// One element would divide by zero; it gives 0 here (no caller passes fewer than two).
int CBreathPro::Datastd(int* a, int start, int end) {
    if (start >= end || end - start == 1) return 0;
    const RangeStats r = rangeStats(a, start, end);
    return rtm::breath::integerStd(r, end - start, rtm::truncDiv32(static_cast<int32_t>(r.sum), end - start));
}

float CBreathPro::DataMeanfloat(float* a, int start, int end) {
    float sum = 0.0f;
    int count = 0;
    for (int i = start; i < end; ++i) {
        if (a[i] >= kRateMeanFloor) {
            sum += a[i];
            ++count;
        }
    }
    return count == 0 ? 0.0f : sum / static_cast<float>(count);
}

void CBreathPro::diff(int* a, int n, int* out) {
    for (int k = 0; k + 1 < n; ++k) out[k] = rtm::wrapSub32(a[k + 1], a[k]);
}

void CBreathPro::Arrayshiftint(int* a, int n, int v) {
    if (n < 1) return;
    std::memmove(a, a + 1, static_cast<std::size_t>(n - 1) * sizeof(int));
    a[n - 1] = v;
}

void CBreathPro::Arrayshiftfloat(float* a, int n, float v) {
    if (n < 1) return;
    std::memmove(a, a + 1, static_cast<std::size_t>(n - 1) * sizeof(float));
    a[n - 1] = v;
}

// The 32-bit sum of squares wraps from about 46.3^2 * 1e6 on; a wrapped negative sum gives NaN,
// which the driver takes as "not zero and not above 50". Do not widen the sum.
float CBreathPro::energysum(int* a, int n) {
    if (n < 1) return 0.0f;
    return rtm::breath::energyOfSquares(wrappedSquares(a, 0, n, 0));
}

// Trailing mean with a running sum; the sum wraps like the direct 32-bit sum of the window,
// so both give the same result. A width below 1 is taken as 1.
void CBreathPro::moving_average_smooth(int* a, int n, int w, int* out) {
    if (w < 1) w = 1;
    uint32_t sum = 0;
    int i = 0;
    // While the window fills, the divisor grows with it.
    for (; i < n && i + 1 < w; ++i) {
        sum += static_cast<uint32_t>(a[i]);
        out[i] = rtm::truncDiv32(static_cast<int32_t>(sum), i + 1);
    }
    // Then a full window of w values each time.
    rtm::kernels::trailingMeans(a, i, n, w, out);
}

void CBreathPro::sortfloat(float* a, int n) {
    for (int pass = 0; pass < n - 1; ++pass) {
        for (int j = 0; j < n - 1 - pass; ++j) {
            if (a[j] > a[j + 1]) {
                const float t = a[j];
                a[j] = a[j + 1];
                a[j + 1] = t;
            }
        }
    }
}

bool CBreathPro::JudgeArrayequlity(int* a, int n) {
    if (n < 1) return n == 0;
    for (int i = 1; i < n; ++i)
        if (a[i] != a[0]) return false;
    return true;
}

int CBreathPro::min(int a, int b) { return a < b ? a : b; }

namespace rtm {
namespace breath {

float energyOfSquares(uint32_t squares) {
    const int32_t sq = static_cast<int32_t>(squares);
    return static_cast<float>(std::sqrt(static_cast<double>(static_cast<float>(sq)) / 1000000.0));
}

// The squared deviations from the truncated mean are summed with 32-bit wrap, divided by
// (count - 1) as integers, and only then rooted in double precision. A wrapped negative sum gives
// NaN, which converts to INT32_MIN. The wrapped sum of squared deviations is formed from the
// range's plain sums: sum (a - m)^2 = sum a^2 - 2 m sum a + n m^2 holds exactly in arithmetic
// modulo 2^32, so one pass over the values gives the same word.
int32_t integerStd(const kernels::RangeStats& r, int count, int32_t mean) {
    const uint32_t m = static_cast<uint32_t>(mean);
    const uint32_t n = static_cast<uint32_t>(count);
    const int32_t sq = static_cast<int32_t>(r.squares - 2u * m * r.sum + n * m * m);
    const int32_t q = rtm::truncDiv32(sq, rtm::wrapSub32(count, 1));
    return rtm::floatToIntX86(std::sqrt(static_cast<double>(q)));
}

kernels::RangeStats statsWithSlotReplaced(const int32_t* ring, int n, int slot, int32_t v) {
    kernels::RangeStats r = kernels::rangeStats(ring, n);
    const int32_t old = ring[slot];
    if (old == v) return r;
    if (old == r.mx || old == r.mn) {
        // The leaving sample may be the only one at an extreme: the extremes of the others again.
        r.mx = v;
        r.mn = v;
        if (slot > 0) {
            const kernels::RangeStats before = kernels::rangeStats(ring, slot);
            r.mx = std::max(r.mx, before.mx);
            r.mn = std::min(r.mn, before.mn);
        }
        if (slot + 1 < n) {
            const kernels::RangeStats after = kernels::rangeStats(ring + slot + 1, n - slot - 1);
            r.mx = std::max(r.mx, after.mx);
            r.mn = std::min(r.mn, after.mn);
        }
    } else {
        r.mx = std::max(r.mx, v);
        r.mn = std::min(r.mn, v);
    }
    // Sums modulo 2^32: the leaving sample's terms come out, the new one's go in.
    const uint32_t o = static_cast<uint32_t>(old);
    const uint32_t u = static_cast<uint32_t>(v);
    r.sum = r.sum - o + u;
    r.squares = r.squares - o * o + u * u;
    return r;
}

}  // namespace breath
}  // namespace rtm

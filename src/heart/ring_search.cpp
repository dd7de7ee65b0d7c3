// Searches over the detection rings: the first maximum or minimum of a span walked forward, the
// backward search for a beat the main-peak state machine walked past, and the forward distance
// between two ring positions. Spans wrap at the ring end; positions are samples of 5 ms. These
// read the rings and nPeakPosRing only and call nothing else of the analyser.
#include <algorithm>

#include "common/exact_math.h"
#include "common/kernels.h"
#include "heart/ring.h"
#include "rtmonitor/CBeatMeasure.h"

using rtm::heart::confirmedPeak;
using rtm::heart::kPeakSpacingSamples;
using rtm::heart::ringAt;
using rtm::heart::wrapModulo;

namespace {

// Span before a candidate of the backward search over which it must dominate.
constexpr int kDominanceSpan = 35;

// The first position of the largest (`wantMax`) or smallest value over `from` up to (not
// including) `to`, walked forward with the wrap at `len`; the first occurrence wins. `pos` keeps
// `from` when nothing beats the value there. The extreme comes from at most two stretches of the
// ring as stored; only then is its first position looked for.
template <bool wantMax>
int firstExtreme(const int* ring, int from, int to, int len, int& pos) {
    pos = from;
    if (ring == nullptr || len < 1) return 0;
    const int count = wrapModulo(static_cast<int64_t>(to) - from, len);
    int idx = wrapModulo(from, len);
    if (count == 0) return ring[idx];
    const auto pick = [](int a, int b) { return wantMax ? std::max(a, b) : std::min(a, b); };
    const int first = std::min(count, len - idx);
    rtm::kernels::RangeStats r = rtm::kernels::rangeStats(ring + idx, first);
    int best = wantMax ? r.mx : r.mn;
    if (count > first) {
        r = rtm::kernels::rangeStats(ring, count - first);
        best = pick(best, wantMax ? r.mx : r.mn);
    }
    if (ring[idx] == best) return best;
    for (int k = 1; k < count; ++k) {
        idx = (idx + 1 == len) ? 0 : idx + 1;
        if (ring[idx] == best) {
            pos = idx;
            break;
        }
    }
    return best;
}

}  // namespace

int CBeatMeasure::lngFindLocalMaxLocation(int* ring, int from, int to, int len, int& pos) {
    return firstExtreme<true>(ring, from, to, len, pos);
}

int CBeatMeasure::lngFindLocalMinLocation(int* ring, int from, int to, int len, int& pos) {
    return firstExtreme<false>(ring, from, to, len, pos);
}

int CBeatMeasure::lngFindLocalMaxLocation_reverse(int* ring, int* shape, int from, int to, int, int threshold, int& pos,
                                                  bool& found, bool flag) {
    pos = from;
    found = false;
    if (from < to || ring == nullptr || shape == nullptr) return threshold;

    const int newestPeak = confirmedPeak(*this, 0);
    // Walk backwards, `to` included.
    for (int64_t x = from; x >= to; --x) {
        const int at = ringAt(x);
        if (ring[at] < threshold) continue;
        pos = static_cast<int>(x);

        const int s = shape[at];
        if (shape[ringAt(at, -1)] > s || shape[ringAt(at, 1)] > s) continue;

        int unused = 0;
        int* dominanceSource = flag ? ring : shape;
        const int before =
            lngFindLocalMaxLocation(dominanceSource, ringAt(at, -kDominanceSpan), at, kRingLength, unused);
        if (!(ring[at] > before)) continue;
        if (!flag) {
            // Far enough from the newest confirmed peak; an empty entry (0) never qualifies.
            // The difference wraps at 32 bits before it is folded onto the ring.
            if (newestPeak == 0) continue;
            if (ringAt(rtm::wrapSub32(newestPeak, at)) <= kPeakSpacingSamples) continue;
        }
        found = true;
        return ring[at];
    }
    return threshold;
}

int CBeatMeasure::GetAnalysDataDistance(int a, int b) {
    if (a < 0 || a > kRingLength - 1 || b < 0) return b == -1 ? a : 0;
    if (b > kRingLength - 1) return 0;
    return rtm::heart::ringDistance(a, b);
}

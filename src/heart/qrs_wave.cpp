// QRS measurement of a confirmed main peak: where the peak sits under the filtered wave, its
// two-sided amplitude, onset, offset and width, and the new candidate record with its RR
// interval (samples of 5 ms) and instantaneous rate (beats/min), including the search for a
// beat missed between the previous confirmed peak and this one. Values are filtered-ring counts.
#include <cstdint>
#include <cstdlib>

#include "common/exact_math.h"
#include "heart/ring.h"
#include "rtmonitor/CBeatMeasure.h"

using rtm::heart::confirmedPeak;
using rtm::heart::leadRow;
using rtm::heart::ringAt;
using rtm::heart::slotAt;
using rtm::heart::wrapModulo;

namespace {

constexpr int kRowPeakPos = 0;
constexpr int kRowHeight = 1;
constexpr int kRowWidth = 2;
constexpr int kMissedBeatGuard = 15;  // samples kept clear of both peaks in the missed-beat search

}  // namespace

void CBeatMeasure::LocateMainPeakUnderRawWave(int lead, int* ring, int pos, int len, int& peak, int& height) {
    (void)lead;
    if (ring == nullptr || len < 1) {
        peak = pos;
        height = 0;
        return;
    }
    const int k = rtm::truncDiv32(20, nMsPerSample);
    const int from = wrapModulo(static_cast<int64_t>(pos) - k, len);
    const int to = wrapModulo(static_cast<int64_t>(pos) + k, len);
    int pmax = from;
    int pmin = from;
    const int mx = lngFindLocalMaxLocation(ring, from, to, len, pmax);
    const int mn = lngFindLocalMinLocation(ring, from, to, len, pmin);
    // One reference before the maximum serves both polarities.
    const int ref = ring[wrapModulo(static_cast<int64_t>(pmax) - rtm::truncDiv32(60, nMsPerSample), len)];
    const int down = rtm::wrapAbs32(rtm::wrapSub32(mn, ref));
    const int up = rtm::wrapAbs32(rtm::wrapMul32(2, rtm::wrapSub32(mx, ref)));
    // A downward complex wins only when it is at least twice as deep as the upward one is high.
    if (down < up) {
        peak = pmax;
        height = rtm::wrapSub32(mx, ref);
    } else {
        peak = pmin;
        height = rtm::wrapSub32(mn, ref);
    }
}

int CBeatMeasure::GetMainPeakOriginalWave(int pos, IntPointLeadNum& amplitude, int slot) {
    const int* f = nFilteredRing[0];
    const int half = rtm::truncDiv32(60, nMsPerSample);
    const int ref = f[ringAt(pos, -static_cast<int64_t>(rtm::truncDiv32(80, nMsPerSample)))];

    int maxPos = ringAt(pos, -static_cast<int64_t>(half));
    int minPos = maxPos;
    int maxVal = f[maxPos];
    int minVal = maxVal;
    for (int64_t k = -static_cast<int64_t>(half) + 1; k <= half; ++k) {
        const int x = ringAt(pos, k);
        if (f[x] > maxVal) {
            maxVal = f[x];
            maxPos = x;
        }
        if (f[x] < minVal) {
            minVal = f[x];
            minPos = x;
        }
    }
    const int up = rtm::wrapSub32(maxVal, ref);
    const int down = rtm::wrapSub32(minVal, ref);
    const bool useMax = rtm::wrapAbs32(down) < rtm::wrapAbs32(rtm::wrapMul32(2, up));
    const int q = useMax ? maxPos : minPos;
    const int s = slotAt(slot);
    nQrsWidthRing[kRowPeakPos][s] = q;
    nQrsWidthRing[kRowHeight][s] = useMax ? up : down;

    const int side = rtm::truncDiv32(50, nMsPerSample);
    amplitude.nPoint = rtm::wrapAdd32(rtm::wrapSub32(f[q], f[ringAt(q, side)]),
                                      rtm::wrapSub32(f[q], f[ringAt(q, -static_cast<int64_t>(side))]));
    return 1;
}

int CBeatMeasure::LocateOnset(int lead, int pos) {
    const int* f = nFilteredRing[leadRow(lead)];
    const int k = rtm::truncDiv32(80, nMsPerSample);
    const int s = ringAt(pos, -static_cast<int64_t>(k));
    const int base = f[s];
    const int d = rtm::wrapSub32(f[ringAt(pos)], base);
    const int thr = rtm::floatToIntX86(static_cast<double>(d) * 0.2);
    for (int back = 5; back < k; ++back) {
        const int x = ringAt(pos, -static_cast<int64_t>(back));
        const int here = f[x];
        const int before = f[ringAt(x, -1)];
        const int after = f[ringAt(x, 1)];
        const int rise = rtm::wrapSub32(here, base);
        if (d < 1) {
            if (here >= before && here > after && rise >= thr) return x;
        } else {
            if (here < before && here <= after && rise <= thr) return x;
        }
    }
    return s;
}

// Mirror of LocateOnset, but the strict side of the neighbour tests differs; existing beat
// widths depend on it, so the two must not be made symmetric.
int CBeatMeasure::LocateOffset(int lead, int pos) {
    const int* f = nFilteredRing[leadRow(lead)];
    const int k = rtm::truncDiv32(80, nMsPerSample);
    const int e = ringAt(pos, k);
    const int base = f[e];
    const int d = rtm::wrapSub32(f[ringAt(pos)], base);
    const int thr = rtm::floatToIntX86(static_cast<double>(d) * 0.2);
    for (int ahead = 5; ahead < k; ++ahead) {
        const int x = ringAt(pos, ahead);
        const int here = f[x];
        const int before = f[ringAt(x, -1)];
        const int after = f[ringAt(x, 1)];
        const int rise = rtm::wrapSub32(here, base);
        if (d < 1) {
            if (here >= before && here > after && rise >= thr) return x;
        } else {
            if (here <= before && here < after && rise <= thr) return x;
        }
    }
    return e;
}

int CBeatMeasure::CountQRSWave(int lead, int pos, int slot) {
    const int row = leadRow(lead);
    const int* f = nFilteredRing[row];
    const int onset = LocateOnset(row, pos);
    const int offset = LocateOffset(row, pos);
    const int s = slotAt(slot);
    nQrsWidthRing[kRowPeakPos][s] = pos;
    nQrsWidthRing[kRowHeight][s] = rtm::wrapSub32(f[ringAt(pos)], f[onset]);
    nQrsWidthRing[kRowWidth][s] = GetAnalysDataDistance(onset, offset);
    return 1;
}

int CBeatMeasure::SaveQRSWave(int lead, int pos, int slot) {
    const int row = leadRow(lead);
    pos = ringAt(pos);  // callers pass ring positions; anything else is folded onto the ring
    const int cur = slotAt(slot);
    const int next = cur == kBeatSlots - 1 ? 0 : cur + 1;
    CountQRSWave(nLeadIndex, pos, next);

    BeatMeasure& rec = stCandidateRing[next];
    rec.nPosition = pos;
    rec.nQrsHeight = nQrsWidthRing[kRowHeight][next];

    // The peak confirmed before the one now being saved (MainPeakDiscern has already pushed
    // this one as the newest).
    const int prev = confirmedPeak(*this, 1);

    // Look between the two peaks for a beat the state machine walked past.
    const int heightThr = nRHeightThreshold[row];
    const int from = ringAt(pos, -kMissedBeatGuard);
    const int to = ringAt(prev, kMissedBeatGuard);
    int posA = from;
    int posC = from;
    bool foundA = false;
    bool foundC = false;
    const int ampA =
        lngFindLocalMaxLocation_reverse(nAbsRing[row], nFilteredRing[row], from, to, kRingLength,
                                        rtm::floatToIntX86(0.6 * static_cast<double>(heightThr)), posA, foundA, true);
    lngFindLocalMaxLocation_reverse(nConvexRing[row], nConvexRing[row], from, to, kRingLength,
                                    rtm::floatToIntX86(0.5 * static_cast<double>(nRPeakThreshold[row])), posC, foundC,
                                    false);
    int gap = std::abs(posA - posC);
    if (gap > 3000) gap = kRingLength - gap;

    auto distBack = [pos](int x) { return rtm::heart::ringDistance(x, pos); };
    const bool plausible = 0.6 * static_cast<double>(heightThr) < static_cast<double>(ampA) &&
                           static_cast<double>(ampA) < 3.0 * static_cast<double>(heightThr) && foundA && foundC;
    auto intervalByGap = [&]() {
        if (gap == 0) return distBack(posA);
        if (gap <= 10) return distBack(prev);
        return std::abs(distBack(prev) - distBack(posC)) <= 14 ? distBack(prev) : distBack(posC);
    };

    const int rateScale = rtm::wrapMul32(60, nSampleRate);
    const bool known = stCandidateRing[cur].nPosition != -1;
    if (known) {
        const double longInterval = 1.5 * static_cast<double>(stCandidateRing[cur].nRRInterval);
        int interval = plausible ? intervalByGap() : distBack(prev);
        if (static_cast<double>(interval) > longInterval) {
            // Too long after the previous candidate: measure from the convex peak instead.
            int r = pos - posC;
            if (r >= -3979) {
                if (r < 0) r += kRingLength;
                if (r != 0 || (!plausible && !foundC)) interval = r;
            }
        }
        rec.nRRInterval = interval;
        rec.nHeartRate = interval >= 40 ? rtm::truncDiv32(rateScale, interval) : 0;
    } else if (prev > 0 && pos != 0) {
        const int interval = plausible ? intervalByGap() : distBack(prev);
        rec.nRRInterval = interval;
        if (interval >= 40) rec.nHeartRate = rtm::truncDiv32(rateScale, interval);
    }
    // Otherwise (no previous candidate and no previous peak) the slot keeps its old interval
    // and rate; the limits below still apply to the rate.

    if (rec.nHeartRate < 30) rec.nHeartRate = 0;
    if (rec.nHeartRate > 299) rec.nHeartRate = 300;
    rec.nBeatType = 1;
    rec.nQrsWidth = nQrsWidthRing[kRowWidth][next];

    // Interval outside 40..400 samples: the record stays but the head does not move, so the
    // next candidate overwrites it.
    if (static_cast<uint32_t>(rec.nRRInterval) - 40u > 360u) return 0;
    nCandidateHead = next;
    return 1;
}

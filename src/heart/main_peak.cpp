// Main-peak discrimination: one call per ring position of the packet decides whether a QRS main
// peak has been followed, passed and confirmed (idle -> armed -> passed -> confirmed), then drains
// the finished candidates into typed beats. Positions are 4000-sample ring indexes (5 ms each);
// amplitudes are filtered-ring counts (raw counts x 12.5 after the low-pass).
#include <algorithm>
#include <cstdint>
#include <vector>

#include "common/exact_math.h"
#include "heart/ring.h"
#include "rtmonitor/CBeatMeasure.h"

using rtm::heart::confirmedPeak;
using rtm::heart::kPeakSpacingSamples;
using rtm::heart::ringAt;
using rtm::heart::slotAt;

namespace {

constexpr int kLookAhead = 30;          // samples searched ahead for a higher convex value
constexpr int kAbsSearchHalfSpan = 20;  // samples either side for the absolute-ring maximum

// The filtered ring has an extremum at x: a peak (rising into a plateau counts) or a trough.
bool isFilteredExtremum(const int* f, int x) {
    const int before = f[ringAt(x, -1)];
    const int here = f[x];
    const int after = f[ringAt(x, 1)];
    if (before <= here) return here >= after || before == here;
    return here <= after;
}

}  // namespace

std::vector<BeatMeasure> CBeatMeasure::MainPeakDiscern(int lead) {
    std::vector<BeatMeasure> beats;
    if (lead < 0 || lead >= kLeadRows) return beats;  // only one lead row exists

    nConvexPos = (nConvexPos >= kRingLength - 1 || nConvexPos < -1) ? 0 : nConvexPos + 1;
    const int p = nConvexPos;
    if (nRPeakThreshold[lead] < 30) return beats;

    const int* c = nConvexRing[lead];
    const int* a = nAbsRing[lead];
    const int* f = nFilteredRing[lead];
    const int cPrev = c[ringAt(p, -1)];
    const int cNext = c[ringAt(p, 1)];

    // Finds the absolute-ring maximum near `centre` inside the packet and accepts it only when it
    // is tall enough and sits on an extremum of the filtered wave. The span ends are plain
    // (unwrapped) max/min of the positions; a packet that wraps the ring end is simply not searched.
    auto locatePeakAround = [&](int centre, int& x) -> bool {
        const int lo = std::max(centre - kAbsSearchHalfSpan, nPacketStartPos);
        const int hi = std::min(centre + kAbsSearchHalfSpan, nPacketEndPos);
        if (lo >= hi) return false;
        int q = 0;
        lngFindLocalMaxLocation(nAbsRing[lead], lo, hi, kRingLength, q);
        // The walk from lo to hi - 1 can stop only at q; positions past 3999 never equal q.
        if (q < lo || q >= hi) return false;
        if (!(static_cast<double>(a[q]) >= 0.6 * static_cast<double>(nRHeightThreshold[lead])))
            return false;
        if (!isFilteredExtremum(f, q)) return false;
        x = q;
        return true;
    };

    // Single precision on purpose: hosts' detections were tuned with this rounding.
    const bool peak = static_cast<float>(c[p]) >= 0.5f * static_cast<float>(nRPeakThreshold[lead]) &&
                      c[p] >= cPrev && c[p] >= cNext;

    bool followArmed = false;  // true: go to the fall test
    if (peak && bQrsArmed == 0) {
        int mPos = 0;
        const int to = std::min(p + kLookAhead, nPacketEndPos);
        const int m = lngFindLocalMaxLocation(nConvexRing[lead], p, to, kRingLength, mPos);
        int x = 0;
        if (c[p] >= m && locatePeakAround(p, x)) {
            bQrsArmed = 1;
            nQrsPeakPos = x;
            followArmed = true;
        }
    } else if (peak && bQrsArmed == 1) {
        if (c[p] > c[ringAt(nQrsPeakPos)]) {
            int x = 0;
            if (locatePeakAround(p, x)) nQrsPeakPos = x;
        }
        followArmed = true;
    }

    if (!followArmed && bQrsArmed == 1) followArmed = true;

    if (followArmed) {
        // Fall test: the convex signal is at a local minimum below 30 % of the armed peak.
        if (static_cast<double>(c[ringAt(nQrsPeakPos)]) * 0.3 > static_cast<double>(c[p]) &&
            c[p] <= cPrev && c[p] <= cNext) {
            bQrsPassed = 1;
            bQrsArmed = 0;
        }
        nSinceLastPeak = rtm::wrapAdd32(nSinceLastPeak, 1);
        if (bQrsPassed == 0) return beats;
    } else {
        nSinceLastPeak = rtm::wrapAdd32(nSinceLastPeak, 1);
        if (bQrsPassed == 0) return beats;
    }

    // Refractory period: 60 % of the running reference interval since the last confirmation.
    if (nRefInterval > 0 &&
        static_cast<double>(nSinceLastPeak) < 0.6 * static_cast<double>(nRefInterval))
        return beats;

    const int r = nQrsPeakPos;
    const int l = confirmedPeak(*this, 0);
    if (r == l) return beats;
    if (l != 0 && rtm::heart::ringDistance(l, r) <= kPeakSpacingSamples) return beats;

    // Pushed before the QRS measurement: SaveQRSWave reads the peak before this one as
    // confirmedPeak(1).
    rtm::heart::pushRing(nPeakPosRing, nPeakPosRingPos, r);
    const int beatSlot = slotAt(nBeatPosRingPos);
    nBeatPosRing[beatSlot] = r;
    bQrsArmed = 0;
    bQrsPassed = 0;

    beats = GetBeatCharacter(r, lead);
    nSinceLastPeak = 0;

    // A slot of nBeatPosRing is kept while its peaks give no beat or an artefact.
    if (beats.empty() || beats.front().nBeatType == 4) return beats;
    bQrsArmed = 0;
    bQrsPassed = 0;
    nBeatPosRingPos = beatSlot == kBeatSlots - 1 ? 0 : beatSlot + 1;
    return beats;
}

std::vector<BeatMeasure> CBeatMeasure::GetBeatCharacter(int pos, int lead) {
    std::vector<BeatMeasure> beats;
    if (CalcRCharacter(pos, lead) == 0) return beats;

    const int n = rtm::heart::wrapModulo(static_cast<int64_t>(nCandidateHead) - nCandidatePos, kBeatSlots);
    if (n < 1) return beats;

    int slot = slotAt(nCandidatePos);
    for (int k = 0; k < n; ++k) {
        nCandidatePos = slot == kBeatSlots - 1 ? 0 : slot + 1;
        BeatMeasure record;
        if (GetBeatResult(slot, nLeadIndex, record)) beats.push_back(record);
        slot = nCandidatePos;
    }
    return beats;
}

int CBeatMeasure::CalcRCharacter(int pos, int lead) {
    if (lead < 0 || lead >= kLeadRows) return 0;
    int peak = 0;
    int height = 0;
    LocateMainPeakUnderRawWave(lead, nFilteredRing[lead], pos, kRingLength, peak, height);

    const int head = slotAt(nCandidateHead);
    // New peak first, stored candidate second: the distance runs from the peak forward to the
    // candidate, so these two tests only reject a peak that coincides with (or nearly laps) it.
    const int d = GetAnalysDataDistance(peak, stCandidateRing[head].nPosition);
    if (nMinRRInterval >= d) return 0;
    if (GetEcgMainPeak(peak, rtm::wrapMul32(2, nSampleRate)) >= 5000 && nSampleRate > d) return 0;

    IntPointLeadNum amplitude = {0, 0};
    if (GetMainPeakOriginalWave(peak, amplitude, head) == 0) return 0;

    const int saved = SaveQRSWave(lead, peak, head);
    if (saved == 0) return 0;

    const int newHead = slotAt(nCandidateHead);
    nMainPeakAmplitude[newHead] = amplitude.nPoint;
    CountBaseRPeak(newHead);
    return saved;
}

int CBeatMeasure::GetEcgMainPeak(int pos, int span) {
    if (span < 1) return -1024;
    const int* f = nFilteredRing[(nLeadIndex >= 0 && nLeadIndex < kLeadRows) ? nLeadIndex : 0];
    int hi = -512;
    int lo = 512;
    int x = ringAt(pos);
    // Past one full turn the ring only repeats itself, so the extremes are already known.
    const int steps = std::min(span, kRingLength);
    for (int k = 0; k < steps; ++k) {
        const int v = f[x];
        if (v > hi) hi = v;
        if (v < lo) lo = v;
        x = x == 0 ? kRingLength - 1 : x - 1;
    }
    return rtm::wrapSub32(hi, lo);
}

int CBeatMeasure::CountBaseRPeak(int slot) {
    int sum = 0;
    int count = 0;
    int j = slotAt(slot);
    for (int k = 0; k < kBeatSlots; ++k) {
        if (stCandidateRing[j].nBeatType == 1) {
            sum = rtm::wrapAdd32(sum, nMainPeakAmplitude[j]);
            ++count;
            if (count == 10) {
                nMeanRPeak = sum / 10;
                return nMeanRPeak;
            }
        }
        j = j == 0 ? kBeatSlots - 1 : j - 1;
    }
    if (count >= 1) nMeanRPeak = sum / count;
    return nMeanRPeak;
}

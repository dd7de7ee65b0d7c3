// Main-peak discrimination: one call per ring position of the packet decides whether a QRS main
// peak has been followed, passed and confirmed (idle -> armed -> passed -> confirmed), then drains
// the finished candidates into typed beats. Positions are 4000-sample ring indexes (5 ms each);
// amplitudes are filtered-ring counts (raw counts x 12.5 after the low-pass).
#include <algorithm>
#include <cstdint>
#include <vector>

#include "common/exact_math.h"
#include "common/kernels.h"
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

// Finds the absolute-ring maximum near `centre` inside the packet and accepts it only when it is
// tall enough and sits on an extremum of the filtered wave. The span ends are plain (unwrapped)
// max/min of the positions; a packet that wraps the ring end is simply not searched.
bool locatePeakAround(CBeatMeasure& m, int lead, int centre, int& x) {
    const int lo = std::max(centre - kAbsSearchHalfSpan, m.nPacketStartPos);
    const int hi = std::min(centre + kAbsSearchHalfSpan, m.nPacketEndPos);
    if (lo >= hi) return false;
    int q = 0;
    m.lngFindLocalMaxLocation(m.nAbsRing[lead], lo, hi, CBeatMeasure::kRingLength, q);
    // The walk from lo to hi - 1 can stop only at q; positions past 3999 never equal q.
    if (q < lo || q >= hi) return false;
    if (!(static_cast<double>(m.nAbsRing[lead][q]) >= 0.6 * static_cast<double>(m.nRHeightThreshold[lead])))
        return false;
    if (!isFilteredExtremum(m.nFilteredRing[lead], q)) return false;
    x = q;
    return true;
}

// Idle -> armed on a convex peak that dominates the next 30 samples; while armed, a higher
// convex peak moves the candidate. True while a candidate is being followed.
bool trackCandidate(CBeatMeasure& m, int lead, int p) {
    const int* c = m.nConvexRing[lead];
    // Single precision on purpose: hosts' detections were tuned with this rounding.
    const bool peak = static_cast<float>(c[p]) >= 0.5f * static_cast<float>(m.nRPeakThreshold[lead]) &&
                      c[p] >= c[ringAt(p, -1)] && c[p] >= c[ringAt(p, 1)];
    if (peak && m.bQrsArmed == 0) {
        int mPos = 0;
        const int to = std::min(p + kLookAhead, m.nPacketEndPos);
        const int mx = m.lngFindLocalMaxLocation(m.nConvexRing[lead], p, to, CBeatMeasure::kRingLength, mPos);
        int x = 0;
        if (!(c[p] >= mx && locatePeakAround(m, lead, p, x))) return false;
        m.bQrsArmed = 1;
        m.nQrsPeakPos = x;
        return true;
    }
    if (peak && m.bQrsArmed == 1 && c[p] > c[ringAt(m.nQrsPeakPos)]) {
        int x = 0;
        if (locatePeakAround(m, lead, p, x)) m.nQrsPeakPos = x;
    }
    return m.bQrsArmed == 1;
}

// Armed -> passed: the convex signal is at a local minimum below 30 % of the armed peak.
void testFall(CBeatMeasure& m, int lead, int p) {
    const int* c = m.nConvexRing[lead];
    if (static_cast<double>(c[ringAt(m.nQrsPeakPos)]) * 0.3 > static_cast<double>(c[p]) && c[p] <= c[ringAt(p, -1)] &&
        c[p] <= c[ringAt(p, 1)]) {
        m.bQrsPassed = 1;
        m.bQrsArmed = 0;
    }
}

// Passed -> confirmed: outside the refractory period and apart from the newest confirmed peak,
// the candidate is confirmed, measured and its finished candidates typed.
std::vector<BeatMeasure> confirmCandidate(CBeatMeasure& m, int lead) {
    // Refractory period: 60 % of the running reference interval since the last confirmation.
    if (m.nRefInterval > 0 && static_cast<double>(m.nSinceLastPeak) < 0.6 * static_cast<double>(m.nRefInterval))
        return {};

    const int r = m.nQrsPeakPos;
    const int l = confirmedPeak(m, 0);
    if (r == l) return {};
    if (l != 0 && rtm::heart::ringDistance(l, r) <= kPeakSpacingSamples) return {};

    // Pushed before the QRS measurement: SaveQRSWave reads the peak before this one as
    // confirmedPeak(1).
    rtm::heart::pushRing(m.nPeakPosRing, m.nPeakPosRingPos, r);
    const int beatSlot = slotAt(m.nBeatPosRingPos);
    m.nBeatPosRing[beatSlot] = r;
    m.bQrsArmed = 0;
    m.bQrsPassed = 0;

    std::vector<BeatMeasure> beats = m.GetBeatCharacter(r, lead);
    m.nSinceLastPeak = 0;

    // A slot of nBeatPosRing is kept while its peaks give no beat or an artefact.
    if (beats.empty() || beats.front().nBeatType == 4) return beats;
    m.nBeatPosRingPos = beatSlot == CBeatMeasure::kBeatSlots - 1 ? 0 : beatSlot + 1;
    return beats;
}

}  // namespace

std::vector<BeatMeasure> CBeatMeasure::MainPeakDiscern(int lead) {
    if (lead < 0 || lead >= kLeadRows) return {};  // only one lead row exists

    nConvexPos = (nConvexPos >= kRingLength - 1 || nConvexPos < -1) ? 0 : nConvexPos + 1;
    const int p = nConvexPos;
    if (nRPeakThreshold[lead] < 30) return {};

    if (trackCandidate(*this, lead, p)) testFall(*this, lead, p);
    nSinceLastPeak = rtm::wrapAdd32(nSinceLastPeak, 1);
    if (bQrsPassed == 0) return {};
    return confirmCandidate(*this, lead);
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
    const int x = ringAt(pos);
    // Past one full turn the ring only repeats itself, so the extremes are already known. The
    // span walked back from x is at most two stretches of the ring as stored.
    const int steps = std::min(span, kRingLength);
    const int newer = std::min(steps, x + 1);
    rtm::kernels::RangeStats r = rtm::kernels::rangeStats(f + (x + 1 - newer), newer);
    int hi = std::max(-512, r.mx);
    int lo = std::min(512, r.mn);
    if (steps > newer) {
        r = rtm::kernels::rangeStats(f + (kRingLength - (steps - newer)), steps - newer);
        hi = std::max(hi, r.mx);
        lo = std::min(lo, r.mn);
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

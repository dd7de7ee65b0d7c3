// Breath peak finding: one smoothed respiration window (conditioned counts, 25 samples/s) turned
// into alternating lists of breath peaks (local maxima) and troughs (local minima), as sample
// indexes into the window. Spacings are in samples, swings in the signal's own counts.
// The caller owns the lists; a range of N samples never yields more than N / 2 + 1 entries of
// either kind (candidates of one kind are at least two samples apart), which bounds them.
#include <cstdint>

#include "common/exact_math.h"
#include "common/kernels.h"
#include "rtmonitor/CBreathPro.h"

namespace {

// |a - b| as 32-bit hardware arithmetic gives it: wraps for inputs far apart.
int32_t swingBetween(int32_t a, int32_t b) { return rtm::wrapAbs32(rtm::wrapSub32(a, b)); }

// The adaptive test once five peaks and five troughs exist. `amp` is the candidate's swing from
// the newest opposite extremum, `a1`/`a2` the last two half-breaths, `dOpp` the distance to the
// newest opposite extremum, `halfGap` the half spacing used on this side.
bool acceptAdaptive(int32_t amp, int32_t a1, int32_t a2, int64_t dOpp, int64_t halfGap) {
    const int32_t big = a1 > a2 ? a1 : a2;
    const int32_t small = a1 < a2 ? a1 : a2;
    const double ampD = static_cast<double>(amp);
    if (ampD > 0.3 * static_cast<double>(small) && dOpp > halfGap) return true;
    if (ampD > 0.5 * static_cast<double>(small) && dOpp > 9) return true;
    if (dOpp > 250) return true;
    return amp > big;
}

}  // namespace

void CBreathPro::FindPeakMinMax(int* data, int nStart, int nEnd, int nMinDist, int* pPeakLoc, int* pTroughLoc,
                                int* pPeakNum, int* pTroughNum) {
    // Widened so that a range at the ends of the int range cannot overflow the bounds.
    const int64_t first = static_cast<int64_t>(nStart) + 1;
    const int64_t stop = static_cast<int64_t>(nEnd) - 1;
    if (stop <= first) {
        *pPeakNum = 0;
        *pTroughNum = 0;
        return;
    }
    const int64_t minDist = nMinDist;
    const int64_t nHalfDist = nMinDist / 2;
    const int64_t nHalfDistWide = nHalfDist + 2;

    int np = 0;
    int nt = 0;
    bool started = false;
    bool lastWasPeak = false;

    // Only turning points change the lists; the stretches between them are skipped in bulk.
    for (int64_t pos = rtm::kernels::nextTurn(data, first, stop); pos < stop;
         pos = rtm::kernels::nextTurn(data, pos + 1, stop)) {
        const int i = static_cast<int>(pos);
        const int32_t x = data[i];
        const int32_t p = data[i - 1];
        const int32_t n = data[i + 1];

        if (x > p && x >= n) {
            if (!started) {
                pPeakLoc[np++] = i;
                started = true;
                lastWasPeak = true;
            } else if (lastWasPeak) {
                // The higher of two peaks with no trough between them wins; ties keep the earlier.
                // Before any peak is accepted there is nothing to replace.
                if (np > 0 && x > data[pPeakLoc[np - 1]]) pPeakLoc[np - 1] = i;
            } else if (np == 0) {
                if (nt > 0 && pos - pTroughLoc[0] > nHalfDist) pPeakLoc[np++] = i;
                // Set even when the candidate is refused: the next trough is then judged as one
                // following a peak, which existing outputs depend on.
                lastWasPeak = true;
            } else if (nt == 0) {
                if (pos - pPeakLoc[np - 1] > minDist) {
                    pPeakLoc[np++] = i;
                    lastWasPeak = true;
                }
            } else if (!(np > 4 && nt > 4)) {
                if (pos - pPeakLoc[np - 1] > minDist && pos - pTroughLoc[nt - 1] > nHalfDistWide) {
                    pPeakLoc[np++] = i;
                    lastWasPeak = true;
                }
            } else {
                const int32_t vp = data[pPeakLoc[np - 1]];
                const int32_t vt1 = data[pTroughLoc[nt - 1]];
                const int32_t vt2 = data[pTroughLoc[nt - 2]];
                const int32_t amp = swingBetween(x, vt1);
                const int64_t dT = pos - pTroughLoc[nt - 1];
                if (amp > 100 && pos - pPeakLoc[np - 1] > minDist &&
                    acceptAdaptive(amp, swingBetween(vp, vt1), swingBetween(vp, vt2), dT, nHalfDist)) {
                    pPeakLoc[np++] = i;
                    lastWasPeak = true;
                }
            }
        } else if (x < p && x <= n) {
            if (!started) {
                pTroughLoc[nt++] = i;
                started = true;
                lastWasPeak = false;
            } else if (!lastWasPeak) {
                if (nt > 0 && x < data[pTroughLoc[nt - 1]]) pTroughLoc[nt - 1] = i;
            } else if (nt == 0) {
                if (np > 0 && pos - pPeakLoc[0] > nHalfDist) pTroughLoc[nt++] = i;
                lastWasPeak = false;  // set whether or not accepted, as on the peak side
            } else if (np == 0) {
                if (pos - pTroughLoc[nt - 1] > minDist) {
                    pTroughLoc[nt++] = i;
                    lastWasPeak = false;
                }
            } else if (!(np > 4 && nt > 4)) {
                if (pos - pTroughLoc[nt - 1] > minDist && pos - pPeakLoc[np - 1] > nHalfDistWide) {
                    pTroughLoc[nt++] = i;
                    lastWasPeak = false;
                }
            } else {
                const int32_t vt = data[pTroughLoc[nt - 1]];
                const int32_t vp1 = data[pPeakLoc[np - 1]];
                const int32_t vp2 = data[pPeakLoc[np - 2]];
                const int32_t amp = swingBetween(x, vp1);
                const int64_t dP = pos - pPeakLoc[np - 1];
                // The trough side keeps the wider half spacing where the peak side uses the
                // plain one; rates on record depend on this asymmetry.
                if (amp > 100 && pos - pTroughLoc[nt - 1] > minDist &&
                    acceptAdaptive(amp, swingBetween(vt, vp1), swingBetween(vt, vp2), dP, nHalfDistWide)) {
                    pTroughLoc[nt++] = i;
                    lastWasPeak = false;
                }
            }
        }
    }
    *pPeakNum = np;
    *pTroughNum = nt;
}

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

// The lists under construction while the window is walked from turning point to turning point.
// Index 0 holds the peaks, index 1 the troughs.
struct ExtremaWalk {
    const int* data;
    int64_t minDist;       // least spacing between two extrema of one kind
    int64_t halfDist;      // least spacing from the first opposite extremum
    int64_t halfDistWide;  // least spacing from the newest opposite extremum in the early phase
    int* loc[2];
    int num[2];
    bool started;
    bool lastWasPeak;
};

// Appends the candidate at `pos` to the list of kind `side` and remembers which kind came last.
void accept(ExtremaWalk& w, int side, int64_t pos) {
    w.loc[side][w.num[side]++] = static_cast<int>(pos);
    w.lastWasPeak = side == 0;
}

// A candidate following one of its own kind: the more extreme of the two wins (the higher peak,
// the lower trough); ties keep the earlier. Before any is accepted there is nothing to replace.
void replaceIfBeyond(ExtremaWalk& w, int side, int64_t pos) {
    const int n = w.num[side];
    if (n == 0) return;
    const int32_t x = w.data[pos];
    const int32_t last = w.data[w.loc[side][n - 1]];
    if (side == 0 ? x > last : x < last) w.loc[side][n - 1] = static_cast<int>(pos);
}

// A candidate once five peaks and five troughs exist: it must swing more than 100 counts from
// the newest opposite extremum and pass the adaptive test. `halfGap` differs between the sides.
bool passesAdaptive(const ExtremaWalk& w, int side, int64_t pos, int64_t halfGap) {
    const int opp = 1 - side;
    const int* same = w.loc[side];
    const int* other = w.loc[opp];
    const int ns = w.num[side];
    const int no = w.num[opp];
    const int32_t vSame = w.data[same[ns - 1]];
    const int32_t vOpp1 = w.data[other[no - 1]];
    const int32_t vOpp2 = w.data[other[no - 2]];
    const int32_t amp = swingBetween(w.data[pos], vOpp1);
    const int64_t dOpp = pos - other[no - 1];
    return amp > 100 && pos - same[ns - 1] > w.minDist &&
           acceptAdaptive(amp, swingBetween(vSame, vOpp1), swingBetween(vSame, vOpp2), dOpp, halfGap);
}

// A candidate of kind `side` following one of the other kind.
void considerAfterOpposite(ExtremaWalk& w, int side, int64_t pos, int64_t adaptiveHalfGap) {
    const int opp = 1 - side;
    const int* same = w.loc[side];
    const int* other = w.loc[opp];
    const int ns = w.num[side];
    const int no = w.num[opp];
    if (ns == 0) {
        if (no > 0 && pos - other[0] > w.halfDist) accept(w, side, pos);
        // Set even when the candidate is refused: the next one of the other kind is then judged
        // as following this kind, which existing outputs depend on.
        w.lastWasPeak = side == 0;
    } else if (no == 0) {
        if (pos - same[ns - 1] > w.minDist) accept(w, side, pos);
    } else if (!(ns > 4 && no > 4)) {
        if (pos - same[ns - 1] > w.minDist && pos - other[no - 1] > w.halfDistWide) accept(w, side, pos);
    } else if (passesAdaptive(w, side, pos, adaptiveHalfGap)) {
        accept(w, side, pos);
    }
}

// One turning point of kind `side` (0 peak, 1 trough).
void considerExtremum(ExtremaWalk& w, int side, int64_t pos, int64_t adaptiveHalfGap) {
    if (!w.started) {
        w.started = true;
        accept(w, side, pos);
    } else if (w.lastWasPeak == (side == 0)) {
        replaceIfBeyond(w, side, pos);
    } else {
        considerAfterOpposite(w, side, pos, adaptiveHalfGap);
    }
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
    const int64_t nHalfDist = nMinDist / 2;
    ExtremaWalk w{data, nMinDist, nHalfDist, nHalfDist + 2, {pPeakLoc, pTroughLoc}, {0, 0}, false, false};

    // Only turning points change the lists; the stretches between them are skipped in bulk.
    // The trough side keeps the wider half spacing in its adaptive test where the peak side uses
    // the plain one; rates on record depend on this asymmetry.
    for (int64_t pos = rtm::kernels::nextTurn(data, first, stop); pos < stop;
         pos = rtm::kernels::nextTurn(data, pos + 1, stop)) {
        const int32_t x = data[pos];
        const int32_t p = data[pos - 1];
        const int32_t n = data[pos + 1];
        if (x > p && x >= n) {
            considerExtremum(w, 0, pos, w.halfDist);
        } else if (x < p && x <= n) {
            considerExtremum(w, 1, pos, w.halfDistWide);
        }
    }
    *pPeakNum = w.num[0];
    *pTroughNum = w.num[1];
}

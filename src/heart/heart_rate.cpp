// The heart rate in beats per minute (0, or 30..300) from the beat history: the trimmed mean of
// the RR intervals in stBeatRing (samples of 5 ms) once there are enough of them, a median of the
// last five start-up rates before that, and the held rate while no new beat arrives. Writes
// nRateValid, nNoNewBeatCount, nRateHistory and, after ten packets without a beat, restarts the
// search through Init_NOBeat.
#include <algorithm>
#include <cmath>

#include "common/exact_math.h"
#include "heart/driver_stages.h"
#include "heart/ring.h"

namespace rtm {
namespace heart {
namespace {

constexpr int kMinCountedRR = 40;        // RR intervals below 40 samples (200 ms) are not counted
constexpr int kRelearnAfterPackets = 5;  // packets without a beat before the thresholds relearn
constexpr int kRestartAfterPackets = 9;  // ... and before the search restarts

int clampRate(int r) {
    if (r > 0) r = std::min(300, std::max(30, r));
    return r;
}

// A rate is established once the mean produced one or the first minute is over.
bool established(const CBeatMeasure& m) { return m.nRateValid != 0 || m.nCallCount > kStartupCalls; }

// Start-up median of the last five rates: any of the middle three at 0 gives 0.
int startupMedianRate(CBeatMeasure& m, int r) {
    pushRing(m.nRateHistory, m.nRateHistoryPos, r);
    int sorted[5];
    std::copy(m.nRateHistory, m.nRateHistory + 5, sorted);
    sortAscending(sorted, 5);
    if (sorted[2] == 0 || sorted[3] == 0 || sorted[1] == 0) return 0;
    return clampRate(wrapAdd32(wrapAdd32(sorted[1], sorted[2]), sorted[3]) / 3);
}

// No beat to go by: the held rate once established, otherwise a 0 into the start-up median.
int rateWithoutBeats(CBeatMeasure& m) {
    if (established(m)) return clampRate(m.nLastHeartRate);
    return startupMedianRate(m, 0);
}

// The mean-interval rate r (0 when there is none), the held rate standing in for 0.
int rateFromMean(CBeatMeasure& m, int r) {
    if (established(m)) return clampRate(r == 0 ? m.nLastHeartRate : r);
    return startupMedianRate(m, r);
}

int rateOnNewBeat(CBeatMeasure& m) {
    const int r = m.CountMeanHR();
    m.nNoNewBeatCount = 0;
    if (r >= 1) {
        m.nRateValid = 1;
        return clampRate(r);
    }
    if (m.nCallCount > kStartupCalls || m.nRateValid == 1) return rateFromMean(m, r);
    // Start-up with too few intervals for the mean: the newest interval alone.
    const int rr = m.stBeatRing[slotAt(m.nBeatRingPos, -1)].nRRInterval;
    return startupMedianRate(m, inRange(rr, 40, 400) ? static_cast<int>(std::floor(12000.0 / rr + 0.5)) : 0);
}

int rateWithoutNewBeat(CBeatMeasure& m) {
    m.nNoNewBeatCount = wrapAdd32(m.nNoNewBeatCount, 1);
    if (m.nNoNewBeatCount > kRelearnAfterPackets) {
        m.GetRPeakHeightInitValue(5);
        if (m.GetRHeightInitValue(5)) m.nThresholdReady = 1;
        std::fill(m.nPeakPosRing, m.nPeakPosRing + kPeakSlots, 0);
        m.nPeakPosRingPos = 0;
    }
    if (m.nNoNewBeatCount > kRestartAfterPackets) {
        m.nNoNewBeatCount = 0;
        m.Init_NOBeat(m.stReinitSetting);
        return rateWithoutBeats(m);
    }
    return rateFromMean(m, m.CountMeanHR());
}

}  // namespace

int rateFromBeats(CBeatMeasure& m, bool newBeat) {
    if (m.nLargeWaveFlag != 0) return clampRate(m.nLastHeartRate);
    if (newBeat) return rateOnNewBeat(m);
    if (m.nBeatRingStarted != 0) return rateWithoutNewBeat(m);
    return rateWithoutBeats(m);
}

}  // namespace heart
}  // namespace rtm

int CBeatMeasure::CountMeanHR() {
    using rtm::heart::kMinCountedRR;
    using rtm::heart::slotAt;
    int all[kBeatSlots];
    int nAll = 0;
    for (int s = 0; s < kBeatSlots; ++s) {
        if (stBeatRing[s].nRRInterval >= kMinCountedRR) all[nAll++] = stBeatRing[s].nRRInterval;
    }
    int recent[10];
    int nRecent = 0;
    for (int k = 1; k <= 10; ++k) {
        const int rr = stBeatRing[slotAt(nBeatRingPos, -k)].nRRInterval;
        if (rr >= kMinCountedRR) recent[nRecent++] = rr;
    }
    if (nAll < 11) return nMeanHeartRate;

    const int scale = rtm::wrapMul32(60, nSampleRate);
    rtm::heart::sortAscending(all, nAll);
    const int dropLow = nAll < 16 ? 4 : 6;
    const int kept = nAll - dropLow - 4;
    int r1 = 0;
    if (kept >= 3) {
        int sum = 0;
        for (int k = dropLow; k < dropLow + kept; ++k) sum = rtm::wrapAdd32(sum, all[k]);
        const int mean = sum / kept;
        r1 = mean > 0 ? rtm::truncDiv32(scale, mean) : 0;
    }
    if (nRecent < 8) return r1;

    // Eight or more recent intervals: their middle band overrides the long mean.
    rtm::heart::sortAscending(recent, nRecent);
    int sum = 0;
    int n = 0;
    for (int k = 3; k <= 6; ++k) {
        if (recent[k] > 0) {
            sum = rtm::wrapAdd32(sum, recent[k]);
            ++n;
        }
    }
    if (n > 1) return rtm::truncDiv32(scale, sum / n);
    return 0;
}

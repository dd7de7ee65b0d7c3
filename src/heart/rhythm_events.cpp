// Rhythm events from the confirmed-beat history (stBeatRing): a small event code for the last
// 15 beats (premature-beat runs, couplets, triplets) and an irregularity test of the last 18 RR
// intervals for atrial fibrillation (code 14). Intervals are samples of 5 ms, rates beats/min.
// Neither is called by the frame pipeline; hosts call them on demand.
#include <algorithm>
#include <cstdint>

#include "common/exact_math.h"
#include "heart/ring.h"
#include "rtmonitor/CBeatMeasure.h"

using rtm::heart::slotAt;

namespace {

constexpr int kEventBeats = 15;
constexpr int kFibrillationBeats = 18;

// One event list: beat offsets k, oldest unbroken chain kept (never more than 15 entries).
struct OffsetList {
    int k[kEventBeats];
    int n = 0;
    void add(int v) { k[n++] = v; }
    // Chained lists restart when the new offset lies too far from the last one.
    void addChained(int v, int gapLimit) {
        if (n > 0 && v - k[n - 1] > gapLimit) n = 0;
        add(v);
    }
};

}  // namespace

int CBeatMeasure::GetEventType(int i) {
    const int msPerSample = rtm::truncDiv32(1000, nSampleRate);
    OffsetList lists[15];
    OffsetList artefacts;

    for (int k = 0; k < kEventBeats; ++k) {
        const BeatMeasure& b = stBeatRing[slotAt(static_cast<int64_t>(i) - k)];
        const int pType = stBeatRing[slotAt(static_cast<int64_t>(i) - k - 1)].nBeatType;
        const int qType = stBeatRing[slotAt(static_cast<int64_t>(i) - k - 2)].nBeatType;
        if (b.nHeartRate <= 0) continue;
        switch (b.nBeatType) {
            case 1: {
                const int ms = rtm::wrapMul32(b.nRRInterval, msPerSample);
                if (ms >= 3000 && ms <= 10000) {
                    lists[1].add(k);
                } else if (b.nHeartRate < 51) {
                    lists[2].addChained(k, 1);
                } else if (b.nHeartRate > 99) {
                    lists[3].addChained(k, 1);
                }
                break;
            }
            case 2:
                if (pType == 1) {
                    if (qType == 1) lists[7].addChained(k, 3);
                    else lists[6].addChained(k, 2);
                }
                if (pType == 2) {
                    if (qType == 2) lists[8].add(k);
                    else lists[5].addChained(k, 2);
                }
                lists[4].add(k);
                break;
            case 3:
                if (pType == 1) {
                    if (qType == 1) lists[12].addChained(k, 3);
                    else lists[11].addChained(k, 2);
                }
                if (pType == 3) {
                    if (qType == 3) lists[13].add(k);
                    else lists[10].addChained(k, 2);
                }
                lists[9].add(k);
                break;
            case 4:
                artefacts.add(k);
                break;
            default:
                break;
        }
    }

    int base = 0;
    if (artefacts.n >= 5) {
        base = 0;
    } else if (lists[14].n >= 5) {  // list 14 is never filled; the rule stays for hosts' codes
        base = 14;
    } else if (lists[13].n > 0) {
        base = 13;
    } else if (lists[8].n > 0) {
        base = 8;
    } else if (lists[12].n >= 3) {
        return 12;
    } else if (lists[7].n >= 3) {
        return 7;
    } else if (lists[11].n >= 3) {
        return 11;
    } else if (lists[6].n >= 3) {
        return 6;
    }
    return AtrialFibrillationAnalysis(i) ? 14 : base;
}

bool CBeatMeasure::AtrialFibrillationAnalysis(int i) {
    int diffs[kFibrillationBeats];
    int count = 0;
    int sumRR = 0;
    int sumD = 0;
    for (int k = 0; k < kFibrillationBeats; ++k) {
        const BeatMeasure& b = stBeatRing[slotAt(static_cast<int64_t>(i) - k)];
        if (b.nHeartRate <= 0 || b.nBeatType == 3 || b.nBeatType == 4) continue;
        const int before = stBeatRing[slotAt(static_cast<int64_t>(i) - k - 1)].nRRInterval;
        const int d = rtm::wrapAbs32(rtm::wrapSub32(b.nRRInterval, before));
        sumRR = rtm::wrapAdd32(sumRR, b.nRRInterval);
        sumD = rtm::wrapAdd32(sumD, d);
        diffs[count++] = d;
    }
    std::sort(diffs, diffs + count);
    const int m = count / 2 - 1;
    if (count < 16) return false;

    const int meanRR = sumRR / count;
    int sumDev = 0;
    for (int k = 0; k < kFibrillationBeats; ++k) {
        const BeatMeasure& b = stBeatRing[slotAt(static_cast<int64_t>(i) - k)];
        if (b.nHeartRate <= 0) continue;
        sumDev = rtm::wrapAdd32(sumDev, rtm::wrapAbs32(rtm::wrapSub32(b.nRRInterval, meanRR)));
    }
    const int rD = sumRR < 1 ? 0 : rtm::truncDiv32(rtm::wrapMul32(sumD, 100), sumRR);
    const int rDev = sumRR < 1 ? 0 : rtm::truncDiv32(rtm::wrapMul32(sumDev, 100), sumRR);

    if (m < 1) return false;
    int lowSum = 0;
    for (int k = 0; k < m; ++k) lowSum = rtm::wrapAdd32(lowSum, diffs[k]);
    const int lowMean = lowSum / m;
    int lowDev = 0;
    for (int k = 0; k < m; ++k) lowDev = rtm::wrapAdd32(lowDev, rtm::wrapAbs32(rtm::wrapSub32(diffs[k], lowMean)));
    if (lowMean <= 25) return false;
    const int irr = rtm::truncDiv32(rtm::wrapMul32(lowDev, 100), lowMean) / m;

    // The first clause is implied by the second; both stay, in this order, as hosts know them.
    if (rD > 25 && rDev > 25 && irr > 10) return true;
    return irr > 9;
}

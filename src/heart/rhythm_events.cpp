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

// Event lists 0..14 (0 and 14 are never filled) and the artefact list.
struct EventLists {
    OffsetList list[15];
    OffsetList artefacts;
};

// The list numbers of one early-beat type (2 or 3).
struct EarlyBeatLists {
    int all;             // every early beat of the type
    int secondOfRun;     // after one of the same type (chained, gap 2)
    int thirdOfRun;      // after two of the same type
    int afterOneNormal;  // after a regular beat not itself after one (chained, gap 2)
    int afterTwoNormal;  // after two regular beats (chained, gap 3)
};
constexpr EarlyBeatLists kType2Lists{4, 5, 8, 6, 7};
constexpr EarlyBeatLists kType3Lists{9, 10, 13, 11, 12};

void addRegularBeat(EventLists& e, const BeatMeasure& b, int k, int msPerSample) {
    const int ms = rtm::wrapMul32(b.nRRInterval, msPerSample);
    if (ms >= 3000 && ms <= 10000) {
        e.list[1].add(k);
    } else if (b.nHeartRate < 51) {
        e.list[2].addChained(k, 1);
    } else if (b.nHeartRate > 99) {
        e.list[3].addChained(k, 1);
    }
}

void addEarlyBeat(EventLists& e, const EarlyBeatLists& ix, int type, int k, int pType, int qType) {
    if (pType == 1) {
        if (qType == 1) e.list[ix.afterTwoNormal].addChained(k, 3);
        else e.list[ix.afterOneNormal].addChained(k, 2);
    }
    if (pType == type) {
        if (qType == type) e.list[ix.thirdOfRun].add(k);
        else e.list[ix.secondOfRun].addChained(k, 2);
    }
    e.list[ix.all].add(k);
}

// The code the lists give. `decided` is false when the fibrillation test still overrides it.
int codeFromLists(const EventLists& e, bool& decided) {
    decided = false;
    if (e.artefacts.n >= 5) return 0;
    if (e.list[14].n >= 5) return 14;  // list 14 is never filled; the rule stays for hosts' codes
    if (e.list[13].n > 0) return 13;
    if (e.list[8].n > 0) return 8;
    decided = true;
    for (const int code : {12, 7, 11, 6}) {
        if (e.list[code].n >= 3) return code;
    }
    decided = false;
    return 0;
}

}  // namespace

int CBeatMeasure::GetEventType(int i) {
    const int msPerSample = rtm::truncDiv32(1000, nSampleRate);
    EventLists e;
    for (int k = 0; k < kEventBeats; ++k) {
        const BeatMeasure& b = stBeatRing[slotAt(i, -static_cast<int64_t>(k))];
        const int pType = stBeatRing[slotAt(i, -static_cast<int64_t>(k) - 1)].nBeatType;
        const int qType = stBeatRing[slotAt(i, -static_cast<int64_t>(k) - 2)].nBeatType;
        if (b.nHeartRate <= 0) continue;
        if (b.nBeatType == 1) addRegularBeat(e, b, k, msPerSample);
        if (b.nBeatType == 2) addEarlyBeat(e, kType2Lists, 2, k, pType, qType);
        if (b.nBeatType == 3) addEarlyBeat(e, kType3Lists, 3, k, pType, qType);
        if (b.nBeatType == 4) e.artefacts.add(k);
    }
    bool decided = false;
    const int code = codeFromLists(e, decided);
    if (decided) return code;
    return AtrialFibrillationAnalysis(i) ? 14 : code;
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

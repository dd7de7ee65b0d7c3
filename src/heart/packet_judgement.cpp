// Disturbed packets: a packet whose peak-to-peak amplitude (counts) is over range, or more than
// 2.2 times the typical amplitude of the last ten packets, restarts the main-peak search and
// holds the reported rate. Six large packets in a row become the new normal. Writes
// nWavePeakRing, nLargeWaveCount, nLargeWaveFlag, nOverRangeFlag, nSettleCount, nHoldCount and
// the search state restartSearch names.
#include <algorithm>

#include "common/exact_math.h"
#include "heart/driver_stages.h"
#include "heart/ring.h"

namespace rtm {
namespace heart {
namespace {

constexpr int kOverRangeCounts = 950;     // packet peak-to-peak above this is over range
constexpr int kLargePacketsAccepted = 6;  // this many large packets in a row become the new normal
constexpr int kHoldPackets = 5;           // held packets after which detection resumes anyway

// Typical amplitude: mean of the positive values among the 3rd..8th smallest of the last ten.
int typicalAmplitude(const CBeatMeasure& m) {
    int sorted[10];
    std::copy(m.nWavePeakRing, m.nWavePeakRing + 10, sorted);
    sortAscending(sorted, 10);
    int sum = 0;
    int n = 0;
    for (int k = 2; k <= 7; ++k) {
        if (sorted[k] > 0) {
            sum = wrapAdd32(sum, sorted[k]);
            ++n;
        }
    }
    return n >= 5 ? sum / n : 0;
}

void restartSearch(CBeatMeasure& m) {
    m.nSecondsCount = 0;
    m.nThresholdReady = 0;
    std::fill(m.nPeakPosRing, m.nPeakPosRing + kPeakSlots, 0);
    m.nPeakPosRingPos = 0;
}

// A packet far larger than the typical one. True when the rate is to be held.
bool judgeLargePacket(CBeatMeasure& m) {
    m.nLargeWaveFlag = 1;
    m.nOverRangeFlag = 1;
    m.nSettleCount = 1;
    restartSearch(m);
    m.nLargeWaveCount = wrapAdd32(m.nLargeWaveCount, 1);
    if (m.nLargeWaveCount < kLargePacketsAccepted) {
        m.nSettleCount = 2;
        return true;
    }
    // The larger amplitude has lasted long enough to be the new normal.
    m.nNoNewBeatCount = 0;
    std::fill(m.nWavePeakRing, m.nWavePeakRing + 10, 0);
    m.nThresholdReady = 1;
    m.nOverRangeFlag = 0;
    m.nSettleCount = 0;
    m.nLargeWaveFlag = 0;
    return false;
}

// True when the rate is to be held for this packet.
bool judgeAmplitude(CBeatMeasure& m, int amplitude) {
    // From the ten packets before this one.
    const int typical = typicalAmplitude(m);
    if (amplitude > kOverRangeCounts) {
        m.nLargeWaveCount = 0;
        m.nOverRangeFlag = 1;
        restartSearch(m);
        m.nSettleCount = 2;
        return true;
    }
    pushRing(m.nWavePeakRing, m.nWavePeakRingPos, amplitude);
    if (typical != 0 && !(static_cast<double>(typical) * 2.2 > static_cast<double>(amplitude)))
        return judgeLargePacket(m);

    m.nLargeWaveCount = 0;
    m.nLargeWaveFlag = 0;
    if (inRange(m.nSettleCount, 1, 19)) {
        ++m.nSettleCount;
        if (m.nSettleCount == 16) m.nSettleCount = 0;
    }
    return m.nOverRangeFlag == 1;
}

}  // namespace

void judgePacket(CBeatMeasure& m, int amplitude) {
    if (!judgeAmplitude(m, amplitude)) return;
    m.nLargeWaveFlag = 1;
    m.nNoNewBeatCount = 0;
    m.nHoldCount = wrapAdd32(m.nHoldCount, 1);
    if (m.nHoldCount > kHoldPackets) {
        m.nThresholdReady = 1;
        m.nHoldCount = 0;
        m.nOverRangeFlag = 0;
    }
}

}  // namespace heart
}  // namespace rtm

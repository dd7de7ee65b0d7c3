// The two walks over one packet's ring positions. The first hands each ECG count to the
// conditioning chain (conditioning.cpp), which fills the detection rings and the short-time
// energy ring, and collects the display waveform (counts on an offset of 512) and the
// half-threshold energy crossings. The second walks the same positions again: at each whole
// second it learns the thresholds (nRPeakThreshold, nRHeightThreshold, nThresholdReady), and
// while they are ready it runs the main-peak search and stores finished beats in stBeatRing.
#include <vector>

#include "common/exact_math.h"
#include "heart/conditioning.h"
#include "heart/driver_stages.h"
#include "heart/ring.h"

namespace rtm {
namespace heart {
namespace {

constexpr int kLearnSpanSamples = 600;  // start-up thresholds: maxima of the last 3 s

// Start-up thresholds: plain maxima of the last 3 s, so detection begins at once.
void takeStartupMaxima(CBeatMeasure& m) {
    const int from = ringAt(m.nRingPos, -(kLearnSpanSamples - 1));
    const int to = ringAt(m.nRingPos, 1);
    int where = 0;
    m.nRPeakThreshold[0] = m.lngFindLocalMaxLocation(m.nConvexRing[0], from, to, kRingLength, where);
    m.nRHeightThreshold[0] = m.lngFindLocalMaxLocation(m.nAbsRing[0], from, to, kRingLength, where);
    m.nThresholdReady = 1;
}

void learnFromLastSeconds(CBeatMeasure& m, int seconds) {
    m.GetRPeakHeightInitValue(seconds);
    if (m.GetRHeightInitValue(seconds)) m.nThresholdReady = 1;
}

// Before the thresholds are ready. True while the analysis is in its first minute.
bool learnFirstThresholds(CBeatMeasure& m, bool settlingShort, bool settlingLong) {
    if (m.nSecondsCount < 2) return false;  // too little signal yet
    if (m.nCallCount <= kStartupCalls) {
        if (!settlingShort) takeStartupMaxima(m);
        return true;
    }
    if (m.nSecondsCount >= 5 && !settlingLong) learnFromLastSeconds(m, 5);
    return false;
}

// Threshold learning at each whole second of the detection pass.
void learnThresholdsOnSecond(CBeatMeasure& m) {
    const bool settlingShort = inRange(m.nSettleCount, 1, 5);
    const bool settlingLong = inRange(m.nSettleCount, 1, 7);
    const bool early =
        m.nThresholdReady == 0 ? learnFirstThresholds(m, settlingShort, settlingLong) : m.nCallCount <= kStartupCalls;
    if (early && !settlingLong && m.nSecondsCount > 4) learnFromLastSeconds(m, 5);

    if (m.nSecondsCount % 10 == 0 && (m.nSettleCount == 0 || m.nSettleCount > 13)) {
        m.GetRPeakHeightInitValue(10);
        m.GetRHeightInitValue(10);
    }
    if (m.nSecondsCount > 3999) m.nSecondsCount = 0;
}

// Counts one sample into the current second and learns at each whole second. False when the
// second ended during a disturbance: the search restarts and this position is not examined.
bool countSample(CBeatMeasure& m) {
    m.nSampleInSecond = wrapAdd32(m.nSampleInSecond, 1);
    if (m.nSampleInSecond < m.nSampleRate) return true;
    m.nSampleInSecond = 0;
    m.nSecondsCount = wrapAdd32(m.nSecondsCount, 1);
    if (m.nLargeWaveFlag != 0) {
        m.nSecondsCount = 0;
        m.nThresholdReady = 0;
        return false;
    }
    learnThresholdsOnSecond(m);
    return true;
}

// True when at least one of the beats advanced the beat ring.
bool storeBeats(CBeatMeasure& m, const std::vector<BeatMeasure>& beats) {
    bool stored = false;
    for (const BeatMeasure& beat : beats) {
        const int slot = slotAt(m.nBeatRingPos);
        m.stBeatRing[slot] = beat;
        if (m.nBeatRingStarted != 0) {
            m.nBeatRingPos = slot == kBeatSlots - 1 ? 0 : slot + 1;
            stored = true;
        } else {
            // The first beat after a reset is overwritten by the second: a lone first
            // detection never enters the rate history.
            m.nBeatRingStarted = 1;
        }
    }
    return stored;
}

}  // namespace

int conditionPacket(CBeatMeasure& m, int /*channel: one lead is conditioned*/, const int* samples, int count,
                    int* waveOut) {
    int energyCrossings = 0;
    PacketConditioning packet;
    for (int i = 0; i < count; ++i) {
        if (conditionDetectionSample(m, samples[i], waveOut != nullptr ? waveOut + i : nullptr, packet))
            ++energyCrossings;
    }
    return energyCrossings;
}

bool detectBeats(CBeatMeasure& m, int count) {
    m.nPacketEndPos = ringAt(m.nRingPos);
    m.nPacketStartPos = ringAt(m.nRingPos, -(kPacketSamples - 1));
    const int walkStart = ringAt(m.nRingPos, -kPacketSamples);
    m.nConvexPos = ringAt(walkStart, -kConvexDelay);
    m.nRingPos = walkStart;
    bool newBeat = false;
    for (int i = 0; i < count; ++i) {
        m.nRingPos = m.nRingPos >= kRingLength - 1 ? 0 : m.nRingPos + 1;
        if (!countSample(m) || m.nThresholdReady != 1) continue;
        if (storeBeats(m, m.MainPeakDiscern(0))) newBeat = true;
    }
    return newBeat;
}

}  // namespace heart
}  // namespace rtm

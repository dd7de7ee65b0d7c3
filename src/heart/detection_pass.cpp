// The two walks over one packet's ring positions. The first conditions each ECG count into the
// detection rings (nFilteredRing, nAbsRing, nConvexRing at nRingPos) and the short-time energy
// ring, and writes the display waveform (counts on an offset of 512). The second walks the same
// positions again: at each whole second it learns the thresholds (nRPeakThreshold,
// nRHeightThreshold, nThresholdReady), and while they are ready it runs the main-peak search and
// stores finished beats in stBeatRing.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "common/exact_math.h"
#include "heart/driver_stages.h"
#include "heart/ring.h"

namespace rtm {
namespace heart {
namespace {

constexpr int kLearnSpanSamples = 600;  // start-up thresholds: maxima of the last 3 s
constexpr int kConvexDelay = 3;         // the convex value at p is complete three samples later
constexpr int kEnergyWindow = 10;       // entries of nEnergyWindow

// One term of the window's energy, as 32-bit unsigned arithmetic gives it.
uint32_t energyTerm(int v) {
    const uint32_t e = static_cast<uint32_t>(v);
    return (e * e) / 10000u;
}

// Pushes the newest complete convex value into the energy window and the window's energy into
// the energy ring. True when the energy crossed half the energy threshold. `windowSum` carries
// the sum of the window's terms from one sample of a packet to the next: the terms are summed
// modulo 2^32, so taking out the leaving term and adding the entering one gives the word a full
// sum gives. On the first sample of a packet (`firstOfPacket`) it is summed afresh.
bool pushEnergy(CBeatMeasure& m, int convexValue, uint32_t& windowSum, bool firstOfPacket) {
    const int leaving = m.nEnergyWindow[wrapModulo(m.nEnergyWindowPos, kEnergyWindow)];
    pushRing(m.nEnergyWindow, m.nEnergyWindowPos, convexValue);
    uint32_t acc = 0;
    if (firstOfPacket) {
        for (int k = 0; k < kEnergyWindow; ++k) acc += energyTerm(m.nEnergyWindow[k]);
    } else {
        acc = windowSum - energyTerm(leaving) + energyTerm(convexValue);
    }
    windowSum = acc;
    const int slot = pushRing(m.nEnergyRing, m.nEnergyRingPos, static_cast<int>(acc / 10u));

    const int threshold = m.nEnergyThreshold[0];
    if (threshold <= 0) return false;
    const double half = 0.5 * static_cast<double>(threshold);
    const double last = static_cast<double>(m.nEnergyRing[slot]) - half;
    const double before = static_cast<double>(m.nEnergyRing[ringAt(slot, -1)]) - half;
    return last * before < 0.0;
}

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
    int* filtered = m.nFilteredRing[0];
    int* absolute = m.nAbsRing[0];
    const int* convex = m.nConvexRing[0];
    int energyCrossings = 0;
    uint32_t windowSum = 0;
    for (int i = 0; i < count; ++i) {
        m.nRingPos = (m.nRingPos >= kRingLength - 1 || m.nRingPos < -1) ? 0 : m.nRingPos + 1;
        const int pos = m.nRingPos;

        int display = 0;
        // Nothing else writes the median ring during the packet, so its kept sorted copy is
        // checked against it on the first sample only.
        conditionSample(m, samples[i], &display, i > 0);
        if (waveOut != nullptr) waveOut[i] = display;

        const int low = m.LowFilterHeart(wrapSub32(display, kDisplayOffset));
        const int s =
            floatToIntX86(static_cast<double>(static_cast<float>(low)) * 1000.0 / static_cast<double>(m.fSignalGain));
        filtered[pos] = s;
        absolute[pos] = wrapAbs32(s);
        m.Convexpointoperator(0);
        if (pushEnergy(m, convex[ringAt(pos, -kConvexDelay)], windowSum, i == 0)) ++energyCrossings;
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

// The stages of one heart packet, in the order GetHeartRate runs them: judge the packet's
// amplitude, condition its samples into the detection rings, then (while the analysis runs)
// walk the same positions again for detection and turn the beat history into a rate.
// Each stage reads and writes only the analyser members its file header names.
#pragma once

#include "rtmonitor/CBeatMeasure.h"

namespace rtm {
namespace heart {

constexpr int kPacketSamples = 200;  // samples per packet the driver is built around
constexpr int kStartupCalls = 60;    // the first minute of packets

inline bool inRange(int v, int lo, int hi) { return v >= lo && v <= hi; }

// Ascending insertion sort of the driver's few ints (at most 20; for ints any correct sort gives
// the same order, and std::sort on these small arrays trips g++'s bounds warning).
inline void sortAscending(int* v, int n) {
    for (int i = 1; i < n; ++i) {
        const int x = v[i];
        int j = i - 1;
        while (j >= 0 && v[j] > x) {
            v[j + 1] = v[j];
            --j;
        }
        v[j + 1] = x;
    }
}

// packet_judgement.cpp: over-range and suddenly large packets restart the search and hold the
// rate (nWavePeakRing, nLargeWave*, nOverRangeFlag, nSettleCount, nHoldCount).
void judgePacket(CBeatMeasure& m, int amplitude);

// detection_pass.cpp: the first pass hands each sample to the conditioning chain
// (heart/conditioning.h), which fills the three detection rings and the energy ring, and returns
// how often the energy crossed half its threshold; the second walks the packet's positions again,
// learns thresholds at each whole second and runs the main-peak search. It returns true when a
// beat entered the beat ring.
int conditionPacket(CBeatMeasure& m, int channel, const int* samples, int count, int* waveOut);
bool detectBeats(CBeatMeasure& m, int count);

// heart_rate.cpp: the packet's heart rate in beats/min from the beat history.
int rateFromBeats(CBeatMeasure& m, bool newBeat);

}  // namespace heart
}  // namespace rtm

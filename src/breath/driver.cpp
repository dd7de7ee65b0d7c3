// Respiration driver: per 25-sample block (one second at 25 samples/s) of two channels, one
// display value per sample and channel (0..1000), and once per second the breathing rate in
// whole breaths per minute with its status (2 no usable signal, 0 no judgement, else the
// mid-level crossing flag of the peak counting). Holds after disturbances and missing signal,
// dead-sensor blocks and the trimmed mean of the reported rate live here.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "breath/rate_update.h"
#include "breath/window_stats.h"
#include "common/exact_math.h"
#include "rtmonitor/CBreathPro.h"

namespace {

constexpr int kBufferSamples = 1000;  // 40 s analysis window
constexpr int kEnergySamples = 50;    // 2 s energy window
constexpr int32_t kDeadLow = 0;       // a sensor stuck at either rail for a whole block
constexpr int32_t kDeadHigh = 65535;  // is treated as absent
constexpr float kDisturbanceEnergy = 50.0f;
constexpr int32_t kMotionHoldEnd = 10;   // updates until a disturbance stops holding
constexpr int32_t kNoSignalHoldEnd = 4;  // updates until missing signal stops holding

enum SampleClass { kDisturbance = 0, kUsable = 1, kNoSignal = 2 };

// Samples bound for the end of the analysis buffer, held back so that the buffer moves once
// per read instead of by one place per sample. Only the rate update reads the buffer, so moving
// it by all pending places just before that and at the end of the block leaves every state that
// is read, and the buffer after each call, as one-place shifts would.
struct PendingSamples {
    int values[BREATH_SAMPLE_RATE];
    int count = 0;

    void add(int v) { values[count++] = v; }
    void flushInto(int* buffer) {
        if (count == 0) return;
        const std::size_t kept = static_cast<std::size_t>(kBufferSamples - count);
        std::memmove(buffer, buffer + count, kept * sizeof(int));
        std::memcpy(buffer + kept, values, static_cast<std::size_t>(count) * sizeof(int));
        count = 0;
    }
};

// Holds, the zero outcome and the reported output of one rate update.
void runRateUpdate(CBreathPro& a, int sampleClass, int* pRate, int* pStatus) {
    int s = sampleClass;
    bool zeroOutcome = false;

    if (a.nMotionHold > 0) {
        a.nMotionHold = rtm::wrapAdd32(a.nMotionHold, 1);
        if (a.nMotionHold == kMotionHoldEnd) {
            a.nMotionHold = 0;
        } else {
            a.nBreathStatus = 0;
            s = kDisturbance;
            // A running no-signal hold keeps counting underneath and, while it lasts, its
            // status wins.
            if (a.nNoSignalHold > 0) {
                if (a.nNoSignalHold == kNoSignalHoldEnd) {
                    a.nNoSignalHold = 0;
                } else {
                    a.nNoSignalHold = rtm::wrapAdd32(a.nNoSignalHold, 1);
                    s = kNoSignal;
                }
            }
            zeroOutcome = true;
        }
    }
    if (!zeroOutcome && a.nNoSignalHold > 0) {
        if (a.nNoSignalHold != kNoSignalHoldEnd) {
            a.nNoSignalHold = rtm::wrapAdd32(a.nNoSignalHold, 1);
            s = kNoSignal;
            zeroOutcome = true;
        } else {
            a.nNoSignalHold = 0;
        }
    }
    if (!zeroOutcome && s != kUsable) zeroOutcome = true;

    float v = 0.0f;
    if (zeroOutcome) {
        a.fPeakRate = 0.0f;
        a.fBreathRate = 0.0f;
        a.nBreathStatus = s;
    } else {
        v = rtm::breath::estimateBreathRate(a);
    }

    *pStatus = a.nBreathStatus;
    a.Arrayshiftfloat(a.fReportedHistory, 5, v);
    // Middle three of the last five: a single new rate, or a single zero, does not move it.
    float sorted[5];
    std::copy(a.fReportedHistory, a.fReportedHistory + 5, sorted);
    a.sortfloat(sorted, 5);
    a.fReportedRate = a.DataMeanfloat(sorted, 1, 4);
    *pRate = rtm::floatToIntX86(a.fReportedRate);
}

}  // namespace

void CBreathPro::ProcessingBreath(int nPass, int* pChan0, int* pChan1, int /*nCount*/, int* pDisplay0, int* pDisplay1,
                                  int* pRate, int* pStatus) {
    // Every call carries one second; existing hosts pass 25 whatever nCount says.
    int atLow = 0;
    int atHigh = 0;
    for (int i = 0; i < BREATH_SAMPLE_RATE; ++i) {
        if (pChan1[i] == kDeadLow) ++atLow;
        if (pChan1[i] == kDeadHigh) ++atHigh;
    }
    const bool deadBlock = atLow == BREATH_SAMPLE_RATE || atHigh == BREATH_SAMPLE_RATE;

    PendingSamples pending;
    for (int i = 0; i < BREATH_SAMPLE_RATE; ++i) {
        lSampleCount += 1;

        int y0 = 0;
        int y1 = 0;
        const int packed = BaseLowFilter_Zoom(nPass, pChan0[i], pChan1[i], &y0, &y1);
        pDisplay0[i] = rtm::truncDiv32(packed, 10000);
        pDisplay1[i] = rtm::truncMod32(packed, 10000);

        pending.add(y1);
        // energysum and judgezeros of the window once y1 is stored, from its statistics before.
        const int slot = nEnergyRingPos;
        const int32_t leaving = nEnergyRing[slot];
        const rtm::kernels::RangeStats before = rtm::kernels::rangeStats(nEnergyRing, kEnergySamples);
        const uint32_t o = static_cast<uint32_t>(leaving);
        const uint32_t u = static_cast<uint32_t>(y1);
        const float energy = rtm::breath::energyOfSquares(before.squares - o * o + u * u);
        nEnergyRing[slot] = y1;
        // Only a window of zeros alone counts as all zero.
        bool notAllZero = true;
        if (y1 == 0) {
            notAllZero = leaving == 0 ? !(before.mx == 0 && before.mn == 0)
                                      : judgezeros(nEnergyRing, 0, kEnergySamples, 0, kEnergySamples);
        }
        nEnergyRingPos = (slot + 1 == kEnergySamples) ? 0 : slot + 1;

        int sampleClass;
        if (energy > kDisturbanceEnergy) {
            sampleClass = kDisturbance;
            nMotionHold = 1;
            nBreathStatus = 0;
        } else if (energy != 0.0f && notAllZero) {
            // A wrapped sum of squares gives NaN energy, which counts as signal.
            sampleClass = kUsable;
        } else {
            sampleClass = kNoSignal;
            nBreathStatus = 2;
            nNoSignalHold = 1;
        }

        if (deadBlock) {
            // Cleared on every sample of the block; buffers and filters keep running.
            BreathnoProInit();
            *pStatus = 0;
            *pRate = 0;
            fReportedRate = 0.0f;
            continue;
        }
        if (lSampleCount % BREATH_SAMPLE_RATE != 0) {
            *pStatus = nBreathStatus;
            *pRate = rtm::floatToIntX86(fReportedRate);
            continue;
        }
        pending.flushInto(nBreathBuffer);
        runRateUpdate(*this, sampleClass, pRate, pStatus);
    }
    pending.flushInto(nBreathBuffer);
}

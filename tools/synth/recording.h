// Synthetic recordings with their truth: one device's frames (ECG at 200 samples/s in counts around 512,
// two respiration channels at 25 samples/s around 30000, accelerometer at 25 samples/s with
// 512 = 0 g and 128 counts per g) together with the truth they were built from: beat times,
// breath cycles, and per second the heart rate, breathing rate and expected posture class.
// Sensor placement assumed throughout: first axis along the body (head up), second axis towards
// the wearer's left, third axis out of the chest.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rtmonitor.h"

namespace rtm_synth {

enum class Activity { Supine, RightSide, LeftSide, Upright, Walking };

struct SynthOptions {
    int seconds = 240;  // length of the recording, one frame per second
    uint32_t seed = 1;
    int32_t deviceId = 1;
    double fixedHeartRate = 0;   // > 0: hold this heart rate (beats/min) throughout, no variability
    double fixedBreathRate = 0;  // > 0: hold this breathing rate (breaths/min) throughout
};

// Posture class the library should report for a second; 0 while the wearer turns (not scored).
constexpr int kPostureNotScored = 0;

struct SecondTruth {
    double heartRate = 0;        // beats/min: 60 / mean RR of the beats in the trailing 10 s (0: too few)
    double breathRate = 0;       // breaths/min: 60 / mean period of the breaths ending in the trailing 30 s
    double targetHeartRate = 0;  // the schedule's rate at the end of the second
    double targetBreathRate = 0;
    int posture = kPostureNotScored;
    Activity activity = Activity::Supine;
};

struct Recording {
    std::vector<ParamsIn> frames;      // frame s covers seconds [s, s+1)
    std::vector<SecondTruth> truth;    // one per frame
    std::vector<double> beatTimes;     // R-peak times in seconds, ascending
    std::vector<double> breathOnsets;  // inspiration onsets in seconds, ascending
};

Recording synthesize(const SynthOptions& options);

}  // namespace rtm_synth

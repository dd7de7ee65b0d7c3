// Heart-rate meter test waveforms: ECG in mV at 200 samples/s built beat by beat from triangular
// QRS pulses of a given height and width, a half-sine T wave and, for normal beats, a small P
// wave, with optional mains interference, baseline wander and Gaussian noise. The truth is the
// beat list itself.
#pragma once

#include <vector>

namespace rtm_synth {

struct Beat {
    double time = 0;   // R peak, seconds
    double qrsMv = 1;  // signed: negative for an inverted complex
    double qrsWidth = 0.07;
    double tMv = 0.2;  // signed
    bool pWave = true;
};

struct TestPatternOptions {
    double seconds = 40;
    double mainsHz = 0, mainsMv = 0;    // sine interference
    double wanderHz = 0, wanderMv = 0;  // baseline wander
    double noiseMv = 0;                 // Gaussian noise, rms
    unsigned long long noiseSeed = 1;
};

// seconds x 200 samples in mV.
std::vector<double> renderTestPattern(const std::vector<Beat>& beats, const TestPatternOptions& options);

}  // namespace rtm_synth

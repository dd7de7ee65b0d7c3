// Beat-by-beat scoring of the library's confirmed beats against reference beat annotations, as
// ECG detector evaluations do it: a detected beat matches a reference beat within 150 ms, one to
// one; sensitivity, positive predictivity, missed and false beats per hour; the error of the RR
// intervals the library reports; heart-rate variability (SDNN, RMSSD) over 5-minute windows from
// the detected and the reference beats; and how long after its R peak a beat is reported.
// Times in seconds from the start of the recording, intervals in ms.
#pragma once

#include <cstddef>
#include <vector>

namespace rtmtool {

constexpr double kBeatMatchWindow = 0.150;  // s
constexpr double kHrvWindow = 300.0;        // s

struct DetectedBeat {
    double time = 0;        // R peak
    double reportedAt = 0;  // end of the frame that reported the beat
    int rrMs = 0;           // RR interval as the library reports it
};

struct HrvWindow {
    double start = 0;  // s; the window is [start, start + 300)
    size_t detectedIntervals = 0, referenceIntervals = 0;
    double sdnnDetected = 0, sdnnReference = 0;    // ms, NaN with fewer than 2 intervals
    double rmssdDetected = 0, rmssdReference = 0;  // ms, NaN with fewer than 2 successive differences
};

struct BeatScore {
    bool scored = false;
    double seconds = 0;  // length of the scored recording
    size_t reference = 0, detected = 0, matched = 0, missed = 0, falseBeats = 0;
    double sensitivity = 0, predictivity = 0;  // shares, 0..1
    double missedPerHour = 0, falsePerHour = 0;
    // Reported RR interval of a matched beat whose predecessor matched the reference predecessor,
    // against the reference interval.
    size_t rrPairs = 0;
    double rrMeanAbsErrorMs = 0, rrRmsErrorMs = 0, rrBiasMs = 0;
    // Whole 5-minute windows; the means are over the windows where both sides have a value.
    std::vector<HrvWindow> windows;
    double meanSdnnDetected = 0, meanSdnnReference = 0, meanRmssdDetected = 0, meanRmssdReference = 0;
    // From the reference R peak of a matched beat to the end of the frame that reported it.
    double delayMedian = 0, delayP95 = 0;
};

// `detected` in the order the library reported them, `reference` ascending; `seconds` is the
// length of the recording analysed. Reference beats after its end are not scored.
BeatScore scoreBeats(const std::vector<DetectedBeat>& detected, const std::vector<double>& reference, double seconds);

}  // namespace rtmtool

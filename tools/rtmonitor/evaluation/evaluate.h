// Scoring the library's per-second rates against a reference: the heart-rate reference from
// annotated beats (60 / mean RR of the beats in the trailing 10 s), or per-second reference rates
// read from CSV. NaN marks a second without a reference.
#pragma once

#include <string>
#include <vector>

#include "beat_scoring.h"
#include "formats/record_reader.h"

namespace rtmtool {

// Reference heart rate per second s: 60 / mean RR of the beats in (s+1-10, s+1], RR kept if
// within 0.2..3 s; NaN when no interval qualifies.
std::vector<double> referenceHeartRate(const std::vector<double>& beatTimes, size_t seconds);

struct RateScore {
    std::string name;                         // "heart rate", "breathing rate"
    std::string unit;                         // "bpm", "/min"
    std::string reference;                    // where the reference came from
    double absTolerance = 5;                  // the "within N" band, in the unit
    size_t seconds = 0;                       // seconds with a reference
    size_t covered = 0;                       // ... for which the library reported a rate
    double meanAbsError = 0, bias = 0;        // over the covered seconds
    double withinAbs = 0, withinPercent = 0;  // shares of `seconds` (a missing rate is outside)
};

// `library` holds the library's rate per second (0 = none), `reference` the reference (NaN = none).
RateScore scoreRates(const std::vector<double>& library, const std::vector<double>& reference, double absTolerance);

// The "within" tolerance of each quantity, the same in `demo`, `evaluate` and docs/accuracy.md.
constexpr double kHeartTolerance = 5;   // beats/min
constexpr double kBreathTolerance = 2;  // breaths/min

struct Evaluation {
    std::string record;
    size_t frames = 0;
    std::vector<double> heartRate, breathRate;            // library, per second
    std::vector<double> heartReference, breathReference;  // NaN = none
    bool haveHeart = false, haveBreath = false;
    RateScore heart, breath;
    BeatScore beats;             // scored when reference beats were found
    std::string beatsReference;  // where they came from
    std::string beatByBeat;      // why beat-by-beat scoring is not done
    std::vector<std::string> notes;
    // Channels the recording did not have ("respiration", "accelerometer"): their per-second
    // results are written as null, not as measurements.
    std::vector<std::string> notInRecording;
};

// Fills e.heartReference / e.breathReference (one entry per second of `seconds`) from a CSV with
// columns frame (or time_s) and hr_ref_bpm and/or br_ref_bpm (rows with br_agree other than 1
// left out), or two columns time,rate holding a breathing rate. False with `error` naming the line.
bool readReferenceCsv(const std::string& path, size_t seconds, Evaluation& e, std::string& error);

std::string evaluationJson(const Evaluation& e);
std::string evaluationTable(const Evaluation& e);
// A self-contained HTML page: the reference drawn over the library's rates, and the error.
std::string evaluationHtml(const Evaluation& e);

}  // namespace rtmtool

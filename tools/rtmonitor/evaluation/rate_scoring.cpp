// Rate scoring for `rtmonitor evaluate`: the heart-rate reference from annotated beats, reference
// rates read from CSV, the per-second comparison, and the table and JSON that report it together
// with the beat-by-beat scores (beat_scoring.h).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>

#include "evaluate.h"
#include "formats/reference.h"

namespace rtmtool {
namespace {

constexpr double kNoRef = std::numeric_limits<double>::quiet_NaN();
constexpr double kHrWindowSeconds = 10, kMinRr = 0.2, kMaxRr = 3.0;
const char* const kBeatTypesNote =
    "not scored: the analyser types every beat 4 (artefact) in running operation, so the type "
    "carries no rhythm information";

std::string jsonString(const std::string& s) {
    std::string r = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') r += '\\', r += c;
        else if (static_cast<unsigned char>(c) < 0x20) {
            char b[8];
            std::snprintf(b, sizeof b, "\\u%04x", c);
            r += b;
        } else r += c;
    }
    return r + "\"";
}

std::string fmt(const char* f, double v) {
    char b[64];
    std::snprintf(b, sizeof b, f, v);
    return b;
}

// A number, or null when it could not be computed.
std::string jsonNumber(const char* f, double v) { return std::isnan(v) ? std::string("null") : fmt(f, v); }

std::string beatsJson(const Evaluation& e) {
    const BeatScore& b = e.beats;
    if (!b.scored) return "{\"scored\": false, \"reason\": " + jsonString(e.beatByBeat) + "}";
    std::ostringstream o;
    o << "{\"scored\": true, \"reference\": " << jsonString(e.beatsReference)
      << ", \"match_window_ms\": " << fmt("%g", kBeatMatchWindow * 1000) << ", \"reference_beats\": " << b.reference
      << ", \"detected_beats\": " << b.detected << ", \"matched\": " << b.matched << ", \"missed\": " << b.missed
      << ", \"false\": " << b.falseBeats << ", \"sensitivity\": " << jsonNumber("%.4f", b.sensitivity)
      << ", \"positive_predictivity\": " << jsonNumber("%.4f", b.predictivity)
      << ", \"missed_per_hour\": " << jsonNumber("%.1f", b.missedPerHour)
      << ", \"false_per_hour\": " << jsonNumber("%.1f", b.falsePerHour)
      << ",\n    \"rr_interval\": {\"pairs\": " << b.rrPairs
      << ", \"mean_abs_error_ms\": " << jsonNumber("%.2f", b.rrMeanAbsErrorMs)
      << ", \"rms_error_ms\": " << jsonNumber("%.2f", b.rrRmsErrorMs)
      << ", \"bias_ms\": " << jsonNumber("%.2f", b.rrBiasMs)
      << "},\n    \"hrv\": {\"window_s\": " << fmt("%g", kHrvWindow)
      << ", \"mean_sdnn_ms\": {\"detected\": " << jsonNumber("%.2f", b.meanSdnnDetected)
      << ", \"reference\": " << jsonNumber("%.2f", b.meanSdnnReference)
      << "}, \"mean_rmssd_ms\": {\"detected\": " << jsonNumber("%.2f", b.meanRmssdDetected)
      << ", \"reference\": " << jsonNumber("%.2f", b.meanRmssdReference) << "}, \"windows\": [";
    for (size_t i = 0; i < b.windows.size(); ++i) {
        const HrvWindow& w = b.windows[i];
        o << (i ? ", " : "") << "{\"start_s\": " << fmt("%g", w.start)
          << ", \"sdnn_ms\": {\"detected\": " << jsonNumber("%.2f", w.sdnnDetected)
          << ", \"reference\": " << jsonNumber("%.2f", w.sdnnReference)
          << "}, \"rmssd_ms\": {\"detected\": " << jsonNumber("%.2f", w.rmssdDetected)
          << ", \"reference\": " << jsonNumber("%.2f", w.rmssdReference) << "}}";
    }
    o << "]},\n    \"detection_delay_s\": {\"median\": " << jsonNumber("%.3f", b.delayMedian)
      << ", \"p95\": " << jsonNumber("%.3f", b.delayP95) << "}"
      << ",\n    \"beat_types\": " << jsonString(kBeatTypesNote) << "}";
    return o.str();
}

std::string beatsTable(const Evaluation& e) {
    const BeatScore& b = e.beats;
    if (!b.scored) return "\nbeat by beat: " + e.beatByBeat + "\n";
    std::ostringstream o;
    char line[320];
    o << "\nbeat by beat against " << e.beatsReference << ", matched within " << fmt("%g", kBeatMatchWindow * 1000)
      << " ms:\n";
    std::snprintf(line, sizeof line,
                  "  beats          %zu reference, %zu detected, %zu matched\n"
                  "  sensitivity    %.2f %%   positive predictivity %.2f %%\n"
                  "  missed         %zu (%.1f per hour)   false %zu (%.1f per hour)\n",
                  b.reference, b.detected, b.matched, 100.0 * b.sensitivity, 100.0 * b.predictivity, b.missed,
                  b.missedPerHour, b.falseBeats, b.falsePerHour);
    o << line;
    std::snprintf(line, sizeof line, "  RR interval    %zu pairs: mean |err| %.1f ms, RMS %.1f ms, bias %+.1f ms\n",
                  b.rrPairs, b.rrMeanAbsErrorMs, b.rrRmsErrorMs, b.rrBiasMs);
    o << line;
    std::snprintf(line, sizeof line,
                  "  HRV            %zu window%s of %g min: SDNN %.1f ms detected, %.1f ms reference; "
                  "RMSSD %.1f ms detected, %.1f ms reference\n",
                  b.windows.size(), b.windows.size() == 1 ? "" : "s", kHrvWindow / 60, b.meanSdnnDetected,
                  b.meanSdnnReference, b.meanRmssdDetected, b.meanRmssdReference);
    o << line;
    std::snprintf(line, sizeof line,
                  "  delay          median %.2f s, 95th percentile %.2f s (R peak to the end of the reporting frame)\n",
                  b.delayMedian, b.delayP95);
    o << line << "  beat types     " << kBeatTypesNote << "\n";
    return o.str();
}

std::string scoreJson(const RateScore& s) {
    std::ostringstream o;
    o << "{\"reference\": " << jsonString(s.reference) << ", \"unit\": " << jsonString(s.unit)
      << ", \"seconds_with_reference\": " << s.seconds << ", \"seconds_covered\": " << s.covered
      << ", \"coverage\": " << fmt("%.4f", s.seconds ? static_cast<double>(s.covered) / s.seconds : 0)
      << ", \"mean_abs_error\": " << fmt("%.3f", s.meanAbsError) << ", \"bias\": " << fmt("%.3f", s.bias)
      << ", \"within_abs\": " << fmt("%.4f", s.withinAbs) << ", \"abs_tolerance\": " << fmt("%g", s.absTolerance)
      << ", \"within_10_percent\": " << fmt("%.4f", s.withinPercent) << "}";
    return o.str();
}

}  // namespace

bool readReferenceCsv(const std::string& path, size_t seconds, Evaluation& e, std::string& error) {
    std::map<int64_t, rtmfmt::RateReference> byDevice;
    rtmfmt::ReferenceColumns columns;
    if (!rtmfmt::readReference(path, byDevice, error, &columns)) {
        error = path + ": " + error;
        return false;
    }
    // The rates for every device, else those of the one device the file names (the evaluation
    // runs one device).
    auto it = byDevice.find(rtmfmt::kEveryDevice);
    if (it == byDevice.end()) {
        it = byDevice.begin();
        if (byDevice.size() > 1)
            e.notes.push_back("the reference names " + std::to_string(byDevice.size()) + " devices; device " +
                              std::to_string(it->first) + "'s rates were used");
    }
    const rtmfmt::RateReference& r = it->second;
    size_t outside = 0;
    auto take = [&](const std::vector<double>& from, std::vector<double>& to) {
        to.assign(seconds, kNoRef);
        size_t rows = 0;
        for (size_t s = 0; s < from.size(); ++s) {
            if (std::isnan(from[s])) continue;
            if (s >= seconds) {
                ++outside;
                continue;
            }
            to[s] = from[s];
            ++rows;
        }
        return rows;
    };
    if (take(r.heart, e.heartReference) > 0) {
        e.haveHeart = true;
        e.heart.reference = path + " (" + columns.heart + ")";
    }
    if (take(r.breath, e.breathReference) > 0) {
        e.haveBreath = true;
        e.breath.reference = path + " (" + columns.breath + (columns.agreement ? ", rows with br_agree = 1" : "") + ")";
    }
    if (outside > 0)
        e.notes.push_back(std::to_string(outside) + " reference values lie beyond the recording and are ignored");
    return true;
}

std::vector<double> referenceHeartRate(const std::vector<double>& beats, size_t seconds) {
    std::vector<double> ref(seconds, kNoRef);
    size_t first = 0;
    for (size_t s = 0; s < seconds; ++s) {
        const double end = static_cast<double>(s + 1), start = end - kHrWindowSeconds;
        while (first < beats.size() && beats[first] <= start) ++first;
        double sum = 0;
        int n = 0;
        for (size_t i = first; i + 1 < beats.size() && beats[i + 1] <= end; ++i) {
            const double rr = beats[i + 1] - beats[i];
            if (rr >= kMinRr && rr <= kMaxRr) {
                sum += rr;
                ++n;
            }
        }
        if (n > 0) ref[s] = 60.0 * n / sum;
    }
    return ref;
}

RateScore scoreRates(const std::vector<double>& library, const std::vector<double>& reference, double absTolerance) {
    RateScore r;
    r.absTolerance = absTolerance;
    double absSum = 0, sum = 0;
    size_t inAbs = 0, inPct = 0;
    for (size_t s = 0; s < reference.size() && s < library.size(); ++s) {
        if (std::isnan(reference[s])) continue;
        ++r.seconds;
        if (library[s] <= 0) continue;
        ++r.covered;
        const double d = library[s] - reference[s];
        absSum += std::fabs(d);
        sum += d;
        if (std::fabs(d) <= absTolerance) ++inAbs;
        if (std::fabs(d) <= 0.1 * reference[s]) ++inPct;
    }
    if (r.covered > 0) {
        r.meanAbsError = absSum / static_cast<double>(r.covered);
        r.bias = sum / static_cast<double>(r.covered);
    }
    if (r.seconds > 0) {
        r.withinAbs = static_cast<double>(inAbs) / static_cast<double>(r.seconds);
        r.withinPercent = static_cast<double>(inPct) / static_cast<double>(r.seconds);
    }
    return r;
}

std::string evaluationJson(const Evaluation& e) {
    std::ostringstream o;
    o << "{\n  \"record\": " << jsonString(e.record) << ",\n  \"frames\": " << e.frames
      << ",\n  \"beat_by_beat\": " << beatsJson(e)
      << ",\n  \"heart_rate\": " << (e.haveHeart ? scoreJson(e.heart) : "null")
      << ",\n  \"breathing_rate\": " << (e.haveBreath ? scoreJson(e.breath) : "null") << ",\n  \"notes\": [";
    for (size_t i = 0; i < e.notes.size(); ++i) o << (i ? ", " : "") << jsonString(e.notes[i]);
    o << "],\n  \"not_in_recording\": [";
    for (size_t i = 0; i < e.notInRecording.size(); ++i) o << (i ? ", " : "") << jsonString(e.notInRecording[i]);
    const bool noBreath =
        std::find(e.notInRecording.begin(), e.notInRecording.end(), "respiration") != e.notInRecording.end();
    o << "],\n  \"per_second\": {";
    const std::vector<double>* columns[] = {&e.heartRate, &e.heartReference, &e.breathRate, &e.breathReference};
    const char* names[] = {"heart_rate", "heart_reference", "breathing_rate", "breathing_reference"};
    for (int c = 0; c < 4; ++c) {
        o << (c ? ",\n    " : "\n    ") << jsonString(names[c]) << ": [";
        for (size_t s = 0; s < columns[c]->size(); ++s) {
            const double v = (*columns[c])[s];
            const bool unmeasured = noBreath && c == 2;
            o << (s ? "," : "") << (std::isnan(v) || unmeasured ? std::string("null") : fmt("%.2f", v));
        }
        o << "]";
    }
    o << "\n  }\n}\n";
    return o.str();
}

std::string evaluationTable(const Evaluation& e) {
    std::ostringstream o;
    o << "record " << e.record << ": " << e.frames << " seconds analysed\n\n";
    char line[256];
    std::snprintf(line, sizeof line, "%-15s %8s %9s %10s %13s %11s %10s\n", "", "seconds", "coverage", "mean |err|",
                  "within tol", "within 10 %", "bias");
    o << line;
    auto row = [&](const RateScore& s, bool have, const char* name) {
        if (!have) {
            std::snprintf(line, sizeof line, "%-15s %8s  no reference\n", name, "-");
            o << line;
            return;
        }
        const std::string tol = "(" + fmt("%g", s.absTolerance) + ") ";
        std::snprintf(
            line, sizeof line, "%-15s %8zu %8.1f%% %6.2f %-4s %5s%6.1f%% %10.1f%% %+6.2f %s\n", name, s.seconds,
            s.seconds ? 100.0 * static_cast<double>(s.covered) / static_cast<double>(s.seconds) : 0.0, s.meanAbsError,
            s.unit.c_str(), tol.c_str(), 100.0 * s.withinAbs, 100.0 * s.withinPercent, s.bias, s.unit.c_str());
        o << line << "  reference: " << s.reference << "\n";
    };
    row(e.heart, e.haveHeart, "heart rate");
    row(e.breath, e.haveBreath, "breathing rate");
    o << beatsTable(e);
    for (const std::string& n : e.notInRecording) o << "not in this recording: " << n << " (not measured)\n";
    for (const std::string& n : e.notes) o << "note: " << n << "\n";
    return o.str();
}

}  // namespace rtmtool

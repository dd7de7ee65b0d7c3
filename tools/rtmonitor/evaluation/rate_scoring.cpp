// Rate scoring for `rtmonitor evaluate`: the heart-rate reference from annotated beats, reference
// rates read from CSV, the per-second comparison, and the table and JSON that report it.
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
      << ",\n  \"beat_by_beat\": {\"scored\": false, \"reason\": " << jsonString(e.beatByBeat) << "}"
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
    o << "\nbeat by beat: " << e.beatByBeat << "\n";
    for (const std::string& n : e.notInRecording) o << "not in this recording: " << n << " (not measured)\n";
    for (const std::string& n : e.notes) o << "note: " << n << "\n";
    return o.str();
}

}  // namespace rtmtool

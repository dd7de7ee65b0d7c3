// The `evaluate` command: runs a recording (or a frame file) through the library on a fresh
// device and scores its heart rate against the rate of annotated reference beats, and its
// breathing rate against a reference CSV. Check: `rtmonitor evaluate ../shared/data/wfdb/100.hea
// --annotations atr --json x.json`; its per-second reference reproduces ../shared/data/100.ref.csv.
#include "evaluate.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <sstream>

#include "cli.h"
#include "frame_file.h"
#include "output_file.h"
#include "progress.h"
#include "record_source.h"
#include "rtmonitor.h"
#include "wfdb_reader.h"

namespace rtmtool {

const char* const kEvaluateUsage =
    "usage: rtmonitor evaluate RECORD|FILE.frames [--annotations EXT|FILE] [--reference FILE.csv]\n"
    "                          [--json FILE] [--report FILE.html] [--ecg LABEL] [--resp LABEL] ...\n"
    "\n"
    "Runs the recording through the library on a fresh device and scores, per second:\n"
    "  heart rate     against 60 / mean RR of the reference beats in the trailing 10 s (RR kept if\n"
    "                 0.2..3 s): mean absolute error, share within 5 bpm and within 10 %, coverage\n"
    "                 (seconds with a library rate among those with a reference)\n"
    "  breathing rate against a reference CSV: mean absolute error, share within 2 /min and 10 %\n"
    "Beat-by-beat sensitivity and positive predictivity are not scored: the library reports one\n"
    "heart rate per second, not the time of each beat it detects.\n"
    "\n"
    "  --annotations A   reference beats: an annotation file, or its extension beside a WFDB record\n"
    "                    (default: atr when the record has one; EDF+ beat annotations are used too)\n"
    "  --reference CSV   per-second reference rates: columns frame (or time_s) and hr_ref_bpm and/or\n"
    "                    br_ref_bpm (rows with br_agree = 0 are left out), or two columns time,rate\n"
    "                    holding a breathing rate; time t in seconds is scored against frame floor(t)\n"
    "  --json FILE       the scores as JSON\n"
    "  --report FILE     an HTML page with the reference drawn over the library's rates\n"
    "\n" RTM_RECORDING_OPTIONS_USAGE;

namespace {

constexpr double kNoRef = std::numeric_limits<double>::quiet_NaN();
constexpr double kHrWindowSeconds = 10, kMinRr = 0.2, kMaxRr = 3.0;
constexpr double kHeartTolerance = 5, kBreathTolerance = 2;
constexpr int32_t kEvaluationDevice = 0x45564131;  // a device id no frame file of the tool uses

const char* const kNoBeatByBeat =
    "not scored: the library's output carries one heart rate per second and a display ECG; its "
    "finished beat records keep the RR interval but not the beat's position, so detected beats cannot be "
    "placed in time to match reference beats within 150 ms";

std::vector<std::string> splitCsv(const std::string& line) {
    std::vector<std::string> r(1);
    for (char c : line) {
        if (c == ',') r.emplace_back();
        else if (c != '\r' && c != '"') r.back() += c;
    }
    return r;
}

bool number(const std::string& t, double& v) {
    if (t.empty()) return false;
    char* end = nullptr;
    v = std::strtod(t.c_str(), &end);
    return end == t.c_str() + t.size() && std::isfinite(v);
}

// Fills the heart and/or breathing reference from a CSV; false with `error` naming the line.
bool readReferenceCsv(const std::string& path, size_t seconds, Evaluation& e, std::string& error) {
    std::ifstream f(path);
    if (!f) {
        error = path + ": cannot open";
        return false;
    }
    std::string line;
    if (!std::getline(f, line)) {
        error = path + ": empty file";
        return false;
    }
    std::vector<std::string> head = splitCsv(line);
    auto col = [&](const char* name) {
        for (size_t i = 0; i < head.size(); ++i)
            if (head[i] == name) return static_cast<int>(i);
        return -1;
    };
    int timeCol = col("frame"), hrCol = col("hr_ref_bpm"), brCol = col("br_ref_bpm"), agreeCol = col("br_agree");
    const bool byFrame = timeCol >= 0;
    if (timeCol < 0) timeCol = col("time_s") >= 0 ? col("time_s") : col("time");
    int lineNo = 1;
    double v = 0;
    if (hrCol < 0 && brCol < 0) {
        // Two columns, time and breathing rate, with or without a header line.
        if (head.size() < 2) {
            error = path + ": expected columns time,rate or frame,hr_ref_bpm,br_ref_bpm";
            return false;
        }
        timeCol = 0;
        brCol = 1;
        if (number(head[0], v)) {
            f.clear();
            f.seekg(0);
            lineNo = 0;
        }
    } else if (timeCol < 0) {
        error = path + ": no frame or time_s column";
        return false;
    }
    e.heartReference.assign(seconds, kNoRef);
    e.breathReference.assign(seconds, kNoRef);
    size_t hrRows = 0, brRows = 0, outside = 0;
    while (std::getline(f, line)) {
        ++lineNo;
        if (line.empty() || line == "\r") continue;
        const std::vector<std::string> c = splitCsv(line);
        auto cell = [&](int i) { return i >= 0 && static_cast<size_t>(i) < c.size() ? c[static_cast<size_t>(i)] : ""; };
        double t = 0;
        if (!number(cell(timeCol), t) || t < 0) {
            error = path + ":" + std::to_string(lineNo) + ": bad time '" + cell(timeCol) + "'";
            return false;
        }
        const size_t s = static_cast<size_t>(byFrame ? t : std::floor(t));
        if (s >= seconds) {
            ++outside;
            continue;
        }
        for (int which = 0; which < 2; ++which) {
            const int k = which == 0 ? hrCol : brCol;
            if (k < 0 || cell(k).empty()) continue;
            if (!number(cell(k), v) || v < 0) {
                error = path + ":" + std::to_string(lineNo) + ": bad rate '" + cell(k) + "'";
                return false;
            }
            if (which == 1 && agreeCol >= 0 && cell(agreeCol) != "1") continue;
            (which == 0 ? e.heartReference : e.breathReference)[s] = v;
            ++(which == 0 ? hrRows : brRows);
        }
    }
    if (hrRows > 0) {
        e.haveHeart = true;
        e.heart.reference = path + " (hr_ref_bpm)";
    }
    if (brRows > 0) {
        e.haveBreath = true;
        e.breath.reference = path + (agreeCol >= 0 ? " (br_ref_bpm, rows with br_agree = 1)" : " (breathing rate)");
    }
    if (outside > 0) e.notes.push_back(std::to_string(outside) + " reference rows lie beyond the recording and are ignored");
    return true;
}

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

bool fileExists(const std::string& p) {
    std::ifstream f(p);
    return static_cast<bool>(f);
}

std::string recordBase(const std::string& path) {
    const size_t dot = path.find_last_of('.'), slash = path.find_last_of('/');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash) && path.substr(dot) == ".hea")
        return path.substr(0, dot);
    return path;
}

}  // namespace

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
    o << "],\n  \"per_second\": {";
    const std::vector<double>* columns[] = {&e.heartRate, &e.heartReference, &e.breathRate, &e.breathReference};
    const char* names[] = {"heart_rate", "heart_reference", "breathing_rate", "breathing_reference"};
    for (int c = 0; c < 4; ++c) {
        o << (c ? ",\n    " : "\n    ") << jsonString(names[c]) << ": [";
        for (size_t s = 0; s < columns[c]->size(); ++s) {
            const double v = (*columns[c])[s];
            o << (s ? "," : "") << (std::isnan(v) ? std::string("null") : fmt("%.2f", v));
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
    std::snprintf(line, sizeof line, "%-15s %8s %9s %10s %13s %11s %10s\n", "", "seconds", "coverage",
                  "mean |err|", "within tol", "within 10 %", "bias");
    o << line;
    auto row = [&](const RateScore& s, bool have, const char* name) {
        if (!have) {
            std::snprintf(line, sizeof line, "%-15s %8s  no reference\n", name, "-");
            o << line;
            return;
        }
        const std::string tol = "(" + fmt("%g", s.absTolerance) + ") ";
        std::snprintf(line, sizeof line, "%-15s %8zu %8.1f%% %6.2f %-4s %5s%6.1f%% %10.1f%% %+6.2f %s\n", name, s.seconds,
                      s.seconds ? 100.0 * static_cast<double>(s.covered) / static_cast<double>(s.seconds) : 0.0,
                      s.meanAbsError, s.unit.c_str(), tol.c_str(), 100.0 * s.withinAbs, 100.0 * s.withinPercent,
                      s.bias, s.unit.c_str());
        o << line << "  reference: " << s.reference << "\n";
    };
    row(e.heart, e.haveHeart, "heart rate");
    row(e.breath, e.haveBreath, "breathing rate");
    o << "\nbeat by beat: " << e.beatByBeat << "\n";
    for (const std::string& n : e.notes) o << "note: " << n << "\n";
    return o.str();
}

int runEvaluate(const std::vector<std::string>& args) {
    ParsedArgs p;
    std::string error;
    if (!parseArgs(args, {"--annotations", "--reference", "--json", "--report", "--ecg", "--resp", "--acc", "--device"},
                   {}, p, error))
        return usageError("evaluate", error, kEvaluateUsage);
    if (p.help) {
        std::fputs(kEvaluateUsage, stdout);
        return kExitOk;
    }
    if (p.positional.size() != 1)
        return usageError("evaluate", p.positional.empty() ? "no recording given" : "more than one recording given",
                          kEvaluateUsage);
    SourceOptions options;
    if (!sourceOptionsFrom(p.values, options, error)) return usageError("evaluate", error, kEvaluateUsage);
    const std::string path = p.positional[0];
    auto fail = [](const std::string& m) {
        std::fprintf(stderr, "rtmonitor evaluate: %s\n", m.c_str());
        return kExitInput;
    };
    for (const char* o : {"--json", "--report"}) {
        if (p.values.count(o) && (sameFile(path, p.values[o]) || sameFile(path + ".hea", p.values[o]) ||
                                  (p.values.count("--reference") && sameFile(p.values["--reference"], p.values[o]))))
            return fail(p.values[o] + ": the output would overwrite an input; choose another " + o);
    }

    Evaluation e;
    e.record = path;
    e.beatByBeat = kNoBeatByBeat;
    e.heart.name = "heart rate";
    e.heart.unit = "bpm";
    e.breath.name = "breathing rate";
    e.breath.unit = "/min";

    // Run the frames through the library on a device of its own.
    const bool recording = isRecordingPath(path);
    RecordSource source;
    FrameReader frames;
    if (recording) {
        if (!source.open(path, options, error)) return fail(error);
        for (const std::string& input : source.reader().inputFiles())
            for (const char* o : {"--json", "--report"})
                if (p.values.count(o) && sameFile(input, p.values[o]))
                    return fail(p.values[o] + ": the output would overwrite the input " + input + "; choose another " + o);
        for (const std::string& n : source.notes()) std::fprintf(stderr, "rtmonitor evaluate: %s\n", n.c_str());
    } else if (!frames.open(path)) {
        return fail(path + ": cannot open: " + frames.error());
    }
    initDevice(kEvaluationDevice);
    Progress progress("evaluating " + path, recording ? source.expectedFrames() : frames.size());
    ParamsIn in;
    ParamsOut out;
    int32_t firstDevice = 0;
    size_t otherDevices = 0;
    for (;;) {
        if (recording) {
            if (!source.next(in, error)) break;
        } else {
            const FrameReader::Result r = frames.next(in);
            if (r == FrameReader::Result::Incomplete) {
                e.notes.push_back("the file ends inside a frame; the complete frames before it were evaluated");
                break;
            }
            if (r == FrameReader::Result::Error) {
                error = path + ": read error: " + frames.error();
                break;
            }
            if (r != FrameReader::Result::Frame) break;
        }
        if (e.frames == 0 && otherDevices == 0) firstDevice = in.nDeviceId;
        if (in.nDeviceId != firstDevice) {
            ++otherDevices;
            continue;
        }
        in.nDeviceId = kEvaluationDevice;
        processSignal(in, &out);
        e.heartRate.push_back(out.nHeartRate);
        e.breathRate.push_back(out.nBreathState == 2 ? 0 : out.nBreathRate);
        ++e.frames;
        progress.update(recording ? source.framesDone() : frames.offset());
    }
    progress.finish();
    freeDevice(kEvaluationDevice);
    if (!error.empty()) return fail(error);
    if (e.frames == 0) return fail(path + ": no frames to evaluate");
    if (otherDevices > 0)
        e.notes.push_back(std::to_string(otherDevices) + " frames of devices other than the first (" +
                          std::to_string(firstDevice) + ") were left out");

    // References: a CSV first, then annotated beats (which take over the heart rate).
    if (p.values.count("--reference") && !readReferenceCsv(p.values["--reference"], e.frames, e, error))
        return fail(error);
    std::vector<Annotation> annotations;
    std::string annotationSource;
    if (recording) {
        std::string annPath;
        if (p.values.count("--annotations")) {
            const std::string a = p.values["--annotations"];
            annPath = fileExists(a) && a.find('/') != std::string::npos ? a : recordBase(path) + "." + a;
            if (!fileExists(annPath) && fileExists(a)) annPath = a;
            if (!fileExists(annPath)) return fail(annPath + ": no such annotation file");
        } else if (fileExists(recordBase(path) + ".atr") && fileExists(recordBase(path) + ".hea")) {
            annPath = recordBase(path) + ".atr";
        }
        if (!annPath.empty()) {
            std::ifstream hf(recordBase(path) + ".hea");
            std::ostringstream text;
            text << hf.rdbuf();
            WfdbHeader header;
            if (!parseWfdbHeader(text.str(), header, error))
                return fail(annPath + ": annotations need the record's WFDB header for their time base");
            FileSource f;
            if (!f.open(annPath, error)) return fail(annPath + ": cannot open: " + error);
            if (!readWfdbAnnotations(f, header.frameRate, annotations, error)) return fail(annPath + ": " + error);
            annotationSource = annPath;
        } else {
            annotations = source.reader().embeddedAnnotations();
            annotationSource = path + " (EDF+ annotations)";
        }
    } else if (p.values.count("--annotations")) {
        return fail("--annotations needs a recording (WFDB or EDF+); for a frame file give --reference CSV");
    }
    std::vector<double> beats;
    for (const Annotation& a : annotations) {
        std::string label = a.label;
        if (label == "beat" || label == "QRS" || label == "R") label = "N";
        if (isBeatLabel(label)) beats.push_back(a.time);
    }
    std::sort(beats.begin(), beats.end());
    if (!beats.empty()) {
        e.heartReference = referenceHeartRate(beats, e.frames);
        e.haveHeart = true;
        e.heart.reference = annotationSource + " (" + std::to_string(beats.size()) + " beats)";
    } else if (!annotationSource.empty() && p.values.count("--annotations")) {
        return fail(annotationSource + ": holds no beat annotations");
    }
    if (e.breathReference.empty()) e.breathReference.assign(e.frames, kNoRef);
    if (e.heartReference.empty()) e.heartReference.assign(e.frames, kNoRef);
    const std::string keepHeart = e.heart.reference, keepBreath = e.breath.reference;
    e.heart = scoreRates(e.heartRate, e.heartReference, kHeartTolerance);
    e.heart.name = "heart rate";
    e.heart.unit = "bpm";
    e.heart.reference = keepHeart;
    e.breath = scoreRates(e.breathRate, e.breathReference, kBreathTolerance);
    e.breath.name = "breathing rate";
    e.breath.unit = "/min";
    e.breath.reference = keepBreath;
    if (!e.haveHeart && !e.haveBreath)
        e.notes.push_back("no reference found: give --annotations for beats or --reference for per-second rates");

    std::fputs(evaluationTable(e).c_str(), stdout);
    int status = kExitOk;
    if (p.values.count("--json") && !writeTextFile(p.values["--json"], evaluationJson(e), error)) {
        std::fprintf(stderr, "rtmonitor evaluate: %s: cannot write: %s\n", p.values["--json"].c_str(), error.c_str());
        status = kExitInput;
    }
    if (p.values.count("--report") && !writeTextFile(p.values["--report"], evaluationHtml(e), error)) {
        std::fprintf(stderr, "rtmonitor evaluate: %s: cannot write: %s\n", p.values["--report"].c_str(), error.c_str());
        status = kExitInput;
    }
    return status;
}

}  // namespace rtmtool

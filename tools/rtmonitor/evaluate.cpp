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
#include "formats/frame_file.h"
#include "formats/wfdb_reader.h"
#include "output_file.h"
#include "progress.h"
#include "recording_input.h"
#include "rtmonitor.h"

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
constexpr double kHeartTolerance = 5, kBreathTolerance = 2;
constexpr int32_t kEvaluationDevice = 0x45564131;  // a device id no frame file of the tool uses

const char* const kNoBeatByBeat =
    "not scored: the library's output carries one heart rate per second and a display ECG; its "
    "finished beat records keep the RR interval but not the beat's position, so detected beats cannot be "
    "placed in time to match reference beats within 150 ms";

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

int runEvaluate(const std::vector<std::string>& args) {
    static const CommandSpec kCommand{"evaluate",
                                      kEvaluateUsage,
                                      {withRecordingOptions({"--annotations", "--reference", "--json", "--report"}),
                                       {},
                                       1,
                                       1,
                                       "no recording given",
                                       "more than one recording given"}};
    ParsedArgs p;
    int status = kExitOk;
    if (!parseCommand(kCommand, args, p, status)) return status;
    std::string error;
    SourceOptions options;
    if (!sourceOptionsFrom(p.values, options, error)) return usageError("evaluate", error, kEvaluateUsage);
    const std::string path = p.positional[0];
    auto fail = [](const std::string& m) {
        std::fprintf(stderr, "rtmonitor evaluate: %s\n", m.c_str());
        return kExitInput;
    };
    std::vector<std::pair<std::string, std::string>> outputs;
    for (const char* o : {"--json", "--report"})
        if (p.values.count(o)) outputs.emplace_back(o, p.values[o]);
    std::vector<std::string> inputs{path};
    if (p.values.count("--reference")) inputs.push_back(p.values["--reference"]);

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
        const std::vector<std::string> files = source.reader().inputFiles();
        inputs.insert(inputs.end(), files.begin(), files.end());
        for (const std::string& n : source.notes()) std::fprintf(stderr, "rtmonitor evaluate: %s\n", n.c_str());
    } else if (!frames.open(path)) {
        return fail(path + ": cannot open: " + frames.error());
    }
    // Reference beats: an annotation file named or found beside a WFDB record.
    std::string annPath;
    if (p.values.count("--annotations")) {
        if (!recording)
            return fail("--annotations needs a recording (WFDB or EDF+); for a frame file give --reference CSV");
        const std::string a = p.values["--annotations"];
        annPath = fileExists(a) && a.find('/') != std::string::npos ? a : recordBase(path) + "." + a;
        if (!fileExists(annPath) && fileExists(a)) annPath = a;
        if (!fileExists(annPath)) return fail(annPath + ": no such annotation file");
    } else if (recording && fileExists(recordBase(path) + ".atr") && fileExists(recordBase(path) + ".hea")) {
        annPath = recordBase(path) + ".atr";
    }
    if (!annPath.empty()) inputs.push_back(annPath);
    if (!checkOutputs(inputs, outputs, error)) return fail(error + "; nothing was written");
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
    status = kExitOk;
    if (p.values.count("--json") && !writeWholeFile(p.values["--json"], evaluationJson(e), error)) {
        std::fprintf(stderr, "rtmonitor evaluate: %s: cannot write: %s\n", p.values["--json"].c_str(), error.c_str());
        status = kExitInput;
    }
    if (p.values.count("--report") && !writeWholeFile(p.values["--report"], evaluationHtml(e), error)) {
        std::fprintf(stderr, "rtmonitor evaluate: %s: cannot write: %s\n", p.values["--report"].c_str(), error.c_str());
        status = kExitInput;
    }
    return status;
}

}  // namespace rtmtool

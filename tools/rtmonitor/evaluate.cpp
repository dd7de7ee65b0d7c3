// The `evaluate` command: runs a recording (or a frame file) through the library on a fresh
// handle and scores its heart rate against the rate of annotated reference beats, its confirmed
// beats one by one against those beats, and its breathing rate against a reference CSV. Check: `rtmonitor evaluate
// ../shared/data/wfdb/100.hea
// --annotations atr --json x.json`; its per-second reference reproduces ../shared/data/100.ref.csv.
#include "evaluation/evaluate.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <memory>
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
    "                          [--json FILE] [--report FILE.html] [--partial] [--ecg LABEL] ...\n"
    "\n"
    "Runs the recording through the library on a fresh device and scores, per second:\n"
    "  heart rate     against 60 / mean RR of the reference beats in the trailing 10 s (RR kept if\n"
    "                 0.2..3 s): mean absolute error, share within 5 bpm and within 10 %, coverage\n"
    "                 (seconds with a library rate among those with a reference)\n"
    "  breathing rate against a reference CSV: mean absolute error, share within 2 /min and 10 %\n"
    "and beat by beat, against the reference beats (annotation codes of beats only: normal,\n"
    "bundle-branch, premature, paced, fusion, escape, unclassifiable; not rhythm, noise or comments):\n"
    "  a detected beat matches a reference beat within 150 ms, one to one: sensitivity, positive\n"
    "  predictivity, missed and false beats per hour; the reported RR intervals against the\n"
    "  reference ones; SDNN and RMSSD per 5-minute window from detected and reference beats; the\n"
    "  detection delay from the R peak to the end of the frame that reports the beat\n"
    "\n"
    "  --annotations A   reference beats: an annotation file, or its extension beside a WFDB record\n"
    "                    (default: atr when the record has one; EDF+ beat annotations are used too)\n"
    "  --reference CSV   per-second reference rates, columns chosen by name: a time column (frame,\n"
    "                    second, time or time_s; time t is scored against frame floor(t)) and a\n"
    "                    heart-rate (hr_ref_bpm, heart_rate, hr) and/or breathing-rate column\n"
    "                    (br_ref_bpm, breath_rate, br; rows with br_agree other than 1 left out)\n"
    "  --json FILE       the scores as JSON\n"
    "  --report FILE     an HTML page with the reference drawn over the library's rates\n"
    "  --partial         a frame file still being recorded: evaluate its whole frames; without it a\n"
    "                    file that is empty or ends inside a frame is an input error (exit 1)\n"
    "\n" RTM_RECORDING_OPTIONS_USAGE;

namespace {

constexpr double kNoRef = std::numeric_limits<double>::quiet_NaN();
constexpr double kHeartSamplesPerSecond = 200;

const char* const kNoBeatByBeat = "not scored: no reference beats (give --annotations)";

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

int fail(const std::string& m) {
    std::fprintf(stderr, "rtmonitor evaluate: %s\n", m.c_str());
    return kExitInput;
}

// The recording or frame file being evaluated.
struct EvaluationInput {
    std::string path;
    bool recording = false;
    bool partial = false;  // --partial: a frame file may end inside a frame
    RecordSource source;
    FrameReader frames;
};

// Opens the input; its files join `inputs` so no output replaces one of them.
bool openInput(EvaluationInput& in, const SourceOptions& options, std::vector<std::string>& inputs,
               std::string& error) {
    in.recording = isRecordingPath(in.path);
    if (in.recording) {
        if (!in.source.open(in.path, options, error)) return false;
        const std::vector<std::string> files = in.source.reader().inputFiles();
        inputs.insert(inputs.end(), files.begin(), files.end());
        for (const std::string& n : in.source.notes()) std::fprintf(stderr, "rtmonitor evaluate: %s\n", n.c_str());
        return true;
    }
    std::string warning;
    if (!checkFrameFile(in.path, in.partial, warning, error)) return false;
    if (!warning.empty()) std::fprintf(stderr, "rtmonitor evaluate: warning: %s\n", warning.c_str());
    if (in.frames.open(in.path)) return true;
    error = in.path + ": cannot open: " + in.frames.error();
    return false;
}

// Reference beats: an annotation file named with --annotations (a path, or an extension beside
// the record), or the .atr file beside a WFDB record. Empty when there is none.
bool findAnnotations(const ParsedArgs& p, const EvaluationInput& in, std::string& annPath, std::string& error) {
    const std::string base = recordBase(in.path);
    if (!p.values.count("--annotations")) {
        if (in.recording && fileExists(base + ".atr") && fileExists(base + ".hea")) annPath = base + ".atr";
        return true;
    }
    if (!in.recording) {
        error = "--annotations needs a recording (WFDB or EDF+); for a frame file give --reference CSV";
        return false;
    }
    const std::string a = p.value("--annotations");
    annPath = fileExists(a) && a.find('/') != std::string::npos ? a : base + "." + a;
    if (!fileExists(annPath) && fileExists(a)) annPath = a;
    if (fileExists(annPath)) return true;
    error = annPath + ": no such annotation file";
    return false;
}

// The next frame of the input; false at the end or on a problem (`error` set, or a note added).
bool nextFrame(EvaluationInput& in, Evaluation& e, ParamsIn& frame, std::string& error) {
    if (in.recording) return in.source.next(frame, error);
    const FrameReader::Result r = in.frames.next(frame);
    // A file of known size was checked before; this is a stream that ended inside a frame.
    if (r == FrameReader::Result::Incomplete && in.partial)
        e.notes.push_back("the input ends inside a frame; --partial: its whole frames were evaluated");
    else if (r == FrameReader::Result::Incomplete)
        error = in.path + ": ends inside a frame at byte offset " + std::to_string(in.frames.offset()) +
                "; nothing was written. For input still being recorded, --partial evaluates its whole frames";
    if (r == FrameReader::Result::Error) error = in.path + ": read error: " + in.frames.error();
    return r == FrameReader::Result::Frame;
}

// The beats the handle's last frame confirmed, reported at the end of frame `frame`.
void collectBeats(const rtm_device* device, size_t frame, std::vector<DetectedBeat>& detected) {
    rtm_beat beats[RTM_BEATS_MAX];
    const size_t n = std::min<size_t>(rtm_device_beats(device, beats, RTM_BEATS_MAX), RTM_BEATS_MAX);
    for (size_t k = 0; k < n; ++k) {
        const double t = static_cast<double>(beats[k].sample) / kHeartSamplesPerSecond;
        detected.push_back(DetectedBeat{t, static_cast<double>(frame + 1), beats[k].rr_ms});
    }
}

// Runs the first device's frames through the library on a handle of its own (the registry's
// results, word for word), which also reports each beat it confirms.
bool analyse(EvaluationInput& in, Evaluation& e, std::vector<DetectedBeat>& detected, std::string& error) {
    std::unique_ptr<rtm_device, void (*)(rtm_device*)> device(rtm_device_create(), rtm_device_destroy);
    if (!device) {
        error = "out of memory";
        return false;
    }
    Progress progress("evaluating " + in.path, in.recording ? in.source.expectedFrames() : in.frames.size());
    ParamsIn frame;
    ParamsOut out;
    int32_t firstDevice = 0;
    size_t otherDevices = 0;
    while (nextFrame(in, e, frame, error)) {
        if (e.frames == 0 && otherDevices == 0) firstDevice = frame.nDeviceId;
        if (frame.nDeviceId != firstDevice) {
            ++otherDevices;
            continue;
        }
        out = ParamsOut{};
        rtm_device_process(device.get(), &frame, &out);
        collectBeats(device.get(), e.frames, detected);
        e.heartRate.push_back(out.nHeartRate);
        e.breathRate.push_back(out.nBreathState == 2 ? 0 : out.nBreathRate);
        ++e.frames;
        progress.update(in.recording ? in.source.framesDone() : in.frames.offset());
    }
    progress.finish();
    if (!error.empty()) return false;
    if (e.frames == 0) {
        error = in.path + ": no frames to evaluate";
        return false;
    }
    if (in.recording && in.source.respirationSubstituted()) e.notInRecording.push_back("respiration");
    if (in.recording && in.source.accelerometerSubstituted()) e.notInRecording.push_back("accelerometer");
    if (otherDevices > 0)
        e.notes.push_back(std::to_string(otherDevices) + " frames of devices other than the first (" +
                          std::to_string(firstDevice) + ") were left out");
    return true;
}

// The annotations of a recording: the WFDB annotation file, else the EDF+ file's own.
bool readAnnotations(EvaluationInput& in, const std::string& annPath, std::vector<Annotation>& annotations,
                     std::string& annotationSource, std::string& error) {
    if (annPath.empty()) {
        annotations = in.source.reader().embeddedAnnotations();
        annotationSource = in.path + " (EDF+ annotations)";
        return true;
    }
    std::ifstream hf(recordBase(in.path) + ".hea");
    std::ostringstream text;
    text << hf.rdbuf();
    WfdbHeader header;
    if (!parseWfdbHeader(text.str(), header, error)) {
        error = annPath + ": annotations need the record's WFDB header for their time base";
        return false;
    }
    FileSource f;
    if (!f.open(annPath, error)) {
        error = annPath + ": cannot open: " + error;
        return false;
    }
    if (!readWfdbAnnotations(f, header.frameRate, annotations, error)) {
        error = annPath + ": " + error;
        return false;
    }
    annotationSource = annPath;
    return true;
}

// The annotated beats become the heart-rate reference (over a CSV's) and score the detected beats.
bool attachBeatReference(EvaluationInput& in, const std::string& annPath, bool asked,
                         const std::vector<DetectedBeat>& detected, Evaluation& e, std::string& error) {
    std::vector<Annotation> annotations;
    std::string annotationSource;
    if (in.recording && !readAnnotations(in, annPath, annotations, annotationSource, error)) return false;
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
        e.beats = scoreBeats(detected, beats, static_cast<double>(e.frames));
        e.beatsReference = e.heart.reference;
    } else if (!annotationSource.empty() && asked) {
        error = annotationSource + ": holds no beat annotations";
        return false;
    }
    return true;
}

void scoreEvaluation(Evaluation& e) {
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
}

// The table on standard output, then --json and --report; the exit status.
int writeEvaluation(const ParsedArgs& p, const Evaluation& e) {
    std::fputs(evaluationTable(e).c_str(), stdout);
    int status = kExitOk;
    std::string error;
    if (p.values.count("--json") && !writeWholeFile(p.value("--json"), evaluationJson(e), error)) {
        std::fprintf(stderr, "rtmonitor evaluate: %s: cannot write: %s\n", p.value("--json").c_str(), error.c_str());
        status = kExitInput;
    }
    if (p.values.count("--report") && !writeWholeFile(p.value("--report"), evaluationHtml(e), error)) {
        std::fprintf(stderr, "rtmonitor evaluate: %s: cannot write: %s\n", p.value("--report").c_str(), error.c_str());
        status = kExitInput;
    }
    return status;
}

}  // namespace

int runEvaluate(const std::vector<std::string>& args) {
    static const CommandSpec kCommand{"evaluate",
                                      kEvaluateUsage,
                                      {withRecordingOptions({"--annotations", "--reference", "--json", "--report"}),
                                       {"--partial"},
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
    EvaluationInput in;
    in.path = p.positional[0];
    in.partial = p.has("--partial");
    std::vector<std::pair<std::string, std::string>> outputs;
    for (const char* o : {"--json", "--report"})
        if (p.values.count(o)) outputs.emplace_back(o, p.value(o));
    std::vector<std::string> inputs{in.path};
    if (p.values.count("--reference")) inputs.push_back(p.value("--reference"));

    Evaluation e;
    e.record = in.path;
    e.beatByBeat = kNoBeatByBeat;
    e.heart.name = "heart rate";
    e.heart.unit = "bpm";
    e.breath.name = "breathing rate";
    e.breath.unit = "/min";

    std::string annPath;
    if (!openInput(in, options, inputs, error) || !findAnnotations(p, in, annPath, error)) return fail(error);
    if (!annPath.empty()) inputs.push_back(annPath);
    if (!checkOutputs(inputs, outputs, error)) return fail(error + "; nothing was written");
    std::vector<DetectedBeat> detected;
    if (!analyse(in, e, detected, error)) return fail(error);
    // References: a CSV first, then annotated beats (which take over the heart rate).
    if (p.values.count("--reference") && !readReferenceCsv(p.value("--reference"), e.frames, e, error))
        return fail(error);
    if (!attachBeatReference(in, annPath, p.values.count("--annotations") > 0, detected, e, error)) return fail(error);
    scoreEvaluation(e);
    return writeEvaluation(p, e);
}

}  // namespace rtmtool

// The `replay` command: every complete frame of a frame file through the library, in file order,
// one CSV row each, plus an optional HTML report and an optional CSV of the confirmed beats.
// Outputs are checked before the replay starts and written through temporary files, so the input
// is never overwritten and a failure leaves no partial file. An empty file, or one that ends
// inside a frame, is an input error (exit 1, nothing written) unless --partial asks for the whole
// frames of a file still being recorded. Other input problems (a read error, too many devices)
// are reported with the byte offset concerned and exit status 1, after the frames before them
// have been analysed and written; a file that does not look like frames draws warnings.
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <string>

#include "classes.h"
#include "cli.h"
#include "formats/frame_file.h"
#include "formats/reference.h"
#include "frame_doubts.h"
#include "host.h"
#include "output_file.h"
#include "progress.h"
#include "recording_input.h"
#include "report/report.h"

namespace rtmtool {
namespace {

void printReplayHelp() {
    std::fputs(kReplayUsage, stdout);
    std::printf("\nCodes in the CSV and the report:\n  heart_status  %s\n  breath_state  %s\n  posture       %s\n",
                codeList(kHeartStatusNames).c_str(), codeList(kBreathStateNames).c_str(),
                codeList(kPostureNames).c_str());
}

int fail(const std::string& message) {
    std::fprintf(stderr, "rtmonitor replay: %s\n", message.c_str());
    return kExitInput;
}

// What a replay reads and writes, as the options gave it.
struct ReplayJob {
    std::string path, shownPath;
    bool waves = false, toFile = false, wantReport = false, wantBeats = false;
    std::vector<std::pair<std::string, std::string>> outputs;
    std::vector<std::string> inputs;
    bool noRespiration = false, noAccelerometer = false;  // a recording without these channels
    bool partial = false;                                 // --partial
    std::string warning;                                  // what --partial left out
};

// Opens the frames to replay: a recording is converted into a temporary frame file first, then
// replayed like any other. The outputs are checked against every input before anything is written.
bool openFrames(ReplayJob& job, const SourceOptions& options, TemporaryFrames& converted, FrameReader& reader,
                std::string& error) {
    std::string framePath = job.path;
    const bool recording = isRecordingPath(job.path);
    if (recording) {
        RecordSource source;
        if (!source.open(job.path, options, error)) return false;
        job.noRespiration = source.respirationSubstituted();
        job.noAccelerometer = source.accelerometerSubstituted();
        const std::vector<std::string> files = source.reader().inputFiles();
        job.inputs.insert(job.inputs.end(), files.begin(), files.end());
        if (!checkOutputs(job.inputs, job.outputs, error)) {
            error += "; nothing was written";
            return false;
        }
        if (!converted.write(source, job.path, error)) return false;
        framePath = converted.path();
    }
    if (!recording && !checkFrameFile(job.path, job.partial, job.warning, error)) return false;
    if (!reader.open(framePath)) {
        error = job.shownPath + ": cannot open: " + reader.error();
        return false;
    }
    if (!recording && !checkOutputs(job.inputs, job.outputs, error)) {
        error += "; nothing was written";
        return false;
    }
    return true;
}

struct ReplayCounts {
    uint64_t frames = 0, analysed = 0, skipped = 0;
    bool unusable = false;  // empty, or ending inside a frame without --partial: nothing is written
};

// The problem that ends the replay at `offset` (read error, truncation, empty file), if any.
// A file of known size was checked before it was opened; this catches a stream (standard input).
void noteEnd(FrameReader::Result r, const FrameReader& reader, uint64_t offset, ReplayJob& job, ReplayCounts& n,
             std::vector<std::string>& problems) {
    const std::string before = "; the " + std::to_string(n.frames) + " complete frames before it were replayed";
    if (r == FrameReader::Result::End && n.frames == 0) {
        problems.push_back(job.shownPath + ": empty, no frames; nothing was written");
        n.unusable = true;
    }
    const std::string inside = job.shownPath + ": ends inside a frame at byte offset " + std::to_string(offset) + " (" +
                               std::to_string(reader.partialBytes()) + " of " + std::to_string(kFrameBytes) + " bytes)";
    if (r == FrameReader::Result::Incomplete && job.partial) {
        job.warning = inside + "; --partial: the " + std::to_string(n.frames) + " whole frames were replayed";
    } else if (r == FrameReader::Result::Incomplete) {
        problems.push_back(inside +
                           "; nothing was written. For input still being recorded, --partial replays its "
                           "whole frames");
        n.unusable = true;
    }
    if (r == FrameReader::Result::Error)
        problems.push_back(job.shownPath + ": read error at byte offset " + std::to_string(offset) + ": " +
                           reader.error() + before);
}

// The beats the frame's device confirmed: into the beats CSV (when asked) and the report.
void passBeats(const ReplayJob& job, const Host& host, size_t device, uint64_t frame, int32_t deviceId,
               std::FILE* beatsCsv, Report& report) {
    if (!job.wantBeats && !job.wantReport) return;
    const std::vector<rtm_beat> beats = host.beats(device);
    if (job.wantBeats) writeBeatsCsvRows(beatsCsv, frame, deviceId, beats);
    if (job.wantReport) report.addBeats(device, beats);
}

// Every complete frame through the library, one CSV row each (and into the report).
ReplayCounts replayFrames(FrameReader& reader, ReplayJob& job, std::FILE* csv, std::FILE* beatsCsv, Report& report,
                          Host& host, FrameDoubts& doubts, std::vector<std::string>& problems) {
    Progress progress("replaying " + job.shownPath, reader.size());
    ReplayCounts n;
    ParamsIn in;
    ParamsOut out;
    for (;;) {
        const uint64_t offset = reader.offset();
        const FrameReader::Result r = reader.next(in);
        if (r != FrameReader::Result::Frame) {
            noteEnd(r, reader, offset, job, n, problems);
            break;
        }
        doubts.add(in);
        size_t device = 0;
        if (host.process(in, out, device)) {
            writeCsvRow(csv, n.frames, in, out, job.waves);
            if (job.wantReport) report.add(device, in, out, nullptr);
            passBeats(job, host, device, n.frames, in.nDeviceId, beatsCsv, report);
            ++n.analysed;
        } else {
            if (n.skipped == 0)
                problems.push_back(job.shownPath + ": more than " + std::to_string(Host::kMaxDevices) +
                                   " devices; frames of further devices (the first at byte offset " +
                                   std::to_string(offset) + ", device " + std::to_string(in.nDeviceId) +
                                   ") are not analysed");
            ++n.skipped;
        }
        ++n.frames;
        progress.update(reader.offset());
    }
    progress.finish();
    if (n.skipped > 0) problems.push_back(job.shownPath + ": " + std::to_string(n.skipped) + " frames not analysed");
    return n;
}

// Doubts and problems go to standard error and into the report. Doubts do not change the exit
// status: the file was read as asked, it may just not be frames.
void reportFindings(const ReplayJob& job, const FrameDoubts& doubts, const std::vector<std::string>& problems,
                    Report& report) {
    if (!job.warning.empty()) {
        std::fprintf(stderr, "rtmonitor replay: warning: %s\n", job.warning.c_str());
        report.addNote("warning: " + job.warning);
    }
    for (const std::string& d : doubts.findings()) {
        const std::string m = "warning: " + job.shownPath + " does not look like a frame file: " + d;
        std::fprintf(stderr, "rtmonitor replay: %s\n", m.c_str());
        report.addNote(m);
    }
    for (const std::string& m : problems) {
        std::fprintf(stderr, "rtmonitor replay: %s\n", m.c_str());
        report.addNote(m);
    }
}

// The report with its references, written whole; false with `error` set.
bool writeReport(const ParsedArgs& p, const std::map<int64_t, RateReference>& references, const Host& host,
                 Report& report, std::string& error) {
    for (int32_t id : host.deviceIds()) {
        auto it = references.find(id);
        if (it == references.end()) it = references.find(kEveryDevice);
        if (it != references.end()) report.setReference(id, it->second.heart, it->second.breath, "reference");
    }
    return report.write(p.value("--report"), error);
}

}  // namespace

int runReplay(const std::vector<std::string>& args) {
    static const CommandSpec kCommand{"replay",
                                      kReplayUsage,
                                      {withRecordingOptions({"--out", "--report", "--at", "--reference", "--beats"}),
                                       {"--waves", "--partial"},
                                       1,
                                       1,
                                       "no frame file given",
                                       "more than one frame file given"},
                                      printReplayHelp};
    ParsedArgs p;
    int status = kExitOk;
    if (!parseCommand(kCommand, args, p, status)) return status;
    std::string error;
    int at = 60;
    if (!parseAt(p, at, error)) return usageError("replay", error, kReplayUsage);
    ReplayJob job;
    job.path = p.positional[0];
    job.shownPath = job.path == "-" ? "standard input" : job.path;
    job.waves = p.has("--waves");
    job.partial = p.has("--partial");
    job.toFile = p.has("--out");
    job.wantReport = p.has("--report");
    job.wantBeats = p.has("--beats");
    if (job.toFile) job.outputs.emplace_back("--out", p.value("--out"));
    if (job.wantReport) job.outputs.emplace_back("--report", p.value("--report"));
    if (job.wantBeats) job.outputs.emplace_back("--beats", p.value("--beats"));
    job.inputs.push_back(job.path);
    if (p.has("--reference")) job.inputs.push_back(p.value("--reference"));

    SourceOptions recordingOptions;
    if (!sourceOptionsFrom(p.values, recordingOptions, error)) return usageError("replay", error, kReplayUsage);
    TemporaryFrames converted;
    FrameReader reader;
    if (!openFrames(job, recordingOptions, converted, reader, error)) return fail(error);

    std::map<int64_t, RateReference> references;
    if (p.has("--reference")) {
        const std::string refPath = p.value("--reference");
        if (!job.wantReport)
            return usageError("replay", "--reference is drawn in the report: add --report FILE.html", kReplayUsage);
        if (!readReference(refPath, references, error)) return fail(refPath + ": " + error);
    }

    OutputFile csvFile;
    std::FILE* csv = stdout;
    if (job.toFile) {
        if (!csvFile.open(p.value("--out"), error)) return fail(p.value("--out") + ": cannot write: " + error);
        csv = csvFile.file();
    }
    writeCsvNotInRecording(csv, job.noRespiration, job.noAccelerometer);
    writeCsvHeader(csv, job.waves);
    OutputFile beatsFile;
    if (job.wantBeats) {
        if (!beatsFile.open(p.value("--beats"), error)) return fail(p.value("--beats") + ": cannot write: " + error);
        writeBeatsCsvHeader(beatsFile.file());
    }

    Report report("rtmonitor replay: " + job.shownPath, at);
    report.setNotInRecording(job.noRespiration, job.noAccelerometer);
    Host host;
    FrameDoubts doubts;
    std::vector<std::string> problems;
    const ReplayCounts n = replayFrames(reader, job, csv, beatsFile.file(), report, host, doubts, problems);
    status = problems.empty() ? kExitOk : kExitInput;
    reportFindings(job, doubts, problems, report);
    if (n.unusable) return status;  // the outputs are dropped unwritten
    if (job.toFile) {
        if (!csvFile.commit(error)) status = fail(p.value("--out") + ": " + error);
    } else if (!finishStandardOutput(error)) {
        status = fail(error);
    }
    if (job.wantBeats && !beatsFile.commit(error)) status = fail(p.value("--beats") + ": " + error);
    if (job.wantReport && !writeReport(p, references, host, report, error))
        status = fail(p.value("--report") + ": cannot write: " + error);
    if (job.toFile || job.wantReport || job.wantBeats)
        std::fprintf(stderr, "rtmonitor replay: %" PRIu64 " frames of %zu device%s analysed\n", n.analysed,
                     host.deviceIds().size(), host.deviceIds().size() == 1 ? "" : "s");
    return status;
}

}  // namespace rtmtool

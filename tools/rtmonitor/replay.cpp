// The `replay` command: every complete frame of a frame file through the library, in file order,
// one CSV row each, plus an optional HTML report. Outputs are checked before the replay starts
// and written through temporary files, so the input is never overwritten and a failure leaves
// no partial file. Input problems (unreadable, empty, truncated, too many devices) are reported
// with the byte offset concerned and exit status 1, after all complete frames before the problem
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
#include "report.h"

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

}  // namespace

int runReplay(const std::vector<std::string>& args) {
    static const CommandSpec kCommand{"replay",
                                      kReplayUsage,
                                      {withRecordingOptions({"--out", "--report", "--at", "--reference"}),
                                       {"--waves"},
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
    const std::string path = p.positional[0];
    const std::string shownPath = path == "-" ? "standard input" : path;
    const bool waves = p.flags.count("--waves") > 0;
    const bool toFile = p.values.count("--out") > 0;
    const bool wantReport = p.values.count("--report") > 0;

    std::vector<std::pair<std::string, std::string>> outputs;
    if (toFile) outputs.emplace_back("--out", p.values["--out"]);
    if (wantReport) outputs.emplace_back("--report", p.values["--report"]);
    std::vector<std::string> inputs{path};
    if (p.values.count("--reference")) inputs.push_back(p.values["--reference"]);

    // A recording is converted into a temporary frame file first, then replayed like any other.
    SourceOptions recordingOptions;
    if (!sourceOptionsFrom(p.values, recordingOptions, error)) return usageError("replay", error, kReplayUsage);
    std::string framePath = path;
    TemporaryFrames converted;
    const bool recording = isRecordingPath(path);
    if (recording) {
        RecordSource source;
        if (!source.open(path, recordingOptions, error)) return fail(error);
        const std::vector<std::string> files = source.reader().inputFiles();
        inputs.insert(inputs.end(), files.begin(), files.end());
        if (!checkOutputs(inputs, outputs, error)) return fail(error + "; nothing was written");
        if (!converted.write(source, path, error)) return fail(error);
        framePath = converted.path();
    }

    FrameReader reader;
    if (!reader.open(framePath)) return fail(shownPath + ": cannot open: " + reader.error());
    if (!recording && !checkOutputs(inputs, outputs, error)) return fail(error + "; nothing was written");

    std::map<int64_t, RateReference> references;
    if (p.values.count("--reference")) {
        const std::string& refPath = p.values["--reference"];
        if (!wantReport)
            return usageError("replay", "--reference is drawn in the report: add --report FILE.html", kReplayUsage);
        if (!readReference(refPath, references, error)) return fail(refPath + ": " + error);
    }

    OutputFile csvFile;
    std::FILE* csv = stdout;
    if (toFile) {
        if (!csvFile.open(p.values["--out"], error)) return fail(p.values["--out"] + ": cannot write: " + error);
        csv = csvFile.file();
    }
    writeCsvHeader(csv, waves);

    Report report("rtmonitor replay: " + shownPath, at);
    Host host;
    FrameDoubts doubts;
    Progress progress("replaying " + shownPath, reader.size());
    std::vector<std::string> problems;
    uint64_t frames = 0, analysed = 0, skipped = 0;
    ParamsIn in;
    ParamsOut out;
    for (;;) {
        const uint64_t offset = reader.offset();
        const FrameReader::Result r = reader.next(in);
        if (r == FrameReader::Result::End) {
            if (frames == 0) problems.push_back(shownPath + ": empty file, no frames to replay");
            break;
        }
        if (r == FrameReader::Result::Incomplete) {
            problems.push_back(shownPath + ": incomplete record at byte offset " + std::to_string(offset) + " (" +
                               std::to_string(reader.partialBytes()) + " of " + std::to_string(kFrameBytes) +
                               " bytes); the " + std::to_string(frames) + " complete frames before it were replayed");
            break;
        }
        if (r == FrameReader::Result::Error) {
            problems.push_back(shownPath + ": read error at byte offset " + std::to_string(offset) + ": " +
                               reader.error() + "; the " + std::to_string(frames) +
                               " complete frames before it were replayed");
            break;
        }
        doubts.add(in);
        size_t device = 0;
        if (host.process(in, out, device)) {
            writeCsvRow(csv, frames, in, out, waves);
            if (wantReport) report.add(device, in, out, nullptr);
            ++analysed;
        } else {
            if (skipped == 0)
                problems.push_back(shownPath + ": more than " + std::to_string(Host::kMaxDevices) +
                                   " devices; frames of further devices (the first at byte offset " +
                                   std::to_string(offset) + ", device " + std::to_string(in.nDeviceId) +
                                   ") are not analysed");
            ++skipped;
        }
        ++frames;
        progress.update(reader.offset());
    }
    progress.finish();
    if (skipped > 0) problems.push_back(shownPath + ": " + std::to_string(skipped) + " frames not analysed");

    status = problems.empty() ? kExitOk : kExitInput;
    // Doubts do not change the exit status: the file was read as asked, it may just not be frames.
    for (const std::string& d : doubts.findings()) {
        const std::string m = "warning: " + shownPath + " does not look like a frame file: " + d;
        std::fprintf(stderr, "rtmonitor replay: %s\n", m.c_str());
        report.addNote(m);
    }
    for (const std::string& m : problems) {
        std::fprintf(stderr, "rtmonitor replay: %s\n", m.c_str());
        report.addNote(m);
    }
    if (toFile) {
        if (!csvFile.commit(error)) status = fail(p.values["--out"] + ": " + error);
    } else if (!finishStandardOutput(error)) {
        status = fail(error);
    }
    if (wantReport) {
        for (int32_t id : host.deviceIds()) {
            auto it = references.find(id);
            if (it == references.end()) it = references.find(kEveryDevice);
            if (it != references.end()) report.setReference(id, it->second.heart, it->second.breath, "reference");
        }
        if (!report.write(p.values["--report"], error))
            status = fail(p.values["--report"] + ": cannot write: " + error);
    }
    if (toFile || wantReport)
        std::fprintf(stderr, "rtmonitor replay: %" PRIu64 " frames of %zu device%s analysed\n", analysed,
                     host.deviceIds().size(), host.deviceIds().size() == 1 ? "" : "s");
    return status;
}

}  // namespace rtmtool

// The `replay` command: every complete frame of a frame file through the library, in file order,
// one CSV row each, plus an optional HTML report. Input problems (unreadable, empty, truncated,
// too many devices) are reported with the byte offset concerned and exit status 1, after all
// complete frames before the problem have been analysed and written.
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

#include "cli.h"
#include "frame_file.h"
#include "host.h"
#include "progress.h"
#include "record_source.h"
#include "report.h"

namespace rtmtool {

int runReplay(const std::vector<std::string>& args) {
    ParsedArgs p;
    std::string error;
    if (!parseArgs(args, {"--out", "--report", "--at", "--ecg", "--resp", "--acc", "--device"}, {"--waves"}, p, error))
        return usageError("replay", error, kReplayUsage);
    if (p.help) {
        std::fputs(kReplayUsage, stdout);
        return kExitOk;
    }
    if (p.positional.size() != 1)
        return usageError("replay", p.positional.empty() ? "no frame file given" : "more than one frame file given",
                          kReplayUsage);
    long long at = 60;
    if (p.values.count("--at") && !parseInteger(p.values["--at"], 0, 1000000000LL, at))
        return usageError("replay", "--at needs a whole number of seconds, not '" + p.values["--at"] + "'",
                          kReplayUsage);
    const std::string path = p.positional[0];
    const bool waves = p.flags.count("--waves") > 0;

    // A recording is converted into a temporary frame file first, then replayed like any other.
    SourceOptions recordingOptions;
    if (!sourceOptionsFrom(p.values, recordingOptions, error)) return usageError("replay", error, kReplayUsage);
    std::string framePath = path;
    struct TempRemover {
        std::string path;
        ~TempRemover() { if (!path.empty()) std::remove(path.c_str()); }
    } converted;
    if (isRecordingPath(path)) {
        if (!convertRecordingToTempFrames(path, recordingOptions, converted.path, error)) {
            std::fprintf(stderr, "rtmonitor replay: %s\n", error.c_str());
            return kExitInput;
        }
        framePath = converted.path;
    }

    FrameReader reader;
    if (!reader.open(framePath)) {
        std::fprintf(stderr, "rtmonitor replay: %s: cannot open: %s\n", path.c_str(), reader.error().c_str());
        return kExitInput;
    }
    std::FILE* csv = stdout;
    const bool toFile = p.values.count("--out") > 0;
    if (toFile) {
        csv = std::fopen(p.values["--out"].c_str(), "w");
        if (csv == nullptr) {
            std::fprintf(stderr, "rtmonitor replay: %s: cannot write: %s\n", p.values["--out"].c_str(),
                         std::strerror(errno));
            return kExitInput;
        }
    }
    writeCsvHeader(csv, waves);

    const bool wantReport = p.values.count("--report") > 0;
    Report report("rtmonitor replay: " + path, static_cast<int>(at));
    Host host;
    Progress progress("replaying " + path, reader.size());
    std::vector<std::string> problems;
    uint64_t frames = 0, analysed = 0, skipped = 0;
    ParamsIn in;
    ParamsOut out;
    for (;;) {
        const uint64_t offset = reader.offset();
        const FrameReader::Result r = reader.next(in);
        if (r == FrameReader::Result::End) {
            if (frames == 0) problems.push_back(path + ": empty file, no frames to replay");
            break;
        }
        if (r == FrameReader::Result::Incomplete) {
            problems.push_back(path + ": incomplete record at byte offset " + std::to_string(offset) + " (" +
                               std::to_string(reader.partialBytes()) + " of " + std::to_string(kFrameBytes) +
                               " bytes); the " + std::to_string(frames) + " complete frames before it were replayed");
            break;
        }
        if (r == FrameReader::Result::Error) {
            problems.push_back(path + ": read error at byte offset " + std::to_string(offset) + ": " + reader.error() +
                               "; the " + std::to_string(frames) + " complete frames before it were replayed");
            break;
        }
        size_t device = 0;
        if (host.process(in, out, device)) {
            writeCsvRow(csv, frames, in, out, waves);
            if (wantReport) report.add(device, in, out, nullptr);
            ++analysed;
        } else {
            if (skipped == 0)
                problems.push_back(path + ": more than " + std::to_string(Host::kMaxDevices) +
                                   " devices; frames of further devices (the first at byte offset " +
                                   std::to_string(offset) + ", device " + std::to_string(in.nDeviceId) +
                                   ") are not analysed");
            ++skipped;
        }
        ++frames;
        progress.update(reader.offset());
    }
    progress.finish();
    if (skipped > 0) problems.push_back(path + ": " + std::to_string(skipped) + " frames not analysed");

    int status = problems.empty() ? kExitOk : kExitInput;
    for (const std::string& m : problems) {
        std::fprintf(stderr, "rtmonitor replay: %s\n", m.c_str());
        report.addNote(m);
    }
    if (toFile) {
        if (std::fclose(csv) != 0) {
            std::fprintf(stderr, "rtmonitor replay: %s: write failed\n", p.values["--out"].c_str());
            status = kExitInput;
        }
    } else if (std::fflush(stdout) != 0) {
        status = kExitInput;
    }
    if (wantReport && !report.write(p.values["--report"], error)) {
        std::fprintf(stderr, "rtmonitor replay: %s: cannot write: %s\n", p.values["--report"].c_str(), error.c_str());
        status = kExitInput;
    }
    if (toFile || wantReport)
        std::fprintf(stderr, "rtmonitor replay: %" PRIu64 " frames of %zu device%s analysed\n", analysed,
                     host.deviceIds().size(), host.deviceIds().size() == 1 ? "" : "s");
    return status;
}

}  // namespace rtmtool

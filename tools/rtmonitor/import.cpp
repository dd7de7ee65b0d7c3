// The `import` command: a WFDB record or an EDF/BDF file converted into a frame file the library
// reads as a host would hand it frames. The frame file is written whole or not at all.
#include <cstdio>
#include <string>

#include "cli.h"
#include "formats/frame_file.h"
#include "output_file.h"
#include "progress.h"
#include "recording_input.h"

namespace rtmtool {

const char* const kImportUsage =
    "usage: rtmonitor import RECORD --out FILE.frames [--ecg LABEL] [--resp LABEL] [--acc X,Y,Z] [--device ID]\n"
    "\n"
    "Converts a recording into a frame file (1320-byte input frames, one per second), which\n"
    "`rtmonitor replay` and any host can run through the library. The file is written whole or not\n"
    "at all; a trailing part of a second is dropped.\n"
    "\n"
    "  --out FILE        frame file to write (required; never the input)\n"
    "\n" RTM_RECORDING_OPTIONS_USAGE;

int runImport(const std::vector<std::string>& args) {
    static const CommandSpec kCommand{"import",
                                      kImportUsage,
                                      {withRecordingOptions({"--out"}),
                                       {},
                                       1,
                                       1,
                                       "no recording given",
                                       "more than one recording given",
                                       {{"--out", "--out FILE.frames is required"}}}};
    ParsedArgs p;
    int status = kExitOk;
    if (!parseCommand(kCommand, args, p, status)) return status;
    std::string error;
    SourceOptions options;
    if (!sourceOptionsFrom(p.values, options, error)) return usageError("import", error, kImportUsage);
    const std::string path = p.positional[0], outPath = p.values["--out"];
    RecordSource source;
    if (!source.open(path, options, error)) {
        std::fprintf(stderr, "rtmonitor import: %s\n", error.c_str());
        return kExitInput;
    }
    if (!checkOutputs(source.reader().inputFiles(), {{"--out", outPath}}, error)) {
        std::fprintf(stderr, "rtmonitor import: %s; nothing was written\n", error.c_str());
        return kExitInput;
    }
    for (const std::string& n : source.notes()) std::fprintf(stderr, "rtmonitor import: %s\n", n.c_str());
    OutputFile out;
    if (!out.open(outPath, error)) {
        std::fprintf(stderr, "rtmonitor import: %s: cannot write: %s\n", outPath.c_str(), error.c_str());
        return kExitInput;
    }
    Progress progress("importing " + path, source.expectedFrames());
    ParamsIn frame;
    unsigned char bytes[kFrameBytes];
    while (source.next(frame, error)) {
        encodeFrame(frame, bytes);
        std::fwrite(bytes, 1, sizeof bytes, out.file());
        progress.update(source.framesDone());
    }
    progress.finish();
    if (!error.empty()) {
        std::fprintf(stderr, "rtmonitor import: %s; no output written\n", error.c_str());
        return kExitInput;
    }
    if (source.framesDone() == 0) {
        std::fprintf(stderr, "rtmonitor import: %s: shorter than one second; no output written\n", path.c_str());
        return kExitInput;
    }
    if (!out.commit(error)) {
        std::fprintf(stderr, "rtmonitor import: %s: cannot write: %s\n", outPath.c_str(), error.c_str());
        return kExitInput;
    }
    std::fprintf(stderr, "rtmonitor import: %llu frames written to %s\n",
                 static_cast<unsigned long long>(source.framesDone()), outPath.c_str());
    return kExitOk;
}

}  // namespace rtmtool

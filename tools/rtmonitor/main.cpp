// rtmonitor: try the library from the command line. `demo` runs a synthetic recording through
// it and compares with the truth, `synth` writes such a recording as a frame file, `replay`
// analyses a frame file into CSV and an optional HTML report. Everything goes through the
// library's C interface only, exactly as a host uses it.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli.h"
#include "rtmonitor.h"

namespace rtmtool {

const char* const kDemoUsage =
    "usage: rtmonitor demo [--minutes N] [--seed S] [--report FILE.html] [--csv FILE.csv] [--at SECONDS]\n"
    "\n"
    "Generates a synthetic recording (ECG, respiration, accelerometer with posture changes and a\n"
    "walking segment), runs it through the library one frame per simulated second, prints one\n"
    "table row per second and a summary comparing the library's results with the generator's truth.\n"
    "\n"
    "  --minutes N       length of the recording, 1..240 (default 4)\n"
    "  --seed S          generator seed, 0..4294967295 (default 1)\n"
    "  --report FILE     also write an HTML report with plots\n"
    "  --csv FILE        also write the per-frame results as replay does\n"
    "  --at SECONDS      start of the waveform stretch in the report (default 60)\n";

const char* const kSynthUsage =
    "usage: rtmonitor synth --out FILE.frames [--minutes N] [--seed S] [--devices K] [--truth FILE.csv]\n"
    "\n"
    "Writes the demo's synthetic recording as a frame file (1320-byte little-endian input frames).\n"
    "\n"
    "  --out FILE        frame file to write (required)\n"
    "  --minutes N       length of the recording, 1..240 (default 4)\n"
    "  --seed S          generator seed, 0..4294967295 (default 1)\n"
    "  --devices K       K devices with ids 1..K, frames interleaved second by second; device k\n"
    "                    uses seed S+k-1, so device 1 is the demo's recording (1..16, default 1)\n"
    "  --truth FILE      also write the generator's truth per device and second as CSV\n";

const char* const kReplayUsage =
    "usage: rtmonitor replay FILE.frames|RECORD [--out RESULTS.csv] [--waves] [--report FILE.html]\n"
    "                        [--at SECONDS] [--reference REF.csv] [--beats BEATS.csv] [--partial]\n"
    "\n"
    "Runs every frame of a frame file (- reads standard input) through the library (a device is\n"
    "given its own analysis state when it first appears) and writes one CSV row per frame: frame,device,seq,\n"
    "heart_rate,heart_status,breath_rate,breath_state,posture,movement_mean,movement_max.\n"
    "A recording (.hea, .edf, .bdf) is converted as `rtmonitor import` does, with its options\n"
    "--ecg, --resp, --acc, --device.\n"
    "Outputs are checked before the replay starts, never overwrite the input, and appear only\n"
    "when complete. A file that does not look like a recording draws a warning. An empty file, or\n"
    "one that ends inside a frame, is an input error (exit 1, nothing written).\n"
    "\n"
    "  --out FILE        write the CSV there instead of standard output\n"
    "  --waves           add the waveform columns heart_wave_0..199, breath_display1_0..24,\n"
    "                    breath_display0_0..24, movement_0..24\n"
    "  --beats FILE      write every confirmed beat there, one CSV row each: device, frame (the\n"
    "                    frame that reported it), sample (its R peak at 200 samples/s, counted per\n"
    "                    device from its first frame), time_s, rr_ms, width_ms, rate, type (4,\n"
    "                    artefact, for every beat in running operation), stability\n"
    "  --report FILE     also write an HTML report with plots, one section per device\n"
    "  --at SECONDS      start of the waveform stretch in the report (default 60)\n"
    "  --reference FILE  reference rates drawn over the library's in the report: CSV with a time\n"
    "                    column (frame, second, time or time_s), hr_ref_bpm/heart_rate/hr and/or\n"
    "                    br_ref_bpm/breath_rate/br, optionally device\n"
    "  --partial         a file still being recorded: analyse its whole frames, warn about the rest\n";

namespace {

const char* const kMainUsage =
    "usage: rtmonitor COMMAND [OPTIONS]\n"
    "\n"
    "commands:\n"
    "  demo     run a synthetic recording through the library and compare with its truth\n"
    "  synth    write a synthetic recording as a frame file\n"
    "  replay   analyse a frame file or a recording into per-frame CSV and an optional HTML report\n"
    "  import   convert a recording (WFDB, EDF, BDF) into a frame file\n"
    "  evaluate score the library's rates on a recording against its reference annotations\n"
    "  meter    run the heart-rate meter test set and judge each scenario\n"
    "  publish  send a frame file or a recording to the worker service (rtmonitor-serve) over NATS\n"
    "  subscribe print the worker service's results as they come\n"
    "\n"
    "`rtmonitor COMMAND --help` describes each command; `rtmonitor --version` prints the library\n"
    "version. Exit status: 0 success, 1 input error,\n"
    "2 usage error.\n";

}  // namespace

std::set<std::string> withRecordingOptions(std::set<std::string> valued) {
    valued.insert({"--ecg", "--resp", "--acc", "--device"});
    return valued;
}

bool parseCommand(const CommandSpec& command, const std::vector<std::string>& args, ParsedArgs& p, int& status) {
    std::string error;
    switch (parseCommandLine(command.options, args, p, error)) {
        case ParseOutcome::Help:
            if (command.help) command.help();
            else std::fputs(command.usage, stdout);
            status = kExitOk;
            return false;
        case ParseOutcome::UsageError: status = usageError(command.name, error, command.usage); return false;
        case ParseOutcome::Run: break;
    }
    return true;
}

bool parseAt(const ParsedArgs& p, int& at, std::string& error) {
    const auto it = p.values.find("--at");
    if (it == p.values.end()) return true;
    long long v = 0;
    if (parseInteger(it->second, 0, 1000000000LL, v)) {
        at = static_cast<int>(v);
        return true;
    }
    long long magnitude = 0;
    if (it->second.size() > 1 && it->second[0] == '-' && parseInteger(it->second.substr(1), 0, 1000000000LL, magnitude))
        error = "--at must be 0 or more seconds from the start of the recording, not " + it->second;
    else error = "--at needs a whole number of seconds from 0 to 1000000000, not '" + it->second + "'";
    return false;
}

int usageError(const std::string& command, const std::string& error, const char* usage) {
    std::fprintf(stderr, "rtmonitor %s: %s\n\n%s", command.c_str(), error.c_str(), usage);
    return kExitUsage;
}

}  // namespace rtmtool

int main(int argc, char** argv) {
    using namespace rtmtool;
    if (argc < 2) {
        std::fputs(kMainUsage, stderr);
        return kExitUsage;
    }
    const std::string command = argv[1];
    const std::vector<std::string> args(argv + 2, argv + argc);
    if (command == "-h" || command == "--help" || command == "help") {
        std::fputs(kMainUsage, stdout);
        return kExitOk;
    }
    if (command == "--version" || command == "version") {
        std::printf("rtmonitor %s\n", rtm_version());
        return kExitOk;
    }
    if (command == "demo") return runDemo(args);
    if (command == "synth") return runSynth(args);
    if (command == "replay") return runReplay(args);
    if (command == "import") return runImport(args);
    if (command == "evaluate") return runEvaluate(args);
    if (command == "meter") return runMeter(args);
    if (command == "publish") return runPublish(args);
    if (command == "subscribe") return runSubscribe(args);
    std::fprintf(stderr, "rtmonitor: unknown command '%s'\n\n%s", command.c_str(), kMainUsage);
    return kExitUsage;
}

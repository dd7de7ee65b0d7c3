// Command-line plumbing shared by the commands: the commands' prologue over the shared option
// parser (formats/options.h), their usages and entry points.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "formats/options.h"

namespace rtmtool {

// The commands are written over the formats layer; its names are used unqualified here.
using namespace rtmfmt;

// What a command's prologue needs: its name for messages, its usage, its option table, and the
// help printer when --help says more than the usage.
struct CommandSpec {
    const char* name;
    const char* usage;
    OptionTable options;
    void (*help)() = nullptr;
};

// The options of every command that reads recordings (see RTM_RECORDING_OPTIONS_USAGE).
std::set<std::string> withRecordingOptions(std::set<std::string> valued);

// Parses a command's arguments against its table. True when the command should run; otherwise
// the help (on standard output) or the usage error (on standard error) has been printed and
// `status` holds the exit status.
bool parseCommand(const CommandSpec& command, const std::vector<std::string>& args, ParsedArgs& p, int& status);

// Reads `--at SECONDS` (start of the report's waveform stretch) into `at` when given; false with
// `error` set for anything but a whole number of seconds from 0.
bool parseAt(const ParsedArgs& p, int& at, std::string& error);

// Prints "rtmonitor CMD: error", then the usage, to standard error; returns kExitUsage.
int usageError(const std::string& command, const std::string& error, const char* usage);

extern const char* const kDemoUsage;
extern const char* const kSynthUsage;
extern const char* const kReplayUsage;
extern const char* const kImportUsage;
extern const char* const kEvaluateUsage;
extern const char* const kMeterUsage;
extern const char* const kPublishUsage;
extern const char* const kSubscribeUsage;

int runDemo(const std::vector<std::string>& args);
int runSynth(const std::vector<std::string>& args);
int runReplay(const std::vector<std::string>& args);
int runImport(const std::vector<std::string>& args);
int runEvaluate(const std::vector<std::string>& args);
int runMeter(const std::vector<std::string>& args);
int runPublish(const std::vector<std::string>& args);    // publish.cpp
int runSubscribe(const std::vector<std::string>& args);  // publish.cpp

}  // namespace rtmtool

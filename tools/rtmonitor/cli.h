// Command-line plumbing shared by the commands: exit statuses, option parsing and the commands'
// entry points. Options are `--name value` or `--name=value`; `-h`/`--help` asks for the usage.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace rtmtool {

constexpr int kExitOk = 0;
constexpr int kExitInput = 1;  // missing, unreadable, empty or truncated input; unwritable output
constexpr int kExitUsage = 2;  // unknown option, bad number, missing argument

struct ParsedArgs {
    std::map<std::string, std::string> values;  // options that take a value
    std::set<std::string> flags;                // options without one
    std::vector<std::string> positional;
    bool help = false;
};

// False with `error` set for an unknown option or a missing value.
bool parseArgs(const std::vector<std::string>& args, const std::set<std::string>& valued,
               const std::set<std::string>& flags, ParsedArgs& out, std::string& error);

// A whole decimal integer in [lo, hi]; false for anything else (signs, spaces, overflow included).
bool parseInteger(const std::string& text, long long lo, long long hi, long long& value);

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

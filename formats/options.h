// Command-line options as every rtmonitor program reads them: `--name value` or `--name=value`,
// flags, positional arguments, `--` ending the options and `-h`/`--help`; the exit statuses the
// programs share. Nothing here prints: a program turns the error text into its message.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace rtmfmt {

constexpr int kExitOk = 0;
constexpr int kExitInput = 1;  // missing, unreadable, empty or truncated input; unwritable output; server problems
constexpr int kExitUsage = 2;  // unknown option, bad number, missing argument

struct ParsedArgs {
    std::map<std::string, std::string> values;  // options that take a value
    std::set<std::string> flags;                // options without one
    std::vector<std::string> positional;
    bool help = false;

    bool has(const std::string& option) const { return values.count(option) > 0 || flags.count(option) > 0; }
    // The option's value, or `fallback` when it was not given.
    std::string value(const std::string& option, const std::string& fallback = "") const;
};

// False with `error` set for an unknown option or a missing value.
bool parseArgs(const std::vector<std::string>& args, const std::set<std::string>& valued,
               const std::set<std::string>& flags, ParsedArgs& out, std::string& error);

// A whole decimal integer in [lo, hi]; false for anything else (signs, spaces, overflow included).
bool parseInteger(const std::string& text, long long lo, long long hi, long long& value);

// A decimal number in [lo, hi]; false for anything else (trailing text, NaN included).
bool parseNumber(const std::string& text, double lo, double hi, double& value);

// Reads a numeric option into `value` when it was given; false with `error` set when it is not a
// number in [lo, hi] (or not whole where `whole` asks for it).
bool numberOption(const ParsedArgs& p, const char* name, double lo, double hi, bool whole, double& value,
                  std::string& error);

// A program's (or command's) option table: which options take values, which are flags, and how
// many positional arguments it takes, with the messages for too few and too many.
struct OptionTable {
    std::set<std::string> valued;
    std::set<std::string> flags;
    size_t minPositional = 0;
    size_t maxPositional = 0;
    const char* tooFew = "missing argument";
    const char* tooMany = nullptr;  // null: "unexpected argument '<first extra>'"
    // Options that must be given, each with the message for its absence.
    std::vector<std::pair<std::string, std::string>> required = {};
};

enum class ParseOutcome { Run, Help, UsageError };

// Parses `args` against `table`: Help for -h/--help, UsageError with `error` set for an unknown
// option, a missing value, a wrong count of positional arguments or a missing required option.
ParseOutcome parseCommandLine(const OptionTable& table, const std::vector<std::string>& args, ParsedArgs& out,
                              std::string& error);

}  // namespace rtmfmt

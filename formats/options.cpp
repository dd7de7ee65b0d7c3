// Command-line option parsing shared by the tool's commands and the worker service.
#include "formats/options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace rtmfmt {

std::string ParsedArgs::value(const std::string& option, const std::string& fallback) const {
    const auto it = values.find(option);
    return it == values.end() ? fallback : it->second;
}

bool parseArgs(const std::vector<std::string>& args, const std::set<std::string>& valued,
               const std::set<std::string>& flags, ParsedArgs& out, std::string& error) {
    bool optionsEnd = false;
    for (size_t i = 0; i < args.size(); ++i) {
        std::string a = args[i];
        if (optionsEnd || a.size() < 2 || a[0] != '-') {
            out.positional.push_back(a);
            continue;
        }
        if (a == "--") {
            optionsEnd = true;
            continue;
        }
        if (a == "-h" || a == "--help") {
            out.help = true;
            continue;
        }
        std::string value;
        bool inlineValue = false;
        const size_t eq = a.find('=');
        if (a.rfind("--", 0) == 0 && eq != std::string::npos) {
            value = a.substr(eq + 1);
            a = a.substr(0, eq);
            inlineValue = true;
        }
        if (valued.count(a)) {
            if (!inlineValue) {
                if (i + 1 >= args.size()) {
                    error = "option " + a + " needs a value";
                    return false;
                }
                value = args[++i];
            }
            out.values[a] = value;
        } else if (flags.count(a) && !inlineValue) {
            out.flags.insert(a);
        } else {
            error = "unknown option " + args[i];
            return false;
        }
    }
    return true;
}

bool parseInteger(const std::string& text, long long lo, long long hi, long long& value) {
    if (text.empty() || text.size() > 19) return false;
    long long v = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        v = v * 10 + (c - '0');
    }
    if (v < lo || v > hi) return false;
    value = v;
    return true;
}

bool parseNumber(const std::string& text, double lo, double hi, double& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size() || errno != 0 || !(v >= lo && v <= hi)) return false;
    value = v;
    return true;
}

bool numberOption(const ParsedArgs& p, const char* name, double lo, double hi, bool whole, double& value,
                  std::string& error) {
    if (!p.values.count(name)) return true;
    const std::string text = p.value(name);
    double v = 0;
    if (!parseNumber(text, lo, hi, v) || (whole && v != static_cast<double>(static_cast<long long>(v)))) {
        error = "bad value '" + text + "' for " + name;
        return false;
    }
    value = v;
    return true;
}

ParseOutcome parseCommandLine(const OptionTable& table, const std::vector<std::string>& args, ParsedArgs& out,
                              std::string& error) {
    if (!parseArgs(args, table.valued, table.flags, out, error)) return ParseOutcome::UsageError;
    if (out.help) return ParseOutcome::Help;
    if (out.positional.size() < table.minPositional) {
        error = table.tooFew;
        return ParseOutcome::UsageError;
    }
    if (out.positional.size() > table.maxPositional) {
        error = table.tooMany ? table.tooMany : "unexpected argument '" + out.positional[table.maxPositional] + "'";
        return ParseOutcome::UsageError;
    }
    for (const auto& r : table.required) {
        if (!out.has(r.first)) {
            error = r.second;
            return ParseOutcome::UsageError;
        }
    }
    return ParseOutcome::Run;
}

}  // namespace rtmfmt

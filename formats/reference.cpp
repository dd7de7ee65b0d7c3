// Reading reference-rate CSV files (see reference.h).
#include "formats/reference.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>

namespace rtmfmt {
namespace {

constexpr size_t kMaxSeconds = 10u * 24 * 3600;  // ten days of one frame per second

std::vector<std::string> split(const std::string& line) {
    std::vector<std::string> r(1);
    for (char c : line) {
        if (c == ',') r.emplace_back();
        else if (c != '\r' && c != '"') r.back() += c;
    }
    for (std::string& f : r) {
        while (!f.empty() && f.front() == ' ') f.erase(f.begin());
        while (!f.empty() && f.back() == ' ') f.pop_back();
    }
    return r;
}

int column(const std::vector<std::string>& header, std::initializer_list<const char*> names,
           std::string* found = nullptr) {
    for (const char* n : names)
        for (size_t i = 0; i < header.size(); ++i)
            if (header[i] == n) {
                if (found) *found = n;
                return static_cast<int>(i);
            }
    return -1;
}

std::string quotedList(const std::vector<std::string>& names) {
    std::string r;
    for (const std::string& n : names) r += (r.empty() ? "'" : ", '") + n + "'";
    return r.empty() ? "none" : r;
}

bool number(const std::string& text, double& v) {
    if (text.empty()) return false;
    char* end = nullptr;
    v = std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size() && std::isfinite(v);
}

void put(std::vector<double>& v, size_t second, double value) {
    if (v.size() <= second) v.resize(second + 1, std::numeric_limits<double>::quiet_NaN());
    v[second] = value;
}

}  // namespace

bool readReference(const std::string& path, std::map<int64_t, RateReference>& out, std::string& error,
                   ReferenceColumns* columns) {
    std::ifstream f(path);
    if (!f) {
        error = "cannot open";
        return false;
    }
    std::string line;
    if (!std::getline(f, line)) {
        error = "empty file; expected a header line naming a time column and a rate column";
        return false;
    }
    const std::vector<std::string> header = split(line);
    ReferenceColumns used;
    const int time = column(header, {"frame", "second", "time", "time_s"}, &used.time);
    const int heart = column(header, {"hr_ref_bpm", "heart_rate", "hr"}, &used.heart);
    const int breath = column(header, {"br_ref_bpm", "breath_rate", "br"}, &used.breath);
    const int device = column(header, {"device"});
    const int agree = breath >= 0 ? column(header, {"br_agree"}) : -1;
    used.agreement = agree >= 0;
    if (time < 0 || (heart < 0 && breath < 0)) {
        error = "the header names the columns " + quotedList(header) +
                "; it needs a time column (frame, second, time or time_s) and a heart-rate (hr_ref_bpm, "
                "heart_rate, hr) or breathing-rate (br_ref_bpm, breath_rate, br) column";
        return false;
    }
    if (columns) *columns = used;
    out.clear();
    for (size_t lineNo = 2; std::getline(f, line); ++lineNo) {
        if (line.empty() || line == "\r") continue;
        const std::vector<std::string> cells = split(line);
        auto cell = [&](int i) { return i >= 0 && static_cast<size_t>(i) < cells.size() ? cells[i] : std::string(); };
        double t = 0, d = 0;
        if (!number(cell(time), t) || t < 0 || t >= static_cast<double>(kMaxSeconds)) {
            error = "line " + std::to_string(lineNo) + ": time '" + cell(time) + "' is not a number of seconds from 0";
            return false;
        }
        int64_t key = kEveryDevice;
        if (device >= 0) {
            if (!number(cell(device), d) || d != std::floor(d) || std::fabs(d) > 2147483647.0) {
                error = "line " + std::to_string(lineNo) + ": device '" + cell(device) + "' is not a device id";
                return false;
            }
            key = static_cast<int64_t>(d);
        }
        RateReference& r = out[key];
        const size_t second = static_cast<size_t>(t);
        for (const auto& [col, series] : {std::pair<int, std::vector<double>*>{heart, &r.heart}, {breath, &r.breath}}) {
            if (col < 0 || cell(col).empty()) continue;
            double v = 0;
            if (!number(cell(col), v) || v < 0) {
                error = "line " + std::to_string(lineNo) + ": rate '" + cell(col) + "' is not a number of 0 or more";
                return false;
            }
            if (col == breath && agree >= 0 && cell(agree) != "1") continue;
            put(*series, second, v);
        }
    }
    if (out.empty()) {
        error = "no rows after the header";
        return false;
    }
    return true;
}

}  // namespace rtmfmt

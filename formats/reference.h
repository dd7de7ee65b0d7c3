// Reference rates from a CSV file, to draw over the library's rates in the report. The first
// line names the columns: a time column (`frame`, `second`, `time` or `time_s`: seconds from the
// device's first frame, one frame per second), a heart-rate column (`hr_ref_bpm`, `heart_rate`,
// `hr`) and/or a breathing-rate column (`br_ref_bpm`, `breath_rate`, `br`), optionally `device`.
// Other columns are ignored; an empty cell means no value that second.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace rtmfmt {

struct RateReference {
    std::vector<double> heart, breath;  // per second; NaN where there is none
};

// Key for the rates of a file without a `device` column: they apply to every device.
constexpr int64_t kEveryDevice = INT64_MIN;

// False with `error` naming the file's problem (and its line) when it cannot be used.
bool readReference(const std::string& path, std::map<int64_t, RateReference>& out, std::string& error);

}  // namespace rtmfmt

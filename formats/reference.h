// Reference rates from a CSV file, the one reader for `replay --reference` (drawn in the report)
// and `evaluate --reference` (scored). The first line names the columns, and the columns are
// chosen by name: a time column (`frame`, `second`, `time` or `time_s`: seconds from the device's
// first frame, one frame per second; a fractional time counts for the second it falls in), a
// heart-rate column (`hr_ref_bpm`, `heart_rate`, `hr`) and/or a breathing-rate column
// (`br_ref_bpm`, `breath_rate`, `br`), optionally `device`, and optionally `br_agree` (a
// breathing rate counts only in rows where it is 1, as the shared reference files mark seconds
// where two estimators agree). Other columns are ignored; an empty cell means no value that
// second. A file without a known time and rate column is refused naming the columns it has.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace rtmfmt {

struct RateReference {
    std::vector<double> heart, breath;  // per second; NaN where there is none
};

// The columns a file was read by, for saying what a score rests on.
struct ReferenceColumns {
    std::string time, heart, breath;  // empty when absent
    bool agreement = false;           // breathing rates kept only where br_agree = 1
};

// Key for the rates of a file without a `device` column: they apply to every device.
constexpr int64_t kEveryDevice = INT64_MIN;

// False with `error` naming the file's problem (and its line) when it cannot be used.
bool readReference(const std::string& path, std::map<int64_t, RateReference>& out, std::string& error,
                   ReferenceColumns* columns = nullptr);

}  // namespace rtmfmt

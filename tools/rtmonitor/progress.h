// Progress bar on standard error for long replays: drawn only when standard error is a terminal,
// and only once the work has taken more than a second, so short runs and pipes stay clean.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace rtmtool {

class Progress {
public:
    Progress(std::string label, uint64_t total);  // total work units (bytes); 0 = unknown
    ~Progress();
    void update(uint64_t done);
    void finish();  // clears the bar if one was drawn

    // The line for `done` of `total`, `width` characters of bar (exposed for tests).
    static std::string render(const std::string& label, uint64_t done, uint64_t total, int width);

private:
    std::string label_;
    uint64_t total_;
    bool enabled_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point start_, last_;
};

}  // namespace rtmtool

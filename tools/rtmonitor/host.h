// The tool's side of the library's C interface: registers each device the first time one of its
// frames appears, runs every frame through processSignal into a fresh output record, and writes
// the per-frame results as CSV rows.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <vector>

#include "rtmonitor.h"

namespace rtmtool {

class Host {
public:
    // Analysis state is never released by the library, so a file naming ever new devices would
    // grow without bound; frames beyond this many devices are not analysed.
    static constexpr size_t kMaxDevices = 64;

    // Runs one frame. False (and `out` untouched) when its device would exceed kMaxDevices.
    // `device` receives the device's index in order of first appearance.
    bool process(const ParamsIn& in, ParamsOut& out, size_t& device);
    const std::vector<int32_t>& deviceIds() const { return ids_; }

private:
    std::map<int32_t, size_t> index_;
    std::vector<int32_t> ids_;
};

// CSV with one row per analysed frame. `waves` adds the 200 display ECG values, both 25-value
// respiration display channels and the 25 movement values.
void writeCsvHeader(std::FILE* f, bool waves);
// Comment lines ("# not in this recording: ...") written before the header when a recording had
// no respiration or no accelerometer channel, so the columns from the substitute are not taken
// for measurements (read with a comment character of '#').
void writeCsvNotInRecording(std::FILE* f, bool respiration, bool accelerometer);
void writeCsvRow(std::FILE* f, uint64_t frameIndex, const ParamsIn& in, const ParamsOut& out, bool waves);

// Movement summary of one frame: the mean and the largest of its 25 levels.
double movementMean(const ParamsOut& out);
int movementMax(const ParamsOut& out);

}  // namespace rtmtool

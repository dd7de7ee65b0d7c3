// The tool's side of the library's C interface: gives each device a handle the first time one of
// its frames appears, runs every frame through it into a fresh output record (the registry's
// results, word for word), and writes the per-frame results and the confirmed beats as CSV rows.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <vector>

#include "rtmonitor.h"

namespace rtmtool {

class Host {
public:
    // Every device's state (75 kB) is kept to the end of the file, so a file naming ever new
    // devices would grow without bound; frames beyond this many devices are not analysed.
    static constexpr size_t kMaxDevices = 64;

    Host() = default;
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host();

    // Runs one frame. False (and `out` untouched) when its device would exceed kMaxDevices or
    // memory runs out. `device` receives the device's index in order of first appearance.
    bool process(const ParamsIn& in, ParamsOut& out, size_t& device);
    const std::vector<int32_t>& deviceIds() const { return ids_; }
    // The beats the device's last frame confirmed (rtm_device_beats), oldest first.
    std::vector<rtm_beat> beats(size_t device) const;

private:
    std::map<int32_t, size_t> index_;
    std::vector<int32_t> ids_;
    std::vector<rtm_device*> handles_;
};

// CSV with one row per analysed frame. `waves` adds the 200 display ECG values, both 25-value
// respiration display channels and the 25 movement values.
void writeCsvHeader(std::FILE* f, bool waves);
// Comment lines ("# not in this recording: ...") written before the header when a recording had
// no respiration or no accelerometer channel, so the columns from the substitute are not taken
// for measurements (read with a comment character of '#').
void writeCsvNotInRecording(std::FILE* f, bool respiration, bool accelerometer);
void writeCsvRow(std::FILE* f, uint64_t frameIndex, const ParamsIn& in, const ParamsOut& out, bool waves);

// CSV with one row per confirmed beat: device, frame (the row of the frame that reported it),
// sample (R peak, per device from its first frame at 200 samples/s), time_s, rr_ms, width_ms,
// rate, type, stability.
void writeBeatsCsvHeader(std::FILE* f);
void writeBeatsCsvRows(std::FILE* f, uint64_t frameIndex, int32_t deviceId, const std::vector<rtm_beat>& beats);

// Movement summary of one frame: the mean and the largest of its 25 levels.
double movementMean(const ParamsOut& out);
int movementMax(const ParamsOut& out);

}  // namespace rtmtool

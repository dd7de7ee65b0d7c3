// Driving the library as a host does (see host.h), and the per-frame CSV.
#include "host.h"

#include <algorithm>
#include <cinttypes>

namespace rtmtool {

bool Host::process(const ParamsIn& in, ParamsOut& out, size_t& device) {
    auto it = index_.find(in.nDeviceId);
    if (it == index_.end()) {
        if (ids_.size() >= kMaxDevices) return false;
        it = index_.emplace(in.nDeviceId, ids_.size()).first;
        ids_.push_back(in.nDeviceId);
        initDevice(in.nDeviceId);
    }
    device = it->second;
    // A fresh record per frame: a stage that writes nothing then shows zeros, never the values
    // of an earlier frame or another device.
    out = ParamsOut{};
    processSignal(in, &out);
    return true;
}

double movementMean(const ParamsOut& out) {
    int64_t sum = 0;
    for (int v : out.nMovement) sum += v;
    return static_cast<double>(sum) / 25.0;
}

int movementMax(const ParamsOut& out) { return *std::max_element(std::begin(out.nMovement), std::end(out.nMovement)); }

void writeCsvNotInRecording(std::FILE* f, bool respiration, bool accelerometer) {
    if (respiration)
        std::fputs(
            "# not in this recording: respiration (the input held a flat substitute); breath_rate and "
            "breath_state are not measurements\n",
            f);
    if (accelerometer)
        std::fputs(
            "# not in this recording: accelerometer (the input held a still sensor lying on the back); "
            "posture and movement are not measurements\n",
            f);
}

void writeCsvHeader(std::FILE* f, bool waves) {
    std::fputs(
        "frame,device,seq,heart_rate,heart_status,breath_rate,breath_state,posture,"
        "movement_mean,movement_max",
        f);
    if (waves) {
        for (int i = 0; i < 200; ++i) std::fprintf(f, ",heart_wave_%d", i);
        for (int i = 0; i < 25; ++i) std::fprintf(f, ",breath_display1_%d", i);
        for (int i = 0; i < 25; ++i) std::fprintf(f, ",breath_display0_%d", i);
        for (int i = 0; i < 25; ++i) std::fprintf(f, ",movement_%d", i);
    }
    std::fputc('\n', f);
}

void writeCsvRow(std::FILE* f, uint64_t frameIndex, const ParamsIn& in, const ParamsOut& out, bool waves) {
    std::fprintf(
        f, "%" PRIu64 ",%" PRId32 ",%" PRId32 ",%" PRId32 ",%" PRId32 ",%" PRId32 ",%" PRId32 ",%" PRId32 ",%.2f,%d",
        frameIndex, in.nDeviceId, in.nFrameSeq, out.nHeartRate, out.nHeartStatus, out.nBreathRate, out.nBreathState,
        out.nPosture, movementMean(out), movementMax(out));
    if (waves) {
        for (int v : out.nHeartWave) std::fprintf(f, ",%d", v);
        for (int v : out.nBreathDisplay1) std::fprintf(f, ",%d", v);
        for (int v : out.nBreathDisplay0) std::fprintf(f, ",%d", v);
        for (int v : out.nMovement) std::fprintf(f, ",%d", v);
    }
    std::fputc('\n', f);
}

}  // namespace rtmtool

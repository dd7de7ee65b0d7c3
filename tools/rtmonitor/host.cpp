// Driving the library as a host does (see host.h), the per-frame CSV and the beats CSV.
#include "host.h"

#include <algorithm>
#include <cinttypes>

namespace rtmtool {

Host::~Host() {
    for (rtm_device* h : handles_) rtm_device_destroy(h);
}

bool Host::process(const ParamsIn& in, ParamsOut& out, size_t& device) {
    auto it = index_.find(in.nDeviceId);
    if (it == index_.end()) {
        if (ids_.size() >= kMaxDevices) return false;
        rtm_device* h = rtm_device_create();
        if (h == nullptr) return false;
        handles_.push_back(h);
        it = index_.emplace(in.nDeviceId, ids_.size()).first;
        ids_.push_back(in.nDeviceId);
    }
    device = it->second;
    // A fresh record per frame: a stage that writes nothing then shows zeros, never the values
    // of an earlier frame or another device.
    out = ParamsOut{};
    rtm_device_process(handles_[device], &in, &out);
    return true;
}

std::vector<rtm_beat> Host::beats(size_t device) const {
    std::vector<rtm_beat> out(RTM_BEATS_MAX);
    if (device >= handles_.size()) return {};
    out.resize(std::min<size_t>(rtm_device_beats(handles_[device], out.data(), out.size()), RTM_BEATS_MAX));
    return out;
}

void writeBeatsCsvHeader(std::FILE* f) {
    std::fputs("device,frame,sample,time_s,rr_ms,width_ms,rate,type,stability\n", f);
}

void writeBeatsCsvRows(std::FILE* f, uint64_t frameIndex, int32_t deviceId, const std::vector<rtm_beat>& beats) {
    for (const rtm_beat& b : beats)
        std::fprintf(
            f, "%" PRId32 ",%" PRIu64 ",%" PRId64 ",%.3f,%" PRId32 ",%" PRId32 ",%" PRId32 ",%" PRId32 ",%" PRId32 "\n",
            deviceId, frameIndex, b.sample, static_cast<double>(b.sample) / 200.0, b.rr_ms, b.width_ms, b.rate, b.type,
            b.stability);
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

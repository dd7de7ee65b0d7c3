// Frame streams shared by the handle, stress and pipeline tests: a synthetic device with
// disturbances, heart restarts and sequence gaps, and the shared recordings when present.
#pragma once

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "support/frames.h"
#include "synth/vitals.h"

namespace rtm_test {

using Handle = std::unique_ptr<rtm_device, void (*)(rtm_device*)>;
inline Handle makeHandle() { return Handle(rtm_device_create(), rtm_device_destroy); }

// Every kind of segment, a heart restart (nHeartMode 1) every 70 frames, a sequence jump every
// 45 and a frame with an unknown heart mode now and then.
inline std::vector<ParamsIn> disturbedStream(int id, uint64_t seed, int frames) {
    rtm_synth::DeviceRecording rec(id, seed, 50.0 + static_cast<double>(seed % 80),
                                   10.0 + static_cast<double>(seed % 12));
    std::vector<ParamsIn> out(static_cast<std::size_t>(frames));
    for (int k = 0; k < frames; ++k) {
        const int phase = static_cast<int>((static_cast<uint64_t>(k) + seed) % 50);
        rtm_synth::Segment kind = rtm_synth::Segment::Clean;
        if (phase >= 30 && phase < 34) kind = rtm_synth::Segment::Noisy;
        if (phase == 40) kind = static_cast<rtm_synth::Segment>(2 + (static_cast<uint64_t>(k) / 50 + seed) % 3);
        ParamsIn& f = out[static_cast<std::size_t>(k)];
        rec.fill(f, kind);
        if (k % 70 == 69) f.nHeartMode = 1;
        if (k % 97 == 96) f.nHeartMode = 3;
        if (k % 45 == 44) f.nFrameSeq += 7;
    }
    return out;
}

// The frames of a shared recording, empty when the file is absent.
inline std::vector<ParamsIn> recording(const std::string& name) {
    std::ifstream file(std::string(RTM_DATA_DIR) + "/" + name + ".frames", std::ios::binary);
    std::vector<ParamsIn> out;
    ParamsIn f;
    while (file.read(reinterpret_cast<char*>(&f), sizeof f)) out.push_back(f);
    return out;
}

}  // namespace rtm_test

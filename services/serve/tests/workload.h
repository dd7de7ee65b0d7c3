// The load of the failover tests: 200 synthetic devices x 120 frames, interleaved second by
// second (ids 1..200, each device its own seed), and every device's outputs from one
// uninterrupted handle, which the results stream must equal whatever fails on the way.
#pragma once

#include <vector>

#include "results_check.h"
#include "synth/recording.h"

namespace servetest {

constexpr int kWorkloadDevices = 200;
constexpr int kWorkloadSeconds = 120;
constexpr uint64_t kWorkloadFrames = static_cast<uint64_t>(kWorkloadDevices) * kWorkloadSeconds;

struct Workload {
    std::vector<ParamsIn> frames;
    Reference expected;
};

inline const Workload& workload() {
    static const Workload w = [] {
        Workload r;
        std::vector<std::vector<ParamsIn>> perDevice;
        for (int d = 1; d <= kWorkloadDevices; ++d) {
            rtm_synth::SynthOptions o;
            o.seconds = kWorkloadSeconds;
            o.seed = static_cast<uint32_t>(d);
            o.deviceId = d;
            perDevice.push_back(rtm_synth::synthesize(o).frames);
        }
        for (int s = 0; s < kWorkloadSeconds; ++s)
            for (const auto& dev : perDevice) r.frames.push_back(dev[static_cast<size_t>(s)]);
        r.expected = replayThroughHandles(r.frames);
        return r;
    }();
    return w;
}

}  // namespace servetest

// Fuzz target: the whole frame pipeline through the three C entry points. The input is a small
// program for four devices: run N frames, change a channel's recipe, restart or drop a device,
// jump the frame sequence, switch the heart mode. Every output record is checked against the
// properties that hold for any input, and every frame is timed.
//
// Input grammar, one operation per step (byte reader yields 0 past the end):
//   op byte: device = kIds[op & 3]; action = op >> 2
//     0 initDevice   1 freeDevice   2 sequence jump (s32 added)   3 heart mode (mode byte)
//     4 heart recipe 5 breath channel 1 recipe 6 breath channel 0 recipe 7 motion recipe
//     8.. frames: count byte c, runs c + 1 frames
#include <climits>
#include <cstring>
#include <memory>

#include "frame_script.h"
#include "fuzz_common.h"

namespace rtm_fuzz_pipeline {

using namespace rtm_fuzz;

// Ordinary ids next to the ones a careless host might send.
constexpr int kIds[4] = {1, -1, 0, INT_MAX};
// Bounds the work per input so the fuzzer keeps its speed: ten minutes of device time.
constexpr int kMaxFramesPerInput = 600;

struct Device {
    explicit Device(uint64_t seed)
        : heart(true, seed), chan1(false, seed + 11), chan0(false, seed + 23), motion(seed + 37) {}
    ChannelSource heart;
    ChannelSource chan1;
    ChannelSource chan0;
    MotionSource motion;
    int32_t seq = 0;
    int32_t mode = 0;
    bool modeSticky = false;
};

int32_t heartModeFrom(ByteReader& in, bool* sticky) {
    const uint8_t m = in.u8();
    *sticky = (m & 0x80) != 0;
    switch (m & 7) {
        case 0:
        case 1: return 1;  // restart, what hosts send most
        case 2: return 0;
        case 3: return 2;
        case 4: return -1;
        default: return in.s32();
    }
}

RecordReclaimer& reclaimer() {
    static RecordReclaimer r;
    return r;
}

}  // namespace rtm_fuzz_pipeline

#ifndef RTM_FUZZ_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    rtm_fuzz::setupStats(250);
    return 0;
}
#endif

RTM_FUZZ_TARGET(rtmFuzzPipeline) {
    using namespace rtm_fuzz_pipeline;
    ByteReader in(data, size);
    std::unique_ptr<Device> dev[4];
    for (int i = 0; i < 4; ++i) dev[i].reset(new Device(1000u * (i + 1)));

    int frames = 0;
    while (!in.empty() && frames < kMaxFramesPerInput) {
        const uint8_t op = in.u8();
        const int d = op & 3;
        const int id = kIds[d];
        Device& D = *dev[d];
        switch (op >> 2) {
            case 0:
                reclaimer().aboutToDrop(id);
                initDevice(id);
                break;
            case 1:
                // An unknown id is created and at once dropped by freeDevice; registering it
                // first makes that record visible to the reclaimer, with the same end state.
                if (!reclaimer().listed(id)) initDevice(id);
                reclaimer().aboutToDrop(id);
                freeDevice(id);
                break;
            case 2: D.seq = static_cast<int32_t>(static_cast<uint32_t>(D.seq) + in.u32()); break;
            case 3: D.mode = heartModeFrom(in, &D.modeSticky); break;
            case 4: D.heart.readRecipe(in); break;
            case 5: D.chan1.readRecipe(in); break;
            case 6: D.chan0.readRecipe(in); break;
            case 7: D.motion.readRecipe(in); break;
            default: {
                const int count = 1 + in.u8();
                for (int k = 0; k < count && frames < kMaxFramesPerInput; ++k, ++frames) {
                    ParamsIn f;
                    std::memset(&f, 0, sizeof f);
                    f.nDeviceId = id;
                    f.nFrameSeq = D.seq;
                    f.nHeartMode = D.mode;
                    f.nReservedA = f.nReservedB = static_cast<int32_t>(0xDEADBEEF);
                    D.heart.fill(in, f.nHeartData, 200);
                    D.chan1.fill(in, f.nBreathChan1, 25);
                    D.chan0.fill(in, f.nBreathChan0, 25);
                    D.motion.fill(in, f.nAccX, f.nAccY, f.nAccZ, 25);
                    ParamsOut out;
                    std::memset(&out, 0, sizeof out);
                    timedFrame([&] { processSignal(f, &out); });
                    checkOutput(out, f.nHeartMode, static_cast<uint64_t>(frames));
                    D.seq = static_cast<int32_t>(static_cast<uint32_t>(D.seq) + 1u);
                    if (!D.modeSticky) D.mode = 0;
                }
                break;
            }
        }
    }
    reclaimer().reset();
    return 0;
}

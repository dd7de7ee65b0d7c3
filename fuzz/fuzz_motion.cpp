// Fuzz target: posture and movement, the two accelerometer stages, on raw 32-bit words. They
// are cheap, so every input may hold many frames of arbitrary counts, including the extremes
// that overflow naive sums of squares.
//
// Input grammar: repeated { n byte (1..25 samples per axis, for the classifier), then 75 s32
// words: 25 x, 25 y, 25 z }. The movement stage always takes 25 samples, as in the pipeline.
#include <cstring>

#include "frame_script.h"
#include "fuzz_common.h"

namespace rtm_fuzz_motion {
constexpr int kMaxFramesPerInput = 2000;
GeneralTimeTime& registryForMotion() {
    // Its own registry, not the process singleton: the stages are reached through the same
    // wrappers the pipeline uses, for one device.
    static GeneralTimeTime* g = new GeneralTimeTime();
    return *g;
}
}  // namespace rtm_fuzz_motion

#ifndef RTM_FUZZ_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    rtm_fuzz::setupStats(250);
    return 0;
}
#endif

RTM_FUZZ_TARGET(rtmFuzzMotion) {
    using namespace rtm_fuzz;
    ByteReader in(data, size);
    GeneralTimeTime& g = rtm_fuzz_motion::registryForMotion();
    int frames = 0;
    while (!in.empty() && frames < rtm_fuzz_motion::kMaxFramesPerInput) {
        const int n = 1 + in.u8() % 25;
        int32_t x[25], y[25], z[25], movement[25];
        for (int i = 0; i < 25; ++i) x[i] = in.s32();
        for (int i = 0; i < 25; ++i) y[i] = in.s32();
        for (int i = 0; i < 25; ++i) z[i] = in.s32();
        int posture = 0;
        timedFrame([&] {
            posture = g.GetPostureDet(5, frames, x, y, z, n);
            g.GetMovementData(5, frames, x, y, z, movement, 25);
        });
        if (posture < 0 || posture > 9) invariantFailed("posture outside 0..9", posture, frames);
        for (int i = 0; i < 25; ++i)
            if (movement[i] < 1 || movement[i] > 1023) invariantFailed("movement outside 1..1023", movement[i], frames);
        ++frames;
    }
    for (UserDataStruct* r : g.m_vecUserData) delete r;
    g.m_vecUserData.clear();
    return 0;
}

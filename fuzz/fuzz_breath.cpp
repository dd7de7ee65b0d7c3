// Fuzz target: the respiration analyser alone, one 25-sample block per step. Without the rest of
// the pipeline each input runs more blocks, which reaches the slow-moving parts (holds, rate
// history, the trimmed means) that need minutes of signal.
//
// Input grammar: op byte; action = op & 7
//   0 channel 1 recipe   1 channel 0 recipe   2 nPass (s32)   3 BreathProInit   4 BreathnoProInit
//   5..7 blocks: count byte c, runs c + 1 blocks
#include <cstring>
#include <memory>

#include "frame_script.h"
#include "fuzz_common.h"
#include "rtmonitor/CBreathPro.h"

namespace rtm_fuzz_breath {
constexpr int kMaxBlocksPerInput = 900;
}

#ifndef RTM_FUZZ_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    rtm_fuzz::setupStats(250);
    return 0;
}
#endif

RTM_FUZZ_TARGET(rtmFuzzBreath) {
    using namespace rtm_fuzz;
    ByteReader in(data, size);
    std::unique_ptr<ZeroedAnalyser<CBreathPro>> holder(new ZeroedAnalyser<CBreathPro>());
    CBreathPro* breath = &holder->a;
    breath->BreathProInit();
    breath->BreathnoProInit();
    ChannelSource chan1(false, 77), chan0(false, 91);
    int pass = 0;
    int blocks = 0;
    while (!in.empty() && blocks < rtm_fuzz_breath::kMaxBlocksPerInput) {
        const uint8_t op = in.u8();
        switch (op & 7) {
            case 0: chan1.readRecipe(in); break;
            case 1: chan0.readRecipe(in); break;
            case 2: pass = in.s32(); break;
            case 3: breath->BreathProInit(); break;
            case 4: breath->BreathnoProInit(); break;
            default: {
                const int count = 1 + in.u8();
                for (int k = 0; k < count && blocks < rtm_fuzz_breath::kMaxBlocksPerInput; ++k, ++blocks) {
                    int32_t c0[25], c1[25], d0[25], d1[25];
                    chan1.fill(in, c1, 25);
                    chan0.fill(in, c0, 25);
                    std::memset(d0, 0, sizeof d0);
                    std::memset(d1, 0, sizeof d1);
                    int rate = 0, status = 0;
                    timedFrame([&] { breath->ProcessingBreath(pass, c0, c1, 25, d0, d1, &rate, &status); });
                    if (stats().checkBreath) checkBreathOutput(d0, d1, rate, status, blocks);
                }
                break;
            }
        }
    }
    return 0;
}

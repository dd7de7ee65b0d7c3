// Fuzz target: the cardiac analyser alone, one 200-sample packet per step, with the packet
// number and mode under the input's control. Long inputs pass the one-minute start-up and reach
// the running-state learning, the beat ring and the rate averaging.
//
// Input grammar: op byte; action = op & 7
//   0 signal recipe   1 mode (byte: 0..3 -> 0, 1, 2, s32; bit 7 = keep for later packets)
//   2 packet-number jump (s32 added)   3 HeartProInit   4 Init   5 Init_NOBeat
//   6..7 packets: count byte c, runs c + 1 packets
#include <cstring>
#include <memory>

#include "frame_script.h"
#include "fuzz_common.h"
#include "rtmonitor/CBeatMeasure.h"

namespace rtm_fuzz_heart {
constexpr int kMaxPacketsPerInput = 900;
}

#ifndef RTM_FUZZ_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    rtm_fuzz::setupStats(250);
    return 0;
}
#endif

RTM_FUZZ_TARGET(rtmFuzzHeart) {
    using namespace rtm_fuzz;
    ByteReader in(data, size);
    std::unique_ptr<ZeroedAnalyser<CBeatMeasure>> holder(new ZeroedAnalyser<CBeatMeasure>());
    CBeatMeasure* heart = &holder->a;
    // The settings are not read by the analyser; the values are the ones the registry passes.
    const SettingParameter settings{190, 120, 50};
    heart->HeartProInit();
    heart->Init(settings);
    heart->Init_NOBeat(settings);
    ChannelSource ecg(true, 4242);
    int32_t packetNo = 0, mode = 0;
    bool sticky = false;
    int packets = 0;
    while (!in.empty() && packets < rtm_fuzz_heart::kMaxPacketsPerInput) {
        const uint8_t op = in.u8();
        switch (op & 7) {
            case 0: ecg.readRecipe(in); break;
            case 1: {
                const uint8_t m = in.u8();
                sticky = (m & 0x80) != 0;
                const int k = m & 3;
                mode = k == 0 ? 0 : k == 1 ? 1 : k == 2 ? 2 : in.s32();
                break;
            }
            case 2: packetNo = static_cast<int32_t>(static_cast<uint32_t>(packetNo) + in.u32()); break;
            case 3: heart->HeartProInit(); break;
            case 4: heart->Init(settings); break;
            case 5: heart->Init_NOBeat(settings); break;
            default: {
                const int count = 1 + in.u8();
                for (int k = 0; k < count && packets < rtm_fuzz_heart::kMaxPacketsPerInput; ++k, ++packets) {
                    int32_t samples[200], wave[200];
                    ecg.fill(in, samples, 200);
                    std::memset(wave, 0, sizeof wave);
                    int rate = -7, reserved = -7, quality = -7;
                    timedFrame([&] {
                        heart->ProcessingHeart(0, packetNo, mode, samples, 200, wave, &rate, &reserved, &quality);
                    });
                    if (stats().checkHeart) checkHeartOutput(mode, rate, reserved, quality, packets);
                    packetNo = static_cast<int32_t>(static_cast<uint32_t>(packetNo) + 1u);
                    if (!sticky) mode = 0;
                }
                break;
            }
        }
    }
    return 0;
}

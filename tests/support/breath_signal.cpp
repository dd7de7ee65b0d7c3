// Helpers that drive the respiration analyser one 25-sample frame at a time for the tests.
#include "support/breath_signal.h"

namespace rtm_test {

void resetBreath(CBreathPro& a) {
    a.BreathProInit();
    a.BreathnoProInit();
}

BreathBlockOut feedBreathBlock(CBreathPro& a, const int* chan1, const int* chan0) {
    int c0[kBreathBlock];
    int c1[kBreathBlock];
    for (int i = 0; i < kBreathBlock; ++i) {
        c1[i] = chan1[i];
        c0[i] = chan0 ? chan0[i] : chan1[i];
    }
    BreathBlockOut out{};
    // Sentinels show whether the analyser wrote its outputs.
    out.rate = -12345;
    out.status = -12345;
    a.ProcessingBreath(1, c0, c1, kBreathBlock, out.display0, out.display1, &out.rate, &out.status);
    return out;
}

}  // namespace rtm_test

// Breath driver: a dead-sensor block clears the decision state (not the spectral rates), the
// disturbance hold (eight updates of status 0, the rate falling at the fourth), any 32-bit words
// on channel 1 giving bounded outputs and recovery, and channel order inside a whole frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <vector>

#include "rtmonitor.h"
#include "support/breath_signal.h"
#include "synth/random.h"

using rtm_test::BreathRun;
using rtm_test::kBreathBlock;

TEST(BreathDriver, DeadBlockClearsTheDecisionStateButNotTheSpectralRates) {
    for (int rail : {0, 65535}) {
        BreathRun s(15, 30);
        const float spectral9 = s.a.fSpectralRateHistory[9];
        std::vector<int> dead(kBreathBlock, rail);
        const auto out = s.next(dead.data());  // channel 0 keeps breathing and is still displayed
        EXPECT_TRUE(out.rate == 0 && out.status == 0 && s.a.fReportedRate == 0.0f && out.display0[0] > 0);
        EXPECT_TRUE(s.a.nSpectralBinHistory[9] == 0 && s.a.fSpectralRateHistory[9] == spectral9);
        EXPECT_EQ(s.next().rate, 0) << rail;  // restarts from 0: one update is not enough
    }
}

TEST(BreathDriver, DisturbanceHoldsEightUpdatesAndTheRateFallsAtTheFourth) {
    BreathRun s(25, 30);  // a rhythm whose crossing flag is 1 throughout
    ASSERT_EQ(s.next().rate, 25);
    s.a.nMotionHold = 1;  // as left by a sample of high energy, which no input can produce
    for (int update = 1; update <= 8; ++update) {
        const auto out = s.next();
        EXPECT_TRUE(out.status == 0 && out.rate == (update < 4 ? 25 : 0)) << update;
    }
    EXPECT_EQ(s.next().status, 1);  // the ninth analyses again
}

TEST(BreathDriver, AnyWordsGiveBoundedOutputsAndRecover) {
    for (int kind = 0; kind < 12; ++kind) {
        BreathRun s(15, kind < 6 ? 0 : 30);  // from reset, and from a settled rhythm
        rtm_synth::Rng words(7);
        for (int second = 0, i = 0; second < 60; ++second) {
            int c[kBreathBlock];
            for (int k = 0; k < kBreathBlock; ++k, ++i) {
                const int word[] = {0,
                                    65535,
                                    INT_MIN,
                                    INT_MAX,
                                    (i & 1) ? INT_MIN : INT_MAX,
                                    static_cast<int>(static_cast<uint32_t>(words.next()))};
                c[k] = word[kind % 6];
            }
            const auto out = s.next(c);
            for (int k = 0; k < kBreathBlock; ++k) ASSERT_TRUE(out.display1[k] >= 0 && out.display1[k] <= 1000);
            ASSERT_TRUE(out.status >= 0 && out.status <= 2 && out.rate >= 0 && out.rate < 749) << kind;
            ASSERT_TRUE(kind % 6 >= 2 || (out.rate == 0 && out.status == 0));  // a sensor at a rail
        }
        rtm_test::BreathBlockOut out;
        for (int second = 0; second < 70; ++second) out = s.next();
        EXPECT_EQ(out.rate, 15) << kind;  // once the 40 s window is clean again
    }
}

TEST(BreathStage, FrameAnalysesChannelOne) {
    rtm_test::BreathSignal sig(18);
    ParamsIn in{};
    ParamsOut out;
    in.nDeviceId = 7301;
    std::fill(in.nBreathChan0, in.nBreathChan0 + 25, 30000);  // flat: displayed at 0
    for (int frame = 0; frame < 30; ++frame) sig.nextBlock(in.nBreathChan1), processSignal(in, &out);
    EXPECT_TRUE(out.nBreathRate == 18 && out.nBreathState == 1);
    EXPECT_TRUE(std::all_of(out.nBreathDisplay0, out.nBreathDisplay0 + 25, [](int v) { return v == 0; }));
    freeDevice(7301);
}

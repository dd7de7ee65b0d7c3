// Breath driver: dead-sensor blocks, the disturbance and no-signal holds, the output trimmed
// mean, any 32-bit input on both channels, and the breath stage inside a whole frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>

#include "rtmonitor.h"
#include "support/breath_signal.h"

namespace {

using rtm_test::BreathBlockOut;
using rtm_test::kBreathBlock;

// An analyser that has reported `bpm` for a while, and the signal that got it there.
struct Settled {
    std::unique_ptr<CBreathPro> a = std::make_unique<CBreathPro>();
    rtm_test::BreathSignal sig;
    explicit Settled(int bpm, int seconds = 30) : sig(bpm) {
        rtm_test::resetBreath(*a);
        for (int s = 0; s < seconds; ++s) next();
    }
    BreathBlockOut next() {
        int block[kBreathBlock];
        sig.nextBlock(block);
        return rtm_test::feedBreathBlock(*a, block);
    }
};

}  // namespace

TEST(BreathDriver, DeadBlockClearsTheDecisionStateButNotTheSpectralRates) {
    for (int rail : {0, 65535}) {
        Settled s(15);
        ASSERT_EQ(s.next().rate, 15);
        float spectral[10];
        std::copy(s.a->fSpectralRateHistory, s.a->fSpectralRateHistory + 10, spectral);
        const int64_t samples = s.a->lSampleCount;

        int dead[kBreathBlock];
        std::fill(dead, dead + kBreathBlock, rail);
        int live0[kBreathBlock];
        s.sig.nextBlock(live0);  // channel 0 keeps breathing and is still displayed
        const BreathBlockOut out = rtm_test::feedBreathBlock(*s.a, dead, live0);
        EXPECT_EQ(out.rate, 0);
        EXPECT_EQ(out.status, 0);
        EXPECT_EQ(s.a->fReportedRate, 0.0f);
        EXPECT_EQ(s.a->lSampleCount, samples + kBreathBlock);
        for (int k = 0; k < 10; ++k) {
            EXPECT_EQ(s.a->nSpectralBinHistory[k], 0);
            EXPECT_EQ(s.a->fSpectralRateHistory[k], spectral[k]);
        }
        for (int k = 0; k < 5; ++k) EXPECT_EQ(s.a->fReportedHistory[k], 0.0f);
        EXPECT_GT(*std::max_element(out.display0, out.display0 + kBreathBlock), 0);

        // The next live block starts again from a reported rate of 0: one update is not enough.
        EXPECT_EQ(s.next().rate, 0) << rail;
    }
}

TEST(BreathDriver, BlockWithOneSampleOffTheRailIsNotDead) {
    Settled s(15);
    int block[kBreathBlock];
    std::fill(block, block + kBreathBlock, 0);
    block[7] = 1;
    rtm_test::feedBreathBlock(*s.a, block);
    EXPECT_EQ(s.a->fReportedHistory[0], 15.0f);  // the history was shifted, not cleared
}

TEST(BreathDriver, DisturbanceHoldsEightUpdatesAndTheRateFallsAtTheFourth) {
    Settled s(25);  // a rhythm whose crossing flag is 1 throughout
    ASSERT_EQ(s.next().rate, 25);
    int bins[10];
    std::copy(s.a->nSpectralBinHistory, s.a->nSpectralBinHistory + 10, bins);

    s.a->nMotionHold = 1;  // as left by a sample of high energy
    for (int update = 1; update <= 8; ++update) {
        const BreathBlockOut out = s.next();
        EXPECT_EQ(out.status, 0) << update;
        EXPECT_EQ(out.rate, update < 4 ? 25 : 0) << update;
        EXPECT_EQ(s.a->nMotionHold, update + 1);
    }
    // No analysis ran during the hold.
    EXPECT_TRUE(std::equal(bins, bins + 10, s.a->nSpectralBinHistory));

    const BreathBlockOut ninth = s.next();  // analyses again; four zeros still fill the middle
    EXPECT_EQ(s.a->nMotionHold, 0);
    EXPECT_EQ(ninth.status, 1);
    EXPECT_EQ(ninth.rate, 0);
    EXPECT_EQ(s.next().rate, 25);
}

TEST(BreathDriver, NoSignalStatusWinsWhileBothHoldsRun) {
    Settled s(25);
    s.a->nMotionHold = 1;
    s.a->nNoSignalHold = 1;
    const int expected[] = {2, 2, 2, 0, 0, 0, 0, 0, 1};
    for (int update = 0; update < 9; ++update) EXPECT_EQ(s.next().status, expected[update]) << update;
}

TEST(BreathDriver, RateIsTheTruncatedMiddleOfTheLastFiveRoundedRates) {
    Settled s(15);
    // A held update appends a 0 to the five rounded rates.
    const float high[] = {99, 14, 15, 15, 16};  // -> 0, 14, 15, 15, 16: 44 / 3 = 14.67
    std::copy(high, high + 5, s.a->fReportedHistory);
    s.a->nMotionHold = 1;
    EXPECT_EQ(s.next().rate, 14);  // truncated, not rounded
}

namespace {

enum class Bad { Zero, Rail, Min, Max, Alternating, AlternatingRails, Random };

int badSample(Bad kind, int i, uint32_t& seed) {
    switch (kind) {
        case Bad::Zero: return 0;
        case Bad::Rail: return 65535;
        case Bad::Min: return INT_MIN;
        case Bad::Max: return INT_MAX;
        case Bad::Alternating: return (i & 1) ? INT_MIN : INT_MAX;
        case Bad::AlternatingRails: return (i & 1) ? 0 : 65535;
        case Bad::Random: seed = seed * 1664525u + 1013904223u; return static_cast<int>(seed);
    }
    return 0;
}

class BreathBadInput : public ::testing::TestWithParam<Bad> {};

}  // namespace

TEST_P(BreathBadInput, AnyWordsGiveBoundedOutputs) {
    const Bad kind = GetParam();
    // From reset, and after a settled rhythm (the filters then start from a real baseline).
    for (int warm : {0, 30}) {
        Settled s(15, warm);
        uint32_t seed = 7;
        int i = 0;
        for (int second = 0; second < 60; ++second) {
            int c0[kBreathBlock];
            int c1[kBreathBlock];
            for (int k = 0; k < kBreathBlock; ++k, ++i) {
                c1[k] = badSample(kind, i, seed);
                c0[k] = badSample(kind, i + 1, seed);
            }
            const BreathBlockOut out = rtm_test::feedBreathBlock(*s.a, c1, c0);
            for (int k = 0; k < kBreathBlock; ++k) {
                ASSERT_GE(out.display0[k], 0);
                ASSERT_LE(out.display0[k], 1000);
                ASSERT_GE(out.display1[k], 0);
                ASSERT_LE(out.display1[k], 1000);
            }
            ASSERT_TRUE(out.status == 0 || out.status == 1 || out.status == 2);
            // Counted rates are below 75; spectral means top out at bin 511 (748 per minute).
            ASSERT_GE(out.rate, 0);
            ASSERT_LE(out.rate, 749);
            if (kind == Bad::Zero || kind == Bad::Rail) {
                ASSERT_EQ(out.rate, 0);  // a sensor stuck at a rail
                ASSERT_EQ(out.status, 0);
            }
        }
        // And it recovers: a rate held from the bad words gives way once the 40 s window is
        // clean and the jump guard has let go.
        rtm_test::BreathBlockOut out{};
        for (int second = 0; second < 70; ++second) out = s.next();
        EXPECT_EQ(out.rate, 15) << "after warm-up " << warm;
    }
}

INSTANTIATE_TEST_SUITE_P(Words, BreathBadInput,
                         ::testing::Values(Bad::Zero, Bad::Rail, Bad::Min, Bad::Max,
                                           Bad::Alternating, Bad::AlternatingRails, Bad::Random));

TEST(BreathStage, FrameCarriesChannelOneRateAndBothDisplays) {
    // Channel 1 breathes at 18/min, channel 0 is flat: the rate and display 1 must come from
    // channel 1 exactly as a lone analyser computes them, and display 0 stays at the bottom.
    const int id = 7301;
    initDevice(id);
    auto direct = std::make_unique<CBreathPro>();
    rtm_test::resetBreath(*direct);
    rtm_test::BreathSignal sig(18);
    ParamsIn in;
    std::memset(&in, 0, sizeof in);
    in.nDeviceId = id;
    std::fill(in.nHeartData, in.nHeartData + 200, 512);
    std::fill(in.nAccX, in.nAccX + 25, 512);
    std::fill(in.nAccY, in.nAccY + 25, 512);
    std::fill(in.nAccZ, in.nAccZ + 25, 640);
    std::fill(in.nBreathChan0, in.nBreathChan0 + 25, 30000);
    ParamsOut out;
    for (int frame = 0; frame < 30; ++frame) {
        in.nFrameSeq = frame;
        sig.nextBlock(in.nBreathChan1);
        const BreathBlockOut ref = rtm_test::feedBreathBlock(*direct, in.nBreathChan1, in.nBreathChan0);
        std::memset(&out, 0xff, sizeof out);
        ASSERT_EQ(processSignal(in, &out), 1);
        ASSERT_EQ(out.nBreathRate, ref.rate) << frame;
        ASSERT_EQ(out.nBreathState, ref.status) << frame;
        for (int k = 0; k < 25; ++k) {
            ASSERT_EQ(out.nBreathDisplay1[k], ref.display1[k]) << frame;
            ASSERT_EQ(out.nBreathDisplay0[k], 0) << frame;
        }
    }
    EXPECT_EQ(out.nBreathRate, 18);
    EXPECT_EQ(out.nBreathState, 1);
    freeDevice(id);
}

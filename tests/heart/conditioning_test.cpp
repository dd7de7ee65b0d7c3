// Input conditioning: the low-pass gain and its 32-bit accumulator, the running-mean remover's
// two regimes, the fixed-index median, the per-sample chain's delay and display offset, and the
// detection pass's chain against its exported parts, the convex operator included.
#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

#include "common/exact_math.h"
#include "heart/driver_stages.h"
#include "heart/heart_run.h"

using HeartConditioning = heart_run::BeatTest;

TEST_F(HeartConditioning, LowPassSettlesToTheTruncatedGainAndWrapsAt32Bits) {
    for (int c : {-777, 123457, 2000000}) {
        b.EcgAnalysisInit(0);
        int out = 0;
        for (int k = 0; k < 29; ++k) out = b.LowFilterHeart(c);
        // 2000000 x 10615 overflows the accumulator, which wraps; the quotient truncates toward 0.
        EXPECT_EQ(out, static_cast<int32_t>(static_cast<uint32_t>(int64_t{c} * 10615)) / 10000) << c;
    }
}

TEST_F(HeartConditioning, BaseFilterPlainMeanThenLeakyIntegrator) {
    EXPECT_EQ(b.BaseFilter(2147483647), 0) << "x - x / 1";
    EXPECT_EQ(b.BaseFilter(10), 1073741829) << "the sum wraps: 10 - (INT32_MIN + 9) / 2";
    for (int k = 2; k < 200; ++k) b.BaseFilter(0);
    b.nBaseSum = 0;
    // From the 201st sample the estimate moves by 1/200 of the error, read after the update.
    EXPECT_EQ(b.BaseFilter(200), 199);
    EXPECT_EQ(b.BaseFilter(200), 199);
    EXPECT_EQ(b.nBaseSum, 399);
}

TEST_F(HeartConditioning, MedianAtIndex25AndTheDelayedChain) {
    std::vector<int> v(51);
    std::iota(v.rbegin(), v.rend(), -20);  // 30 down to -20
    EXPECT_EQ(b.medfilt1(v.data(), 51, 51), 5);
    EXPECT_EQ(b.medfilt1(v.data(), 30, 30), 26) << "1..30: the 26th smallest, not the median";

    // Display flat for 50 samples; the baseline-free value is delayed by 25.
    int out[60], display[60];
    for (int k = 0; k < 60; ++k) out[k] = b.Processingheartdata(0, k % 30 ? 0 : 1000, &display[k]);
    for (int k = 0; k < 50; ++k) ASSERT_EQ(display[k], 512) << k;
    // Impulses at 0 and 30 reach the centre of the median window 25 samples later (the second
    // after the ring has wrapped); the median ignores them, the running mean does not.
    EXPECT_EQ(out[25], 1000 - 1000 / 26);
    EXPECT_EQ(out[55], 1000 - 2000 / 56);
    EXPECT_EQ(display[50], (out[48] + out[49] + out[50]) / 3 + 512);
}

// The chain the detection pass runs per sample, against its exported parts called one by one and
// a plain ten-term energy sum: the same display values, ring words and energy crossings over more
// than one turn of the 4000-sample rings, across packet boundaries (where the kept median window
// is checked again and the energy sum restarts), and through a packet large enough to wrap the
// 32-bit arithmetic.
TEST_F(HeartConditioning, TheDetectionChainMatchesItsPartsCalledOneByOne) {
    auto holder = heart_run::makeAnalyser();
    CBeatMeasure& ref = holder->beat;
    b.nEnergyThreshold[0] = ref.nEnergyThreshold[0] = 40;
    int window[10] = {};  // the last ten convex values, newest at refWindowPos - 1
    int refWindowPos = 0;

    heart_run::Ecg ecg(75.0, 300.0);
    int totalCrossings = 0;
    for (int packet = 0; packet < 22; ++packet) {
        heart_run::Packet p = ecg.packet();
        if (packet == 9)
            for (size_t i = 0; i < p.size(); i += 7) p[i] = (i % 2 != 0) ? 2000000000 : -2000000000;

        int wave[200];
        const int crossings = rtm::heart::conditionPacket(b, 0, p.data(), 200, wave);

        int refCrossings = 0;
        for (int i = 0; i < 200; ++i) {
            int display = 0;
            ref.Processingheartdata(0, p[i], &display);
            ASSERT_EQ(wave[i], display) << "packet " << packet << ", sample " << i;
            const int low = ref.LowFilterHeart(static_cast<int>(static_cast<uint32_t>(display) - 512u));
            const int s = rtm::floatToIntX86(static_cast<double>(static_cast<float>(low)) * 1000.0 / 80.0);
            ref.nRingPos = (ref.nRingPos + 1) % 4000;
            ref.nFilteredRing[0][ref.nRingPos] = s;
            ref.nAbsRing[0][ref.nRingPos] = rtm::wrapAbs32(s);
            ref.Convexpointoperator(0);

            window[refWindowPos] = ref.nConvexRing[0][(ref.nRingPos + 3997) % 4000];
            refWindowPos = (refWindowPos + 1) % 10;
            uint32_t energy = 0;
            for (int v : window) energy += (static_cast<uint32_t>(v) * static_cast<uint32_t>(v)) / 10000u;
            const int slot = ref.nEnergyRingPos;
            ref.nEnergyRing[slot] = static_cast<int>(energy / 10u);
            ref.nEnergyRingPos = (slot + 1) % 4000;
            const double last = ref.nEnergyRing[slot] - 20.0, before = ref.nEnergyRing[(slot + 3999) % 4000] - 20.0;
            if (last * before < 0.0) ++refCrossings;
        }
        ASSERT_EQ(crossings, refCrossings) << "packet " << packet;
        totalCrossings += crossings;
    }
    EXPECT_GT(totalCrossings, 0) << "the threshold must lie inside the energy's range";
    EXPECT_EQ(b.nRingPos, ref.nRingPos);
    EXPECT_EQ(b.nEnergyRingPos, ref.nEnergyRingPos);
    for (int k = 0; k < 4000; ++k) {
        ASSERT_EQ(b.nFilteredRing[0][k], ref.nFilteredRing[0][k]) << k;
        ASSERT_EQ(b.nAbsRing[0][k], ref.nAbsRing[0][k]) << k;
        ASSERT_EQ(b.nConvexRing[0][k], ref.nConvexRing[0][k]) << k;
        ASSERT_EQ(b.nEnergyRing[k], ref.nEnergyRing[k]) << k;
    }
}

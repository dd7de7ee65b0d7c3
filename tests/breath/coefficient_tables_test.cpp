// Coefficient tables of the respiration filters: their stated sums and symmetry, and each FIR's
// impulse response (an impulse of 10000 makes every output sample equal one tap exactly).
#include <gtest/gtest.h>

#include <memory>
#include <numeric>
#include <vector>

#include "breath/breath_tables.h"
#include "rtmonitor/CBreathPro.h"

namespace {

template <typename T>
bool symmetric(const T* t, int n) {
    for (int k = 0; k < n; ++k)
        if (t[k] != t[n - 1 - k]) return false;
    return true;
}

template <typename Step>
std::vector<int> impulseResponse(int length, Step step) {
    std::vector<int> out;
    for (int i = 0; i < length + 5; ++i) out.push_back(step(i == 0 ? 10000 : 0));
    return out;
}

}  // namespace

TEST(BreathTables, ProBandPassSumsAndMirrors) {
    const int32_t* t = rtm::nCoef_breath_pro;
    EXPECT_EQ(std::accumulate(t, t + rtm::kBreathProTaps, 0), 10648);
    EXPECT_TRUE(symmetric(t, rtm::kBreathProTaps));
    EXPECT_EQ(t[0], -137);
    EXPECT_EQ(t[57], 894);
}

TEST(BreathTables, HighPassSumsAndRunsMonotonically) {
    const int32_t* t = rtm::nCoef_breath_high;
    EXPECT_EQ(std::accumulate(t, t + rtm::kBreathHighTaps, 0), -15);
    EXPECT_TRUE(symmetric(t, rtm::kBreathHighTaps));
    EXPECT_EQ(t[0], -175);
    EXPECT_EQ(t[162], 9955);
    EXPECT_EQ(t[1], -9);
    EXPECT_EQ(t[161], -45);
    for (int k = 1; k < 161; ++k) EXPECT_LE(t[k + 1], t[k]) << k;
    // The runs of -9 down to -18 fill taps 1..37; -19 starts at tap 38.
    EXPECT_EQ(t[37], -18);
    EXPECT_EQ(t[38], -19);
}

TEST(BreathTables, EnvelopeTableSumsAndMirrors) {
    EXPECT_EQ(std::accumulate(rtm::BaoLuo_Coef, rtm::BaoLuo_Coef + rtm::kBaoLuoTaps, int64_t{0}), 33749);
    EXPECT_TRUE(symmetric(rtm::BaoLuo_Coef, rtm::kBaoLuoTaps));
}

TEST(BreathTables, DisplayLowPassImpulseResponse) {
    auto b = std::make_unique<CBreathPro>();
    b->BreathProInit();
    const auto h = impulseResponse(33, [&](int x) { return b->LowFilterBreath_display(x, 1); });
    EXPECT_EQ(h[0], 95);
    EXPECT_EQ(h[16], 1217);
    EXPECT_EQ(h[15], 1185);
    EXPECT_TRUE(symmetric(h.data(), 33));
    EXPECT_EQ(std::accumulate(h.begin(), h.begin() + 33, 0), 9299);
    for (int i = 33; i < 38; ++i) EXPECT_EQ(h[i], 0);
    // The other channel's ring is untouched.
    EXPECT_EQ(b->LowFilterBreath_display(0, 0), 0);
}

TEST(BreathTables, UncalledChainFiltersUseTheirTables) {
    auto b = std::make_unique<CBreathPro>();
    b->BreathProInit();
    const auto pro = impulseResponse(115, [&](int x) { return b->LowFilterBreath_pro(x); });
    const auto high = impulseResponse(325, [&](int x) { return b->highFilterBreath_pro(x); });
    for (int k = 0; k < 115; ++k) EXPECT_EQ(pro[k], rtm::nCoef_breath_pro[k]) << k;
    for (int k = 0; k < 325; ++k) EXPECT_EQ(high[k], rtm::nCoef_breath_high[k]) << k;
    EXPECT_EQ(pro[115], 0);
    EXPECT_EQ(high[325], 0);
}

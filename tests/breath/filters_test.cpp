// Respiration filters and display waveform: the coefficient tables' sums and symmetry, the
// display low-pass impulse response, the switch of the baseline from a plain to an exponential
// mean after 50 samples, and the display value (flat below a swing of 11, logistic from 11 on,
// with the deviation divided by the integer standard deviation in double precision).
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "breath/breath_tables.h"
#include "rtmonitor/CBreathPro.h"

namespace {

template <typename T>
void expectSumAndMirror(const T* t, int n, T sum) {
    EXPECT_EQ(std::accumulate(t, t + n, T{0}), sum);
    for (int k = 0; k < n; ++k) EXPECT_EQ(t[k], t[n - 1 - k]) << k;
}

struct BreathFilters : ::testing::Test {
    CBreathPro b;
    void SetUp() override { b.BreathProInit(); }
};

}  // namespace

TEST_F(BreathFilters, TablesAndDisplayLowPass) {
    expectSumAndMirror(nCoef_breath_pro, kBreathProTaps, 10648);
    expectSumAndMirror(nCoef_breath_high, kBreathHighTaps, -15);
    expectSumAndMirror(BaoLuo_Coef, kBaoLuoTaps, int64_t{33749});
    std::vector<int> h;  // an impulse of 10000 shows each tap exactly
    for (int i = 0; i < 34; ++i) h.push_back(b.LowFilterBreath_display(i == 0 ? 10000 : 0, 1));
    EXPECT_TRUE(h[0] == 95 && h[16] == 1217 && h[33] == 0);
    expectSumAndMirror(h.data(), 33, 9299);
}

TEST_F(BreathFilters, BaselineSwitchesToExponentialAfterFiftySamples) {
    EXPECT_EQ(b.nBaseFilterBreath_display(100000, 0), 0);  // first sample: x minus itself
    for (int k = 2; k < 50; ++k) b.nBaseFilterBreath_display(0, 0);
    EXPECT_EQ(b.nBaseFilterBreath_display(0, 0), -2000);  // 50th: plain mean of 50
    EXPECT_EQ(b.nBaseFilterBreath_display(0, 0), -1960);  // sum 98000
    EXPECT_EQ(b.nBaseFilterBreath_display(0, 0), -1920);  // a plain mean of 52 gives -1923
}

TEST_F(BreathFilters, SwingOfTenIsFlatAndElevenIsLogistic) {
    // A constant input conditions to 0, so the zoom window holds exactly the preset values.
    for (int i = 35; i < 70; ++i) b.nZoomRing[0][i] = 10, b.nZoomRing[1][i] = 11;
    int y0 = -1, y1 = -1;
    // Eleven: mean 385 / 70 = 5, std sqrt(2135 / 69 = 30) = 5; y = 0 gives 1000 / (e + 1) = 268.9.
    EXPECT_EQ(b.BaseLowFilter_Zoom(0, 7000, 7000, &y0, &y1), 268);
    EXPECT_TRUE(y0 == 0 && y1 == 0);
    for (int i = 35; i < 70; ++i) b.nZoomRing[1][i] = -11;  // y above the mean -5: above 500
    EXPECT_EQ(b.BaseLowFilter_Zoom(0, 7000, 7000, &y0, &y1), 731);
}

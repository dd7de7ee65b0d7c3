// Display conditioning: baseline removal (mean, then exponential from the 51st sample), the
// three-point mean, and the display value (flat below a swing of 11, logistic otherwise).
#include <gtest/gtest.h>

#include <memory>

#include "rtmonitor/CBreathPro.h"

namespace {

std::unique_ptr<CBreathPro> freshAnalyser() {
    auto b = std::make_unique<CBreathPro>();
    b->BreathProInit();
    return b;
}

// With a constant input the chain outputs 0, so the zoom window holds exactly what a test puts
// into its other slots (slot 0 is the one the next sample overwrites).
int packedDisplayAfterPresets(CBreathPro& b, const int (&ch0)[70], const int (&ch1)[70]) {
    for (int i = 0; i < 70; ++i) {
        b.nZoomRing[0][i] = ch0[i];
        b.nZoomRing[1][i] = ch1[i];
    }
    int y0 = -1, y1 = -1;
    const int r = b.BaseLowFilter_Zoom(0, 7000, 7000, &y0, &y1);
    EXPECT_EQ(y0, 0);
    EXPECT_EQ(y1, 0);
    return r;
}

}  // namespace

TEST(BreathDisplay, BaselineSwitchesToExponentialAfterFiftySamples) {
    auto b = freshAnalyser();
    EXPECT_EQ(b->nBaseFilterBreath_display(100000, 0), 0);  // first sample: x minus itself
    EXPECT_EQ(b->nBaseFilterBreath_display(0, 0), -50000);
    for (int k = 3; k < 50; ++k) b->nBaseFilterBreath_display(0, 0);
    EXPECT_EQ(b->nBaseFilterBreath_display(0, 0), -2000);  // 50th: plain mean of 50
    EXPECT_EQ(b->nBaseFilterBreath_display(0, 0), -1960);  // sum 98000
    EXPECT_EQ(b->nBaseFilterBreath_display(0, 0), -1920);  // sum 96040; a plain mean gives -1923
    EXPECT_EQ(b->nDisplayBaseCount[0], 50);
    EXPECT_EQ(b->nDisplayBaseCount[1], 0);
}

TEST(BreathDisplay, ThreePointMeanTruncatesAndWraps) {
    auto b = freshAnalyser();
    EXPECT_EQ(b->smooth_data_display(5, 1), 5);
    EXPECT_EQ(b->smooth_data_display(-8, 1), -1);  // -3 / 2 truncates toward zero
    EXPECT_EQ(b->smooth_data_display(9, 1), 2);
    EXPECT_EQ(b->smooth_data_display(30, 1), 10);  // the 5 has left the ring
    EXPECT_EQ(b->smooth_data(4, 0), 4);            // the second chain keeps its own rings
}

TEST(BreathDisplay, ConstantInputGivesZeroConditionedAndFlatDisplay) {
    auto b = freshAnalyser();
    for (int i = 0; i < 200; ++i) {
        int y0 = -1, y1 = -1;
        EXPECT_EQ(b->BaseLowFilter_Zoom(0, 30000, 65535, &y0, &y1), 0);
        EXPECT_EQ(y0, 0);
        EXPECT_EQ(y1, 0);
    }
}

TEST(BreathDisplay, SwingOfTenIsFlatAndElevenIsLogistic) {
    auto b = freshAnalyser();
    int ten[70] = {};
    int eleven[70] = {};
    for (int i = 35; i < 70; ++i) {
        ten[i] = 10;
        eleven[i] = 11;
    }
    // Eleven: mean 385 / 70 = 5, std = sqrt(2135 / 69 = 30) = 5; y = 0 gives
    // 1000 / (e + 1) = 268.9, truncated.
    EXPECT_EQ(packedDisplayAfterPresets(*b, ten, eleven), 268);
    EXPECT_EQ(packedDisplayAfterPresets(*b, eleven, ten), 2680000);
}

TEST(BreathDisplay, TinySpreadWithSwingElevenHasZeroStdAndShowsMidScale) {
    auto b = freshAnalyser();
    int w[70] = {};
    w[10] = 6;
    w[20] = -5;  // squared deviations 61 < 69: the integer std is 0
    EXPECT_EQ(packedDisplayAfterPresets(*b, w, w), 5000500);
}

TEST(BreathDisplay, SampleBelowTheMeanShowsAboveMidScale) {
    auto b = freshAnalyser();
    int w[70] = {};
    for (int i = 35; i < 70; ++i) w[i] = -11;
    // mean -385 / 70 = -5 (truncated toward zero), std 5: 1000 / (e^-1 + 1) = 731.06
    EXPECT_EQ(packedDisplayAfterPresets(*b, w, w) % 10000, 731);
}

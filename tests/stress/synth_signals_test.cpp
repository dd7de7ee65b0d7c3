// The synthetic recordings used by the stress test, the fuzz seeds and the soak run must look
// like what a real sensor delivers, or the robustness figures would be about the wrong signals.
#include <gtest/gtest.h>

#include <algorithm>

#include "synth/vitals.h"

namespace {

using rtm_synth::DeviceRecording;
using rtm_synth::Segment;

TEST(SynthSignals, CleanFramesStayInTheSensorsRanges) {
    for (uint64_t seed = 1; seed < 6; ++seed) {
        DeviceRecording rec(3, seed, 40.0 + 30.0 * static_cast<double>(seed), 12.0 + static_cast<double>(seed));
        for (int k = 0; k < 60; ++k) {
            ParamsIn f;
            rec.fill(f, Segment::Clean);
            const auto hr = std::minmax_element(f.nHeartData, f.nHeartData + 200);
            EXPECT_LT(*hr.second - *hr.first, 950) << "ECG packet peak-to-peak must stay in range";
            EXPECT_GT(*hr.second - *hr.first, 130) << "every packet holds at least one beat";
            const auto br = std::minmax_element(f.nBreathChan1, f.nBreathChan1 + 25);
            EXPECT_GE(*br.first, 28400);
            EXPECT_LE(*br.second, 31600);
            EXPECT_EQ(f.nFrameSeq, k);
        }
    }
}

TEST(SynthSignals, RPeaksComeAtTheRequestedRate) {
    rtm_synth::EcgSynth ecg(5, 90.0, 250.0);
    int peaks = 0;
    double prev2 = 0, prev1 = 0;
    for (int i = 0; i < 200 * 60; ++i) {
        const double v = ecg.cleanSample();
        if (prev1 > 512 + 150 && prev1 > prev2 && prev1 >= v) ++peaks;
        prev2 = prev1;
        prev1 = v;
    }
    EXPECT_NEAR(peaks, 90, 2);
}

TEST(SynthSignals, DisturbancesLookAsIntended) {
    DeviceRecording rec(1, 3, 70, 15);
    ParamsIn f;
    rec.fill(f, Segment::Flat);
    EXPECT_EQ(*std::max_element(f.nHeartData, f.nHeartData + 200), *std::min_element(f.nHeartData, f.nHeartData + 200));
    rec.fill(f, Segment::OverRange);
    EXPECT_GT(*std::max_element(f.nHeartData, f.nHeartData + 200) - *std::min_element(f.nHeartData, f.nHeartData + 200), 950);
    rec.fill(f, Segment::Dead);
    EXPECT_EQ(std::count(f.nBreathChan1, f.nBreathChan1 + 25, 0), 25);
}

}  // namespace

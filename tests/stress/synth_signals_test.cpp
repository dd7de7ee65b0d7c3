// The synthetic recordings used by the stress test, the fuzz seeds and the soak run must look
// like what a real sensor delivers, or the robustness figures would be about the wrong signals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

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

// The truth the models report matches the signal they make: every R peak counted is a local
// maximum of the clean ECG at its time, and a metronome's peaks are exactly one interval apart.
TEST(SynthSignals, TruthNamesTheRPeaksAndBreathsMade) {
    rtm_synth::EcgSynth ecg(9, 75.0, 250.0);
    ecg.setVariability(0.0, 0.0);
    std::vector<double> wave;
    std::vector<double> peaks;
    for (int i = 0; i < 200 * 30; ++i) {
        const int64_t before = ecg.rPeaksSoFar();
        wave.push_back(ecg.cleanSample());
        if (ecg.rPeaksSoFar() != before) peaks.push_back(ecg.lastRPeak());
    }
    ASSERT_GT(peaks.size(), 30u);
    for (size_t k = 1; k < peaks.size(); ++k) EXPECT_NEAR(peaks[k] - peaks[k - 1], 0.8, 1e-9);
    for (const double t : peaks) {
        const auto n = static_cast<size_t>(std::lround(t * 200.0));
        ASSERT_LT(n + 1, wave.size());
        EXPECT_GT(wave[n], 512.0 + 200.0);
        EXPECT_GE(wave[n], std::max(wave[n - 1], wave[n + 1]) - 10.0) << "peak at " << t;
    }

    rtm_synth::RespSynth resp(4, 15.0, 1500.0);
    double other = 0.0;
    for (int i = 0; i < 25 * 60; ++i) resp.sample(&other);
    EXPECT_NEAR(static_cast<double>(resp.cyclesSoFar()), 15.0, 1.0);
}

TEST(SynthSignals, DisturbancesLookAsIntended) {
    DeviceRecording rec(1, 3, 70, 15);
    ParamsIn f;
    rec.fill(f, Segment::Flat);
    EXPECT_EQ(*std::max_element(f.nHeartData, f.nHeartData + 200), *std::min_element(f.nHeartData, f.nHeartData + 200));
    rec.fill(f, Segment::OverRange);
    EXPECT_GT(*std::max_element(f.nHeartData, f.nHeartData + 200) - *std::min_element(f.nHeartData, f.nHeartData + 200),
              950);
    rec.fill(f, Segment::Dead);
    EXPECT_EQ(std::count(f.nBreathChan1, f.nBreathChan1 + 25, 0), 25);
}

}  // namespace

// Synthetic ECG for the cardiac tests: a sum-of-Gaussians P-QRS-T beat model at 200 samples/s
// in raw counts on a 512 baseline, with the truth (beat times, rate) alongside. R amplitude and
// rate are chosen by the test; the packet peak-to-peak stays under 950 for R up to 350 counts.
#pragma once

#include <cstdint>
#include <vector>

namespace rtm {
namespace test {

struct EcgSignalOptions {
    double ratePerMinute = 75.0;  // beats per minute
    double rAmplitude = 250.0;    // R wave height above baseline, counts
    double baseline = 512.0;      // counts
    double noiseCounts = 0.0;     // uniform noise half-width, counts
    bool inverted = false;        // mainly negative QRS (V1-like lead)
    uint32_t seed = 1;            // noise seed
    double firstBeatSeconds = 0.3;
};

class EcgSignal {
public:
    explicit EcgSignal(const EcgSignalOptions& options);

    // Fills `count` samples (200 per second) continuing where the last call ended.
    void fill(int* out, int count);
    // One 200-sample packet.
    std::vector<int> packet();

    double rrSeconds() const { return rr_; }
    int64_t samplesDone() const { return sample_; }
    const EcgSignalOptions& options() const { return options_; }

private:
    double valueAt(double t) const;
    double noise();

    EcgSignalOptions options_;
    double rr_;
    int64_t sample_ = 0;
    uint32_t rng_;
};

// A packet of 200 equal samples (electrodes off).
std::vector<int> flatPacket(int value = 512);
// A packet whose peak-to-peak exceeds 950 counts (saturation spikes on a 512 baseline).
std::vector<int> overRangePacket();
// A packet of uniformly random counts in [lo, hi], from a simple seeded generator.
std::vector<int> randomPacket(uint32_t& state, int lo, int hi);

}  // namespace test
}  // namespace rtm

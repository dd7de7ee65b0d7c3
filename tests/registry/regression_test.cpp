// Long-run regression: a checksum of every output word over a few thousand frames of varied
// synthetic input from the shared generator (clean, noisy, flat, over-range, dead sensor,
// sequence gaps, restarts, walking, arbitrary words) for three interleaved devices. Any change to the recorded value
// changes what hosts see and must be explained in the commit that makes it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "rtmonitor.h"
#include "support/frames.h"
#include "synth/vitals.h"

namespace {

using rtm_synth::DeviceRecording;
using rtm_synth::Segment;

// One second of a device whose behaviour changes every minute of the recording.
ParamsIn syntheticFrame(DeviceRecording& rec, int second, rtm_synth::Rng& rng) {
    const int id = rec.id();
    const int minute = (second / 60 + id) % 8;
    rec.ecg().setRate(55.0 + 10.0 * (id % 3) + 15.0 * std::sin(second / 97.0));
    rec.resp().setRate(10.0 + 3.0 * (id % 3) + 2.0 * std::sin(second / 53.0));
    Segment kind = minute == 2 ? Segment::Noisy : Segment::Clean;
    if (minute == 3 && second % 60 < 10) kind = Segment::Flat;       // electrodes off
    if (minute == 4 && second % 60 == 5) kind = Segment::OverRange;  // electrode pop
    if (minute == 5 && second % 60 < 8) kind = Segment::Dead;        // sensor disconnected
    ParamsIn in;
    rec.fill(in, kind);
    if (minute == 6) {  // walking
        for (int i = 0; i < 25; ++i) {
            const double t = second + i / 25.0;
            in.nAccX[i] = 640 + static_cast<int>(60.0 * std::sin(rtm_synth::kTwoPi * 2.0 * t) + rng.uniform(-30, 30));
            in.nAccY[i] = 512 + static_cast<int>(rng.uniform(-40, 40));
            in.nAccZ[i] = 512 + static_cast<int>(80.0 * std::sin(rtm_synth::kTwoPi * 4.0 * t));
        }
    }
    if (minute == 7 && second % 60 == 30) in.nFrameSeq += 5;  // a gap in the numbering
    if (second % 60 == 0 && minute == 1) in.nHeartMode = 1;   // host restarts the heart analysis
    if (minute == 0 && second % 60 == 45) {                   // a corrupted frame from the radio link
        std::mt19937 words(static_cast<unsigned>(second));
        in = rtm_test::randomFrame(id, words);
    }
    return in;
}

uint64_t fnv1a(uint64_t h, const void* data, std::size_t n) {
    const unsigned char* p = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
    return h;
}

TEST(Regression, OutputChecksumOverALongVariedRun) {
    const int ids[3] = {501, 502, 503};
    std::vector<DeviceRecording> recordings;
    for (int id : ids) recordings.emplace_back(id, static_cast<uint64_t>(id), 70.0, 14.0);
    rtm_synth::Rng rng(42);
    uint64_t h = 1469598103934665603ull;
    for (int id : ids) initDevice(id);
    for (int second = 0; second < 1200; ++second) {
        for (DeviceRecording& rec : recordings) {
            ParamsIn in = syntheticFrame(rec, second, rng);
            ParamsOut out{};
            processSignal(in, &out);
            h = fnv1a(h, &out, sizeof out);
        }
    }
    for (int id : ids) freeDevice(id);
    std::printf("output checksum %016llx\n", static_cast<unsigned long long>(h));
    EXPECT_EQ(h, 0xfacd38dd41110080ull);
}

}  // namespace

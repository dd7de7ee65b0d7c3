// What the alarms can see through the library: synthetic recordings (80/min, 15/min) run through
// a device handle and the rules, with 40 s of one channel changed from second 60. Pins the facts
// docs/station.md states under "What the library cannot detect", so a change of either side
// shows here.
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "rtmonitor.h"
#include "rules.h"
#include "synth/recording.h"

namespace {

using namespace rtmalarms;

constexpr int kSeconds = 140, kFrom = 60, kTo = 100;

struct Raised {
    AlarmId id;
    int second;
};

// Every alarm raised over the recording, with the second of the result that raised it.
std::vector<Raised> alarmsFor(const std::function<void(ParamsIn&, std::mt19937&)>& change, int to = kTo) {
    rtm_synth::SynthOptions o;
    o.seconds = kSeconds;
    o.fixedHeartRate = 80;
    o.fixedBreathRate = 15;
    const auto rec = rtm_synth::synthesize(o);
    rtm_device* dev = rtm_device_create();
    DeviceRules rules(1, "test");
    std::mt19937 rng(3);
    std::vector<Raised> raised;
    for (int s = 0; s < kSeconds; ++s) {
        ParamsIn f = rec.frames[static_cast<size_t>(s)];
        if (s >= kFrom && s < to) change(f, rng);
        ParamsOut out;
        rtm_device_process(dev, &f, &out);
        Result r;
        r.heartRate = out.nHeartRate;
        r.heartStatus = out.nHeartStatus;
        r.breathRate = out.nBreathRate;
        r.breathState = out.nBreathState;
        r.frameSeq = f.nFrameSeq;
        for (const Event& e : rules.feed(1000LL * s, r, Limits{}))
            if (e.type == EventType::Raised) raised.push_back({e.alarm.id, s});
    }
    rtm_device_destroy(dev);
    return raised;
}

const Raised* first(const std::vector<Raised>& v, AlarmId id) {
    for (const Raised& r : v)
        if (r.id == id) return &r;
    return nullptr;
}

int noise(std::mt19937& rng, double rms) {
    return static_cast<int>(std::lround(std::normal_distribution<double>(0, rms)(rng)));
}

TEST(AlarmsThroughTheLibrary, AFlatEcgIsAsystoleButANoisyOneIsNot) {
    EXPECT_TRUE(alarmsFor([](ParamsIn&, std::mt19937&) {}).empty()) << "a normal recording, warm-up included";

    const auto flat = alarmsFor([](ParamsIn& f, std::mt19937&) {
        for (int& x : f.nHeartData) x = 512;
    });
    const Raised* asy = first(flat, AlarmId::Asystole);
    ASSERT_NE(asy, nullptr);
    EXPECT_LE(asy->second, kFrom + kAsystoleDelayS + 2);

    // 0.05 mV rms of noise and no beats: the noise is counted as beats.
    const auto noisy = alarmsFor([](ParamsIn& f, std::mt19937& rng) {
        for (int& x : f.nHeartData) x = 512 + noise(rng, 10);
    });
    EXPECT_EQ(first(noisy, AlarmId::Asystole), nullptr);
    EXPECT_NE(first(noisy, AlarmId::HrHigh), nullptr) << "read as a fast rate instead";
}

TEST(AlarmsThroughTheLibrary, ABreathHoldIsSeenOnlyWhenTheRateReadsZeroOnAVaryingChannel) {
    // A perfectly still channel is "no usable signal" (status 2 from its 15th second), not apnoea.
    const auto still = alarmsFor(
        [](ParamsIn& f, std::mt19937&) {
            for (int& x : f.nBreathChan1) x = 30000;
        },
        kSeconds);
    EXPECT_EQ(first(still, AlarmId::Apnoea), nullptr);
    const Raised* unusable = first(still, AlarmId::RespUnusable);
    ASSERT_NE(unusable, nullptr);
    EXPECT_LE(unusable->second, kFrom + 15 + Limits{}.respUnusableS + 1);

    // A still chest with a little noise on the channel keeps its last rate for the whole 40 s.
    const auto hold = alarmsFor([](ParamsIn& f, std::mt19937& rng) {
        for (int& x : f.nBreathChan1) x = 30000 + noise(rng, 5);
    });
    EXPECT_TRUE(hold.empty());

    // A dead sensor (every sample 0) reads like a stop of breathing.
    const auto dead = alarmsFor([](ParamsIn& f, std::mt19937&) {
        for (int& x : f.nBreathChan1) x = 0;
    });
    const Raised* ap = first(dead, AlarmId::Apnoea);
    ASSERT_NE(ap, nullptr);
    EXPECT_LE(ap->second, kFrom + Limits{}.apnoeaS + 2);
}

}  // namespace

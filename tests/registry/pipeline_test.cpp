// Frame pipeline through the exported C interface: auto-creation, the fields the pipeline zeroes,
// independence of devices and determinism.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "rtmonitor.h"
#include "support/frames.h"

extern "C" int rtm_c_drive_device(int id);

namespace {

using rtm_test::quietFrame;
using rtm_test::sameOutput;

// A frame with some life in every channel, so that every stage has work to do.
ParamsIn livelyFrame(int id, int seq, std::mt19937& rng) {
    ParamsIn in = quietFrame(id, seq);
    std::uniform_int_distribution<int> noise(-40, 40);
    for (int i = 0; i < 200; ++i) in.nHeartData[i] = 512 + noise(rng) + ((i % 160 == 30) ? 250 : 0);
    for (int i = 0; i < 25; ++i) {
        in.nBreathChan1[i] = 30000 + 60 * noise(rng);
        in.nBreathChan0[i] = 30000 + 60 * noise(rng);
        in.nAccX[i] = 512 + noise(rng);
        in.nAccY[i] = 512 + noise(rng);
        in.nAccZ[i] = 640 + noise(rng);
    }
    return in;
}

std::vector<ParamsOut> runAlone(int id, const std::vector<ParamsIn>& frames) {
    initDevice(id);
    std::vector<ParamsOut> outs;
    for (ParamsIn in : frames) {
        in.nDeviceId = id;
        ParamsOut out{};
        processSignal(in, &out);
        outs.push_back(out);
    }
    freeDevice(id);
    return outs;
}

std::vector<ParamsIn> livelyRecording(unsigned seed, int frames) {
    std::mt19937 rng(seed);
    std::vector<ParamsIn> out;
    for (int s = 0; s < frames; ++s) out.push_back(livelyFrame(0, s, rng));
    return out;
}

TEST(Pipeline, HeaderWorksFromC) { EXPECT_EQ(rtm_c_drive_device(31), 2); }

TEST(Pipeline, UnknownDeviceIsAnalysedWithAFreshState) {
    ParamsIn in = quietFrame(4711, 0);
    in.nHeartMode = 1;
    ParamsOut out;
    std::memset(&out, 0x5a, sizeof out);
    EXPECT_EQ(processSignal(in, &out), 1);
    EXPECT_EQ(out.nPosture, 2);
    EXPECT_EQ(out.nHeartRate, 0);                 // a restart reports no rate
    for (int m : out.nMovement) EXPECT_EQ(m, 1);  // a device at rest
    freeDevice(4711);
}

TEST(Pipeline, ReservedWordsAndTheClockDoNotInfluenceResults) {
    std::vector<ParamsIn> frames = livelyRecording(7, 40);
    std::vector<ParamsOut> first = runAlone(100, frames);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        frames[i].nReservedA = static_cast<int>(i * 7919);
        frames[i].nReservedB = -static_cast<int>(i);
    }
    std::vector<ParamsOut> second = runAlone(100, frames);
    ASSERT_EQ(first.size(), second.size());
    for (std::size_t i = 0; i < first.size(); ++i) EXPECT_TRUE(sameOutput(first[i], second[i])) << "frame " << i;
}

// Devices must not share state: interleaving them in one thread gives each device exactly its
// solo results (the stress suite does the same across threads).
TEST(Pipeline, DevicesAreIndependentWhenInterleaved) {
    std::vector<ParamsIn> a = livelyRecording(1, 30);
    std::vector<ParamsIn> b = livelyRecording(2, 30);
    std::vector<ParamsOut> soloA = runAlone(201, a);
    std::vector<ParamsOut> soloB = runAlone(202, b);

    initDevice(201);
    initDevice(202);
    for (std::size_t i = 0; i < a.size(); ++i) {
        ParamsOut outA{};
        ParamsOut outB{};
        a[i].nDeviceId = 201;
        b[i].nDeviceId = 202;
        processSignal(a[i], &outA);
        processSignal(b[i], &outB);
        EXPECT_TRUE(sameOutput(outA, soloA[i]) && sameOutput(outB, soloB[i])) << "interleaved frame " << i;
    }
    freeDevice(201);
    freeDevice(202);
}

}  // namespace

// Frame pipeline through the exported C interface: the header compiled as C, auto-creation and
// words that must not reach the results (device independence is the stress group's job).
#include <gtest/gtest.h>

#include <vector>

#include "support/streams.h"

extern "C" int rtm_c_drive_device(int id);

namespace {

using rtm_test::quietFrame;
using rtm_test::sameOutput;

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
    std::vector<ParamsIn> frames = rtm_test::disturbedStream(0, 7, 80);
    std::vector<ParamsOut> first = runAlone(100, frames);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        frames[i].nReservedA = static_cast<int>(i * 7919);
        frames[i].nReservedB = -static_cast<int>(i);
    }
    std::vector<ParamsOut> second = runAlone(100, frames);
    ASSERT_EQ(first.size(), second.size());
    for (std::size_t i = 0; i < first.size(); ++i) EXPECT_TRUE(sameOutput(first[i], second[i])) << "frame " << i;
}

}  // namespace

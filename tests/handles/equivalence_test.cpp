// Handles against the registry: a handle fed a device's frames gives, word for word, the output
// records processSignal gives that device, on synthetic streams with disturbances, restarts and
// sequence gaps and on the shared recordings (skipped when the data folder is absent). That
// handles share nothing is the concurrent-handles stress test's job.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "support/streams.h"

namespace {

using rtm_test::firstDifferentWord;

using rtm_test::Handle;
using rtm_test::makeHandle;
// Runs the frames through a registry device and a handle side by side. Output records start
// from different garbage on purpose: every word must be written, not left over.
void expectSameOutputs(const std::vector<ParamsIn>& frames, int id) {
    Handle dev = makeHandle();
    ASSERT_NE(dev, nullptr);
    initDevice(id);
    for (std::size_t k = 0; k < frames.size(); ++k) {
        ParamsIn in = frames[k];
        in.nDeviceId = id;
        ParamsOut viaRegistry, viaHandle;
        std::memset(&viaRegistry, 0x5A, sizeof viaRegistry);
        std::memset(&viaHandle, 0x5A, sizeof viaHandle);
        ASSERT_EQ(processSignal(in, &viaRegistry), 1);
        // The handle ignores the id: give it another one.
        in.nDeviceId = id + 1;
        ASSERT_EQ(rtm_device_process(dev.get(), &in, &viaHandle), 1);
        ASSERT_TRUE(rtm_test::sameOutput(viaRegistry, viaHandle))
            << "frame " << k << ", first different word " << firstDifferentWord(viaRegistry, viaHandle);
    }
    freeDevice(id);
}

TEST(HandleEquivalence, SyntheticStreamsWithDisturbancesRestartsAndGaps) {
    for (uint64_t seed : {3u, 58u, 911u}) {
        SCOPED_TRACE(seed);
        expectSameOutputs(rtm_test::disturbedStream(77, seed, 400), 600 + static_cast<int>(seed));
    }
}

TEST(HandleEquivalence, SharedRecordings) {
    int found = 0;
    for (const char* name : {"100", "03700181", "v102s"}) {
        const std::vector<ParamsIn> frames = rtm_test::recording(name);
        if (frames.empty()) continue;
        ++found;
        SCOPED_TRACE(name);
        expectSameOutputs(frames, 4242);
    }
    if (found == 0) GTEST_SKIP() << "shared recordings not found in " << RTM_DATA_DIR;
}

TEST(HandleInterface, NullArgumentsAreRefusedWithoutEffect) {
    Handle dev = makeHandle();
    ParamsIn in = rtm_test::disturbedStream(1, 9, 1)[0];
    ParamsOut out;
    std::memset(&out, 0x33, sizeof out);
    const ParamsOut untouched = out;
    EXPECT_EQ(rtm_device_process(nullptr, &in, &out), 0);
    EXPECT_EQ(rtm_device_process(dev.get(), nullptr, &out), 0);
    EXPECT_EQ(rtm_device_process(dev.get(), &in, nullptr), 0);
    EXPECT_TRUE(rtm_test::sameOutput(out, untouched));
    rtm_device_destroy(nullptr);

    std::vector<unsigned char> buf(rtm_device_state_size());
    EXPECT_EQ(rtm_device_save(nullptr, buf.data(), buf.size()), 0);
    EXPECT_EQ(rtm_device_save(dev.get(), nullptr, buf.size()), 0);
    EXPECT_EQ(rtm_device_save(dev.get(), buf.data(), buf.size() - 1), 0);
    EXPECT_EQ(rtm_device_save(dev.get(), buf.data(), buf.size()), 1);
    EXPECT_EQ(rtm_device_load(nullptr, buf.data(), buf.size()), 0);
    EXPECT_EQ(rtm_device_load(dev.get(), nullptr, buf.size()), 0);

    // A NULL-refused frame did not advance the state: the next frame matches a fresh device's.
    Handle fresh = makeHandle();
    ParamsOut a, b;
    rtm_device_process(dev.get(), &in, &a);
    rtm_device_process(fresh.get(), &in, &b);
    EXPECT_TRUE(rtm_test::sameOutput(a, b));
}

TEST(HandleInterface, VersionMatchesTheHeader) {
    ASSERT_NE(rtm_version(), nullptr);
    EXPECT_STREQ(rtm_version(), RTMONITOR_VERSION_STRING);
}

}  // namespace

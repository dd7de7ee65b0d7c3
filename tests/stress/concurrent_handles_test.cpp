// Concurrency stress through the handle interface: 8 threads each drive their own handles (no
// lock is taken), with disturbances, heart restarts, sequence gaps and a move of each device to
// a new handle through a snapshot half-way, while another thread keeps the registry busy. Each
// handle's outputs must equal, frame for frame, the same frames run alone in one thread. Also
// run under the thread sanitizer (make tsan).
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "support/streams.h"

namespace {

constexpr int kThreads = 8;
constexpr int kHandlesPerThread = 3;
constexpr int kFrames = 120;

// Runs a script on a handle; at frame `moveAt` the device moves to a fresh handle by snapshot.
std::vector<uint64_t> runHandle(const std::vector<ParamsIn>& frames, int moveAt) {
    std::vector<uint64_t> prints;
    rtm_device* dev = rtm_device_create();
    std::vector<unsigned char> snap(rtm_device_state_size());
    for (int k = 0; k < static_cast<int>(frames.size()); ++k) {
        if (k == moveAt) {
            EXPECT_EQ(rtm_device_save(dev, snap.data(), snap.size()), 1);
            rtm_device_destroy(dev);
            dev = rtm_device_create();
            EXPECT_EQ(rtm_device_load(dev, snap.data(), snap.size()), 1);
        }
        ParamsOut out;
        std::memset(&out, 0, sizeof out);
        EXPECT_EQ(rtm_device_process(dev, &frames[static_cast<std::size_t>(k)], &out), 1);
        prints.push_back(rtm_synth::fingerprint(out));
    }
    rtm_device_destroy(dev);
    return prints;
}

TEST(ConcurrentHandles, EachHandleMatchesItsSingleThreadedRun) {
    const std::size_t count = kThreads * kHandlesPerThread;
    std::vector<std::vector<ParamsIn>> scripts(count);
    std::vector<std::vector<uint64_t>> reference(count), concurrent(count);
    for (std::size_t d = 0; d < count; ++d) {
        scripts[d] = rtm_test::disturbedStream(0, 101 + 13 * d, kFrames);
        reference[d] = runHandle(scripts[d], kFrames + 1);  // never moved
    }

    std::atomic<int> ready{0};
    std::atomic<bool> done{false};
    // The registry's lock and state must not reach the handles.
    std::thread registryTraffic([&] {
        rtm_synth::DeviceRecording rec(5150, 3, 80, 16);
        while (!done.load()) {
            ParamsIn f;
            rec.fill(f, rtm_synth::Segment::Clean);
            ParamsOut out;
            processSignal(f, &out);
        }
        freeDevice(5150);
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ready.fetch_add(1);
            while (ready.load() < kThreads) std::this_thread::yield();
            for (int k = 0; k < kHandlesPerThread; ++k) {
                const std::size_t d = static_cast<std::size_t>(t * kHandlesPerThread + k);
                concurrent[d] = runHandle(scripts[d], 20 + static_cast<int>(d) * 3);
            }
        });
    }
    for (std::thread& th : threads) th.join();
    done.store(true);
    registryTraffic.join();

    for (std::size_t d = 0; d < count; ++d) {
        ASSERT_EQ(concurrent[d].size(), reference[d].size());
        for (std::size_t f = 0; f < reference[d].size(); ++f)
            ASSERT_EQ(concurrent[d][f], reference[d][f]) << "handle " << d << " differs at frame " << f;
    }
}

}  // namespace

// Concurrency stress through the C interface: many threads drive many devices at once, with
// device restarts and removals interleaved. Each device's outputs must equal, frame for frame,
// the outputs of the same device's frames run alone in one thread: the global lock must keep
// devices fully apart. Also run under the thread sanitizer (make tsan).
// RTM_STRESS_FRAMES (frames per device, default 160) lengthens the run for manual soak-testing.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "support/streams.h"

namespace {

using rtm_synth::DeviceRecording;
using rtm_synth::Segment;

constexpr int kThreads = 8;
constexpr int kDevicesPerThread = 3;

int framesPerDevice() {
    const char* env = std::getenv("RTM_STRESS_FRAMES");
    const int n = env ? std::atoi(env) : 160;
    return n > 10 ? n : 10;
}

enum class Action { Init, Free, Frame };
struct Step {
    Action action;
    ParamsIn frame;
};

// One device's host program: registration, frames with every kind of disturbance, a heart
// restart, a sequence gap, a removal (the next frame re-creates the device) and a restart.
std::vector<Step> deviceScript(int id, uint64_t seed, int frames) {
    const std::vector<ParamsIn> stream = rtm_test::disturbedStream(id, seed, frames);
    std::vector<Step> s = {{Action::Init, {}}};
    for (int k = 0; k < frames; ++k) {
        if (k == frames * 2 / 5) s.push_back({Action::Free, {}});
        if (k == frames * 4 / 5) s.push_back({Action::Init, {}});
        s.push_back({Action::Frame, stream[static_cast<size_t>(k)]});
    }
    return s;
}

// Runs one step; frames append the fingerprint of their output record.
void runStep(const Step& st, int id, std::vector<uint64_t>& prints) {
    switch (st.action) {
        case Action::Init: initDevice(id); break;
        case Action::Free: freeDevice(id); break;
        case Action::Frame: {
            ParamsOut out;
            std::memset(&out, 0, sizeof out);
            EXPECT_EQ(processSignal(st.frame, &out), 1);
            prints.push_back(rtm_synth::fingerprint(out));
            break;
        }
    }
}

int deviceId(int t, int k) {
    // Spread over the whole id range, negative ids and -1 included.
    static const int kBase[kThreads] = {-1, 0, 7, -123456, 2147483600, -2147483647, 42, 1000};
    return kBase[t] + 3 * k;
}

TEST(ConcurrentDevices, EachDeviceMatchesItsSingleThreadedRun) {
    const int frames = framesPerDevice();
    std::vector<std::vector<Step>> scripts(kThreads * kDevicesPerThread);
    std::vector<std::vector<uint64_t>> reference(scripts.size()), concurrent(scripts.size());
    for (int t = 0; t < kThreads; ++t)
        for (int k = 0; k < kDevicesPerThread; ++k) {
            const size_t d = static_cast<size_t>(t * kDevicesPerThread + k);
            scripts[d] = deviceScript(deviceId(t, k), 17 + 31 * d, frames);
            for (const Step& st : scripts[d]) runStep(st, deviceId(t, k), reference[d]);
            freeDevice(deviceId(t, k));
        }

    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ready.fetch_add(1);
            while (ready.load() < kThreads) std::this_thread::yield();
            // Round-robin over this thread's devices, a varying number of steps at a time, so
            // the devices of all threads interleave differently on every run.
            size_t pos[kDevicesPerThread] = {};
            rtm_synth::Rng rng(static_cast<uint64_t>(t) + 1);
            for (bool more = true; more;) {
                more = false;
                for (int k = 0; k < kDevicesPerThread; ++k) {
                    const size_t d = static_cast<size_t>(t * kDevicesPerThread + k);
                    const size_t burst = 1 + rng.next() % 4;
                    for (size_t b = 0; b < burst && pos[k] < scripts[d].size(); ++b)
                        runStep(scripts[d][pos[k]++], deviceId(t, k), concurrent[d]);
                    if (pos[k] < scripts[d].size()) more = true;
                    if (rng.next() % 8 == 0) std::this_thread::yield();
                }
            }
        });
    }
    for (std::thread& th : threads) th.join();

    for (size_t d = 0; d < scripts.size(); ++d) {
        ASSERT_EQ(concurrent[d].size(), reference[d].size());
        for (size_t f = 0; f < reference[d].size(); ++f)
            ASSERT_EQ(concurrent[d][f], reference[d][f]) << "device slot " << d << " differs at frame " << f;
        freeDevice(deviceId(static_cast<int>(d) / kDevicesPerThread, static_cast<int>(d) % kDevicesPerThread));
    }
}

// Hosts that get it wrong: several threads feeding, restarting and dropping the same few ids at
// once. Outputs are then not predictable, but every call must complete and return 1.
TEST(ConcurrentDevices, SharedIdsChurnWithoutFault) {
    const int frames = framesPerDevice() / 2;
    std::vector<std::thread> threads;
    std::atomic<int> calls{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            DeviceRecording rec(900 + t % 2, 5 + static_cast<uint64_t>(t), 70, 15);
            rtm_synth::Rng rng(99 + static_cast<uint64_t>(t));
            for (int k = 0; k < frames; ++k) {
                const int id = 900 + static_cast<int>(rng.next() % 2);
                switch (rng.next() % 10) {
                    case 0: initDevice(id); break;
                    case 1: freeDevice(id); break;
                    default: {
                        ParamsIn f;
                        rec.fill(f, Segment::Clean);
                        f.nDeviceId = id;
                        ParamsOut out;
                        EXPECT_EQ(processSignal(f, &out), 1);
                    }
                }
                calls.fetch_add(1);
            }
        });
    }
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(calls.load(), 4 * frames);
    freeDevice(900);
    freeDevice(901);
}

}  // namespace

// Scale of the two interfaces. Registry: cost of one processSignal frame against the number of
// registered devices (the lookup must not grow with it). Handles: frames per second with one and
// two threads on separate handles, resident memory over a million create/destroy cycles, and
// bytes per device. Run: build/bench/rtm_bench --benchmark_filter='Registry|Handle'
#include <benchmark/benchmark.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "rtmonitor.h"
#include "rtmonitor/GeneralRealTime.h"
#include "synth/vitals.h"

namespace {

constexpr int kMeasuredId = 7;
constexpr int kFramesPrepared = 256;

std::vector<ParamsIn> preparedFrames(int id, uint64_t seed) {
    rtm_synth::DeviceRecording rec(id, seed, 72.0, 15.0);
    std::vector<ParamsIn> frames(kFramesPrepared);
    for (ParamsIn& f : frames) rec.fill(f, rtm_synth::Segment::Clean);
    return frames;
}

double residentMiB() {
    long pages = 0, resident = 0;
    std::FILE* f = std::fopen("/proc/self/statm", "r");
    if (f == nullptr) return 0.0;
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

// Devices that are registered but send nothing. They are constructed in place in untouched
// anonymous memory, so 100,000 of them fit in a few hundred MB; registering them through
// initDevice would keep 7.5 GB resident for the rest of the run (records are never released).
// The registry sees ordinary records in its list either way.
class IdleDevices {
public:
    explicit IdleDevices(int count) : count_(count) {
        if (count_ == 0) return;
        bytes_ = static_cast<std::size_t>(count_) * sizeof(UserDataStruct);
        void* p = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (p == MAP_FAILED) {
            count_ = 0;
            return;
        }
        base_ = static_cast<UserDataStruct*>(p);
        std::vector<UserDataStruct*>& list = pGeneralTimeTime->m_vecUserData;
        for (int i = 0; i < count_; ++i) {
            UserDataStruct* r = new (base_ + i) UserDataStruct;
            r->nDeviceId = 1000000 + i;
            list.push_back(r);
        }
    }
    ~IdleDevices() {
        if (count_ == 0) return;
        std::vector<UserDataStruct*>& list = pGeneralTimeTime->m_vecUserData;
        list.erase(list.end() - count_, list.end());
        munmap(base_, bytes_);
    }
    bool ok() const { return count_ > 0 || bytes_ == 0; }

private:
    int count_;
    std::size_t bytes_ = 0;
    UserDataStruct* base_ = nullptr;
};

// One processSignal frame of a device registered first, with N - 1 idle devices after it.
void BM_RegistryFrameVsDevices(benchmark::State& state) {
    const int devices = static_cast<int>(state.range(0));
    initDevice(kMeasuredId);
    IdleDevices idle(devices - 1);
    if (!idle.ok()) {
        state.SkipWithError("could not reserve memory for the idle devices");
        return;
    }
    const std::vector<ParamsIn> frames = preparedFrames(kMeasuredId, 3);
    ParamsOut out;
    std::size_t k = 0;
    for (int warm = 0; warm < 60; ++warm) processSignal(frames[k++ % frames.size()], &out);
    for (auto _ : state) {
        processSignal(frames[k++ % frames.size()], &out);
        benchmark::DoNotOptimize(out.nHeartRate);
    }
    state.counters["devices"] = devices;
    state.counters["rss_MiB"] = residentMiB();
    freeDevice(kMeasuredId);
}
BENCHMARK(BM_RegistryFrameVsDevices)->Arg(1)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// Frames per second on separate handles, one per thread. Real time is what a host sees; the CPU
// time per frame per thread stays flat when the threads scale.
void BM_HandleFramesPerThread(benchmark::State& state) {
    rtm_device* dev = rtm_device_create();
    const std::vector<ParamsIn> frames = preparedFrames(1, 11 + static_cast<uint64_t>(state.thread_index()));
    ParamsOut out;
    std::size_t k = 0;
    for (int warm = 0; warm < 60; ++warm) rtm_device_process(dev, &frames[k++ % frames.size()], &out);
    for (auto _ : state) {
        rtm_device_process(dev, &frames[k++ % frames.size()], &out);
        benchmark::DoNotOptimize(out.nHeartRate);
    }
    state.SetItemsProcessed(state.iterations());
    rtm_device_destroy(dev);
}
BENCHMARK(BM_HandleFramesPerThread)->Threads(1)->Threads(2)->UseRealTime()->Unit(benchmark::kMicrosecond);

// A gateway whose devices come and go: a million create/destroy cycles, every 50th handle
// analysing a frame first. Resident memory before and after must match.
void BM_HandleChurnResidentMemory(benchmark::State& state) {
    const int cycles = static_cast<int>(state.range(0));
    const std::vector<ParamsIn> frames = preparedFrames(1, 5);
    ParamsOut out;
    double before = 0.0, after = 0.0;
    for (auto _ : state) {
        // One cycle first, so the allocator's first block is not counted as growth.
        rtm_device_destroy(rtm_device_create());
        before = residentMiB();
        for (int c = 0; c < cycles; ++c) {
            rtm_device* dev = rtm_device_create();
            if (c % 50 == 0) rtm_device_process(dev, &frames[static_cast<std::size_t>(c / 50) % frames.size()], &out);
            rtm_device_destroy(dev);
        }
        after = residentMiB();
    }
    state.counters["cycles"] = cycles;
    state.counters["rss_before_MiB"] = before;
    state.counters["rss_after_MiB"] = after;
}
BENCHMARK(BM_HandleChurnResidentMemory)->Arg(1000000)->Iterations(1)->Unit(benchmark::kMillisecond);

// Bytes per device: the snapshot size, the state's size, and the resident growth of 1,000 live
// handles that have each analysed a frame.
void BM_HandleBytesPerDevice(benchmark::State& state) {
    constexpr int kHandles = 1000;
    const std::vector<ParamsIn> frames = preparedFrames(1, 9);
    double perHandle = 0.0;
    for (auto _ : state) {
        std::vector<rtm_device*> live;
        const double before = residentMiB();
        ParamsOut out;
        for (int i = 0; i < kHandles; ++i) {
            live.push_back(rtm_device_create());
            rtm_device_process(live.back(), &frames[0], &out);
        }
        perHandle = (residentMiB() - before) * 1024.0 * 1024.0 / kHandles;
        for (rtm_device* d : live) rtm_device_destroy(d);
    }
    state.counters["state_size_B"] = static_cast<double>(rtm_device_state_size());
    state.counters["record_B"] = static_cast<double>(sizeof(UserDataStruct));
    state.counters["resident_per_handle_B"] = perHandle;
}
BENCHMARK(BM_HandleBytesPerDevice)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

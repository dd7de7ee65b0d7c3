// Example host for the handle interface: every device on its own handle, devices spread over a
// few threads, no lock shared between them. Reads a frame file (1320-byte ParamsIn records, any
// mix of device ids), analyses each device's frames in order, and prints one CSV line per device
// and second: device,second,heart_rate,breath_rate,heart_status,breath_state. Half-way through
// its frames each device is moved to a new handle through a snapshot, as a host would move it
// to another process; the results continue as if nothing had happened.
//
// Build:  c++ -std=c++17 examples/threaded_handles.cpp -Iinclude -Lbuild -lrtmonitor -pthread
// Run:    LD_LIBRARY_PATH=build ./a.out ../shared/data/100.frames --threads 2 --copies 4
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "rtmonitor.h"

namespace {

struct Device {
    int id = 0;
    std::vector<ParamsIn> frames;
    std::vector<ParamsOut> results;
    bool failed = false;
};

int usage(const char* prog) {
    std::fprintf(stderr,
                 "usage: %s FRAME_FILE [--threads N] [--copies N]\n"
                 "  FRAME_FILE   1320-byte input frames, one per second per device\n"
                 "  --threads N  analysis threads (default: the number of cores)\n"
                 "  --copies N   run every device of the file N times, as separate devices (default 1)\n",
                 prog);
    return 2;
}

bool positiveArg(const char* text, int* out) {
    char* end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || v < 1 || v > 100000) return false;
    *out = static_cast<int>(v);
    return true;
}

using Handle = std::unique_ptr<rtm_device, void (*)(rtm_device*)>;

// One device from its first frame to its last. Half-way the state is saved, the handle dropped
// and a new one loaded from the snapshot.
void runDevice(Device& d) {
    Handle dev(rtm_device_create(), rtm_device_destroy);
    std::vector<unsigned char> snapshot(rtm_device_state_size());
    if (!dev) {
        d.failed = true;
        return;
    }
    d.results.resize(d.frames.size());
    for (std::size_t k = 0; k < d.frames.size(); ++k) {
        if (k == d.frames.size() / 2) {
            if (!rtm_device_save(dev.get(), snapshot.data(), snapshot.size())) {
                d.failed = true;
                return;
            }
            dev.reset(rtm_device_create());
            if (!dev || !rtm_device_load(dev.get(), snapshot.data(), snapshot.size())) {
                d.failed = true;
                return;
            }
        }
        std::memset(&d.results[k], 0, sizeof d.results[k]);
        if (!rtm_device_process(dev.get(), &d.frames[k], &d.results[k])) {
            d.failed = true;
            return;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return usage(argv[0]);
    const char* path = nullptr;
    int threads = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    int copies = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if ((a == "--threads" || a == "--copies") && i + 1 < argc) {
            if (!positiveArg(argv[++i], a == "--threads" ? &threads : &copies)) {
                std::fprintf(stderr, "error: %s needs a whole number from 1 to 100000, got '%s'\n", a.c_str(), argv[i]);
                return 2;
            }
        } else if (a == "-h" || a == "--help") {
            usage(argv[0]);
            return 0;
        } else if (path == nullptr && a.rfind("--", 0) != 0) {
            path = argv[i];
        } else {
            std::fprintf(stderr, "error: unexpected argument '%s'\n", argv[i]);
            return usage(argv[0]);
        }
    }
    if (path == nullptr) return usage(argv[0]);

    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "error: cannot open '%s'; give the path of a frame file\n", path);
        return 1;
    }
    // Frames grouped by device id, in file order.
    std::map<int, std::vector<ParamsIn>> byId;
    ParamsIn frame;
    std::size_t total = 0;
    while (in.read(reinterpret_cast<char*>(&frame), sizeof frame)) {
        byId[frame.nDeviceId].push_back(frame);
        ++total;
    }
    if (in.gcount() != 0) {
        std::fprintf(stderr,
                     "error: '%s' ends with a partial frame (%ld bytes); frame files hold whole %zu-byte frames\n",
                     path, static_cast<long>(in.gcount()), sizeof frame);
        return 1;
    }
    if (total == 0) {
        std::fprintf(stderr, "error: '%s' holds no frames\n", path);
        return 1;
    }

    std::vector<Device> devices;
    for (int c = 0; c < copies; ++c)
        for (const auto& entry : byId) {
            Device d;
            d.id = entry.first + c * 1000000;
            d.frames = entry.second;
            devices.push_back(std::move(d));
        }
    threads = std::min<int>(threads, static_cast<int>(devices.size()));
    std::fprintf(stderr, "rtmonitor %s: %zu devices, %zu frames each on average, %d threads\n", rtm_version(),
                 devices.size(), total / byId.size(), threads);

    // Device d runs on thread d % threads; a handle is only ever touched by its own thread.
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([&devices, t, threads] {
            for (std::size_t d = static_cast<std::size_t>(t); d < devices.size();
                 d += static_cast<std::size_t>(threads))
                runDevice(devices[d]);
        });
    for (std::thread& th : pool) th.join();

    std::printf("device,second,heart_rate,breath_rate,heart_status,breath_state\n");
    int failures = 0;
    for (const Device& d : devices) {
        if (d.failed) {
            std::fprintf(stderr, "error: device %d could not be analysed (out of memory?)\n", d.id);
            ++failures;
            continue;
        }
        for (std::size_t k = 0; k < d.results.size(); ++k) {
            const ParamsOut& o = d.results[k];
            std::printf("%d,%zu,%d,%d,%d,%d\n", d.id, k, o.nHeartRate, o.nBreathRate, o.nHeartStatus, o.nBreathState);
        }
    }
    return failures == 0 ? 0 : 1;
}

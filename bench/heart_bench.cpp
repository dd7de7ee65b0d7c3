// Heart stage cost per frame: one 200-sample packet through CBeatMeasure::ProcessingHeart on a
// settled 75/min synthetic ECG, and one whole processSignal frame (all four stages).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "rtmonitor.h"
#include "rtmonitor/CBeatMeasure.h"
#include "synth/vitals.h"

namespace {

constexpr int kPrecomputedPackets = 64;  // 64 s, a whole number of 0.8-s beats

// 75/min from the shared generator as a metronome (fixed RR, 250-count R wave), on a 512
// baseline.
std::vector<std::vector<int>> syntheticPackets(int count) {
    rtm_synth::EcgSynth ecg(1, 75.0, 250.0);
    ecg.setVariability(0.0, 0.0);
    std::vector<std::vector<int>> packets;
    for (int k = 0; k < count; ++k) {
        std::vector<int> p(200);
        for (int& v : p) v = static_cast<int>(std::lround(ecg.cleanSample()));
        packets.push_back(p);
    }
    return packets;
}

struct Holder {
    CBeatMeasure beat;
};

void BM_HeartStagePerFrame(benchmark::State& state) {
    const auto packets = syntheticPackets(kPrecomputedPackets);
    auto holder = std::make_unique<Holder>();
    int wave[200];
    int rate = 0;
    int reserved = 0;
    int quality = 0;
    holder->beat.ProcessingHeart(1, 0, 1, nullptr, 200, wave, &rate, &reserved, &quality);
    int seq = 0;
    // Past the start-up minute so the steady-state path is measured.
    for (int k = 0; k < 90; ++k) {
        std::vector<int> p = packets[static_cast<size_t>(k % kPrecomputedPackets)];
        holder->beat.ProcessingHeart(1, ++seq, 0, p.data(), 200, wave, &rate, &reserved, &quality);
    }
    std::vector<int> p;
    for (auto _ : state) {
        p = packets[static_cast<size_t>(seq % kPrecomputedPackets)];
        holder->beat.ProcessingHeart(1, ++seq, 0, p.data(), 200, wave, &rate, &reserved, &quality);
        benchmark::DoNotOptimize(rate);
    }
    state.counters["rate"] = rate;
}
BENCHMARK(BM_HeartStagePerFrame);

void BM_ProcessSignalFrame(benchmark::State& state) {
    const auto packets = syntheticPackets(kPrecomputedPackets);
    const int id = 4242;
    initDevice(id);
    ParamsIn in;
    std::memset(&in, 0, sizeof in);
    in.nDeviceId = id;
    for (int k = 0; k < 25; ++k) {
        in.nAccX[k] = 512;
        in.nAccY[k] = 512;
        in.nAccZ[k] = 640;
        in.nBreathChan0[k] = 30000 + (k % 5) * 100;
        in.nBreathChan1[k] = 30000 + (k % 5) * 100;
    }
    ParamsOut out;
    int seq = 0;
    for (auto _ : state) {
        in.nFrameSeq = seq;
        std::memcpy(in.nHeartData, packets[static_cast<size_t>(seq % kPrecomputedPackets)].data(),
                    sizeof in.nHeartData);
        ++seq;
        processSignal(in, &out);
        benchmark::DoNotOptimize(out.nHeartRate);
    }
    freeDevice(id);
}
BENCHMARK(BM_ProcessSignalFrame);

}  // namespace

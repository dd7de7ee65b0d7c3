// Breath stage cost per frame: one 25-sample call of the respiration analyser (display chain on
// both channels, 40 s buffer shift, energy test) including the once-per-second rate update
// (1024-point transform, moving average, peak search and peak-pair counting), on clean synthetic
// breathing at 15/min with the analyser past its warm-up. Time is per frame (one second of data).
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "support/breath_signal.h"

namespace {

void BM_BreathFrame(benchmark::State& state) {
    auto a = std::make_unique<CBreathPro>();
    a->BreathProInit();
    a->BreathnoProInit();
    // Five minutes of frames, replayed in a loop; the first minute settles the analyser.
    constexpr int kFrames = 300;
    std::vector<int> samples(kFrames * rtm_test::kBreathBlock);
    rtm_test::BreathSignal sig(static_cast<double>(state.range(0)));
    for (int& v : samples) v = sig.next();
    int d0[rtm_test::kBreathBlock];
    int d1[rtm_test::kBreathBlock];
    int rate = 0;
    int status = 0;
    for (int f = 0; f < 60; ++f) {
        int* block = &samples[static_cast<size_t>(f) * rtm_test::kBreathBlock];
        a->ProcessingBreath(1, block, block, rtm_test::kBreathBlock, d0, d1, &rate, &status);
    }
    int f = 60;
    for (auto _ : state) {
        int* block = &samples[static_cast<size_t>(f) * rtm_test::kBreathBlock];
        a->ProcessingBreath(1, block, block, rtm_test::kBreathBlock, d0, d1, &rate, &status);
        benchmark::DoNotOptimize(rate);
        benchmark::DoNotOptimize(d1);
        f = (f + 1 == kFrames) ? 60 : f + 1;
    }
    state.counters["rate"] = rate;
}
BENCHMARK(BM_BreathFrame)->Arg(15)->Arg(40);

}  // namespace

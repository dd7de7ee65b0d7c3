// Per-frame cost of the whole pipeline (processSignal) and of its stages (posture and movement,
// breath, heart), on the shared recordings (../shared/data, skipped with a message when absent)
// and on synthetic streams: a clean wearer, and a disturbed mix (noise, flat, over-range and
// dead sensor stretches). Every iteration is one frame of one second; the stream is replayed in
// a loop past a one-minute warm-up. Compare medians of repetitions, e.g.
//   build/bench/rtm_bench --benchmark_filter='Frame|Stage' --benchmark_repetitions=9
//     --benchmark_report_aggregates_only=true   (one command line)
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "rtmonitor.h"
#include "rtmonitor/GeneralRealTime.h"
#include "synth/vitals.h"

namespace {

constexpr int kWarmupFrames = 60;

std::vector<ParamsIn> recording(const std::string& name) {
    std::vector<ParamsIn> frames;
    const std::string path = std::string(RTM_DATA_DIR) + "/" + name + ".frames";
    if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
        ParamsIn in;
        while (std::fread(&in, sizeof in, 1, f) == 1) frames.push_back(in);
        std::fclose(f);
    }
    return frames;
}

std::vector<ParamsIn> synthetic(bool disturbed) {
    static const rtm_synth::Segment kMix[] = {rtm_synth::Segment::Clean,     rtm_synth::Segment::Noisy,
                                              rtm_synth::Segment::Clean,     rtm_synth::Segment::Flat,
                                              rtm_synth::Segment::OverRange, rtm_synth::Segment::Dead};
    rtm_synth::DeviceRecording rec(1, disturbed ? 17 : 11, 72.0, 15.0);
    std::vector<ParamsIn> frames(600);
    for (size_t s = 0; s < frames.size(); ++s)
        rec.fill(frames[s], disturbed && s >= kWarmupFrames ? kMix[(s / 20) % 6] : rtm_synth::Segment::Clean);
    return frames;
}

// Stream 0..2: the recordings 100, 03700181, v102s; 3: clean synthetic; 4: disturbed synthetic.
std::vector<ParamsIn> stream(int which, benchmark::State& state) {
    static const char* const kRecordings[] = {"100", "03700181", "v102s"};
    std::vector<ParamsIn> frames = which < 3 ? recording(kRecordings[which]) : synthetic(which == 4);
    if (frames.size() <= kWarmupFrames) {
        state.SkipWithError("recording absent: ../shared/data next to the repository holds the shared recordings");
        frames.clear();
    }
    for (ParamsIn& f : frames) f.nDeviceId = 77;
    return frames;
}

void setLabel(benchmark::State& state, const std::string& prefix, int which) {
    static const char* const kNames[] = {"rec 100", "rec 03700181", "rec v102s", "synthetic clean",
                                         "synthetic disturbed"};
    state.SetLabel(prefix + kNames[which]);
}

void BM_Frame(benchmark::State& state) {
    const int which = static_cast<int>(state.range(0));
    const std::vector<ParamsIn> frames = stream(which, state);
    if (frames.empty()) return;
    initDevice(77);
    ParamsOut out;
    for (size_t k = 0; k < kWarmupFrames; ++k) processSignal(frames[k], &out);
    size_t k = kWarmupFrames;
    for (auto _ : state) {
        processSignal(frames[k], &out);
        benchmark::DoNotOptimize(out.nHeartRate);
        k = (k + 1 == frames.size()) ? kWarmupFrames : k + 1;
    }
    freeDevice(77);
    setLabel(state, "whole frame, ", which);
}
BENCHMARK(BM_Frame)->DenseRange(0, 4);

// One stage of one device's analysers, fed the stream's frames as the pipeline feeds them.
enum class Stage { Motion, Breath, Heart };

void runStage(Stage stage, UserDataStruct& d, const ParamsIn& f, ParamsOut& out) {
    switch (stage) {
        case Stage::Motion: {
            ParamsIn in = f;
            out.nPosture = d.cPosture.getPosture(in.nAccX, in.nAccY, in.nAccZ, 25);
            for (int i = 0; i < 25; ++i) {
                int m = 0;
                d.cPedometerPro.nCountStepNum(in.nAccX[i], in.nAccY[i], in.nAccZ[i], m);
                out.nMovement[i] = m;
            }
            break;
        }
        case Stage::Breath: {
            ParamsIn in = f;
            d.cBreathPro.ProcessingBreath(in.nDeviceId, in.nBreathChan0, in.nBreathChan1, 25, out.nBreathDisplay0,
                                          out.nBreathDisplay1, &out.nBreathRate, &out.nBreathState);
            break;
        }
        case Stage::Heart: {
            ParamsIn in = f;
            d.cBeatMeasure.ProcessingHeart(in.nDeviceId, in.nFrameSeq, in.nHeartMode, in.nHeartData, 200,
                                           out.nHeartWave, &out.nHeartRate, &out.nHeartReserved, &out.nHeartStatus);
            break;
        }
    }
}

void BM_Stage(benchmark::State& state) {
    const Stage stage = static_cast<Stage>(state.range(0));
    const int which = static_cast<int>(state.range(1));
    const std::vector<ParamsIn> frames = stream(which, state);
    if (frames.empty()) return;
    // Value-initialised as the registry does, then reset in its order.
    auto d = std::make_unique<UserDataStruct>();
    const SettingParameter settings{190, 120, 50};
    d->cBeatMeasure.HeartProInit();
    d->cBeatMeasure.Init(settings);
    d->cBeatMeasure.Init_NOBeat(settings);
    d->cBreathPro.BreathProInit();
    d->cBreathPro.BreathnoProInit();
    d->cPedometerPro.PedometerProInit();
    ParamsOut out;
    for (size_t k = 0; k < kWarmupFrames; ++k) runStage(stage, *d, frames[k], out);
    size_t k = kWarmupFrames;
    for (auto _ : state) {
        runStage(stage, *d, frames[k], out);
        benchmark::DoNotOptimize(out);
        k = (k + 1 == frames.size()) ? kWarmupFrames : k + 1;
    }
    static const char* const kStages[] = {"posture+movement, ", "breath, ", "heart, "};
    setLabel(state, kStages[state.range(0)], which);
}
BENCHMARK(BM_Stage)->ArgsProduct({{0, 1, 2}, {0, 1, 2, 3, 4}});

}  // namespace

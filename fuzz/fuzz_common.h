// Shared plumbing of the fuzz targets: frame counting and timing, output invariants, and giving
// back the device records that the registry keeps alive on purpose (a fuzzer runs millions of
// inputs in one process and would otherwise run out of memory).
#pragma once

#include <time.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "rtmonitor.h"
#include "rtmonitor/GeneralRealTime.h"

namespace rtm_fuzz {

// An analyser in storage that starts at zero, as the registry creates them (some counters are
// never reset by the analyser itself). A plain `new T()` would not zero a class with its own
// constructor; wrapping it in a struct without one does.
template <class T>
struct ZeroedAnalyser {
    T a;
};

struct Stats {
    uint64_t frames = 0;       // frames (or stage blocks) handed to the library
    int64_t maxFrameNs = 0;    // slowest single frame seen (thread CPU time)
    int64_t frameLimitNs = 0;  // a slower frame counts as a hang
    bool checkHeart = true;    // false while the cardiac analyser writes no outputs yet
    bool checkBreath = true;   // likewise for the respiration analyser
};

inline Stats& stats() {
    static Stats s;
    return s;
}

inline void printStats() {
    std::fprintf(stderr, "rtm-fuzz: frames=%llu max_frame_us=%lld\n", static_cast<unsigned long long>(stats().frames),
                 static_cast<long long>(stats().maxFrameNs / 1000));
}

// An analyser that is still a stand-in writes nothing; its output checks are switched off then
// (and the run says so), so the rest of the pipeline can be fuzzed meanwhile.
inline void detectStandIns() {
    int32_t in[200] = {}, wave[200], d0[25], d1[25];
    {
        std::unique_ptr<ZeroedAnalyser<CBeatMeasure>> holder(new ZeroedAnalyser<CBeatMeasure>());
        CBeatMeasure& heart = holder->a;
        const SettingParameter settings{190, 120, 50};
        heart.HeartProInit();
        heart.Init(settings);
        heart.Init_NOBeat(settings);
        int rate = -7, reserved = -7, status = -7;
        heart.ProcessingHeart(0, 0, 2, in, 200, wave, &rate, &reserved, &status);
        stats().checkHeart = rate != -7;
    }
    {
        std::unique_ptr<ZeroedAnalyser<CBreathPro>> holder(new ZeroedAnalyser<CBreathPro>());
        CBreathPro& breath = holder->a;
        breath.BreathProInit();
        breath.BreathnoProInit();
        int rate = -7, status = -7;
        breath.ProcessingBreath(0, in, in, 25, d0, d1, &rate, &status);
        stats().checkBreath = rate != -7;
    }
    if (!stats().checkHeart)
        std::fprintf(stderr,
                     "rtm-fuzz: the cardiac analyser writes no outputs in this build; its output checks are off\n");
    if (!stats().checkBreath)
        std::fprintf(stderr,
                     "rtm-fuzz: the respiration analyser writes no outputs in this build; its output checks are off\n");
}

// Per-frame time limit. Sanitizer builds are several times slower than release builds, so the
// default here is generous; the release-speed check against 10 ms is done by the replay program.
inline void setupStats(long defaultLimitMs) {
    const char* env = std::getenv("RTM_FUZZ_FRAME_MS");
    const long ms = env ? std::atol(env) : defaultLimitMs;
    stats().frameLimitNs = static_cast<int64_t>(ms) * 1000000;
    detectStandIns();
    std::atexit(printStats);
}

// CPU time of this thread: a shared machine's scheduling delays must not look like hangs.
inline int64_t threadCpuNs() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// Times one call; a call over the limit aborts so the fuzzer saves the input as a finding.
template <class F>
inline void timedFrame(F&& call) {
    const int64_t t0 = threadCpuNs();
    call();
    const int64_t ns = threadCpuNs() - t0;
    stats().frames += 1;
    if (ns > stats().maxFrameNs) stats().maxFrameNs = ns;
    if (stats().frameLimitNs > 0 && ns > stats().frameLimitNs) {
        std::fprintf(stderr, "rtm-fuzz: HANG: one frame took %lld us (limit %lld us)\n",
                     static_cast<long long>(ns / 1000), static_cast<long long>(stats().frameLimitNs / 1000));
        std::abort();
    }
}

[[noreturn]] inline void invariantFailed(const char* what, long long value, uint64_t frame) {
    std::fprintf(stderr, "rtm-fuzz: INVARIANT: %s (value %lld) at frame %llu of this input\n", what, value,
                 static_cast<unsigned long long>(frame));
    std::abort();
}

inline void checkBreathOutput(const int32_t* d0, const int32_t* d1, int32_t rate, int32_t state, uint64_t frame);
inline void checkHeartOutput(int32_t heartMode, int32_t rate, int32_t reserved, int32_t status, uint64_t frame);

// Output properties that hold for every input, whatever the sensor delivers.
inline void checkOutput(const ParamsOut& o, int32_t heartMode, uint64_t frame) {
    if (o.nPosture < 0 || o.nPosture > 9) invariantFailed("nPosture outside 0..9", o.nPosture, frame);
    for (int i = 0; i < 25; ++i)
        if (o.nMovement[i] < 1 || o.nMovement[i] > 1023)
            invariantFailed("nMovement outside 1..1023", o.nMovement[i], frame);
    if (stats().checkBreath)
        checkBreathOutput(o.nBreathDisplay0, o.nBreathDisplay1, o.nBreathRate, o.nBreathState, frame);
    if (stats().checkHeart) checkHeartOutput(heartMode, o.nHeartRate, o.nHeartReserved, o.nHeartStatus, frame);
}

inline void checkBreathOutput(const int32_t* d0, const int32_t* d1, int32_t rate, int32_t state, uint64_t frame) {
    for (int i = 0; i < 25; ++i) {
        if (d0[i] < 0 || d0[i] > 1000) invariantFailed("breath display 0 outside 0..1000", d0[i], frame);
        if (d1[i] < 0 || d1[i] > 1000) invariantFailed("breath display 1 outside 0..1000", d1[i], frame);
    }
    if (state < 0 || state > 2) invariantFailed("breath state outside 0..2", state, frame);
    if (rate < 0) invariantFailed("breath rate negative", rate, frame);
}

inline void checkHeartOutput(int32_t heartMode, int32_t rate, int32_t reserved, int32_t status, uint64_t frame) {
    if (reserved != 0) invariantFailed("heart reserved word not 0", reserved, frame);
    if (heartMode == 0) {
        if (rate != 0 && (rate < 30 || rate > 300)) invariantFailed("heart rate neither 0 nor 30..300", rate, frame);
        if (status != 0 && status != 1) invariantFailed("heart status not 0 or 1", status, frame);
    } else if (heartMode == 1) {
        if (rate != 0 || status != 0) invariantFailed("heart restart did not report 0", rate, frame);
    } else if (rate != 200) {
        invariantFailed("skipped heart frame did not report 200", rate, frame);
    }
}

// The registry never releases a device record (hosts may still hold one). The harness gives
// them back itself: records still listed, and records it saw the library drop.
class RecordReclaimer {
public:
    // Remembers the record that initDevice/freeDevice of id is about to drop from the list.
    void aboutToDrop(int id) {
        if (pGeneralTimeTime == nullptr) return;
        UserDataStruct* found = nullptr;
        for (UserDataStruct* r : pGeneralTimeTime->m_vecUserData)
            if (r->nDeviceId == id) found = r;  // the last match is the live one
        if (found) dropped_.push_back(found);
    }
    bool listed(int id) const {
        if (pGeneralTimeTime == nullptr) return false;
        for (UserDataStruct* r : pGeneralTimeTime->m_vecUserData)
            if (r->nDeviceId == id) return true;
        return false;
    }
    // Frees everything and leaves an empty registry, so every input starts from the same state.
    void reset() {
        if (pGeneralTimeTime != nullptr) {
            for (UserDataStruct* r : pGeneralTimeTime->m_vecUserData) delete r;
            pGeneralTimeTime->m_vecUserData.clear();
        }
        for (UserDataStruct* r : dropped_) delete r;
        dropped_.clear();
    }

private:
    std::vector<UserDataStruct*> dropped_;
};

}  // namespace rtm_fuzz

// Every target defines its body as RTM_FUZZ_TARGET(name); the libFuzzer entry point is added
// unless the file is built into the corpus replay test, which calls the bodies by name.
#ifdef RTM_FUZZ_NO_ENTRY
#define RTM_FUZZ_TARGET(name) int name(const uint8_t* data, size_t size)
#else
#define RTM_FUZZ_TARGET(name)                                                                            \
    int name(const uint8_t* data, size_t size);                                                          \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return name(data, size); } \
    int name(const uint8_t* data, size_t size)
#endif

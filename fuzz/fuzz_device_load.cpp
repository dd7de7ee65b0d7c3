// Fuzz target: rtm_device_load. Three kinds of input, picked by the first byte:
//   0  the remaining bytes are the buffer, as they are (lengths, headers, foreign data)
//   1  a real snapshot with fuzzed bytes written over it, checksum left alone: must be refused
//      unless the edits changed nothing
//   2+ a real snapshot's state with fuzzed members and bytes, re-sealed with a valid header and
//      checksum: the range checks must refuse whatever would take an analyser outside its
//      arrays; a state they accept is then run for a few frames under the sanitizers.
// A refused load must leave the handle's state byte for byte as it was. The beats call runs after
// every load and every frame: a loaded handle reports the saved frame's beats, and whatever a
// forged state makes of the analyser's rings, the beats stay within their bound.
//
// Edit grammar (kinds 1, 2+), repeated while bytes remain:
//   op byte: op & 1 -> member edit: member = kMembers[u8 % count], value s32 (or s64/float)
//            else   -> raw edit: offset u32 (modulo the payload), n = op >> 1 & 7, then n bytes
// Kind 2+ ends with the frame count (low 3 bits of the kind byte, plus one) and a segment byte
// per frame.
#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

#include "api/snapshot.h"
#include "frame_script.h"
#include "fuzz_common.h"
#include "synth/vitals.h"

namespace rtm_fuzz_device_load {

using namespace rtm_fuzz;

enum class Width { I32, I64, F32, Bool };
struct Member {
    std::size_t offset;
    Width width;
};

#define RTM_MEMBER(cls, sub, field, w) \
    { offsetof(UserDataStruct, sub) + offsetof(cls, field), Width::w }
// The beat log follows the device record in the payload.
#define RTM_LOG_MEMBER(field, w) \
    { sizeof(UserDataStruct) + offsetof(rtm::BeatLog, field), Width::w }

// Positions, counts, sums, flags and rates: the members a forger would aim at first.
const Member kMembers[] = {
    RTM_MEMBER(CBreathPro, cBreathPro, nProFilterPos, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, nProSmoothPos, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, nProSmoothCount, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, nHighFilterPos, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, nProBaseCount, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, nEnergyRingPos, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, nMotionHold, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, nNoSignalHold, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, nSpectralBinHistory, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, lSampleCount, I64),
    RTM_MEMBER(CBreathPro, cBreathPro, bRateTrusted, Bool),
    RTM_MEMBER(CBreathPro, cBreathPro, fPeakRateHistory, F32),
    RTM_MEMBER(CBreathPro, cBreathPro, fPeakRateMean, F32),
    RTM_MEMBER(CBreathPro, cBreathPro, bRateSeeded, Bool),
    RTM_MEMBER(CBreathPro, cBreathPro, fBreathRate, F32),
    RTM_MEMBER(CBreathPro, cBreathPro, fReportedRate, F32),
    RTM_MEMBER(CBreathPro, cBreathPro, fPeakRate, F32),
    RTM_MEMBER(CBreathPro, cBreathPro, nBreathStatus, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, nDisplayBaseCount, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, nDisplayLowPos, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, nDisplaySmoothPos, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, nZoomRingPos, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, fRateHistory, F32),
    RTM_MEMBER(CBreathPro, cBreathPro, fLongRateHistory, F32),
    RTM_MEMBER(CBreathPro, cBreathPro, nRateOutCount, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, bRateOut, Bool),
    RTM_MEMBER(CBreathPro, cBreathPro, nRateJumpCount, I32),
    RTM_MEMBER(CBreathPro, cBreathPro, fSpectralRateHistory, F32),
    RTM_MEMBER(CBreathPro, cBreathPro, fReportedHistory, F32),
    RTM_MEMBER(CPedometerPro, cPedometerPro, nBaseSum, I64),
    RTM_MEMBER(CPedometerPro, cPedometerPro, nBaseIndex, I32),
    RTM_MEMBER(CPedometerPro, cPedometerPro, nLPIndex, I32),
    RTM_MEMBER(CPedometerPro, cPedometerPro, nBaseCount, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nLargeWaveCount, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nCallCount, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nRateHistoryPos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nLowPassPos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nLeadIndex, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, stBeatRing, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nBeatRingPos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nPeakPosRing, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nPeakPosRingPos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nRingPos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nConvexPos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nSinceLastPeak, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nQrsPeakPos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nBeatPosRing, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nBeatPosRingPos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nSampleInSecond, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nSecondsCount, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nCandidateHead, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nCandidatePos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nNoNewBeatCount, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nQrsWidthRing, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, stCandidateRing, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nArtifactLimit, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nRefInterval, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nFlatCount, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nAnalysisMode, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nBaseCount, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nWarmupCount, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nMedianRingPos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nWavePeakRingPos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nHoldCount, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nSettleCount, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nEnergyRingPos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nEnergyWindowPos, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nEnergyLearnCount, I32),
    RTM_MEMBER(CBeatMeasure, cBeatMeasure, nBeatRingStarted, Bool),
    RTM_LOG_MEMBER(frames, I64),
    RTM_LOG_MEMBER(candidateSample, I64),
    RTM_LOG_MEMBER(writeFrame, I64),
    RTM_LOG_MEMBER(writeEnd, I32),
    RTM_LOG_MEMBER(writes, I32),
    RTM_LOG_MEMBER(writePos, I32),
    RTM_LOG_MEMBER(count, I32),
    RTM_LOG_MEMBER(beats, I64),
};

#undef RTM_MEMBER
#undef RTM_LOG_MEMBER

constexpr std::size_t kMemberCount = sizeof kMembers / sizeof kMembers[0];

struct Base {
    std::vector<unsigned char> snapshot;  // a device 150 s into a varied recording
};

const Base& base() {
    static const Base b = [] {
        Base out;
        rtm_device* dev = rtm_device_create();
        rtm_synth::DeviceRecording rec(1, 29, 72.0, 15.0);
        for (int k = 0; k < 150; ++k) {
            ParamsIn f;
            rec.fill(f, k % 37 == 20 ? rtm_synth::Segment::Noisy : rtm_synth::Segment::Clean);
            ParamsOut o;
            rtm_device_process(dev, &f, &o);
        }
        out.snapshot.resize(rtm_device_state_size());
        rtm_device_save(dev, out.snapshot.data(), out.snapshot.size());
        rtm_device_destroy(dev);
        return out;
    }();
    return b;
}

void applyEdits(ByteReader& in, unsigned char* bytes, std::size_t size, std::size_t membersBase) {
    while (!in.empty() && in.remaining() > 1) {
        const uint8_t op = in.u8();
        if (op & 1) {
            const Member& m = kMembers[in.u8() % kMemberCount];
            unsigned char* at = bytes + membersBase + m.offset;
            switch (m.width) {
                case Width::I32: {
                    const int32_t v = in.s32();
                    std::memcpy(at, &v, 4);
                    break;
                }
                case Width::I64: {
                    const int64_t v =
                        static_cast<int64_t>(static_cast<uint64_t>(in.u32()) | static_cast<uint64_t>(in.u32()) << 32);
                    std::memcpy(at, &v, 8);
                    break;
                }
                case Width::F32: {
                    const uint32_t v = in.u32();
                    std::memcpy(at, &v, 4);
                    break;
                }
                case Width::Bool: *at = in.u8(); break;
            }
        } else {
            const std::size_t offset = in.u32() % size;
            const int n = (op >> 1) & 7;
            for (int i = 0; i < n && offset + static_cast<std::size_t>(i) < size; ++i)
                bytes[offset + static_cast<std::size_t>(i)] = in.u8();
        }
    }
}

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "rtm-fuzz: INVARIANT: %s\n", what);
    std::abort();
}

// The beats call with a buffer one short of the bound, so a count above it is seen copied short.
std::size_t checkedBeats(const rtm_device* dev) {
    rtm_beat beats[RTM_BEATS_MAX];
    const std::size_t n = rtm_device_beats(dev, beats, RTM_BEATS_MAX - 1);
    if (n > RTM_BEATS_MAX) fail("more beats than the bound");
    if (rtm_device_beats(dev, nullptr, 0) != n) fail("the count depends on the buffer");
    return n;
}

}  // namespace rtm_fuzz_device_load

#ifndef RTM_FUZZ_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    rtm_fuzz::setupStats(250);
    (void)rtm_fuzz_device_load::base();
    return 0;
}
#endif

RTM_FUZZ_TARGET(rtmFuzzDeviceLoad) {
    using namespace rtm_fuzz_device_load;
    using rtm_fuzz::ByteReader;
    using rtm_fuzz::timedFrame;
    if (size == 0) return 0;
    const std::vector<unsigned char>& snap = base().snapshot;
    const std::size_t header = rtm::kSnapshotHeaderBytes;
    const std::size_t payload = snap.size() - header;

    std::unique_ptr<rtm_device, void (*)(rtm_device*)> dev(rtm_device_create(), rtm_device_destroy);
    if (!dev || rtm_device_load(dev.get(), snap.data(), snap.size()) != 1) fail("the base snapshot does not load");
    std::vector<unsigned char> before(snap.size()), after(snap.size());
    rtm_device_save(dev.get(), before.data(), before.size());

    const uint8_t kind = data[0];
    ByteReader in(data + 1, size - 1);
    std::vector<unsigned char> buf;
    int frames = 0;
    bool mustRefuse = false;
    if (kind == 0) {
        buf.assign(data + 1, data + size);
    } else if (kind == 1) {
        buf = snap;
        applyEdits(in, buf.data(), buf.size(), header);
        mustRefuse = buf != snap;
    } else {
        // Forge: edit the state itself, then seal it with this build's header and checksum.
        if (payload != sizeof(UserDataStruct) + sizeof(rtm::BeatLog)) fail("the payload is not record and beat log");
        std::unique_ptr<rtm::HandleState> scratch(new rtm::HandleState());
        std::vector<unsigned char> bytes(snap.begin() + static_cast<std::ptrdiff_t>(header), snap.end());
        frames = (kind & 7) + 1;
        applyEdits(in, bytes.data(), payload, 0);
        std::memcpy(static_cast<void*>(&scratch->record), bytes.data(), sizeof(UserDataStruct));
        std::memcpy(&scratch->beats, bytes.data() + sizeof(UserDataStruct), sizeof(rtm::BeatLog));
        buf.resize(snap.size());
        if (!rtm::saveSnapshot(*scratch, buf.data(), buf.size())) fail("sealing a forged state failed");
    }

    const int loaded = rtm_device_load(dev.get(), buf.empty() ? data : buf.data(), buf.size());
    rtm_device_save(dev.get(), after.data(), after.size());
    if (loaded == 0 && after != before) fail("a refused snapshot changed the device");
    if (loaded == 1 && mustRefuse) fail("a corrupted snapshot was accepted");
    if (loaded == 1 && after != buf) fail("a loaded snapshot does not save back identically");
    checkedBeats(dev.get());

    if (loaded == 1 && frames > 0) {
        rtm_synth::DeviceRecording rec(1, 31, 64.0, 18.0);
        for (int k = 0; k < frames; ++k) {
            ParamsIn f;
            rec.fill(f, static_cast<rtm_synth::Segment>(in.u8() % 5));
            ParamsOut o;
            timedFrame([&] { rtm_device_process(dev.get(), &f, &o); });
            checkedBeats(dev.get());
        }
    }
    return 0;
}

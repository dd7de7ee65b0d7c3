// The handle interface: one host-owned analysis state per device, no registry, no lock. A handle
// holds the same record the registry keeps per id and runs frames through the same pipeline, so
// its outputs equal processSignal's for a device fed the same frames. Beside the record it keeps
// the beats of the last frame (api/beat_log.h), read from the analyser after each frame.
#include <algorithm>
#include <new>

#include "api/handle_state.h"
#include "api/snapshot.h"
#include "registry/device_record.h"
#include "rtmonitor.h"

struct rtm_device {
    rtm::HandleState state;
};

extern "C" {

RTMONITOR_API rtm_device* rtm_device_create(void) {
    rtm_device* dev = new (std::nothrow) rtm_device();
    if (dev == nullptr) return nullptr;
    rtm::resetDeviceRecord(dev->state.record, 0);
    return dev;
}

RTMONITOR_API int rtm_device_process(rtm_device* dev, const ParamsIn* in, ParamsOut* out) {
    if (dev == nullptr || in == nullptr || out == nullptr) return 0;
    // The analysers take their input through non-const pointers; they get a private copy, as
    // processSignal's by-value frame gives them.
    ParamsIn frame = *in;
    const rtm::HeartMarks before = rtm::markHeart(dev->state.record.cBeatMeasure);
    // The movement stage and beat typing use small heap lists; running out of memory there
    // must not unwind into a C caller.
    bool complete = true;
    try {
        rtm::analyseFrame(dev->state.record, frame, out);
    } catch (...) {
        complete = false;
    }
    rtm::logFrameBeats(dev->state.beats, before, dev->state.record.cBeatMeasure);
    return complete ? 1 : 0;
}

RTMONITOR_API size_t rtm_device_beats(const rtm_device* dev, rtm_beat* out, size_t max) {
    if (dev == nullptr) return 0;
    const rtm::BeatLog& log = dev->state.beats;
    const size_t count = static_cast<size_t>(log.count);
    if (out != nullptr) std::copy_n(log.beats, std::min(count, max), out);
    return count;
}

RTMONITOR_API void rtm_device_destroy(rtm_device* dev) { delete dev; }

RTMONITOR_API size_t rtm_device_state_size(void) { return rtm::snapshotSize(); }

RTMONITOR_API int rtm_device_save(const rtm_device* dev, void* buf, size_t len) {
    if (dev == nullptr || buf == nullptr) return 0;
    return rtm::saveSnapshot(dev->state, buf, len) ? 1 : 0;
}

RTMONITOR_API int rtm_device_load(rtm_device* dev, const void* buf, size_t len) {
    if (dev == nullptr || buf == nullptr) return 0;
    return rtm::loadSnapshot(dev->state, buf, len) ? 1 : 0;
}

RTMONITOR_API const char* rtm_version(void) { return RTMONITOR_VERSION_STRING; }

}  // extern "C"

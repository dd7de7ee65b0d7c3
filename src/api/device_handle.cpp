// The handle interface: one host-owned analysis state per device, no registry, no lock. A handle
// holds the same record the registry keeps per id and runs frames through the same pipeline, so
// its outputs equal processSignal's for a device fed the same frames.
#include <new>

#include "api/snapshot.h"
#include "registry/device_record.h"
#include "rtmonitor.h"

struct rtm_device {
    // Value-initialised, as the registry makes its records: the analysers rely on zeroed storage.
    UserDataStruct record{};
};

extern "C" {

RTMONITOR_API rtm_device* rtm_device_create(void) {
    rtm_device* dev = new (std::nothrow) rtm_device();
    if (dev == nullptr) return nullptr;
    rtm::resetDeviceRecord(dev->record, 0);
    return dev;
}

RTMONITOR_API int rtm_device_process(rtm_device* dev, const ParamsIn* in, ParamsOut* out) {
    if (dev == nullptr || in == nullptr || out == nullptr) return 0;
    // The analysers take their input through non-const pointers; they get a private copy, as
    // processSignal's by-value frame gives them.
    ParamsIn frame = *in;
    // The movement stage and beat typing use small heap lists; running out of memory there
    // must not unwind into a C caller.
    try {
        rtm::analyseFrame(dev->record, frame, out);
    } catch (...) {
        return 0;
    }
    return 1;
}

RTMONITOR_API void rtm_device_destroy(rtm_device* dev) { delete dev; }

RTMONITOR_API size_t rtm_device_state_size(void) { return rtm::snapshotSize(); }

RTMONITOR_API int rtm_device_save(const rtm_device* dev, void* buf, size_t len) {
    if (dev == nullptr || buf == nullptr) return 0;
    return rtm::saveSnapshot(dev->record, buf, len) ? 1 : 0;
}

RTMONITOR_API int rtm_device_load(rtm_device* dev, const void* buf, size_t len) {
    if (dev == nullptr || buf == nullptr) return 0;
    return rtm::loadSnapshot(dev->record, buf, len) ? 1 : 0;
}

RTMONITOR_API const char* rtm_version(void) { return RTMONITOR_VERSION_STRING; }

}  // extern "C"

// The three exported entry points. Every call runs under one process-wide mutex, so all analysis
// happens on the caller's thread, one call at a time. The registry is created on first use and
// lives for the rest of the process.
#include <mutex>

#include "rtmonitor.h"
#include "rtmonitor/GeneralRealTime.h"

std::mutex mx;
GeneralTimeTime* pGeneralTimeTime = nullptr;

namespace {

// The lock is taken only when the threads library is active in the process. A plain lock/unlock
// pair, not a scope guard: existing hosts see the lock still held if the registry allocation
// throws, and that behaviour is kept.
bool lockIfThreaded() {
    if (!__gthread_active_p()) return false;
    mx.lock();
    return true;
}

GeneralTimeTime* registry() {
    if (pGeneralTimeTime == nullptr) pGeneralTimeTime = new GeneralTimeTime();
    return pGeneralTimeTime;
}

}  // namespace

extern "C" {

RTMONITOR_API void initDevice(int id) {
    const bool locked = lockIfThreaded();
    registry()->InitRealTime(id);
    if (locked) mx.unlock();
}

RTMONITOR_API int processSignal(ParamsIn in, ParamsOut* out) {
    const bool locked = lockIfThreaded();
    registry()->processSignal(in, out);
    if (locked) mx.unlock();
    return 1;
}

RTMONITOR_API void freeDevice(int id) {
    const bool locked = lockIfThreaded();
    registry()->ClearRealTimeSingle(id);
    if (locked) mx.unlock();
}

}  // extern "C"

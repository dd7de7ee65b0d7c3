// Everything a handle holds: the device record the registry would keep for it, and the log of
// the beats its last frame confirmed. A snapshot is these two, byte for byte.
#pragma once

#include "api/beat_log.h"
#include "rtmonitor/GeneralRealTime.h"

namespace rtm {

struct HandleState {
    // Value-initialised, as the registry makes its records: the analysers rely on zeroed storage.
    UserDataStruct record{};
    BeatLog beats{};
};

}  // namespace rtm

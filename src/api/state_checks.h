// Range checks on a device state that arrives from outside the process (a snapshot). A state
// the analysers produced always passes; a forged one whose positions, counts or flags would
// send an analyser outside its arrays, into a signed overflow or a non-boolean bool is refused.
#pragma once

#include "rtmonitor/GeneralRealTime.h"

namespace rtm {

bool stateWithinBounds(const UserDataStruct& record);

}  // namespace rtm

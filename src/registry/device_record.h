// One device's analysis state outside the registry's bookkeeping: the reset that makes a record
// fresh, and one frame through its analysers. The registry and the per-device handles both run
// on these, so the two interfaces give the same outputs by construction.
#pragma once

#include "rtmonitor.h"
#include "rtmonitor/GeneralRealTime.h"

namespace rtm {

// The reset initDevice applies to a value-initialised record.
void resetDeviceRecord(UserDataStruct& record, int id);

// One frame: posture, movement, breath, heart, in that order, into every word of *out that the
// frame pipeline writes. The frame's device id is not read.
void analyseFrame(UserDataStruct& record, ParamsIn& frame, ParamsOut* out);

// The movement stage on one device's activity filter: n samples per axis -> n levels 1..1023.
void movementStage(CPedometerPro& filter, const int* x, const int* y, const int* z, int* movement, int n);

}  // namespace rtm

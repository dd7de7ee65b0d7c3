// Device registry and frame pipeline: one analysis state per device id, the fixed stage order
// posture, movement, breath, heart, and the movement trace.
#pragma once

#include <vector>

#include "rtmonitor.h"
#include "rtmonitor/CBeatMeasure.h"
#include "rtmonitor/CBreathPro.h"
#include "rtmonitor/CPedometerPro.h"
#include "rtmonitor/CPosture.h"

// One device's complete state. Member order is part of the design: the analysers are
// constructed heart, breath, activity, posture.
struct UserDataStruct {
    int nDeviceId;
    int nSpare;
    CBeatMeasure cBeatMeasure;
    CBreathPro cBreathPro;
    CPedometerPro cPedometerPro;
    CPosture cPosture;
};

class GeneralTimeTime {
public:
    GeneralTimeTime();
    ~GeneralTimeTime();

    bool InitRealTime(int id);
    int GetDataStructIndex(int id);
    bool ClearRealTimeSingle(int id);
    bool ClearRealTimeAll();

    bool processSignal(ParamsIn frame, ParamsOut* out);

    int GetPostureDet(int id, int seq, int* x, int* y, int* z, int n);
    bool GetMovementData(int id, int seq, int* x, int* y, int* z, int* movement, int n);
    bool ProcessingBreath(int id, int* chan0, int* chan1, int n, int* display0, int* display1, int* rate, int* state);
    bool ProcessingHeart(int id, int seq, int mode, int* samples, int n, int* wave, int* rate, int* reserved,
                         int* status);
    bool DataSugnal(int* in, int* out, int n, double scale, double amplitude);

    // The registered devices in registration order. Lookups go through an index kept beside
    // the list; direct edits are picked up when the list's length or storage changes or a
    // looked-up entry no longer carries its id.
    std::vector<UserDataStruct*> m_vecUserData;
};

// The registry singleton; created by the first exported call and never destroyed.
extern GeneralTimeTime* pGeneralTimeTime;

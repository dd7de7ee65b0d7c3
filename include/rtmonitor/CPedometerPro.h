// Activity filter: per-axis running-mean baseline removal and a 12-tap low-pass, reduced to one
// activity magnitude per accelerometer sample. The history runs on across frames.
#pragma once

#include <cstdint>

class CPedometerPro {
public:
    CPedometerPro();
    ~CPedometerPro();

    int PedometerProInit();
    int nBaseFilter(int x, int c);
    int nLPFilter(int x, int c);
    int nCountStepNum(int x, int y, int z, int& magnitude);

    int64_t nBaseSum[3];
    int nBaseIndex[3];
    int nLPIndex[3];
    int nBaseCount[3];
    int nBaseBuf[3][100];
    int nLPBuf[3][12];
    int nSpareBuf[3][10];
};

// Cardiac analyser: beat detection, typing and heart rate from 200 samples/s ECG.
// (Placeholder interface until the analyser lands; the pipeline already calls it.)
#pragma once

struct SettingParameter {
    int nSettingA;
    int nSettingB;
    int nSettingC;
};

class CBeatMeasure {
public:
    CBeatMeasure();
    ~CBeatMeasure();

    int HeartProInit();
    int Init(SettingParameter setting);
    int Init_NOBeat(SettingParameter setting);
    void ProcessingHeart(int nChannel, int nPacketNo, int nMode, int* pSamples, int nDefaultRate, int* pWaveOut,
                         int* pHeartRate, int* pReserved, int* pQuality);
};

// Respiration analyser: display waveforms and the breathing rate from 25 samples/s respiration.
// (Placeholder interface until the analyser lands; the pipeline already calls it.)
#pragma once

class CBreathPro {
public:
    CBreathPro();
    ~CBreathPro();

    int BreathProInit();
    int BreathnoProInit();
    void ProcessingBreath(int nPass, int* pChan0, int* pChan1, int nCount, int* pDisplay0,
                          int* pDisplay1, int* pRate, int* pStatus);
};

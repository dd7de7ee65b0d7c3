// Respiration analyser: two display waveforms (0..1000 per sample) and the breathing rate in
// breaths per minute from two respiration channels at 25 samples/s, 25 samples per call.
// Channel 1 (row 1 of every per-channel array) is the analysed one; channel 0 is only displayed.
// All state is plain members in a fixed order (hosts rely on the record layout); nothing is on
// the heap. Integer arithmetic is 32-bit with truncating division; rates are single precision.
#pragma once

#include <cstdint>

// Respiration samples per second; every call of ProcessingBreath carries one second of them.
constexpr int BREATH_SAMPLE_RATE = 25;

class CBreathPro {
public:
    CBreathPro();
    ~CBreathPro();

    // --- initialisers -------------------------------------------------------------------
    int BreathProInit();    // full reset of every member; returns 1
    int BreathnoProInit();  // resets the rate-decision state only; returns 1

    // --- driver: one call per 25-sample block --------------------------------------------
    void ProcessingBreath(int nPass, int* pChan0, int* pChan1, int nCount, int* pDisplay0, int* pDisplay1, int* pRate,
                          int* pStatus);

    // --- display conditioning chain (ch selects row 0 or 1) ------------------------------
    int nBaseFilterBreath_display(int x, int ch);
    int LowFilterBreath_display(int x, int ch);
    int smooth_data_display(int x, int ch);
    int BaseLowFilter_Zoom(int nPass, int x0, int x1, int* pY0, int* pY1);

    // --- second conditioning chain, kept with its tables; nothing in the pipeline calls it
    int nBaseFilterBreathpro(int x);
    int LowFilterBreath_pro(int x);
    int highFilterBreath_pro(int x);
    int smooth_data(int x, int ch);

    // --- array helpers on caller-owned arrays; ranges are [start, end) --------------------
    bool judgezeros(int* a, int start, int end, int value, int runLength);
    int DataMax_Min_Mean_std(int* a, int start, int end, int* pMax, int* pMin, int* pMean, int* pStd);
    int DataMax(int* a, int start, int end);
    int DataMin(int* a, int start, int end);
    int DataMean(int* a, int start, int end);
    int Datastd(int* a, int start, int end);
    float DataMeanfloat(float* a, int start, int end);
    void diff(int* a, int n, int* out);
    void Arrayshiftint(int* a, int n, int v);
    void Arrayshiftfloat(float* a, int n, float v);
    float energysum(int* a, int n);
    void moving_average_smooth(int* a, int n, int w, int* out);
    void sortfloat(float* a, int n);
    bool JudgeArrayequlity(int* a, int n);
    int min(int a, int b);

    // --- spectral peak --------------------------------------------------------------------
    int FFT_Max_loc(int* a, int n);
    void fftshift_abs(float* in, float* out, int n);

    // --- peak finding, peak-pair counting, interval-based rate ----------------------------
    void FindPeakMinMax(int* data, int nStart, int nEnd, int nMinDist, int* pPeakLoc, int* pTroughLoc, int* pPeakNum,
                        int* pTroughNum);
    float PPConNum(int* data, int* pPeakLoc, int* pTroughLoc, int nMinLoc, int nPeakNum, int nTroughNum, int nCycleNum,
                   bool* bRateValid, bool* bCrossRegular);
    float RR_result(int* first, int* second, int nFirst, int nSecond);

    // --- state, in its fixed order ----------------------------------------------------------
    int32_t nProFilterRing[115];        // ring of the 115-tap filter of the second chain
    int32_t nProFilterPos;              // 0..114
    int32_t nProSmoothRing[2][15];      // three-point rings of smooth_data (slots 0..2 used)
    int32_t nProSmoothPos[2];           // 0..2
    int32_t nProSmoothCount[2];         // samples seen by smooth_data
    int32_t nHighFilterRing[325];       // ring of the 325-tap high-pass of the second chain
    int32_t nHighFilterPos;             // 0..324
    int32_t nProBaseCount;              // stops growing at 25
    int32_t nProBaseSum;                // running baseline sum of nBaseFilterBreathpro
    int32_t nEnergyRing[50];            // last 50 conditioned channel-1 samples, circular
    int32_t nEnergyRingPos;             // next write position, 0..49
    int32_t nBreathBuffer[1000];        // last 40 s of conditioned channel 1, newest at 999
    int32_t nMotionHold;                // 0, or rate updates since high signal energy (1..9)
    int32_t nNoSignalHold;              // 0, or rate updates since no signal (1..4)
    int32_t nSpectralBinHistory[10];    // last ten spectral peak bins, oldest first
    int64_t lSampleCount;               // samples processed since BreathProInit
    bool bRateTrusted;                  // first flag of PPConNum
    float fPeakRateHistory[5];          // last five peak-counting rates, oldest first
    float fPeakRateMean;                // mean of the two largest of fPeakRateHistory
    bool bRateSeeded;                   // the first peak-counting rate has been adopted
    float fCandidateRate;               // written by the driver, read by nothing
    float fBreathRate;                  // current estimate, breaths per minute
    float fReportedRate;                // rate last reported
    float fPeakRate;                    // result of the last first-pass PPConNum
    int32_t nBreathStatus;              // status reported beside the rate
    int32_t nDisplayBaseSum[2];         // running baseline sums of the display chain
    int32_t nDisplayBaseCount[2];       // stop growing at 50
    int32_t nDisplayLowRing[2][33];     // rings of the 33-tap display low-pass
    int32_t nDisplayLowPos[2];          // 0..32
    int32_t nDisplaySmoothRing[2][15];  // three-point rings (slots 0..2 used)
    int32_t nDisplaySmoothPos[2];       // 0..2
    int32_t nDisplaySmoothCount[2];     // samples seen by smooth_data_display
    int32_t nZoomRing[2][70];           // last 70 conditioned samples per channel
    int32_t nZoomRingPos[2];            // next write positions, 0..69
    float fRateHistory[5];              // last five estimates accepted as steady, oldest first
    float fLongRateHistory[20];         // last twenty per-update estimates, oldest first
    int32_t nRateOutCount;              // consecutive updates with an out-of-range counted rate
    bool bRateOut;                      // nRateOutCount has exceeded 4
    int32_t nRateJumpCount;             // consecutive updates more than 5 from fReportedRate
    float fSpectralRateHistory[10];     // last ten spectral rates, oldest first
    float fReportedHistory[5];          // last five rounded rates fed to the output average
};

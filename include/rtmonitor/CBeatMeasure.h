// Cardiac analyser: beat detection, beat typing and heart rate from 200 samples/s ECG counts.
// One instance per device. All state lives in fixed arrays inside the object; rings of 4000
// entries hold 20 s of signal and their positions wrap 3999 -> 0. Rates are beats per minute,
// intervals and widths are in samples of 5 ms.
// The member order is part of the interface: hosts and the heart driver depend on the layout
// (see the static assertions at the end of this file).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Settings handed to Init and Init_NOBeat. The analyser reads none of the fields; the record keeps
// its form because hosts fill it (190, 120, 50).
struct SettingParameter {
    int nSettingA;
    int nSettingB;
    int nSettingC;
};

// One beat. Field order is fixed (hosts read the records by position):
// 0 QRS height, 1 ring position while the record is a candidate (0 in a finished beat),
// 2 RR interval in samples, 3 QRS width in samples, 4 instantaneous rate in beats/min,
// 5 beat type 1..4, 6 amplitude-stability mark 0..2. Blank record {0,0,0,0,0,1,0}.
struct BeatMeasure {
    int nQrsHeight;
    int nPosition;
    int nRRInterval;
    int nQrsWidth;
    int nHeartRate;
    int nBeatType;
    int nStability;
};

// Receives a main peak's two-sided amplitude in its first field; the second is not used.
struct IntPointLeadNum {
    int nPoint;
    int nLeadNum;
};

class CBeatMeasure {
public:
    // Ring and table sizes. One lead is analysed; arrays "per lead" have one row.
    static constexpr int kRingLength = 4000;
    static constexpr int kLeadRows = 1;
    static constexpr int kBeatSlots = 20;
    static constexpr int kMedianLength = 51;
    static constexpr int kLowPassTaps = 29;

    // The constructor writes only the constants and a few counters. nLargeWaveCount and the
    // unused words are written by no routine at all, so the owner must provide zeroed storage
    // (value-initialise the enclosing record) before the first packet.
    CBeatMeasure();
    ~CBeatMeasure();

    // Resets.
    int Init(SettingParameter setting);
    int Init_NOBeat(SettingParameter setting);
    int HeartProInit();
    int EcgAnalysisInit(int nUnused);

    // Heart driver.
    void ProcessingHeart(int nChannel, int nPacketNo, int nMode, int* pSamples, int nDefaultRate, int* pWaveOut,
                         int* pHeartRate, int* pReserved, int* pQuality);
    int GetHeartRate(int nChannel, int nPacketNo, int* pSamples, int nCount, int* pWaveOut, int* pQuality);
    int Processingheartdata(int nChannel, int nSample, int* pOut);
    int CountMeanHR();

    // Signal conditioning.
    int medfilt1(int* data, int count, int width);
    int BaseFilter(int x);
    int LowFilterHeart(int x);
    int GetWavePeak(int* data, int count);
    int Convexpointoperator(int lead);

    // Detection thresholds and ring searches.
    int lngFindLocalMaxLocation(int* ring, int from, int to, int len, int& pos);
    int lngFindLocalMinLocation(int* ring, int from, int to, int len, int& pos);
    int GetEnergyHeightInitValue(int seconds);
    bool GetRHeightInitValue(int seconds);
    bool GetRPeakHeightInitValue(int seconds);
    int lngFindLocalMaxLocation_reverse(int* ring, int* shape, int from, int to, int span, int threshold, int& pos,
                                        bool& found, bool flag);

    // Main-peak discrimination.
    std::vector<BeatMeasure> MainPeakDiscern(int lead);
    std::vector<BeatMeasure> GetBeatCharacter(int pos, int lead);
    int CalcRCharacter(int pos, int lead);
    int GetAnalysDataDistance(int a, int b);
    void LocateMainPeakUnderRawWave(int lead, int* ring, int pos, int len, int& peak, int& height);
    int GetMainPeakOriginalWave(int pos, IntPointLeadNum& amplitude, int slot);
    int LocateOnset(int lead, int pos);
    int LocateOffset(int lead, int pos);
    int CountQRSWave(int lead, int pos, int slot);
    int SaveQRSWave(int lead, int pos, int slot);
    int GetEcgMainPeak(int pos, int span);
    int CountBaseRPeak(int slot);

    // Beat classification.
    bool GetBeatResult(int i, int nUnused, BeatMeasure& out);
    int GetBeatType(int i);
    int CountRRInterval(int i);
    int CountBaseQRSWidth(int i);
    bool IsArtifact(int nLead, int i);
    int xValue(int nLead, int i);

    // Rhythm events.
    int GetEventType(int i);
    bool AtrialFibrillationAnalysis(int i);

    // ---- State, in layout order ----
    int nLargeWaveCount;                 // consecutive too-large packets; never reset
    int nCallCount;                      // GetHeartRate calls
    int nRateValid;                      // 1 once CountMeanHR produced a rate; cleared by Init only
    int nRateHistoryPos;                 // write position of nRateHistory, 0..4
    int nRateHistory[5];                 // start-up rates that went through the median
    int nLastHeartRate;                  // rate last returned, beats/min
    int nLastPacketNo;                   // packet counter of the previous call
    int nUnusedWords[3];                 // not used by the analysis; never reset
    int nLowPassRing[kLowPassTaps];      // LowFilterHeart delay line
    int nLowPassPos;                     // 0..28
    int nLeadIndex;                      // analysed lead (0)
    int nInitDone;                       // set to 1 by Init
    BeatMeasure stBeatTemplate;          // blank beat {0,0,0,0,0,1,0}
    SettingParameter stReinitSetting;    // passed to the re-initialisation in GetHeartRate; never reset
    int nMeanRPeak;                      // mean R-peak height (CountBaseRPeak)
    BeatMeasure stBeatRing[kBeatSlots];  // last 20 confirmed beats
    int nBeatRingPos;                    // slot of the next beat; newest is one behind
    unsigned char nBeatRingStarted;      // set by the first stored beat

    // The three detection rings stay adjacent and in this order (hosts read them by offset).
    int nFilteredRing[kLeadRows][kRingLength];  // band-passed ECG x 1000 / fSignalGain
    int nAbsRing[kLeadRows][kRingLength];       // |nFilteredRing|
    int nConvexRing[kLeadRows][kRingLength];    // Convexpointoperator output

    int nPacketEndPos;                        // ring position of the packet's last sample
    int nPacketStartPos;                      // ring position of the packet's first sample
    int nPeakPosRing[5];                      // positions of the five latest accepted main peaks
    int nPeakPosRingPos;                      // 0..4
    int nRingPos;                             // write position of the three rings; -1 after Init
    int nConvexPos;                           // position examined by the main-peak search; -1 after Init
    int nRPeakThreshold[kLeadRows];           // threshold on nConvexRing
    int nRHeightThreshold[kLeadRows];         // threshold on nAbsRing
    int nSinceLastPeak;                       // main-peak calls since the last confirmation
    int16_t bQrsArmed;                        // a rising main peak is being followed
    int16_t bQrsPassed;                       // the convex signal fell back after the armed peak
    int nQrsPeakPos;                          // ring position of the current main-peak candidate
    int nBeatPosRing[kBeatSlots];             // confirmed peak position per beat slot
    int nMainPeakAmplitude[kBeatSlots];       // two-sided main-peak amplitude per candidate slot
    int nBeatPosRingPos;                      // 0..19
    int nSampleInSecond;                      // 0..199
    int nSecondsCount;                        // whole seconds since the last reset
    unsigned char nThresholdReady;            // detection thresholds are set
    int nCandidateHead;                       // newest entry of stCandidateRing (19 after Init)
    int nCandidatePos;                        // oldest entry of stCandidateRing
    int nNoNewBeatCount;                      // packets in a row without a new beat
    int nQrsWidthRing[3][kBeatSlots];         // rows: QRS peak position, QRS height, QRS width
    BeatMeasure stCandidateRing[kBeatSlots];  // candidates; field 1 is the ring position
    int nMinRRInterval;                       // 38 samples (190 ms)
    int nMaxRRInterval;                       // 600 samples (3 s)
    int nMsPerSample;                         // 5
    float fSignalGain;                        // 80.0, divisor of the low-pass output
    int nSampleRate;                          // 200
    int nArtifactLimit;                       // 24000; reset on every GetHeartRate call
    int nRefInterval;                         // running reference interval (40 after Init)
    int nRefAmplitude;                        // running reference beat amplitude
    int nBeatAmplitude[kBeatSlots];           // peak-to-peak amplitude of each candidate
    int nMeanHeartRate;                       // only ever 0
    int nFlatCount;                           // packets counted in analysis mode 2
    int nAnalysisMode;                        // 1 analyse, 2 hold after a flat packet
    int nBaseSum;                             // BaseFilter running sum
    int nBaseCount;                           // BaseFilter samples, stops at 200
    int nSmoothHist[3];                       // last three BaseFilter outputs
    int nWarmupCount;                         // samples seen by Processingheartdata; 400 after the 51st
    int nMedianRing[kMedianLength];           // raw samples for the median baseline
    int nMedianRingPos;                       // 0..50
    int nWavePeakRing[10];                    // peak-to-peak amplitude of the last ten packets
    int nWavePeakRingPos;                     // 0..9
    int nLargeWaveFlag;                       // rate held because of a disturbed packet
    int nHoldCount;                           // disturbed packets counted while holding
    int nOverRangeFlag;                       // set after an over-range or large packet
    int nSettleCount;                         // settling counter after a disturbance
    int nEnergyRing[kRingLength];             // short-time energy of nConvexRing
    int nEnergyWindow[10];                    // last ten delayed convex values
    int nEnergyRingPos;                       // wraps 3999 -> 0
    int nEnergyWindowPos;                     // 0..9
    int nEnergyThreshold[4];                  // threshold on nEnergyRing, indexed by lead
    int nEnergyLearnCount;                    // GetHeartRate calls since the last energy relearning
    int nSpareInitA[4];                       // cleared by Init, otherwise unused
    int nSpareInitB[12];                      // cleared by Init, otherwise unused
    int nSpareInitC;                          // cleared by Init, otherwise unused
};

// The order of the detection rings is part of the layout; kept as a compile-time fact.
static_assert(offsetof(CBeatMeasure, nAbsRing) ==
                  offsetof(CBeatMeasure, nFilteredRing) + sizeof(CBeatMeasure::nFilteredRing),
              "nAbsRing must follow nFilteredRing directly");
static_assert(offsetof(CBeatMeasure, nConvexRing) == offsetof(CBeatMeasure, nAbsRing) + sizeof(CBeatMeasure::nAbsRing),
              "nConvexRing must follow nAbsRing directly");
static_assert(sizeof(BeatMeasure) == 7 * sizeof(int), "BeatMeasure is seven 32-bit words");
static_assert(sizeof(SettingParameter) == 3 * sizeof(int), "SettingParameter is three 32-bit words");

// Cardiac analyser state: construction and the four resets (full, no-beat, input conditioning,
// and the host-facing analysis start). Each reset touches exactly its own set of members; what
// a reset keeps is as much part of the behaviour as what it clears.
#include <algorithm>
#include <iterator>

#include "rtmonitor/CBeatMeasure.h"

namespace {

constexpr BeatMeasure kBlankBeat = {0, 0, 0, 0, 0, 1, 0};
constexpr BeatMeasure kEmptyCandidate = {-1, -1, -1, -1, -1, -1, -1};

template <typename T, std::size_t N>
void fillAll(T (&array)[N], const T& value) {
    std::fill(std::begin(array), std::end(array), value);
}

template <std::size_t R, std::size_t N>
void fillAll(int (&array)[R][N], int value) {
    for (auto& row : array) std::fill(std::begin(row), std::end(row), value);
}

}  // namespace

// Only the constants and a handful of counters; everything else waits for EcgAnalysisInit.
CBeatMeasure::CBeatMeasure() {
    nCallCount = 0;
    nMinRRInterval = 38;
    nMaxRRInterval = 600;
    nMsPerSample = 5;
    fSignalGain = 80.0f;
    nSampleRate = 200;
    nArtifactLimit = 24000;
    nLeadIndex = 0;
    nSampleInSecond = 0;
    nNoNewBeatCount = 0;
    nMeanHeartRate = 0;
    nFlatCount = 0;
    nAnalysisMode = 1;
}

CBeatMeasure::~CBeatMeasure() {}

// Full reset. nLargeWaveCount, nUnusedWords and stReinitSetting are deliberately left alone.
int CBeatMeasure::Init(SettingParameter) {
    nMinRRInterval = 38;
    nMaxRRInterval = 600;
    nMsPerSample = 5;
    fSignalGain = 80.0f;
    nSampleRate = 200;
    nArtifactLimit = 24000;
    nLeadIndex = 0;

    nCallCount = 0;
    nRateValid = 0;
    nRateHistoryPos = 0;
    fillAll(nRateHistory, 0);
    nLastHeartRate = 0;
    nLastPacketNo = 0;
    fillAll(nLowPassRing, 0);
    nLowPassPos = 0;
    nInitDone = 1;
    stBeatTemplate = kBlankBeat;
    nMeanRPeak = 0;
    fillAll(stBeatRing, stBeatTemplate);
    nBeatRingPos = 0;
    nBeatRingStarted = 0;

    fillAll(nFilteredRing, 0);
    fillAll(nAbsRing, 0);
    fillAll(nConvexRing, 0);

    nPacketEndPos = -1;
    nPacketStartPos = -1;
    fillAll(nPeakPosRing, 0);
    nPeakPosRingPos = 0;
    // -1 so that the first sample after a reset is written at position 0.
    nRingPos = -1;
    nConvexPos = -1;
    fillAll(nRPeakThreshold, 0);
    fillAll(nRHeightThreshold, 0);
    nSinceLastPeak = 0;
    bQrsArmed = 0;
    bQrsPassed = 0;
    nQrsPeakPos = 0;
    fillAll(nBeatPosRing, 0);
    fillAll(nMainPeakAmplitude, 0);
    nBeatPosRingPos = 0;
    nSampleInSecond = 0;
    nSecondsCount = 0;
    nThresholdReady = 0;
    nCandidateHead = 19;
    nCandidatePos = 0;
    nNoNewBeatCount = 0;
    fillAll(nQrsWidthRing, -1);
    fillAll(stCandidateRing, kEmptyCandidate);

    nRefInterval = 40;
    nRefAmplitude = 0;
    fillAll(nBeatAmplitude, 0);
    nMeanHeartRate = 0;
    nFlatCount = 0;
    nAnalysisMode = 1;
    nBaseSum = 0;
    nBaseCount = 0;
    fillAll(nSmoothHist, 0);
    nWarmupCount = 0;
    fillAll(nMedianRing, 0);
    nMedianRingPos = 0;
    fillAll(nWavePeakRing, 0);
    nWavePeakRingPos = 0;
    nLargeWaveFlag = 0;
    nHoldCount = 0;
    nOverRangeFlag = 0;
    nSettleCount = 0;
    fillAll(nEnergyRing, 0);
    fillAll(nEnergyWindow, 0);
    nEnergyRingPos = 0;
    nEnergyWindowPos = 0;
    fillAll(nEnergyThreshold, 0);
    nEnergyLearnCount = 0;
    fillAll(nSpareInitA, 0);
    fillAll(nSpareInitB, 0);
    nSpareInitC = 0;
    return 1;
}

// Partial reset after packets without a beat: restart the search and the start-up rate median,
// but keep the rings, the learnt thresholds, the beat history and the last reported rate, so the
// reported heart rate survives the reset.
int CBeatMeasure::Init_NOBeat(SettingParameter) {
    nThresholdReady = 0;
    fillAll(nBeatAmplitude, 0);
    nRateHistoryPos = 0;
    fillAll(nRateHistory, 0);
    bQrsArmed = 0;
    bQrsPassed = 0;
    nQrsPeakPos = 0;
    nSinceLastPeak = 0;
    fillAll(nPeakPosRing, 0);
    nPeakPosRingPos = 0;
    nSampleInSecond = 0;
    nSecondsCount = 0;
    nNoNewBeatCount = 0;
    nMeanHeartRate = 0;
    nFlatCount = 0;
    nLargeWaveFlag = 0;
    nHoldCount = 0;
    nRefInterval = 40;
    nAnalysisMode = 1;
    return 1;
}

// Input conditioning only (median baseline and running mean); the low-pass keeps its history so
// a gap in the packet numbering does not disturb the detection rings.
int CBeatMeasure::HeartProInit() {
    nBaseSum = 0;
    nBaseCount = 0;
    fillAll(nSmoothHist, 0);
    nWarmupCount = 0;
    fillAll(nMedianRing, 0);
    nMedianRingPos = 0;
    return 1;
}

int CBeatMeasure::EcgAnalysisInit(int) {
    SettingParameter setting;
    setting.nSettingA = 190;
    setting.nSettingB = 120;
    setting.nSettingC = 50;
    return Init(setting);
}

// Respiration analyser lifecycle: construction, the full reset and the reset of the rate-decision
// state alone. No arithmetic here; the members and their meaning are listed in the class header.
#include <algorithm>

#include "rtmonitor/CBreathPro.h"

namespace {

template <typename T, std::size_t N>
void clearArray(T (&a)[N]) {
    std::fill(a, a + N, T{});
}

template <typename T, std::size_t R, std::size_t C>
void clearArray(T (&a)[R][C]) {
    for (auto& row : a) clearArray(row);
}

}  // namespace

// Only the energy ring position is set here; the registry always follows construction with
// BreathProInit, which gives every other member its value.
CBreathPro::CBreathPro() { nEnergyRingPos = 0; }

CBreathPro::~CBreathPro() {}

int CBreathPro::BreathProInit() {
    clearArray(nProFilterRing);
    nProFilterPos = 0;
    clearArray(nProSmoothRing);
    clearArray(nProSmoothPos);
    clearArray(nProSmoothCount);
    clearArray(nHighFilterRing);
    nHighFilterPos = 0;
    nProBaseCount = 0;
    nProBaseSum = 0;
    clearArray(nEnergyRing);
    nEnergyRingPos = 0;
    clearArray(nBreathBuffer);
    nMotionHold = 0;
    nNoSignalHold = 0;
    clearArray(nSpectralBinHistory);
    lSampleCount = 0;
    bRateTrusted = false;
    clearArray(fPeakRateHistory);
    fPeakRateMean = 0.0f;
    bRateSeeded = false;
    fCandidateRate = 0.0f;
    fBreathRate = 0.0f;
    fReportedRate = 0.0f;
    fPeakRate = 0.0f;
    nBreathStatus = 0;
    clearArray(nDisplayBaseSum);
    clearArray(nDisplayBaseCount);
    clearArray(nDisplayLowRing);
    clearArray(nDisplayLowPos);
    clearArray(nDisplaySmoothRing);
    clearArray(nDisplaySmoothPos);
    clearArray(nDisplaySmoothCount);
    clearArray(nZoomRing);
    clearArray(nZoomRingPos);
    clearArray(fRateHistory);
    clearArray(fLongRateHistory);
    nRateOutCount = 0;
    bRateOut = false;
    nRateJumpCount = 0;
    clearArray(fSpectralRateHistory);
    clearArray(fReportedHistory);
    return 1;
}

// A dead sensor restarts the rate decision but not the signal history: the spectral rates stay
// so the ten-entry agreement tests still see the rates from before, the sample count keeps the
// once-per-second phase, and the buffers and display filters run on undisturbed.
int CBreathPro::BreathnoProInit() {
    nMotionHold = 0;
    nNoSignalHold = 0;
    clearArray(nSpectralBinHistory);
    bRateTrusted = false;
    clearArray(fPeakRateHistory);
    fPeakRateMean = 0.0f;
    bRateSeeded = false;
    fCandidateRate = 0.0f;
    fBreathRate = 0.0f;
    fReportedRate = 0.0f;
    fPeakRate = 0.0f;
    nBreathStatus = 0;
    clearArray(fRateHistory);
    clearArray(fLongRateHistory);
    nRateOutCount = 0;
    bRateOut = false;
    nRateJumpCount = 0;
    clearArray(fReportedHistory);
    return 1;
}

// Once-per-second breathing-rate estimate on the last 40 s (1000 samples at 25 samples/s) of
// conditioned channel 1, in breaths per minute. A spectral peak picks the smoothing and checks
// the rate; peak counting on the smoothed window supplies it; two layers of trimmed means and a
// jump guard against the reported rate steady it before the driver's output average.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "breath/rate_math.h"
#include "breath/rate_update.h"
#include "common/exact_math.h"

namespace rtm {
namespace breath {
namespace {

constexpr int kWindowSamples = 1000;
constexpr int kSpectralHistory = 10;  // spectral bins and rates, one per update
constexpr int kCountedHistory = 5;    // counted rates (fPeakRateHistory)
constexpr int kSteadyHistory = 5;     // estimates accepted as steady (fRateHistory)
constexpr int kLongHistory = 20;      // every update's estimate (fLongRateHistory)
// 0.0244 Hz is the bin width of a 1024-point transform at 25 samples/s, to four places; the
// reported rates are made with this rounded width.
constexpr float kBinWidthHz = 0.0244f;

struct Smoothing {
    int width;    // moving-average width, samples
    int spacing;  // minimum peak spacing, samples
};

// Smoothing and peak spacing for the spectral rate fs (breaths per minute); a trace that is not
// yet 40 s long or whose spectral peak still moves gets the short default.
Smoothing chooseSmoothing(bool liveAndSteady, float fs) {
    if (!liveAndSteady) return {10, 20};
    if (fs >= 6.0f && fs <= 8.0f) return {150, 60};
    if (fs > 8.0f && fs <= 20.0f) return {35, 50};
    if (fs > 20.0f && fs <= 30.0f) return {20, 40};
    if (fs > 30.0f && fs <= 40.0f) return {20, 30};
    if (fs > 50.0f) return {10, 10};
    return {10, 20};
}

// Step D: whether the counted rate r is adopted. Returns the value for the long history.
float acceptCountedRate(CBreathPro& a, float r, float fs, bool steady) {
    a.Arrayshiftfloat(a.fPeakRateHistory, kCountedHistory, r);
    if (r < 5.0f || r >= 75.0f) {
        a.nRateOutCount = wrapAdd32(a.nRateOutCount, 1);
        if (a.nRateOutCount > 4) a.bRateOut = true;
        return a.fBreathRate;
    }
    a.bRateOut = false;
    a.nRateOutCount = 0;

    if (!a.bRateTrusted) {
        if (a.fPeakRateMean == 0.0f && !a.bRateSeeded) {
            a.fBreathRate = 0.0f;
            a.fPeakRateMean = 0.0f;
            return 0.0f;
        }
        a.fBreathRate = a.fPeakRateMean;
        return a.fPeakRateMean;
    }

    // Counted and spectral rates that agree on a steady spectrum: the spectral one is finer.
    if (std::fabs(a.fPeakRate - fs) < 3.0f && steady) a.fPeakRate = fs;

    float sorted[kCountedHistory];
    std::copy(a.fPeakRateHistory, a.fPeakRateHistory + kCountedHistory, sorted);
    a.sortfloat(sorted, kCountedHistory);
    const float mean2 = a.DataMeanfloat(sorted, 3, 5);
    a.fPeakRateMean = mean2;
    a.fCandidateRate = mean2;

    const bool seedNow = mean2 == 0.0f && !a.bRateSeeded;
    if (seedNow) a.bRateSeeded = true;
    if (seedNow || std::fabs(mean2 - a.fPeakRate) <= 3.0f) {
        a.fBreathRate = a.fPeakRate;
        a.fCandidateRate = a.fPeakRate;
        a.fPeakRateMean = a.fPeakRate;
        return a.fPeakRate;
    }
    a.fBreathRate = mean2;
    return mean2;
}

// Peak counting has failed for a while: follow the spectrum only if all ten updates saw the same
// bin and it agrees with what is reported; otherwise hold the reported rate.
void followSpectrumOrHold(CBreathPro& a, float reported) {
    const int32_t* bins = a.nSpectralBinHistory;
    const float* spectral = a.fSpectralRateHistory;
    int agreeing = spectral[0] > 4.0f ? 1 : 0;
    for (int k = 1; k <= 8; ++k)
        if (bins[k] == bins[0] && spectral[k] > 4.0f) ++agreeing;
    float sum = 0.0f;
    for (int k = 0; k < kSpectralHistory; ++k) sum += spectral[k];
    const float mean10 = sum / 10.0f;
    if (bins[9] == bins[0] && spectral[9] > 4.0f && agreeing == 9 && std::fabs(mean10 - reported) <= 3.0f)
        a.fBreathRate = mean10;
    else a.fBreathRate = reported;
}

// The last three spectral updates: their mean rate and whether all three saw one bin above 2.
struct SpectralTail {
    float mean3;
    bool agree;
};

SpectralTail lastThreeSpectral(const CBreathPro& a) {
    const int32_t* bins = a.nSpectralBinHistory;
    const float* spectral = a.fSpectralRateHistory;
    const int32_t b7 = bins[7];
    const int32_t b8 = bins[8];
    const int32_t b9 = bins[9];
    const int c3 = (b7 > 2 ? 1 : 0) + (b8 > 2 && b8 == b7 ? 1 : 0) + (b9 == b7 && b9 > 2 ? 1 : 0);
    // Single-precision sum, double-precision division, kept as float.
    const float mean3 = static_cast<float>(static_cast<double>(spectral[7] + spectral[8] + spectral[9]) / 3.0);
    return {mean3, c3 == 3};
}

// The estimate jumped more than 5 from the reported rate: the first two jumps are not
// believed; later ones take the spectrum when it agrees, else a mean of the recent estimates.
void judgeJump(CBreathPro& a, float reported, const SpectralTail& tail) {
    a.nRateJumpCount = wrapAdd32(a.nRateJumpCount, 1);
    if (a.nRateJumpCount <= 2) {
        a.fBreathRate = reported;
        return;
    }
    if (std::fabs(tail.mean3 - reported) <= 3.0f && tail.agree) {
        a.fBreathRate = tail.mean3;
        return;
    }
    float last6[6];
    std::copy(a.fLongRateHistory + 14, a.fLongRateHistory + 20, last6);
    a.sortfloat(last6, 6);
    const float d2 = std::fabs(a.fBreathRate - reported);
    if (d2 >= 5.0f) a.fBreathRate = a.DataMeanfloat(last6, 1, 5);
    else if (d2 >= 3.0f) a.fBreathRate = a.DataMeanfloat(a.fLongRateHistory, 17, 20);
    else a.fBreathRate = a.DataMeanfloat(a.fLongRateHistory, 18, 20);
}

// The estimate stays within 5 of the reported rate: it enters the steady history, whose
// trimmed mean (or the agreeing spectrum) becomes the estimate.
void judgeSteady(CBreathPro& a, float reported, const SpectralTail& tail) {
    a.Arrayshiftfloat(a.fRateHistory, kSteadyHistory, a.fBreathRate);
    float sorted[kSteadyHistory];
    std::copy(a.fRateHistory, a.fRateHistory + kSteadyHistory, sorted);
    a.sortfloat(sorted, kSteadyHistory);
    a.nRateJumpCount = 0;
    const float d2 = std::fabs(a.fBreathRate - reported);
    if (d2 >= 5.0f) a.fBreathRate = a.DataMeanfloat(sorted, 1, 4);
    else if (d2 >= 3.0f && std::fabs(tail.mean3 - reported) <= 1.0f && tail.agree) a.fBreathRate = tail.mean3;
    else a.fBreathRate = a.DataMeanfloat(a.fRateHistory, 2, 5);
}

// Step E: plausibility of fBreathRate against the reported rate; returns it rounded half up.
float reconcileWithReported(CBreathPro& a, float v) {
    a.Arrayshiftfloat(a.fLongRateHistory, kLongHistory, v);

    const float reported = a.fReportedRate;
    if (reported > 0.0f) {
        if (a.bRateOut) {
            followSpectrumOrHold(a, reported);
        } else {
            const SpectralTail tail = lastThreeSpectral(a);
            const float jump = std::fabs(a.fBreathRate - reported);
            // Two tests, not an else: an estimate that is not a number takes neither path.
            if (jump > 5.0f) judgeJump(a, reported, tail);
            if (jump <= 5.0f) judgeSteady(a, reported, tail);
        }
    }
    // Round half up through double; NaN gives INT32_MIN, which every later mean ignores.
    return static_cast<float>(floatToIntX86(static_cast<double>(a.fBreathRate) + 0.5));
}

}  // namespace

float estimateBreathRate(CBreathPro& a) {
    // Lists sized for every extremum a 1000-sample window can hold (see kBreathExtremaCapacity).
    int peaks[kBreathExtremaCapacity] = {};
    int troughs[kBreathExtremaCapacity] = {};
    int np = 0;
    int nt = 0;
    int work[kWindowSamples] = {};

    const int bin = a.FFT_Max_loc(a.nBreathBuffer, kWindowSamples);
    const float fs = static_cast<float>(wrapMul32(bin, 60)) * kBinWidthHz;
    a.Arrayshiftint(a.nSpectralBinHistory, kSpectralHistory, bin);
    a.Arrayshiftfloat(a.fSpectralRateHistory, kSpectralHistory, fs);
    const bool steady = a.JudgeArrayequlity(a.nSpectralBinHistory, kSpectralHistory);
    // Not live while 8 s of zeros remain in the window (the first 32 s after a full reset).
    const bool live = a.judgezeros(a.nBreathBuffer, 1, kWindowSamples, 0, 200);

    const Smoothing sm = chooseSmoothing(live && steady, fs);
    a.moving_average_smooth(a.nBreathBuffer, kWindowSamples, sm.width, work);
    a.FindPeakMinMax(work, 0, kWindowSamples, sm.spacing, peaks, troughs, &np, &nt);

    float v;
    if (np < 1 || nt < 1 || (np <= 2 && nt <= 2)) {
        // Too few extrema: no judgement, the previous estimate stands.
        a.nBreathStatus = 0;
        a.fPeakRateMean = a.fBreathRate;
        v = a.fBreathRate;
    } else {
        int minLoc;
        if ((steady && fs <= 10.0f && np > 2 && nt > 2) || nt <= 5 || np <= 5) minLoc = 20;
        else if (np <= 10 || nt <= 10) minLoc = 400;
        else minLoc = 750;

        bool crossRegular = false;
        float r = a.PPConNum(work, peaks, troughs, minLoc, np, nt, 3, &a.bRateTrusted, &crossRegular);
        a.fPeakRate = r;
        a.nBreathStatus = crossRegular ? 1 : 0;

        if (r == 0.0f) {
            // Second pass on the short smoothing, taken only when the spectrum has been stable
            // for five updates; its status and counted rate are not reported.
            std::fill(peaks, peaks + kBreathExtremaCapacity, 0);
            std::fill(troughs, troughs + kBreathExtremaCapacity, 0);
            np = 0;
            nt = 0;
            a.moving_average_smooth(a.nBreathBuffer, kWindowSamples, 10, work);
            a.FindPeakMinMax(work, 0, kWindowSamples, 20, peaks, troughs, &np, &nt);
            const float* spectral = a.fSpectralRateHistory;
            if (spectral[5] == spectral[6] && spectral[6] == spectral[7] && spectral[7] == spectral[8] &&
                spectral[8] == spectral[9] && spectral[5] > 5.0f) {
                bool unused = false;
                r = a.PPConNum(work, peaks, troughs, 150, np, nt, 2, &a.bRateTrusted, &unused);
            }
        }
        v = acceptCountedRate(a, r, fs, steady);
    }
    return reconcileWithReported(a, v);
}

}  // namespace breath
}  // namespace rtm

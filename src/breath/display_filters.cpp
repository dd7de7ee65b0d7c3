// Respiration conditioning filters and the display waveform. Input: raw respiration counts,
// one sample per channel at 25 samples/s. Output: conditioned counts (baseline removed, 33-tap
// low-pass, three-point mean) and a display value 0..1000 per channel from a logistic curve fitted
// to the last 70 conditioned samples. Every FIR divides its 32-bit (wrapping) sum by 10000.
// The second chain (`*_pro`, `highFilterBreath_pro`, `smooth_data`) has no caller in the frame
// pipeline; it is kept with its coefficient tables because both belong to the class.
#include <cmath>

#include "breath/breath_tables.h"
#include "breath/window_stats.h"
#include "common/exact_math.h"
#include "common/kernels.h"
#include "rtmonitor/CBreathPro.h"

// 115-tap band-pass of the second chain; symmetric, sum 10648.
const int32_t nCoef_breath_pro[kBreathProTaps] = {
    -137, 79,   68,   64,   63,   63,  63,  60,  56,  48,  37,   24,   9,    -7,   -23,  -38,  -50,  -59, -64,  -63,
    -57,  -46,  -30,  -10,  12,   36,  58,  77,  92,  100, 101,  94,   77,   53,   22,   -14,  -53,  -92, -128, -158,
    -179, -186, -180, -157, -116, -59, 15,  103, 201, 307, 416,  524,  625,  716,  791,  847,  882,  894, 882,  847,
    791,  716,  625,  524,  416,  307, 201, 103, 15,  -59, -116, -157, -180, -186, -179, -158, -128, -92, -53,  -14,
    22,   53,   77,   94,   101,  100, 92,  77,  58,  36,  12,   -10,  -30,  -46,  -57,  -63,  -64,  -59, -50,  -38,
    -23,  -7,   9,    24,   37,   48,  56,  60,  63,  63,  63,   64,   68,   79,   -137,
};

// 325-tap high-pass of the second chain; symmetric, sum -15.
const int32_t nCoef_breath_high[kBreathHighTaps] = {
    -175, -9,  -9,  -9,  -10, -10, -10, -10, -11,  -11, -11, -11, -12, -12, -12, -12, -13,  -13, -13, -13, -14, -14,
    -14,  -14, -15, -15, -15, -16, -16, -16, -16,  -17, -17, -17, -18, -18, -18, -18, -19,  -19, -19, -20, -20, -20,
    -20,  -21, -21, -21, -22, -22, -22, -23, -23,  -23, -23, -24, -24, -24, -25, -25, -25,  -26, -26, -26, -26, -27,
    -27,  -27, -28, -28, -28, -29, -29, -29, -29,  -30, -30, -30, -31, -31, -31, -31, -32,  -32, -32, -33, -33, -33,
    -33,  -34, -34, -34, -34, -35, -35, -35, -36,  -36, -36, -36, -37, -37, -37, -37, -37,  -38, -38, -38, -38, -39,
    -39,  -39, -39, -39, -40, -40, -40, -40, -40,  -41, -41, -41, -41, -41, -41, -42, -42,  -42, -42, -42, -42, -43,
    -43,  -43, -43, -43, -43, -43, -43, -43, -44,  -44, -44, -44, -44, -44, -44, -44, -44,  -44, -44, -44, -44, -45,
    -45,  -45, -45, -45, -45, -45, -45, -45, 9955, -45, -45, -45, -45, -45, -45, -45, -45,  -45, -44, -44, -44, -44,
    -44,  -44, -44, -44, -44, -44, -44, -44, -44,  -43, -43, -43, -43, -43, -43, -43, -43,  -43, -42, -42, -42, -42,
    -42,  -42, -41, -41, -41, -41, -41, -41, -40,  -40, -40, -40, -40, -39, -39, -39, -39,  -39, -38, -38, -38, -38,
    -37,  -37, -37, -37, -37, -36, -36, -36, -36,  -35, -35, -35, -34, -34, -34, -34, -33,  -33, -33, -33, -32, -32,
    -32,  -31, -31, -31, -31, -30, -30, -30, -29,  -29, -29, -29, -28, -28, -28, -27, -27,  -27, -26, -26, -26, -26,
    -25,  -25, -25, -24, -24, -24, -23, -23, -23,  -23, -22, -22, -22, -21, -21, -21, -20,  -20, -20, -20, -19, -19,
    -19,  -18, -18, -18, -18, -17, -17, -17, -16,  -16, -16, -16, -15, -15, -15, -14, -14,  -14, -14, -13, -13, -13,
    -13,  -12, -12, -12, -12, -11, -11, -11, -11,  -10, -10, -10, -10, -9,  -9,  -9,  -175,
};

// Envelope table of the subsystem; no operation reads it, but it is part of the data.
const int64_t BaoLuo_Coef[kBaoLuoTaps] = {773, 2330, 4271, 6120, 6761, 6120, 4271, 2330, 773};

namespace {

constexpr int32_t kFirScale = 10000;
constexpr int kDisplayBaseWindow = 50;
constexpr int kProBaseWindow = 25;
constexpr int kZoomWindow = 70;
// A trace whose last 70 conditioned samples swing by less than this is drawn flat at 0.
constexpr int32_t kFlatSwing = 11;
constexpr int kDisplayScale = 1000;
constexpr int32_t kPackFactor = 10000;

// One step of a symmetric FIR on a ring of `taps` samples (taps odd). `half` holds the outer
// coefficients from the outermost pair inwards and then the centre tap. The newest sample is
// paired with the oldest, and so on inwards; products and sums wrap at 32 bits.
int32_t symmetricFirStep(int32_t* ring, int taps, int32_t& pos, const int32_t* half, int32_t x) {
    ring[pos] = x;
    const int pairs = taps / 2;
    int newer = pos;
    int older = (pos + 1 == taps) ? 0 : pos + 1;
    int32_t sum = 0;
    for (int k = 0; k < pairs; ++k) {
        sum = rtm::wrapAdd32(sum, rtm::wrapMul32(half[k], rtm::wrapAdd32(ring[newer], ring[older])));
        newer = (newer == 0) ? taps - 1 : newer - 1;
        older = (older + 1 == taps) ? 0 : older + 1;
    }
    // After `pairs` steps `newer` points at the sample `pairs` samples old: the centre.
    sum = rtm::wrapAdd32(sum, rtm::wrapMul32(half[pairs], ring[newer]));
    pos = (pos + 1 == taps) ? 0 : pos + 1;
    return rtm::truncDiv32(sum, kFirScale);
}

// Baseline removal: the plain mean of all samples while fewer than `window` have been seen,
// then `sum` tracks `window` times an exponential mean with factor 1/window.
int32_t baselineStep(int32_t& sum, int32_t& count, int window, int32_t x) {
    if (count <= window - 1) {
        count += 1;
        sum = rtm::wrapAdd32(sum, x);
        return rtm::wrapSub32(x, rtm::truncDiv32(sum, count));
    }
    sum = rtm::wrapSub32(rtm::wrapAdd32(sum, x), rtm::truncDiv32(sum, window));
    return rtm::wrapSub32(x, rtm::truncDiv32(sum, window));
}

// Mean of the last three inputs (slots 0..2 of a ring); the first two outputs average what exists.
int32_t threePointMeanStep(int32_t* ring, int32_t& pos, int32_t& count, int32_t x) {
    ring[pos] = x;
    pos = (pos + 1 == 3) ? 0 : pos + 1;
    // The count only wraps after years of samples; the wrap is spelled out to stay defined.
    count = rtm::wrapAdd32(count, 1);
    if (count > 2) return rtm::truncDiv32(rtm::wrapAdd32(rtm::wrapAdd32(ring[0], ring[1]), ring[2]), 3);
    if (count == 2) return rtm::truncDiv32(rtm::wrapAdd32(ring[0], ring[1]), 2);
    return x;
}

// The display low-pass: 33 taps, outer pairs from the outermost inwards and then the centre tap;
// the taps sum to 9299.
constexpr int kDisplayLowLength = 33;
constexpr int32_t kDisplayLowHalf[kDisplayLowLength / 2 + 1] = {95,  -176, -167, -188, -206, -203, -167, -91, 27,
                                                                183, 369,  569,  769,  949,  1093, 1185, 1217};

// The taps laid out so that one contiguous slice lines up with the ring as stored: entry
// 32 - pos + j multiplies ring[j] when the newest sample sits at pos. The tap of lag L is that of
// lag 32 - L.
struct DisplayLowRingTaps {
    uint32_t c[2 * kDisplayLowLength - 1];
    constexpr DisplayLowRingTaps() : c() {
        for (int t = 0; t < 2 * kDisplayLowLength - 1; ++t) {
            const int lag = ((kDisplayLowLength - 1 - t) % kDisplayLowLength + kDisplayLowLength) % kDisplayLowLength;
            const int inward = lag < kDisplayLowLength - 1 - lag ? lag : kDisplayLowLength - 1 - lag;
            c[t] = static_cast<uint32_t>(kDisplayLowHalf[inward]);
        }
    }
};
constexpr DisplayLowRingTaps kDisplayLowTaps;

}  // namespace

int CBreathPro::nBaseFilterBreath_display(int x, int ch) {
    return baselineStep(nDisplayBaseSum[ch], nDisplayBaseCount[ch], kDisplayBaseWindow, x);
}

int CBreathPro::LowFilterBreath_display(int x, int ch) {
    int32_t& pos = nDisplayLowPos[ch];
    int32_t* ring = nDisplayLowRing[ch];
    // Wrapping sums and products are associative and commutative modulo 2^32, so the ring in
    // storage order against a matching slice of the full taps gives the word the pairwise sum
    // gives. Read before the new sample is stored, its slot's product exchanged afterwards: a
    // vector read just after a store into it would wait.
    const uint32_t* taps = kDisplayLowTaps.c + (kDisplayLowLength - 1 - pos);
    const uint32_t tap = taps[pos];
    const uint32_t sum = rtm::kernels::dot(ring, taps, kDisplayLowLength) - tap * static_cast<uint32_t>(ring[pos]) +
                         tap * static_cast<uint32_t>(x);
    ring[pos] = x;
    pos = (pos + 1 == kDisplayLowLength) ? 0 : pos + 1;
    return rtm::truncDiv32(static_cast<int32_t>(sum), kFirScale);
}

int CBreathPro::smooth_data_display(int x, int ch) {
    return threePointMeanStep(nDisplaySmoothRing[ch], nDisplaySmoothPos[ch], nDisplaySmoothCount[ch], x);
}

int CBreathPro::BaseLowFilter_Zoom(int /*nPass*/, int x0, int x1, int* pY0, int* pY1) {
    const int32_t in[2] = {x0, x1};
    int32_t y[2];
    int32_t value[2];
    for (int ch = 0; ch < 2; ++ch) {
        y[ch] = smooth_data_display(LowFilterBreath_display(nBaseFilterBreath_display(in[ch], ch), ch), ch);
        // The whole window is used, including slots not yet written since the reset (zeros).
        // Its statistics are those DataMax_Min_Mean_std gives once the sample is stored.
        const int slot = nZoomRingPos[ch];
        const rtm::kernels::RangeStats r = rtm::breath::statsWithSlotReplaced(nZoomRing[ch], kZoomWindow, slot, y[ch]);
        nZoomRing[ch][slot] = y[ch];
        nZoomRingPos[ch] = (slot + 1 == kZoomWindow) ? 0 : slot + 1;
        const int32_t mx = r.mx;
        const int32_t mn = r.mn;
        const int32_t mean = rtm::truncDiv32(static_cast<int32_t>(r.sum), kZoomWindow);
        const int32_t sd = rtm::breath::integerStd(r, kZoomWindow, mean);
        if (rtm::wrapAbs32(rtm::wrapSub32(mx, mn)) < kFlatSwing) {
            value[ch] = 0;
        } else if (sd == 0) {
            value[ch] = kDisplayScale / 2;
        } else {
            // Integer deviation from the mean, negated, then divided in double precision.
            const double z = static_cast<double>(rtm::wrapNeg32(rtm::wrapSub32(y[ch], mean))) / static_cast<double>(sd);
            value[ch] = rtm::floatToIntX86(static_cast<double>(kDisplayScale) / (std::exp(z) + 1.0));
        }
    }
    *pY0 = y[0];
    *pY1 = y[1];
    return value[0] * kPackFactor + value[1];
}

int CBreathPro::nBaseFilterBreathpro(int x) { return baselineStep(nProBaseSum, nProBaseCount, kProBaseWindow, x); }

int CBreathPro::LowFilterBreath_pro(int x) {
    return symmetricFirStep(nProFilterRing, kBreathProTaps, nProFilterPos, nCoef_breath_pro, x);
}

int CBreathPro::highFilterBreath_pro(int x) {
    return symmetricFirStep(nHighFilterRing, kBreathHighTaps, nHighFilterPos, nCoef_breath_high, x);
}

int CBreathPro::smooth_data(int x, int ch) {
    return threePointMeanStep(nProSmoothRing[ch], nProSmoothPos[ch], nProSmoothCount[ch], x);
}

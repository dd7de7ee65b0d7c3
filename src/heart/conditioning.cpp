// Heart-signal conditioning: median baseline removal, running-mean removal, the 29-tap low-pass,
// the convex (sharpness) operator and the short-time energy, and the per-sample chain that runs
// them in order into the detection rings. Input: raw ECG counts at 200 samples/s. Output:
// baseline-free counts; the display copy sits on an offset of 512; ring values are filtered
// counts scaled by 1000 / fSignalGain. All arithmetic is 32-bit and wraps; divisions truncate
// toward zero.
#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <vector>

#include "common/exact_math.h"
#include "common/kernels.h"
#include "heart/conditioning.h"
#include "heart/ring.h"
#include "rtmonitor/CBeatMeasure.h"

using rtm::floatToIntX86;
using rtm::truncDiv32;
using rtm::wrapAbs32;
using rtm::wrapAdd32;
using rtm::wrapMul32;
using rtm::wrapSub32;
using rtm::heart::kConvexDelay;
using rtm::heart::kDisplayOffset;
using rtm::heart::kRingLength;
using rtm::heart::leadRow;
using rtm::heart::ringAt;

namespace {

// Index of the result in the sorted values: the exact median of the 51 samples the baseline
// stage passes. It is fixed, not derived from the count.
constexpr int kMedianIndex = 25;
constexpr int kBaseWindow = 200;
// Samples before the display waveform leaves its flat 512: the median ring must be full.
constexpr int kWarmupSamples = 50;
constexpr int kWarmupDone = 400;

// Low-pass taps by lag from the newest sample; symmetric about lag 14, sum 10615 (gain 1.0615
// at zero frequency), 14 samples (70 ms) of delay. Divided by 10000.
constexpr int kLowPassTaps = CBeatMeasure::kLowPassTaps;
static constexpr int kLowPassCoefficients[kLowPassTaps] = {-112, 173, 269,   -136, 74,   183,  -314,  184, 214, -579,
                                                           503,  242, -1466, 2613, 6919, 2613, -1466, 242, 503, -579,
                                                           214,  184, -314,  183,  74,   -136, 269,   173, -112};
constexpr int kLowPassDivisor = 10000;

// The coefficients laid out so that one contiguous slice lines up with the ring as stored:
// entry 28 - pos + j multiplies nLowPassRing[j] when the newest sample sits at pos.
struct RingAlignedTaps {
    uint32_t c[2 * kLowPassTaps - 1];
    constexpr RingAlignedTaps() : c() {
        for (int t = 0; t < 2 * kLowPassTaps - 1; ++t) {
            // Slot j = t - (28 - pos) holds the sample of lag pos - j (mod 29).
            const int lag = ((kLowPassTaps - 1 - t) % kLowPassTaps + kLowPassTaps) % kLowPassTaps;
            c[t] = static_cast<uint32_t>(kLowPassCoefficients[lag]);
        }
    }
};
constexpr RingAlignedTaps kRingAlignedTaps;

// The median ring changes by one sample per call, so the sorted copy of the previous call is
// kept and updated by one removal and one insertion instead of a selection over 51 values.
// The copy is checked against the ring on every call and rebuilt whenever anything else changed
// it (a reset, another device's ring), so the value is always that of a full sort. Per thread,
// so analysers driven from different threads never share it.
static_assert(CBeatMeasure::kMedianLength <= rtm::kernels::kSortedValues, "the median window fits the kernel");
struct SortedWindow {
    int window[CBeatMeasure::kMedianLength];  // the ring as last seen, in ring order
    int sorted[rtm::kernels::kSortedSlots];   // the same values ascending, then INT32_MAX
    bool filled = false;
};
thread_local SortedWindow tSortedWindow;

// Median of `ring` (kMedianLength values) in which only slot `slot` may have changed since the
// previous call. `known`: the copy is known to match the ring but for that slot.
int slidingMedian(const int* ring, int slot, bool known) {
    constexpr int n = CBeatMeasure::kMedianLength;
    SortedWindow& w = tSortedWindow;
    if (known && w.filled) {
        const int leaving = w.window[slot];
        w.window[slot] = ring[slot];
        rtm::kernels::replaceSorted(w.sorted, leaving, ring[slot]);
    } else if (!w.filled || !rtm::kernels::slideWindow(w.window, w.sorted, ring, n, slot)) {
        std::memcpy(w.window, ring, sizeof w.window);
        std::memcpy(w.sorted, ring, sizeof w.window);
        std::sort(w.sorted, w.sorted + n);
        std::fill(w.sorted + n, w.sorted + rtm::kernels::kSortedSlots, std::numeric_limits<int>::max());
        w.filled = true;
    }
    return w.sorted[kMedianIndex];
}

// BaseFilter's running-mean removal.
int removeRunningMean(CBeatMeasure& m, int x) {
    if (m.nBaseCount < kBaseWindow) {
        // Warm-up: subtract the plain mean of everything seen so far.
        m.nBaseCount += 1;
        m.nBaseSum = wrapAdd32(m.nBaseSum, x);
        return wrapSub32(x, truncDiv32(m.nBaseSum, m.nBaseCount));
    }
    // Leaky integrator: the estimate moves by 1/200 of the error; the mean is read after the update.
    const int d = wrapSub32(x, truncDiv32(m.nBaseSum, kBaseWindow));
    m.nBaseSum = wrapAdd32(m.nBaseSum, d);
    return wrapSub32(x, truncDiv32(m.nBaseSum, kBaseWindow));
}

// One sample through the median baseline, the running mean and the display smoothing, as
// Processingheartdata does it; returns the baseline-free value and writes the display value.
// `sameWindowAsLastSample`: the previous call on this thread was for this analyser and nothing
// has written nMedianRing since, so the kept sorted copy needs no check against the ring.
int removeBaselineAndSmooth(CBeatMeasure& m, int sample, int* display, bool sameWindowAsLastSample) {
    constexpr int kMedianLength = CBeatMeasure::kMedianLength;
    m.nWarmupCount = wrapAdd32(m.nWarmupCount, 1);

    int p = m.nMedianRingPos;
    if (p < 0 || p >= kMedianLength) p = rtm::heart::wrapModulo(p, kMedianLength);
    m.nMedianRing[p] = sample;
    // The centre of the 51 samples held: 25 places behind the newest.
    const int delayed = (p >= 25) ? m.nMedianRing[p - 25] : m.nMedianRing[p + 26];
    m.nMedianRingPos = (p + 1 == kMedianLength) ? 0 : p + 1;

    // medfilt1 over the ring, without re-selecting from scratch.
    const int b = removeRunningMean(m, wrapSub32(delayed, slidingMedian(m.nMedianRing, p, sameWindowAsLastSample)));

    m.nSmoothHist[0] = m.nSmoothHist[1];
    m.nSmoothHist[1] = m.nSmoothHist[2];
    m.nSmoothHist[2] = b;

    int shown = kDisplayOffset;
    if (m.nWarmupCount > kWarmupSamples) {
        m.nWarmupCount = kWarmupDone;  // stops counting for good
        const int sum = wrapAdd32(wrapAdd32(m.nSmoothHist[0], m.nSmoothHist[1]), m.nSmoothHist[2]);
        shown = wrapAdd32(truncDiv32(sum, 3), kDisplayOffset);
    }
    *display = shown;
    return b;
}

// LowFilterHeart's 29-tap low-pass.
int lowPass(CBeatMeasure& m, int x) {
    int pos = m.nLowPassPos;
    if (pos < 0 || pos >= kLowPassTaps) pos = rtm::heart::wrapModulo(pos, kLowPassTaps);

    // Wrapping sums and products are associative and commutative modulo 2^32, so taking the
    // ring in storage order against a matching slice of the taps gives the same word as summing
    // the products lag by lag. The ring is read before the new sample is stored and the slot's
    // product exchanged afterwards: a vector read just after a store into it would wait.
    const uint32_t* taps = kRingAlignedTaps.c + (kLowPassTaps - 1 - pos);
    const uint32_t tap = taps[pos];
    const uint32_t sum = rtm::kernels::dot(m.nLowPassRing, taps, kLowPassTaps) -
                         tap * static_cast<uint32_t>(m.nLowPassRing[pos]) + tap * static_cast<uint32_t>(x);
    m.nLowPassRing[pos] = x;

    m.nLowPassPos = (pos + 1 == kLowPassTaps) ? 0 : pos + 1;
    return truncDiv32(static_cast<int32_t>(sum), kLowPassDivisor);
}

// The convex operator at ring position c of the filtered ring f: the absolute second difference
// at a step of three samples (15 ms).
int convexAt(const int* f, int c) {
    const int twice = wrapMul32(f[c], 2);
    return wrapAbs32(wrapSub32(wrapSub32(twice, f[ringAt(c, kConvexDelay)]), f[ringAt(c, -kConvexDelay)]));
}

constexpr int kEnergyWindow = 10;  // entries of nEnergyWindow

// One term of the window's energy, as 32-bit unsigned arithmetic gives it.
uint32_t energyTerm(int v) {
    const uint32_t e = static_cast<uint32_t>(v);
    return (e * e) / 10000u;
}

// Pushes the newest complete convex value into the energy window and the window's energy into
// the energy ring. True when the energy crossed half the energy threshold. `windowSum` carries
// the sum of the window's terms from one sample of a packet to the next: the terms are summed
// modulo 2^32, so taking out the leaving term and adding the entering one gives the word a full
// sum gives. On the first sample of a packet (`firstOfPacket`) it is summed afresh.
bool pushEnergy(CBeatMeasure& m, int convexValue, uint32_t& windowSum, bool firstOfPacket) {
    const int leaving = m.nEnergyWindow[rtm::heart::wrapModulo(m.nEnergyWindowPos, kEnergyWindow)];
    rtm::heart::pushRing(m.nEnergyWindow, m.nEnergyWindowPos, convexValue);
    uint32_t acc = 0;
    if (firstOfPacket) {
        for (int k = 0; k < kEnergyWindow; ++k) acc += energyTerm(m.nEnergyWindow[k]);
    } else {
        acc = windowSum - energyTerm(leaving) + energyTerm(convexValue);
    }
    windowSum = acc;
    const int slot = rtm::heart::pushRing(m.nEnergyRing, m.nEnergyRingPos, static_cast<int>(acc / 10u));

    const int threshold = m.nEnergyThreshold[0];
    if (threshold <= 0) return false;
    const double half = 0.5 * static_cast<double>(threshold);
    const double last = static_cast<double>(m.nEnergyRing[slot]) - half;
    const double before = static_cast<double>(m.nEnergyRing[ringAt(slot, -1)]) - half;
    return last * before < 0.0;
}

}  // namespace

int CBeatMeasure::medfilt1(int* data, int count, int) {
    if (data == nullptr || count <= kMedianIndex) return 0;
    // Only the element at the fixed index matters, so a partial selection gives the same value
    // as sorting. The baseline stage always passes 51 values, which fit the stack buffer.
    if (count <= kMedianLength) {
        std::array<int, kMedianLength> scratch;
        std::copy(data, data + count, scratch.begin());
        std::nth_element(scratch.begin(), scratch.begin() + kMedianIndex, scratch.begin() + count);
        return scratch[kMedianIndex];
    }
    std::vector<int> scratch(data, data + count);
    std::nth_element(scratch.begin(), scratch.begin() + kMedianIndex, scratch.end());
    return scratch[kMedianIndex];
}

int CBeatMeasure::BaseFilter(int x) { return removeRunningMean(*this, x); }

int CBeatMeasure::LowFilterHeart(int x) { return lowPass(*this, x); }

int CBeatMeasure::GetWavePeak(int* data, int count) {
    if (data == nullptr || count < 1) return 0;
    int lo = data[0];
    int hi = data[0];
    for (int i = 1; i < count; ++i) {
        lo = std::min(lo, data[i]);
        hi = std::max(hi, data[i]);
    }
    return wrapSub32(hi, lo);
}

int CBeatMeasure::Processingheartdata(int, int nSample, int* pOut) {
    int display = 0;
    const int b = removeBaselineAndSmooth(*this, nSample, &display, false);
    if (pOut != nullptr) *pOut = display;
    return b;
}

int CBeatMeasure::Convexpointoperator(int lead) {
    const int row = leadRow(lead);
    const int c = ringAt(nRingPos, -kConvexDelay);
    nConvexRing[row][c] = convexAt(nFilteredRing[row], c);
    return 1;
}

bool rtm::heart::conditionDetectionSample(CBeatMeasure& m, int sample, int* display, PacketConditioning& packet) {
    m.nRingPos = (m.nRingPos >= kRingLength - 1 || m.nRingPos < -1) ? 0 : m.nRingPos + 1;
    const int pos = m.nRingPos;

    int shown = 0;
    // Nothing else writes the median ring during the packet, so its kept sorted copy is checked
    // against it on the first sample only.
    removeBaselineAndSmooth(m, sample, &shown, !packet.firstSample);
    if (display != nullptr) *display = shown;

    // The low-pass takes the smoothed display value, off its offset, not the baseline-free one.
    const int low = lowPass(m, wrapSub32(shown, kDisplayOffset));
    const int s =
        floatToIntX86(static_cast<double>(static_cast<float>(low)) * 1000.0 / static_cast<double>(m.fSignalGain));
    int* filtered = m.nFilteredRing[0];
    filtered[pos] = s;
    m.nAbsRing[0][pos] = wrapAbs32(s);

    const int c = ringAt(pos, -kConvexDelay);
    const int convex = convexAt(filtered, c);
    m.nConvexRing[0][c] = convex;

    const bool crossed = pushEnergy(m, convex, packet.energyWindowSum, packet.firstSample);
    packet.firstSample = false;
    return crossed;
}

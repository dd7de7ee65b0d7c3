// Activity filter: per axis, a 100-slot running-mean baseline remover then a 12-tap symmetric
// low-pass (sum >> 15). Each sample is fed twice, which halves the filters' time scale; the
// magnitude is the mean of the three absolute outputs.
#include <cstdint>
#include <cstring>

#include "common/exact_math.h"
#include "rtmonitor/CPedometerPro.h"

namespace {
constexpr int kBaseSlots = 100;
constexpr int kLowPassTaps = 12;
// Symmetric; only the first half is read. Sum 34120, so the DC gain is 34120/32768.
constexpr int64_t CoefLP[kLowPassTaps] = {192, 787, 1888, 3412, 4915, 5866, 5866, 4915, 3412, 1888, 787, 192};

// For each write position p, the slots of the samples k and 11 - k steps back (k = 0..5).
struct PairSlots {
    unsigned char newer[kLowPassTaps / 2];
    unsigned char older[kLowPassTaps / 2];
};
struct PairSlotTable {
    PairSlots of[kLowPassTaps];
    constexpr PairSlotTable() : of() {
        for (int p = 0; p < kLowPassTaps; ++p) {
            for (int k = 0; k < kLowPassTaps / 2; ++k) {
                of[p].newer[k] = static_cast<unsigned char>((p - k + kLowPassTaps) % kLowPassTaps);
                of[p].older[k] = static_cast<unsigned char>((p - (kLowPassTaps - 1 - k) + kLowPassTaps) % kLowPassTaps);
            }
        }
    }
};
constexpr PairSlotTable kPairSlots;
}  // namespace

CPedometerPro::CPedometerPro() {}
CPedometerPro::~CPedometerPro() {}

int CPedometerPro::PedometerProInit() {
    std::memset(nBaseSum, 0, sizeof nBaseSum);
    std::memset(nBaseIndex, 0, sizeof nBaseIndex);
    std::memset(nLPIndex, 0, sizeof nLPIndex);
    std::memset(nBaseCount, 0, sizeof nBaseCount);
    std::memset(nBaseBuf, 0, sizeof nBaseBuf);
    std::memset(nLPBuf, 0, sizeof nLPBuf);
    std::memset(nSpareBuf, 0, sizeof nSpareBuf);
    return 0;
}

int CPedometerPro::nBaseFilter(int x, int c) {
    if (nBaseCount[c] < kBaseSlots) {
        nBaseSum[c] += x;
        nBaseBuf[c][nBaseCount[c]] = x;
        nBaseCount[c] += 1;
        return rtm::low32(static_cast<int64_t>(x) - nBaseSum[c] / nBaseCount[c]);
    }
    nBaseSum[c] -= nBaseBuf[c][nBaseIndex[c]];
    nBaseSum[c] += x;
    nBaseBuf[c][nBaseIndex[c]] = x;
    nBaseIndex[c] = (nBaseIndex[c] + 1 == kBaseSlots) ? 0 : nBaseIndex[c] + 1;
    return rtm::low32(static_cast<int64_t>(x) - nBaseSum[c] / kBaseSlots);
}

int CPedometerPro::nLPFilter(int x, int c) {
    const int p = nLPIndex[c];
    const int* ring = nLPBuf[c];
    nLPBuf[c][p] = x;
    // Sample k steps back sits at slot (p - k) mod 12; the slots of each pair (k, 11 - k) come
    // from a table per write position instead of two modulos per tap.
    const PairSlots& slots = kPairSlots.of[p];
    int64_t sum = 0;
    for (int k = 0; k < kLowPassTaps / 2; ++k) {
        // Each pair is added as 32-bit integers before the 64-bit product.
        const int32_t pair = rtm::wrapAdd32(ring[slots.newer[k]], ring[slots.older[k]]);
        sum += CoefLP[k] * pair;
    }
    nLPIndex[c] = (p + 1 == kLowPassTaps) ? 0 : p + 1;
    return rtm::low32(rtm::sar64(sum, 15));
}

int CPedometerPro::nCountStepNum(int x, int y, int z, int& magnitude) {
    magnitude = 0;
    int fx = 0;
    int fy = 0;
    int fz = 0;
    // Fed twice on purpose: it sets the filters' effective time scale that hosts are tuned to.
    for (int pass = 0; pass < 2; ++pass) {
        fx = nLPFilter(nBaseFilter(x, 0), 0);
        fy = nLPFilter(nBaseFilter(y, 1), 1);
        fz = nLPFilter(nBaseFilter(z, 2), 2);
    }
    auto absU = [](int v) { return static_cast<uint64_t>(static_cast<uint32_t>(rtm::wrapAbs32(v))); };
    magnitude = static_cast<int>(static_cast<uint32_t>((absU(fx) + absU(fy) + absU(fz)) / 3u));
    return 0;
}

// Range checks on a device state taken from a snapshot. The checksum only proves the bytes are
// the ones that were written; these checks keep a well-formed but forged state from reaching
// the analysers. Members listed here are used as array positions, loop bounds or divisors, or
// are counters and sums that advance with plain (not wrapping) arithmetic. The heart analyser
// wraps every position it reads (ring.h), so only its fixed constants and the one
// counter it divides by are checked.
#include "api/state_checks.h"

#include <cstdint>
#include <cstring>

namespace rtm {
namespace {

bool within(int64_t v, int64_t lo, int64_t hi) { return v >= lo && v <= hi; }

// A bool's byte must hold 0 or 1; any other value makes loading it undefined.
bool validBool(const bool& b) {
    unsigned char byte = 0;
    std::memcpy(&byte, &b, 1);
    return byte <= 1;
}

// Array extents taken from the members themselves, so a change of a ring length follows here.
template <typename T, std::size_t N>
constexpr int64_t extent(const T (&)[N]) {
    return static_cast<int64_t>(N);
}

bool heartWithinBounds(const CBeatMeasure& h) {
    // Set by the constructor and Init only; the analysis divides and compares by them.
    if (h.nMinRRInterval != 38 || h.nMaxRRInterval != 600 || h.nMsPerSample != 5 || h.nSampleRate != 200 ||
        !(h.fSignalGain == 80.0f))
        return false;
    // BaseFilter divides by its count while it is below its 200-sample window.
    return within(h.nBaseCount, 0, 200);
}

bool breathWithinBounds(const CBreathPro& b) {
    if (!within(b.nProFilterPos, 0, extent(b.nProFilterRing) - 1)) return false;
    if (!within(b.nHighFilterPos, 0, extent(b.nHighFilterRing) - 1)) return false;
    if (!within(b.nEnergyRingPos, 0, extent(b.nEnergyRing) - 1)) return false;
    if (!within(b.nProBaseCount, 0, 25)) return false;
    for (int ch = 0; ch < 2; ++ch) {
        // The three-point smoothers use slots 0..2 of their rings.
        if (!within(b.nProSmoothPos[ch], 0, 2) || !within(b.nDisplaySmoothPos[ch], 0, 2)) return false;
        if (!within(b.nDisplayLowPos[ch], 0, extent(b.nDisplayLowRing[ch]) - 1)) return false;
        if (!within(b.nZoomRingPos[ch], 0, extent(b.nZoomRing[ch]) - 1)) return false;
        if (!within(b.nDisplayBaseCount[ch], 0, 50)) return false;
    }
    // Counts up by one per sample with plain 64-bit arithmetic: 2^62 samples are ~5e9 years.
    if (!within(b.lSampleCount, 0, INT64_C(1) << 62)) return false;
    return validBool(b.bRateTrusted) && validBool(b.bRateSeeded) && validBool(b.bRateOut);
}

bool activityWithinBounds(const CPedometerPro& p) {
    const int64_t slots = extent(p.nBaseBuf[0]);
    // A running sum of at most `slots` 32-bit samples, kept in plain 64-bit arithmetic.
    const int64_t sumLimit = slots * (INT64_C(1) << 31);
    for (int c = 0; c < 3; ++c) {
        if (!within(p.nBaseCount[c], 0, slots)) return false;
        if (!within(p.nBaseIndex[c], 0, slots - 1)) return false;
        if (!within(p.nLPIndex[c], 0, extent(p.nLPBuf[c]) - 1)) return false;
        if (!within(p.nBaseSum[c], -sumLimit, sumLimit)) return false;
    }
    return true;
}

}  // namespace

bool stateWithinBounds(const UserDataStruct& record) {
    return heartWithinBounds(record.cBeatMeasure) && breathWithinBounds(record.cBreathPro) &&
           activityWithinBounds(record.cPedometerPro);
}

}  // namespace rtm

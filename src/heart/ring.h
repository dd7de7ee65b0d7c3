// Ring and index vocabulary of the cardiac analyser: positions in the 4000-entry detection rings
// (20 s at 200 samples/s), slots of the 20-entry beat and candidate rings, the 5-entry ring of
// confirmed peak positions and the small histories. Positions reach the analyser through public
// members and arguments, so every offset is added in 64 bits before the modulo: no sum can
// overflow and no index can leave its ring. Every file of src/heart indexes its rings with these.
#pragma once

#include <cstdint>

#include "rtmonitor/CBeatMeasure.h"

namespace rtm {
namespace heart {

constexpr int kRingLength = CBeatMeasure::kRingLength;  // samples in each detection ring
constexpr int kBeatSlots = CBeatMeasure::kBeatSlots;    // beats in the beat and candidate rings
constexpr int kPeakSlots = 5;                           // entries of nPeakPosRing
constexpr int kSamplesPerSecond = 200;                  // heart samples per second (5 ms each)

// The display waveform and the conditioning chain sit on this offset (counts).
constexpr int kDisplayOffset = 512;

// Two confirmed main peaks closer than this many samples (150 ms) are one peak; the missed-beat
// search keeps the same distance from the newest confirmed peak.
constexpr int kPeakSpacingSamples = 30;

// x modulo n, in 0..n-1, for any int64 x (n > 0). Nearly every caller is at most one turn
// outside the ring, which needs no division.
inline int wrapModulo(int64_t x, int n) {
    const uint64_t un = static_cast<uint64_t>(n);
    if (static_cast<uint64_t>(x) < un) return static_cast<int>(x);
    if (x < 0 && x >= -static_cast<int64_t>(n)) return static_cast<int>(x + n);
    if (x >= n && x - n < n) return static_cast<int>(x - n);
    int64_t r = x % n;
    if (r < 0) r += n;
    return static_cast<int>(r);
}

// A position of the 4000-sample rings, p + offset wrapped into 0..3999.
inline int ringAt(int64_t p, int64_t offset = 0) { return wrapModulo(p + offset, kRingLength); }

// A slot of the 20-entry rings, i + offset wrapped into 0..19.
inline int slotAt(int64_t i, int64_t offset = 0) { return wrapModulo(i + offset, kBeatSlots); }

// An entry of the 5-entry ring of confirmed peak positions, i + offset wrapped into 0..4.
inline int peakSlotAt(int64_t i, int64_t offset = 0) { return wrapModulo(i + offset, kPeakSlots); }

// Samples from ring position `from` forward to `to`, 0..3999.
inline int ringDistance(int64_t from, int64_t to) { return wrapModulo(to - from, kRingLength); }

// The per-lead arrays have one row: any other lead falls back to row 0.
inline int leadRow(int lead) { return (lead >= 0 && lead < CBeatMeasure::kLeadRows) ? lead : 0; }

// A confirmed main-peak position from nPeakPosRing: back = 0 is the newest, 1 the one before.
inline int confirmedPeak(const CBeatMeasure& m, int back) {
    return m.nPeakPosRing[peakSlotAt(m.nPeakPosRingPos, -1 - static_cast<int64_t>(back))];
}

// Writes v into the ring at write position `pos` (folded onto the ring first) and advances the
// position with an explicit wrap. Returns the slot written.
template <int N>
int pushRing(int (&ring)[N], int& pos, int v) {
    const int slot = wrapModulo(pos, N);
    ring[slot] = v;
    pos = slot == N - 1 ? 0 : slot + 1;
    return slot;
}

}  // namespace heart
}  // namespace rtm

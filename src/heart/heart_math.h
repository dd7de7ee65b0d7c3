// Index arithmetic shared by the cardiac analyser's files: positions in the 4000-entry detection
// rings and slots in the 20-entry beat and candidate rings, normalised explicitly so that a stray
// position can never address memory outside its ring.
#pragma once

#include <cstdint>

namespace rtm {
namespace heart {

constexpr int kRingLength = 4000;
constexpr int kBeatSlots = 20;

// Any int to 0..len-1 (len > 0), the mathematical modulo.
inline int wrapIndex(int v, int len) {
    int r = v % len;
    return r < 0 ? r + len : r;
}
inline int ringIndex(int v) { return wrapIndex(v, kRingLength); }
inline int slotIndex(int v) { return wrapIndex(v, kBeatSlots); }

// Arithmetic right shift of a 32-bit value (what the hardware shift gives for negatives).
inline int32_t sar32(int32_t v, unsigned s) {
    return v >= 0 ? (v >> s) : static_cast<int32_t>(~((~static_cast<uint32_t>(v)) >> s));
}

}  // namespace heart
}  // namespace rtm

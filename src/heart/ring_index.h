// Offset arithmetic on ring positions for the main-peak search and the driver: p + offset
// wrapped into the 4000-sample rings or the 20-slot beat rings. Positions can reach the analyser
// through public members and arguments, so the sum is formed in 64 bits before the modulo and
// can neither overflow nor index outside a ring (heart_math.h has the plain 32-bit wraps).
#pragma once

#include <cstdint>

#include "heart/heart_math.h"

namespace rtm {
namespace heart {

// x modulo n, in 0..n-1, for any int64 x.
inline int wrapModulo(int64_t x, int n) {
    int64_t r = x % n;
    if (r < 0) r += n;
    return static_cast<int>(r);
}

// A position of the 4000-sample rings, p + offset wrapped into 0..3999.
inline int ringAt(int64_t p, int64_t offset = 0) { return wrapModulo(p + offset, kRingLength); }

// A slot of the 20-entry rings, i + offset wrapped into 0..19.
inline int slotAt(int64_t i, int64_t offset = 0) { return wrapModulo(i + offset, kBeatSlots); }

}  // namespace heart
}  // namespace rtm

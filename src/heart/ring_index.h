// Ring-position helpers of the cardiac detector: positions in the 4000-sample rings (20 s at
// 200 samples/s) and in the 20-slot beat and candidate rings. Offsets round a position are
// small, but positions can reach the analyser through public members, so every wrap is a true
// modulo on 64-bit values and can never index outside a ring.
#pragma once

#include <cstdint>

namespace rtm {
namespace heart {

constexpr int kRingSamples = 4000;
constexpr int kSlots = 20;

// x modulo n, in 0..n-1, for any int64 x.
inline int wrapModulo(int64_t x, int n) {
    int64_t r = x % n;
    if (r < 0) r += n;
    return static_cast<int>(r);
}

// A position of the 4000-sample rings, p + offset wrapped into 0..3999.
inline int ringAt(int64_t p, int64_t offset = 0) { return wrapModulo(p + offset, kRingSamples); }

// A slot of the 20-entry rings, i + offset wrapped into 0..19.
inline int slotAt(int64_t i, int64_t offset = 0) { return wrapModulo(i + offset, kSlots); }

}  // namespace heart
}  // namespace rtm

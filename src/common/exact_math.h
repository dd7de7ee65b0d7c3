// Exact-arithmetic helpers shared by every analyser. Results must match 32-bit two's-complement
// hardware bit for bit: sums and products wrap, divisions truncate toward zero, and a float that
// does not fit an int converts to INT32_MIN as the x86 conversion instruction gives.
// Everything here is defined behaviour in C++; use these instead of raw signed arithmetic.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace rtm {

inline int32_t wrapAdd32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
inline int32_t wrapSub32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
inline int32_t wrapMul32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
inline int32_t wrapNeg32(int32_t a) { return static_cast<int32_t>(0u - static_cast<uint32_t>(a)); }

// Truncating 32-bit division; INT32_MIN / -1 wraps to INT32_MIN and division by zero gives 0
// (callers guard zero divisors; the fallback only keeps a stray one defined).
inline int32_t truncDiv32(int32_t a, int32_t b) {
    if (b == 0) return 0;
    if (b == -1) return wrapNeg32(a);
    return a / b;
}
inline int32_t truncMod32(int32_t a, int32_t b) {
    if (b == 0 || b == -1) return 0;
    return a % b;
}

// Narrowing of a 64-bit value to 32 bits, keeping the low word.
inline int32_t low32(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v))); }

// Absolute value as the hardware gives it: |INT32_MIN| stays INT32_MIN.
inline int32_t wrapAbs32(int32_t a) { return a < 0 ? wrapNeg32(a) : a; }

// float/double -> int32 by truncation; NaN and out-of-range give INT32_MIN (x86 cvttss2si).
inline int32_t floatToIntX86(double v) {
    if (!(v > -2147483649.0 && v < 2147483648.0)) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(v);
}
inline int32_t floatToIntX86(float v) { return floatToIntX86(static_cast<double>(v)); }

// Arithmetic right shift of a 32-bit value (what the hardware shift gives for negatives).
inline int32_t sar32(int32_t v, unsigned s) {
    return v >= 0 ? (v >> s) : static_cast<int32_t>(~((~static_cast<uint32_t>(v)) >> s));
}

// Arithmetic right shift of a signed 64-bit value (defined for negatives since C++20; spelled out).
inline int64_t sar64(int64_t v, unsigned s) {
    return v >= 0 ? (v >> s) : -static_cast<int64_t>((~static_cast<uint64_t>(v)) >> s) - 1;
}

}  // namespace rtm

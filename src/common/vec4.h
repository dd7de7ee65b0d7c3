// Four-lane integer and float vectors (the compiler's generic vector extension: SSE2 on x86-64,
// NEON elsewhere) for the hot array loops. Lane arithmetic is the same IEEE single-precision or
// wrapping 32-bit arithmetic as the scalar code, one lane per element, so a loop that keeps the
// scalar order of operations per element gives identical bits. No fused multiply-add is formed
// (the build keeps -ffp-contract=off). Loads and stores are unaligned.
#pragma once

#include <cstdint>
#include <cstring>

namespace rtm {

typedef int32_t i32x4 __attribute__((vector_size(16)));
typedef uint32_t u32x4 __attribute__((vector_size(16)));
typedef float f32x4 __attribute__((vector_size(16)));

template <class V, class T>
inline V load4(const T* p) {
    V v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class V, class T>
inline void store4(T* p, V v) {
    std::memcpy(p, &v, sizeof v);
}

inline i32x4 splat4(int32_t x) { return i32x4{x, x, x, x}; }
inline u32x4 splat4u(uint32_t x) { return u32x4{x, x, x, x}; }

// Lane-wise signed minimum and maximum by mask (a comparison gives all-ones lanes where true).
inline i32x4 min4(i32x4 a, i32x4 b) {
    const i32x4 m = a < b;
    return (a & m) | (b & ~m);
}
inline i32x4 max4(i32x4 a, i32x4 b) {
    const i32x4 m = a > b;
    return (a & m) | (b & ~m);
}
inline int32_t hmin4(i32x4 v) {
    int32_t r = v[0];
    for (int k = 1; k < 4; ++k) r = v[k] < r ? v[k] : r;
    return r;
}
inline int32_t hmax4(i32x4 v) {
    int32_t r = v[0];
    for (int k = 1; k < 4; ++k) r = v[k] > r ? v[k] : r;
    return r;
}
// Wrapping sum of the lanes (order is free: addition modulo 2^32 is associative).
inline uint32_t hsum4(u32x4 v) { return v[0] + v[1] + v[2] + v[3]; }
// True when any lane of a comparison mask is set.
inline bool any4(i32x4 m) { return (m[0] | m[1] | m[2] | m[3]) != 0; }

}  // namespace rtm

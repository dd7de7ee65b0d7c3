// Sample-index arithmetic of the k-means starting means, shared by the memory and file drivers.
// All of it is signed 32-bit as existing hosts see it: the random pick's product wraps, so a pick
// lands at most one sample before or after the start of its slice.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "common/exact_math.h"

namespace rtm {

// Random pick for cluster i: i*size + (r*(size-1))/RAND_MAX with size = N/K and r = rand().
// The product wraps (for r near RAND_MAX and size > 2 it goes negative); do not widen it.
inline int32_t kmeansRandomIndex(int32_t i, int32_t size, int32_t r) {
    const int32_t offset = truncDiv32(wrapMul32(r, wrapSub32(size, 1)), RAND_MAX);
    return wrapAdd32(wrapMul32(i, size), offset);
}

// Uniform pick for cluster i: i*N/K, the product in 32 bits.
inline int32_t kmeansUniformIndex(int32_t i, int32_t n, int32_t k) { return truncDiv32(wrapMul32(i, n), k); }

// Byte offset of sample `index` in a sample file: 8 + index*dimNum*8, with index*dimNum an int
// product as the index itself is.
inline int64_t kmeansSampleOffset(int32_t index, int32_t dimNum) {
    return 8 + static_cast<int64_t>(wrapMul32(index, dimNum)) * 8;
}

}  // namespace rtm

// Statistics of the respiration analyser's short circular windows from one pass of the range
// kernel: the energy of a window from its wrapping sum of squares, the integer standard
// deviation, and the statistics a window will have once one slot takes a new sample, read
// before the sample is stored (a vector read just after a store into it would wait).
#pragma once

#include <cstdint>

#include "common/kernels.h"

namespace rtm {
namespace breath {

// sqrt(sum / 10^6) of the window's wrapping sum of squares taken as a signed int and then a
// float; a wrapped negative sum gives NaN.
float energyOfSquares(uint32_t squares);

// Integer sample standard deviation of `count` (>= 2) values with statistics `r` about their
// truncated mean `mean`.
int32_t integerStd(const kernels::RangeStats& r, int count, int32_t mean);

// The statistics of ring[0, n) (n >= 2) once ring[slot] holds v, from the ring as it is now.
kernels::RangeStats statsWithSlotReplaced(const int32_t* ring, int n, int slot, int32_t v);

}  // namespace breath
}  // namespace rtm

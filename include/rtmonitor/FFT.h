// In-place iterative radix-2 transform of n complex values (n a power of two).
// sign -1 (or 0): forward kernel e^(-2*pi*i*k*m/n), result divided by n.
// sign +1: kernel e^(+2*pi*i*k*m/n), unscaled, so -1 then +1 restores the input.
#pragma once

#include "rtmonitor/Complex.h"

void FFT(xy* x, int n, int sign);

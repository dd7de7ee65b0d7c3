// The radix-2 transform of FFT(x, n, +1) for the common case of real input zero-padded to n,
// with the parts kept in two arrays so four butterflies run at once. Every output float equals
// the one the interleaved transform produces for the same input.
#pragma once

namespace rtm {

// X = FFT of (in[0..count), then zeros up to n) with sign +1, into re[0..n) and im[0..n).
// Needs n a power of two in 8..1024 and count <= n / 4 (the padding then fills the first two
// stages); false, with nothing written, otherwise.
bool fftRealPadded(const int* in, int count, int n, float* re, float* im);

}  // namespace rtm

// Spectral peak of the respiration signal: the dominant bin (1..511) of a 1024-point transform
// of the newest 250 conditioned samples (10 s at 25 samples/s), zero-padded, neither windowed nor
// mean-removed. Bin k is k * 25 / 1024 Hz.
#include <cmath>

#include "numeric/fft_real.h"
#include "rtmonitor/CBreathPro.h"
#include "rtmonitor/FFT.h"

namespace {

constexpr int kSpectrumPoints = 1024;
constexpr int kMinWindow = 1000;
// The transform starts 750 samples into the buffer: the newest 250 of a 1000-sample buffer.
constexpr int kSpectrumSkip = 750;

}  // namespace

int CBreathPro::FFT_Max_loc(int* a, int n) {
    if (n < kMinWindow) return 0;
    // Longer buffers than 1774 samples would not fit the transform; only its first 1024
    // entries are filled then (the pipeline always passes 1000).
    int filled = n - kSpectrumSkip;
    if (filled > kSpectrumPoints) filled = kSpectrumPoints;

    float re[kSpectrumPoints];
    float im[kSpectrumPoints];
    if (!rtm::fftRealPadded(a + kSpectrumSkip, filled, kSpectrumPoints, re, im)) {
        xy points[kSpectrumPoints];
        for (int i = 0; i < filled; ++i) points[i] = xy{static_cast<float>(a[kSpectrumSkip + i]), 0.0f};
        for (int i = filled; i < kSpectrumPoints; ++i) points[i] = xy{0.0f, 0.0f};
        FFT(points, kSpectrumPoints, 1);
        for (int k = 0; k < kSpectrumPoints; ++k) {
            re[k] = points[k].x;
            im[k] = points[k].y;
        }
    }

    // Positive frequencies only, bin 0 (the mean) excluded; a tie keeps the lower bin. Searching
    // the unshifted spectrum gives the same bin as searching the centred copy. The root is
    // monotonic, so a bin can only win when its squared modulus is larger too; only then is
    // the root taken and compared.
    int best = 1;
    float bestSquare = re[1] * re[1] + im[1] * im[1];
    float bestMag = std::sqrt(bestSquare);
    for (int k = 2; k < kSpectrumPoints / 2; ++k) {
        const float square = re[k] * re[k] + im[k] * im[k];
        if (square > bestSquare) {
            const float mag = std::sqrt(square);
            if (mag > bestMag) {
                bestMag = mag;
                bestSquare = square;
                best = k;
            }
        }
    }
    return best;
}

void CBreathPro::fftshift_abs(float* in, float* out, int n) {
    const int h = n / 2;
    for (int k = 0; k < h; ++k) out[k] = in[h + k];
    for (int k = h; k < n; ++k) out[k] = in[k - h];
}

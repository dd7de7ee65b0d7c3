// Spectral peak of the respiration signal: the dominant bin (1..511) of a 1024-point transform
// of the newest 250 conditioned samples (10 s at 25 samples/s), zero-padded, neither windowed nor
// mean-removed. Bin k is k * 25 / 1024 Hz.
#include <cmath>

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
    xy points[kSpectrumPoints];
    // Longer buffers than 1774 samples would not fit the transform; only its first 1024
    // entries are filled then (the pipeline always passes 1000).
    int filled = n - kSpectrumSkip;
    if (filled > kSpectrumPoints) filled = kSpectrumPoints;
    for (int i = 0; i < filled; ++i) points[i] = xy{static_cast<float>(a[kSpectrumSkip + i]), 0.0f};
    for (int i = filled; i < kSpectrumPoints; ++i) points[i] = xy{0.0f, 0.0f};

    FFT(points, kSpectrumPoints, 1);

    // Positive frequencies only, bin 0 (the mean) excluded; a tie keeps the lower bin. Searching
    // the unshifted spectrum gives the same bin as searching the centred copy.
    int best = 1;
    float bestMag = std::sqrt(points[1].x * points[1].x + points[1].y * points[1].y);
    for (int k = 2; k < kSpectrumPoints / 2; ++k) {
        const float mag = std::sqrt(points[k].x * points[k].x + points[k].y * points[k].y);
        if (mag > bestMag) {
            bestMag = mag;
            best = k;
        }
    }
    return best;
}

void CBreathPro::fftshift_abs(float* in, float* out, int n) {
    const int h = n / 2;
    for (int k = 0; k < h; ++k) out[k] = in[h + k];
    for (int k = h; k < n; ++k) out[k] = in[k - h];
}

// In-place iterative radix-2 decimation-in-time transform of n single-precision complex values.
// The angle constant is the float 3.1415925 (not the nearest float to pi) and the twiddle factor
// is advanced in double and stored back as float after each offset; both shape the low bits of
// every result and must stay as they are. Results are divided by n only for sign <= 0.
#include <cmath>
#include <utility>

#include "rtmonitor/FFT.h"

namespace {

constexpr float kPi = 3.1415925f;
// sin/cos of kPi for the first stage, fixed rather than computed.
constexpr float kFirstStageCos = -1.0f;
constexpr float kFirstStageSin = 1.509958e-07f;

bool isPowerOfTwo(int n) { return n > 0 && (n & (n - 1)) == 0; }

}  // namespace

void FFT(xy* x, int n, int sign) {
    // Counts that are not a power of two are never passed; they leave the data untouched.
    if (!isPowerOfTwo(n)) return;
    if (n == 1) {
        if (sign <= 0) {
            x[0].x /= 1.0f;
            x[0].y /= 1.0f;
        }
        return;
    }

    // Bit-reversal reordering; j follows i as its bit reversal via the reversed carry.
    int j = 0;
    for (int i = 1; i <= n - 2; ++i) {
        int k = n / 2;
        while (j >= k) {
            j -= k;
            k /= 2;
        }
        j += k;
        if (j > i) std::swap(x[i], x[j]);
    }

    const float fsign = static_cast<float>(sign);
    for (int h = 1; h < n; h *= 2) {
        float c;
        float s;
        if (h == 1) {
            c = kFirstStageCos;
            s = kFirstStageSin;
        } else {
            ::sincosf(kPi / static_cast<float>(h), &s, &c);
        }
        const float sp = s * fsign;
        float wr = 1.0f;
        float wi = 0.0f;
        for (int k = 0; k < h; ++k) {
            for (int i = k; i < n; i += 2 * h) {
                const xy b = x[i + h];
                const float tr = wr * b.x - wi * b.y;
                const float ti = wr * b.y + wi * b.x;
                x[i + h].x = x[i].x - tr;
                x[i + h].y = x[i].y - ti;
                x[i].x = x[i].x + tr;
                x[i].y = x[i].y + ti;
            }
            // Both new parts come from the old w.
            const double owr = wr;
            const double owi = wi;
            wr = static_cast<float>(owr * c - owi * sp);
            wi = static_cast<float>(owr * sp + owi * c);
        }
    }

    if (sign <= 0) {
        const float fn = static_cast<float>(n);
        for (int i = 0; i < n; ++i) {
            x[i].x /= fn;
            x[i].y /= fn;
        }
    }
}

// In-place iterative radix-2 decimation-in-time transform of n single-precision complex values.
// The angle constant is the float 3.1415925 (not the nearest float to pi) and the twiddle factor
// is advanced in double and stored back as float after each offset; both shape the low bits of
// every result and must stay as they are. Results are divided by n only for sign <= 0.
#include <cmath>
#include <cstring>
#include <utility>

#include "common/kernels.h"
#include "common/vec4.h"
#include "numeric/fft_real.h"
#include "rtmonitor/FFT.h"

namespace {

constexpr float kPi = 3.1415925f;
// sin/cos of kPi for the first stage, fixed rather than computed.
constexpr float kFirstStageCos = -1.0f;
constexpr float kFirstStageSin = 1.509958e-07f;

bool isPowerOfTwo(int n) { return n > 0 && (n & (n - 1)) == 0; }

// The step (c, s * sign) of stage h, as the transform has always formed it.
void twiddleStep(int h, float fsign, float& c, float& sp) {
    float s;
    if (h == 1) {
        c = kFirstStageCos;
        s = kFirstStageSin;
    } else {
        ::sincosf(kPi / static_cast<float>(h), &s, &c);
    }
    sp = s * fsign;
}

// Advances w by the step in double from the old float parts; both new parts use the old w.
void advance(float& wr, float& wi, float c, float sp) {
    const double owr = wr;
    const double owi = wi;
    wr = static_cast<float>(owr * c - owi * sp);
    wi = static_cast<float>(owr * sp + owi * c);
}

// Calls visit(k, wr, wi) for the offsets k = 0 .. h - 1 of stage h with the factor the
// recurrence reaches there.
template <class Visit>
void walkTwiddles(int h, float fsign, Visit visit) {
    float c;
    float sp;
    twiddleStep(h, fsign, c, sp);
    float wr = 1.0f;
    float wi = 0.0f;
    for (int k = 0; k < h; ++k) {
        visit(k, wr, wi);
        advance(wr, wi, c, sp);
    }
}

// Every twiddle factor of the stages h = 1 .. kTableHalf / 2 for sign +1 and -1, produced once
// by the very recurrence the stages run, so a table entry is the same float the loop would
// reach: entry h + k is the factor of offset k in stage h.
constexpr int kTableHalf = 1024;
struct TwiddleTable {
    float re[2][kTableHalf];
    float im[2][kTableHalf];
    // Bit reversal of 4q over the index bits of kTableHalf points, for the real-input path.
    unsigned short quarterReversal[kTableHalf / 4];
    TwiddleTable() {
        for (int q = 0; q < kTableHalf / 4; ++q) {
            int rev = 0;
            for (int bit = 1, top = kTableHalf / 2; bit < kTableHalf; bit <<= 1, top >>= 1)
                if ((4 * q) & bit) rev |= top;
            quarterReversal[q] = static_cast<unsigned short>(rev);
        }
        for (int sg = 0; sg < 2; ++sg) {
            const float fsign = sg == 0 ? 1.0f : -1.0f;
            for (int h = 1; h < kTableHalf; h *= 2) {
                walkTwiddles(h, fsign, [&](int k, float wr, float wi) {
                    re[sg][h + k] = wr;
                    im[sg][h + k] = wi;
                });
            }
        }
    }
};

const TwiddleTable& twiddles() {
    static const TwiddleTable table;
    return table;
}

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

    auto butterfly = [x](int i, int h, float wr, float wi) {
        const xy b = x[i + h];
        const float tr = wr * b.x - wi * b.y;
        const float ti = wr * b.y + wi * b.x;
        x[i + h].x = x[i].x - tr;
        x[i + h].y = x[i].y - ti;
        x[i].x = x[i].x + tr;
        x[i].y = x[i].y + ti;
    };
    if ((sign == 1 || sign == -1) && n <= kTableHalf) {
        // The butterflies of a stage are independent, so taking them block by block with the
        // stored factors gives every element the same operations as the offset-major loop.
        const TwiddleTable& t = twiddles();
        const int sg = sign == 1 ? 0 : 1;
        for (int h = 1; h < n; h *= 2) {
            for (int base = 0; base < n; base += 2 * h) {
                for (int k = 0; k < h; ++k) butterfly(base + k, h, t.re[sg][h + k], t.im[sg][h + k]);
            }
        }
    } else {
        const float fsign = static_cast<float>(sign);
        for (int h = 1; h < n; h *= 2) {
            walkTwiddles(h, fsign, [&](int k, float wr, float wi) {
                for (int i = k; i < n; i += 2 * h) butterfly(i, h, wr, wi);
            });
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

namespace rtm {

bool fftRealPadded(const int* in, int count, int n, float* re, float* im) {
    if (!isPowerOfTwo(n) || n < 8 || n > kTableHalf || count < 0 || count > n / 4) return false;
    // After the bit-reversal permutation, the first two stages combine each value with three
    // zero-padding entries (their partners lie at or beyond n / 4): with w = (1, 0) and then
    // (cos, sin) both non-negative, every product with +0 is +0, so each block of four ends up
    // holding four copies of its one value with a +0 imaginary part. Written directly.
    const TwiddleTable& t = twiddles();
    std::memset(im, 0, sizeof(float) * static_cast<size_t>(n));
    int r = 0;  // bit reversal of 4q, which is below n / 4
    for (int q = 0; q < n / 4; ++q) {
        if (n == kTableHalf) {
            r = t.quarterReversal[q];
        } else if (q > 0) {
            int k = n / 8;
            while (r >= k) {
                r -= k;
                k /= 2;
            }
            r += k;
        }
        const float v = r < count ? static_cast<float>(in[r]) : 0.0f;
        rtm::store4(re + 4 * q, rtm::f32x4{v, v, v, v});
    }
    for (int h = 4; h < n; h *= 2) rtm::kernels::butterflyStage(re, im, n, h, t.re[0] + h, t.im[0] + h);
    return true;
}

}  // namespace rtm

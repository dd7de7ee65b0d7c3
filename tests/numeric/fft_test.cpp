// Radix-2 transform: its identities (single point, constant, impulse, the kernel sign on a pure
// tone, and forward then inverse on 1024 random points, which a twiddle update that is not
// simultaneous fails), the moduli of the complex helpers, and bit equality of the stored-factor
// and split real-input paths with the plain recurrence the transform is defined by.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "numeric/fft_real.h"
#include "rtmonitor/Complex.h"
#include "rtmonitor/FFT.h"

namespace {

// The transform as defined: offset-major butterflies, the factor advanced in double per offset.
void referenceFft(xy* x, int n, int sign) {
    for (int i = 1, j = 0; i <= n - 2; ++i) {
        int k = n / 2;
        for (; j >= k; k /= 2) j -= k;
        j += k;
        if (j > i) std::swap(x[i], x[j]);
    }
    for (int h = 1; h < n; h *= 2) {
        float c = -1.0f, s = 1.509958e-07f;
        if (h > 1) ::sincosf(3.1415925f / static_cast<float>(h), &s, &c);
        const float sp = s * static_cast<float>(sign);
        float wr = 1.0f, wi = 0.0f;
        for (int k = 0; k < h; ++k) {
            for (int i = k; i < n; i += 2 * h) {
                const xy b = x[i + h];
                const float tr = wr * b.x - wi * b.y, ti = wr * b.y + wi * b.x;
                x[i + h] = xy{x[i].x - tr, x[i].y - ti};
                x[i] = xy{x[i].x + tr, x[i].y + ti};
            }
            const double owr = wr, owi = wi;
            wr = static_cast<float>(owr * c - owi * sp);
            wi = static_cast<float>(owr * sp + owi * c);
        }
    }
    if (sign <= 0)
        for (int i = 0; i < n; ++i) x[i] = xy{x[i].x / static_cast<float>(n), x[i].y / static_cast<float>(n)};
}

bool sameBits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace

TEST(Fft, EveryPathGivesTheBitsOfTheDefiningRecurrence) {
    std::mt19937 gen(5u);
    std::uniform_real_distribution<float> d(-3e4f, 3e4f);
    for (int n = 2; n <= 4096; n *= 2) {
        for (int sign : {-1, 0, 1, 2}) {
            std::vector<xy> in(n);
            for (auto& e : in) e = xy{d(gen), d(gen)};
            auto got = in, want = in;
            FFT(got.data(), n, sign);
            referenceFft(want.data(), n, sign);
            for (int k = 0; k < n; ++k)
                ASSERT_TRUE(sameBits(got[k].x, want[k].x) && sameBits(got[k].y, want[k].y))
                    << n << " " << sign << " " << k;
        }
    }
    std::uniform_int_distribution<int> words(INT_MIN, INT_MAX), counts(28000, 32000);
    for (int n = 8; n <= 1024; n *= 2) {
        for (int count : {0, 1, n / 8, n / 4}) {
            for (int kind = 0; kind < 2; ++kind) {
                std::vector<int> in(count);
                for (int& v : in) v = kind ? words(gen) : counts(gen);
                std::vector<xy> want(n, xy{0.0f, 0.0f});
                for (int i = 0; i < count; ++i) want[i].x = static_cast<float>(in[i]);
                referenceFft(want.data(), n, 1);
                std::vector<float> re(n), im(n);
                ASSERT_TRUE(rtm::fftRealPadded(in.data(), count, n, re.data(), im.data()));
                for (int k = 0; k < n; ++k)
                    ASSERT_TRUE(sameBits(re[k], want[k].x) && sameBits(im[k], want[k].y))
                        << n << " " << count << " " << k;
            }
        }
    }
    float re[16], im[16];
    EXPECT_FALSE(rtm::fftRealPadded(nullptr, 5, 16, re, im)) << "more than n / 4 values is refused";
}

TEST(Fft, IdentitiesOfTheTransform) {
    for (int sign : {-1, 0, 1}) {
        xy v{3.5f, -2.25f};
        FFT(&v, 1, sign);
        EXPECT_TRUE(v.x == 3.5f && v.y == -2.25f) << sign;
    }
    std::vector<xy> c(8, xy{1.0f, 0.0f}), tone(8), imp(16, xy{0.0f, 0.0f});
    FFT(c.data(), 8, -1);  // the forward result is divided by n
    for (int k = 0; k < 8; ++k) EXPECT_NEAR(std::hypot(c[k].x - (k == 0), c[k].y), 0.0, 1e-6) << k;
    for (int m = 0; m < 8; ++m) tone[m] = xy{float(std::cos(M_PI * m / 4)), float(std::sin(M_PI * m / 4))};
    FFT(tone.data(), 8, -1);  // e^(+2 pi i m / 8) lands in bin 1 under the kernel e^(-2 pi i km / n)
    EXPECT_NEAR(std::hypot(tone[1].x - 1.0f, tone[1].y), 0.0, 1e-6);
    EXPECT_NEAR(std::hypot(tone[7].x, tone[7].y), 0.0, 1e-6);
    imp[0].x = 1.0f;
    FFT(imp.data(), 16, 1);  // no scaling
    for (const xy& e : imp) EXPECT_TRUE(e.x == 1.0f && e.y == 0.0f);
    EXPECT_TRUE(cabs1(cmplx(3, 4)) == 5.0f && cabs2(cmplx(3, 4)) == 25.0f);  // moduli via double
}

TEST(Fft, ForwardThenInverseRestoresTheInput) {
    std::mt19937 gen(11u);
    std::uniform_real_distribution<float> d(-1000.0f, 1000.0f);
    std::vector<xy> in(1024);
    for (auto& e : in) e = xy{d(gen), d(gen)};
    auto v = in;
    FFT(v.data(), 1024, -1);
    FFT(v.data(), 1024, 1);
    for (int k = 0; k < 1024; ++k) EXPECT_NEAR(std::hypot(v[k].x - in[k].x, v[k].y - in[k].y), 0.0, 0.01);
}

// Radix-2 transform and complex helpers: identities of the transform (constant, impulse,
// round trip), its kernel signs against a slow DFT, and the complex functions' examples.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "rtmonitor/Complex.h"
#include "rtmonitor/FFT.h"

namespace {

// Slow DFT in double with kernel e^(sign * 2*pi*i*k*m/n), scaled by 1/n for sign <= 0.
std::vector<xy> slowDft(const std::vector<xy>& in, int sign) {
    const int n = static_cast<int>(in.size());
    std::vector<xy> out(in.size());
    for (int k = 0; k < n; ++k) {
        double re = 0, im = 0;
        for (int m = 0; m < n; ++m) {
            const double ang = sign * 2.0 * M_PI * k * m / n;
            re += in[m].x * std::cos(ang) - in[m].y * std::sin(ang);
            im += in[m].x * std::sin(ang) + in[m].y * std::cos(ang);
        }
        const double scale = sign <= 0 ? 1.0 / n : 1.0;
        out[k] = xy{static_cast<float>(re * scale), static_cast<float>(im * scale)};
    }
    return out;
}

std::vector<xy> randomSignal(int n, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> d(-1000.0f, 1000.0f);
    std::vector<xy> v(static_cast<std::size_t>(n));
    for (auto& e : v) e = xy{d(gen), d(gen)};
    return v;
}

}  // namespace

TEST(Fft, SinglePointIsUnchangedForAnySign) {
    for (int sign : {-1, 0, 1}) {
        xy v{3.5f, -2.25f};
        FFT(&v, 1, sign);
        EXPECT_EQ(v.x, 3.5f);
        EXPECT_EQ(v.y, -2.25f);
    }
}

TEST(Fft, ConstantGoesToBinZeroScaled) {
    std::vector<xy> v(8, xy{1.0f, 0.0f});
    FFT(v.data(), 8, -1);
    EXPECT_NEAR(v[0].x, 1.0f, 1e-6);
    EXPECT_NEAR(v[0].y, 0.0f, 1e-6);
    for (int k = 1; k < 8; ++k) {
        EXPECT_NEAR(v[k].x, 0.0f, 1e-6) << k;
        EXPECT_NEAR(v[k].y, 0.0f, 1e-6) << k;
    }
}

TEST(Fft, ImpulseGivesOnesUnscaled) {
    std::vector<xy> v(16, xy{0.0f, 0.0f});
    v[0] = xy{1.0f, 0.0f};
    FFT(v.data(), 16, 1);
    for (const xy& e : v) {
        EXPECT_EQ(e.x, 1.0f);
        EXPECT_EQ(e.y, 0.0f);
    }
}

TEST(Fft, MatchesSlowTransformForBothKernels) {
    for (int sign : {-1, 1}) {
        const auto in = randomSignal(64, 7u + static_cast<unsigned>(sign + 1));
        auto fast = in;
        FFT(fast.data(), 64, sign);
        const auto ref = slowDft(in, sign);
        const double tol = sign > 0 ? 0.05 : 0.05 / 64;
        for (int k = 0; k < 64; ++k) {
            EXPECT_NEAR(fast[k].x, ref[k].x, tol) << sign << " " << k;
            EXPECT_NEAR(fast[k].y, ref[k].y, tol) << sign << " " << k;
        }
    }
}

TEST(Fft, ForwardThenInverseRestoresTheInput) {
    const auto in = randomSignal(1024, 11u);
    auto v = in;
    FFT(v.data(), 1024, -1);
    FFT(v.data(), 1024, 1);
    for (int k = 0; k < 1024; ++k) {
        EXPECT_NEAR(v[k].x, in[k].x, 0.01) << k;
        EXPECT_NEAR(v[k].y, in[k].y, 0.01) << k;
    }
}

TEST(Complex, ExamplesOfTheHelpers) {
    EXPECT_EQ(cabs2(cmplx(3, 4)), 25.0f);
    EXPECT_EQ(cabs1(cmplx(3, 4)), 5.0f);
    const xy sq = cpow1(cmplx(0, 1), 2.0);
    EXPECT_NEAR(sq.x, -1.0f, 1e-6);
    EXPECT_NEAR(sq.y, 0.0f, 1e-6);
    const xy z = cpow1(cmplx(0, 0), 2.5);
    EXPECT_EQ(z.x, 0.0f);
    EXPECT_EQ(z.y, 0.0f);
    const xy p = cmul(cmplx(1, 2), cmplx(3, -1));
    EXPECT_EQ(p.x, 5.0f);
    EXPECT_EQ(p.y, 5.0f);
    EXPECT_TRUE(std::signbit(conjg(cmplx(1, 0)).y));
    EXPECT_EQ(csub(cadd(cmplx(1, 2), cmplx(3, 4)), cmplx(1, 1)).y, 5.0f);
    EXPECT_FLOAT_EQ(arg(cmplx(0, 1)), static_cast<float>(M_PI / 2));
}

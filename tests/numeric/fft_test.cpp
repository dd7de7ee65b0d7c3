// Radix-2 transform: its identities (single point, constant, impulse, the kernel sign on a pure
// tone, and forward then inverse on 1024 random points, which a twiddle update that is not
// simultaneous fails) and the moduli of the complex helpers.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "rtmonitor/Complex.h"
#include "rtmonitor/FFT.h"

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

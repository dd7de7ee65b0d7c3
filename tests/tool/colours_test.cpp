// Every pair of colours in each of the report's class palettes stays apart for normal vision and
// simulated protanopia and deuteranopia (Machado, Oliveira and Fernandes 2009, severity 1, on
// linear RGB), measured as CIELAB distance. Two pairs of the earlier posture palette (upright /
// moderate movement, on the back / light movement) were 18 apart and read as one colour.
#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "classes.h"

namespace rtmtool {
namespace {

using Vec = std::array<double, 3>;
using Mat = std::array<Vec, 3>;

constexpr Mat kNormal{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
constexpr Mat kProtan{
    {{0.152286, 1.052583, -0.204868}, {0.114503, 0.786281, 0.099216}, {-0.003882, -0.048116, 1.051998}}};
constexpr Mat kDeutan{
    {{0.367322, 0.860646, -0.227968}, {0.280085, 0.672501, 0.047413}, {-0.011820, 0.042940, 0.968881}}};

Vec times(const Mat& m, const Vec& v) {
    Vec r{};
    for (size_t i = 0; i < 3; ++i) r[i] = m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2];
    return r;
}

Vec linearRgb(const std::string& hex) {
    Vec v{};
    for (size_t i = 0; i < 3; ++i) {
        const double c = std::stoi(hex.substr(1 + 2 * i, 2), nullptr, 16) / 255.0;
        v[i] = c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    }
    return v;
}

Vec lab(Vec rgb) {
    for (double& c : rgb) c = std::clamp(c, 0.0, 1.0);
    const Mat toXyz{{{0.4124, 0.3576, 0.1805}, {0.2126, 0.7152, 0.0722}, {0.0193, 0.1192, 0.9505}}};
    const Vec white = times(toXyz, {1, 1, 1});
    Vec xyz = times(toXyz, rgb);
    auto f = [](double t) {
        return t > std::pow(6.0 / 29, 3) ? std::cbrt(t) : t / (3 * std::pow(6.0 / 29, 2)) + 4.0 / 29;
    };
    for (size_t i = 0; i < 3; ++i) xyz[i] = f(xyz[i] / white[i]);
    return {116 * xyz[1] - 16, 500 * (xyz[0] - xyz[1]), 200 * (xyz[1] - xyz[2])};
}

double distance(const Vec& a, const Vec& b) {
    return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) + (a[2] - b[2]) * (a[2] - b[2]));
}

// The smallest distance between two colours over the three kinds of vision.
double leastDistance(const std::string& a, const std::string& b) {
    double least = 1e9;
    for (const Mat& m : {kNormal, kProtan, kDeutan})
        least = std::min(least, distance(lab(times(m, linearRgb(a))), lab(times(m, linearRgb(b)))));
    return least;
}

template <size_t N>
void expectApart(const char* const (&colours)[N], const char* palette, double least) {
    for (size_t i = 0; i < N; ++i)
        for (size_t j = i + 1; j < N; ++j)
            EXPECT_GE(leastDistance(colours[i], colours[j]), least)
                << palette << ": " << colours[i] << " and " << colours[j];
}

TEST(Colours, SimulationSeparatesKnownConfusions) {
    // Red and green, far apart for normal vision, nearly meet under deuteranopia; the measure
    // must see that, or the palette checks below prove nothing.
    EXPECT_GT(distance(lab(linearRgb("#d62728")), lab(linearRgb("#2ca02c"))), 60);
    EXPECT_LT(leastDistance("#d62728", "#2ca02c"), 25);
    EXPECT_LT(leastDistance("#E69F00", "#D55E00"), 20);  // the old upright / moderate movement pair
}

TEST(Colours, EveryPairInEachPaletteStaysApart) {
    expectApart(kPostureColors, "posture", 25);
    expectApart(kHeartBandColors, "heart quality", 25);
    expectApart(kBreathBandColors, "respiration status", 25);
    expectApart(kInputBandColors, "input check", 25);
}

}  // namespace
}  // namespace rtmtool

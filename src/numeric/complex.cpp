// Single-precision complex arithmetic on `xy` values passed by value. Products and sums are
// single precision; the moduli are formed in double from the float parts and returned as float;
// the power goes through the polar form with the radius raised in extended precision.
#include <cmath>

#include "rtmonitor/Complex.h"

xy cmplx(float re, float im) { return xy{re, im}; }

xy cmul(xy a, xy b) { return xy{a.x * b.x - a.y * b.y, a.y * b.x + b.y * a.x}; }

xy conjg(xy a) { return xy{a.x, -a.y}; }

xy cadd(xy a, xy b) { return xy{a.x + b.x, a.y + b.y}; }

xy csub(xy a, xy b) { return xy{a.x - b.x, a.y - b.y}; }

xy cpow1(xy a, double n) {
    const double re = a.x;
    const double im = a.y;
    const double r = std::sqrt(re * re + im * im);
    const float theta = std::atan2(a.y, a.x);  // single-precision atan2f
    const long double rho = std::pow(static_cast<long double>(r), static_cast<long double>(n));
    const double angle = static_cast<double>(theta) * n;
    return xy{static_cast<float>(rho * std::cos(angle)), static_cast<float>(rho * std::sin(angle))};
}

float arg(xy a) { return std::atan2(a.y, a.x); }

float cabs1(xy a) {
    const double re = a.x;
    const double im = a.y;
    return static_cast<float>(std::sqrt(re * re + im * im));
}

float cabs2(xy a) {
    const double re = a.x;
    const double im = a.y;
    return static_cast<float>(re * re + im * im);
}

// Single-precision complex numbers passed by value: construction, products, sums, powers,
// argument and modulus. Real part first, then imaginary part.
#pragma once

struct xy {
    float x;  // real part
    float y;  // imaginary part
};

xy cmplx(float re, float im);
xy cmul(xy a, xy b);
xy conjg(xy a);
xy cadd(xy a, xy b);
xy csub(xy a, xy b);
xy cpow1(xy a, double n);
float arg(xy a);
float cabs1(xy a);
float cabs2(xy a);

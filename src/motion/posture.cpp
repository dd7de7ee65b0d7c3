// Posture classifier. Input: raw accelerometer counts (512 = 0 g, 128 counts per g), n samples
// per axis. A frame whose smoothed magnitude changes enough is classed by activity level (6-8);
// a quiet frame by the direction of gravity (1-5); anything else is 9. All work is in double g.
#include <cmath>
#include <memory>

#include "rtmonitor/CPosture.h"

CPosture::CPosture() {}
CPosture::~CPosture() {}

void CPosture::convertUnits(int* raw, int n, double* out, bool absolute) {
    for (int i = 0; i < n; ++i) {
        const double g = (raw[i] - 512.0) * 0.0078125;
        out[i] = absolute ? std::fabs(g) : g;
    }
}

void CPosture::calSVM(double* x, double* y, double* z, double* out, int n) {
    for (int i = 0; i < n; ++i) out[i] = std::sqrt(x[i] * x[i] + y[i] * y[i] + z[i] * z[i]);
}

double CPosture::getMeanVal(double* in, int, int from, int to) {
    if (from >= to) return 0.0;
    double sum = 0.0;
    for (int i = from; i < to; ++i) sum += in[i];
    return sum / static_cast<double>(to - from);
}

void CPosture::slide_window_smooth(double* in, int n, double* out, int window) {
    if (n < 1) return;
    const double half = (window - 1) * 0.5;
    out[0] = in[0];
    for (int i = 1; i < n; ++i) {
        int from;
        int to;
        if (half > i) {
            from = 0;
            to = 2 * i + 1;
        } else if (i > n - half - 1) {
            from = 2 * i + 1 - n;
            to = n;
        } else {
            from = static_cast<int>(i - half);
            to = static_cast<int>(i + half + 1);
        }
        out[i] = getMeanVal(in, n, from, to);
    }
}

double CPosture::getMeanValue(double* in, int n) {
    double sum = 0.0;
    int count = 0;
    for (int i = 0; i < n; ++i) {
        if (in[i] != 0.0) {  // NaN counts as non-zero
            sum += in[i];
            ++count;
        }
    }
    return count == 0 ? 0.0 : sum / count;
}

int CPosture::getPosture(int* x, int* y, int* z, int n) {
    // new[] of a negative count raises std::bad_array_new_length, as callers expect.
    auto alloc = [n] { return std::unique_ptr<double[]>(new double[n]()); };
    auto gx = alloc(), gy = alloc(), gz = alloc(), svm = alloc();
    auto sx = alloc(), sy = alloc(), sz = alloc(), ssvm = alloc();

    convertUnits(x, n, gx.get(), true);  // first axis counts by absolute value
    convertUnits(y, n, gy.get(), false);
    convertUnits(z, n, gz.get(), false);
    calSVM(gx.get(), gy.get(), gz.get(), svm.get(), n);
    slide_window_smooth(svm.get(), n, ssvm.get(), 3);
    slide_window_smooth(gx.get(), n, sx.get(), 3);
    slide_window_smooth(gy.get(), n, sy.get(), 3);
    slide_window_smooth(gz.get(), n, sz.get(), 3);
    const double meanX = getMeanValue(sx.get(), n);
    const double meanY = getMeanValue(sy.get(), n);
    const double meanZ = getMeanValue(sz.get(), n);

    if (n > 1) {
        double change = 0.0;
        for (int i = 0; i < n - 1; ++i) change += std::fabs(ssvm[i + 1] - ssvm[i]);
        if (change >= 1.0 && change < 6.0) return 7;
        if (change >= 6.0) return 8;
        if (change >= 0.35 && change < 1.0) return 6;
        if (!(change < 0.35)) return 9;  // only a NaN change gets here
    }

    if (meanX >= 0.6) return 1;
    if (meanZ >= 0.5) return 2;
    if (meanZ < -0.7) return 3;  // asymmetric with class 2 by design
    if (meanY >= 0.5) return 4;
    if (meanY < -0.5) return 5;
    return 9;
}

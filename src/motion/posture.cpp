// Posture classifier. Input: raw accelerometer counts (512 = 0 g, 128 counts per g), n samples
// per axis. A frame whose smoothed magnitude changes enough is classed by activity level (6-8);
// a quiet frame by the direction of gravity (1-5); anything else is 9. All work is in double g.
#include <cmath>
#include <memory>

#include "rtmonitor/CPosture.h"

namespace {
constexpr int kStackSamples = 64;
}  // namespace

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
    // A frame's samples fit the stack. Other counts go to the heap, where new[] of a negative
    // count raises std::bad_array_new_length, as callers expect.
    double onStack[8][kStackSamples];
    std::unique_ptr<double[]> onHeap;
    double* work = &onStack[0][0];
    int stride = kStackSamples;
    if (n < 0) onHeap.reset(new double[n]);
    if (n > kStackSamples) {
        onHeap.reset(new double[static_cast<std::size_t>(n) * 8]());
        work = onHeap.get();
        stride = n;
    }
    double* gx = work;
    double* gy = work + stride;
    double* gz = work + 2 * stride;
    double* svm = work + 3 * stride;
    double* sx = work + 4 * stride;
    double* sy = work + 5 * stride;
    double* sz = work + 6 * stride;
    double* ssvm = work + 7 * stride;

    convertUnits(x, n, gx, true);  // first axis counts by absolute value
    convertUnits(y, n, gy, false);
    convertUnits(z, n, gz, false);
    calSVM(gx, gy, gz, svm, n);
    slide_window_smooth(svm, n, ssvm, 3);
    slide_window_smooth(gx, n, sx, 3);
    slide_window_smooth(gy, n, sy, 3);
    slide_window_smooth(gz, n, sz, 3);
    const double meanX = getMeanValue(sx, n);
    const double meanY = getMeanValue(sy, n);
    const double meanZ = getMeanValue(sz, n);

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

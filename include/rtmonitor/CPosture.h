// Posture classifier: one class (1..9) per frame of three-axis accelerometer samples.
// Input: raw counts, 512 = 0 g, 128 counts per g. Stateless; works on temporary arrays.
#pragma once

class CPosture {
public:
    CPosture();
    ~CPosture();

    int getPosture(int* x, int* y, int* z, int n);
    void convertUnits(int* raw, int n, double* out, bool absolute);
    void calSVM(double* x, double* y, double* z, double* out, int n);
    void slide_window_smooth(double* in, int n, double* out, int window);
    double getMeanVal(double* in, int n, int from, int to);
    double getMeanValue(double* in, int n);
};

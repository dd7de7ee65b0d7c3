/*
 * A complete host: one device, one frame per second, rates printed every second.
 * The sensor is simulated in physical units (ECG in millivolts, respiration as a chest-band
 * signal, acceleration in g) and scaled to the counts the analysis expects:
 *   ECG           counts = 512 + 200 x mV, clipped to 0..1023
 *   respiration   counts around 30000 (the analysis uses the shape, not the level)
 *   acceleration  counts = 512 + 128 x g on each axis
 * Build against an installed copy:
 *   cc host.c $(pkg-config --cflags --libs rtmonitor) -lm -o host
 *   LD_LIBRARY_PATH=$(pkg-config --variable=libdir rtmonitor) ./host 60
 * (or link with -Wl,-rpath,$(pkg-config --variable=libdir rtmonitor) and run ./host 60).
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "rtmonitor.h"

static const double kPi = 3.14159265358979323846;

static int32_t ecgCounts(double mV) {
    long c = lround(512.0 + 200.0 * mV);
    return (int32_t)(c < 0 ? 0 : c > 1023 ? 1023 : c);
}

static int32_t accCounts(double g) { return (int32_t)lround(512.0 + 128.0 * g); }

/* A stylised P-QRS-T complex, t seconds after the beat. */
static double beat_mV(double t) {
    double p = (t - 0.10) / 0.025, q = (t - 0.20) / 0.010, r = (t - 0.22) / 0.010, s = (t - 0.24) / 0.010;
    double tw = (t - 0.45) / 0.050;
    return 0.15 * exp(-0.5 * p * p) - 0.10 * exp(-0.5 * q * q) + 1.00 * exp(-0.5 * r * r) - 0.20 * exp(-0.5 * s * s) +
           0.30 * exp(-0.5 * tw * tw);
}

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? atoi(argv[1]) : 60;
    const int device = 1;
    const double heartPerMin = 72.0, breathPerMin = 15.0;
    ParamsIn in;
    ParamsOut out;
    if (seconds <= 0) {
        fprintf(stderr, "usage: host [SECONDS]  (a positive number of seconds, default 60)\n");
        return 2;
    }
    printf("rtmonitor %s\n", rtm_version());
    printf("second,heart_rate,heart_status,breath_rate,breath_state,posture\n");
    initDevice(device); /* a fresh analysis state for this id */
    for (int s = 0; s < seconds; ++s) {
        memset(&in, 0, sizeof in);
        in.nDeviceId = device;
        in.nFrameSeq = s;                 /* consecutive numbers; a gap restarts conditioning */
        in.nHeartMode = (s == 0) ? 1 : 0; /* 1 restarts the heart analysis, 0 analyses */
        for (int i = 0; i < 200; ++i) {   /* ECG: 200 samples per second */
            double t = s + i / 200.0;
            in.nHeartData[i] = ecgCounts(beat_mV(fmod(t, 60.0 / heartPerMin)));
        }
        for (int i = 0; i < 25; ++i) { /* respiration and acceleration: 25 per second */
            double t = s + i / 25.0;
            int32_t chest = (int32_t)lround(30000.0 + 400.0 * sin(2.0 * kPi * t * breathPerMin / 60.0));
            in.nBreathChan1[i] = chest;   /* analysed for the rate */
            in.nBreathChan0[i] = chest;   /* filtered for display only */
            in.nAccX[i] = accCounts(0.0); /* lying on the back: gravity on the third axis */
            in.nAccY[i] = accCounts(0.0);
            in.nAccZ[i] = accCounts(1.0);
        }
        memset(&out, 0, sizeof out);
        processSignal(in, &out); /* always returns 1 */
        printf("%d,%d,%d,%d,%d,%d\n", s, (int)out.nHeartRate, (int)out.nHeartStatus, (int)out.nBreathRate,
               (int)out.nBreathState, (int)out.nPosture);
    }
    freeDevice(device);
    return 0;
}

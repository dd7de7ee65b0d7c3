/*
 * rtmonitor: real-time vital-signs and activity monitoring.
 * The host hands in one ParamsIn frame per second per device and reads one ParamsOut back.
 * Both records are plain signed 32-bit words with no padding: the layout is the binary
 * interface between host and library and must never change.
 */
#ifndef RTMONITOR_H
#define RTMONITOR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One frame of raw sensor data for one device: 330 words, 1320 bytes. */
typedef struct ParamsIn {
    int32_t nDeviceId;         /* selects the device state; any value is a valid id */
    int32_t nFrameSeq;         /* host's frame sequence number */
    int32_t nHeartData[200];   /* ECG, 200 samples/s, oldest first */
    int32_t nHeartMode;        /* 0 analyse, 1 restart heart analysis, other: skip (rate 200) */
    int32_t nReservedA;        /* not read */
    int32_t nBreathChan1[25];  /* respiration channel analysed for the rate, 25 samples/s */
    int32_t nBreathChan0[25];  /* respiration channel filtered for display only */
    int32_t nReservedB;        /* not read */
    int32_t nAccX[25];         /* accelerometer, raw counts: 512 = 0 g, 128 counts per g */
    int32_t nAccY[25];
    int32_t nAccZ[25];
} ParamsIn;

/* The analysis results of one frame: 281 words, 1124 bytes, allocated by the host. */
typedef struct ParamsOut {
    int32_t nHeartRate;          /* beats per minute; 0 when no rate */
    int32_t nHeartReserved;      /* always 0 */
    int32_t nHeartWave[200];     /* conditioned ECG for display */
    int32_t nBreathDisplay1[25]; /* channel 1 display value, 0..1000 */
    int32_t nBreathDisplay0[25]; /* channel 0 display value, 0..1000 */
    int32_t nBreathRate;         /* breaths per minute, truncated */
    int32_t nBreathState;        /* 2 no usable signal, 0 no judgement, else 0 or 1 */
    int32_t nMovement[25];       /* movement level per accelerometer sample, 1..1023 */
    int32_t nPosture;            /* posture class 1..9, 0 when not classified */
    int32_t nHeartStatus;        /* heart signal quality flag, 0 or 1 */
} ParamsOut;

/* Registers a device, or restarts the analysis of one that exists. */
void initDevice(int id);
/* Analyses one frame for in.nDeviceId (creating its state if needed); always returns 1. */
int processSignal(ParamsIn in, ParamsOut *out);
/* Drops a device's state from the registry. */
void freeDevice(int id);

#ifdef __cplusplus
}
#endif

/* The layout is a fixed contract with existing hosts. */
#ifdef __cplusplus
#include <cstddef>
#define RTM_STATIC_ASSERT(c, m) static_assert(c, m)
#else
#include <stddef.h>
#define RTM_STATIC_ASSERT(c, m) _Static_assert(c, m)
#endif
RTM_STATIC_ASSERT(sizeof(ParamsIn) == 1320, "ParamsIn must be 330 words");
RTM_STATIC_ASSERT(sizeof(ParamsOut) == 1124, "ParamsOut must be 281 words");
RTM_STATIC_ASSERT(offsetof(ParamsIn, nHeartMode) == 808, "ParamsIn.nHeartMode offset");
RTM_STATIC_ASSERT(offsetof(ParamsIn, nBreathChan1) == 816, "ParamsIn.nBreathChan1 offset");
RTM_STATIC_ASSERT(offsetof(ParamsIn, nBreathChan0) == 916, "ParamsIn.nBreathChan0 offset");
RTM_STATIC_ASSERT(offsetof(ParamsIn, nAccX) == 1020, "ParamsIn.nAccX offset");
RTM_STATIC_ASSERT(offsetof(ParamsIn, nAccZ) == 1220, "ParamsIn.nAccZ offset");
RTM_STATIC_ASSERT(offsetof(ParamsOut, nBreathDisplay1) == 808, "ParamsOut.nBreathDisplay1 offset");
RTM_STATIC_ASSERT(offsetof(ParamsOut, nBreathRate) == 1008, "ParamsOut.nBreathRate offset");
RTM_STATIC_ASSERT(offsetof(ParamsOut, nMovement) == 1016, "ParamsOut.nMovement offset");
RTM_STATIC_ASSERT(offsetof(ParamsOut, nPosture) == 1116, "ParamsOut.nPosture offset");
RTM_STATIC_ASSERT(offsetof(ParamsOut, nHeartStatus) == 1120, "ParamsOut.nHeartStatus offset");
#undef RTM_STATIC_ASSERT

#endif /* RTMONITOR_H */

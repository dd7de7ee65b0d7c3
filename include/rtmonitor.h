/*
 * rtmonitor: real-time vital-signs and activity monitoring.
 * The host hands in one ParamsIn frame per second per device and reads one ParamsOut back.
 * Both records are plain signed 32-bit words with no padding: the layout is the binary
 * interface between host and library and must never change.
 */
#ifndef RTMONITOR_H
#define RTMONITOR_H

#include <stddef.h>
#include <stdint.h>

/* The library version: RTMONITOR_VERSION_STRING at build time, rtm_version() at run time. */
#define RTMONITOR_VERSION_MAJOR 0
#define RTMONITOR_VERSION_MINOR 3
#define RTMONITOR_VERSION_PATCH 0
#define RTMONITOR_VERSION_STRING "0.3.0"

/* Marks the functions a host links against; everything else in the library stays hidden. */
#if defined(__GNUC__)
#define RTMONITOR_API __attribute__((visibility("default")))
#else
#define RTMONITOR_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* One frame of raw sensor data for one device: 330 words, 1320 bytes. */
typedef struct ParamsIn {
    int32_t nDeviceId;        /* selects the device state; any value is a valid id */
    int32_t nFrameSeq;        /* host's frame sequence number */
    int32_t nHeartData[200];  /* ECG, 200 samples/s, oldest first */
    int32_t nHeartMode;       /* 0 analyse, 1 restart heart analysis, other: skip (rate 200) */
    int32_t nReservedA;       /* not read */
    int32_t nBreathChan1[25]; /* respiration channel analysed for the rate, 25 samples/s */
    int32_t nBreathChan0[25]; /* respiration channel filtered for display only */
    int32_t nReservedB;       /* not read */
    int32_t nAccX[25];        /* accelerometer, raw counts: 512 = 0 g, 128 counts per g */
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

/*
 * The registry interface: devices named by id in one process-wide registry. Every call takes
 * one process-wide lock, so analysis runs on one core at a time; a device's state, once
 * registered, is kept for the life of the process (about 75 kB each, also after freeDevice).
 */

/* Registers a device, or restarts the analysis of one that exists. */
RTMONITOR_API void initDevice(int id);
/* Analyses one frame for in.nDeviceId (creating its state if needed); always returns 1. */
RTMONITOR_API int processSignal(ParamsIn in, ParamsOut* out);
/* Drops a device's state from the registry. */
RTMONITOR_API void freeDevice(int id);

/*
 * The handle interface: one rtm_device per device, owned by the host. No lock is taken and no
 * global state is touched, so any number of handles may be used at once from different threads;
 * one handle must be used by one thread at a time. A handle gives, frame for frame, exactly the
 * outputs the registry interface gives a device registered with initDevice and fed the same
 * frames. Its memory is released by rtm_device_destroy.
 */
typedef struct rtm_device rtm_device;

/* A fresh analysis state, as initDevice creates one. NULL when memory runs out. */
RTMONITOR_API rtm_device* rtm_device_create(void);

/*
 * Analyses one frame: in->nDeviceId is not read (the handle is the device); every other input
 * field is used as processSignal uses it, and *out is written as processSignal writes it. As
 * there, a stage that returns early leaves its fields as the caller left them: a heart restart
 * frame (nHeartMode 1) does not write nHeartWave, so give both interfaces the same buffer
 * contents when comparing them.
 * Returns 1 when the frame was analysed, 0 (nothing changed) when an argument is NULL.
 * Also 0 if memory ran out part-way through the frame: the handle's state is then incomplete,
 * so destroy it (or load a snapshot into it) before analysing further frames.
 */
RTMONITOR_API int rtm_device_process(rtm_device* dev, const ParamsIn* in, ParamsOut* out);

/* Releases the handle and everything it holds. NULL is a no-op. */
RTMONITOR_API void rtm_device_destroy(rtm_device* dev);

/*
 * Beats: the heart beats a handle's analyser confirmed during its last rtm_device_process call.
 * A beat is confirmed when the analyser takes it into its 20-beat history (the history the heart
 * rate is computed from). That happens once the next R peak has been found and measured, so a beat
 * is reported typically one to two seconds after its own R peak, and the beats of a frame may lie
 * in earlier frames. The first beat the analyser finds after it starts or restarts (a new handle,
 * nHeartMode 1, a flat packet) is replaced in the history by the second and is never reported.
 */
#define RTM_BEATS_MAX 20 /* the most beats one call can report: the analyser's beat history */

typedef struct rtm_beat {
    /* The R peak: the index of the input sample at 200 samples/s, counted from the first sample
     * of the handle's first frame. Every frame given to rtm_device_process counts 200 samples,
     * whatever its heart mode, so the peak lies in frame sample / 200 (0 = the handle's first)
     * at offset sample % 200. The analyser finds the peak in its filtered signal, which lags the
     * input by 40 samples (200 ms); that lag is taken off. */
    int64_t sample;
    /* RR interval from the previous beat, in ms (the analyser counts 5 ms samples): 200..2000. */
    int32_t rr_ms;
    /* QRS width from onset to offset, in ms. */
    int32_t width_ms;
    /* Instantaneous heart rate, beats per minute: 12000 / (RR in samples), truncated; 0 below 30,
     * at most 300. */
    int32_t rate;
    /* The beat type as the analyser computes it: 1 regular, 2 early with a normal R amplitude,
     * 3 early with a deviating amplitude or a QRS of 120 ms or wider, 4 artefact or unreadable.
     * In running operation every beat is 4: the artefact test passes whenever its amplitude limit
     * is above 0, and the analyser sets that limit to 24000 on every frame. This is the analyser's
     * established behaviour and is kept; the type carries no information about the rhythm, and
     * the library offers no rhythm or arrhythmia classification. */
    int32_t type;
    /* Amplitude stability of the last 20 beats: 0 steady (or too little signal to judge),
     * 1 the beat amplitudes vary by more than 5 % (coefficient of variation), 2 one of them swings
     * more than 4999 filtered counts. */
    int32_t stability;
    int32_t reserved; /* 0 */
} rtm_beat;

/*
 * Copies the beats confirmed during the last rtm_device_process call, oldest first, into
 * out[0..max-1] and returns how many there were, which may exceed max: then the first max are
 * copied and a caller can tell that it missed some. Never more than RTM_BEATS_MAX; in running
 * operation at most 7 (two confirmed R peaks lie at least 31 samples apart) and usually 0, 1 or 2.
 * 0 for a NULL handle, a handle that has analysed no frame, and after a call that analysed no
 * beat; out may be NULL when max is 0. The beats are part of the handle's state: a snapshot
 * carries them, and rtm_device_load restores those of the saved handle.
 */
RTMONITOR_API size_t rtm_device_beats(const rtm_device* dev, rtm_beat* out, size_t max);

/*
 * Snapshots: the complete analysis state of a handle as bytes, to continue the device in another
 * handle, process or machine with results identical, word for word, to a device that was never
 * interrupted. A snapshot is rtm_device_state_size() bytes:
 *   bytes  0..7   magic "RTMSTATE"
 *   bytes  8..11  snapshot format version (uint32, 2; format 1, of library 0.2.0, held no beats)
 *   bytes 12..15  byte-order mark 0x01020304 (uint32, native order)
 *   bytes 16..31  library version, NUL-padded ASCII (e.g. "0.3.0")
 *   bytes 32..39  payload size in bytes (uint64)
 *   bytes 40..47  64-bit FNV-1a checksum of the header (with this field zero) and the payload
 *   bytes 48..    the payload: the analysis state of this library version and build layout,
 *                 then the handle's frame count and the beats of its last frame
 * Snapshots are refused by another library version, another format version (a format 1 snapshot
 * lacks the frame count and beats, so a device continued from it could not report its beats
 * consistently) or a build with another state layout.
 */
RTMONITOR_API size_t rtm_device_state_size(void);

/* Writes the snapshot into buf. 1 on success; 0 when an argument is NULL or len is too small. */
RTMONITOR_API int rtm_device_save(const rtm_device* dev, void* buf, size_t len);

/*
 * Replaces the handle's state with the snapshot in buf. 1 on success. 0, with the handle left
 * exactly as it was, for a NULL argument, a length other than rtm_device_state_size(), or a
 * buffer that is truncated, corrupted, from another library version or not a snapshot at all;
 * also for a state whose ring positions, counts or flags lie outside what the analysers can
 * produce (a forged payload behind a valid header), and when memory runs out.
 */
RTMONITOR_API int rtm_device_load(rtm_device* dev, const void* buf, size_t len);

/* The library version, e.g. "0.3.0" (RTMONITOR_VERSION_STRING of the built library). */
RTMONITOR_API const char* rtm_version(void);

#ifdef __cplusplus
}
#endif

/* The layout is a fixed contract with existing hosts. */
#ifdef __cplusplus
#define RTM_STATIC_ASSERT(c, m) static_assert(c, m)
#else
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
RTM_STATIC_ASSERT(sizeof(rtm_beat) == 32, "rtm_beat is one 64-bit and six 32-bit words");
#undef RTM_STATIC_ASSERT

#endif /* RTMONITOR_H */

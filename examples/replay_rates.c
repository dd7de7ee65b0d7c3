/*
 * Replays a frame file (raw 1320-byte ParamsIn records, as `rtmonitor synth` writes them) through
 * the library and prints, for every frame, the device, its second and the rates.
 * Build against an installed copy:
 *   cc replay_rates.c $(pkg-config --cflags --libs rtmonitor) -o replay_rates
 *   LD_LIBRARY_PATH=$(pkg-config --variable=libdir rtmonitor) ./replay_rates FILE.frames
 * Exit status: 0 success, 1 unreadable or truncated file, 2 usage error.
 * The records are read as they lie in the file, so this host must be little-endian like the file.
 */
#include <stdio.h>

#include "rtmonitor.h"

int main(int argc, char** argv) {
    ParamsIn in;
    ParamsOut out;
    long frames = 0;
    size_t got;
    FILE* f;
    if (argc != 2) {
        fprintf(stderr, "usage: replay_rates FILE.frames\n");
        return 2;
    }
    f = fopen(argv[1], "rb");
    if (f == NULL) {
        perror(argv[1]);
        return 1;
    }
    printf("device,second,heart_rate,heart_status,breath_rate,breath_state,posture\n");
    /* A device is registered by its first frame; its frames must come in time order. */
    while ((got = fread(&in, 1, sizeof in, f)) == sizeof in) {
        processSignal(in, &out);
        printf("%d,%d,%d,%d,%d,%d,%d\n", (int)in.nDeviceId, (int)in.nFrameSeq, (int)out.nHeartRate,
               (int)out.nHeartStatus, (int)out.nBreathRate, (int)out.nBreathState, (int)out.nPosture);
        ++frames;
    }
    fclose(f);
    if (got != 0) {
        fprintf(stderr,
                "%s: incomplete frame at byte %ld (frames are %d bytes); the %ld frames before it were replayed\n",
                argv[1], frames * (long)sizeof in, (int)sizeof in, frames);
        return 1;
    }
    if (frames == 0) {
        fprintf(stderr, "%s: no frames (empty file)\n", argv[1]);
        return 1;
    }
    return 0;
}

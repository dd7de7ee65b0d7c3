/*
 * Checks that the library found by find_package is the one the header describes, then runs
 * one device through a few quiet frames with the handle interface.
 */
#include <stdio.h>
#include <string.h>

#include "rtmonitor.h"

int main(void) {
    ParamsIn in;
    ParamsOut out;
    rtm_device* dev;
    if (strcmp(rtm_version(), RTMONITOR_VERSION_STRING) != 0) {
        fprintf(stderr, "header %s but library %s\n", RTMONITOR_VERSION_STRING, rtm_version());
        return 1;
    }
    dev = rtm_device_create();
    if (dev == NULL) return 1;
    memset(&in, 0, sizeof in);
    for (int i = 0; i < 200; ++i) in.nHeartData[i] = 512;
    for (int i = 0; i < 25; ++i) {
        in.nBreathChan1[i] = in.nBreathChan0[i] = 30000;
        in.nAccX[i] = in.nAccY[i] = 512; /* 0 g */
        in.nAccZ[i] = 640;               /* +1 g: lying on the back */
    }
    for (int s = 0; s < 5; ++s) {
        in.nFrameSeq = s;
        if (rtm_device_process(dev, &in, &out) != 1) return 1;
    }
    rtm_device_destroy(dev);
    printf("rtmonitor %s via find_package: posture %d\n", rtm_version(), (int)out.nPosture);
    return 0;
}

/* Compiled as C: proves the public header is C-compatible and drives one device through it. */
#include <string.h>

#include "rtmonitor.h"

int rtm_c_drive_device(int id) {
    ParamsIn in;
    ParamsOut out;
    int i;
    int result;
    memset(&in, 0, sizeof in);
    memset(&out, 0, sizeof out);
    in.nDeviceId = id;
    in.nHeartMode = 1;
    for (i = 0; i < 25; ++i) {
        in.nAccX[i] = 512;
        in.nAccY[i] = 512;
        in.nAccZ[i] = 640;
    }
    initDevice(id);
    result = processSignal(in, &out);
    freeDevice(id);
    return result == 1 ? out.nPosture : -1;
}

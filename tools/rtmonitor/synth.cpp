// The name the tool prints for each of the generator's activities, and how a reported posture is
// scored against the generator's truth. The generator itself is the shared rtmonitor_synth library.
#include "synth.h"

namespace rtmtool {

const char* activityName(Activity a) {
    switch (a) {
        case Activity::Supine: return "on back";
        case Activity::RightSide: return "right side";
        case Activity::LeftSide: return "left side";
        case Activity::Upright: return "upright";
        case Activity::Walking: return "walking";
    }
    return "?";
}

bool postureAgrees(int expected, int reported) {
    if (expected == 7) return reported >= 6 && reported <= 8;
    return expected == reported;
}

}  // namespace rtmtool

// Names the tool prints for the generator's activities and the library's posture classes, and
// how a reported posture is scored against the generator's truth. The generator itself is the
// shared rtmonitor_synth library.
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

const char* postureName(int cls) {
    switch (cls) {
        case 0: return "none";
        case 1: return "upright";
        case 2: return "on back";
        case 3: return "face down";
        case 4: return "right side";
        case 5: return "left side";
        case 6: return "light move";
        case 7: return "moving";
        case 8: return "vigorous";
        case 9: return "unclassified";
        default: return "other";
    }
}

bool postureAgrees(int expected, int reported) {
    if (expected == 7) return reported >= 6 && reported <= 8;
    return expected == reported;
}

}  // namespace rtmtool

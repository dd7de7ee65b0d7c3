// JSON rendering of results, for consumers that do not decode the binary record.
#include "formats/wire.h"

namespace rtmfmt {

namespace {

void appendArray(std::string& s, const char* name, const int32_t* v, int n) {
    s += ",\"";
    s += name;
    s += "\":[";
    for (int i = 0; i < n; ++i) {
        if (i) s += ',';
        s += std::to_string(v[i]);
    }
    s += ']';
}

}  // namespace

std::string resultJson(int32_t device, int32_t frameSeq, const ParamsOut& out) {
    std::string s =
        "{\"device\":" + std::to_string(device) + ",\"seq\":" + std::to_string(frameSeq) +
        ",\"heart_rate\":" + std::to_string(out.nHeartRate) + ",\"heart_status\":" + std::to_string(out.nHeartStatus) +
        ",\"breath_rate\":" + std::to_string(out.nBreathRate) +
        ",\"breath_state\":" + std::to_string(out.nBreathState) + ",\"posture\":" + std::to_string(out.nPosture);
    appendArray(s, "movement", out.nMovement, 25);
    appendArray(s, "heart_wave", out.nHeartWave, 200);
    appendArray(s, "breath_display1", out.nBreathDisplay1, 25);
    appendArray(s, "breath_display0", out.nBreathDisplay0, 25);
    s += "}";
    return s;
}

}  // namespace rtmfmt

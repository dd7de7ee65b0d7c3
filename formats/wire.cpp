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

void put32(std::vector<unsigned char>& b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<unsigned char>(v >> (8 * i)));
}
uint32_t get32(const unsigned char* p) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(p[i]) << (8 * i);
    return v;
}

}  // namespace

void encodeResultPayload(const ParamsOut& out, const rtm_beat* beats, size_t count, std::vector<unsigned char>& bytes) {
    bytes.resize(kResultBytes);
    encodeResult(out, bytes.data());
    put32(bytes, static_cast<uint32_t>(count));
    for (size_t i = 0; i < count; ++i) {
        const rtm_beat& b = beats[i];
        const size_t at = bytes.size();
        bytes.resize(at + 8);
        putU64(bytes.data() + at, static_cast<uint64_t>(b.sample));
        for (int32_t v : {b.rr_ms, b.width_ms, b.rate, b.type, b.stability, b.reserved})
            put32(bytes, static_cast<uint32_t>(v));
    }
}

bool decodeResultPayload(const unsigned char* data, size_t len, ParamsOut& out, std::vector<rtm_beat>& beats) {
    beats.clear();
    if (len < kResultBytes) return false;
    out = decodeResult(data);
    if (len == kResultBytes) return true;
    if (len < kResultBytes + 4) return false;
    const uint32_t count = get32(data + kResultBytes);
    if ((len - kResultBytes - 4) / kBeatRecordBytes != count || (len - kResultBytes - 4) % kBeatRecordBytes != 0)
        return false;
    for (uint32_t i = 0; i < count; ++i) {
        const unsigned char* p = data + kResultBytes + 4 + i * kBeatRecordBytes;
        rtm_beat b;
        b.sample = static_cast<int64_t>(getU64(p));
        int32_t* fields[] = {&b.rr_ms, &b.width_ms, &b.rate, &b.type, &b.stability, &b.reserved};
        for (int k = 0; k < 6; ++k) *fields[k] = static_cast<int32_t>(get32(p + 8 + 4 * k));
        beats.push_back(b);
    }
    return true;
}

std::string resultJson(int32_t device, int32_t frameSeq, const ParamsOut& out, const rtm_beat* beats, size_t count) {
    std::string s =
        "{\"device\":" + std::to_string(device) + ",\"seq\":" + std::to_string(frameSeq) +
        ",\"heart_rate\":" + std::to_string(out.nHeartRate) + ",\"heart_status\":" + std::to_string(out.nHeartStatus) +
        ",\"breath_rate\":" + std::to_string(out.nBreathRate) +
        ",\"breath_state\":" + std::to_string(out.nBreathState) + ",\"posture\":" + std::to_string(out.nPosture);
    appendArray(s, "movement", out.nMovement, 25);
    appendArray(s, "heart_wave", out.nHeartWave, 200);
    appendArray(s, "breath_display1", out.nBreathDisplay1, 25);
    appendArray(s, "breath_display0", out.nBreathDisplay0, 25);
    s += ",\"beats\":[";
    for (size_t i = 0; i < count; ++i) {
        const rtm_beat& b = beats[i];
        s += (i ? ",{\"sample\":" : "{\"sample\":") + std::to_string(b.sample) +
             ",\"rr_ms\":" + std::to_string(b.rr_ms) + ",\"width_ms\":" + std::to_string(b.width_ms) +
             ",\"rate\":" + std::to_string(b.rate) + ",\"type\":" + std::to_string(b.type) +
             ",\"stability\":" + std::to_string(b.stability) + "}";
    }
    s += "]}";
    return s;
}

}  // namespace rtmfmt

// Frame helpers for tests: building input frames and comparing output records word by word.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>

#include "rtmonitor.h"

namespace rtm_test {

// A quiet frame: flat ECG at 512, breath channels at 30000, device lying still on its back.
inline ParamsIn quietFrame(int id, int seq) {
    ParamsIn in;
    std::memset(&in, 0, sizeof in);
    in.nDeviceId = id;
    in.nFrameSeq = seq;
    for (int& v : in.nHeartData) v = 512;
    for (int i = 0; i < 25; ++i) {
        in.nBreathChan0[i] = 30000;
        in.nBreathChan1[i] = 30000;
        in.nAccX[i] = 512;
        in.nAccY[i] = 512;
        in.nAccZ[i] = 640;
    }
    return in;
}

// A frame of arbitrary words (apart from the id), for robustness checks.
inline ParamsIn randomFrame(int id, std::mt19937& rng) {
    ParamsIn in;
    int32_t* words = reinterpret_cast<int32_t*>(&in);
    for (std::size_t i = 0; i < sizeof in / sizeof(int32_t); ++i) words[i] = static_cast<int32_t>(rng());
    in.nDeviceId = id;
    return in;
}

inline bool sameOutput(const ParamsOut& a, const ParamsOut& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// The first word where two records differ, for failure messages.
inline int firstDifferentWord(const ParamsOut& a, const ParamsOut& b) {
    const int32_t* x = reinterpret_cast<const int32_t*>(&a);
    const int32_t* y = reinterpret_cast<const int32_t*>(&b);
    for (std::size_t i = 0; i < sizeof a / 4; ++i)
        if (x[i] != y[i]) return static_cast<int>(i);
    return -1;
}

}  // namespace rtm_test

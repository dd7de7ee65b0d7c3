// Golden-record rows: one output record reduced to its field groups (single words kept as
// numbers, arrays as a 64-bit FNV-1a hash), the text file that stores a stream of them, and the
// readable difference of two streams (first frame and field group that moved).
//
// File format: '#' comment lines, then one line per frame:
//   frame heartRate heartReserved heartStatus breathRate breathState posture wave displays movement
// with the three hashes in hex; "=" stands for the previous frame's hash of the same group.
#pragma once

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "rtmonitor.h"

namespace rtm_golden {

struct Row {
    int32_t heartRate = 0, heartReserved = 0, heartStatus = 0;
    int32_t breathRate = 0, breathState = 0, posture = 0;
    uint64_t wave = 0, displays = 0, movement = 0;
};

inline uint64_t hashWords(const int32_t* words, std::size_t n, uint64_t h = 0xCBF29CE484222325ull) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(words);
    for (std::size_t i = 0; i < n * sizeof(int32_t); ++i) h = (h ^ p[i]) * 0x100000001B3ull;
    return h;
}

inline Row summarise(const ParamsOut& out) {
    Row r;
    r.heartRate = out.nHeartRate;
    r.heartReserved = out.nHeartReserved;
    r.heartStatus = out.nHeartStatus;
    r.breathRate = out.nBreathRate;
    r.breathState = out.nBreathState;
    r.posture = out.nPosture;
    r.wave = hashWords(out.nHeartWave, 200);
    r.displays = hashWords(out.nBreathDisplay0, 25, hashWords(out.nBreathDisplay1, 25));
    r.movement = hashWords(out.nMovement, 25);
    return r;
}

inline bool writeRows(const std::string& path, const std::string& name, const std::vector<Row>& rows,
                      std::string& error) {
    const std::string tmp = path + ".tmp";
    {
        std::ofstream f(tmp);
        if (!f) {
            error = "cannot write " + tmp + ": check that the source tree is writable";
            return false;
        }
        f << "# golden record '" << name << "', " << rows.size() << " frames\n"
          << "# frame heartRate heartReserved heartStatus breathRate breathState posture wave displays movement\n";
        const Row* prev = nullptr;
        char hex[24];
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const Row& r = rows[i];
            f << i << ' ' << r.heartRate << ' ' << r.heartReserved << ' ' << r.heartStatus << ' ' << r.breathRate << ' '
              << r.breathState << ' ' << r.posture;
            const uint64_t now[3] = {r.wave, r.displays, r.movement};
            const uint64_t before[3] = {prev ? prev->wave : 0, prev ? prev->displays : 0, prev ? prev->movement : 0};
            for (int g = 0; g < 3; ++g) {
                if (prev && now[g] == before[g]) {
                    f << " =";
                } else {
                    std::snprintf(hex, sizeof hex, " %016" PRIx64, now[g]);
                    f << hex;
                }
            }
            f << '\n';
            prev = &r;
        }
        if (!f.flush()) {
            error = "write to " + tmp + " failed";
            return false;
        }
    }
    if (std::rename(tmp.c_str(), path.c_str()) != 0) {
        error = "cannot replace " + path;
        std::remove(tmp.c_str());
        return false;
    }
    return true;
}

inline bool readRows(const std::string& path, std::vector<Row>& rows, std::string& error) {
    std::ifstream f(path);
    if (!f) {
        error = "golden record " + path + " is missing; record it with RTM_GOLDEN_UPDATE=1";
        return false;
    }
    std::string line;
    int lineNo = 0;
    while (std::getline(f, line)) {
        ++lineNo;
        if (line.empty() || line[0] == '#') continue;
        std::istringstream in(line);
        std::size_t frame = 0;
        Row r;
        std::string h[3];
        if (!(in >> frame >> r.heartRate >> r.heartReserved >> r.heartStatus >> r.breathRate >> r.breathState >>
              r.posture >> h[0] >> h[1] >> h[2]) ||
            frame != rows.size()) {
            error = path + ":" + std::to_string(lineNo) + ": malformed golden row";
            return false;
        }
        uint64_t* dst[3] = {&r.wave, &r.displays, &r.movement};
        for (int g = 0; g < 3; ++g) {
            if (h[g] == "=") {
                if (rows.empty()) {
                    error = path + ":" + std::to_string(lineNo) + ": '=' on the first frame";
                    return false;
                }
                const Row& p = rows.back();
                *dst[g] = g == 0 ? p.wave : g == 1 ? p.displays : p.movement;
            } else {
                *dst[g] = std::stoull(h[g], nullptr, 16);
            }
        }
        rows.push_back(r);
    }
    return true;
}

// Empty when equal; otherwise the first frame and group that moved, what it held and now holds,
// and how many frames moved per group.
inline std::string describeDifference(const std::vector<Row>& expected, const std::vector<Row>& actual) {
    static const char* const kGroups[6] = {"heart rate/status", "heart wave", "breath displays",
                                           "breath rate/state", "movement",   "posture"};
    auto scalars = [](int32_t a, int32_t b, int32_t c) {
        return std::to_string(a) + "/" + std::to_string(b) + "/" + std::to_string(c);
    };
    auto hex = [](uint64_t v) {
        char s[20];
        std::snprintf(s, sizeof s, "%016" PRIx64, v);
        return std::string(s);
    };
    auto view = [&](const Row& r, int g) {
        switch (g) {
            case 0: return scalars(r.heartRate, r.heartReserved, r.heartStatus) + " (rate/reserved/status)";
            case 1: return "hash " + hex(r.wave);
            case 2: return "hash " + hex(r.displays);
            case 3: return std::to_string(r.breathRate) + "/" + std::to_string(r.breathState) + " (rate/state)";
            case 4: return "hash " + hex(r.movement);
            default: return std::to_string(r.posture);
        }
    };
    auto same = [](const Row& a, const Row& b, int g) {
        switch (g) {
            case 0:
                return a.heartRate == b.heartRate && a.heartReserved == b.heartReserved &&
                       a.heartStatus == b.heartStatus;
            case 1: return a.wave == b.wave;
            case 2: return a.displays == b.displays;
            case 3: return a.breathRate == b.breathRate && a.breathState == b.breathState;
            case 4: return a.movement == b.movement;
            default: return a.posture == b.posture;
        }
    };
    std::ostringstream msg;
    if (expected.size() != actual.size())
        msg << "recorded " << expected.size() << " frames, now " << actual.size() << "; ";
    const std::size_t n = expected.size() < actual.size() ? expected.size() : actual.size();
    std::size_t moved[6] = {};
    bool first = true;
    for (std::size_t i = 0; i < n; ++i) {
        for (int g = 0; g < 6; ++g) {
            if (same(expected[i], actual[i], g)) continue;
            ++moved[g];
            if (first) {
                msg << "first moved at frame " << i << ", " << kGroups[g] << ": was " << view(expected[i], g)
                    << ", now " << view(actual[i], g) << ".";
                first = false;
            }
        }
    }
    if (first && expected.size() == actual.size()) return "";
    msg << " Frames moved per group:";
    for (int g = 0; g < 6; ++g) msg << ' ' << kGroups[g] << ' ' << moved[g] << ';';
    return msg.str();
}

}  // namespace rtm_golden

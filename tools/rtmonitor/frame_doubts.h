// Signs that a file handed to replay is not a recording of frames at all (a wrong file, another
// format, random bytes): every 1320 bytes make a "frame", so the library would analyse anything.
// Watches the frames as they are replayed and names what looks wrong; the replay still runs.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "rtmonitor.h"

namespace rtmtool {

class FrameDoubts {
public:
    // Heart samples are ADC counts; no converter the library serves gives values beyond these.
    static constexpr int64_t kHeartLowest = -32768, kHeartHighest = 65535;

    void add(const ParamsIn& in);
    // One sentence per finding, empty when the frames look like a recording.
    std::vector<std::string> findings() const;

private:
    struct Seen {
        uint64_t frames = 0;
        int32_t lastSeq = 0;
    };
    // Ids beyond this many are counted but not tracked, so a file of ever new ids costs no memory.
    static constexpr size_t kTrackedDevices = 4096;

    std::map<int32_t, Seen> devices_;
    uint64_t frames_ = 0, untracked_ = 0, wildHeart_ = 0;
    uint64_t consecutive_ = 0, advancing_ = 0;  // a device's frame pairs, and those with seq + 1
};

}  // namespace rtmtool

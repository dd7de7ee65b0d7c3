// Frame-file plausibility (see frame_doubts.h). Each test needs enough frames to judge by, so a
// short genuine recording never draws a warning.
#include "frame_doubts.h"

namespace rtmtool {
namespace {

constexpr uint64_t kOnceOnlyDevices = 5;  // more than a few ids that never repeat
constexpr uint64_t kPairsToJudge = 5;     // consecutive pairs before judging the sequence numbers

std::string share(uint64_t part, uint64_t whole) { return std::to_string(part) + " of " + std::to_string(whole); }

}  // namespace

void FrameDoubts::add(const ParamsIn& in) {
    ++frames_;
    int wild = 0;
    for (int32_t v : in.nHeartData) wild += v < kHeartLowest || v > kHeartHighest;
    if (2 * wild > 200) ++wildHeart_;

    auto it = devices_.find(in.nDeviceId);
    if (it == devices_.end()) {
        if (devices_.size() >= kTrackedDevices) {
            ++untracked_;
            return;
        }
        devices_[in.nDeviceId] = Seen{1, in.nFrameSeq};
        return;
    }
    ++it->second.frames;
    ++consecutive_;
    // Sequence numbers wrap like any 32-bit counter.
    advancing_ += static_cast<uint32_t>(in.nFrameSeq) == static_cast<uint32_t>(it->second.lastSeq) + 1u;
    it->second.lastSeq = in.nFrameSeq;
}

std::vector<std::string> FrameDoubts::findings() const {
    std::vector<std::string> r;
    uint64_t once = untracked_;
    for (const auto& [id, seen] : devices_) once += seen.frames == 1;
    const uint64_t ids = devices_.size() + untracked_;
    if (once >= kOnceOnlyDevices && 2 * once > ids)
        r.push_back(share(once, ids) +
                    " device ids appear in a single frame only, where a recording has one frame "
                    "per device and second");
    if (consecutive_ >= kPairsToJudge && 10 * advancing_ < consecutive_)
        r.push_back("sequence numbers advance by one in only " + share(advancing_, consecutive_) +
                    " steps from a device's frame to its next");
    if (frames_ > 0 && 2 * wildHeart_ > frames_)
        r.push_back("heart samples lie far outside any ADC range (" + std::to_string(kHeartLowest) + ".." +
                    std::to_string(kHeartHighest) + ") in " + share(wildHeart_, frames_) + " frames");
    return r;
}

}  // namespace rtmtool

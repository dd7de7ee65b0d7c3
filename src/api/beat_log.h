// The beats a handle reports: what the heart analyser took into its beat history during the last
// frame, with each R peak placed as an input sample index (200 samples/s, counted from the
// handle's first frame). The analyser keeps peaks only as positions in its 4000-sample rings, so
// the handle layer compares the analyser's candidate and beat rings before and after each frame;
// the analyser itself is not changed. Everything here is part of the handle's snapshot.
#pragma once

#include <cstdint>

#include "rtmonitor.h"
#include "rtmonitor/CBeatMeasure.h"

namespace rtm {

// The analyser's filtered ring lags the input by this many samples: 25 for the centre of the
// 51-sample median window, 1 for the three-sample mean, 14 for the centre of the 29-tap low-pass.
constexpr int kFilterLagSamples = 40;

// Ring positions the analyser wrote in recent frames: enough to place any position still in its
// rings, across frames that wrote nothing (heart modes other than 0).
constexpr int kWriteHistory = CBeatMeasure::kRingLength / 200;

// Plain words only, laid out without padding: the snapshot copies it byte for byte.
struct BeatLog {
    int64_t frames;                                     // frames given to the handle so far
    int64_t candidateSample[CBeatMeasure::kBeatSlots];  // input sample of each candidate's R peak
    int64_t writeFrame[kWriteHistory];                  // frame index of each recent writing frame
    int32_t writeEnd[kWriteHistory];                    // ring position of that frame's last sample
    int32_t writes;                                     // valid entries of the two above, 0..20
    int32_t writePos;                                   // where the next entry goes, 0..19
    int32_t count;                                      // beats of the last frame, 0..20
    int32_t reserved;                                   // 0
    rtm_beat beats[RTM_BEATS_MAX];                      // the last frame's beats, oldest first
};
static_assert(sizeof(BeatLog) == 8 + 8 * 20 + 8 * 20 + 4 * 20 + 16 + 32 * 20, "BeatLog has no padding");

// What the beat log compares across one frame.
struct HeartMarks {
    int ringPos;
    int candidateHead;
    int candidatePos;
    int beatRingPos;
};

HeartMarks markHeart(const CBeatMeasure& m);

// After one frame of the handle (`before` taken just ahead of it): counts the frame, stamps the
// candidates the analyser accepted with their input sample, and records the beats it took into
// its history.
void logFrameBeats(BeatLog& log, const HeartMarks& before, const CBeatMeasure& m);

// False for a log the handle could not have written (counts outside their arrays, a frame
// count beyond what 64-bit sample indexes hold).
bool beatLogWithinBounds(const BeatLog& log);

}  // namespace rtm

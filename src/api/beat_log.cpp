// The beats of a handle's last frame, read from the heart analyser's rings after the frame.
// A candidate beat's R peak is stamped with its input sample when the analyser accepts the
// candidate (its ring position is then at most a few seconds old); the beat is reported when the
// analyser finishes the candidate and stores the beat in stBeatRing, which can be much later.
#include "api/beat_log.h"

#include <algorithm>

#include "common/exact_math.h"
#include "heart/ring.h"

namespace rtm {
namespace {

using heart::ringAt;
using heart::ringDistance;
using heart::slotAt;

constexpr int kSamplesPerFrame = 200;
constexpr int kSlots = CBeatMeasure::kBeatSlots;
constexpr int kMsPerSample = 5;

// Frames beyond this would take a sample index past 2^62: some 700 million years of frames.
constexpr int64_t kMaxFrames = (INT64_C(1) << 62) / kSamplesPerFrame;

bool within(int64_t v, int64_t lo, int64_t hi) { return v >= lo && v <= hi; }

// The input sample whose filtered value the analyser wrote at ring position `pos`.
int64_t inputSample(const BeatLog& log, int pos) {
    const int q = ringAt(pos, -kFilterLagSamples);
    int entry = log.writePos;
    int distance = 0;
    for (int k = 0; k < log.writes; ++k) {
        entry = entry == 0 ? kWriteHistory - 1 : entry - 1;
        distance = ringDistance(q, log.writeEnd[entry]);
        if (distance < kSamplesPerFrame) break;
    }
    if (log.writes == 0) return 0;
    // A position older than every entry (the rings hold 20 s) is placed by the oldest entry.
    return log.writeFrame[entry] * kSamplesPerFrame + (kSamplesPerFrame - 1) - distance;
}

void noteWrite(BeatLog& log, int64_t frame, int endPos) {
    const int at = static_cast<int>(heart::wrapModulo(log.writePos, kWriteHistory));
    log.writeFrame[at] = frame;
    log.writeEnd[at] = endPos;
    log.writePos = at == kWriteHistory - 1 ? 0 : at + 1;
    log.writes = std::min(log.writes + 1, kWriteHistory);
}

rtm_beat toBeat(const BeatMeasure& b, int64_t sample) {
    rtm_beat out{};
    out.sample = sample;
    out.rr_ms = wrapMul32(b.nRRInterval, kMsPerSample);
    out.width_ms = wrapMul32(b.nQrsWidth, kMsPerSample);
    out.rate = b.nHeartRate;
    out.type = b.nBeatType;
    out.stability = b.nStability;
    out.reserved = 0;
    return out;
}

}  // namespace

HeartMarks markHeart(const CBeatMeasure& m) {
    return HeartMarks{m.nRingPos, slotAt(m.nCandidateHead), slotAt(m.nCandidatePos), slotAt(m.nBeatRingPos)};
}

void logFrameBeats(BeatLog& log, const HeartMarks& before, const CBeatMeasure& m) {
    const int64_t frame = log.frames;
    log.frames = std::min(log.frames + 1, kMaxFrames);
    log.count = 0;
    if (m.nRingPos == -1) {
        // The analyser restarted (heart mode 1 or a flat packet): its rings and candidates are
        // blank, and nothing was detected in this frame.
        log.writes = 0;
        log.writePos = 0;
        return;
    }
    // A frame that wrote no samples (a heart mode other than 0) ran no detection either.
    if (m.nRingPos == before.ringPos) return;
    noteWrite(log, frame, ringAt(m.nRingPos));

    // Candidates accepted in this frame: the head moved over them.
    const int accepted =
        heart::wrapModulo(static_cast<int64_t>(slotAt(m.nCandidateHead)) - before.candidateHead, kSlots);
    for (int k = 1; k <= accepted; ++k) {
        const int s = slotAt(before.candidateHead, k);
        log.candidateSample[s] = inputSample(log, m.stCandidateRing[s].nPosition);
    }

    // Candidates finished in this frame, in order; GetBeatResult keeps those with a rate of 0 or
    // more, and the driver stores each kept one in stBeatRing.
    int finished[kSlots];
    int kept = 0;
    const int passed = heart::wrapModulo(static_cast<int64_t>(slotAt(m.nCandidatePos)) - before.candidatePos, kSlots);
    for (int k = 0; k < passed; ++k) {
        const int s = slotAt(before.candidatePos, k);
        if (m.stCandidateRing[s].nHeartRate >= 0) finished[kept++] = s;
    }
    // The beats that advanced the history; the first after a restart only held its slot for the
    // second, so it is the newest `stored` of the kept ones that the history holds.
    const int stored =
        m.nBeatRingStarted == 0
            ? 0
            : heart::wrapModulo(static_cast<int64_t>(slotAt(m.nBeatRingPos)) - before.beatRingPos, kSlots);
    const int n = std::min(stored, kept);
    for (int j = 0; j < n; ++j) {
        const BeatMeasure& b = m.stBeatRing[slotAt(m.nBeatRingPos, j - n)];
        log.beats[j] = toBeat(b, log.candidateSample[finished[kept - n + j]]);
    }
    log.count = n;
}

bool beatLogWithinBounds(const BeatLog& log) {
    if (!within(log.frames, 0, kMaxFrames)) return false;
    if (!within(log.writes, 0, kWriteHistory) || !within(log.writePos, 0, kWriteHistory - 1)) return false;
    if (!within(log.count, 0, RTM_BEATS_MAX)) return false;
    for (int k = 0; k < kWriteHistory; ++k) {
        if (!within(log.writeFrame[k], 0, kMaxFrames)) return false;
    }
    return true;
}

}  // namespace rtm

// Golden record: the per-frame outputs of the frame pipeline on the shared recordings and on
// seeded synthetic streams (normal, disturbed, extreme words, restarts, sequence gaps, several
// interleaved devices), stored compactly under tests/golden/*.golden: per frame the single-word
// results as numbers and a 64-bit FNV-1a hash of each array group. Any moved word fails with the
// first frame and field group that differ. Speed work must leave every record untouched.
//
// To re-record after a deliberate, explained change of the outputs:
//   RTM_GOLDEN_UPDATE=1 build/tests/test_golden
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "golden/golden_rows.h"
#include "rtmonitor.h"
#include "support/frames.h"
#include "synth/vitals.h"

namespace {

using rtm_golden::Row;
using rtm_synth::DeviceRecording;
using rtm_synth::Segment;

std::string goldenPath(const std::string& name) {
    return std::string(RTM_SOURCE_DIR) + "/tests/golden/" + name + ".golden";
}

// Compares (or, with RTM_GOLDEN_UPDATE=1, re-records) one stream's rows.
void checkAgainstGolden(const std::string& name, const std::vector<Row>& actual) {
    const std::string path = goldenPath(name);
    const char* update = std::getenv("RTM_GOLDEN_UPDATE");
    if (update && std::string(update) == "1") {
        std::string error;
        ASSERT_TRUE(rtm_golden::writeRows(path, name, actual, error)) << error;
        GTEST_SKIP() << "re-recorded " << path << " (" << actual.size() << " frames)";
    }
    std::vector<Row> expected;
    std::string error;
    ASSERT_TRUE(rtm_golden::readRows(path, expected, error)) << error;
    const std::string diff = rtm_golden::describeDifference(expected, actual);
    EXPECT_TRUE(diff.empty()) << name << ": " << diff;
}

// One device created fresh, fed `frames`, and dropped again.
std::vector<Row> runFrames(const std::vector<ParamsIn>& frames) {
    std::vector<Row> rows;
    rows.reserve(frames.size());
    for (const ParamsIn& in : frames) freeDevice(in.nDeviceId);
    for (const ParamsIn& in : frames) {
        ParamsOut out;
        processSignal(in, &out);
        rows.push_back(rtm_golden::summarise(out));
    }
    for (const ParamsIn& in : frames) freeDevice(in.nDeviceId);
    return rows;
}

void checkRecording(const std::string& record) {
    const std::string path = std::string(RTM_DATA_DIR) + "/" + record + ".frames";
    std::ifstream file(path, std::ios::binary);
    if (!file) GTEST_SKIP() << path << " is absent (../shared/data next to the repository); recording skipped";
    std::vector<ParamsIn> frames;
    ParamsIn in;
    while (file.read(reinterpret_cast<char*>(&in), sizeof in)) frames.push_back(in);
    ASSERT_FALSE(frames.empty()) << path << " holds no whole frame";
    checkAgainstGolden("rec_" + record, runFrames(frames));
}

TEST(GoldenRecord, Record100) { checkRecording("100"); }
TEST(GoldenRecord, Record03700181) { checkRecording("03700181"); }
TEST(GoldenRecord, RecordV102s) { checkRecording("v102s"); }

constexpr int kStreamFrames = 420;

// The wearer's posture and gait drawn over the accelerometer of a frame: lying on the back,
// either side, upright, walking, or turning over.
void setActivity(ParamsIn& f, int activity, int second, rtm_synth::Rng& rng) {
    static const int kGravity[4][3] = {{535, 517, 637}, {527, 635, 540}, {527, 389, 540}, {636, 517, 538}};
    for (int i = 0; i < 25; ++i) {
        const double t = second + i / 25.0;
        if (activity < 4) {
            for (int a = 0; a < 3; ++a)
                (&f.nAccX[0] + 25 * a)[i] = kGravity[activity][a] + static_cast<int>(rng.next() % 3) - 1;
        } else if (activity == 4) {
            f.nAccX[i] = 636 + static_cast<int>(70.0 * std::sin(rtm_synth::kTwoPi * 1.8 * t) + 20.0 * rng.gauss());
            f.nAccY[i] = 517 + static_cast<int>(30.0 * rng.gauss());
            f.nAccZ[i] = 538 + static_cast<int>(60.0 * std::sin(rtm_synth::kTwoPi * 3.6 * t));
        } else {
            const double a = rtm_synth::kTwoPi * (i / 25.0) / 4.0;
            f.nAccX[i] = 512 + static_cast<int>(20.0 * rng.gauss());
            f.nAccY[i] = 512 + static_cast<int>(128.0 * std::sin(a));
            f.nAccZ[i] = 512 + static_cast<int>(128.0 * std::cos(a));
        }
    }
}

TEST(GoldenRecord, NormalWearerChangingPosture) {
    DeviceRecording rec(21, 1001, 68.0, 14.0);
    rtm_synth::Rng rng(77);
    std::vector<ParamsIn> frames(kStreamFrames);
    for (int s = 0; s < kStreamFrames; ++s) {
        rec.ecg().setRate(60.0 + 25.0 * std::sin(s / 60.0));
        rec.resp().setRate(12.0 + 5.0 * std::sin(s / 45.0));
        rec.fill(frames[s], Segment::Clean);
        setActivity(frames[s], (s / 50) % 6, s, rng);
    }
    checkAgainstGolden("normal", runFrames(frames));
}

TEST(GoldenRecord, DisturbedSensor) {
    static const Segment kPlan[] = {Segment::Clean, Segment::Noisy,     Segment::Clean, Segment::Flat,
                                    Segment::Clean, Segment::OverRange, Segment::Noisy, Segment::Dead};
    DeviceRecording rec(22, 2002, 95.0, 19.0);
    std::vector<ParamsIn> frames(kStreamFrames);
    for (int s = 0; s < kStreamFrames; ++s) {
        // Segments of uneven length so every analysis sees each disturbance start and end.
        rec.fill(frames[s], kPlan[(s / 23 + s / 61) % 8]);
    }
    checkAgainstGolden("disturbed", runFrames(frames));
}

TEST(GoldenRecord, ExtremeWords) {
    DeviceRecording rec(23, 3003, 150.0, 30.0);
    std::mt19937 words(3003);
    std::vector<ParamsIn> frames(kStreamFrames);
    for (int s = 0; s < kStreamFrames; ++s) {
        ParamsIn& f = frames[s];
        rec.fill(f, Segment::Clean);
        const int kind = (s / 7) % 6;
        if (kind == 1) {  // every word at one end of the range
            const int32_t v = (s % 2) ? INT32_MAX : INT32_MIN;
            for (int32_t& w : f.nHeartData) w = v;
            for (int i = 0; i < 25; ++i)
                f.nBreathChan1[i] = f.nBreathChan0[i] = f.nAccX[i] = f.nAccY[i] = f.nAccZ[i] = v;
        } else if (kind == 3) {  // arbitrary words, id and numbering kept
            const int32_t seq = f.nFrameSeq;
            f = rtm_test::randomFrame(23, words);
            f.nFrameSeq = seq;
        } else if (kind == 5) {  // alternating extremes sample by sample
            for (int i = 0; i < 200; ++i) f.nHeartData[i] = (i % 2) ? INT32_MAX : INT32_MIN;
            for (int i = 0; i < 25; ++i) {
                f.nBreathChan1[i] = (i % 2) ? 65535 : 0;
                f.nAccX[i] = f.nAccZ[i] = (i % 2) ? INT32_MAX : INT32_MIN;
                f.nAccY[i] = (i % 3) ? 1023 : 0;
            }
        }
    }
    checkAgainstGolden("extreme", runFrames(frames));
}

// Host restarts: heart-analysis restart and skip modes, re-registration of a live device, and a
// device dropped and re-created by its next frame.
TEST(GoldenRecord, Restarts) {
    DeviceRecording rec(24, 4004, 72.0, 16.0);
    std::vector<Row> rows;
    freeDevice(24);
    for (int s = 0; s < kStreamFrames; ++s) {
        ParamsIn f;
        rec.fill(f, (s / 40) % 3 == 2 ? Segment::Noisy : Segment::Clean);
        if (s % 97 == 50) f.nHeartMode = 1;
        if (s >= 130 && s < 136) f.nHeartMode = (s % 2) ? 2 : -7;
        if (s % 150 == 75) initDevice(24);
        if (s == 260) freeDevice(24);
        ParamsOut out;
        processSignal(f, &out);
        rows.push_back(rtm_golden::summarise(out));
    }
    freeDevice(24);
    checkAgainstGolden("restarts", rows);
}

TEST(GoldenRecord, SequenceGaps) {
    DeviceRecording rec(25, 5005, 80.0, 11.0);
    std::vector<ParamsIn> frames(kStreamFrames);
    int32_t seq = 1000;
    for (int s = 0; s < kStreamFrames; ++s) {
        rec.fill(frames[s], Segment::Clean);
        if (s % 53 == 17) seq += 4;          // frames lost on the link
        else if (s % 71 == 30) seq -= 1;     // a repeated number
        else if (s % 89 == 44) seq -= 20;    // numbering went backwards
        else if (s == 300) seq = INT32_MAX;  // the counter wraps
        frames[s].nFrameSeq = seq;
        seq = static_cast<int32_t>(static_cast<uint32_t>(seq) + 1u);  // wraps past INT32_MAX
        if (seq == INT32_MIN + 2) seq = 0;
    }
    checkAgainstGolden("gaps", runFrames(frames));
}

TEST(GoldenRecord, InterleavedDevices) {
    const int32_t ids[] = {0, -1, 31, INT32_MAX, 123456};
    std::vector<DeviceRecording> recs;
    for (int d = 0; d < 5; ++d) recs.emplace_back(ids[d], 6006 + d, 55.0 + 20.0 * d, 9.0 + 4.0 * d);
    rtm_synth::Rng pick(6006), acc(6007);
    std::vector<ParamsIn> frames;
    for (int k = 0; k < 5 * 240; ++k) {
        const int d = static_cast<int>(pick.next() % 5);
        ParamsIn f;
        recs[d].fill(f, (k / 90 + d) % 4 == 3 ? Segment::Noisy : Segment::Clean);
        setActivity(f, (k / 100 + d) % 6, k, acc);
        frames.push_back(f);
    }
    checkAgainstGolden("devices", runFrames(frames));
}

}  // namespace

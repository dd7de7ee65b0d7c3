// Beats from handles: each frame's rtm_device_beats equals, beat for beat, what the heart
// analyser took into its beat history during that frame (read here from a device record run
// beside the handle, with its own simple placement of the R peaks); beats continue identically
// across snapshots; and on synthetic streams the reported R peaks land on the generated ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "api/beat_log.h"
#include "registry/device_record.h"
#include "support/streams.h"
#include "synth/recording.h"

namespace {

using rtm_test::Handle;
using rtm_test::makeHandle;
using Bytes = std::vector<unsigned char>;

std::vector<rtm_beat> beatsOf(const rtm_device* dev) {
    std::vector<rtm_beat> out(RTM_BEATS_MAX);
    const std::size_t n = rtm_device_beats(dev, out.data(), out.size());
    out.resize(std::min<std::size_t>(n, RTM_BEATS_MAX));
    return out;
}

bool sameBeat(const rtm_beat& a, const rtm_beat& b) {
    return a.sample == b.sample && a.rr_ms == b.rr_ms && a.width_ms == b.width_ms && a.rate == b.rate &&
           a.type == b.type && a.stability == b.stability && a.reserved == b.reserved;
}

std::string describe(const rtm_beat& b) {
    return "{sample " + std::to_string(b.sample) + ", rr " + std::to_string(b.rr_ms) + " ms, width " +
           std::to_string(b.width_ms) + " ms, rate " + std::to_string(b.rate) + ", type " + std::to_string(b.type) +
           ", stability " + std::to_string(b.stability) + "}";
}

// The reference: a device record run through the same frames, read directly. In a stream where
// every frame is analysed (heart mode 0, as in the shared recordings) ring position p of frame k
// holds input sample 200 k + offset, offset counted back from the frame's last position.
struct WhiteBox {
    std::unique_ptr<UserDataStruct> record{new UserDataStruct()};
    std::vector<long long> candidateSample = std::vector<long long>(CBeatMeasure::kBeatSlots, 0);
    long long frame = 0;

    WhiteBox() { rtm::resetDeviceRecord(*record, 0); }

    long long placed(const CBeatMeasure& m, int pos) const {
        const int back = ((m.nRingPos - pos + rtm::kFilterLagSamples) % 4000 + 4000) % 4000;
        return frame * 200 + 199 - back;
    }

    // The beats of one frame: the stored records that advanced stBeatRing, each with the R peak
    // of the candidate it was made from.
    std::vector<rtm_beat> step(ParamsIn in) {
        ParamsOut out{};
        const CBeatMeasure& m = record->cBeatMeasure;
        const int head0 = m.nCandidateHead, pos0 = m.nCandidatePos, ring0 = m.nBeatRingPos;
        rtm::analyseFrame(*record, in, &out);
        for (int s = head0; s != m.nCandidateHead;) {
            s = (s + 1) % 20;
            candidateSample[s] = placed(m, m.stCandidateRing[s].nPosition);
        }
        std::vector<int> finished;
        for (int s = pos0; s != m.nCandidatePos; s = (s + 1) % 20) {
            if (m.stCandidateRing[s].nHeartRate >= 0) finished.push_back(s);
        }
        const int stored = (m.nBeatRingPos - ring0 + 20) % 20;
        std::vector<rtm_beat> beats;
        for (int j = 0; j < stored; ++j) {
            const BeatMeasure& b = m.stBeatRing[(ring0 + j) % 20];
            rtm_beat r{};
            r.sample = candidateSample[finished[finished.size() - stored + j]];
            r.rr_ms = b.nRRInterval * 5;
            r.width_ms = b.nQrsWidth * 5;
            r.rate = b.nHeartRate;
            r.type = b.nBeatType;
            r.stability = b.nStability;
            beats.push_back(r);
        }
        ++frame;
        return beats;
    }
};

TEST(Beats, EachFrameReportsTheBeatsTheAnalyserStoredOnTheRecordings) {
    int recordings = 0;
    for (const char* name : {"100", "03700181", "v102s"}) {
        const std::vector<ParamsIn> frames = rtm_test::recording(name);
        if (frames.empty()) {
            std::printf("skipped %s: %s/%s.frames is missing\n", name, RTM_DATA_DIR, name);
            continue;
        }
        ++recordings;
        Handle dev = makeHandle();
        WhiteBox ref;
        std::size_t total = 0, most = 0;
        for (std::size_t k = 0; k < frames.size(); ++k) {
            ParamsOut o;
            ASSERT_EQ(rtm_device_process(dev.get(), &frames[k], &o), 1);
            const std::vector<rtm_beat> got = beatsOf(dev.get());
            const std::vector<rtm_beat> want = ref.step(frames[k]);
            ASSERT_EQ(got.size(), want.size()) << name << " frame " << k;
            for (std::size_t j = 0; j < got.size(); ++j) {
                ASSERT_TRUE(sameBeat(got[j], want[j])) << name << " frame " << k << " beat " << j << ": "
                                                       << describe(got[j]) << " vs " << describe(want[j]);
                // Oldest first, each R peak before the end of the frame that reports it.
                if (j > 0) {
                    EXPECT_GT(got[j].sample, got[j - 1].sample);
                }
                EXPECT_LT(got[j].sample, static_cast<long long>(k + 1) * 200);
                EXPECT_EQ(got[j].type, 4) << "in running operation every beat is typed as an artefact";
            }
            total += got.size();
            most = std::max(most, got.size());
        }
        EXPECT_GT(total, frames.size() / 2) << name;
        EXPECT_LE(most, 7u) << name;
        std::printf("%s: %zu beats in %zu frames, at most %zu in one frame\n", name, total, frames.size(), most);
    }
    if (recordings == 0) GTEST_SKIP() << "none of the shared recordings is in " << RTM_DATA_DIR;
}

// Detected R peaks (input samples) against reference ones, paired one to one within `window`
// samples, nearest first in time order.
struct Match {
    std::size_t matched = 0, detected = 0, reference = 0;
    std::vector<long long> offsets;  // detected minus reference, of the matched pairs
    double sensitivity() const { return reference == 0 ? 0.0 : static_cast<double>(matched) / reference; }
    double predictivity() const { return detected == 0 ? 0.0 : static_cast<double>(matched) / detected; }
    long long medianOffset() {
        std::sort(offsets.begin(), offsets.end());
        return offsets.empty() ? 0 : offsets[offsets.size() / 2];
    }
};

Match match(const std::vector<long long>& detected, const std::vector<long long>& reference, long long window) {
    Match m;
    m.detected = detected.size();
    m.reference = reference.size();
    std::size_t r = 0;
    for (long long d : detected) {
        while (r < reference.size() && reference[r] < d - window) ++r;
        if (r == reference.size()) break;
        if (std::llabs(reference[r] - d) > window) continue;
        // The next detection may sit closer to this reference beat: leave it to that one.
        m.offsets.push_back(d - reference[r]);
        ++m.matched;
        ++r;
    }
    return m;
}

std::vector<long long> runBeats(const std::vector<ParamsIn>& frames) {
    Handle dev = makeHandle();
    std::vector<long long> samples;
    for (const ParamsIn& f : frames) {
        ParamsOut o;
        rtm_device_process(dev.get(), &f, &o);
        for (const rtm_beat& b : beatsOf(dev.get())) samples.push_back(b.sample);
    }
    return samples;
}

constexpr long long kWindowSamples = 30;  // 150 ms, the usual beat-matching window

// Record 100 against its annotations: the R peaks lie on the annotated ones (the filter lag is
// taken off), and the analyser finds nearly all of them; 2,202 beats against 2,272 annotated.
TEST(Beats, Record100BeatsLieOnTheAnnotatedOnes) {
    const std::vector<ParamsIn> frames = rtm_test::recording("100");
    std::ifstream annotations(std::string(RTM_DATA_DIR) + "/100.beats.csv");
    if (frames.empty() || !annotations) GTEST_SKIP() << RTM_DATA_DIR << "/100.frames or 100.beats.csv is missing";
    std::vector<long long> reference;
    std::string line;
    std::getline(annotations, line);  // sample200,time_s,frame,code,label
    while (std::getline(annotations, line)) reference.push_back(std::stoll(line.substr(0, line.find(','))));
    Match m = match(runBeats(frames), reference, kWindowSamples);
    std::printf("record 100: %zu detected, %zu annotated, %zu matched, median offset %lld samples\n", m.detected,
                m.reference, m.matched, m.medianOffset());
    EXPECT_EQ(m.detected, 2202u);
    EXPECT_GT(m.sensitivity(), 0.96);
    EXPECT_GT(m.predictivity(), 0.995);
    EXPECT_LE(std::llabs(m.medianOffset()), 2);
}

// Synthetic streams with known R peaks, with a frame the heart analysis skips (mode 3), a heart
// restart (mode 1) and a sequence jump: every reported peak lies within 150 ms of a generated one,
// and the analyser finds nearly every beat outside the restarts.
TEST(Beats, RPeaksLieOnTheGeneratedOnes) {
    for (uint32_t seed : {3u, 8u, 21u}) {
        rtm_synth::SynthOptions options;
        options.seconds = 300;
        options.seed = seed;
        rtm_synth::Recording rec = rtm_synth::synthesize(options);
        rec.frames[90].nHeartMode = 3;
        rec.frames[150].nHeartMode = 1;
        for (std::size_t k = 200; k < rec.frames.size(); ++k) rec.frames[k].nFrameSeq += 5;
        std::vector<long long> truth;
        for (double t : rec.beatTimes) truth.push_back(std::llround(t * 200.0));
        const std::vector<long long> detected = runBeats(rec.frames);
        Match m = match(detected, truth, kWindowSamples);
        std::printf("seed %u: %zu detected, %zu generated, %zu matched, median offset %lld samples\n", seed, m.detected,
                    m.reference, m.matched, m.medianOffset());
        EXPECT_EQ(m.matched, m.detected) << "seed " << seed << ": every reported beat is a generated one";
        EXPECT_GT(m.sensitivity(), 0.93) << "seed " << seed;
        EXPECT_LE(std::llabs(m.medianOffset()), 3) << "seed " << seed;
    }
}

// A handle loaded from a snapshot reports the saved frame's beats and then the same beats, frame
// for frame, as the handle that was never interrupted: saved at every 17th frame of a stream
// with restarts, skipped frames and sequence jumps, and of record 100 when it is present.
TEST(Beats, BeatsContinueAcrossSnapshots) {
    std::vector<std::vector<ParamsIn>> streams = {rtm_test::disturbedStream(4, 17, 360)};
    std::vector<ParamsIn> rec100 = rtm_test::recording("100");
    if (rec100.size() > 400) streams.emplace_back(rec100.begin(), rec100.begin() + 400);
    for (std::size_t n = 0; n < streams.size(); ++n) {
        const std::vector<ParamsIn>& frames = streams[n];
        Handle whole = makeHandle();
        Handle resumed = makeHandle();
        Bytes snapshot(rtm_device_state_size());
        std::size_t compared = 0;
        for (std::size_t k = 0; k < frames.size(); ++k) {
            if (k % 17 == 0) {
                ASSERT_EQ(rtm_device_save(whole.get(), snapshot.data(), snapshot.size()), 1);
                resumed = makeHandle();
                ASSERT_EQ(rtm_device_load(resumed.get(), snapshot.data(), snapshot.size()), 1);
                const std::vector<rtm_beat> a = beatsOf(whole.get()), b = beatsOf(resumed.get());
                ASSERT_EQ(a.size(), b.size()) << "stream " << n << ": right after loading at frame " << k;
                for (std::size_t j = 0; j < a.size(); ++j) ASSERT_TRUE(sameBeat(a[j], b[j]));
            }
            ParamsOut o1{}, o2{};
            rtm_device_process(whole.get(), &frames[k], &o1);
            rtm_device_process(resumed.get(), &frames[k], &o2);
            const std::vector<rtm_beat> a = beatsOf(whole.get()), b = beatsOf(resumed.get());
            ASSERT_EQ(a.size(), b.size()) << "stream " << n << " frame " << k;
            for (std::size_t j = 0; j < a.size(); ++j) {
                ASSERT_TRUE(sameBeat(a[j], b[j]))
                    << "stream " << n << " frame " << k << ": " << describe(a[j]) << " vs " << describe(b[j]);
            }
            compared += a.size();
        }
        EXPECT_GT(compared, frames.size() / 2) << "stream " << n << " has too few beats to show anything";
    }
}

TEST(Beats, TheCountComesBackWhateverTheBufferHolds) {
    EXPECT_EQ(rtm_device_beats(nullptr, nullptr, 0), 0u);
    Handle dev = makeHandle();
    EXPECT_EQ(rtm_device_beats(dev.get(), nullptr, 0), 0u) << "a fresh handle has no beats";
    // Feed until a frame reports two beats, then ask with room for one.
    const std::vector<ParamsIn> frames = rtm_test::disturbedStream(2, 75, 400);  // 125 beats/min
    for (const ParamsIn& f : frames) {
        ParamsOut o;
        rtm_device_process(dev.get(), &f, &o);
        if (rtm_device_beats(dev.get(), nullptr, 0) >= 2) break;
    }
    const std::size_t n = rtm_device_beats(dev.get(), nullptr, 0);
    ASSERT_GE(n, 2u) << "no frame of the stream reported two beats";
    rtm_beat all[RTM_BEATS_MAX];
    ASSERT_EQ(rtm_device_beats(dev.get(), all, RTM_BEATS_MAX), n);
    rtm_beat one[2];
    one[1].sample = -7;
    EXPECT_EQ(rtm_device_beats(dev.get(), one, 1), n);
    EXPECT_TRUE(sameBeat(one[0], all[0])) << "the oldest beat comes first";
    EXPECT_EQ(one[1].sample, -7) << "nothing is written past max";
    // A frame the heart analysis skips reports no beats.
    ParamsIn skip = frames.back();
    skip.nHeartMode = 3;
    ParamsOut o;
    rtm_device_process(dev.get(), &skip, &o);
    EXPECT_EQ(rtm_device_beats(dev.get(), all, RTM_BEATS_MAX), 0u);
}

}  // namespace

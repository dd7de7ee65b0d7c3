// Recording -> frames without the command line: the documented scales land in the frame words
// exactly (ECG, accelerometer, respiration normalisation, clipping, invalid samples held), missing
// channels are substituted as stated, and rate conversion streams with the same result in any
// chunking and no delay.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "formats/record_source.h"
#include "formats/resample.h"
#include "support/tool_runner.h"

namespace {

using namespace rtmfmt;
using tooltest::put16;

class ConversionTest : public tooltest::ToolTest {
protected:
    void write(const std::string& name, const std::string& bytes) const { tooltest::writeFile(path(name), bytes); }
    std::vector<ParamsIn> readAll(RecordSource& s) {
        std::vector<ParamsIn> frames;
        ParamsIn f;
        std::string error;
        while (s.next(f, error)) frames.push_back(f);
        EXPECT_EQ(error, "");
        return frames;
    }
};

// 25 frames/s: ECG 8 samples per frame (200/s) in uV, respiration and three accelerometer axes
// one each (25/s), all format 16 in one file. Rates need no conversion, so values are exact.
TEST_F(ConversionTest, NativeRatesLandInTheFrameWordsWithTheDocumentedScales) {
    const int seconds = 30, frames = 25 * seconds;
    std::string dat;
    std::vector<int> ecg;
    for (int n = 0; n < frames; ++n) {
        for (int k = 0; k < 8; ++k) {
            const int i = n * 8 + k;
            int v = (i * 37) % 2001 - 1000;  // uV, -1 .. +1 mV
            if (i == 5) v = 3000;            // 3 mV: clipped to 1023
            if (i == 6) v = -32768;          // invalid: holds the 3 mV before it
            ecg.push_back(v);
            put16(dat, v);
        }
        // Respiration: a square wave of 10-s period between -300 and +500, so every 10-s window
        // swings 800 units around a centre of 100.
        put16(dat, (n / 125) % 2 ? 500 : -300);
        put16(dat, 250);                                       // x: 0.25 g in mg
        put16(dat, -1000);                                     // y: -1 g
        put16(dat, static_cast<int>(std::lround(981 * 0.5)));  // z: 4.905 m/s^2 in cm/s^2 = 0.5 g
    }
    write("r.dat", dat);
    write("r.hea", "r 5 25 " + std::to_string(frames) +
                       "\nr.dat 16x8 1/uV 16 0 0 0 0 ECG lead II\nr.dat 16 1/NU 16 0 0 0 0 Resp (chest)\n"
                       "r.dat 16 1000/g 16 0 0 0 0 Acc X\nr.dat 16 1/mg 16 0 0 0 0 Acc Y\n"
                       "r.dat 16 100/m/s^2 16 0 0 0 0 Acc Z\n");
    RecordSource source;
    std::string error;
    ASSERT_TRUE(source.open(path("r.hea"), {"", "", "", 7}, error)) << error;
    const auto out = readAll(source);
    ASSERT_EQ(out.size(), static_cast<size_t>(seconds));
    for (size_t s = 0; s < out.size(); ++s) {
        EXPECT_EQ(out[s].nDeviceId, 7);
        EXPECT_EQ(out[s].nFrameSeq, static_cast<int32_t>(s));
        EXPECT_EQ(out[s].nHeartMode, 0);
        for (int i = 0; i < 200; ++i) {
            const int v = ecg[s * 200 + static_cast<size_t>(i)];
            int expected = 512 + static_cast<int>(std::lround(v / 1000.0 * 200));
            if (s == 0 && (i == 5 || i == 6)) expected = 1023;
            ASSERT_EQ(out[s].nHeartData[i], expected) << "second " << s << " sample " << i;
        }
        for (int i = 0; i < 25; ++i) {
            EXPECT_EQ(out[s].nAccX[i], 512 + 32);
            EXPECT_EQ(out[s].nAccY[i], 512 - 128);
            EXPECT_EQ(out[s].nAccZ[i], 512 + 64);
            // 800 units of swing become 2000 counts around 30000: -300 -> 29000, 500 -> 31000.
            EXPECT_EQ(out[s].nBreathChan1[i], (s / 5) % 2 ? 31000 : 29000) << "second " << s;
            EXPECT_EQ(out[s].nBreathChan0[i], out[s].nBreathChan1[i]);
        }
    }
    const std::string notes = source.notes()[0] + "|" + source.notes()[1] + "|" + source.notes()[2];
    EXPECT_NE(notes.find("ECG: signal 'ECG lead II' (200 samples/s, uV converted to mV)"), std::string::npos) << notes;
    EXPECT_NE(notes.find("respiration: signal 'Resp (chest)'"), std::string::npos) << notes;
    EXPECT_NE(notes.find("accelerometer: signals 'Acc X', 'Acc Y', 'Acc Z'"), std::string::npos) << notes;
}

TEST_F(ConversionTest, MissingChannelsAreSubstitutedAndATrailingPartSecondDropped) {
    std::string dat;
    for (int i = 0; i < 200 * 3 + 150; ++i) put16(dat, 0);
    write("r.dat", dat);
    write("r.hea", "r 1 200 750\nr.dat 16 200 16 0 0 0 0 MLII\n");
    RecordSource source;
    std::string error;
    ASSERT_TRUE(source.open(path("r"), {}, error)) << error;
    const auto out = readAll(source);
    ASSERT_EQ(out.size(), 3u);
    for (int i = 0; i < 25; ++i) {
        EXPECT_EQ(out[2].nBreathChan1[i], 30000);
        EXPECT_EQ(out[2].nBreathChan0[i], 30000);
        EXPECT_EQ(out[2].nAccX[i], 512);
        EXPECT_EQ(out[2].nAccY[i], 512);
        EXPECT_EQ(out[2].nAccZ[i], 640);
    }
    ASSERT_EQ(source.notes().size(), 4u);
    EXPECT_EQ(source.notes()[1], "respiration: no respiration signal; both channels flat at 30000");
    EXPECT_EQ(source.notes()[2], "accelerometer: none; a still sensor lying on the back (512, 512, 640)");
    EXPECT_NE(source.notes()[3].find("0.75 s"), std::string::npos) << source.notes()[3];
    // No ECG-like label at all: refused, naming the labels there are.
    write("q.hea", "q 1 200 750\nr.dat 16 200 16 0 0 0 0 Pleth\n");
    RecordSource none;
    EXPECT_FALSE(none.open(path("q.hea"), {}, error));
    EXPECT_NE(error.find("no ECG-like signal label (signals: 'Pleth'); name one with --ecg LABEL"), std::string::npos)
        << error;
}

TEST(Resampling, StreamsTheSameInAnyChunkingWithoutDelay) {
    if (!StreamResampler::available()) GTEST_SKIP() << "rtmonitor was built without libsamplerate";
    std::vector<double> in(3600);
    for (size_t i = 0; i < in.size(); ++i) in[i] = std::sin(2 * M_PI * 7.0 * static_cast<double>(i) / 360);
    std::string error;
    StreamResampler whole, chunked;
    ASSERT_TRUE(whole.init(360, 200, error) && chunked.init(360, 200, error)) << error;
    std::vector<double> a, b;
    whole.process(in, true, a);
    const size_t sizes[] = {1, 359, 17, 1000, 360};
    size_t at = 0;
    for (size_t k = 0; at < in.size(); ++k) {
        const size_t n = std::min(sizes[k % 5], in.size() - at);
        chunked.process(std::vector<double>(in.begin() + static_cast<long>(at), in.begin() + static_cast<long>(at + n)),
                        at + n == in.size(), b);
        at += n;
    }
    ASSERT_EQ(a.size(), 2000u);
    ASSERT_EQ(b.size(), a.size());
    for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], 1e-6) << i;
    // Away from the ends the output is the same sine sampled at 200/s: no delay, no loss.
    for (size_t i = 200; i < 1800; ++i)
        ASSERT_NEAR(a[i], std::sin(2 * M_PI * 7.0 * static_cast<double>(i) / 200), 0.01) << i;
    StreamResampler tooFar;
    EXPECT_FALSE(tooFar.init(100000, 25, error));
}

}  // namespace

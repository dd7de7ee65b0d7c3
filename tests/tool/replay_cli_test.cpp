// End to end through the built tool: synth, replay and demo agree frame for frame, frame files of
// several devices, truncated and unreadable input, the CSV columns.
#include <string>

#include "tool_runner.h"

namespace tooltest {
namespace {

constexpr size_t kFrameBytes = 1320;
const char* const kColumns =
    "frame,device,seq,heart_rate,heart_status,breath_rate,breath_state,posture,movement_mean,movement_max";

using ReplayTest = ToolTest;

TEST_F(ReplayTest, SynthThenReplayGivesTheDemoResultsForTheSameSeed) {
    const RunResult demo = run("demo --minutes 2 --seed 7 --csv " + path("demo.csv"));
    ASSERT_EQ(demo.status, 0) << demo.err;
    ASSERT_EQ(run("synth --minutes 2 --seed 7 --out " + path("s.frames")).status, 0);
    EXPECT_EQ(std::filesystem::file_size(path("s.frames")), 120 * kFrameBytes);
    const RunResult replay = run("replay " + path("s.frames") + " --out " + path("replay.csv"));
    ASSERT_EQ(replay.status, 0) << replay.err;
    const std::string fromDemo = readFile(path("demo.csv"));
    EXPECT_EQ(lines(fromDemo).size(), 121u);
    EXPECT_EQ(readFile(path("replay.csv")), fromDemo);

    // Standard output carries the same CSV when no --out is given.
    const RunResult toStdout = run("replay " + path("s.frames"));
    ASSERT_EQ(toStdout.status, 0);
    EXPECT_EQ(toStdout.out, fromDemo);

    // Another seed gives another recording.
    ASSERT_EQ(run("synth --minutes 2 --seed 8 --out " + path("t.frames")).status, 0);
    EXPECT_NE(readFile(path("t.frames")), readFile(path("s.frames")));
}

TEST_F(ReplayTest, InterleavedDevicesAreAnalysedIndependently) {
    ASSERT_EQ(run("synth --minutes 1 --seed 3 --devices 3 --out " + path("multi.frames")).status, 0);
    ASSERT_EQ(run("synth --minutes 1 --seed 3 --out " + path("one.frames")).status, 0);
    const RunResult multi = run("replay " + path("multi.frames"));
    const RunResult one = run("replay " + path("one.frames"));
    ASSERT_EQ(multi.status, 0) << multi.err;
    const auto m = lines(multi.out), o = lines(one.out);
    ASSERT_EQ(m.size(), 181u);
    ASSERT_EQ(o.size(), 61u);
    for (size_t i = 1; i < m.size(); ++i) {
        const auto f = fields(m[i]);
        EXPECT_EQ(f[0], std::to_string(i - 1));                // frame index in file order
        EXPECT_EQ(f[1], std::to_string((i - 1) % 3 + 1));      // devices 1, 2, 3 in turn
        EXPECT_EQ(f[2], std::to_string((i - 1) / 3));          // each device's own sequence
    }
    // Device 1 of the interleaved file gives exactly the results of its recording alone.
    for (size_t s = 0; s < 60; ++s) {
        auto a = fields(m[1 + 3 * s]), b = fields(o[1 + s]);
        a.erase(a.begin());
        b.erase(b.begin());
        EXPECT_EQ(a, b) << "second " << s;
    }
}

TEST_F(ReplayTest, TruncatedFileKeepsTheCompleteFramesAndNamesTheOffset) {
    ASSERT_EQ(run("synth --minutes 1 --out " + path("s.frames")).status, 0);
    const std::string full = readFile(path("s.frames"));
    writeFile(path("cut.frames"), full.substr(0, 10 * kFrameBytes + 100));
    const RunResult whole = run("replay " + path("s.frames"));
    const RunResult cut = run("replay " + path("cut.frames") + " --out " + path("cut.csv"));
    EXPECT_EQ(cut.status, 1);
    EXPECT_NE(cut.err.find(path("cut.frames")), std::string::npos) << cut.err;
    EXPECT_NE(cut.err.find("byte offset 13200"), std::string::npos) << cut.err;
    const auto got = lines(readFile(path("cut.csv"))), all = lines(whole.out);
    ASSERT_EQ(got.size(), 11u);
    for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(got[i], all[i]);

    // Shorter than one record: nothing complete, the offset is 0.
    writeFile(path("tiny.frames"), full.substr(0, 7));
    const RunResult tiny = run("replay " + path("tiny.frames"));
    EXPECT_EQ(tiny.status, 1);
    EXPECT_NE(tiny.err.find("byte offset 0"), std::string::npos) << tiny.err;
    EXPECT_EQ(lines(tiny.out).size(), 1u);  // the header only
}

TEST_F(ReplayTest, MissingEmptyOrUnreadableInputIsAnInputError) {
    const RunResult missing = run("replay " + path("absent.frames"));
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find(path("absent.frames")), std::string::npos);
    writeFile(path("empty.frames"), "");
    const RunResult empty = run("replay " + path("empty.frames"));
    EXPECT_EQ(empty.status, 1);
    EXPECT_NE(empty.err.find("empty"), std::string::npos) << empty.err;
    const RunResult folder = run("replay " + dir_.string());
    EXPECT_EQ(folder.status, 1);
    EXPECT_NE(folder.err.find(dir_.string()), std::string::npos);
    // An output that cannot be written is reported too.
    ASSERT_EQ(run("synth --minutes 1 --out " + path("s.frames")).status, 0);
    EXPECT_EQ(run("replay " + path("s.frames") + " --out " + path("no/such/dir.csv")).status, 1);
}

TEST_F(ReplayTest, CsvHasTheDocumentedColumns) {
    ASSERT_EQ(run("synth --minutes 1 --out " + path("s.frames")).status, 0);
    const RunResult plain = run("replay " + path("s.frames"));
    const auto rows = lines(plain.out);
    ASSERT_FALSE(rows.empty());
    EXPECT_EQ(rows[0], kColumns);
    for (size_t i = 1; i < rows.size(); ++i) {
        const auto f = fields(rows[i]);
        ASSERT_EQ(f.size(), 10u);
        const int posture = std::stoi(f[7]);
        EXPECT_TRUE(posture >= 0 && posture <= 9) << rows[i];
        EXPECT_GE(std::stod(f[8]), 1.0);  // movement levels are 1..1023
        EXPECT_LE(std::stoi(f[9]), 1023);
    }

    const RunResult waves = run("replay --waves " + path("s.frames"));
    const auto wrows = lines(waves.out);
    ASSERT_EQ(wrows.size(), rows.size());
    const auto header = fields(wrows[0]);
    ASSERT_EQ(header.size(), 10u + 200 + 25 + 25 + 25);
    EXPECT_EQ(header[10], "heart_wave_0");
    EXPECT_EQ(header[209], "heart_wave_199");
    EXPECT_EQ(header[210], "breath_display1_0");
    EXPECT_EQ(header[235], "breath_display0_0");
    EXPECT_EQ(header[260], "movement_0");
    EXPECT_EQ(header.back(), "movement_24");
    for (size_t i = 1; i < wrows.size(); ++i) {
        const auto f = fields(wrows[i]);
        ASSERT_EQ(f.size(), header.size());
        // The summary columns are those of the plain CSV, and its movement summary is that of
        // the movement columns.
        EXPECT_EQ(std::vector<std::string>(f.begin(), f.begin() + 10), fields(rows[i]));
        int mx = 0;
        for (size_t k = 260; k < 285; ++k) mx = std::max(mx, std::stoi(f[k]));
        EXPECT_EQ(std::to_string(mx), f[9]);
    }
}

TEST_F(ReplayTest, AnyByteContentIsReplayedWithoutCrashing) {
    // Deterministic junk: device ids from a small set, every other word arbitrary, including
    // the extremes of a 32-bit word.
    std::string bytes;
    uint32_t x = 12345u;
    for (int frame = 0; frame < 40; ++frame) {
        for (int word = 0; word < 330; ++word) {
            x = x * 1664525u + 1013904223u;
            uint32_t v = x;
            if (word == 0) v = x % 4;
            if (frame % 5 == 1) v = (word % 2) ? 0x80000000u : 0x7FFFFFFFu;
            if (word == 0 && frame % 5 == 1) v = 9;
            for (int b = 0; b < 4; ++b) bytes += static_cast<char>((v >> (8 * b)) & 0xFF);
        }
    }
    writeFile(path("junk.frames"), bytes);
    const RunResult r = run("replay --waves " + path("junk.frames") + " --report " + path("junk.html"));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lines(r.out).size(), 41u);
}

TEST_F(ReplayTest, FramesBeyondTheDeviceLimitAreReportedNotAnalysed) {
    std::string bytes;
    for (uint32_t id = 0; id < 70; ++id) {
        std::string frame(kFrameBytes, '\0');
        for (int b = 0; b < 4; ++b) frame[static_cast<size_t>(b)] = static_cast<char>((id >> (8 * b)) & 0xFF);
        bytes += frame;
    }
    writeFile(path("many.frames"), bytes);
    const RunResult r = run("replay " + path("many.frames"));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(lines(r.out).size(), 65u);
    EXPECT_NE(r.err.find("byte offset " + std::to_string(64 * kFrameBytes)), std::string::npos) << r.err;
}

}  // namespace
}  // namespace tooltest

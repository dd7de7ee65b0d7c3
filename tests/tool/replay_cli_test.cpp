// End to end through the built tool: synth then replay gives the demo's results for the same
// seed, interleaved devices are analysed independently, a truncated file keeps its complete
// frames and names the offset, the CSV columns, and the doubt a file that does not look like
// frames draws (crashes on arbitrary files are the frame-file fuzz target's job).
#include <map>
#include <random>
#include <string>

#include "support/tool_runner.h"

namespace tooltest {
namespace {

constexpr size_t kFrameBytes = 1320;

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
}

TEST_F(ReplayTest, InterleavedDevicesAreAnalysedIndependently) {
    ASSERT_EQ(run("synth --minutes 1 --seed 3 --devices 3 --out " + path("multi.frames")).status, 0);
    ASSERT_EQ(run("synth --minutes 1 --seed 3 --out " + path("one.frames")).status, 0);
    const RunResult multi = run("replay " + path("multi.frames"));
    ASSERT_EQ(multi.status, 0) << multi.err;
    const auto m = lines(multi.out), o = lines(run("replay " + path("one.frames")).out);
    ASSERT_EQ(m.size(), 181u);
    ASSERT_EQ(o.size(), 61u);
    // Device 1 of the interleaved file (every third row) gives exactly the results of its
    // recording alone, frame index apart.
    for (size_t s = 0; s < 60; ++s) {
        auto a = fields(m[1 + 3 * s]), b = fields(o[1 + s]);
        EXPECT_EQ(a[0], std::to_string(3 * s));
        a.erase(a.begin());
        b.erase(b.begin());
        EXPECT_EQ(a, b) << "second " << s;
    }
}

// --beats writes one row per confirmed beat beside unchanged results: each device's R peaks in
// time order, counted in its own frames, reported by a frame at or after the peak's; an output
// that would overwrite the input is refused before anything is written.
TEST_F(ReplayTest, BeatsFileListsEveryConfirmedBeatBesideUnchangedResults) {
    ASSERT_EQ(run("synth --minutes 1 --seed 5 --devices 2 --out " + path("two.frames")).status, 0);
    const RunResult plain = run("replay " + path("two.frames"));
    const RunResult r = run("replay " + path("two.frames") + " --beats " + path("b.csv"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, plain.out) << "--beats changed the results";
    const auto rows = lines(readFile(path("b.csv")));
    ASSERT_GT(rows.size(), 1u);
    EXPECT_EQ(rows[0], "device,frame,sample,time_s,rr_ms,width_ms,rate,type,stability");
    std::map<std::string, long long> last;
    size_t beats = 0;
    for (size_t i = 1; i < rows.size(); ++i) {
        const auto f = fields(rows[i]);
        ASSERT_EQ(f.size(), 9u) << rows[i];
        const long long frame = std::stoll(f[1]), sample = std::stoll(f[2]);
        EXPECT_LE(sample / 200, frame / 2) << "the R peak lies in or before the device's reporting frame: " << rows[i];
        EXPECT_GT(sample, last[f[0]]) << rows[i];
        last[f[0]] = sample;
        EXPECT_NEAR(std::stod(f[3]), sample / 200.0, 0.001) << rows[i];
        EXPECT_GE(std::stoi(f[4]), 200) << rows[i];
        EXPECT_LE(std::stoi(f[4]), 2000) << rows[i];
        EXPECT_EQ(f[7], "4") << rows[i];
        ++beats;
    }
    EXPECT_EQ(last.size(), 2u) << "both devices have beats";
    EXPECT_GT(beats, 2u * 40u) << "a minute of beats per device, less the start-up";

    const RunResult onto = run("replay " + path("two.frames") + " --beats " + path("two.frames"));
    EXPECT_EQ(onto.status, 1) << onto.err;
    EXPECT_EQ(std::filesystem::file_size(path("two.frames")), 2 * 60 * kFrameBytes);
}

// One rule for broken frame files in every command that reads them: a file that is empty or ends
// inside a frame is an input error with nothing written, unless --partial asks for the whole
// frames of a file still being recorded (a warning, exit 0).
TEST_F(ReplayTest, BrokenFrameFilesAreRefusedByEveryCommandUnlessPartial) {
    ASSERT_EQ(run("synth --minutes 1 --out " + path("s.frames")).status, 0);
    const std::string full = readFile(path("s.frames"));
    writeFile(path("cut.frames"), full.substr(0, 10 * kFrameBytes + 100));
    const RunResult cut = run("replay " + path("cut.frames") + " --out " + path("cut.csv"));
    EXPECT_EQ(cut.status, 1);
    EXPECT_NE(cut.err.find(path("cut.frames") + ": 13300 bytes end inside a frame (10 whole frames of 1320 bytes, "
                                                "then 100 bytes); nothing was analysed or written"),
              std::string::npos)
        << cut.err;
    EXPECT_NE(cut.err.find("--partial"), std::string::npos) << cut.err;
    EXPECT_FALSE(std::filesystem::exists(path("cut.csv")));

    const RunResult partial = run("replay " + path("cut.frames") + " --partial --out " + path("cut.csv"));
    EXPECT_EQ(partial.status, 0) << partial.err;
    EXPECT_NE(partial.err.find("warning: "), std::string::npos) << partial.err;
    const auto got = lines(readFile(path("cut.csv"))), all = lines(run("replay " + path("s.frames")).out);
    ASSERT_EQ(got.size(), 11u);
    for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(got[i], all[i]);

    // The same from standard input, where the size is only known at the end.
    const RunResult piped = run("replay - --out " + path("p.csv") + " < " + path("cut.frames"));
    EXPECT_EQ(piped.status, 1);
    EXPECT_NE(piped.err.find("ends inside a frame at byte offset 13200"), std::string::npos) << piped.err;
    EXPECT_FALSE(std::filesystem::exists(path("p.csv")));

    const RunResult ev = run("evaluate " + path("cut.frames") + " --json " + path("e.json"));
    EXPECT_EQ(ev.status, 1);
    EXPECT_NE(ev.err.find("end inside a frame"), std::string::npos) << ev.err;
    EXPECT_FALSE(std::filesystem::exists(path("e.json")));
    EXPECT_EQ(run("evaluate " + path("cut.frames") + " --partial --json " + path("e.json")).status, 0);
    EXPECT_TRUE(std::filesystem::exists(path("e.json")));
    // publish refuses before it connects (nothing listens on this port).
    const RunResult pub = run("publish " + path("cut.frames") + " --server nats://127.0.0.1:9");
    if (pub.err.find("unknown command") == std::string::npos) {
        EXPECT_EQ(pub.status, 1);
        EXPECT_NE(pub.err.find("end inside a frame"), std::string::npos) << pub.err;
    }

    // Empty, or shorter than one frame: nothing to analyse, with or without --partial.
    writeFile(path("empty.frames"), "");
    writeFile(path("tiny.frames"), full.substr(0, 7));
    for (const char* cmd : {"replay", "evaluate"}) {
        const RunResult empty = run(std::string(cmd) + " " + path("empty.frames"));
        EXPECT_EQ(empty.status, 1) << cmd;
        EXPECT_NE(empty.err.find("empty file, no frames"), std::string::npos) << empty.err;
        EXPECT_TRUE(empty.out.empty()) << cmd;
        const RunResult tiny = run(std::string(cmd) + " --partial " + path("tiny.frames"));
        EXPECT_EQ(tiny.status, 1) << cmd;
        EXPECT_NE(tiny.err.find("not a frame file"), std::string::npos) << tiny.err;
    }
}

// The reference reader is the same for replay and evaluate: a heart_rate column is scored as the
// heart rate, and a file with no known column is refused naming what it has.
TEST_F(ReplayTest, EvaluateScoresAHeartRateReferenceAsHeartRate) {
    ASSERT_EQ(run("synth --minutes 1 --out " + path("s.frames")).status, 0);
    std::string csv = "second,heart_rate\n";
    for (int s = 0; s < 60; ++s) csv += std::to_string(s) + ",70\n";
    writeFile(path("hr.csv"), csv);
    const RunResult ev =
        run("evaluate " + path("s.frames") + " --reference " + path("hr.csv") + " --json " + path("e.json"));
    ASSERT_EQ(ev.status, 0) << ev.err;
    const std::string json = readFile(path("e.json"));
    EXPECT_NE(json.find("\"heart_rate\": {\"reference\": \"" + path("hr.csv") + " (heart_rate)\""), std::string::npos)
        << json;
    EXPECT_NE(json.find("\"seconds_with_reference\": 60"), std::string::npos) << json;
    EXPECT_NE(json.find("\"breathing_rate\": null"), std::string::npos) << json;
    EXPECT_EQ(
        run("replay " + path("s.frames") + " --reference " + path("hr.csv") + " --report " + path("r.html")).status, 0);

    writeFile(path("odd.csv"), "when,bpm\n0,70\n");
    for (const char* cmd : {"evaluate", "replay"}) {
        const RunResult r = run(std::string(cmd) + " " + path("s.frames") + " --reference " + path("odd.csv") +
                                " --report " + path("x.html"));
        EXPECT_EQ(r.status, 1) << cmd;
        EXPECT_NE(r.err.find("the header names the columns 'when', 'bpm'"), std::string::npos) << r.err;
        EXPECT_FALSE(std::filesystem::exists(path("x.html"))) << cmd;
    }
}

TEST_F(ReplayTest, CsvHasTheDocumentedColumns) {
    ASSERT_EQ(run("synth --minutes 1 --out " + path("s.frames")).status, 0);
    const auto rows = lines(run("replay " + path("s.frames")).out);
    ASSERT_EQ(rows.size(), 61u);
    EXPECT_EQ(rows[0],
              "frame,device,seq,heart_rate,heart_status,breath_rate,breath_state,posture,"
              "movement_mean,movement_max");
    const auto wrows = lines(run("replay --waves " + path("s.frames")).out);
    ASSERT_EQ(wrows.size(), rows.size());
    const auto header = fields(wrows[0]);
    ASSERT_EQ(header.size(), 10u + 200 + 25 + 25 + 25);
    EXPECT_EQ(header[10], "heart_wave_0");
    EXPECT_EQ(header[210], "breath_display1_0");
    EXPECT_EQ(header[235], "breath_display0_0");
    EXPECT_EQ(header.back(), "movement_24");
    for (size_t i = 1; i < wrows.size(); ++i) {
        const auto f = fields(wrows[i]);
        ASSERT_EQ(f.size(), header.size());
        // The summary columns are those of the plain CSV; movement_max is that of the trace.
        EXPECT_EQ(std::vector<std::string>(f.begin(), f.begin() + 10), fields(rows[i]));
        int mx = 0;
        for (size_t k = 260; k < 285; ++k) mx = std::max(mx, std::stoi(f[k]));
        EXPECT_EQ(std::to_string(mx), f[9]);
    }
}

TEST_F(ReplayTest, AFileThatDoesNotLookLikeFramesDrawsAWarning) {
    // 13,200 random bytes: ten "frames" of ten "devices".
    std::mt19937 rng(15);
    std::string noise(10 * kFrameBytes, '\0');
    for (char& c : noise) c = static_cast<char>(rng() & 0xFF);
    writeFile(path("noise.bin"), noise);
    const RunResult r =
        run("replay " + path("noise.bin") + " --out " + path("noise.csv") + " --report " + path("noise.html"));
    EXPECT_EQ(r.status, 0) << r.err;  // the replay still runs
    EXPECT_EQ(lines(readFile(path("noise.csv"))).size(), 11u);
    EXPECT_NE(r.err.find("warning: " + path("noise.bin") + " does not look like a frame file"), std::string::npos)
        << r.err;
    EXPECT_NE(r.err.find("10 of 10 device ids appear in a single frame only"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("heart samples lie far outside any ADC range"), std::string::npos) << r.err;
    EXPECT_NE(readFile(path("noise.html")).find("does not look like a frame file"), std::string::npos);

    // One device whose sequence numbers never advance by one.
    ASSERT_EQ(run("synth --minutes 1 --out " + path("s.frames")).status, 0);
    std::string frames = readFile(path("s.frames"));
    for (size_t f = 0; f < 60; ++f) frames[f * kFrameBytes + 4] = static_cast<char>(3 * f);
    writeFile(path("jumpy.frames"), frames);
    const RunResult jumpy = run("replay " + path("jumpy.frames"));
    EXPECT_EQ(jumpy.status, 0);
    EXPECT_NE(jumpy.err.find("sequence numbers advance by one in only 0 of 59 steps"), std::string::npos) << jumpy.err;

    // Genuine recordings draw none: many interleaved devices, and the shared recordings.
    ASSERT_EQ(run("synth --minutes 1 --devices 16 --out " + path("m.frames")).status, 0);
    EXPECT_EQ(run("replay " + path("m.frames")).err, "");
    EXPECT_EQ(run("replay " + path("s.frames")).err, "");
    const std::string shared = std::string(RTM_SOURCE_DIR) + "/../shared/data/";
    if (!std::filesystem::exists(shared + "v102s.frames"))
        GTEST_SKIP() << shared << " is absent: the shared recordings were not checked";
    for (const char* rec : {"100", "03700181", "v102s"}) {
        const RunResult g = run("replay " + shared + rec + ".frames --out " + path("g.csv"));
        EXPECT_EQ(g.status, 0) << rec;
        EXPECT_EQ(g.err.find("warning"), std::string::npos) << rec << ": " << g.err;
    }
}

}  // namespace
}  // namespace tooltest

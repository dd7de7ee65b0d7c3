// End to end through the built tool: the demo's table and summary, the HTML report's structure
// (one plot per series and device, nothing external), help texts and usage errors.
#include <string>

#include "tool_runner.h"

namespace tooltest {
namespace {

const char* const kSeries[] = {"heart-rate", "breath-rate", "ecg", "respiration", "posture", "movement"};

using DemoReportTest = ToolTest;

TEST_F(DemoReportTest, DemoPrintsOneRowPerSecondAndTheSummary) {
    const RunResult r = run("demo --minutes 1 --seed 5");
    ASSERT_EQ(r.status, 0) << r.err;
    size_t rows = 0;
    for (const std::string& l : lines(r.out)) rows += l.rfind("  0:", 0) == 0 || l.rfind("  1:00", 0) == 0;
    EXPECT_EQ(rows, 60u);
    EXPECT_NE(r.out.find("Summary: 60 s, seed 5"), std::string::npos);
    EXPECT_NE(r.out.find("heart rate"), std::string::npos);
    EXPECT_NE(r.out.find("breathing rate"), std::string::npos);
    EXPECT_NE(r.out.find("posture        agrees in"), std::string::npos);
    // Whatever the analysers report, the comparison is either an error figure or says "no rate".
    for (const char* what : {"  heart rate     ", "  breathing rate "}) {
        const size_t at = r.out.find(what);
        ASSERT_NE(at, std::string::npos);
        const std::string line = r.out.substr(at, r.out.find('\n', at) - at);
        EXPECT_TRUE(line.find("MAE ") != std::string::npos || line.find("no rate reported") != std::string::npos)
            << line;
    }
}

void expectSelfContainedPlots(const std::string& html, const std::vector<int>& devices) {
    EXPECT_EQ(html.rfind("<!DOCTYPE html>", 0), 0u);
    EXPECT_EQ(count(html, "<script"), 0u);
    EXPECT_EQ(count(html, "<link"), 0u);
    EXPECT_EQ(count(html, "url("), 0u);
    EXPECT_EQ(count(html, "@import"), 0u);
    EXPECT_EQ(count(html, " src="), 0u);
    EXPECT_EQ(count(html, "<section class=\"device\""), devices.size());
    EXPECT_EQ(count(html, "<svg class=\"plot\""), 6 * devices.size());
    EXPECT_EQ(count(html, "<svg"), count(html, "</svg>"));
    for (int d : devices)
        for (const char* s : kSeries)
            EXPECT_EQ(count(html, "data-device=\"" + std::to_string(d) + "\" data-series=\"" + s + "\""), 1u)
                << "device " << d << " series " << s;
}

TEST_F(DemoReportTest, DemoReportHasOnePlotPerSeries) {
    const RunResult r = run("demo --minutes 2 --report " + path("demo.html"));
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string html = readFile(path("demo.html"));
    expectSelfContainedPlots(html, {1});
    // The demo's report carries the generator's truth and the summary.
    EXPECT_NE(html.find("generator truth"), std::string::npos);
    EXPECT_NE(html.find("Summary: 120 s"), std::string::npos);
}

TEST_F(DemoReportTest, ReplayReportHasOneSectionPerDevice) {
    ASSERT_EQ(run("synth --minutes 1 --devices 3 --out " + path("m.frames")).status, 0);
    const RunResult r = run("replay " + path("m.frames") + " --out " + path("m.csv") + " --at 5 --report " +
                            path("m.html"));
    ASSERT_EQ(r.status, 0) << r.err;
    expectSelfContainedPlots(readFile(path("m.html")), {1, 2, 3});

    // A truncated file still gets its report, with the problem stated in it.
    const std::string bytes = readFile(path("m.frames"));
    writeFile(path("cut.frames"), bytes.substr(0, bytes.size() - 1));
    const RunResult cut = run("replay " + path("cut.frames") + " --out " + path("c.csv") + " --report " + path("c.html"));
    EXPECT_EQ(cut.status, 1);
    const std::string html = readFile(path("c.html"));
    expectSelfContainedPlots(html, {1, 2, 3});
    EXPECT_NE(html.find("incomplete record at byte offset"), std::string::npos);
}

TEST_F(DemoReportTest, HelpForEveryCommand) {
    for (const char* cmd : {"demo", "synth", "replay"}) {
        const RunResult r = run(std::string(cmd) + " --help");
        EXPECT_EQ(r.status, 0) << cmd;
        EXPECT_EQ(r.out.rfind(std::string("usage: rtmonitor ") + cmd, 0), 0u) << r.out;
    }
    const RunResult top = run("--help");
    EXPECT_EQ(top.status, 0);
    EXPECT_NE(top.out.find("replay"), std::string::npos);
}

TEST_F(DemoReportTest, UsageErrorsExitWithTwoAndShowTheUsage) {
    const char* const bad[] = {
        "",                                   // no command
        "frobnicate",                         // unknown command
        "demo --colour",                      // unknown option
        "demo --minutes",                     // missing value
        "demo --minutes 0",                   // out of range
        "demo --minutes 241",
        "demo --minutes 2x",                  // not a number
        "demo --minutes=-3",
        "demo --seed 4294967296",             // too large for a seed
        "demo --at soon",
        "demo extra",                         // stray argument
        "synth --minutes 1",                  // --out is required
        "synth --out x.frames --devices 17",
        "replay",                             // no file
        "replay a.frames b.frames",           // two files
        "replay a.frames --waves=yes",        // a flag takes no value
        "replay a.frames --at -1",
    };
    for (const char* args : bad) {
        const RunResult r = run(args);
        EXPECT_EQ(r.status, 2) << "args: " << args;
        EXPECT_NE(r.err.find("usage: rtmonitor"), std::string::npos) << "args: " << args;
        EXPECT_TRUE(r.out.empty()) << "args: " << args;
    }
    // Both option spellings are accepted.
    EXPECT_EQ(run("synth --out=" + path("a.frames") + " --minutes=1 --seed=2").status, 0);
    EXPECT_EQ(std::filesystem::file_size(path("a.frames")), 60u * 1320u);
}

}  // namespace
}  // namespace tooltest

// End to end through the built tool: the HTML report's structure (one self-contained plot per
// series and device with the quality and status bands, the ECG grid with the confirmed beats
// marked, the RR tachogram, a summary row per device, the demo's truth and summary, a replay's
// reference), one set of class names in the tool guide, `replay --help` and the report, and
// usage errors.
#include <string>

#include "classes.h"
#include "support/tool_runner.h"

namespace tooltest {
namespace {

using DemoReportTest = ToolTest;

void expectSelfContainedPlots(const std::string& html, const std::vector<int>& devices) {
    EXPECT_EQ(html.rfind("<!DOCTYPE html>", 0), 0u);
    EXPECT_EQ(count(html, "<script") + count(html, "<link") + count(html, " src="), 0u);
    EXPECT_EQ(count(html, "<section class=\"device\""), devices.size());
    // One plot per series and device, except the ECG: a strip at the chosen time and at most four
    // more at events.
    const size_t ecgStrips = count(html, "data-series=\"ecg\"");
    EXPECT_GE(ecgStrips, devices.size());
    EXPECT_LE(ecgStrips, 5 * devices.size());
    EXPECT_EQ(count(html, "<svg class=\"plot\""), 6 * devices.size() + ecgStrips);
    for (int d : devices) {
        for (const char* s : {"heart-rate", "breath-rate", "respiration", "posture", "movement", "rr-tachogram"})
            EXPECT_EQ(count(html, "data-device=\"" + std::to_string(d) + "\" data-series=\"" + s + "\""), 1u)
                << "device " << d << " series " << s;
        EXPECT_EQ(count(html, "<tr data-device=\"" + std::to_string(d) + "\">"), 1u) << "device " << d;
        const std::string section =
            html.substr(html.find("<section class=\"device\" data-device=\"" + std::to_string(d) + "\""));
        const std::string own = section.substr(0, section.find("</section>"));
        EXPECT_EQ(count(own, "data-band=\"quality\""), 1u) << "device " << d;
        EXPECT_EQ(count(own, "data-band=\"breath-state\""), 1u) << "device " << d;
        EXPECT_EQ(count(own, "class=\"ecg-grid\""), count(own, "data-series=\"ecg\"")) << "device " << d;
        EXPECT_NE(own.find("(the chosen time, --at)"), std::string::npos) << "device " << d;
        // Ten seconds of ECG at a resting rate: the confirmed beats are marked on it.
        EXPECT_GE(count(own, "class=\"beat\""), 5u) << "device " << d;
    }
}

TEST_F(DemoReportTest, ReportsHaveOnePlotPerSeriesAndDevice) {
    const RunResult demo = run("demo --minutes 2 --report " + path("demo.html"));
    ASSERT_EQ(demo.status, 0) << demo.err;
    const std::string html = readFile(path("demo.html"));
    expectSelfContainedPlots(html, {1});
    EXPECT_NE(html.find("generator truth"), std::string::npos);
    EXPECT_NE(html.find("Summary: 120 s"), std::string::npos);

    ASSERT_EQ(run("synth --minutes 1 --devices 3 --out " + path("m.frames")).status, 0);
    const RunResult r =
        run("replay " + path("m.frames") + " --out " + path("m.csv") + " --at 5 --report " + path("m.html"));
    ASSERT_EQ(r.status, 0) << r.err;
    expectSelfContainedPlots(readFile(path("m.html")), {1, 2, 3});
}

TEST_F(DemoReportTest, ReplayOfASharedRecordingDrawsItsReference) {
    const std::string shared = std::string(RTM_SOURCE_DIR) + "/../shared/data/";
    if (!std::filesystem::exists(shared + "03700181.frames"))
        GTEST_SKIP() << shared << " is absent: the shared recordings were not replayed";
    const RunResult r = run("replay " + shared + "03700181.frames --out " + path("r.csv") + " --report " +
                            path("r.html") + " --reference " + shared + "03700181.ref.csv");
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string html = readFile(path("r.html"));
    expectSelfContainedPlots(html, {1});
    EXPECT_EQ(count(html, ">reference</text>"), 2u);  // heart and breathing rate
    // A reference file without a time column is refused before anything is written.
    writeFile(path("bad.csv"), "rate\n70\n");
    const RunResult bad =
        run("replay " + shared + "03700181.frames --report " + path("b.html") + " --reference " + path("bad.csv"));
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.err.find("time column"), std::string::npos) << bad.err;
    EXPECT_TRUE(bad.out.empty());
    EXPECT_FALSE(std::filesystem::exists(path("b.html")));
}

TEST_F(DemoReportTest, GuideHelpAndReportUseTheClassTables) {
    const std::string guide = readFile(std::string(RTM_SOURCE_DIR) + "/docs/tool.md");
    ASSERT_FALSE(guide.empty());
    const RunResult help = run("replay --help");
    ASSERT_EQ(help.status, 0);
    for (const std::string& list :
         {rtmtool::codeList(rtmtool::kPostureNames), rtmtool::codeList(rtmtool::kHeartStatusNames),
          rtmtool::codeList(rtmtool::kBreathStateNames)}) {
        EXPECT_NE(guide.find(list), std::string::npos) << "docs/tool.md lacks: " << list;
        EXPECT_NE(help.out.find(list), std::string::npos) << "replay --help lacks: " << list;
    }
    // The report's posture legend and summary table use the same names.
    ASSERT_EQ(run("demo --minutes 4 --report " + path("d.html")).status, 0);
    const std::string html = readFile(path("d.html"));
    for (int c : {1, 2, 4, 5, 7})
        EXPECT_NE(html.find(std::to_string(c) + " " + rtmtool::postureName(c) + "</text>"), std::string::npos) << c;
    EXPECT_NE(html.find(std::string(rtmtool::postureName(7)) + " 0:"), std::string::npos);
}

TEST_F(DemoReportTest, UsageErrorsExitWithTwoNamingTheProblemAndShowTheUsage) {
    const struct {
        const char *args, *says;
    } bad[] = {
        {"", "usage: rtmonitor COMMAND"},
        {"frobnicate", "unknown command 'frobnicate'"},
        {"demo --colour", "unknown option --colour"},
        {"demo --minutes", "--minutes needs a value"},
        {"demo --minutes 0", "whole number from 1 to 240, not '0'"},
        {"demo --minutes 2x", "not '2x'"},
        {"demo --seed 4294967296", "from 0 to 4294967295"},
        {"synth --minutes 1", "--out FILE.frames is required"},
        {"import r.hea", "--out FILE.frames is required"},
        {"replay a.frames b.frames", "more than one frame file"},
        {"replay a.frames --waves=yes", "unknown option --waves=yes"},  // a flag takes no value
        {"demo --at -5", "--at must be 0 or more seconds"},
        {"replay x.frames --at -5", "--at must be 0 or more seconds"},
    };
    for (const auto& b : bad) {
        const RunResult r = run(b.args);
        EXPECT_EQ(r.status, 2) << "args: " << b.args;
        EXPECT_NE(r.err.find(b.says), std::string::npos) << "args: " << b.args << "\n" << r.err;
        EXPECT_NE(r.err.find("usage: rtmonitor"), std::string::npos) << "args: " << b.args;
        EXPECT_TRUE(r.out.empty()) << "args: " << b.args;
    }
    // Both option spellings are accepted.
    EXPECT_EQ(run("synth --out=" + path("a.frames") + " --minutes=1 --seed=2").status, 0);
    EXPECT_EQ(std::filesystem::file_size(path("a.frames")), 60u * 1320u);
}

}  // namespace
}  // namespace tooltest

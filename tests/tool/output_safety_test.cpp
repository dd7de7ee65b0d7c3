// End to end through the built tool: nothing a user gives it is lost. An output that is the input
// (also through links, also standard input) is refused before anything is written; outputs are
// checked before the work starts; a failed write leaves neither a partial file nor a clobbered
// old one; write errors on standard output exit 1 with a message.
#include <unistd.h>

#include <string>

#include "support/tool_runner.h"

namespace tooltest {
namespace {

class OutputSafetyTest : public ToolTest {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        ASSERT_EQ(run("synth --minutes 1 --out " + path("rec.frames")).status, 0);
        recording_ = readFile(path("rec.frames"));
    }
    // Nothing but the named files in the scratch folder: no temporary file left behind.
    void expectOnly(std::vector<std::string> names) const {
        std::vector<std::string> found;
        for (const auto& e : std::filesystem::directory_iterator(dir_)) {
            const std::string n = e.path().filename().string();
            if (n != ".stdout" && n != ".stderr") found.push_back(n);
        }
        std::sort(found.begin(), found.end());
        std::sort(names.begin(), names.end());
        EXPECT_EQ(found, names);
    }
    std::string recording_;
};

TEST_F(OutputSafetyTest, AnOutputThatIsTheInputIsRefusedBeforeAnythingIsWritten) {
    std::filesystem::create_symlink(path("rec.frames"), path("sym.csv"));
    std::filesystem::create_hard_link(path("rec.frames"), path("hard.csv"));
    writeFile(path("ref.csv"), "frame,hr_ref_bpm\n0,60\n");
    for (const std::string& args :
         {"replay " + path("rec.frames") + " --out " + path("rec.frames"),
          "replay " + path("rec.frames") + " --out " + path("sym.csv"),
          "replay " + path("rec.frames") + " --out " + path("hard.csv"),
          "replay " + path("rec.frames") + " --out " + path("x.csv") + " --report " + path("hard.csv"),
          "replay - --out " + path("rec.frames") + " < " + path("rec.frames"),
          "replay " + path("rec.frames") + " --report " + path("x.html") + " --reference " + path("ref.csv") +
              " --out " + path("ref.csv")}) {
        const RunResult r = run(args);
        EXPECT_EQ(r.status, 1) << args;
        EXPECT_NE(r.err.find("is the input"), std::string::npos) << args << "\n" << r.err;
        EXPECT_NE(r.err.find("nothing was written"), std::string::npos) << r.err;
        EXPECT_TRUE(r.out.empty()) << args;
        EXPECT_EQ(readFile(path("rec.frames")), recording_) << args;
    }
    EXPECT_EQ(readFile(path("ref.csv")), "frame,hr_ref_bpm\n0,60\n");
    expectOnly({"rec.frames", "sym.csv", "hard.csv", "ref.csv"});
    // Two outputs naming one file are refused too.
    const RunResult both = run("demo --minutes 1 --csv " + path("a.out") + " --report " + path("a.out"));
    EXPECT_EQ(both.status, 1);
    EXPECT_NE(both.err.find("both name"), std::string::npos) << both.err;
    expectOnly({"rec.frames", "sym.csv", "hard.csv", "ref.csv"});
}

TEST_F(OutputSafetyTest, OutputsAreCheckedBeforeTheWorkStarts) {
    const std::string nowhere = path("missing/dir/");
    // An unwritable report is found before the replay: no CSV, no rows.
    RunResult r = run("replay " + path("rec.frames") + " --out " + path("r.csv") + " --report " + nowhere + "r.html");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("--report " + nowhere + "r.html: cannot write"), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("frames of 1 device analysed"), std::string::npos) << r.err;
    r = run("replay " + path("rec.frames") + " --report " + nowhere + "r.html");
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.out.empty()) << "the CSV went out before the report was found unwritable";
    // synth with an unwritable truth writes no frame file; demo with an unwritable CSV no table.
    r = run("synth --minutes 1 --out " + path("s.frames") + " --truth " + nowhere + "t.csv");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("--truth"), std::string::npos) << r.err;
    r = run("demo --minutes 1 --csv " + path("d.csv") + " --report " + dir_.string());
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("is a directory"), std::string::npos) << r.err;
    EXPECT_TRUE(r.out.empty());
    expectOnly({"rec.frames"});
}

TEST_F(OutputSafetyTest, AFailedWriteLeavesTheOldFileAndNoPartOfTheNew) {
    writeFile(path("old.frames"), "precious");
    writeFile(path("old.csv"), "precious");
    // Files may grow to 32 kB (64 blocks of 512 bytes): the frames (79200 bytes) cannot be written.
    const std::string limit = "ulimit -f 64; trap '' XFSZ; ";
    RunResult r = run("synth --minutes 1 --out " + path("old.frames") + " --truth " + path("old.csv"), "", limit);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("old.frames"), std::string::npos) << r.err;
    EXPECT_EQ(readFile(path("old.frames")), "precious");
    EXPECT_EQ(readFile(path("old.csv")), "precious");
    r = run("replay --waves " + path("rec.frames") + " --out " + path("old.csv"), "", limit);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("write failed"), std::string::npos) << r.err;
    EXPECT_EQ(readFile(path("old.csv")), "precious");
    expectOnly({"rec.frames", "old.frames", "old.csv"});
    // A successful run replaces the old file whole.
    ASSERT_EQ(run("replay " + path("rec.frames") + " --out " + path("old.csv")).status, 0);
    EXPECT_EQ(lines(readFile(path("old.csv"))).size(), 61u);
    expectOnly({"rec.frames", "old.frames", "old.csv"});
}

TEST_F(OutputSafetyTest, StandardOutputFailuresExitOneWithAMessage) {
    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "/dev/full is absent on this system";
    for (const std::string& args : {std::string("demo --minutes 1"), "replay " + path("rec.frames")}) {
        const RunResult r = run(args, "/dev/full");
        EXPECT_EQ(r.status, 1) << args;
        EXPECT_NE(r.err.find("standard output: write failed"), std::string::npos) << args << "\n" << r.err;
    }
}

TEST_F(OutputSafetyTest, DashReadsStandardInput) {
    const RunResult fromFile = run("replay " + path("rec.frames"));
    const RunResult fromStdin = run("replay - < " + path("rec.frames"));
    ASSERT_EQ(fromStdin.status, 0) << fromStdin.err;
    EXPECT_EQ(fromStdin.out, fromFile.out);
    EXPECT_EQ(lines(fromStdin.out).size(), 61u);
}

}  // namespace
}  // namespace tooltest

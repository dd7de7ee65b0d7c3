// Runs the built rtmonitor tool in a private scratch folder and captures its exit status and
// output, for the end-to-end tests.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tooltest {

struct RunResult {
    int status = -1;  // exit status, or -1 when the tool did not exit normally (crash)
    std::string out, err;
};

inline std::string readFile(const std::filesystem::path& p) {
    std::ifstream f(p, std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

inline void writeFile(const std::filesystem::path& p, const std::string& bytes) {
    std::ofstream f(p, std::ios::binary);
    f << bytes;
}

inline std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> r;
    std::istringstream s(text);
    for (std::string l; std::getline(s, l);) r.push_back(l);
    return r;
}

inline std::vector<std::string> fields(const std::string& line) {
    std::vector<std::string> r;
    std::istringstream s(line);
    for (std::string f; std::getline(s, f, ',');) r.push_back(f);
    if (line.empty() || line.back() == ',') r.push_back("");
    return r;
}

// A little-endian 16-bit word appended to a byte string, as WFDB format 16 and .atr store them.
template <class Bytes>
void put16(Bytes& b, int v) {
    b.push_back(static_cast<typename Bytes::value_type>(v & 0xff));
    b.push_back(static_cast<typename Bytes::value_type>((v >> 8) & 0xff));
}

inline size_t count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + what.size())) ++n;
    return n;
}

class ToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/rtm_tool_test_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override {
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
    }

    std::string path(const std::string& name) const { return (dir_ / name).string(); }

    // `args` is appended to the tool's path as shell words; keep them free of quotes. Standard
    // output goes to `stdoutTo` when given (then r.out is empty); `shellPrefix` runs first in
    // the same shell (limits, traps).
    RunResult run(const std::string& args, const std::string& stdoutTo = "",
                  const std::string& shellPrefix = "") const {
        const std::string out = stdoutTo.empty() ? path(".stdout") : stdoutTo, err = path(".stderr");
        const std::string cmd =
            shellPrefix + "'" + std::string(RTM_BINARY_DIR) + "/rtmonitor' " + args + " >'" + out + "' 2>'" + err + "'";
        const int raw = std::system(cmd.c_str());
        RunResult r;
        r.status = (raw != -1 && WIFEXITED(raw)) ? WEXITSTATUS(raw) : -1;
        if (stdoutTo.empty()) r.out = readFile(out);
        r.err = readFile(err);
        // A sanitizer report also exits with 1; never let it pass for an input error.
        EXPECT_EQ(r.err.find("Sanitizer"), std::string::npos) << r.err;
        EXPECT_EQ(r.err.find("runtime error"), std::string::npos) << r.err;
        return r;
    }

    std::filesystem::path dir_;
};

}  // namespace tooltest

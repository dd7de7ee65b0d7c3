// Output files a failure never leaves half-written: each is written to a temporary file beside
// its target and renamed over it only once complete, so an interrupted or failed run leaves the
// target as it was. Also the checks made before any work starts: that no output is an input
// (the same file, also through symbolic or hard links), that no two outputs coincide, and that
// every output can be created.
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace rtmtool {

class OutputFile {
public:
    OutputFile() = default;
    ~OutputFile();  // removes the temporary file unless commit() succeeded
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Creates the temporary file beside `path`; false with `error` set. A target that exists
    // and is not a regular file (a terminal, /dev/null, a pipe) is written directly.
    bool open(const std::string& path, std::string& error);
    std::FILE* file() const { return file_; }
    // Flushes, syncs and closes the temporary file, then renames it over the target; false with
    // `error` set (and the target untouched) when any step fails.
    bool commit(std::string& error);

private:
    void discard();

    std::FILE* file_ = nullptr;
    std::string target_, temp_;
    bool direct_ = false;
};

// Writes `text` to `path` through an OutputFile.
bool writeWholeFile(const std::string& path, const std::string& text, std::string& error);

// True when both name the same existing file (device and inode, after following links).
// "-" names standard input.
bool sameFile(const std::string& a, const std::string& b);

// Pre-flight for a command: `inputs` are read, `outputs` pairs an option name with the path it
// names. False with `error` saying which option is wrong and why: an output that is an input
// or another output, a directory, or a place where no file can be created.
bool checkOutputs(const std::vector<std::string>& inputs,
                  const std::vector<std::pair<std::string, std::string>>& outputs, std::string& error);

// Flushes standard output; false with `error` set when any write to it failed (a full disk,
// a closed pipe).
bool finishStandardOutput(std::string& error);

}  // namespace rtmtool

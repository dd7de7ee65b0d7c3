// Output files written whole or not at all: the data goes to a temporary file beside the target,
// which is renamed over it only once everything is written and closed.
#pragma once

#include <cstdio>
#include <string>

namespace rtmtool {

class AtomicOutput {
public:
    AtomicOutput() = default;
    ~AtomicOutput();  // removes the temporary file unless committed
    AtomicOutput(const AtomicOutput&) = delete;
    AtomicOutput& operator=(const AtomicOutput&) = delete;

    bool open(const std::string& target, std::string& error);
    std::FILE* file() { return file_; }
    bool commit(std::string& error);

private:
    std::string target_, temp_;
    std::FILE* file_ = nullptr;
};

// True when both paths name one existing file (so an output would overwrite an input).
bool sameFile(const std::string& a, const std::string& b);

// Writes `text` to `target` through an AtomicOutput.
bool writeTextFile(const std::string& target, const std::string& text, std::string& error);

}  // namespace rtmtool

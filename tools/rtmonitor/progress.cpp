// Progress bar (see progress.h). Redrawn at most ten times a second.
#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace rtmtool {

Progress::Progress(std::string label, uint64_t total)
    : label_(std::move(label)),
      total_(total),
      enabled_(isatty(STDERR_FILENO) == 1),
      start_(std::chrono::steady_clock::now()),
      last_(start_) {}

Progress::~Progress() { finish(); }

std::string Progress::render(const std::string& label, uint64_t done, uint64_t total, int width) {
    if (total == 0 || width < 1) return label + " ...";
    if (done > total) done = total;
    const int filled = static_cast<int>(done * static_cast<uint64_t>(width) / total);
    const int percent = static_cast<int>(done * 100 / total);
    std::string line = label + " [";
    line.append(static_cast<size_t>(filled), '#');
    line.append(static_cast<size_t>(width - filled), '-');
    line += "] " + std::to_string(percent) + "%";
    return line;
}

void Progress::update(uint64_t done) {
    if (!enabled_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - start_ < std::chrono::seconds(1)) return;
    if (drawn_ && now - last_ < std::chrono::milliseconds(100)) return;
    last_ = now;
    drawn_ = true;
    std::fprintf(stderr, "\r%s", render(label_, done, total_, 40).c_str());
    std::fflush(stderr);
}

void Progress::finish() {
    if (!drawn_) return;
    // Blank the line so the messages that follow start clean.
    std::fprintf(stderr, "\r%*s\r", static_cast<int>(render(label_, 0, total_, 40).size()), "");
    std::fflush(stderr);
    drawn_ = false;
}

}  // namespace rtmtool

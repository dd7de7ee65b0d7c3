// Whole-or-nothing output files (see output_file.h).
#include "output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace rtmtool {

AtomicOutput::~AtomicOutput() {
    if (file_ != nullptr) {
        std::fclose(file_);
        std::remove(temp_.c_str());
    }
}

bool AtomicOutput::open(const std::string& target, std::string& error) {
    target_ = target;
    std::string tmpl = target + ".partial-XXXXXX";
    const int fd = mkstemp(tmpl.data());
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    temp_ = tmpl;
    file_ = fdopen(fd, "wb");
    if (file_ == nullptr) {
        error = std::strerror(errno);
        ::close(fd);
        std::remove(temp_.c_str());
        return false;
    }
    return true;
}

bool AtomicOutput::commit(std::string& error) {
    const bool ok = std::ferror(file_) == 0;
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    if (!ok || !closed) {
        error = "write failed";
        std::remove(temp_.c_str());
        return false;
    }
    // mkstemp creates the file private; give it the usual permissions.
    const mode_t mask = umask(0);
    umask(mask);
    chmod(temp_.c_str(), 0666 & ~mask);
    if (std::rename(temp_.c_str(), target_.c_str()) != 0) {
        error = std::strerror(errno);
        std::remove(temp_.c_str());
        return false;
    }
    return true;
}

bool sameFile(const std::string& a, const std::string& b) {
    struct stat sa, sb;
    return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

bool writeTextFile(const std::string& target, const std::string& text, std::string& error) {
    AtomicOutput out;
    if (!out.open(target, error)) return false;
    std::fwrite(text.data(), 1, text.size(), out.file());
    return out.commit(error);
}

}  // namespace rtmtool

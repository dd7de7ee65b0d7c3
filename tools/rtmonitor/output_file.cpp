// Safe output files and the pre-flight checks (see output_file.h).
#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace rtmtool {
namespace {

// The file a path finally names: a symbolic link is followed, so the temporary file lands beside
// the real target and the rename replaces it, not the link.
std::string resolved(const std::string& path) {
    struct stat st {};
    if (lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        std::error_code ec;
        const std::filesystem::path p = std::filesystem::weakly_canonical(path, ec);
        if (!ec) return p.string();
    }
    return path;
}

std::string directoryOf(const std::string& path) {
    const std::filesystem::path dir = std::filesystem::path(path).parent_path();
    return dir.empty() ? "." : dir.string();
}

// A fresh temporary file beside `target`, open for writing; -1 with errno set on failure.
int makeTemp(const std::string& target, std::string& temp) {
    const std::filesystem::path t(target);
    temp = (std::filesystem::path(directoryOf(target)) / ("." + t.filename().string() + ".XXXXXX")).string();
    std::vector<char> name(temp.begin(), temp.end());
    name.push_back('\0');
    const int fd = mkstemp(name.data());
    if (fd >= 0) temp = name.data();
    return fd;
}

bool identity(const std::string& path, dev_t& dev, ino_t& ino) {
    struct stat st {};
    const int r = path == "-" ? fstat(STDIN_FILENO, &st) : stat(path.c_str(), &st);
    if (r != 0) return false;
    dev = st.st_dev;
    ino = st.st_ino;
    return true;
}

// Whether a file can be created at `path` (or, for a terminal, pipe or device, written).
bool creatable(const std::string& path, std::string& error) {
    const std::string target = resolved(path);
    struct stat st {};
    if (stat(target.c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode)) {
            error = "is a directory";
            return false;
        }
        if (access(target.c_str(), W_OK) != 0) {
            error = std::strerror(errno);
            return false;
        }
        if (!S_ISREG(st.st_mode)) return true;
    }
    std::string temp;
    const int fd = makeTemp(target, temp);
    if (fd < 0) {
        error = "cannot create a file in " + directoryOf(target) + ": " + std::strerror(errno);
        return false;
    }
    close(fd);
    unlink(temp.c_str());
    return true;
}

}  // namespace

OutputFile::~OutputFile() { discard(); }

void OutputFile::discard() {
    if (file_ != nullptr) std::fclose(file_);
    file_ = nullptr;
    if (!direct_ && !temp_.empty()) unlink(temp_.c_str());
    temp_.clear();
}

bool OutputFile::open(const std::string& path, std::string& error) {
    discard();
    target_ = resolved(path);
    struct stat st {};
    const bool exists = stat(target_.c_str(), &st) == 0;
    direct_ = exists && !S_ISREG(st.st_mode);
    if (direct_) {
        file_ = std::fopen(target_.c_str(), "wb");
        if (file_ == nullptr) error = std::strerror(errno);
        return file_ != nullptr;
    }
    const int fd = makeTemp(target_, temp_);
    if (fd < 0) {
        error = std::strerror(errno);
        temp_.clear();
        return false;
    }
    // mkstemp creates the file private; give it the mode a plain create (or the file it
    // replaces) would have.
    mode_t mode = 0;
    if (exists) {
        mode = st.st_mode & 07777;
    } else {
        const mode_t mask = umask(0);
        umask(mask);
        mode = 0666 & ~mask;
    }
    fchmod(fd, mode);
    file_ = fdopen(fd, "wb");
    if (file_ == nullptr) {
        error = std::strerror(errno);
        close(fd);
        discard();
        return false;
    }
    return true;
}

bool OutputFile::commit(std::string& error) {
    if (file_ == nullptr) {
        error = "not open";
        return false;
    }
    bool ok = std::fflush(file_) == 0 && !std::ferror(file_);
    if (ok && !direct_ && fsync(fileno(file_)) != 0) ok = false;
    int saved = ok ? 0 : errno;
    if (std::fclose(file_) != 0 && ok) {
        ok = false;
        saved = errno;
    }
    file_ = nullptr;
    if (ok && !direct_ && std::rename(temp_.c_str(), target_.c_str()) != 0) {
        ok = false;
        saved = errno;
    }
    if (!ok) {
        error = std::string("write failed: ") + (saved != 0 ? std::strerror(saved) : "unknown error");
        discard();
        return false;
    }
    temp_.clear();
    return true;
}

bool writeWholeFile(const std::string& path, const std::string& text, std::string& error) {
    OutputFile f;
    if (!f.open(path, error)) return false;
    if (std::fwrite(text.data(), 1, text.size(), f.file()) != text.size()) {
        error = std::string("write failed: ") + std::strerror(errno);
        return false;
    }
    return f.commit(error);
}

bool sameFile(const std::string& a, const std::string& b) {
    dev_t da = 0, db = 0;
    ino_t ia = 0, ib = 0;
    return identity(a, da, ia) && identity(b, db, ib) && da == db && ia == ib;
}

bool checkOutputs(const std::vector<std::string>& inputs,
                  const std::vector<std::pair<std::string, std::string>>& outputs, std::string& error) {
    for (size_t i = 0; i < outputs.size(); ++i) {
        const auto& [option, path] = outputs[i];
        for (const std::string& in : inputs)
            if (path == in || sameFile(path, in)) {
                error = option + " " + path + " is the input " + (in == "-" ? "(standard input)" : in) +
                        "; writing it would destroy the recording: choose another file";
                return false;
            }
        for (size_t k = 0; k < i; ++k)
            if (path == outputs[k].second || sameFile(path, outputs[k].second) ||
                resolved(path) == resolved(outputs[k].second)) {
                error = option + " and " + outputs[k].first + " both name " + path + ": choose two files";
                return false;
            }
        std::string why;
        if (!creatable(path, why)) {
            error = option + " " + path + ": cannot write: " + why;
            return false;
        }
    }
    return true;
}

bool finishStandardOutput(std::string& error) {
    errno = 0;
    const bool flushed = std::fflush(stdout) == 0;
    if (flushed && !std::ferror(stdout)) return true;
    error = std::string("standard output: write failed") + (errno != 0 ? ": " + std::string(std::strerror(errno)) : "");
    return false;
}

}  // namespace rtmtool

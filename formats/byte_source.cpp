// File and memory byte sources for the recording readers.
#include "formats/byte_source.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace rtmfmt {

FileSource::~FileSource() {
    if (file_ != nullptr) std::fclose(file_);
}

bool FileSource::open(const std::string& path, std::string& error) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        error = std::strerror(errno);
        return false;
    }
    if (!S_ISREG(st.st_mode)) {
        error = "not a regular file";
        return false;
    }
    file_ = std::fopen(path.c_str(), "rb");
    if (file_ == nullptr) {
        error = std::strerror(errno);
        return false;
    }
    size_ = static_cast<uint64_t>(st.st_size);
    return true;
}

size_t FileSource::read(unsigned char* to, size_t n) { return std::fread(to, 1, n, file_); }

bool FileSource::skip(uint64_t n) { return n == 0 || std::fseek(file_, static_cast<long>(n), SEEK_CUR) == 0; }

bool FileSource::failed() const { return std::ferror(file_) != 0; }

size_t MemorySource::read(unsigned char* to, size_t n) {
    const size_t k = std::min(n, size_ - pos_);
    if (k > 0) std::memcpy(to, data_ + pos_, k);
    pos_ += k;
    return k;
}

bool MemorySource::skip(uint64_t n) {
    pos_ = static_cast<size_t>(std::min<uint64_t>(size_, pos_ + n));
    return true;
}

SourceOpener diskOpener(const std::string& directory) {
    return [directory](const std::string& name, std::string& error) -> std::unique_ptr<ByteSource> {
        auto f = std::make_unique<FileSource>();
        const std::string path = (name.empty() || name[0] == '/' || directory.empty()) ? name : directory + "/" + name;
        if (!f->open(path, error)) return nullptr;
        return f;
    };
}

}  // namespace rtmfmt

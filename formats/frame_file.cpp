// Frame file reading and writing (see frame_file.h). Words are converted byte by byte, so the
// files are the same on hosts of either byte order.
#include "formats/frame_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace rtmfmt {

void encodeFrame(const ParamsIn& frame, unsigned char* bytes) {
    int32_t words[kFrameWords];
    std::memcpy(words, &frame, kFrameBytes);
    for (size_t i = 0; i < kFrameWords; ++i) {
        const uint32_t w = static_cast<uint32_t>(words[i]);
        bytes[4 * i] = static_cast<unsigned char>(w & 0xFFu);
        bytes[4 * i + 1] = static_cast<unsigned char>((w >> 8) & 0xFFu);
        bytes[4 * i + 2] = static_cast<unsigned char>((w >> 16) & 0xFFu);
        bytes[4 * i + 3] = static_cast<unsigned char>((w >> 24) & 0xFFu);
    }
}

ParamsIn decodeFrame(const unsigned char* bytes) {
    int32_t words[kFrameWords];
    for (size_t i = 0; i < kFrameWords; ++i) {
        const uint32_t w = static_cast<uint32_t>(bytes[4 * i]) | (static_cast<uint32_t>(bytes[4 * i + 1]) << 8) |
                           (static_cast<uint32_t>(bytes[4 * i + 2]) << 16) |
                           (static_cast<uint32_t>(bytes[4 * i + 3]) << 24);
        int32_t v;
        std::memcpy(&v, &w, sizeof v);  // two's complement reinterpretation, no overflow
        words[i] = v;
    }
    ParamsIn frame;
    std::memcpy(&frame, words, kFrameBytes);
    return frame;
}

FrameReader::~FrameReader() {
    if (file_ != nullptr && file_ != stdin) std::fclose(file_);
}

bool FrameReader::open(const std::string& path) {
    file_ = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
    if (file_ == nullptr) {
        error_ = std::strerror(errno);
        return false;
    }
    struct stat st {};
    if (fstat(fileno(file_), &st) == 0) {
        if (S_ISDIR(st.st_mode)) {
            error_ = "is a directory";
            std::fclose(file_);
            file_ = nullptr;
            return false;
        }
        if (S_ISREG(st.st_mode) && st.st_size > 0) size_ = static_cast<uint64_t>(st.st_size);
    }
    return true;
}

FrameReader::Result FrameReader::next(ParamsIn& frame) {
    if (file_ == nullptr) return Result::Error;
    unsigned char bytes[kFrameBytes];
    const size_t got = std::fread(bytes, 1, kFrameBytes, file_);
    if (got == kFrameBytes) {
        frame = decodeFrame(bytes);
        offset_ += kFrameBytes;
        return Result::Frame;
    }
    if (std::ferror(file_)) {
        error_ = std::strerror(errno);
        return Result::Error;
    }
    if (got == 0) return Result::End;
    partial_ = got;
    return Result::Incomplete;
}

bool writeFrames(std::FILE* f, const std::vector<ParamsIn>& frames) {
    unsigned char bytes[kFrameBytes];
    for (const ParamsIn& frame : frames) {
        encodeFrame(frame, bytes);
        if (std::fwrite(bytes, 1, kFrameBytes, f) != kFrameBytes) return false;
    }
    return true;
}

bool checkFrameFile(const std::string& path, bool partial, std::string& warning, std::string& error) {
    warning.clear();
    struct stat st;
    if (path == "-" || ::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return true;
    const uint64_t size = static_cast<uint64_t>(st.st_size);
    const uint64_t whole = size / kFrameBytes, rest = size % kFrameBytes;
    if (size == 0) {
        error = path + ": empty file, no frames";
        return false;
    }
    if (rest == 0) return true;
    const std::string shape = path + ": " + std::to_string(size) + " bytes end inside a frame (" +
                              std::to_string(whole) + " whole frames of " + std::to_string(kFrameBytes) +
                              " bytes, then " + std::to_string(rest) + " bytes)";
    if (!partial || whole == 0) {
        error = shape + (whole == 0 ? "; not a frame file" : "") + "; nothing was analysed or written" +
                (whole == 0 ? "" : ". For a file still being recorded, --partial analyses its whole frames");
        return false;
    }
    warning = shape + "; --partial: analysing the " + std::to_string(whole) + " whole frames, the last " +
              std::to_string(rest) + " bytes are left out";
    return true;
}

}  // namespace rtmfmt

// Frame files: the raw concatenation of 1320-byte input frames (330 signed 32-bit words each,
// little-endian, in the order of the frame record), as a host logs what it hands the library.
// Frames of several devices may interleave. Reading is streamed, so files of any length work.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "rtmonitor.h"

namespace rtmfmt {

constexpr size_t kFrameWords = 330;
constexpr size_t kFrameBytes = kFrameWords * 4;
static_assert(sizeof(ParamsIn) == kFrameBytes, "a frame file record is one ParamsIn");

void encodeFrame(const ParamsIn& frame, unsigned char* bytes);
ParamsIn decodeFrame(const unsigned char* bytes);

class FrameReader {
public:
    enum class Result { Frame, End, Incomplete, Error };

    FrameReader() = default;
    ~FrameReader();
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    // False with error() set when the file cannot be opened (or is a directory); "-" reads
    // standard input.
    bool open(const std::string& path);
    // Frame: `frame` holds the next record. End: clean end of file. Incomplete: the file ends
    // inside a record (its offset is offset()). Error: a read failed (error() says why).
    Result next(ParamsIn& frame);

    uint64_t offset() const { return offset_; }  // byte offset of the next record
    uint64_t size() const { return size_; }      // file size in bytes, 0 when unknown
    size_t partialBytes() const { return partial_; }
    const std::string& error() const { return error_; }

private:
    std::FILE* file_ = nullptr;
    uint64_t offset_ = 0;
    uint64_t size_ = 0;
    size_t partial_ = 0;
    std::string error_;
};

// The rule every command applies to a frame file before it reads or writes anything: it holds at
// least one frame and ends on a frame boundary. A file that ends inside a frame (one still being
// recorded, or not a frame file) is refused unless `partial` is set; then its whole frames are
// read and `warning` says what is left out. False with `error` set (naming the file, its size and
// what to do). A file whose size is not known beforehand (standard input, a pipe) passes here;
// the reader's Incomplete result reports its end.
bool checkFrameFile(const std::string& path, bool partial, std::string& warning, std::string& error);

// Writes the frames in order to an open file (see output_file.h for making one safely); false
// when a write fails.
bool writeFrames(std::FILE* f, const std::vector<ParamsIn>& frames);

}  // namespace rtmfmt

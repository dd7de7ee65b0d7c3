// Sequential byte input for the recording readers: a file, or bytes in memory (tests and the
// fuzz target), behind one small interface so the decoders never touch the file system.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>

namespace rtmfmt {

class ByteSource {
public:
    virtual ~ByteSource() = default;
    // Up to `n` bytes; fewer only at the end of the data (or on a read error: see failed()).
    virtual size_t read(unsigned char* to, size_t n) = 0;
    virtual bool skip(uint64_t n) = 0;
    virtual uint64_t size() const = 0;  // total bytes
    virtual bool failed() const { return false; }
};

class FileSource : public ByteSource {
public:
    ~FileSource() override;
    // False with `error` set when the path cannot be opened as a regular file.
    bool open(const std::string& path, std::string& error);
    size_t read(unsigned char* to, size_t n) override;
    bool skip(uint64_t n) override;
    uint64_t size() const override { return size_; }
    bool failed() const override;

private:
    std::FILE* file_ = nullptr;
    uint64_t size_ = 0;
};

class MemorySource : public ByteSource {
public:
    MemorySource(const unsigned char* data, size_t size) : data_(data), size_(size) {}
    size_t read(unsigned char* to, size_t n) override;
    bool skip(uint64_t n) override;
    uint64_t size() const override { return size_; }

private:
    const unsigned char* data_;
    size_t size_;
    size_t pos_ = 0;
};

// Opens a file named in a record (a signal or annotation file): null with `error` set on failure.
using SourceOpener = std::function<std::unique_ptr<ByteSource>(const std::string& name, std::string& error)>;

// Opens names relative to `directory` on disk.
SourceOpener diskOpener(const std::string& directory);

}  // namespace rtmfmt

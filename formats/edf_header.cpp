// EDF/BDF header examination (see edf_header.h). The layout: a fixed part of 256 bytes, then
// per field the values of every signal in turn (label 16 bytes each, transducer 80, and so on).
#include "formats/edf_header.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace rtmfmt {
namespace {

struct Field {
    const char* name;
    size_t width;
    bool number;
};

constexpr Field kFixed[] = {{"version", 8, false},
                            {"local patient identification", 80, false},
                            {"local recording identification", 80, false},
                            {"start date", 8, false},
                            {"start time", 8, false},
                            {"number of header bytes", 8, true},
                            {"reserved", 44, false},
                            {"number of data records", 8, true},
                            {"duration of a data record", 8, true},
                            {"number of signals", 4, true}};

constexpr Field kPerSignal[] = {
    {"label", 16, false},          {"transducer type", 80, false}, {"physical dimension", 8, false},
    {"physical minimum", 8, true}, {"physical maximum", 8, true},  {"digital minimum", 8, true},
    {"digital maximum", 8, true},  {"prefiltering", 80, false},    {"number of samples in each data record", 8, true},
    {"reserved", 32, false}};

bool isNumber(const std::string& text) {
    size_t a = text.find_first_not_of(' ');
    if (a == std::string::npos) return false;
    const std::string t = text.substr(a, text.find_last_not_of(' ') - a + 1);
    char* end = nullptr;
    std::strtod(t.c_str(), &end);
    return end == t.c_str() + t.size();
}

struct Examiner {
    const std::string& h;
    EdfHeaderFindings f;

    // One field of `width` bytes at `at`; `what` names it for messages.
    void field(size_t at, size_t width, const std::string& what, bool number, bool bdfVersion) {
        if (at + width > h.size()) return;
        bool ascii = true;
        for (size_t i = 0; i < width; ++i) {
            const unsigned char c = static_cast<unsigned char>(h[at + i]);
            if (bdfVersion && i == 0 && c == 0xff) continue;  // BDF marks itself with byte 255
            if (c >= 32 && c <= 126) continue;
            ascii = false;
            if (f.nonAscii.empty()) {
                char b[200];
                std::snprintf(b, sizeof b, "byte %zu (0x%02X) in the %s, character %zu of %zu", at + i, c, what.c_str(),
                              i + 1, width);
                f.firstNonAscii = b;
            }
            f.nonAscii.push_back(at + i);
        }
        if (!ascii && f.nonAsciiFields.find(what) == std::string::npos)
            f.nonAsciiFields += (f.nonAsciiFields.empty() ? "" : ", ") + what;
        if (number && ascii && f.fault.empty() && !isNumber(h.substr(at, width)))
            f.fault = "byte " + std::to_string(at) + " (" + what + "): '" + h.substr(at, width) +
                      "' is not a number (expected digits, left-aligned, padded with spaces)";
    }
};

}  // namespace

EdfHeaderFindings examineEdfHeader(const std::string& header) {
    Examiner e{header, {}};
    if (header.size() < 256) {
        e.f.fault =
            "the header is " + std::to_string(header.size()) + " bytes long; an EDF/BDF header has at least 256";
        return e.f;
    }
    size_t at = 0;
    for (const Field& fd : kFixed) {
        e.field(at, fd.width, fd.name, fd.number, at == 0);
        at += fd.width;
    }
    const long signals = std::strtol(header.substr(252, 4).c_str(), nullptr, 10);
    if (signals <= 0 || signals > 4096) return e.f;
    const size_t ns = static_cast<size_t>(signals);
    for (const Field& fd : kPerSignal) {
        for (size_t s = 0; s < ns; ++s) e.field(at + s * fd.width, fd.width, std::string(fd.name), fd.number, false);
        at += ns * fd.width;
    }
    if (e.f.fault.empty() && header.size() >= at &&
        std::strtol(header.substr(184, 8).c_str(), nullptr, 10) != static_cast<long>(256 + 256 * ns))
        e.f.fault = "byte 184 (number of header bytes): '" + header.substr(184, 8) + "', expected " +
                    std::to_string(256 + 256 * ns) + " for " + std::to_string(ns) + " signals";
    return e.f;
}

bool readEdfHeader(const std::string& path, std::string& header) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    header.assign(256, '\0');
    in.read(&header[0], 256);
    header.resize(static_cast<size_t>(in.gcount()));
    if (header.size() < 256) return true;
    const long signals = std::strtol(header.substr(252, 4).c_str(), nullptr, 10);
    if (signals <= 0 || signals > 4096) return true;
    std::string rest(static_cast<size_t>(signals) * 256, '\0');
    in.read(&rest[0], static_cast<std::streamsize>(rest.size()));
    rest.resize(static_cast<size_t>(in.gcount()));
    header += rest;
    return true;
}

bool copyWithSpaces(const std::string& path, const std::vector<size_t>& offsets, std::string& copy,
                    std::string& error) {
    std::FILE* in = std::fopen(path.c_str(), "rb");
    if (in == nullptr) {
        error = path + ": cannot read: " + std::strerror(errno);
        return false;
    }
    char tmpl[] = "/tmp/rtmonitor-edf-XXXXXX";
    const int fd = mkstemp(tmpl);
    std::FILE* out = fd < 0 ? nullptr : fdopen(fd, "wb");
    if (out == nullptr) {
        if (fd >= 0) ::close(fd);
        std::fclose(in);
        error = "cannot create a temporary file: " + std::string(std::strerror(errno));
        return false;
    }
    // Streamed in blocks: the offsets are all in the header, the signals may be large.
    std::vector<char> block(1 << 20);
    size_t base = 0, got = 0;
    while ((got = std::fread(block.data(), 1, block.size(), in)) > 0) {
        for (size_t o : offsets)
            if (o >= base && o < base + got) block[o - base] = ' ';
        if (std::fwrite(block.data(), 1, got, out) != got) break;
        base += got;
    }
    const bool ok = std::ferror(in) == 0 && std::ferror(out) == 0;
    std::fclose(in);
    if (std::fclose(out) != 0 || !ok) {
        std::remove(tmpl);
        error = path + ": cannot copy to a temporary file";
        return false;
    }
    copy = tmpl;
    return true;
}

}  // namespace rtmfmt

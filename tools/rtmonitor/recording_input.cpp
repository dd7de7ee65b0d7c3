// Recording options and recordings converted into temporary frame files for the commands.
#include "recording_input.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "formats/frame_file.h"
#include "progress.h"

namespace rtmtool {

using rtmfmt::encodeFrame;
using rtmfmt::kFrameBytes;

TemporaryFrames::~TemporaryFrames() {
    if (!path_.empty()) std::remove(path_.c_str());
}

bool TemporaryFrames::write(RecordSource& source, const std::string& shownPath, std::string& error) {
    for (const std::string& n : source.notes())
        std::fprintf(stderr, "rtmonitor: %s: %s\n", shownPath.c_str(), n.c_str());
    char tmpl[] = "/tmp/rtmonitor-recording-XXXXXX";
    const int fd = mkstemp(tmpl);
    if (fd < 0) {
        error = "cannot create a temporary file: " + std::string(std::strerror(errno));
        return false;
    }
    path_ = tmpl;
    std::FILE* f = fdopen(fd, "wb");
    if (f == nullptr) {
        close(fd);
        error = "cannot write a temporary file: " + std::string(std::strerror(errno));
        return false;
    }
    ParamsIn frame;
    unsigned char bytes[kFrameBytes];
    Progress progress("converting " + shownPath, source.expectedFrames());
    while (source.next(frame, error)) {
        encodeFrame(frame, bytes);
        std::fwrite(bytes, 1, sizeof bytes, f);
        progress.update(source.framesDone());
    }
    progress.finish();
    const bool ok = std::ferror(f) == 0;
    if (std::fclose(f) != 0 || !ok) error = "cannot write the temporary file " + path_;
    return error.empty();
}

bool sourceOptionsFrom(const std::map<std::string, std::string>& values, SourceOptions& options, std::string& error) {
    auto get = [&](const char* k) {
        auto it = values.find(k);
        return it == values.end() ? std::string() : it->second;
    };
    options.ecg = get("--ecg");
    options.resp = get("--resp");
    options.acc = get("--acc");
    if (values.count("--device")) {
        const std::string t = get("--device");
        char* end = nullptr;
        errno = 0;
        const long long id =
            t.empty() || std::isspace(static_cast<unsigned char>(t[0])) ? 0 : std::strtoll(t.c_str(), &end, 10);
        if (t.empty() || end != t.c_str() + t.size() || errno != 0 || id < INT32_MIN || id > INT32_MAX) {
            error = "--device needs a whole number (a 32-bit id), not '" + t + "'";
            return false;
        }
        options.deviceId = static_cast<int32_t>(id);
    }
    return true;
}

}  // namespace rtmtool

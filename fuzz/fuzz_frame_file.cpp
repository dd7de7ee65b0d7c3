// Fuzz target: the tool's frame-file reader on arbitrary file contents, and the frames it reads
// through the library as the tool's replay does. Checks that the reader returns exactly the
// complete 1320-byte records the file holds, reports a trailing partial record, and that each
// record decodes to the bytes it came from.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "formats/frame_file.h"
#include "fuzz_common.h"

namespace rtm_fuzz_frame_file {
constexpr int kMaxFramesToAnalyse = 16;
rtm_fuzz::RecordReclaimer& reclaimer() {
    static rtm_fuzz::RecordReclaimer r;
    return r;
}
const std::string& tempPath() {
    static const std::string p = "/tmp/rtm-fuzz-frames-" + std::to_string(getpid()) + ".bin";
    return p;
}
}  // namespace rtm_fuzz_frame_file

#ifndef RTM_FUZZ_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    rtm_fuzz::setupStats(250);
    return 0;
}
#endif

RTM_FUZZ_TARGET(rtmFuzzFrameFile) {
    using namespace rtm_fuzz;
    using rtmfmt::FrameReader;
    const std::string& path = rtm_fuzz_frame_file::tempPath();
    {
        std::FILE* f = std::fopen(path.c_str(), "wb");
        if (!f) return 0;
        if (size) std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    FrameReader reader;
    if (!reader.open(path)) invariantFailed("a readable frame file did not open", 0, 0);
    size_t frames = 0;
    FrameReader::Result r;
    ParamsIn frame;
    while ((r = reader.next(frame)) == FrameReader::Result::Frame) {
        const uint8_t* raw = data + frames * rtmfmt::kFrameBytes;
        unsigned char again[rtmfmt::kFrameBytes];
        rtmfmt::encodeFrame(frame, again);
        if (std::memcmp(again, raw, sizeof again) != 0) invariantFailed("a record does not round-trip", 0, frames);
        ParamsIn decoded = rtmfmt::decodeFrame(raw);
        if (std::memcmp(&decoded, &frame, sizeof frame) != 0)
            invariantFailed("decodeFrame differs from the reader", 0, frames);
        if (frames < static_cast<size_t>(rtm_fuzz_frame_file::kMaxFramesToAnalyse)) {
            ParamsOut out;
            std::memset(&out, 0, sizeof out);
            timedFrame([&] { processSignal(frame, &out); });
            checkOutput(out, frame.nHeartMode, frames);
        }
        ++frames;
        if (frames > size / rtmfmt::kFrameBytes) invariantFailed("more records than the file holds", 0, frames);
    }
    const size_t whole = size / rtmfmt::kFrameBytes, rest = size % rtmfmt::kFrameBytes;
    if (frames != whole) invariantFailed("complete records missed", static_cast<long long>(frames), frames);
    if (rest == 0 && r != FrameReader::Result::End)
        invariantFailed("whole file did not end cleanly", static_cast<int>(r), frames);
    if (rest != 0 && (r != FrameReader::Result::Incomplete || reader.partialBytes() != rest))
        invariantFailed("trailing partial record not reported", static_cast<long long>(reader.partialBytes()), frames);
    rtm_fuzz_frame_file::reclaimer().reset();
    return 0;
}

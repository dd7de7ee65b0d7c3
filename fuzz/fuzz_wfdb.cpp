// Fuzz target: the tool's WFDB reader. The input is a header's text, a zero byte, then bytes that
// serve as the contents of every signal file the header names and, separately, as an MIT
// annotation file. Checks that a header that parses either opens or is refused with a message,
// that every block holds exactly the samples its frames promise, that no more frames come out
// than the header (or the files) hold, and that annotation times are finite.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "formats/wfdb_reader.h"
#include "fuzz_common.h"

namespace rtm_fuzz_wfdb {
// Keeps each input fast: a header may promise millions of frames of a few bytes.
constexpr uint64_t kMaxSamples = 200000;
}  // namespace rtm_fuzz_wfdb

#ifndef RTM_FUZZ_NO_ENTRY
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    rtm_fuzz::setupStats(250);
    return 0;
}
#endif

RTM_FUZZ_TARGET(rtmFuzzWfdb) {
    using namespace rtmfmt;
    const uint8_t* zero = static_cast<const uint8_t*>(std::memchr(data, 0, size));
    const size_t headerSize = zero ? static_cast<size_t>(zero - data) : size;
    const std::string text(reinterpret_cast<const char*>(data), headerSize);
    const uint8_t* body = zero ? zero + 1 : data + size;
    const size_t bodySize = static_cast<size_t>(data + size - body);

    WfdbHeader header;
    std::string error;
    if (parseWfdbHeader(text, header, error)) {
        if (!error.empty()) rtm_fuzz::invariantFailed("a parsed header left an error message", 0, 0);
        WfdbRecord record;
        SourceOpener opener = [&](const std::string&, std::string&) -> std::unique_ptr<ByteSource> {
            return std::make_unique<MemorySource>(body, bodySize);
        };
        if (record.open("fuzz.hea", header, opener, error)) {
            if (header.frames > 0 && record.frames() != header.frames)
                rtm_fuzz::invariantFailed("frames differ from the header's count",
                                          static_cast<long long>(record.frames()), 0);
            uint64_t frames = 0, samples = 0;
            std::vector<std::vector<double>> blocks;
            while (samples < rtm_fuzz_wfdb::kMaxSamples && record.readBlock(blocks, error)) {
                if (blocks.size() != header.signals.size())
                    rtm_fuzz::invariantFailed("a block without every signal", static_cast<long long>(blocks.size()),
                                              frames);
                const size_t n = blocks[0].size() / static_cast<size_t>(header.signals[0].samplesPerFrame);
                if (n == 0) rtm_fuzz::invariantFailed("an empty block", 0, frames);
                for (size_t s = 0; s < blocks.size(); ++s) {
                    if (blocks[s].size() != n * static_cast<size_t>(header.signals[s].samplesPerFrame))
                        rtm_fuzz::invariantFailed("a signal's block size does not match its samples per frame",
                                                  static_cast<long long>(blocks[s].size()), frames);
                    for (double v : blocks[s])
                        if (std::isinf(v)) rtm_fuzz::invariantFailed("an infinite sample", 0, frames);
                    samples += blocks[s].size();
                }
                frames += n;
                if (frames > record.frames()) rtm_fuzz::invariantFailed("more frames than the record holds", 0, frames);
            }
            if (samples < rtm_fuzz_wfdb::kMaxSamples && error.empty() && frames != record.frames())
                rtm_fuzz::invariantFailed("the record ended early without a message", static_cast<long long>(frames),
                                          0);
        } else if (error.empty()) {
            rtm_fuzz::invariantFailed("a record refused without a message", 0, 0);
        }
    } else if (error.empty()) {
        rtm_fuzz::invariantFailed("a header refused without a message", 0, 0);
    }

    MemorySource annotations(body, bodySize);
    std::vector<Annotation> list;
    error.clear();
    if (readWfdbAnnotations(annotations, 360, list, error)) {
        for (size_t i = 0; i < list.size(); ++i)
            if (!std::isfinite(list[i].time)) rtm_fuzz::invariantFailed("an annotation time not finite", 0, i);
    } else if (error.empty()) {
        rtm_fuzz::invariantFailed("annotations refused without a message", 0, 0);
    }
    return 0;
}

// Streaming sample-rate conversion of one channel (libsamplerate's medium-quality sinc converter:
// deterministic, zero delay, about 97 dB rejection). Equal rates pass straight through, so a
// build without libsamplerate still reads recordings already at 200 and 25 samples per second.
#pragma once

#include <string>
#include <vector>

namespace rtmfmt {

class StreamResampler {
public:
    StreamResampler() = default;
    ~StreamResampler();
    StreamResampler(const StreamResampler&) = delete;
    StreamResampler& operator=(const StreamResampler&) = delete;

    // False with `error` set when the conversion is impossible (ratio beyond 1/256..256, or
    // libsamplerate missing from this build and the rates differ).
    bool init(double inRate, double outRate, std::string& error);
    // Appends the output for `in` to `out`; `last` marks the end of the input and flushes.
    void process(const std::vector<double>& in, bool last, std::vector<double>& out);

    static bool available();  // true when built with libsamplerate

private:
    void* state_ = nullptr;  // SRC_STATE when converting
    double ratio_ = 1;
    std::vector<float> inBuf_, outBuf_;
};

}  // namespace rtmfmt

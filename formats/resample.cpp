// Streaming sample-rate conversion through libsamplerate (see resample.h).
#include "formats/resample.h"

#include <cmath>

#ifdef RTM_HAVE_SAMPLERATE
#include <samplerate.h>
#endif

namespace rtmfmt {

bool StreamResampler::available() {
#ifdef RTM_HAVE_SAMPLERATE
    return true;
#else
    return false;
#endif
}

StreamResampler::~StreamResampler() {
#ifdef RTM_HAVE_SAMPLERATE
    if (state_ != nullptr) src_delete(static_cast<SRC_STATE*>(state_));
#endif
}

bool StreamResampler::init(double inRate, double outRate, std::string& error) {
    ratio_ = outRate / inRate;
    if (std::fabs(inRate - outRate) < 1e-9 * outRate) {
        ratio_ = 1;
        return true;
    }
#ifdef RTM_HAVE_SAMPLERATE
    if (!(ratio_ >= 1.0 / 256 && ratio_ <= 256)) {
        error = "cannot convert " + std::to_string(inRate) + " to " + std::to_string(outRate) +
                " samples/s (the ratio must lie within 1/256..256)";
        return false;
    }
    int e = 0;
    state_ = src_new(SRC_SINC_MEDIUM_QUALITY, 1, &e);
    if (state_ == nullptr) {
        error = src_strerror(e);
        return false;
    }
    return true;
#else
    error =
        "this build of rtmonitor cannot convert sample rates (libsamplerate was not found when it was "
        "built); install libsamplerate0-dev and rebuild";
    return false;
#endif
}

void StreamResampler::process(const std::vector<double>& in, bool last, std::vector<double>& out) {
    if (state_ == nullptr) {
        out.insert(out.end(), in.begin(), in.end());
        return;
    }
#ifdef RTM_HAVE_SAMPLERATE
    inBuf_.assign(in.begin(), in.end());
    outBuf_.resize(static_cast<size_t>(std::ceil(in.size() * ratio_)) + 4096);
    SRC_DATA d{};
    d.data_in = inBuf_.data();
    d.input_frames = static_cast<long>(inBuf_.size());
    d.src_ratio = ratio_;
    d.end_of_input = last ? 1 : 0;
    for (;;) {
        d.data_out = outBuf_.data();
        d.output_frames = static_cast<long>(outBuf_.size());
        if (src_process(static_cast<SRC_STATE*>(state_), &d) != 0) return;
        out.insert(out.end(), outBuf_.begin(), outBuf_.begin() + d.output_frames_gen);
        d.data_in += d.input_frames_used;
        d.input_frames -= d.input_frames_used;
        // Done when the input is used up and, at the end, nothing more is flushed out.
        if (d.input_frames == 0 && (!last || d.output_frames_gen == 0)) break;
    }
#else
    (void)last;
#endif
}

}  // namespace rtmfmt

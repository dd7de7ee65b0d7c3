// Recordings as command input: the recording options every reading command accepts, and a
// recording converted into a temporary frame file for the commands that read frame files (its
// channel choices and substitutions are stated on standard error).
#pragma once

#include <map>
#include <string>

#include "formats/record_source.h"

namespace rtmtool {

using rtmfmt::RecordSource;
using rtmfmt::SourceOptions;

// The usage text shared by the commands that read recordings.
#define RTM_RECORDING_OPTIONS_USAGE                                                                       \
    "Recordings: a WFDB record (NAME.hea with its signal files; formats 8, 16, 24, 32, 61, 80, 160,\n"    \
    "212) or an EDF, EDF+, BDF or BDF+ file. Channels are chosen by label:\n"                             \
    "  --ecg LABEL       ECG channel (default: II, MLII, a label with ECG/EKG, else another lead name)\n" \
    "  --resp LABEL      respiration channel (default: a label with RESP, THOR or BREATH; else flat)\n"   \
    "  --acc X,Y,Z       accelerometer channels (default: labels with ACC ending in X, Y, Z; else a\n"    \
    "                    still sensor lying on the back)\n"                                               \
    "  --device ID       device id written into the frames (default 1)\n"                                 \
    "Scales: ECG counts = 512 + round(mV x 200), clipped to 0..1023 (uV and V are converted);\n"          \
    "respiration centred on 30000 and scaled so that its median 10-s peak-to-peak swing is 2000\n"        \
    "counts (any unit); accelerometer counts = 512 + round(g x 128) (mg and m/s^2 are converted).\n"      \
    "Rates are converted to 200 (ECG) and 25 (others) samples/s; the choices go to standard error.\n"

// A recording converted into a temporary frame file, for commands that read frame files; the
// file is removed with the object. The choices and substitutions go to standard error.
class TemporaryFrames {
public:
    TemporaryFrames() = default;
    ~TemporaryFrames();
    TemporaryFrames(const TemporaryFrames&) = delete;
    TemporaryFrames& operator=(const TemporaryFrames&) = delete;
    // Converts every frame of an opened source; false with `error` set.
    bool write(RecordSource& source, const std::string& shownPath, std::string& error);
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// Parses --ecg/--resp/--acc/--device from parsed options into `options`; false with `error`.
bool sourceOptionsFrom(const std::map<std::string, std::string>& values, SourceOptions& options, std::string& error);

}  // namespace rtmtool

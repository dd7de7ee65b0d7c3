// A recording (WFDB or EDF/BDF) turned into the library's input frames, one per second:
// channels chosen by label, physical units converted to the counts the analysis expects, rates
// converted to 200 (ECG) and 25 (respiration, accelerometer) samples per second.
//   ECG:            counts = 512 + round(mV x 200), clipped to 0..1023
//   respiration:    centred on 30000, scaled so that its median 10-s peak-to-peak swing is 2000
//                   counts, clipped to 1..65534; the same samples in both channels
//   accelerometer:  counts = 512 + round(g x 128), clipped to 0..1023
// A missing respiration channel becomes a flat 30000, a missing accelerometer a still sensor lying
// on the back (512, 512, 640); invalid samples hold the last valid value. Each choice and
// substitution is listed in notes().
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "record_reader.h"
#include "resample.h"
#include "rtmonitor.h"

namespace rtmtool {

struct SourceOptions {
    std::string ecg;  // channel labels; empty = choose automatically
    std::string resp;
    std::string acc;  // "X,Y,Z"
    int32_t deviceId = 1;
};

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

class RecordSource {
public:
    // False with `error` set (naming the file and the problem) when the recording cannot be read
    // or a requested label does not exist.
    bool open(const std::string& path, const SourceOptions& options, std::string& error);
    const std::vector<std::string>& notes() const { return notes_; }
    // The next frame; false at the end (error empty) or on a read problem (error set).
    bool next(ParamsIn& frame, std::string& error);
    uint64_t expectedFrames() const { return expected_; }
    uint64_t framesDone() const { return emitted_; }
    RecordReader& reader() { return *reader_; }

private:
    struct Lane {
        int channel = -1;  // index in the recording, -1 = substituted
        double scale = 1;  // physical unit -> working unit (mV, g) or counts offset scale
        double centre = 0;
        double lastValid = 0;
        bool haveValid = false;
        std::unique_ptr<StreamResampler> resampler;
        std::vector<double> queue;
        size_t head = 0;
        size_t available() const { return queue.size() - head; }
    };
    bool setUpLane(Lane& lane, int channel, double outRate, std::string& error);
    bool scaleRespiration(std::string& error);
    bool fill(std::string& error);

    std::string path_;
    std::unique_ptr<RecordReader> reader_;
    SourceOptions options_;
    Lane ecg_, resp_, acc_[3];
    std::vector<std::string> notes_;
    uint64_t expected_ = 0, emitted_ = 0;
    bool ended_ = false;
};

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

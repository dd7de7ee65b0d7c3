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

#include "formats/record_reader.h"
#include "formats/resample.h"
#include "rtmonitor.h"

namespace rtmfmt {

struct SourceOptions {
    std::string ecg;  // channel labels; empty = choose automatically
    std::string resp;
    std::string acc;  // "X,Y,Z"
    int32_t deviceId = 1;
};

class RecordSource {
public:
    // False with `error` set (naming the file and the problem) when the recording cannot be read
    // or a requested label does not exist.
    bool open(const std::string& path, const SourceOptions& options, std::string& error);
    const std::vector<std::string>& notes() const { return notes_; }
    // True when the recording had no such channel and the frames hold the substitute above, so a
    // reader of the results can say the quantity was not measured.
    bool respirationSubstituted() const { return resp_.channel < 0; }
    bool accelerometerSubstituted() const { return acc_[0].channel < 0; }
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
    int pickLabel(const std::string& label, const char* what, std::string& error) const;
    bool openEcg(std::string& error);
    bool openRespiration(std::string& error);
    bool findAxes(int axes[3], std::string& error) const;
    bool openAccelerometer(std::string& error);
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

}  // namespace rtmfmt

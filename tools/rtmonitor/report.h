// The visual report: one self-contained HTML file with inline SVG plots (no scripts, no external
// fonts or images). Per device: heart-rate and breathing-rate trends (with the generator's truth
// when there is one), the display ECG and respiration waveforms of a chosen stretch, the posture
// timeline and the movement level. Time runs in seconds from the device's first frame.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "rtmonitor.h"
#include "synth.h"

namespace rtmtool {

// Series names, one SVG plot each per device (tests look for these).
extern const char* const kReportSeries[6];

class Report {
public:
    static constexpr int kEcgSeconds = 10;
    static constexpr int kStretchSeconds = 30;  // respiration stretch; the ECG shows its start

    // `stretchStart`: second of each device's recording where the waveform stretch begins;
    // a recording too short for it shows its last seconds instead.
    Report(std::string title, int stretchStart);

    void add(size_t device, const ParamsIn& in, const ParamsOut& out, const SecondTruth* truth);
    void addNote(const std::string& text) { notes_.push_back(text); }
    // Summary lines shown at the top (e.g. the demo's comparison with the truth).
    void addSummary(const std::string& text) { summary_.push_back(text); }

    std::string html() const;
    bool write(const std::string& path, std::string& error) const;

private:
    struct StretchFrame {
        std::array<int32_t, 200> ecgIn, ecgOut;
        std::array<int32_t, 25> disp1, disp0, resp1In;
    };
    struct Device {
        int32_t id = 0;
        std::vector<int32_t> hr, quality, br, breathState, posture, moveMax;
        std::vector<double> moveMean;
        bool hasTruth = false;
        std::vector<double> hrTrue, brTrue;
        std::vector<int> postureTrue;
        std::deque<StretchFrame> stretch;  // the last kStretchSeconds frames until frozen
        bool frozen = false;
        size_t stretchFirst = 0;           // second of stretch.front()
    };
    std::string deviceSection(const Device& d) const;

    std::string title_;
    int stretchStart_;
    std::vector<Device> devices_;
    std::vector<std::string> notes_, summary_;
};

}  // namespace rtmtool

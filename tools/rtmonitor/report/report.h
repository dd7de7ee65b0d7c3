// The visual report: one self-contained HTML file with inline SVG plots (no scripts, no external
// fonts or images), as wide as the window. At the top a summary table per device, each figure
// naming the seconds it rests on; then per device: heart-rate and breathing-rate trends with the
// library's quality and respiration status as bands beneath (warm-up and "no rate" as states of
// their own; rates drawn faint where the library did not judge them; the generator's truth or a
// reference drawn over them), the tool's own check of the ECG input for clipped or flat stretches,
// ECG strips in mV on a standard ECG grid at the chosen time and at the events that matter
// (largest rate change, quality drops, rates during clipped or flat input), the respiration
// display waveforms, the posture timeline and the movement level; with beats, the confirmed R
// peaks marked on the ECG and an RR tachogram. Channels a recording did not have are labelled
// "not in this recording" instead of drawn. Time runs in seconds from the
// device's first frame, one frame per second.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "rtmonitor.h"
#include "synth.h"

namespace rtmtool {

// Series names, one SVG plot each per device (tests look for these); the last, the RR
// tachogram, only for a device with confirmed beats.
extern const char* const kReportSeries[7];

class Report {
public:
    static constexpr int kEcgSeconds = 10;
    // The display ECG lags its input by the conditioning filters' delay, 26 samples at 200/s
    // (measured by cross-correlation on the synthetic and the shared recordings alike).
    static constexpr int kDisplayDelayMs = 130;
    static constexpr int kStretchSeconds = 30;  // respiration stretch; the ECG shows its start
    static constexpr int kMaxEcgStrips = 5;     // the chosen time and up to four events

    // `stretchStart`: second of each device's recording where the waveform stretch begins;
    // a recording too short for it shows its last seconds instead.
    Report(std::string title, int stretchStart);

    void add(size_t device, const ParamsIn& in, const ParamsOut& out, const SecondTruth* truth);
    // The beats the device's last frame confirmed (after add() for that frame): marked on the ECG
    // strip, and drawn as an RR tachogram when any were added.
    void addBeats(size_t device, const std::vector<rtm_beat>& beats);
    void addNote(const std::string& text) { notes_.push_back(text); }
    // Reference rates for one device (per second from its first frame; NaN or <= 0 where there
    // is none), drawn over the library's rates under the name `label`.
    void setReference(int32_t deviceId, std::vector<double> heart, std::vector<double> breath,
                      std::string label = "reference");
    // Summary lines shown at the top (e.g. the demo's comparison with the truth).
    void addSummary(const std::string& text) { summary_.push_back(text); }
    // Channels the recording did not have (the input held a substitute): their results are
    // labelled "not in this recording" instead of drawn.
    void setNotInRecording(bool respiration, bool accelerometer) {
        noRespiration_ = respiration, noAccelerometer_ = accelerometer;
    }

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
        std::deque<StretchFrame> stretch;       // the last kStretchSeconds frames until frozen
        std::vector<double> beatTimes, beatRr;  // R peak (s from the first frame), RR interval (ms)
        bool frozen = false;
        size_t stretchFirst = 0;             // second of stretch.front()
        std::vector<int16_t> ecgIn, ecgOut;  // every second's ECG (0..1023 fits), for event strips
        std::vector<uint8_t> inputDoubt;     // per second: ECG input clipped at a rail or flat
        // Whether the respiration and accelerometer inputs ever changed from the first sample.
        int32_t resp0 = 0, acc0[3] = {0, 0, 0};
        bool respVaries = false, accVaries = false;
    };
    // Why a channel's results are not drawn ("" when it was measured).
    std::string respirationMissing(const Device& d) const;
    std::string accelerometerMissing(const Device& d) const;
    struct Strip {
        size_t start;
        std::string why;
    };
    std::vector<Strip> ecgStrips(const Device& d) const;
    std::string ecgStrip(const Device& d, const Strip& s) const;
    std::string ratePlots(const Device& d) const;
    std::string waveformAndPosture(const Device& d) const;
    struct Reference {
        std::vector<double> heart, breath;
        std::string label;
    };
    std::string deviceSection(const Device& d) const;
    std::string summaryTable() const;
    const Reference* referenceOf(int32_t deviceId) const;

    std::string title_;
    int stretchStart_;
    std::vector<Device> devices_;
    std::vector<std::string> notes_, summary_;
    std::map<int32_t, Reference> references_;
    bool noRespiration_ = false, noAccelerometer_ = false;
};

// The tool's own look at one second of ECG input: clipped at 0 or 1023, or flat (a long run of
// one value). A finding about the input, not about the library's analysis.
bool ecgInputDoubtful(const int32_t (&samples)[200]);

}  // namespace rtmtool

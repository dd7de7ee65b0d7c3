// The report's plots: rate gaps where nothing was reported, the waveform stretch taken where
// asked (or at the end of a short recording), and text escaped.
#include <string>

#include <gtest/gtest.h>

#include "report.h"

namespace rtmtool {
namespace {

std::string plotOf(const std::string& html, int device, const std::string& series) {
    const std::string key = "data-device=\"" + std::to_string(device) + "\" data-series=\"" + series + "\"";
    const size_t at = html.find(key);
    if (at == std::string::npos) return "";
    return html.substr(at, html.find("</svg>", at) - at);
}

size_t count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + what.size())) ++n;
    return n;
}

// Frames whose ECG input is 512 + the second, so the stretch shown can be read off the axis.
void addFrames(Report& r, int seconds, int32_t device, size_t index, int (*heartRate)(int)) {
    for (int s = 0; s < seconds; ++s) {
        ParamsIn in{};
        in.nDeviceId = device;
        in.nFrameSeq = s;
        for (int32_t& v : in.nHeartData) v = 512 + s;
        ParamsOut out{};
        out.nHeartRate = heartRate(s);
        for (int32_t& v : out.nMovement) v = 1;
        r.add(index, in, out, nullptr);
    }
}

TEST(Report, NoRateLeavesAGapInTheTrend) {
    Report r("gaps", 0);
    // Rates in seconds 10..19 and 30..39 only: two separate lines.
    addFrames(r, 50, 4, 0, [](int s) { return (s / 10) % 2 == 1 ? 70 + s % 10 : 0; });
    const std::string hr = plotOf(r.html(), 4, "heart-rate");
    ASSERT_FALSE(hr.empty());
    EXPECT_EQ(count(hr, "<polyline"), 2u);
    EXPECT_EQ(hr.find("no heart rate reported"), std::string::npos);
    // Nothing at all reported: no line, and a note saying so.
    Report none("none", 0);
    addFrames(none, 20, 4, 0, [](int) { return 0; });
    const std::string empty = plotOf(none.html(), 4, "heart-rate");
    EXPECT_EQ(count(empty, "<polyline"), 0u);
    EXPECT_NE(empty.find("no heart rate reported"), std::string::npos);
}

TEST(Report, StretchStartsWhereAskedOrCoversTheEnd) {
    Report r("stretch", 5);
    addFrames(r, 100, 1, 0, [](int) { return 60; });
    const std::string ecg = plotOf(r.html(), 1, "ecg");
    EXPECT_NE(ecg.find(">5</text>"), std::string::npos);
    EXPECT_NE(ecg.find(">15</text>"), std::string::npos);
    EXPECT_EQ(ecg.find(">16</text>"), std::string::npos);
    // The ECG input of seconds 5..14 is 517..526: the value axis covers that band, not 512..521.
    EXPECT_NE(ecg.find(">525</text>"), std::string::npos);
    EXPECT_EQ(ecg.find(">515</text>"), std::string::npos);

    Report shortRec("short", 60);
    addFrames(shortRec, 20, 1, 0, [](int) { return 60; });
    const std::string resp = plotOf(shortRec.html(), 1, "respiration");
    EXPECT_NE(resp.find(">0</text>"), std::string::npos);
    EXPECT_NE(resp.find(">20</text>"), std::string::npos);
}

TEST(Report, TextIsEscaped) {
    Report r("a <b> & \"c\"", 0);
    r.addNote("x.frames: incomplete record <here>");
    const std::string html = r.html();
    EXPECT_NE(html.find("a &lt;b&gt; &amp; &quot;c&quot;"), std::string::npos);
    EXPECT_NE(html.find("incomplete record &lt;here&gt;"), std::string::npos);
    EXPECT_EQ(html.find("<b>"), std::string::npos);
    EXPECT_NE(html.find("No frames were analysed"), std::string::npos);
}

}  // namespace
}  // namespace rtmtool
